// What the library and the signals report, and the session's end.  Tested in tests/capture/EventsTest.cpp.
#include "capture/Capture.h"

#include <signal.h>
#include <unistd.h>

#include <cstdint>
#include <iterator>

#include "common/FileLogger.h"

namespace qz::capture {

namespace {

// By event code.  The prefix of code 4 is the text that readers of the log know.
constexpr const char* EVENT_TEXTS[] = {
    nullptr,
    "EVT_MONITOR_CONFIGURATION_CHANGE_DETECT",
    "EVT_MONITOR_CONFIGURATION_CHANGE_COMPLETE",
    "EVT_BOARD_HW_BTN_RECORD_CLICKED",
    "SETUP EVT_BOARD_HW_BTN_SCREENLOCK_CLICKED",
    "EVT_BOARD_HW_BTN_BUFFER1_CLICKED",
    "EVT_BOARD_HW_BTN_INIT_CLICKED",
    "EVT_BOARD_HW_BTN_INIT_CLICKED_LONG",
    "EVT_USB_STORAGE_CONNECTED",
    "EVT_AUDIO_AUX_CONNECTED",
    "EVT_AUDIO_AUX_DISCONNECTED",
    "EVT_MEDIA_HDMI_CONNECTED",
    "EVT_MEDIA_HDMI_UNCONNECTED",
    "EVT_MEDIA_HDMI_INACTIVE",
    "EVT_MEDIA_HDMI_HW_WARNING",
    "EVT_MEDIA_HDMI_HW_CONNECTED",
    "EVT_MEDIA_HDMI_HW_UNCONNECTED",
    "EVT_MEDIA_HDMI_CHANGED",
    "EVT_MEDIA_CAPTURE_EXCEPTION",
    "EVT_SYS_TEMPERATURE_WARNING",
    "EVT_SYS_TEMPERATURE_NORMAL",
    "EVT_SYS_TEMPERATURE_EMERGENCY",
    "EVT_SYS_USBMOUNT_CONNECTED",
    "EVT_SYS_USBMOUNT_DISCONNECTED",
};

constexpr const char* STATE_TEXTS[] = {"STATE_ZERO", "STATE_INIT", "STATE_SETUP", "STATE_SETUP_VENC",
                                       "STATE_ENCODING"};

constexpr int WAKE_ATTEMPTS = 3;
constexpr int FORWARDED_ABOVE = 4; // the library's own log level

// The two sets are disjoint: a button that arrives as a media event, or an HDMI event that arrives as a
// system event, ends nothing.
bool SysEventEndsSession(int event) {
    switch (event) {
    case 3:  // record button
    case 4:  // screen-lock button
    case 6:  // init button
    case 7:  // init button, held
    case 21: // temperature emergency
        return true;
    default:
        return false;
    }
}

bool MdEventEndsSession(int event) {
    switch (event) {
    case 12: // HDMI unconnected
    case 14: // HDMI hardware warning
    case 16: // HDMI hardware unconnected
    case 17: // HDMI changed
    case 18: // capture exception
        return true;
    default:
        return false;
    }
}

} // namespace

std::string Capture::CovertStrEvent(int code) {
    return code >= 1 && code < static_cast<int>(std::size(EVENT_TEXTS)) ? EVENT_TEXTS[code] : "UNKNOWN";
}

std::string Capture::CovertStrState(H264EncState state) {
    return state >= STATE_ZERO && state <= STATE_ENCODING ? STATE_TEXTS[state] : "UNKNOWN";
}

void Capture::EndSession() {
    if (!m_Running.exchange(false))
        return;
    // Not given up at the first failure: without it the task sees the flag only when its select ends.
    const uint64_t one = 1;
    for (int attempt = 0; attempt < WAKE_ATTEMPTS; ++attempt) {
        if (write(m_EndEvent.Get(), &one, sizeof one) == sizeof one)
            break;
    }
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
    if (SysEventEndsSession(event))
        static_cast<Capture*>(user)->EndSession();
    return true;
}

bool Capture::onXEncMdEvent(int event, int /*param*/, void* user) {
    if (!user)
        return false;
    QZ_LOG(DBG, "MdEvent : " << CovertStrEvent(event));
    if (MdEventEndsSession(event))
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
