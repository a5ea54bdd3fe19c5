// What the library and the signals report, and the session's end.  Tested in tests/capture/EventsTest.cpp.
#include "capture/Capture.h"

#include <signal.h>

#include <algorithm>
#include <iterator>

#include "common/FileAccess.h"
#include "common/FileLogger.h"

using qz::common::Wake;

namespace qz::capture {

namespace {

// Whether an event ends the session depends on where it comes from: a button that arrives as a media event, or an HDMI
// event that arrives as a system event, ends nothing.
enum Ending { ENDS_NOTHING, ENDS_AS_SYSTEM, ENDS_AS_MEDIA };

struct Event {
    int code;
    const char* text; // the prefix of code 4 is the text that readers of the log know
    Ending ending;
};

constexpr Event EVENTS[] = {
    {1, "EVT_MONITOR_CONFIGURATION_CHANGE_DETECT", ENDS_NOTHING},
    {2, "EVT_MONITOR_CONFIGURATION_CHANGE_COMPLETE", ENDS_NOTHING},
    {3, "EVT_BOARD_HW_BTN_RECORD_CLICKED", ENDS_AS_SYSTEM},
    {4, "SETUP EVT_BOARD_HW_BTN_SCREENLOCK_CLICKED", ENDS_AS_SYSTEM},
    {5, "EVT_BOARD_HW_BTN_BUFFER1_CLICKED", ENDS_NOTHING},
    {6, "EVT_BOARD_HW_BTN_INIT_CLICKED", ENDS_AS_SYSTEM},
    {7, "EVT_BOARD_HW_BTN_INIT_CLICKED_LONG", ENDS_AS_SYSTEM},
    {8, "EVT_USB_STORAGE_CONNECTED", ENDS_NOTHING},
    {9, "EVT_AUDIO_AUX_CONNECTED", ENDS_NOTHING},
    {10, "EVT_AUDIO_AUX_DISCONNECTED", ENDS_NOTHING},
    {11, "EVT_MEDIA_HDMI_CONNECTED", ENDS_NOTHING},
    {12, "EVT_MEDIA_HDMI_UNCONNECTED", ENDS_AS_MEDIA},
    {13, "EVT_MEDIA_HDMI_INACTIVE", ENDS_NOTHING},
    {14, "EVT_MEDIA_HDMI_HW_WARNING", ENDS_AS_MEDIA},
    {15, "EVT_MEDIA_HDMI_HW_CONNECTED", ENDS_NOTHING},
    {16, "EVT_MEDIA_HDMI_HW_UNCONNECTED", ENDS_AS_MEDIA},
    {17, "EVT_MEDIA_HDMI_CHANGED", ENDS_AS_MEDIA},
    {18, "EVT_MEDIA_CAPTURE_EXCEPTION", ENDS_AS_MEDIA},
    {19, "EVT_SYS_TEMPERATURE_WARNING", ENDS_NOTHING},
    {20, "EVT_SYS_TEMPERATURE_NORMAL", ENDS_NOTHING},
    {21, "EVT_SYS_TEMPERATURE_EMERGENCY", ENDS_AS_SYSTEM},
    {22, "EVT_SYS_USBMOUNT_CONNECTED", ENDS_NOTHING},
    {23, "EVT_SYS_USBMOUNT_DISCONNECTED", ENDS_NOTHING},
};

const Event* FindEvent(int code) {
    const auto* event = std::find_if(std::begin(EVENTS), std::end(EVENTS),
                                     [code](const Event& candidate) { return candidate.code == code; });
    return event == std::end(EVENTS) ? nullptr : event;
}

bool Ends(int code, Ending ending) {
    const Event* event = FindEvent(code);
    return event && event->ending == ending;
}

constexpr const char* STATE_TEXTS[] = {"STATE_ZERO", "STATE_INIT", "STATE_SETUP", "STATE_SETUP_VENC", "STATE_ENCODING"};

constexpr int FORWARDED_ABOVE = 4; // the library's own log level

} // namespace

std::string Capture::CovertStrEvent(int code) {
    const Event* event = FindEvent(code);
    return event ? event->text : "UNKNOWN";
}

std::string Capture::CovertStrState(H264EncState state) {
    return state >= STATE_ZERO && state <= STATE_ENCODING ? STATE_TEXTS[state] : "UNKNOWN";
}

void Capture::EndSession() {
    if (!m_Running.exchange(false))
        return;
    Wake(m_EndEvent.Get());
    try {
        m_Promise.set_value(1);
    } catch (const std::future_error&) {
        // Fulfilled in an earlier run of this object: whoever waited has been told.
    }
}

bool Capture::onXEncSysEvent(int event, int /*param*/, void* user) {
    if (!user)
        return false;
    QZ_LOG(DBG, "SysEvent : " << CovertStrEvent(event));
    if (Ends(event, ENDS_AS_SYSTEM))
        static_cast<Capture*>(user)->EndSession();
    return true;
}

bool Capture::onXEncMdEvent(int event, int /*param*/, void* user) {
    if (!user)
        return false;
    QZ_LOG(DBG, "MdEvent : " << CovertStrEvent(event));
    if (Ends(event, ENDS_AS_MEDIA))
        static_cast<Capture*>(user)->EndSession();
    return true;
}

bool Capture::onXEncMdState(int state, int param, void* user) {
    if (!user)
        return false;
    QZ_LOG(DBG, "MdState : " << CovertStrState(static_cast<H264EncState>(state)));
    return static_cast<Capture*>(user)->OnXEncMdState(state, param);
}

bool Capture::OnXEncMdState(int state, int /*param*/) {
    if (state < STATE_ZERO || state > STATE_ENCODING) {
        QZ_LOG(DBG, "UNKNOWN STATE : " << state);
        return false;
    }
    m_MdState = state;
    return true;
}

void Capture::onXEncLog(int level, const char* text) {
    if (!text || level <= FORWARDED_ABOVE)
        return;
    QZ_LOG(DBG, "LogLevel[" << level << "] " << text);
}

bool Capture::onXEncNal(void* /*data*/, int /*size*/, int /*type*/, void* /*user*/) {
    return true;
}

bool Capture::onXEncAudio(void* /*data*/, int /*size*/, void* /*user*/) {
    return true;
}

void Capture::OnSignalEvent(int signal, pid_t pid) {
    QZ_LOG(DBG, "Receive unix signal:" << signal << ", " << pid);
    if (signal != SIGQUIT && signal != SIGUSR1 && signal != SIGTERM) {
        QZ_LOG(DBG, "Unused unix signal:" << signal << ", " << pid);
        return;
    }
    EndSession();
}

} // namespace qz::capture
