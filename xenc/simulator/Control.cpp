// Steering from outside: the control input and the meaning of its lines.  ControlInput, xenc_sim_control.
#include "xenc/simulator/Exports.h"

#include "xenc/simulator/Control.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <sstream>

#include "xenc/simulator/Session.h"

namespace qz::xenc {

int ControlInput::Open(const std::string& path) {
    if (m_Fd >= 0 && path == m_Path)
        return 0;
    Close();
    if (path.empty())
        return 0;
    struct stat status {};
    if (stat(path.c_str(), &status) != 0)
        return errno;
    m_IsFifo = S_ISFIFO(status.st_mode);
    // A FIFO that is open for writing here too never reports its end, so writers may come and go.
    m_Fd = open(path.c_str(), (m_IsFifo ? O_RDWR : O_RDONLY) | O_NONBLOCK | O_CLOEXEC);
    if (m_Fd < 0)
        return errno;
    m_Path = path;
    return 0;
}

void ControlInput::Close() {
    if (m_Fd >= 0)
        close(m_Fd);
    m_Fd = -1;
    m_Piece.clear();
}

void ControlInput::ReadLines(const LineHandler& handler) {
    if (m_Fd < 0)
        return;
    char buffer[4096];
    ssize_t count = 0;
    while ((count = read(m_Fd, buffer, sizeof(buffer))) > 0) {
        m_Piece.append(buffer, static_cast<size_t>(count));
        size_t begin = 0;
        for (size_t end = 0; (end = m_Piece.find('\n', begin)) != std::string::npos; begin = end + 1)
            handler(m_Piece.substr(begin, end - begin));
        m_Piece.erase(0, begin);
    }
}

namespace {

bool AtEnd(std::istream& words) {
    return words.eof() || (words >> std::ws).eof();
}

// A number and, where the line goes on, a second one.
bool ReadNumbers(std::istream& words, int& first, int& second) {
    return words >> first && (AtEnd(words) || words >> second) && AtEnd(words);
}

bool ReadFail(Session& session, std::istream& words) {
    std::string function;
    int count = 1;
    if (!(words >> function) || !(AtEnd(words) || words >> count) || !AtEnd(words) || count < 0)
        return false;
    return session.Fail(function, count);
}

bool ReadCapture(Session& session, std::istream& words) {
    std::string mode;
    words >> mode;
    CaptureFaults faults = session.Faults();
    if (mode == "normal")
        faults = CaptureFaults();
    else if (mode == "empty")
        faults.keptBytes = 0;
    else if (mode == "slow") {
        if (!(words >> faults.delayMilliseconds) || faults.delayMilliseconds < 0)
            return false;
    } else if (mode == "truncate") {
        if (!(words >> faults.keptBytes) || faults.keptBytes < -1)
            return false;
    } else
        return false;
    if (!AtEnd(words))
        return false;
    session.SetFaults(faults);
    return true;
}

bool ReadLog(Session& session, std::istream& words) {
    int level = 0;
    std::string text;
    if (!(words >> level))
        return false;
    std::getline(words >> std::ws, text);
    session.Log(level, text);
    return true;
}

bool ReadNotice(Session& session, const std::string& verb, std::istream& words) {
    Notice notice{};
    if (verb == "sys")
        notice.kind = Notice::Kind::SysEvent;
    else if (verb == "md")
        notice.kind = Notice::Kind::MdEvent;
    else if (verb == "state")
        notice.kind = Notice::Kind::State;
    else
        return false;
    if (!ReadNumbers(words, notice.code, notice.param))
        return false;
    if (!session.Notify(notice))
        session.Log(LOG_STEP, "control: the library is not open: " + verb);
    return true;
}

} // namespace

bool Session::CarryOut(const std::string& line) {
    std::istringstream words(line);
    std::string verb;
    if (!(words >> verb))
        return true; // an empty line asks for nothing
    if (verb == "fail")
        return ReadFail(*this, words);
    if (verb == "capture")
        return ReadCapture(*this, words);
    if (verb == "log")
        return ReadLog(*this, words);
    return ReadNotice(*this, verb, words);
}

} // namespace qz::xenc

using qz::xenc::Notice;
using qz::xenc::Session;

extern "C" {

int xenc_sim_sys_event(int event, int param) {
    return Session::Get().Notify({Notice::Kind::SysEvent, event, param, {}}) ? 1 : 0;
}

int xenc_sim_md_event(int event, int param) {
    return Session::Get().Notify({Notice::Kind::MdEvent, event, param, {}}) ? 1 : 0;
}

int xenc_sim_state(int state, int param) {
    return Session::Get().Notify({Notice::Kind::State, state, param, {}}) ? 1 : 0;
}

int xenc_sim_log(int level, const char* text) {
    return text && Session::Get().Notify({Notice::Kind::Log, level, 0, text}) ? 1 : 0;
}

void xenc_sim_flush(void) {
    Session::Get().Flush();
}

int xenc_sim_control(const char* line) {
    return line && Session::Get().CarryOut(line) ? 1 : 0;
}

int xenc_sim_calls(char* buffer, int size) {
    const std::string calls = Session::Get().Calls();
    if (buffer && size > 0)
        buffer[calls.copy(buffer, static_cast<size_t>(size) - 1)] = '\0';
    return static_cast<int>(calls.size());
}

void xenc_sim_forget_calls(void) {
    Session::Get().ForgetCalls();
}

void xenc_sim_reset(void) {
    Session::Get().Reset();
}

} // extern "C"
