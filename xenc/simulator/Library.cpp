// The C functions: the interface of the encoder library on top of the session, and what steers the simulator.
#include "xenc/simulator/Exports.h"

#include <cstdio>
#include <initializer_list>
#include <string>

#include "xenc/simulator/Session.h"

using namespace qz::xenc;

namespace {

constexpr int EVENT_HDMI_CONNECTED = 11; // a media event

template <typename Pointer>
std::string Shown(Pointer pointer) {
    return pointer ? "set" : "null";
}

template <typename Function>
std::string Shown(Function callback, void* user) {
    return Shown(callback) + ", " + Shown(user);
}

std::string Shown(std::initializer_list<int> numbers) {
    std::string text;
    for (const int number : numbers)
        text += (text.empty() ? "" : ", ") + std::to_string(number);
    return text;
}

template <typename Function>
int Register(const char* name, Function callback, void* user, Registration<Function> Settings::*target) {
    return Session::Get().Call(name, Shown(callback, user), STAGE_OPEN, [&](Settings& settings) {
        settings.*target = {callback, user};
    });
}

// The simulator encodes no streams, so what describes or receives one changes nothing: such a call only has its place
// in the order and in the record.
int Accept(const char* function, const std::string& arguments, Stage stage) {
    return Session::Get().Call(function, arguments, stage);
}

Notice State(H264EncState state) {
    return {Notice::Kind::State, state, 0, {}};
}

Notice LogLine(const char* text) {
    return {Notice::Kind::Log, LOG_STEP, 0, text};
}

// What a library may do wrong when the process ends, after main.
__attribute__((destructor)) void AtExit() {
    (void)Session::Get().Calls().TakeFailure("exit");
}

} // namespace

extern "C" {

// --- xenc.h

int kt_init(int mode) {
    return Session::Get().Open(mode);
}

int kt_uninit(void) {
    return Session::Get().Close();
}

int kt_sys_setCallback(kt_sys_event_callback callback, void* user) {
    return Register("kt_sys_setCallback", callback, user, &Settings::onSysEvent);
}

int kt_md_setLogfunc(kt_md_log_callback callback) {
    return Session::Get().Call("kt_md_setLogfunc", Shown(callback), STAGE_OPEN,
                               [&](Settings& settings) { settings.onLog = callback; });
}

int kt_md_setCallbackOnState(kt_md_state_callback callback, void* user) {
    return Register("kt_md_setCallbackOnState", callback, user, &Settings::onState);
}

int kt_md_setCallbackOnEvent(kt_md_event_callback callback, void* user) {
    return Register("kt_md_setCallbackOnEvent", callback, user, &Settings::onMdEvent);
}

int kt_md_setCallbackOnNal(kt_md_nal_callback callback, void* user) {
    return Accept("kt_md_setCallbackOnNal", Shown(callback, user), STAGE_READY);
}

int kt_md_setCallbackOnAudio(kt_md_audio_callback callback, void* user) {
    return Accept("kt_md_setCallbackOnAudio", Shown(callback, user), STAGE_READY);
}

int kt_md_setFps(int framesPerSecond) {
    return Accept("kt_md_setFps", Shown({framesPerSecond}), STAGE_OPEN);
}

int kt_md_setGop(int length) {
    return Accept("kt_md_setGop", Shown({length}), STAGE_OPEN);
}

int kt_md_setBitrate(int rate) {
    return Accept("kt_md_setBitrate", Shown({rate}), STAGE_OPEN);
}

int kt_md_vencSize(int channel, int size) {
    return Accept("kt_md_vencSize", Shown({channel, size}), STAGE_OPEN);
}

int kt_md_setScreenRotate(int rotation) {
    char shown[16];
    std::snprintf(shown, sizeof(shown), "0x%X", static_cast<unsigned>(rotation));
    const int degrees = rotation >> 16;
    const bool isRotation = rotation == 0 || rotation == 90 << 16 || rotation == 180 << 16 || rotation == 270 << 16;
    Session& session = Session::Get();
    const bool called = session.Call("kt_md_setScreenRotate", shown, STAGE_OPEN, [&](Settings& settings) {
        if (isRotation)
            settings.degrees = degrees;
    });
    if (called)
        session.Log(LOG_STEP,
                    isRotation ? "rotation " + std::to_string(degrees) : std::string("not a rotation: ") + shown);
    return called && isRotation;
}

int kt_md_init(int a, int b, int c, int d, int e) {
    return Session::Get().Move("kt_md_init", Shown({a, b, c, d, e}), STAGE_OPEN, STAGE_READY,
                               {State(STATE_INIT), State(STATE_SETUP), LogLine("encoder initialised")});
}

int kt_md_uninit(void) {
    return Session::Get().Move("kt_md_uninit", "", STAGE_READY, STAGE_OPEN,
                               {State(STATE_ZERO), LogLine("encoder closed")});
}

int kt_md_start(void) {
    const bool started = Session::Get().Move("kt_md_start", "", STAGE_READY, STAGE_STARTED,
                                             {State(STATE_SETUP_VENC),
                                              {Notice::Kind::MdEvent, EVENT_HDMI_CONNECTED, 0, {}},
                                              State(STATE_ENCODING),
                                              LogLine("encoder started")});
    // A program that learns from the state that it may take pictures can do so once this call has returned.
    Session::Get().Flush();
    return started;
}

int kt_md_stop(void) {
    return Session::Get().Move("kt_md_stop", "", STAGE_STARTED, STAGE_READY,
                               {State(STATE_SETUP), LogLine("encoder stopped")});
}

int kt_md_capture(const char* path) {
    return Session::Get().Capture(path ? path : "");
}

// --- simulator.h

int xenc_sim_control(const char* line) {
    return Session::Get().Control(line);
}

void xenc_sim_flush(void) {
    Session::Get().Flush();
}

const char* xenc_sim_take_calls(void) {
    static std::string calls;
    calls = Session::Get().Calls().Take();
    return calls.c_str();
}

void xenc_sim_reset(void) {
    Session::Get().Reset();
}

} // extern "C"
