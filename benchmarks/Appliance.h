#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "benchmarks/Measure.h"
#include "common/Constants.h"

// The appliance's folders, made in the sandbox (tests/sandbox.sh), whose /opt and /var/log are empty.
namespace qz::benchmarks {

inline const std::string LOG_DIRECTORY = common::LOG_DIR + "/agent";

inline void Shell(const std::string& command) {
    Require(std::system(command.c_str()) == 0, command + " failed");
}

// The program directory with the real djpeg, the temporary directory with the FIFO, the log directory.
inline void MakeAppliance() {
    Require(std::filesystem::is_empty("/opt"), "run this in tests/sandbox.sh");
    for (const std::string& directory : {common::AGENT_LATEST_PATH, common::TMP_DIR, LOG_DIRECTORY})
        std::filesystem::create_directories(directory);
    Shell("ln -s \"$(command -v djpeg)\" " + common::AGENT_LATEST_PATH + "/djpeg");
    Shell("echo 1.0.0.0100 >" + common::VERSION_FILE_PATH);
    Require(mkfifo(common::CAPTURE_FIFO_PATH.c_str(), 0666) == 0, "cannot make the FIFO");
}

} // namespace qz::benchmarks
