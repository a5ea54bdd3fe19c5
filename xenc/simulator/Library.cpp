// The interface of the encoder library, kt_init to kt_md_capture, on top of the session in Session.
#include "xenc/simulator/Exports.h"

#include <cstdio>
#include <string>

#include "xenc/simulator/Session.h"

using qz::xenc::LOG_STEP;
using qz::xenc::Session;
using qz::xenc::STAGE_OPEN;
using qz::xenc::STAGE_READY;
using qz::xenc::STAGE_STARTED;

namespace {

template <typename Pointer>
std::string Shown(Pointer pointer) {
    return pointer ? "set" : "null";
}

template <typename Function>
std::string Shown(Function callback, void* user) {
    return Shown(callback) + ", " + Shown(user);
}

template <typename Function, typename Target>
int Register(const char* name, Function callback, void* user, Target Session::*target) {
    Session& session = Session::Get();
    const Session::Call call(session, name, Shown(callback, user), STAGE_OPEN);
    if (!call)
        return 0;
    session.*target = {callback, user};
    return 1;
}

// For what has no effect on the test card and the streams, of which the simulator has none: order and record
// only.
int Accept(const char* function, const std::string& arguments, unsigned stages) {
    const Session::Call call(Session::Get(), function, arguments, stages);
    return call ? 1 : 0;
}

bool IsRotation(int rotation) {
    return rotation == 0 || rotation == 90 << 16 || rotation == 180 << 16 || rotation == 270 << 16;
}

} // namespace

extern "C" {

int kt_init(int mode) {
    return Session::Get().Open(mode) ? 1 : 0;
}

int kt_uninit(void) {
    return Session::Get().Close() ? 1 : 0;
}

int kt_sys_setCallback(kt_sys_event_callback callback, void* user) {
    return Register("kt_sys_setCallback", callback, user, &Session::m_OnSysEvent);
}

int kt_md_setLogfunc(kt_md_log_callback callback) {
    Session& session = Session::Get();
    const Session::Call call(session, "kt_md_setLogfunc", Shown(callback), STAGE_OPEN);
    if (!call)
        return 0;
    session.SetLogFunction(callback);
    return 1;
}

int kt_md_setCallbackOnState(kt_md_state_callback callback, void* user) {
    return Register("kt_md_setCallbackOnState", callback, user, &Session::m_OnState);
}

int kt_md_setCallbackOnEvent(kt_md_event_callback callback, void* user) {
    return Register("kt_md_setCallbackOnEvent", callback, user, &Session::m_OnMdEvent);
}

int kt_md_setCallbackOnNal(kt_md_nal_callback callback, void* user) {
    return Accept("kt_md_setCallbackOnNal", Shown(callback, user), STAGE_READY);
}

int kt_md_setCallbackOnAudio(kt_md_audio_callback callback, void* user) {
    return Accept("kt_md_setCallbackOnAudio", Shown(callback, user), STAGE_READY);
}

int kt_md_setFps(int framesPerSecond) {
    return Accept("kt_md_setFps", std::to_string(framesPerSecond), STAGE_OPEN);
}

int kt_md_setGop(int length) {
    return Accept("kt_md_setGop", std::to_string(length), STAGE_OPEN);
}

int kt_md_setBitrate(int rate) {
    return Accept("kt_md_setBitrate", std::to_string(rate), STAGE_OPEN);
}

int kt_md_vencSize(int channel, int size) {
    return Accept("kt_md_vencSize", std::to_string(channel) + ", " + std::to_string(size), STAGE_OPEN);
}

int kt_md_setScreenRotate(int rotation) {
    char shown[16];
    std::snprintf(shown, sizeof(shown), "0x%X", static_cast<unsigned>(rotation));
    Session& session = Session::Get();
    const Session::Call call(session, "kt_md_setScreenRotate", shown, STAGE_OPEN);
    if (!call)
        return 0;
    if (!IsRotation(rotation)) {
        session.LogLocked(LOG_STEP, "kt_md_setScreenRotate: not a rotation");
        return 0;
    }
    session.m_Rotation = rotation >> 16;
    return 1;
}

int kt_md_init(int a, int b, int c, int d, int e) {
    std::string arguments = std::to_string(a);
    for (const int argument : {b, c, d, e})
        arguments += ", " + std::to_string(argument);
    Session& session = Session::Get();
    const Session::Call call(session, "kt_md_init", arguments, STAGE_OPEN);
    if (!call)
        return 0;
    session.SetStage(STAGE_READY);
    session.ReportState(STATE_INIT);
    session.ReportState(STATE_SETUP);
    session.LogLocked(LOG_STEP, "encoder initialised, rotation " + std::to_string(session.m_Rotation));
    return 1;
}

int kt_md_uninit(void) {
    Session& session = Session::Get();
    const Session::Call call(session, "kt_md_uninit", "", STAGE_READY);
    if (!call)
        return 0;
    session.SetStage(STAGE_OPEN);
    session.ReportState(STATE_ZERO);
    session.LogLocked(LOG_STEP, "encoder closed");
    return 1;
}

int kt_md_start(void) {
    return Session::Get().Start() ? 1 : 0;
}

int kt_md_stop(void) {
    Session& session = Session::Get();
    const Session::Call call(session, "kt_md_stop", "", STAGE_STARTED);
    if (!call)
        return 0;
    session.SetStage(STAGE_READY);
    session.ReportState(STATE_SETUP);
    session.LogLocked(LOG_STEP, "encoder stopped");
    return 1;
}

int kt_md_capture(const char* path) {
    return Session::Get().Capture(path) ? 1 : 0;
}

} // extern "C"
