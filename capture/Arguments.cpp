// The command line.  Tested in tests/daemon/DaemonTest.cpp.
#include "capture/Arguments.h"

#include <getopt.h>

#include <cstdlib>
#include <iostream>

namespace qz::capture {

namespace {

// The appliance's programs call these options as they are: -s and -? take an argument that is thrown away, and -c takes
// one and does nothing.
constexpr const char* SHORT_OPTIONS = "c:s:d?:";

const option LONG_OPTIONS[] = {
    {"debug", no_argument, nullptr, 'd'},
    {"stop", no_argument, nullptr, 's'},
    {"help", no_argument, nullptr, '?'},
    {nullptr, 0, nullptr, 0},
};

} // namespace

Arguments::Arguments(int argc, char** argv) {
    Parsing(argc, argv);
}

int Arguments::Parsing(int argc, char** argv) {
    for (;;) {
        switch (getopt_long(argc, argv, SHORT_OPTIONS, LONG_OPTIONS, nullptr)) {
        case -1:
            return -1;
        case 'd':
            m_Debug = true;
            break;
        case 's':
            m_Stop = true;
            break;
        case '?': // asked for, or an option that getopt_long has complained about
            usage(argv[0]);
            exit(0);
        default:
            break;
        }
    }
}

void Arguments::usage(char* program) {
    std::cout << "usage) " << program << std::endl;
    std::cout << " -- debug  : run debug mode" << std::endl;
    std::cout << " -- stop   : stop process" << std::endl;
    std::cout << " -- help   : print usage" << std::endl;
    std::cout << std::endl;
}

} // namespace qz::capture
