#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "common/LogReader.h"
#include "control/CommandPipe.h"
#include "control/Deadline.h"
#include "control/Instance.h"

namespace qz::control {

// A running daemon and what it logs, from the log's start on.  Every wait ends at the deadline, by a Failure.
//
// Threads: one.
class Conversation {
public:
    explicit Conversation(const Deadline& deadline);

    const Instance& Daemon() const { return m_Instance; }

    // Throws a Failure when the daemon does not run, or its log may not be read.
    void RequireRunning() const;

    // Waits until what others have written has been read: two commands at once would be read as pieces of both.  What
    // has been logged by then is passed over.
    void UntilRead(const CommandPipe& pipe);

    // Writes the command into the pipe and hands the daemon's records to the function until that has seen enough.  What
    // is logged before the daemon has read the command is about the commands of others.  A command that was read and
    // left no line may have been torn by what another writer put in at the same moment: it is written once more when
    // half of the time that was left then has gone.
    void Ask(CommandPipe& pipe, const std::string& command,
             const std::function<bool(const qz::common::LogRecord&)>& enough);

    // Hands the daemon's records to the function until that has seen enough; those that there are while it is not yet
    // time for it are passed over.  Throws a Failure when the daemon ends before, or the time is up.
    void Until(
        const std::function<bool(const qz::common::LogRecord&)>& enough,
        const std::function<bool()>& isTime = [] { return true; });

    // Waits until it has ended and another may start.
    void UntilGone();

    // The log is looked at this often.  Not inotify: closing its descriptor, at the latest at the exit, waits 10 to 20
    // ms in the kernel, which is more than this costs.
    static constexpr std::chrono::milliseconds LOOK_INTERVAL{1};

private:
    bool Ended() const;
    [[noreturn]] void ThrowEnded() const;

    const Deadline m_Deadline;
    const Instance m_Instance;
    qz::common::LogReader m_Log;
    std::string m_LastError;
};

// A client's turn with the running daemon: alone, and with nothing of others' in the pipe.
struct Turn {
    explicit Turn(std::chrono::milliseconds timeout);

    const Deadline deadline;
    const ClientLock alone;
    CommandPipe pipe;
    Conversation conversation;
};

} // namespace qz::control
