// The meaning of the control lines.  CarryOut.
#include "xenc/simulator/Control.h"

#include <sstream>

#include "xenc/simulator/Session.h"

namespace qz::xenc {

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
    return session.Calls().PlanFailures(function, count);
}

bool ReadCapture(Session& session, std::istream& words) {
    std::string mode;
    words >> mode;
    PictureFaults faults = session.Pictures().Faults();
    if (mode == "normal")
        faults = {};
    else if (mode == "empty")
        faults.keptBytes = 0;
    else if (mode == "slow") {
        int milliseconds = 0;
        if (!(words >> milliseconds) || milliseconds < 0)
            return false;
        faults.delay = std::chrono::milliseconds(milliseconds);
    } else if (mode == "truncate") {
        if (!(words >> faults.keptBytes) || faults.keptBytes < -1)
            return false;
    } else
        return false;
    if (!AtEnd(words))
        return false;
    session.Pictures().SetFaults(faults);
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

bool ReadPicture(Session& session, std::istream& words) {
    std::string path;
    std::getline(words >> std::ws, path);
    session.Pictures().Choose(path);
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

bool CarryOut(Session& session, const std::string& line) {
    std::istringstream words(line);
    std::string verb;
    if (!(words >> verb))
        return true; // an empty line asks for nothing
    if (verb == "fail")
        return ReadFail(session, words);
    if (verb == "capture")
        return ReadCapture(session, words);
    if (verb == "log")
        return ReadLog(session, words);
    if (verb == "picture")
        return ReadPicture(session, words);
    return ReadNotice(session, verb, words);
}

} // namespace qz::xenc
