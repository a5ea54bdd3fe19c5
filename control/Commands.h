#pragma once

#include <chrono>
#include <string>

#include "control/Report.h"

namespace qz::control {

// What capturectl does.  Each operation gives the answer for a person and for a script, or throws a Failure.  None
// creates anything but the files it is asked for, and none takes longer than its time-out.
//
// Threads: main.

// One snapshot that was taken after the call, published and, where files are named, copied there.
Report TakeSnapshot(std::chrono::milliseconds timeout, const std::string& output, const std::string& liveView);

// Another rotation, in degrees.
Report Rotate(std::chrono::milliseconds timeout, int degrees);

// Ends the daemon by its command or by SIGTERM, and waits until it has gone.
Report End(std::chrono::milliseconds timeout);
Report Stop(std::chrono::milliseconds timeout);

// Lock, process, pictures, and how the last session ended.  Its status is NO_DAEMON when none runs.
Report ShowStatus();

// Waits until the running instance serves commands.
Report WaitReady(std::chrono::milliseconds timeout);

// Prints the log, and with follow what still comes, until a signal ends the program.  Levels in order: ERR, WRN, INF,
// DBG; text: only the records that hold it.
void PrintLog(bool follow, const std::string& level, const std::string& text);

} // namespace qz::control
