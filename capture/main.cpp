// The capture daemon: start, banner, run, stop, exit status.
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <chrono>
#include <iostream>
#include <thread>

#include "capture/Capture.h"
#include "capture/Initializer.h"
#include "capture/SignalHandler.h"
#include "common/FileLogger.h"
#include "common/Util.h"

using qz::capture::Capture;
using qz::capture::Initializer;
using qz::capture::SignalHandler;
using qz::common::Util;
using qz::common::VersionType;

namespace {

constexpr const char* RULER = "******************************************************";

void SleepMicroseconds(int count) {
    std::this_thread::sleep_for(std::chrono::microseconds(count));
}

// A parent may have closed the standard descriptors.  Nothing that is opened later, a lock or the log, may
// land there.
void OpenStandardDescriptors() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (fcntl(fd, F_GETFD) == -1)
            (void)open("/dev/null", O_RDWR); // takes the lowest free number, which is this one
    }
}

// After this no observer is called and, unless a library call never returned, no thread is in the engine.
void Delete(Capture* engine) {
    SignalHandler::stop();
    if (engine->Quiescent())
        delete engine;
}

} // namespace

int main(int argc, char** argv) {
    OpenStandardDescriptors();
    Initializer initializer(argc, argv);
    if (!initializer.Initialized()) {
        std::cout << "failure to process initialize" << std::endl; // also the end of a --stop
        return -1;
    }
    prctl(PR_SET_PDEATHSIG, SIGTERM); // the daemon does not outlive its parent

    QZ_LOG(INF, RULER);
    QZ_LOG(INF,
           "*      TORMEL PLINTA CAPTURE v" << Util::GetVersion(VersionType::BUILD_SECOND_HALF) << "     *");
    QZ_LOG(INF, RULER);

    auto* engine = new Capture();
    SignalHandler::setupSignal();
    SignalHandler::subscribe(engine);
    SleepMicroseconds(1000);
    QZ_LOG(INF, " * TORMEL PLINTA CAPTURE [Ready]");

    const bool orderly = engine->Run() > 0;
    const bool quiescent = engine->Quiescent();
    const int status = orderly ? 0 : -1;
    // The two orders differ, deliberately.
    if (orderly) {
        engine->Stop();
        Delete(engine);
        QZ_LOG(INF, "TORMEL PLINTA CAPTURE [Terminated]");
        SleepMicroseconds(300);
    } else {
        QZ_LOG(INF, "TORMEL PLINTA CAPTURE [Terminated]");
        engine->Stop();
        SleepMicroseconds(300);
        Delete(engine);
    }
    if (!quiescent)
        initializer.Abandon(status);
    return status;
}
