// Waiting for changes.  Tested in tests/control/ControlTest.cpp.
#include "control/ChangeWatch.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>

namespace qz::control {

namespace {

// A process that ends changes no folder, so it is looked at this often.
constexpr std::chrono::milliseconds LOOK_AGAIN{50};
constexpr std::chrono::milliseconds WITHOUT_NOTIFY{2};

} // namespace

ChangeWatch::ChangeWatch(const std::vector<std::string>& folders) : m_Notify(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    for (const std::string& folder : folders) {
        if (m_Notify.Valid() &&
            inotify_add_watch(m_Notify.Get(), folder.c_str(), IN_MODIFY | IN_CREATE | IN_MOVED_TO) < 0)
            m_Notify.Reset();
    }
}

void ChangeWatch::Wait(const Deadline& deadline) {
    const auto limit = std::min(m_Notify.Valid() ? LOOK_AGAIN : WITHOUT_NOTIFY, deadline.Left());
    pollfd watched{m_Notify.Get(), POLLIN, 0};
    poll(&watched, 1, static_cast<int>(limit.count()));
    alignas(inotify_event) char events[4096];
    while (m_Notify.Valid() && read(m_Notify.Get(), events, sizeof events) > 0) {
    }
}

} // namespace qz::control
