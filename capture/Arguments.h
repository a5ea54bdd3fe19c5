#pragma once

#include <string>
#include <vector>

namespace qz::capture {

// The command line.  Options: -d/--debug, -s VALUE/--stop, -c VALUE (accepted, ignored), --help/-? VALUE.
class Arguments {
public:
    // Parses; see Parsing.
    Arguments(int argc, char** argv);
    virtual ~Arguments() = default;

    // -1 when the options are exhausted.  A request for help and a wrong option print the usage text and end the
    // process with status 0.
    int Parsing(int argc, char** argv);

    // Writes the usage text to standard output.
    void usage(char* program);

    bool Debug() const { return m_Debug; }
    bool Stop() const { return m_Stop; }

private:
    bool m_Debug = false;
    bool m_Stop = false;
    std::vector<std::string> m_List; // nothing fills it
};

} // namespace qz::capture
