// The function field of a log line, from any text that a compiler might give as a signature.
#include <cstdlib>
#include <string>

#include "common/FileLogger.h"

extern "C" int LLVMFuzzerTestOneInput(const char* data, size_t size) {
    const std::string_view signature(data, size);
    const std::string_view name = qz::common::className(signature);
    if (name != "::" && (name.find(' ') != name.npos || signature.find(name) == name.npos))
        abort();
    return 0;
}
