// The encoder session: the order of the calls, the stages, the callbacks.
#include "xenc/simulator/Session.h"

#include <cstdlib>
#include <system_error>
#include <utility>

#include "xenc/simulator/Control.h"

namespace qz::xenc {

namespace {

constexpr size_t WAITING_LOG_LIMIT = 64; // lines

std::string Environment(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

template <typename Function>
void Invoke(const Registration<Function>& callback, const Notice& notice) {
    if (callback.function)
        callback.function(notice.code, notice.param, callback.user);
}

} // namespace

Session& Session::Get() {
    static Session* const session = new Session;
    return *session;
}

bool Session::Call(const char* function, const std::string& arguments, unsigned stages, const Effect& effect) {
    const std::lock_guard<std::mutex> lock(m_Lock);
    m_Calls.Add(function, arguments);
    const std::string call = std::string(function) + "(" + arguments + ")";
    if (!(m_Stage & stages)) {
        LogLocked(LOG_STEP, call + ": out of order");
        return false;
    }
    if (m_Calls.TakeFailure(function)) {
        LogLocked(LOG_STEP, call + ": failing on request");
        return false;
    }
    LogLocked(LOG_DETAIL, call);
    if (effect)
        effect(m_Settings);
    return true;
}

bool Session::Move(const char* function, const std::string& arguments, unsigned from, Stage to,
                   const std::vector<Notice>& reports) {
    return Call(function, arguments, from, [&](Settings&) {
        SetStage(to);
        for (const Notice& report : reports)
            m_Delivery.Post(report);
    });
}

bool Session::Open(int mode) {
    if (!Move("kt_init", std::to_string(mode), STAGE_CLOSED, STAGE_BUSY, {}))
        return false;
    ReadEnvironment();
    Delivery::Handlers handlers{[this](const Notice& notice) { Deliver(notice); },
                                [this](const std::string& line) { Control(line); }};
    // The control input may have asked for this very call to fail.
    if (m_Calls.TakeFailure("kt_init") || !m_Delivery.Start(std::move(handlers), m_Control)) {
        End();
        return false;
    }
    const std::lock_guard<std::mutex> lock(m_Lock);
    SetStage(STAGE_OPEN);
    return true;
}

bool Session::Close() {
    const unsigned stages = Delivery::OnOwnThread() ? 0 : STAGE_OPEN | STAGE_READY | STAGE_STARTED;
    if (!Move("kt_uninit", "", stages, STAGE_BUSY, {}))
        return false;
    End();
    return true;
}

bool Session::Capture(const std::string& path) {
    Shot shot{};
    uint64_t stageCount = 0;
    const auto begin = [&](const Settings& settings) {
        shot = m_Pictures.Next(settings.degrees);
        stageCount = m_StageCount;
    };
    if (!Call("kt_md_capture", path, STAGE_STARTED, begin))
        return false;
    std::string report = "the encoder was stopped";
    const bool written = StageLasts(stageCount, shot.faults.delay) && WritePicture(shot, path, report);
    Log(LOG_STEP, "kt_md_capture: " + report);
    return written;
}

void Session::Reset() {
    if (Delivery::OnOwnThread())
        return;
    {
        const std::lock_guard<std::mutex> lock(m_Lock);
        SetStage(STAGE_BUSY);
    }
    End();
    m_Calls.Reset();
    m_Pictures.SetFaults({});
}

void Session::End() {
    m_Delivery.Stop();
    m_Control.Close();

    const std::lock_guard<std::mutex> lock(m_Lock);
    m_Settings = {};
    m_WaitingLog.clear();
    SetStage(STAGE_CLOSED);
}

void Session::SetStage(Stage stage) {
    m_Stage = stage;
    ++m_StageCount;
    m_StageChanged.notify_all();
}

bool Session::StageLasts(uint64_t stageCount, std::chrono::milliseconds time) {
    std::unique_lock<std::mutex> lock(m_Lock);
    return !m_StageChanged.wait_for(lock, time, [&] { return m_StageCount != stageCount; });
}

// --- From and to the program

void Session::ReadEnvironment() {
    m_Pictures.Choose(Environment("XENC_PICTURE"));
    const std::string path = Environment("XENC_CONTROL");
    if (const int error = m_Control.Open(path))
        Log(LOG_STEP, "control: " + path + ": " + std::generic_category().message(error));
    m_Control.ReadLines([this](const std::string& line) { Control(line); });
}

bool Session::Control(const std::string& line) {
    const std::string mistake = CarryOut(*this, line);
    if (!mistake.empty())
        Log(LOG_STEP, "control: " + mistake);
    return mistake.empty();
}

void Session::Log(int level, const std::string& text) {
    const std::lock_guard<std::mutex> lock(m_Lock);
    LogLocked(level, text);
}

void Session::LogLocked(int level, const std::string& text) {
    if (m_Settings.onLog || m_WaitingLog.size() < WAITING_LOG_LIMIT)
        m_WaitingLog.push_back({Notice::Kind::Log, level, 0, text});
    if (!m_Settings.onLog)
        return;
    for (Notice& line : m_WaitingLog)
        m_Delivery.Post(std::move(line));
    m_WaitingLog.clear();
}

void Session::Deliver(const Notice& notice) {
    std::unique_lock<std::mutex> lock(m_Lock);
    const Settings settings = m_Settings;
    lock.unlock();

    switch (notice.kind) {
    case Notice::Kind::SysEvent:
        return Invoke(settings.onSysEvent, notice);
    case Notice::Kind::MdEvent:
        return Invoke(settings.onMdEvent, notice);
    case Notice::Kind::State:
        return Invoke(settings.onState, notice);
    case Notice::Kind::Log:
        if (settings.onLog)
            settings.onLog(notice.code, notice.text.c_str());
    }
}

} // namespace qz::xenc
