#include "tools/tool_runner.h"

#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <regex>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace velmor_test {

namespace {

std::string Slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string Quoted(const std::string& text) {
    std::string quoted = "'";
    for (char c : text) {
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return quoted + "'";
}

} // namespace

std::string ScratchPath(const std::string& name) {
    // WriteTempFile makes the directory and owns its removal.
    const std::string path = WriteTempFile({}, name);
    std::remove(path.c_str());
    return path;
}

std::string Pki(const std::string& family, const std::string& file) {
    return DataPath("pki/" + family + "/" + file);
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::size_t start = 0;
    while (start < text.size()) {
        const std::size_t end = text.find('\n', start);
        lines.push_back(text.substr(start, end - start));
        if (end == std::string::npos) {
            break;
        }
        start = end + 1;
    }
    return lines;
}

pid_t Spawn(std::vector<std::string> argv, const std::string& outPath, const std::string& errPath) {
    std::vector<char*> pointers;
    for (std::string& arg : argv) {
        pointers.push_back(arg.data());
    }
    pointers.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0600);
    posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0600);
    pid_t child = 0;
    const int spawned =
        posix_spawnp(&child, pointers.front(), &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return spawned == 0 ? child : 0;
}

ToolRun RunTool(const std::vector<std::string>& args) {
    static int counter = 0;
    const std::string outPath = ScratchPath("tool-out-" + std::to_string(++counter));
    const std::string errPath = outPath + ".err";
    std::vector<std::string> argv{VELMOR_TOOL};
    argv.insert(argv.end(), args.begin(), args.end());
    ToolRun run;
    const pid_t child = Spawn(argv, outPath, errPath);
    if (child == 0) {
        ADD_FAILURE() << "cannot start " << VELMOR_TOOL;
        return run;
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    run.out = Slurp(outPath);
    run.err = Slurp(errPath);
    std::remove(outPath.c_str());
    std::remove(errPath.c_str());
    return run;
}

void ExpectOneLine(const BadInput& c) {
    std::string command;
    for (const std::string& arg : c.args) {
        command += " " + arg;
    }
    SCOPED_TRACE(command);
    const ToolRun run = RunTool(c.args);
    EXPECT_EQ(run.exitCode, c.exitCode) << run.err;
    EXPECT_EQ(run.err, "velmor-ocsp: " + c.message + "\n");
}

ToolRun RunRequest(const std::string& family, const std::vector<std::string>& leaves,
                   const std::string& out, const std::vector<std::string>& more) {
    std::vector<std::string> args{"request", "--issuer", Pki(family, "inter.pem")};
    for (const std::string& leaf : leaves) {
        args.push_back("--cert");
        args.push_back(Pki(family, leaf + ".der"));
    }
    args.insert(args.end(), more.begin(), more.end());
    args.push_back("--out");
    args.push_back(out);
    return RunTool(args);
}

std::string IsoTime(std::time_t time) {
    std::tm parts{};
    gmtime_r(&time, &parts);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

std::string WithIsoTimes(const std::string& opensslText) {
    static const std::regex kTime("(Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) ([ 0-9][0-9]) "
                                  "([0-9][0-9]):([0-9][0-9]):([0-9][0-9]) ([0-9]{4}) GMT");
    static const std::string kMonths = "JanFebMarAprMayJunJulAugSepOctNovDec";
    std::string out;
    auto from = opensslText.cbegin();
    for (std::sregex_iterator it(opensslText.begin(), opensslText.end(), kTime), end; it != end;
         ++it) {
        const std::smatch& m = *it;
        out.append(from, m[0].first);
        const int month = static_cast<int>(kMonths.find(m[1].str()) / 3) + 1;
        char text[32];
        std::snprintf(text, sizeof text, "%s-%02d-%02dT%s:%s:%sZ", m[6].str().c_str(), month,
                      std::stoi(m[2].str()), m[3].str().c_str(), m[4].str().c_str(),
                      m[5].str().c_str());
        out += text;
        from = m[0].second;
    }
    out.append(from, opensslText.cend());
    return out;
}

int RunPython(const std::string& script, const std::vector<std::string>& args,
              std::string* output) {
    static int counter = 0;
    const std::string path =
        WriteTempFile(Text(script), "script-" + std::to_string(++counter) + ".py");
    // Newer cryptography releases warn about properties that older ones only have.
    std::string command = Python() + " -W ignore " + Quoted(path);
    for (const std::string& arg : args) {
        command += " " + Quoted(arg);
    }
    return RunCommand(command + " 2>&1", output);
}

} // namespace velmor_test
