// Requests and their outcomes.  Tested in tests/control/ControlTest.cpp.
#include "control/Commands.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iostream>
#include <iterator>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "common/Constants.h"
#include "common/LogReader.h"
#include "control/CommandPipe.h"
#include "control/Instance.h"
#include "control/Pictures.h"

using qz::common::LogReader;
using qz::common::LogRecord;

namespace qz::control {

namespace {

// The log is looked at this often.  Not inotify: closing its descriptor, at the latest at the exit, waits 10 to 20 ms
// in the kernel, which is more than this costs.
constexpr std::chrono::milliseconds LOOK_INTERVAL{1};
constexpr std::chrono::milliseconds PROCESS_INTERVAL{50}; // and the process, which takes longer to look at
constexpr std::chrono::milliseconds FOLLOW_INTERVAL{100};

void Pause(std::chrono::milliseconds time) {
    std::this_thread::sleep_for(time);
}

bool Begins(const std::string& text, const std::string& start) {
    return text.compare(0, start.size(), start) == 0;
}

// A running daemon and what it logs.
class Conversation {
public:
    explicit Conversation(const Deadline& deadline)
        : m_Deadline(deadline), m_Instance(Instance::Look()), m_Log(LogDirectory(), DAEMON_NAME) {}

    const Instance& Daemon() const { return m_Instance; }

    void RequireRunning() const {
        if (!m_Instance.Running())
            throw Failure{NO_DAEMON, "not running", "the daemon is not running"};
        // The answer could not be seen.
        if (access(LogDirectory().c_str(), R_OK | X_OK) != 0 && errno == EACCES)
            throw Failure{NO_PERMISSION, "no permission", "no permission to read the log in " + LogDirectory()};
    }

    // Waits until what others have written has been read: two commands at once would be read as pieces of both.  What
    // has been logged by then is passed over.
    void UntilRead(const CommandPipe& pipe) {
        while (pipe.Unread() > 0) {
            if (Ended()) // what it has not read stays in the pipe as long as another program has that open
                ThrowEnded();
            if (m_Deadline.Passed())
                throw Failure{REFUSED, "pipe full", "the daemon does not read what others have written into the pipe"};
            Pause(LOOK_INTERVAL);
        }
        m_Log.SeekToEnd();
    }

