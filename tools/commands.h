// The subcommands. Each adds itself to the application with its options and gives back
// what to run once the command line is parsed; the result is the exit code.
#ifndef VELMOR_TOOLS_COMMANDS_H
#define VELMOR_TOOLS_COMMANDS_H

#include <functional>

namespace CLI {
class App;
}

namespace VelmorTool {

struct Command {
    CLI::App* app;
    std::function<int()> run;
};

Command AddRequestCommand(CLI::App& application);
Command AddRespondCommand(CLI::App& application);
Command AddShowCommand(CLI::App& application);
Command AddVerifyCommand(CLI::App& application);
Command AddQueryCommand(CLI::App& application);
Command AddServeCommand(CLI::App& application);
Command AddPresignCommand(CLI::App& application);

} // namespace VelmorTool

#endif
