// Control lines.  Tested in tests/desk/desk_test.py.
#include "desk/Board.h"

#include <fcntl.h>

#include <algorithm>

#include "common/FileAccess.h"
#include "desk/Catalogue.h"
#include "desk/Refusal.h"

namespace qz::desk {

namespace {

constexpr size_t TEXT_LIMIT = 200;
constexpr int TIMES_LIMIT = 1000;
constexpr int DELAY_LIMIT = 60'000;
constexpr int BYTES_LIMIT = 100'000'000;
constexpr int LEVEL_LIMIT = 99;

void RequireWithin(const char* what, int number, int least, int most) {
    if (number < least || number > most)
        throw Refusal{WRONG_REQUEST, std::string(what) + " must be " + std::to_string(least) + " to " +
                                         std::to_string(most) + ", not " + std::to_string(number)};
}

void RequireFunction(const std::string& function) {
    if (!IsFunction(function))
        throw Refusal{WRONG_REQUEST, "the encoder library has no such function"};
}

} // namespace

Board::Board(const std::string& folder) : m_Path(folder + "/control") {}

void Board::Append(const std::string& lines) const {
    const qz::common::UniqueFd file = qz::common::OpenRegularForWriting(m_Path.c_str(), O_APPEND);
    if (!file.Valid() || qz::common::WriteAll(file.Get(), lines.data(), lines.size()) != lines.size())
        throw Refusal{TROUBLE, "the control file cannot be written"};
}

std::string Board::Prepare() {
    const std::lock_guard<std::mutex> lock(m_Lock);
    // Emptied, not removed: what the last session was told is over.
    if (!qz::common::OpenRegularForWriting(m_Path.c_str(), O_TRUNC).Valid())
        throw Refusal{TROUBLE, "the control file cannot be made"};
    std::string lines = "picture " + m_Pictures + "\n";
    for (const std::string& line : m_Waiting)
        lines += line + "\n";
    Append(lines);
    m_Waiting.clear();
    return m_Path;
}

void Board::SetRunning(bool running) {
    const std::lock_guard<std::mutex> lock(m_Lock);
    m_Running = running;
}

void Board::Send(const std::string& line, WhenEnded whenEnded) {
    const std::lock_guard<std::mutex> lock(m_Lock);
    if (m_Running)
        Append(line + "\n");
    else if (whenEnded == WAITS)
        m_Waiting.push_back(line);
    else
        throw Refusal{NOT_NOW, "the daemon is not running"};
}

void Board::Event(const std::string& channel, int code) {
    if (channel != "sys" && channel != "md")
        throw Refusal{WRONG_REQUEST, "events come from sys or md"};
    Send(channel + " " + std::to_string(code), REFUSED);
}

void Board::State(int code) {
    if (!IsState(code))
        throw Refusal{WRONG_REQUEST, "there is no such state"};
    Send("state " + std::to_string(code), REFUSED);
}

void Board::Log(int level, const std::string& text) {
    RequireWithin("the level", level, 0, LEVEL_LIMIT);
    const bool printable = std::all_of(text.begin(), text.end(), [](unsigned char c) { return c >= ' ' && c != 0x7F; });
    if (text.empty() || text.size() > TEXT_LIMIT || !printable)
        throw Refusal{WRONG_REQUEST, "the text must be one line of at most " + std::to_string(TEXT_LIMIT) + " bytes"};
    Send("log " + std::to_string(level) + " " + text, REFUSED);
}

void Board::Fail(const std::string& function, int times) {
    RequireFunction(function);
    RequireWithin("the number of calls", times, 0, TIMES_LIMIT);
    Send("fail " + function + " " + std::to_string(times), WAITS);
}

void Board::Hang(const std::string& function) {
    RequireFunction(function);
    Send("hang " + function, WAITS);
}

void Board::Spoil(const std::string& mode, int amount) {
    if (mode == "slow") {
        RequireWithin("the time", amount, 0, DELAY_LIMIT);
        Send("capture slow " + std::to_string(amount), WAITS);
    } else if (mode == "truncate") {
        RequireWithin("the size", amount, -1, BYTES_LIMIT);
        Send("capture truncate " + std::to_string(amount), WAITS);
    } else if (mode == "empty" || mode == "normal") {
        Send("capture " + mode, WAITS);
    } else {
        throw Refusal{WRONG_REQUEST, "captures are slow, truncated, empty or normal"};
    }
}

void Board::ShowPictures(const std::string& path) {
    const std::lock_guard<std::mutex> lock(m_Lock);
    m_Pictures = path;
    if (m_Running)
        Append("picture " + path + "\n");
}

std::vector<std::string> Board::Waiting() const {
    const std::lock_guard<std::mutex> lock(m_Lock);
    return m_Waiting;
}

} // namespace qz::desk
