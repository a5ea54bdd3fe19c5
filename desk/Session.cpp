// The session as seen from outside.  Tested in tests/desk/desk_test.py.
#include "desk/Session.h"

#include <sys/wait.h>

#include <chrono>
#include <cstdlib>

#include "common/Json.h"
#include "desk/Catalogue.h"

using qz::common::JsonText;
using qz::common::LogRecord;

namespace qz::desk {

namespace {

constexpr size_t LAST_LINES = 10;
constexpr int NOT_STARTED = 255;

// What follows the start of the message; empty when it starts otherwise.
std::string After(const std::string& message, const std::string& start) {
    return message.compare(0, start.size(), start) == 0 ? message.substr(start.size()) : "";
}

// Why a message of the log ends the session, in words for a person; empty when it does not.
std::string CauseOf(const std::string& message) {
    for (const char* channel : {"sys", "md"}) {
        std::string name = After(message, channel[0] == 's' ? "SysEvent : " : "MdEvent : ");
        if (const std::string bare = After(name, "SETUP "); !bare.empty())
            name = bare;
        const BoardEvent* event = FindEvent(name);
        if (event && event->ends && std::string(channel) == event->channel)
            return std::string(event->group) + ": " + event->label + " (" + event->name + ")";
    }
    return qz::common::CauseOfEnd(message);
}

std::string StatusText(int status) {
    if (WIFSIGNALED(status))
        return "ended by " + SignalName(WTERMSIG(status));
    return "exit status " + std::to_string(WEXITSTATUS(status));
}

} // namespace

int64_t Now() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

void Session::Begin(pid_t pid, bool debug, int rotation) {
    const std::lock_guard<std::mutex> lock(m_Lock);
    m_Pid = pid;
    m_Running = true;
    m_Debug = debug;
    m_Ready = m_Terminated = false;
    m_Rotation = rotation;
    m_Began = Now();
    m_Ended = m_LastRequest = 0;
    m_State.clear();
    m_Cause.clear();
    m_Printed.clear();
    m_Last.clear();
}

void Session::Take(const LogRecord& record) {
    const std::lock_guard<std::mutex> lock(m_Lock);
    if (m_Pid == 0 || record.pid != m_Pid)
        return;
    m_Last.push_back(record.time.substr(record.time.find(' ') + 1) + " " + record.level + " " + record.message);
    if (m_Last.size() > LAST_LINES)
        m_Last.pop_front();
    Understand(record.message);
}

void Session::Understand(const std::string& message) {
    if (m_Cause.empty())
        m_Cause = CauseOf(message);
    if (message == "Initialize succeed") {
        m_Ready = true;
        m_LastRequest = Now();
    } else if (message == "kt_md_capture success") {
        m_LastRequest = Now();
    } else if (message.find("[Terminated]") != std::string::npos) {
        m_Terminated = true;
    } else if (const std::string state = After(message, "MdState : "); !state.empty()) {
        m_State = state;
    } else if (const std::string mode = After(message, "ScreenModeChange success: "); !mode.empty()) {
        m_Rotation = std::atoi(mode.c_str());
    }
}

void Session::End(int status, const std::string& printed) {
    const std::lock_guard<std::mutex> lock(m_Lock);
    m_Running = false;
    m_Ended = Now();
    m_LastRequest = 0;
    m_Status = status;
    m_Printed = printed;
}

bool Session::Running() const {
    const std::lock_guard<std::mutex> lock(m_Lock);
    return m_Running;
}

int64_t Session::LastRequest() const {
    const std::lock_guard<std::mutex> lock(m_Lock);
    return m_LastRequest;
}

std::string Session::Json() const {
    const std::lock_guard<std::mutex> lock(m_Lock);
    std::string phase = "none";
    if (m_Running)
        phase = !m_Cause.empty() || m_Terminated ? "ending" : m_Ready ? "ready" : "starting";
    else if (m_Pid != 0)
        phase = "ended";

    std::string cause = m_Cause;
    if (cause.empty() && !m_Running && WIFSIGNALED(m_Status))
        cause = StatusText(m_Status);
    if (cause.empty() && !m_Running && WEXITSTATUS(m_Status) == NOT_STARTED)
        cause = "it did not start" + (m_Printed.empty() ? "" : ": " + m_Printed);
    if (cause.empty() && !m_Running)
        cause = m_Debug ? "the log does not say" : "the log does not say; with --debug it would";

    std::string lines;
    for (const std::string& line : m_Last)
        lines += (lines.empty() ? "" : ",") + JsonText(line);
    return "{\"phase\":" + JsonText(phase) + ",\"pid\":" + std::to_string(m_Pid) +
           ",\"debug\":" + (m_Debug ? "true" : "false") + ",\"rotation\":" + std::to_string(m_Rotation * 90) +
           ",\"state\":" + JsonText(m_State) + ",\"began\":" + std::to_string(m_Began) +
           ",\"ended\":" + std::to_string(m_Ended) + ",\"lastRequest\":" + std::to_string(m_LastRequest) +
           ",\"status\":" + JsonText(m_Running ? "" : StatusText(m_Status)) + ",\"cause\":" + JsonText(cause) +
           ",\"lines\":[" + lines + "]}";
}

} // namespace qz::desk
