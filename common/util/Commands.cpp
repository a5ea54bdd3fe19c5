// Shell commands and their output.  Popen*Command.  Tested in tests/common/UtilTest.cpp.
#include "common/Util.h"

#include <cerrno>
#include <cstdio>

#include "common/Owners.h"

namespace qz::common {

namespace {

constexpr size_t LINE_SIZE = 1024; // with the terminating zero

PipePtr StartCommand(const std::string& cmd) {
    return PipePtr(popen(cmd.c_str(), "re"));
}

// Reads up to a line end as fgets does.  fgets itself would lose the line when a signal handler interrupts it.
bool ReadLine(const PipePtr& pipe, char (&line)[LINE_SIZE]) {
    size_t used = 0;
    while (used + 1 < LINE_SIZE) {
        const int next = getc(pipe.get());
        if (next == EOF) {
            if (ferror(pipe.get()) && errno == EINTR) {
                clearerr(pipe.get());
                continue;
            }
            break;
        }
        line[used++] = static_cast<char>(next);
        if (next == '\n')
            break;
    }
    line[used] = '\0';
    return used > 0;
}

} // namespace

std::string Util::PopenCommand(const std::string& cmd) {
    const PipePtr pipe = StartCommand(cmd);
    char line[LINE_SIZE] = {};
    if (pipe)
        ReadLine(pipe, line);
    return line; // up to the first zero byte: some commands end their line with one
}

std::vector<std::string> Util::PopenListCommand(const std::string& cmd) {
    std::vector<std::string> lines;
    const PipePtr pipe = StartCommand(cmd);
    char line[LINE_SIZE];
    while (pipe && ReadLine(pipe, line))
        lines.emplace_back(line);
    return lines;
}

std::string Util::PopenNetworkCommand(const std::string& cmd) {
    std::string gathered;
    const PipePtr pipe = StartCommand(cmd);
    char line[LINE_SIZE];
    while (pipe && gathered.find("mipi inform") == std::string::npos && ReadLine(pipe, line))
        gathered += line;
    return gathered;
}

} // namespace qz::common
