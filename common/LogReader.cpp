// The daemon's log, read from outside.  Tested in tests/control/ControlTest.cpp.
#include "common/LogReader.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "common/FileAccess.h"
#include "common/PathConstants.h"

namespace qz::common {

namespace {

constexpr size_t DATE_LENGTH = 8;  // of a file's name
constexpr size_t TIME_LENGTH = 23; // of a record

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// Whether a record begins here.
bool IsHead(const std::string& line) {
    const std::string shape = "dddd-dd-dd dd:dd:dd.ddd|";
    if (line.size() < shape.size())
        return false;
    for (size_t i = 0; i < shape.size(); ++i) {
        if (shape[i] == 'd' ? !IsDigit(line[i]) : line[i] != shape[i])
            return false;
    }
    return true;
}

// Whether a record ends with this line: " [L:87]", alone on it after a message with line ends.
bool IsTail(const std::string& line) {
    const size_t tag = line.rfind("[L:");
    return tag != std::string::npos && line.size() > tag + 4 && line.back() == ']' &&
           std::all_of(line.begin() + static_cast<std::ptrdiff_t>(tag) + 3, line.end() - 1, IsDigit);
}

} // namespace

LogRecord ParseRecord(const std::string& text) {
    LogRecord record;
    record.text = text;
    const size_t level = text.find('|', TIME_LENGTH + 1) + 1;
    const size_t pid = text.find("|[", level);
    const size_t function = text.find("][", pid);
    const size_t message = text.find("] ", function);
    const size_t tail = text.rfind("[L:");
    if (!IsHead(text) || message == std::string::npos || tail == std::string::npos || tail <= message + 1)
        return record;
    record.time = text.substr(0, TIME_LENGTH);
    record.level = text.substr(level, 3);
    record.pid = std::atoi(text.c_str() + pid + 2);
    record.message = text.substr(message + 2, tail - message - 3);
    return record;
}

LogReader::LogReader(std::string directory, std::string name)
    : m_Directory(std::move(directory)), m_Name(std::move(name)) {}

std::string LogReader::FileAfter(const std::string& file) const {
    std::string next;
    const DirectoryPtr directory(opendir(m_Directory.c_str()));
    while (const dirent* entry = directory ? readdir(directory.get()) : nullptr) {
        const std::string name = entry->d_name;
        const bool dated = name.size() == m_Name.size() + 1 + DATE_LENGTH + LOG_EXTENSION.size() &&
                           name.compare(0, m_Name.size() + 1, m_Name + "-") == 0 &&
                           std::all_of(name.begin() + static_cast<std::ptrdiff_t>(m_Name.size()) + 1,
                                       name.end() - static_cast<std::ptrdiff_t>(LOG_EXTENSION.size()), IsDigit);
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
