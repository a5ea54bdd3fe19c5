// One session from its start to its end: Run.  Tested in tests/capture/EventsTest.cpp and tests/daemon.
#include "capture/Capture.h"

#include <system_error>
#include <thread>

#include "capture/EndWatch.h"
#include "common/Constants.h"
#include "common/FileLogger.h"
#include "common/Util.h"

using qz::common::CONTROL_PROCESS_NAME;
using qz::common::Util;
using namespace std::chrono_literals;

namespace qz::capture {

namespace {

constexpr int NO_SESSION = -1; // the result of a run that did not come about

// After the session's end: then a decoder that is still running is killed.
constexpr auto CONVERTER_GRACE = 2s;

} // namespace

int Capture::Run() {
    if (m_WasRun.exchange(true)) {
        QZ_LOG(ERR, "Run was called before.");
        return NO_SESSION;
    }
    if (!Util::PopenCommand("pidof " + CONTROL_PROCESS_NAME).empty()) {
        QZ_LOG(ERR, "kt_control is running.");
        EndSession();
        return NO_SESSION;
    }
    if (!Initialize()) {
        QZ_LOG(ERR, "Initialize failed");
        PublishFailurePicture();
        EndSession();
        return NO_SESSION;
    }
    m_Running = true;
    if (!StartCommandTask()) { // GCOV_EXCL_START: scripts/sweep.sh lets it fail, here and below
        QZ_LOG(ERR, "command pipe task failed");
        EndSession();
        return NO_SESSION;
    } // GCOV_EXCL_STOP
    QZ_LOG(INF, "Initialize succeed");

    // Also when the session has ended by now: whoever ended it fulfils the promise, so the result does not depend on
    // the timing.
    const int result = m_Future.get();
    EndWatch::begin(0);
    WaitForCommandTask();
    return result;
}

bool Capture::StartCommandTask() {
    std::promise<void> ended;
    m_CommandTask = ended.get_future();
    try {
        // Detached: what tells of its end is the promise, whose state outlives both the thread and the engine.
        std::thread([this, ended = std::move(ended)]() mutable {
            taskMdCapture();
            ended.set_value();
        }).detach();
    } catch (const std::system_error&) { // GCOV_EXCL_START
        m_CommandTask = {};
        return false;
    } // GCOV_EXCL_STOP
    return true;
}

void Capture::WaitForCommandTask() {
    EndWatch::enter(EndWatch::Stage::LIBRARY, "the command pipe task");
    if (m_CommandTask.wait_for(CONVERTER_GRACE) != std::future_status::ready)
        m_Converter.Bar(); // also those of a snapshot that is only now written
    m_CommandTask.wait();
}

} // namespace qz::capture
