// The extension classes with a typed value against OpenSSL on the same value bytes, as
// operations named "extension construct, <class>" and "extension put..., <class>".
#ifndef VELMOR_BENCH_SHARED_EXTENSION_OPERATIONS_H
#define VELMOR_BENCH_SHARED_EXTENSION_OPERATIONS_H

#include "operation.h"

#include <vector>

namespace velmor_bench {

// Checks first that OpenSSL reads each sample value and writes back the same bytes (the
// program exits when it does not), then appends the extension operations.
void AddExtensionOperations(std::vector<Operation>& operations);

} // namespace velmor_bench

#endif
