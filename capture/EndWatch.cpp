// The bounded end of the process.  Tested in tests/daemon/DaemonTest.cpp.
#include "capture/EndWatch.h"

#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>

#include "capture/SignalHandler.h"
#include "common/FileLogger.h"
#include "common/SignalMask.h"

using qz::common::AllSignalsBlocked;
using qz::common::FileLogger;
using std::chrono::steady_clock;
using namespace std::chrono_literals;

namespace qz::capture {

namespace {

// After the session's end.  The rest of the five seconds is for what follows each: the last lines, the files, the exit.
constexpr auto LIBRARY_LIMIT = 4000ms;
constexpr auto EXIT_LIMIT = 4700ms;
constexpr auto LAST_LINES = 500ms;

struct State {
    std::mutex lock; // guards the rest; held for ever once the watch gives up, so that main goes no further
    std::condition_variable changed;
    std::function<void()> release;
    bool begun = false;
    steady_clock::time_point sessionEnd;
    int status = 0;
    EndWatch::Stage stage = EndWatch::Stage::LIBRARY;
    const char* what = "";
};

// Never destroyed: the watch lives as long as the process, its static objects' end included.
State& state = *new State;

steady_clock::time_point Deadline() {
    return state.sessionEnd + (state.stage == EndWatch::Stage::LIBRARY ? LIBRARY_LIMIT : EXIT_LIMIT);
}

} // namespace

bool EndWatch::start(std::function<void()> release) {
    state.release = std::move(release);
    const AllSignalsBlocked blocked;
    try {
        std::thread(watch).detach();
    } catch (const std::system_error& error) { // GCOV_EXCL_START: scripts/sweep.sh lets it fail
        QZ_LOG(ERR, "no thread to watch over the end: " << error.what());
        return false;
    } // GCOV_EXCL_STOP
    return true;
}

void EndWatch::begin(int status) {
    const std::lock_guard<std::mutex> lock(state.lock);
    if (state.begun)
        return;
    state.begun = true;
    state.sessionEnd = steady_clock::now();
    state.status = status;
    state.changed.notify_one();
}

void EndWatch::enter(Stage stage, const char* what) {
    const std::lock_guard<std::mutex> lock(state.lock);
    state.stage = stage;
    state.what = what;
}

void EndWatch::watch() {
    std::unique_lock<std::mutex> lock(state.lock);
    state.changed.wait(lock, [] { return state.begun; });
    // The stage may move the deadline on meanwhile.
    while (steady_clock::now() < Deadline())
        state.changed.wait_until(lock, Deadline());
    giveUp();
}

// It ends the process, which writes no counters then; tests/daemon looks at it from outside.  GCOV_EXCL_START
void EndWatch::giveUp() {
    if (state.stage == Stage::LIBRARY) {
        QZ_LOG(ERR, "gave up waiting for " << state.what);
        if (state.status == 0)
            QZ_LOG(INF, "TORMEL PLINTA CAPTURE [Terminated]"); // a failed run has written it by now
        FileLogger::instance()->Drain(LAST_LINES);
    }
    if (state.stage != Stage::EXIT)
        state.release();
    SignalHandler::yieldToFault();
    _exit(state.status);
}
// GCOV_EXCL_STOP

} // namespace qz::capture
