// Waiting for what the daemon logs.  Tested in tests/control/ControlTest.cpp.
#include "control/Conversation.h"

#include <unistd.h>

#include <cerrno>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "control/ExitStatus.h"

using qz::common::LogRecord;

namespace qz::control {

namespace {

constexpr std::chrono::milliseconds PROCESS_INTERVAL{50}; // the process takes longer to look at than the log

void Pause() {
    std::this_thread::sleep_for(Conversation::LOOK_INTERVAL);
}

} // namespace

Conversation::Conversation(const Deadline& deadline)
    : m_Deadline(deadline), m_Instance(Instance::Look()), m_Log(LogDirectory(), DAEMON_NAME) {}

void Conversation::RequireRunning() const {
    if (!m_Instance.Running())
        throw Failure{NO_DAEMON, "not running", "the daemon is not running"};
    // The answer could not be seen.
    if (access(LogDirectory().c_str(), R_OK | X_OK) != 0 && errno == EACCES)
        throw Failure{NO_PERMISSION, "no permission", "no permission to read the log in " + LogDirectory()};
}

void Conversation::UntilRead(const CommandPipe& pipe) {
    while (pipe.Unread() > 0) {
        if (Ended()) // what it has not read stays in the pipe as long as another program has that open
            ThrowEnded();
        if (m_Deadline.Passed())
            throw Failure{REFUSED, "pipe full", "the daemon does not read what others have written into the pipe"};
        Pause();
    }
    m_Log.SeekToEnd();
}

void Conversation::Ask(CommandPipe& pipe, const std::string& command,
                       const std::function<bool(const LogRecord&)>& enough) {
    pipe.Write(command);
    std::optional<Deadline> half; // since it was read
    bool silent = true;
    bool again = false;
    Until(
        [&](const LogRecord& record) {
            silent = silent && (record.level == "WRN" || record.message.rfind("Invalid screenMode", 0) == 0);
            return enough(record);
        },
        [&] {
            if (!half && pipe.Unread() == 0)
                half.emplace(m_Deadline.Left() / 2);
            if (half && silent && !again && half->Passed()) {
                again = true;
                try {
                    pipe.Write(command);
                } catch (const Failure&) {
                    // It has ended, and its last lines tell why, or the time runs out on a full pipe.
                }
            }
            return half.has_value();
        });
}

void Conversation::Until(const std::function<bool(const LogRecord&)>& enough, const std::function<bool()>& isTime) {
    auto nextLook = std::chrono::steady_clock::now();
    for (;;) {
        bool gone = false;
        if (std::chrono::steady_clock::now() >= nextLook) {
            gone = Ended(); // looked at before the log: what it wrote last is read then
            nextLook += PROCESS_INTERVAL;
        }
        std::vector<LogRecord> records;
        while (std::optional<LogRecord> record = m_Log.Next())
            records.push_back(std::move(*record));
        // Asked after the reading: what has been read by then was logged before.
        const bool time = isTime();
        for (const LogRecord& record : records) {
            if (record.pid != m_Instance.pid)
                continue;
            if (record.level == "ERR")
                m_LastError = record.message;
            if (time && enough(record))
                return;
        }
        if (gone)
            ThrowEnded();
        if (m_Deadline.Passed())
            throw Failure{TIMED_OUT, "timed out", "no answer within the time given"};
        Pause();
    }
}

void Conversation::UntilGone() {
    while (!Ended()) {
        if (m_Deadline.Passed())
            throw Failure{TIMED_OUT, "timed out", "the daemon is still there"};
        Pause();
    }
}

// By the lock, which the kernel frees however the process ends.  While a daemon ends there is no pid file any more.
bool Conversation::Ended() const {
    const Instance now = Instance::Look();
    return !now.lockHeld || (now.pid != 0 && now.pid != m_Instance.pid);
}

void Conversation::ThrowEnded() const {
    throw Failure{NO_DAEMON, "ended", "the daemon ended meanwhile" + (m_LastError.empty() ? "" : ": " + m_LastError)};
}

Turn::Turn(std::chrono::milliseconds timeout) : deadline(timeout), alone(deadline), conversation(deadline) {
    conversation.RequireRunning();
    conversation.UntilRead(pipe);
}

} // namespace qz::control
