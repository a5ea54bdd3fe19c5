// The log: the line format, the dated file, its rotation.  Tested in tests/common/LoggerTest.cpp.
#include "common/FileLogger.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <thread>

#include "common/PathConstants.h"
#include "common/ThreadPool.h"

using namespace std::chrono_literals;

namespace qz::common {

namespace {

constexpr int QUEUE_LIMIT = 1000000;
constexpr int32_t LEAST_FILE_COUNT = 10;
constexpr auto DRAIN_INTERVAL = 200us;

// What a burst needs; a longer one makes new lines.  A line that has grown long gives its memory back.
constexpr size_t SPARE_LIMIT = 16;
constexpr size_t SPARE_LENGTH = 4096;

constexpr size_t TIME_SIZE = 48; // with the terminating zero, for any year that fits a tm

// YYYY-MM-DD HH:MM:SS.mmm.  The local time of a second is worked out once per thread.  Nothing here has a destructor: a
// line may come from that of a static or thread_local object.
void FormatTime(char (&out)[TIME_SIZE]) {
    struct Second {
        time_t when = -1;
        char text[TIME_SIZE - 4] = {};
    };
    thread_local Second second;

    const auto now = std::chrono::system_clock::now();
    const auto wholeSeconds = std::chrono::floor<std::chrono::seconds>(now);
    const time_t when = std::chrono::system_clock::to_time_t(wholeSeconds);
    if (when != second.when) {
        tm local{};
        localtime_r(&when, &local);
        snprintf(second.text, sizeof second.text, "%04d-%02d-%02d %02d:%02d:%02d.", local.tm_year + 1900,
                 local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
        second.when = when;
    }
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(now - wholeSeconds);
    snprintf(out, sizeof out, "%s%03d", second.text, static_cast<int>(milliseconds.count()));
}

std::string LoginName() {
    const passwd* user = getpwuid(getuid());
    return user ? user->pw_name : "";
}

} // namespace

std::atomic<FileLogger*> FileLogger::m_Instance{nullptr};
std::atomic<int> FileLogger::m_Gate{1};

FileLogger* FileLogger::instance() {
    FileLogger* logger = m_Instance;
    if (!logger) {
        logger = new FileLogger();
        m_Instance = logger;
    }
    return logger;
}

FileLogger::FileLogger()
    : m_UserName(LoginName()), m_Pid(getpid()), m_BeforeTag(FIELD_SEPARATOR + m_Module + FIELD_SEPARATOR),
      m_AfterTag(FIELD_SEPARATOR + m_TagField + FIELD_SEPARATOR + "[" + std::to_string(m_Pid) + "][") {}

FileLogger::~FileLogger() {
    m_Gate = 1;
    m_Pool.reset(); // ends the worker first: it uses everything else
    ForgetLostFile();
    m_Instance = nullptr;
}

bool FileLogger::Initialize(const std::string& directory, const std::string& name, int level,
                            const std::string& dateFormat, bool closeAfterWrite) {
    if (!m_Pool)
        m_Pool = std::make_unique<ThreadPool>(this, 1, QUEUE_LIMIT);
    if (m_Pool->WorkerCount() == 0) { // GCOV_EXCL_START: scripts/sweep.sh leaves no thread
        m_Pool.reset();
        return false;
    } // GCOV_EXCL_STOP
    const std::lock_guard<std::mutex> lock(m_FileLock);
    ForgetLostFile();
    m_Descriptor.Reset(); // of an earlier initialisation
    m_Directory = directory;
    m_Name = name;
    m_Level = level;
    m_CloseAfterWrite = closeAfterWrite;
    m_Gate = ToConsole() ? std::max(CONSOLE_LEVEL, level) : level;
    m_DateFormat = dateFormat;
    return CheckLogDate(); // no file is open: it opens today's, whatever the date was before
}

bool FileLogger::Write(std::ostringstream* line) {
    return m_Pool && m_Pool->Enqueue(line);
}

void FileLogger::Drain(std::chrono::milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (m_Pool && !m_Pool->Idle() && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(DRAIN_INTERVAL);
}

std::string FileLogger::GetLogTime() {
    char text[TIME_SIZE];
    FormatTime(text);
    return text;
}

std::string FileLogger::GetDateFormat(time_t when, std::string format) {
    char buffer[64] = {};
    tm local{};
    localtime_r(&when, &local);
    strftime(buffer, sizeof buffer, format.c_str(), &local);
    return buffer;
}

int FileLogger::getFileSize() const {
    return std::max(m_FileSize.load(), 0) >> 10;
}

bool FileLogger::CheckLogDate() {
    const std::string date = GetDateFormat(time(nullptr), m_DateFormat);
    if (date == m_CurrentDate && m_Descriptor.Valid())
        return true;
    m_Descriptor.Reset();
    OpenForAppending(m_Directory + PATH_SEPARATOR + m_Name + "-" + date + LOG_EXTENSION);
    if (!m_Descriptor.Valid())
        return false;
    m_CurrentDate = date;
    CheckLogCount();
    return true;
}

bool FileLogger::CheckLogSize() {
    if (getFileSize() >= m_MaxFileSize) {
        const std::string path = m_Directory + PATH_SEPARATOR + m_Name;
        m_Descriptor.Reset();
        rename(path.c_str(), (path + "." + GetLogTime()).c_str());
        OpenForAppending(path);
        if (m_Descriptor.Valid())
            CheckLogCount();
    }
    return m_Descriptor.Valid();
}

void FileLogger::CheckLogCount() {
    m_MaxFileCount = std::max(m_MaxFileCount, LEAST_FILE_COUNT);
    // Once for the life of the process: files of an earlier date format are left alone, since nobody can tell how old
    // they are by their names.
    static const auto length = static_cast<unsigned>(m_Name.size() + 1 + m_CurrentDate.size() + LOG_EXTENSION.size());
    std::set<std::string> files;
    int count = GetLogFileList(files, length);
    const std::string open = m_Name + "-" + m_CurrentDate + LOG_EXTENSION;
    for (const std::string& file : files) {
        if (count <= m_MaxFileCount)
            break;
        if (file == open)
            continue;
        const std::string path = m_Directory + PATH_SEPARATOR + file;
        std::cout << "unlink file : " << path << std::endl;
        --count;
        unlink(path.c_str());
    }
}

int FileLogger::GetLogFileList(std::set<std::string>& files, unsigned nameLength) {
    const DirectoryPtr directory(opendir(m_Directory.c_str()));
    if (!directory) {
        const int error = errno;
        std::cout << "opendir error[" << error << "]:" << m_Directory << std::endl;
        return -1;
    }
    while (const dirent* entry = readdir(directory.get())) {
        const std::string name = entry->d_name;
        if (name == "." || name == "..")
            continue;
        struct stat status {};
        if (lstat((m_Directory + PATH_SEPARATOR + name).c_str(), &status) != 0 || !S_ISREG(status.st_mode))
            continue;
        if (name.size() != nameLength || name.size() < LOG_EXTENSION.size() ||
            name.compare(name.size() - LOG_EXTENSION.size(), std::string::npos, LOG_EXTENSION) != 0 ||
            name.compare(0, m_Name.size(), m_Name) != 0)
            continue;
        files.insert(name);
    }
    return static_cast<int>(files.size());
}

void FileLogger::OnExecute(void* item) {
    if (!item)
        return;
    std::unique_ptr<std::ostringstream> line(static_cast<std::ostringstream*>(item));
    const std::string text = line->str();
    {
        const std::lock_guard<std::mutex> lock(m_FileLock);
        ForgetLostFile();
        if (!CheckLogDate())
            return;
        Append(text);
        if (m_CloseAfterWrite)
            m_Descriptor.Reset();
    }
    if (text.size() <= SPARE_LENGTH)
        KeepLine(std::move(line));
}

void FileLogger::OnDeletor(void* item) {
    delete static_cast<std::ostringstream*>(item);
}

void FileLogger::WritePrefix(std::streambuf& out, const LogTag& tag, std::string_view function) const {
    char time[TIME_SIZE];
    FormatTime(time);
    for (const std::string_view piece :
         {std::string_view(time), std::string_view(m_BeforeTag), std::string_view(tag.name),
          std::string_view(m_AfterTag), function, std::string_view("] ")})
        out.sputn(piece.data(), static_cast<std::streamsize>(piece.size()));
}

std::unique_ptr<std::ostringstream> FileLogger::NewLine() {
    {
        const std::lock_guard<std::mutex> lock(m_SpareLock);
        if (!m_Spare.empty()) {
            std::unique_ptr<std::ostringstream> line = std::move(m_Spare.back());
            m_Spare.pop_back();
            return line;
        }
    }
    return std::make_unique<std::ostringstream>();
}

void FileLogger::OpenForAppending(const std::string& path) {
    m_Descriptor = OpenRegularForWriting(path.c_str(), O_APPEND);
    m_Opened = FileIdentity::Of(m_Descriptor.Get());
}

// A file that was removed, with its directory or alone, would swallow every line until the date changes.  And a
// descriptor that was closed behind the logger's back may mean somebody else's file by now, which is neither written
// nor closed here.
void FileLogger::ForgetLostFile() {
    if (!m_Descriptor.Valid())
        return;
    struct stat status {};
    if (fstat(m_Descriptor.Get(), &status) != 0 || !(FileIdentity{status.st_dev, status.st_ino} == m_Opened))
        (void)m_Descriptor.Release();
    else if (status.st_nlink == 0)
        m_Descriptor.Reset();
}

// A line that cannot be written (full disk) is lost: what was written of it is taken back, and the next one is tried
// afresh.
void FileLogger::Append(const std::string& text) {
    const size_t written = WriteAll(m_Descriptor.Get(), text.data(), text.size());
    struct stat status {};
    if (written != text.size() && fstat(m_Descriptor.Get(), &status) == 0)
        (void)!ftruncate(m_Descriptor.Get(), status.st_size - static_cast<off_t>(written));
}

void FileLogger::KeepLine(std::unique_ptr<std::ostringstream> line) {
    static const std::ios& untouched = *new std::ios(nullptr); // never destroyed: the worker may outlive statics
    line->str({});
    line->clear();
    line->copyfmt(untouched); // a message's manipulators are not the next one's
    const std::lock_guard<std::mutex> lock(m_SpareLock);
    if (m_Spare.size() < SPARE_LIMIT)
        m_Spare.push_back(std::move(line));
}

LogLine::LogLine(const LogTag& tag, std::string_view function, int sourceLine)
    : m_Line(FileLogger::instance()->NewLine()), m_SourceLine(sourceLine) {
    FileLogger::instance()->WritePrefix(*m_Line->rdbuf(), tag, function);
}

LogLine::~LogLine() {
    if (std::uncaught_exceptions() > m_Exceptions)
        return; // half a message is none
    // Past the stream's formatting state, so that the message's manipulators change nothing here.  A stream that a
    // piece has failed (a null text) drops what follows, but the next line still begins on a line of its own.
    char suffix[sizeof " [L:-2147483648]\n"];
    const int length = m_Line->good() ? snprintf(suffix, sizeof suffix, " [L:%d]\n", m_SourceLine)
                                      : snprintf(suffix, sizeof suffix, "\n");
    m_Line->rdbuf()->sputn(suffix, length);

    FileLogger* logger = FileLogger::instance();
    if (logger->ToConsole())
        std::cout << m_Line->str() << std::flush;
    else if (logger->Write(m_Line.get()))
        (void)m_Line.release(); // the logger's now
}

} // namespace qz::common
