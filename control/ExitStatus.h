#pragma once

#include <string>

namespace qz::control {

// How capturectl ends.  The numbers are those of sysexits.h where it has one that fits.
enum ExitStatus {
    SUCCESS = 0,
    PICTURE_FAILED = 1, // the daemon answered that it has no picture, or the rotation failed
    WRONG_USE = 64,     // the command line
    NO_DAEMON = 69,     // it is not running, or it ended meanwhile
    TROUBLE = 70,       // a check of the doctor failed
    CANNOT_WRITE = 73,  // the file asked for could not be written
    TIMED_OUT = 75,     // no answer in time; another try may help
    REFUSED = 76,       // the command pipe does not take the command: it is full, or no pipe
    NO_PERMISSION = 77,
    BROKEN = 78 // the installation: a file or folder that has to be there is not
};

// Why a command could not be carried out, in one sentence for a person.  Caught in main, which ends with the status.
struct Failure {
    ExitStatus status;
    const char* kind; // a word for scripts
    std::string reason;
};

} // namespace qz::control
