// The meaning of the control lines.  CarryOut.
#include "xenc/simulator/Control.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <iterator>
#include <sstream>

#include "xenc/simulator/Session.h"

namespace qz::xenc {

namespace {

// By code, as the daemon's log shows them, but for the "SETUP " in front of event 4.
constexpr const char* EVENTS[] = {"UNKNOWN",
                                  "EVT_MONITOR_CONFIGURATION_CHANGE_DETECT",
                                  "EVT_MONITOR_CONFIGURATION_CHANGE_COMPLETE",
                                  "EVT_BOARD_HW_BTN_RECORD_CLICKED",
                                  "EVT_BOARD_HW_BTN_SCREENLOCK_CLICKED",
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
                                  "EVT_SYS_USBMOUNT_DISCONNECTED"};
constexpr const char* STATES[] = {"STATE_ZERO", "STATE_INIT", "STATE_SETUP", "STATE_SETUP_VENC", "STATE_ENCODING"};

// A line, read word by word, and the first of its words that is wrong.
class Line {
public:
    explicit Line(const std::string& text) : m_Text(text), m_Words(text) {}

    std::string Word() { // empty at the end
        std::string word;
        m_Words >> word;
        return word;
    }
    std::string Rest() {
        std::string rest;
        std::getline(m_Words >> std::ws, rest);
        return rest;
    }
    bool AtEnd() { return (m_Words >> std::ws).eof(); }

    int Number(const char* expected, int minimum = INT_MIN) { return ToNumber(Word(), expected, minimum); }

    template <size_t COUNT>
    int Code(const char* expected, const char* const (&names)[COUNT]) {
        std::string word = Word();
        if (word == "SETUP" && !AtEnd()) // a name taken from the log with its prefix
            word = Word();
        const auto name = std::find(std::begin(names), std::end(names), word);
        return name == std::end(names) ? ToNumber(word, expected, INT_MIN) : static_cast<int>(name - std::begin(names));
    }

    void Reject(const std::string& reason) {
        if (m_Mistake.empty())
            m_Mistake = reason + " in: " + m_Text;
    }
    void Expected(const std::string& what, const std::string& word) {
        Reject("expected " + what + " instead of " + (word.empty() ? "the end" : "'" + word + "'"));
    }

    // Whether it may be carried out: every word was right, and none is left.
    bool IsRight() {
        if (!AtEnd())
            Expected("the end", Word());
        return m_Mistake.empty();
    }
    const std::string& Mistake() const { return m_Mistake; }

private:
    int ToNumber(const std::string& word, const char* expected, int minimum) {
        int number = 0;
        const char* const end = word.data() + word.size();
        const auto result = std::from_chars(word.data(), end, number);
        if (result.ec != std::errc() || result.ptr != end || number < minimum)
            Expected(expected, word);
        return number;
    }

    const std::string m_Text;
    std::istringstream m_Words;
    std::string m_Mistake; // empty: none yet
};

void Fire(Session& session, Notice::Kind kind, Line& line) {
    Notice notice{kind, 0, 0, {}};
    notice.code = kind == Notice::Kind::State ? line.Code("a state like 4 or STATE_ENCODING", STATES)
                                              : line.Code("an event like 12 or EVT_MEDIA_HDMI_UNCONNECTED", EVENTS);
    if (!line.AtEnd())
        notice.param = line.Number("a parameter");
    if (line.IsRight() && !session.Notify(notice))
        line.Reject("the library is not open");
}

void WriteLog(Session& session, Line& line) {
    const int level = line.Number("a log level");
    const std::string text = line.Rest();
    if (line.IsRight())
        session.Log(level, text);
}

// A call that hangs keeps the session's lock, so that later calls hang as well.
void PlanFailures(CallRecord& calls, Line& line, const std::string& verb) {
    const std::string function = line.Word();
    int count = verb == "hang" ? CallRecord::HANG : CallRecord::FAULT;
    if (verb == "fail")
        count = line.AtEnd() ? 1 : line.Number("a number of calls", 0);
    if (line.IsRight() && !calls.PlanFailures(function, count))
        line.Expected("a function like kt_md_capture", function);
}

void SpoilPictures(PictureSource& pictures, Line& line) {
    PictureFaults faults = pictures.Faults();
    const std::string mode = line.Word();
    if (mode == "slow")
        faults.delay = std::chrono::milliseconds(line.Number("a number of milliseconds", 0));
    else if (mode == "truncate")
        faults.keptBytes = line.Number("a number of bytes, -1 for all", -1);
    else if (mode == "empty")
        faults.keptBytes = 0;
    else if (mode == "normal")
        faults = {};
    else
        line.Expected("slow, truncate, empty or normal", mode);
    if (line.IsRight())
        pictures.SetFaults(faults);
}

} // namespace

std::string CarryOut(Session& session, const std::string& text) {
    Line line(text);
    const std::string verb = line.Word();
    if (verb == "sys")
        Fire(session, Notice::Kind::SysEvent, line);
    else if (verb == "md")
        Fire(session, Notice::Kind::MdEvent, line);
    else if (verb == "state")
        Fire(session, Notice::Kind::State, line);
    else if (verb == "log")
        WriteLog(session, line);
    else if (verb == "fail" || verb == "hang" || verb == "fault")
        PlanFailures(session.Calls(), line, verb);
    else if (verb == "capture")
        SpoilPictures(session.Pictures(), line);
    else if (verb == "picture")
        session.Pictures().Choose(line.Rest());
    else if (!verb.empty()) // an empty line asks for nothing
        line.Expected("sys, md, state, log, fail, hang, fault, capture or picture", verb);
    return line.Mistake();
}

} // namespace qz::xenc
