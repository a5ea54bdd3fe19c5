// The names of the board.  Shown by the page, which makes its buttons from them.
#include "desk/Catalogue.h"

#include <signal.h>

#include <algorithm>
#include <iterator>

#include "common/Json.h"

using qz::common::JsonText;

namespace qz::desk {

namespace {

constexpr BoardEvent EVENTS[] = {
    {3, "EVT_BOARD_HW_BTN_RECORD_CLICKED", "Record", "Buttons", "sys", true},
    {4, "EVT_BOARD_HW_BTN_SCREENLOCK_CLICKED", "Screen lock", "Buttons", "sys", true},
    {5, "EVT_BOARD_HW_BTN_BUFFER1_CLICKED", "Buffer 1", "Buttons", "sys", false},
    {6, "EVT_BOARD_HW_BTN_INIT_CLICKED", "Init", "Buttons", "sys", true},
    {7, "EVT_BOARD_HW_BTN_INIT_CLICKED_LONG", "Init, held", "Buttons", "sys", true},
    {11, "EVT_MEDIA_HDMI_CONNECTED", "Cable plugged in", "HDMI", "md", false},
    {12, "EVT_MEDIA_HDMI_UNCONNECTED", "Cable pulled", "HDMI", "md", true},
    {13, "EVT_MEDIA_HDMI_INACTIVE", "Inactive", "HDMI", "md", false},
    {17, "EVT_MEDIA_HDMI_CHANGED", "Resolution changed", "HDMI", "md", true},
    {15, "EVT_MEDIA_HDMI_HW_CONNECTED", "Hardware connected", "HDMI", "md", false},
    {16, "EVT_MEDIA_HDMI_HW_UNCONNECTED", "Hardware lost", "HDMI", "md", true},
    {14, "EVT_MEDIA_HDMI_HW_WARNING", "Hardware warning", "HDMI", "md", true},
    {18, "EVT_MEDIA_CAPTURE_EXCEPTION", "Capture exception", "HDMI", "md", true},
    {1, "EVT_MONITOR_CONFIGURATION_CHANGE_DETECT", "Monitor change seen", "HDMI", "sys", false},
    {2, "EVT_MONITOR_CONFIGURATION_CHANGE_COMPLETE", "Monitor change done", "HDMI", "sys", false},
    {19, "EVT_SYS_TEMPERATURE_WARNING", "Warm", "Heat", "sys", false},
    {20, "EVT_SYS_TEMPERATURE_NORMAL", "Normal again", "Heat", "sys", false},
    {21, "EVT_SYS_TEMPERATURE_EMERGENCY", "Too hot", "Heat", "sys", true},
    {8, "EVT_USB_STORAGE_CONNECTED", "USB storage in", "Storage", "sys", false},
    {22, "EVT_SYS_USBMOUNT_CONNECTED", "USB mounted", "Storage", "sys", false},
    {23, "EVT_SYS_USBMOUNT_DISCONNECTED", "USB unmounted", "Storage", "sys", false},
    {9, "EVT_AUDIO_AUX_CONNECTED", "AUX plugged in", "Audio", "sys", false},
    {10, "EVT_AUDIO_AUX_DISCONNECTED", "AUX pulled", "Audio", "sys", false},
};

constexpr const char* STATES[] = {"STATE_ZERO", "STATE_INIT", "STATE_SETUP", "STATE_SETUP_VENC", "STATE_ENCODING"};

constexpr const char* FUNCTIONS[] = {"kt_init",
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

struct Signal {
    int number;
    const char* name;
    const char* effect;
};

constexpr Signal SIGNALS[] = {
    {SIGTERM, "SIGTERM", "ends"},      {SIGQUIT, "SIGQUIT", "ends"},       {SIGUSR1, "SIGUSR1", "ends"},
    {SIGINT, "SIGINT", "is logged"},   {SIGHUP, "SIGHUP", "is logged"},    {SIGALRM, "SIGALRM", "is logged"},
    {SIGTSTP, "SIGTSTP", "is logged"}, {SIGPIPE, "SIGPIPE", "is ignored"}, {SIGSEGV, "SIGSEGV", "faults"},
    {SIGABRT, "SIGABRT", "faults"},    {SIGILL, "SIGILL", "faults"},       {SIGFPE, "SIGFPE", "faults"},
    {SIGKILL, "SIGKILL", "kills"}};

// The elements in brackets, each as the function has it.
template <class LIST, class FUNCTION>
std::string JsonList(const LIST& list, FUNCTION toJson) {
    std::string json;
    for (const auto& element : list)
        json += (json.empty() ? "" : ",") + toJson(element);
    return "[" + json + "]";
}

template <class LIST, class PREDICATE>
auto Find(const LIST& list, PREDICATE predicate) {
    const auto found = std::find_if(std::begin(list), std::end(list), predicate);
    return found == std::end(list) ? nullptr : &*found;
}

} // namespace

const BoardEvent* FindEvent(int code) {
    return Find(EVENTS, [code](const BoardEvent& event) { return event.code == code; });
}

const BoardEvent* FindEvent(const std::string& name) {
    return Find(EVENTS, [&name](const BoardEvent& event) { return event.name == name; });
}

bool IsFunction(const std::string& name) {
    return Find(FUNCTIONS, [&name](const char* function) { return function == name; }) != nullptr;
}

bool IsState(int code) {
    return code >= 0 && code < static_cast<int>(std::size(STATES));
}

int SignalNumber(const std::string& name) {
    const Signal* signal = Find(SIGNALS, [&name](const Signal& candidate) { return candidate.name == name; });
    return signal ? signal->number : 0;
}

std::string SignalName(int number) {
    const Signal* signal = Find(SIGNALS, [number](const Signal& candidate) { return candidate.number == number; });
    return signal ? signal->name : "signal " + std::to_string(number);
}

std::string CatalogueJson() {
    const auto text = [](const char* name) { return JsonText(name); };
    return "{\"events\":" +
           JsonList(EVENTS,
                    [](const BoardEvent& event) {
                        return "{\"code\":" + std::to_string(event.code) + ",\"name\":" + JsonText(event.name) +
                               ",\"label\":" + JsonText(event.label) + ",\"group\":" + JsonText(event.group) +
                               ",\"channel\":" + JsonText(event.channel) +
                               ",\"ends\":" + (event.ends ? "true" : "false") + "}";
                    }) +
           ",\"states\":" + JsonList(STATES, text) + ",\"functions\":" + JsonList(FUNCTIONS, text) + ",\"signals\":" +
           JsonList(SIGNALS,
                    [](const Signal& signal) {
                        return "{\"name\":" + JsonText(signal.name) + ",\"effect\":" + JsonText(signal.effect) + "}";
                    }) +
           "}";
}

} // namespace qz::desk
