// The encoder session: the record and the order of the calls, the stages, the pictures, the callbacks.
#include "xenc/simulator/Session.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iterator>
#include <system_error>
#include <utility>

#include "xenc/simulator/Picture.h"
#include "xenc/simulator/TestCard.h"

namespace qz::xenc {

namespace {

const char* const FUNCTIONS[] = {"kt_init",
                                 "kt_uninit",
                                 "kt_sys_setCallback",
                                 "kt_md_setLogfunc",
                                 "kt_md_setCallbackOnState",
                                 "kt_md_setCallbackOnEvent",
                                 "kt_md_setCallbackOnNal",
                                 "kt_md_setCallbackOnAudio",
                                 "kt_md_setFps",
                                 "kt_md_setGop",
                                 "kt_md_setBitrate",
                                 "kt_md_vencSize",
                                 "kt_md_setScreenRotate",
                                 "kt_md_init",
                                 "kt_md_uninit",
                                 "kt_md_start",
                                 "kt_md_stop",
                                 "kt_md_capture"};

constexpr int EVENT_HDMI_CONNECTED = 11; // a media event

// A daemon that takes pictures for weeks must not fill the memory with the record; the older half goes.
constexpr size_t RECORD_LIMIT = 1 << 20;
constexpr size_t EARLY_LOG_LIMIT = 64;

std::string Environment(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

std::string ErrorText(int error) {
    return std::system_category().message(error);
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

// --- One call

Session::Call::Call(Session& session, const char* function, const std::string& arguments, unsigned stages)
    : m_Guard(session.m_Lock), m_Admitted(session.Admit(function, arguments, stages)) {}

bool Session::Admit(const char* function, const std::string& arguments, unsigned stages) {
    Record(function, arguments);
    if (FailsOnRequest(function))
        return false;
    if (!(m_Stage & stages)) {
        LogLocked(LOG_STEP, std::string(function) + ": out of order");
        return false;
    }
    LogLocked(LOG_DETAIL, std::string(function) + "(" + arguments + ")");
    return true;
}

void Session::Record(const char* function, const std::string& arguments) {
    if (m_Calls.size() > RECORD_LIMIT)
        m_Calls.erase(0, m_Calls.find('\n', RECORD_LIMIT / 2) + 1);
    m_Calls.append(function).append("(").append(arguments).append(")\n");
}

bool Session::FailsOnRequest(const char* function) {
    const auto failure = m_Failures.find(function);
    if (failure == m_Failures.end() || failure->second == 0)
        return false;
    --failure->second;
    LogLocked(LOG_STEP, std::string(function) + ": failing on request");
    return true;
}

// --- The session

void Session::SetStage(Stage stage) {
    m_Stage = stage;
    m_StageChanged.notify_all();
}

bool Session::Open(int mode) {
    {
        const std::lock_guard<std::mutex> lock(m_Lock);
        Record("kt_init", std::to_string(mode));
        if (m_Stage != STAGE_CLOSED) {
            LogLocked(LOG_STEP, "kt_init: out of order");
            return false;
        }
        SetStage(STAGE_BUSY);
        ReadEnvironment();
    }
    // Before the result is decided, so that what is written there in advance can make this call fail too.
    ReadControl();

    const std::lock_guard<std::mutex> lock(m_Lock);
    Delivery::Handlers handlers{[this](const Notice& notice) { Deliver(notice); },
                                [this](const std::string& line) { HandleLine(line); }};
    const bool opened = !FailsOnRequest("kt_init") && m_Delivery.Start(std::move(handlers), m_Control);
    SetStage(opened ? STAGE_OPEN : STAGE_CLOSED);
    if (opened)
        LogLocked(LOG_STEP, "library opened");
    return opened;
}

bool Session::Close() {
    {
        const unsigned stages = Delivery::OnOwnThread() ? 0 : STAGE_OPEN | STAGE_READY | STAGE_STARTED;
        const Call call(*this, "kt_uninit", "", stages);
        if (!call)
            return false;
        SetStage(STAGE_BUSY);
    }
    End();
    return true;
}

void Session::End() {
    m_Delivery.Stop();

    const std::lock_guard<std::mutex> lock(m_Lock);
    m_OnSysEvent = {};
    m_OnMdEvent = {};
    m_OnState = {};
    m_OnLog = nullptr;
    m_EarlyLog.clear();
    m_Rotation = 0;
    SetStage(STAGE_CLOSED);
}

void Session::Reset() {
    if (Delivery::OnOwnThread())
        return;
    {
        const std::lock_guard<std::mutex> lock(m_Lock);
        SetStage(STAGE_BUSY);
    }
    End();

    const std::lock_guard<std::mutex> lock(m_Lock);
    m_FrameCount = 0;
    m_Calls.clear();
    m_Failures.clear();
    m_Faults = {};
    m_Control.Close();
}

bool Session::Start() {
    {
        const Call call(*this, "kt_md_start", "", STAGE_READY);
        if (!call)
            return false;
        SetStage(STAGE_STARTED);
        ++m_RunCount;
        ReportState(STATE_SETUP_VENC);
        m_Delivery.Post({Notice::Kind::MdEvent, EVENT_HDMI_CONNECTED, 0, {}});
        ReportState(STATE_ENCODING);
        LogLocked(LOG_STEP, "encoder started");
    }
    // A program that learns from the state that it may take pictures can do so once this call has returned.
    Flush();
    return true;
}

void Session::ReadEnvironment() {
    m_PicturePath = Environment("XENC_PICTURE");
    m_PictureFiles = ListPictures(m_PicturePath);
}

void Session::ReadControl() {
    const std::string path = Environment("XENC_CONTROL");
    if (const int error = m_Control.Open(path))
        Log(LOG_STEP, "control: " + path + ": " + ErrorText(error));
    m_Control.ReadLines([this](const std::string& line) { HandleLine(line); });
}

void Session::HandleLine(const std::string& line) {
    if (!CarryOut(line))
        Log(LOG_STEP, "control: not understood: " + line);
}

// --- Pictures

bool Session::Capture(const char* path) {
    Shot shot{};
    {
        const Call call(*this, "kt_md_capture", path ? path : "null", STAGE_STARTED);
        if (!call)
            return false;
        shot = NextShot();
    }
    const std::string failure = WaitForShot(shot) ? TakeShot(shot, path) : "the encoder was stopped";
    if (failure.empty())
        Log(LOG_STEP, std::string("picture ") + path + " written");
    else
        Log(LOG_STEP, "kt_md_capture: " + failure);
    return failure.empty();
}

Session::Shot Session::NextShot() {
    Shot shot{m_RunCount, ++m_FrameCount, m_Rotation, m_Faults, m_PicturePath.empty(), {}};
    if (!m_PictureFiles.empty())
        shot.file = m_PictureFiles[(shot.frame - 1) % m_PictureFiles.size()];
    return shot;
}

bool Session::WaitForShot(const Shot& shot) {
    std::unique_lock<std::mutex> lock(m_Lock);
    const auto stopped = [this, &shot] { return m_Stage != STAGE_STARTED || m_RunCount != shot.run; };
    return !m_StageChanged.wait_for(lock, std::chrono::milliseconds(shot.faults.delayMilliseconds), stopped);
}

std::string Session::TakeShot(const Shot& shot, const char* path) {
    if (!path)
        return "no path";
    std::string picture;
    if (shot.hasTestCard) {
        if (!MakeTestCard(shot.degrees, shot.frame, picture))
            return "the test card cannot be encoded";
    } else if (shot.file.empty())
        return "no picture in the directory";
    else if (const int error = ReadPicture(shot.file, picture))
        return shot.file + ": " + ErrorText(error);
    if (shot.faults.keptBytes >= 0)
        picture.resize(std::min(picture.size(), static_cast<size_t>(shot.faults.keptBytes)));
    if (const int error = WritePicture(path, picture))
        return std::string(path) + ": " + ErrorText(error);
    return "";
}

// --- Callbacks

void Session::SetLogFunction(kt_md_log_callback function) {
    m_OnLog = function;
    if (!function)
        return;
    for (Notice& line : m_EarlyLog)
        m_Delivery.Post(std::move(line));
    m_EarlyLog.clear();
}

void Session::Log(int level, const std::string& text) {
    const std::lock_guard<std::mutex> lock(m_Lock);
    LogLocked(level, text);
}

void Session::LogLocked(int level, const std::string& text) {
    Notice line{Notice::Kind::Log, level, 0, text};
    if (m_OnLog)
        m_Delivery.Post(std::move(line));
    else if (m_EarlyLog.size() < EARLY_LOG_LIMIT)
        m_EarlyLog.push_back(std::move(line));
}

bool Session::Notify(Notice notice) {
    return m_Delivery.Post(std::move(notice));
}

void Session::Deliver(const Notice& notice) {
    std::unique_lock<std::mutex> lock(m_Lock);
    const auto onSysEvent = m_OnSysEvent;
    const auto onMdEvent = m_OnMdEvent;
    const auto onState = m_OnState;
    const kt_md_log_callback onLog = m_OnLog;
    lock.unlock();

    switch (notice.kind) {
    case Notice::Kind::SysEvent:
        return Invoke(onSysEvent, notice);
    case Notice::Kind::MdEvent:
        return Invoke(onMdEvent, notice);
    case Notice::Kind::State:
        return Invoke(onState, notice);
    case Notice::Kind::Log:
        if (onLog)
            onLog(notice.code, notice.text.c_str());
    }
}

// --- Steering

bool Session::Fail(const std::string& function, int count) {
    if (std::find(std::begin(FUNCTIONS), std::end(FUNCTIONS), function) == std::end(FUNCTIONS))
        return false;
    const std::lock_guard<std::mutex> lock(m_Lock);
    m_Failures[function] = count;
    return true;
}

CaptureFaults Session::Faults() {
    const std::lock_guard<std::mutex> lock(m_Lock);
    return m_Faults;
}

void Session::SetFaults(const CaptureFaults& faults) {
    const std::lock_guard<std::mutex> lock(m_Lock);
    m_Faults = faults;
}

std::string Session::Calls() {
    const std::lock_guard<std::mutex> lock(m_Lock);
    return m_Calls;
}

void Session::ForgetCalls() {
    const std::lock_guard<std::mutex> lock(m_Lock);
    m_Calls.clear();
}

} // namespace qz::xenc
