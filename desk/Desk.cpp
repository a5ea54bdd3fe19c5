// Board, daemon and listeners together.  Tested in tests/desk/desk_test.py.
#include "desk/Desk.h"

#include <algorithm>
#include <chrono>
#include <fstream>

#include "common/Constants.h"
#include "common/Json.h"
#include "desk/Catalogue.h"
#include "desk/Refusal.h"

using qz::common::JsonText;
using qz::common::LogRecord;

namespace qz::desk {

namespace {

constexpr std::chrono::milliseconds LOOK_INTERVAL{100};
constexpr std::chrono::seconds COMMAND_LIMIT{2};
constexpr int64_t KEEP_INTERVAL = 4000; // milliseconds; the idle limit is ten seconds

const std::string DAEMON_NAME = "capture";

std::string LogLineJson(const LogRecord& record) {
    return "{\"time\":" + JsonText(record.time) + ",\"level\":" + JsonText(record.level) +
           ",\"pid\":" + std::to_string(record.pid) +
           ",\"message\":" + JsonText(record.level.empty() ? record.text : record.message) +
           ",\"text\":" + JsonText(record.text) + "}";
}

void RequireRotation(int rotation) {
    if (rotation < 0 || rotation > 3)
        throw Refusal{WRONG_REQUEST, "a rotation is 0 to 3 quarter turns"};
}

} // namespace

Desk::Desk(const std::string& folder)
    : m_Output(folder + "/output"), m_Board(folder), m_Uploads(folder),
      m_Daemon(
          qz::common::AGENT_LATEST_PATH + "/" + DAEMON_NAME, m_Output,
          [this](pid_t pid) {
              m_Session.Begin(pid, m_Debug, m_Rotation);
              m_Board.SetRunning(true);
          },
          [this](int status) {
              m_Board.SetRunning(false);
              m_Session.End(status, LastPrinted());
          }),
      m_Log(qz::common::LOG_DIR + "/agent", DAEMON_NAME), m_LiveView(qz::common::LIVEVIEW_PATH),
      m_Snapshot(qz::common::MD_CAPTURE_PATH), m_Follower([this] { Follow(); }) {}

Desk::~Desk() {
    m_Over = true;
    m_Follower.join();
}

void Desk::Start(bool debug, std::optional<int> rotation) {
    RequireRotation(rotation.value_or(0));
    const std::lock_guard<std::mutex> turn(m_Turn);
    if (m_Session.Running())
        throw Refusal{NOT_NOW, "the daemon is running already"};
    m_Debug = debug;
    m_Rotation = rotation.value_or(0);
    Daemon::Order order;
    if (debug)
        order.arguments = {"--debug"};
    order.environment = {"XENC_CONTROL=" + m_Board.Prepare()};
    if (rotation)
        order.environment.push_back("QZ_SCREEN_MODE=" + std::to_string(*rotation));
    order.without = {"QZ_SCREEN_MODE", "XENC_PICTURE"};
    m_Daemon.Start(order);
}

void Desk::Snapshot() {
    m_Pipe.Send("capture_run", COMMAND_LIMIT);
}

void Desk::Rotate(int mode) {
    RequireRotation(mode);
    m_Pipe.Send("screenMode" + std::to_string(mode), COMMAND_LIMIT);
}

void Desk::End() {
    m_Pipe.Send("capture_end", COMMAND_LIMIT);
}

void Desk::Signal(const std::string& name) {
    const int number = SignalNumber(name);
    if (number == 0)
        throw Refusal{WRONG_REQUEST, "the daemon handles no such signal"};
    m_Daemon.Signal(number);
}

void Desk::ShowPicture(const std::string& bytes, bool begin) {
    m_Board.ShowPictures(m_Uploads.Add(bytes, begin));
    m_TestCard = false;
}

void Desk::ShowTestCard() {
    m_Board.ShowPictures("");
    m_TestCard = true;
}

std::string Desk::LastPrinted() const {
    std::ifstream in(m_Output);
    std::string last;
    for (std::string line; std::getline(in, line);)
        last = line;
    return last;
}

void Desk::FollowLog() {
    const std::lock_guard<std::mutex> turn(m_Turn);
    while (const std::optional<LogRecord> record = m_Log.Next()) {
        m_Session.Take(*record);
        m_Events.AddLogLine(LogLineJson(*record));
    }
}

void Desk::KeepSession() {
    const int64_t last = m_Session.LastRequest();
    if (!m_KeepAlive || last == 0 || Now() - std::max(last, m_Asked) < KEEP_INTERVAL)
        return;
    m_Asked = Now();
    try {
        m_Pipe.Send("capture_run", {});
    } catch (const Refusal&) {
        // A busy or ending daemon; the next time will show.
    }
}

void Desk::TellOwnState() {
    std::string waiting;
    for (const std::string& line : m_Board.Waiting())
        waiting += (waiting.empty() ? "" : ",") + JsonText(line);
    m_Events.Tell("desk", std::string("{\"keepAlive\":") + (m_KeepAlive ? "true" : "false") +
                              ",\"testCard\":" + (m_TestCard ? "true" : "false") + ",\"waiting\":[" + waiting + "]}");
}

void Desk::Follow() {
    while (!m_Over) {
        FollowLog();
        m_Events.Tell("session", m_Session.Json());
        if (m_LiveView.Changed())
            m_Events.Tell("live", m_LiveView.Json());
        if (m_Snapshot.Changed())
            m_Events.Tell("snapshot", m_Snapshot.Json());
        TellOwnState();
        KeepSession();
        std::this_thread::sleep_for(LOOK_INTERVAL);
    }
}

} // namespace qz::desk
