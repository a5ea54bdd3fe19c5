// The capture daemon: start, banner, run, stop, exit status.
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <chrono>
#include <iostream>
#include <thread>

#include "capture/Capture.h"
#include "capture/EndWatch.h"
#include "capture/Initializer.h"
#include "capture/SignalHandler.h"
#include "common/FileLogger.h"
#include "common/SignalMask.h"
#include "common/Util.h"

using qz::capture::Capture;
using qz::capture::EndWatch;
using qz::capture::Initializer;
using qz::capture::SignalHandler;
using qz::common::SignalSet;
using qz::common::Util;
using qz::common::VersionType;
using namespace std::chrono_literals;

namespace {

constexpr const char* RULER = "******************************************************";

// What a parent may have left, and what the system has for it: signals that are blocked or ignored, a file size limit
// that would end the process instead of failing the write, closed standard descriptors.  Nothing that is opened later,
// a lock or the log, may land on one of those.
void SetAsideWhatIsInherited() {
    signal(SIGCHLD, SIG_DFL); // ignored, the decoder's status would be nobody's
    signal(SIGXFSZ, SIG_IGN);
    const sigset_t none = SignalSet({});
    sigprocmask(SIG_SETMASK, &none, nullptr);
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (fcntl(fd, F_GETFD) == -1)
            (void)open("/dev/null", O_RDWR); // takes the lowest free number, which is this one
    }
}

// False, with the engine left alone, when the library did not close: its threads may still call back.
bool Delete(Capture* engine) {
    SignalHandler::stop();
    if (!engine->LibraryClosed())
        return false;
    delete engine;
    return true;
}

} // namespace

int main(int argc, char** argv) {
    SetAsideWhatIsInherited();
    Initializer initializer(argc, argv);
    if (!initializer.Initialized()) {
        std::cout << "failure to process initialize" << std::endl; // also the end of a --stop
        return -1;
    }
    prctl(PR_SET_PDEATHSIG, SIGTERM); // the daemon does not outlive its parent

    QZ_LOG(INF, RULER);
    QZ_LOG(INF, "*      TORMEL PLINTA CAPTURE v" << Util::GetVersion(VersionType::BUILD_SECOND_HALF) << "     *");
    QZ_LOG(INF, RULER);

    auto* engine = new Capture();
    if (!EndWatch::start([&initializer] { initializer.Release(); }) || !SignalHandler::setupSignal()) {
        delete engine;
        std::cout << "failure to process initialize" << std::endl;
        return -1;
    }
    SignalHandler::subscribe(engine);
    std::this_thread::sleep_for(1ms);
    QZ_LOG(INF, " * TORMEL PLINTA CAPTURE [Ready]");

    const int status = engine->Run() > 0 ? 0 : -1;
    EndWatch::begin(status);
    bool deleted = false;
    // The two orders differ: whoever reads the log tells by them whether the run failed.
    if (status == 0) {
        engine->Stop();
        deleted = Delete(engine);
        QZ_LOG(INF, "TORMEL PLINTA CAPTURE [Terminated]");
        std::this_thread::sleep_for(300us);
    } else {
        QZ_LOG(INF, "TORMEL PLINTA CAPTURE [Terminated]");
        engine->Stop();
        std::this_thread::sleep_for(300us);
        deleted = Delete(engine);
    }
    if (!deleted)
        initializer.Abandon(status);
    return status;
}
