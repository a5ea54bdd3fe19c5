// One session from its start to its end: Run.  Tested in tests/capture/EventsTest.cpp and tests/daemon.
#include "capture/Capture.h"

#include <system_error>
#include <thread>

#include "common/Constants.h"
#include "common/FileLogger.h"
#include "common/Util.h"

using qz::common::CONTROL_PROCESS_NAME;
using qz::common::Util;

namespace qz::capture {

namespace {

// A stop request grants five seconds before it kills.  All of the end fits into that: a decoder that is still
// running is killed after two, and after four the daemon goes on without the task.
constexpr std::chrono::seconds CONVERTER_GRACE{2};
constexpr std::chrono::seconds TASK_GRACE{4};
constexpr std::chrono::milliseconds KILL_INTERVAL{50};

} // namespace

int Capture::Run() {
    if (!Util::PopenCommand("pidof " + CONTROL_PROCESS_NAME).empty()) {
        QZ_LOG(ERR, "kt_control is running.");
        EndSession();
        return -1;
    }
    if (!Initialize()) {
        QZ_LOG(ERR, "Initialize failed");
        PublishFailurePicture();
        EndSession();
        return -1;
    }
    m_Running = true;
    if (!StartCommandTask()) {
        QZ_LOG(ERR, "command pipe task failed");
        EndSession();
        return -1;
    }
    QZ_LOG(INF, "Initialize succeed");

    // Also when the session has ended by now: whoever ended it fulfils the promise, so the result does not
    // depend on the timing.
    const int result = m_Future.get();
    WaitForCommandTask();
    return result;
}

bool Capture::StartCommandTask() {
    std::promise<void> ended;
    m_CommandTask = ended.get_future();
    try {
        // Detached: what tells of its end is the promise, whose state outlives both the thread and the
        // engine.
        std::thread([this, ended = std::move(ended)]() mutable {
            taskMdCapture();
            ended.set_value();
        }).detach();
    } catch (const std::system_error&) {
        m_CommandTask = {};
        return false;
    }
    return true;
}

void Capture::WaitForCommandTask() {
    const auto end = std::chrono::steady_clock::now();
    m_CommandTask.wait_until(end + CONVERTER_GRACE);
    // Again and again: a snapshot that is only now written would start another decoder.
    while (!Quiescent() && std::chrono::steady_clock::now() < end + TASK_GRACE) {
        KillConverter();
        m_CommandTask.wait_for(KILL_INTERVAL);
    }
    if (!Quiescent())
        QZ_LOG(ERR, "command pipe task still busy");
}

bool Capture::Quiescent() const {
    return !m_CommandTask.valid() ||
           m_CommandTask.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}

} // namespace qz::capture
