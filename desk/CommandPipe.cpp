// Commands to the daemon.  Tested in tests/desk/desk_test.py.
#include "desk/CommandPipe.h"

#include <fcntl.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstring>
#include <thread>

#include "common/Constants.h"
#include "common/Owners.h"
#include "desk/Refusal.h"

using qz::common::CAPTURE_FIFO_PATH;
using qz::common::UniqueFd;

namespace qz::desk {

namespace {

constexpr std::chrono::milliseconds INTERVAL{5};

bool IsEmpty(int pipe) {
    int unread = 0;
    return ioctl(pipe, FIONREAD, &unread) != 0 || unread == 0;
}

} // namespace

void CommandPipe::Send(const std::string& command, std::chrono::milliseconds limit) {
    const std::lock_guard<std::mutex> lock(m_Lock);
    const UniqueFd pipe(open(CAPTURE_FIFO_PATH.c_str(), O_WRONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    if (!pipe.Valid())
        throw Refusal{NOT_NOW, errno == ENXIO ? "the daemon does not listen: it is not running, or still starting"
                                              : CAPTURE_FIFO_PATH + ": " + strerror(errno)};
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!IsEmpty(pipe.Get())) {
        if (std::chrono::steady_clock::now() >= deadline)
            throw Refusal{NOT_NOW, "the daemon is still busy with the command before"};
        std::this_thread::sleep_for(INTERVAL);
    }
    if (write(pipe.Get(), command.data(), command.size()) != static_cast<ssize_t>(command.size()))
        throw Refusal{NOT_NOW, "the daemon does not listen any more"};
}

} // namespace qz::desk