    // Writes the command into the pipe and hands the daemon's records to the function until that has seen enough.  What
    // is logged before the daemon has read the command is about the commands of others.  A command that was read and
    // left no line may have been torn by what another writer put in at the same moment: it is written once more when
    // half of the time that was left then has gone.
    void Ask(CommandPipe& pipe, const std::string& command, const std::function<bool(const LogRecord&)>& enough) {
        pipe.Write(command);
        std::optional<Deadline> half; // since it was read
        bool silent = true;
        bool again = false;
        Until(
            [&](const LogRecord& record) {
                silent = silent && (record.level == "WRN" || Begins(record.message, "Invalid screenMode"));
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

    // Hands the daemon's records to the function until that has seen enough; those that there are while it is not yet
    // time for it are passed over.  Throws a Failure when the daemon ends before, or the time is up.
    void Until(
        const std::function<bool(const LogRecord&)>& enough,
        const std::function<bool()>& isTime = [] { return true; }) {
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
            Pause(LOOK_INTERVAL);
        }
    }

    // Waits until it has ended and another may start.
    void UntilGone() {
        while (!Ended()) {
            if (m_Deadline.Passed())
                throw Failure{TIMED_OUT, "timed out", "the daemon is still there"};
            Pause(LOOK_INTERVAL);
        }
    }

private:
    // By the lock, which the kernel frees however the process ends.  While a daemon ends there is no pid file any more.
    bool Ended() const {
        const Instance now = Instance::Look();
        return !now.lockHeld || (now.pid != 0 && now.pid != m_Instance.pid);
    }

    [[noreturn]] void ThrowEnded() const {
        throw Failure{NO_DAEMON, "ended",
                      "the daemon ended meanwhile" + (m_LastError.empty() ? "" : ": " + m_LastError)};
    }

    const Deadline m_Deadline;
    const Instance m_Instance;
    LogReader m_Log;
    std::string m_LastError;
};

// A client's turn with the running daemon: alone, and with nothing of others' in the pipe.
struct Turn {
    explicit Turn(std::chrono::milliseconds timeout) : deadline(timeout), alone(deadline), conversation(deadline) {
        conversation.RequireRunning();
        conversation.UntilRead(pipe);
    }

    const Deadline deadline;
    const ClientLock alone;
    CommandPipe pipe;
    Conversation conversation;
};

void AddPicture(Report& report, const std::string& name, const Picture& picture) {
    char age[32];
    // The file's time can be a tick ahead of the clock: no minus in front of a zero.
    snprintf(age, sizeof age, "%.1f s old", std::round(picture.age * 10) / 10 + 0.0);
    report.Line(picture.path + ", " + picture.kind + ", " + std::to_string(picture.bytes.size()) + " bytes, " + age +
                (picture.failure ? ", the failure picture" : ""));
    report.Text(name, picture.path);
    report.Number(name + "_bytes", static_cast<double>(picture.bytes.size()));
    report.Number(name + "_age", picture.age);
    report.Flag(name + "_failed", picture.failure);
}

// Whether the daemon tries to copy the file, and logs what came of it: it passes over one that is missing.
bool IsCopied(const std::string& path) {
    std::error_code unknown;
    const auto type = std::filesystem::symlink_status(path, unknown).type();
    return type != std::filesystem::file_type::not_found && type != std::filesystem::file_type::directory;
}

// What the daemon makes of one "capture_run".
class SnapshotOutcome {
public:
    explicit SnapshotOutcome(const timespec& asked) : m_Asked(asked) {}

    // Whether the outcome is known with this record.  A request of another writer may still be answered before ours:
    // its picture is older than our asking.  The picture is looked at with the last line, when it has been published.
    bool Take(const LogRecord& record) {
        const std::string& message = record.message;
        // Whatever the daemon still logs about a failure is waited for: the next client must not take it for its own.
        if (message == "kt_md_capture failed" || message == "Capture not initialized") {
            m_Error = message;
            if (!IsCopied(qz::common::LIVEVIEW_FAILED_PATH)) // then nothing follows
                ThrowFailed();
        } else if (Begins(message, "GetSize failed.")) {
            throw Failure{PICTURE_FAILED, "picture failed", "no usable picture: " + message};
        } else if (Begins(message, "Resize complete.")) {
            return Picture::Snapshot().NotBefore(m_Asked);
        } else if (message == "cannot read File" ||
                   Begins(message, "copy finished: `" + qz::common::LIVEVIEW_FAILED_PATH + "` to `")) {
            if (++m_Copies == 2) // in the place of each of the two pictures, or not
                ThrowFailed();
        }
        return false;
    }

    // Tells of the pictures and copies them to where that is not empty.
    Report Tell(const std::string& output, const std::string& liveViewOutput) const {
        Report report;
        const Picture snapshot = Picture::Snapshot();
        if (!snapshot.NotBefore(m_Asked) || snapshot.failure || snapshot.kind != "JPEG")
            throw Failure{PICTURE_FAILED, "replaced", "the picture was replaced by the failure picture meanwhile"};
        AddPicture(report, "snapshot", snapshot);
        if (!output.empty())
            CopyPicture(snapshot, output);
        const Picture liveView = Picture::LiveView();
        const bool fresh = liveView.NotBefore(m_Asked) && liveView.kind == "GIF";
        const std::string none = "no new live view: the decoder djpeg is missing or failed";
        if (!fresh && !liveViewOutput.empty())
            throw Failure{PICTURE_FAILED, "no live view", none};
        report.Flag("live_view_fresh", fresh);
        if (fresh)
            AddPicture(report, "live_view", liveView);
        else
            report.Line(none);
        if (!liveViewOutput.empty())
            CopyPicture(liveView, liveViewOutput);
        return report;
    }

private:
    [[noreturn]] void ThrowFailed() const {
        throw Failure{PICTURE_FAILED, "picture failed",
                      "no picture: " + (m_Error.empty() ? "the encoder is not encoding" : m_Error)};
    }

    const timespec m_Asked;
    std::string m_Error;
    int m_Copies = 0; // of the failure picture that were tried
};

Report Gone(const Conversation& conversation) {
    Report report;
    report.Line("the daemon (pid " + std::to_string(conversation.Daemon().pid) + ") has ended");
    report.Number("pid", conversation.Daemon().pid);
    return report;
}

// The last end that was logged, which may be days ago.
struct LastEnd {
    std::string time; // empty: there was none
    std::string reason;
};

LastEnd ReadLastEnd() {
    LastEnd last;
    LogReader log(LogDirectory(), DAEMON_NAME);
    std::string cause, event, error;
    while (const std::optional<LogRecord> record = log.Next()) {
        const std::string& message = record->message;
        if (message.find("CAPTURE [Ready]") != std::string::npos)
            cause = event = error = "";
        if (cause.empty()) {
            cause = qz::common::CauseOfEnd(message);
            if (!cause.empty() && record->level == "ERR" && !error.empty())
                cause += ", " + error; // what came before it says more
        }
        if (Begins(message, "SysEvent : ") || Begins(message, "MdEvent : "))
            event = message;
        if (record->level == "ERR" && !Begins(message, " * read system configuration"))
            error = message;
        if (message.find("CAPTURE [Terminated]") != std::string::npos || message == "Abnormal process exit.")
            last = {record->time, !cause.empty() ? cause
                                  : !event.empty()
                                      ? "after " + event
                                      : "the log does not say why; an event of the board shows with --debug"};
    }
    return last;
}

constexpr const char* LEVELS[] = {"ERR", "WRN", "INF", "DBG"};
constexpr const char* COLOURS[] = {"\033[31m", "\033[33m", "", "\033[2m"};

// Place in LEVELS; behind its end for any other text.
size_t Rank(const std::string& level) {
    return static_cast<size_t>(std::find(std::begin(LEVELS), std::end(LEVELS), level) - std::begin(LEVELS));
}

void PrintRecord(const LogRecord& record, bool colours) {
    const size_t rank = Rank(record.level);
    const std::string mark = record.level.empty() ? "?? " : ""; // not of the log's shape
    const std::string colour = colours && rank < std::size(COLOURS) ? COLOURS[rank] : "";
    std::cout << colour << mark << record.text << (colour.empty() ? "" : "\033[0m") << '\n';
}

} // namespace

Report TakeSnapshot(std::chrono::milliseconds timeout, const std::string& output, const std::string& liveView) {
    Turn turn(timeout);
    SnapshotOutcome outcome(FileSystemNow());
    turn.conversation.Ask(turn.pipe, "capture_run", [&](const LogRecord& record) { return outcome.Take(record); });
    return outcome.Tell(output, liveView);
}

Report Rotate(std::chrono::milliseconds timeout, int degrees) {
    Turn turn(timeout);
    const std::string mode = std::to_string(degrees / 90);
    turn.conversation.Ask(turn.pipe, "screenMode" + mode, [&](const LogRecord& record) {
        if (record.message == "ScreenModeChange failed: " + mode)
            throw Failure{PICTURE_FAILED, "rotation failed", "the encoder could not be re-opened turned"};
        return record.message == "ScreenModeChange success: " + mode;
    });
    Report report;
    report.Line("turned by " + std::to_string(degrees) + " degrees");
    report.Number("rotation", degrees);
    return report;
}

Report End(std::chrono::milliseconds timeout) {
    Turn turn(timeout);
    turn.pipe.Write("capture_end");
    turn.conversation.UntilGone();
    return Gone(turn.conversation);
}

Report Stop(std::chrono::milliseconds timeout) {
    Conversation conversation{Deadline(timeout)};
    conversation.RequireRunning(); // so the pid is the daemon's, and the lock says that it is this one
    if (kill(conversation.Daemon().pid, SIGTERM) != 0)
        throw Failure{errno == EPERM ? NO_PERMISSION : NO_DAEMON, "no permission", strerror(errno)};
    conversation.UntilGone();
    return Gone(conversation);
}

Report ShowStatus() {
    Report report;
    const Instance daemon = Instance::Look();
    report.status = daemon.Running() ? SUCCESS : NO_DAEMON;
    report.Flag("running", daemon.Running());
    report.Number("pid", daemon.pid);
    report.Line(daemon.Running() ? "running, pid " + std::to_string(daemon.pid) : "not running");
    if (!daemon.Running() && daemon.pid != 0)
        report.Line("a pid file of a daemon that has gone names " + std::to_string(daemon.pid));
    for (const Picture& picture : {Picture::Snapshot(), Picture::LiveView()}) {
        if (picture.there)
            AddPicture(report, picture.path == qz::common::LIVEVIEW_PATH ? "live_view" : "snapshot", picture);
    }
    const LastEnd last = ReadLastEnd();
    if (!last.time.empty())
        report.Line("last end: " + last.time + ", " + last.reason);
    report.Text("last_end", last.time);
    report.Text("last_end_reason", last.reason);
    return report;
}

Report WaitReady(std::chrono::milliseconds timeout) {
    const Deadline deadline(timeout);
    Instance daemon;
    while (!(daemon = Instance::Look()).Running()) {
        if (deadline.Passed())
            throw Failure{NO_DAEMON, "not running", "the daemon is not running"};
        Pause(LOOK_INTERVAL);
    }
    Conversation conversation(deadline); // which reads the log from its start: the daemon may have started yesterday
    conversation.Until([](const LogRecord& record) { return record.message == "Initialize succeed"; });
    Report report;
    report.Line("ready, pid " + std::to_string(daemon.pid));
    report.Number("pid", daemon.pid);
    return report;
}

void PrintLog(bool follow, const std::string& level, const std::string& text) {
    const bool colours = isatty(STDOUT_FILENO) && !getenv("NO_COLOR");
    LogReader log(LogDirectory(), DAEMON_NAME);
    for (;;) {
        while (const std::optional<LogRecord> record = log.Next()) {
            const bool low = !record->level.empty() && Rank(record->level) > Rank(level);
            if (!low && record->text.find(text) != std::string::npos)
                PrintRecord(*record, colours);
        }
        std::cout.flush();
        if (!follow || !std::cout)
            return;
        Pause(FOLLOW_INTERVAL);
    }
}

} // namespace qz::control
