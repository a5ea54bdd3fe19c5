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
#include <iostream>
#include <iterator>
#include <optional>
#include <thread>

#include "common/Constants.h"
#include "common/LogReader.h"
#include "control/Conversation.h"
#include "control/Pictures.h"

using qz::common::LogReader;
using qz::common::LogRecord;

namespace qz::control {

namespace {

constexpr std::chrono::milliseconds FOLLOW_INTERVAL{100};

bool Begins(const std::string& text, const std::string& start) {
    return text.compare(0, start.size(), start) == 0;
}

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
        if (message.find("CAPTURE [Terminated]") == std::string::npos && message != "Abnormal process exit.")
            continue;
        if (cause.empty())
            cause =
                event.empty() ? "the log does not say why; an event of the board shows with --debug" : "after " + event;
        last = {record->time, cause};
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
        std::this_thread::sleep_for(Conversation::LOOK_INTERVAL);
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
        std::this_thread::sleep_for(FOLLOW_INTERVAL);
    }
}

} // namespace qz::control
