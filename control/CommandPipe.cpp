// Writing commands.  Tested in tests/control/ControlTest.cpp.
#include "control/CommandPipe.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <thread>

#include "common/Constants.h"
#include "control/ExitStatus.h"

using qz::common::CAPTURE_FIFO_PATH;
using qz::common::UniqueFd;

namespace qz::control {

namespace {

constexpr std::chrono::milliseconds INTERVAL{1};

[[noreturn]] void ThrowOpenError(int error) {
    switch (error) {
    case ENXIO:
        throw Failure{NO_DAEMON, "not running", "nobody reads the command pipe: the daemon is not running"};
    case EACCES:
    case EPERM:
        throw Failure{NO_PERMISSION, "no permission", "no permission to write into " + CAPTURE_FIFO_PATH};
    default:
        throw Failure{BROKEN, "no pipe", CAPTURE_FIFO_PATH + ": " + strerror(error)};
    }
}

} // namespace

CommandPipe::CommandPipe() {
    signal(SIGPIPE, SIG_IGN); // the daemon may go away between the opening and the write
    struct stat status {};
    if (stat(CAPTURE_FIFO_PATH.c_str(), &status) != 0)
        ThrowOpenError(errno);
    if (!S_ISFIFO(status.st_mode))
        throw Failure{REFUSED, "no pipe", CAPTURE_FIFO_PATH + " is no pipe: remove it and make one (mkfifo)"};
    m_Pipe = UniqueFd(open(CAPTURE_FIFO_PATH.c_str(), O_WRONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    if (!m_Pipe.Valid())
        ThrowOpenError(errno);
}

int CommandPipe::Unread() const {
    int count = 0;
    return ioctl(m_Pipe.Get(), FIONREAD, &count) == 0 ? count : 0;
}

void CommandPipe::Write(const std::string& command) {
    if (write(m_Pipe.Get(), command.data(), command.size()) != static_cast<ssize_t>(command.size()))
        ThrowOpenError(errno == EPIPE ? ENXIO : errno);
}

ClientLock::ClientLock(const Deadline& deadline) {
    // The folder itself is locked: nothing has to be made, and nothing stays behind.
    m_Lock = UniqueFd(open(qz::common::TMP_DIR.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!m_Lock.Valid())
        throw Failure{errno == EACCES ? NO_PERMISSION : BROKEN, "no folder",
                      qz::common::TMP_DIR + ": " + strerror(errno)};
    while (flock(m_Lock.Get(), LOCK_EX | LOCK_NB) != 0) {
        if (deadline.Passed())
            throw Failure{TIMED_OUT, "busy", "another client is still waiting for its answer"};
        std::this_thread::sleep_for(INTERVAL);
    }
}

} // namespace qz::control
