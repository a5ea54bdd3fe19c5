// The daemon's log, read from outside.  Tested in tests/control/ControlTest.cpp.
#include "common/LogReader.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

#include "common/FileAccess.h"
#include "common/PathConstants.h"

namespace qz::common {

namespace {

const std::string DATE = "00000000" + LOG_EXTENSION; // of a file, behind its name and a dash; see Shape
const std::string TIME = "0000-00-00 00:00:00.000";  // of a record
const std::string TAIL = "[L:";                      // then the line's number and "]"
constexpr const char* DIGITS = "0123456789";

// The text with every digit as 0.
std::string Shape(std::string text) {
    for (size_t at = 0; (at = text.find_first_of(DIGITS, at)) != std::string::npos; ++at)
        text[at] = '0';
    return text;
}

// Whether a record begins here.
bool IsHead(const std::string& line) {
    return Shape(line.substr(0, TIME.size() + 1)) == TIME + '|';
}

// Whether a record ends with this line: " [L:87]", alone on it after a message with line ends.
bool IsTail(const std::string& line) {
    const size_t tail = line.rfind(TAIL);
    return tail != std::string::npos && line.back() == ']' &&
           line.find_first_not_of(DIGITS, tail + TAIL.size()) == line.size() - 1;
}

} // namespace

LogRecord ParseRecord(const std::string& text) {
    LogRecord record;
    record.text = text;
    const size_t level = text.find('|', TIME.size() + 1);
    const size_t pid = text.find("|[", level);
    const size_t function = text.find("][", pid);
    const size_t message = text.find("] ", function);
    const size_t tail = text.rfind(" " + TAIL);
    if (!IsHead(text) || message == std::string::npos || tail == std::string::npos || tail < message + 2)
        return record;
    record.time = text.substr(0, TIME.size());
    record.level = text.substr(level + 1, 3);
    record.pid = std::atoi(text.c_str() + pid + 2);
    record.message = text.substr(message + 2, tail - message - 2);
    return record;
}

LogReader::LogReader(std::string directory, std::string name)
    : m_Directory(std::move(directory)), m_Name(std::move(name)) {}

std::string LogReader::FileAfter(const std::string& file) const {
    const std::string prefix = m_Name + "-";
    std::string next;
    const DirectoryPtr directory(opendir(m_Directory.c_str()));
    while (const dirent* entry = directory ? readdir(directory.get()) : nullptr) {
        const std::string name = entry->d_name;
        const bool dated = name.compare(0, prefix.size(), prefix) == 0 && Shape(name.substr(prefix.size())) == DATE;
        if (dated && name > file && (next.empty() || name < next))
            next = name;
    }
    return next;
}

void LogReader::Open(const std::string& file) {
    m_Descriptor = OpenRegularForReading((m_Directory + PATH_SEPARATOR + file).c_str());
    m_File = file;
}

void LogReader::SeekToEnd() {
    std::string last = m_File;
    for (std::string next = last; !(next = FileAfter(next)).empty();)
        last = next;
    m_Buffer.clear();
    if (last.empty())
        return;
    Open(last);
    if (m_Descriptor.Valid())
        lseek(m_Descriptor.Get(), 0, SEEK_END);
}

bool LogReader::Fill() {
    char piece[16 * 1024];
    const ssize_t count = m_Descriptor.Valid() ? ReadSome(m_Descriptor.Get(), piece, sizeof piece) : 0;
    if (count > 0) {
        m_Buffer.append(piece, static_cast<size_t>(count));
        return true;
    }
    // A file is left only when there is a later one, so that nothing that still comes is missed.
    const std::string next = FileAfter(m_File);
    if (next.empty())
        return false;
    Open(next); // one that cannot be read is passed over
    return Fill();
}

std::optional<LogRecord> LogReader::Next() {
    size_t begin = 0; // of the line looked at
    for (;;) {
        const size_t end = m_Buffer.find('\n', begin);
        if (end == std::string::npos) {
            if (!Fill())
                return std::nullopt;
            continue;
        }
        const std::string line = m_Buffer.substr(begin, end - begin);
        // What precedes a line that is no part of it ends there, whole or not.
        const bool alone = begin == 0 && !IsHead(line);
        const bool interrupted = begin > 0 && IsHead(line);
        if (alone || interrupted || IsTail(line)) {
            const size_t length = interrupted ? begin - 1 : end;
            LogRecord record = ParseRecord(m_Buffer.substr(0, length));
            m_Buffer.erase(0, length + 1);
            return record;
        }
        begin = end + 1;
    }
}

std::string CauseOfEnd(const std::string& message) {
    const auto begins = [&message](const std::string& start) { return message.compare(0, start.size(), start) == 0; };
    if (message == "end the thread")
        return "the command capture_end";
    if (begins("no requests for"))
        return "idle: nobody asked for a picture for more than 10 seconds";
    const std::string received = " Receives signal(";
    const size_t colon = message.rfind(':');
    if (begins(received) && colon != std::string::npos) {
        const int signal = std::atoi(message.c_str() + colon + 1);
        for (const int ending : {SIGTERM, SIGQUIT, SIGUSR1, SIGSEGV, SIGABRT, SIGILL, SIGFPE}) {
            if (signal == ending)
                return "signal " + std::to_string(signal) + " (" +
                       message.substr(received.size(), colon - received.size()) + ")";
        }
    }
    for (const char* line : {"kt_control is running.", "Initialize failed", "FIFO is invalid", "FIFO select failed",
                             "command pipe task failed"}) {
        if (message == line)
            return message;
    }
    return "";
}

} // namespace qz::common
