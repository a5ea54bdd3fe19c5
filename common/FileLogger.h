#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <exception>
#include <memory>
#include <mutex>
#include <ostream>
#include <set>
#include <sstream>
#include <streambuf>
#include <string>
#include <string_view>
#include <vector>

#include "common/FileAccess.h"
#include "common/IExecutor.h"

namespace qz::common {

class ThreadPool;

// A statement's tag and the lowest level at which it is written.
struct LogTag {
    const char* name;
    int threshold;
};

// Not LOG_ERR and so on: <syslog.h> has macros of such names.
constexpr LogTag TAG_ERR{"ERR", 2};
constexpr LogTag TAG_WRN{"WRN", 3};
constexpr LogTag TAG_INF{"INF", 4};
constexpr LogTag TAG_DBG{"DBG", 6};

// The process-wide text log.  A statement (QZ_LOG below) builds its whole line on the calling thread and queues it; one
// worker appends the lines, in the order in which they were queued, to a file named after the date and keeps the newest
// ten files.
//
//     2026-11-16 10:06:09.123||INF|NA|[812][qz::capture::Capture::Resize] the message [L:87]
//
// Level 8 (or the console flag) sends every line to standard output instead.
//
// Threads: any thread may log and Drain, also from the destructor of a static or thread_local object.  instance is
// first called on the main thread, before there are others; Initialize and the destructor belong to the main thread
// too.  The file and the rotation state are touched under m_FileLock, by Initialize and the worker.
class FileLogger : public IExecutor {
public:
    // The one logger, made on the first call with level 1, which writes nothing.  Deleting it ends it: the next call
    // makes another.
    static FileLogger* instance();

    // Ends the worker, hands the lines still queued to OnDeletor and closes the file.
    ~FileLogger() override;

    FileLogger(const FileLogger&) = delete;
    FileLogger& operator=(const FileLogger&) = delete;

    // Starts the worker and opens <directory>/<name>-<date>.log; the directory exists already.  dateFormat is
    // strftime's.  With closeAfterWrite the file is open only while a line is written.  False when there is no worker,
    // and when the file did not open; each later line tries again.  Called once more, it goes on with the new file;
    // lines still queued go there.
    bool Initialize(const std::string& directory, const std::string& name, int level, const std::string& dateFormat,
                    bool closeAfterWrite);

    // Queues a finished line.  True: the logger owns it now.  False (not initialised, queue full): the caller does.
    bool Write(std::ostringstream* line);

    // Waits until the worker has written every line queued before, for at most the given time.
    void Drain(std::chrono::milliseconds limit);

    // The local time as YYYY-MM-DD HH:MM:SS.mmm.
    static std::string GetLogTime();

    // Local time by a strftime format; at most 63 characters.
    static std::string GetDateFormat(time_t when, std::string format);

    // KiB by the size counter.
    int getFileSize() const;

    // Opens today's file when it is not the open one and removes the oldest ones; whether a file is open.  Before every
    // line.
    bool CheckLogDate();

    // Rotates by size; whether a file is open.  Nothing calls it and nothing advances the size counter: this system
    // rotates by date and count.
    bool CheckLogSize();

    // Removes the oldest files above the limit, never fewer than 10 kept, and never the open one, which a clock that
    // was set back may have made the oldest.
    void CheckLogCount();

    // Adds the names of the log files to files and returns how many it holds: regular files in the directory whose
    // names have that length, begin with the logger's name and end in ".log".  -1 when the directory cannot be read.
    int GetLogFileList(std::set<std::string>& files, unsigned nameLength);

    void OnExecute(void* item) override; // an ostringstream from the heap: writes it, keeps or deletes it
    void OnDeletor(void* item) override; // deletes it unwritten

    // Whether a statement of this threshold writes anything: one load and one comparison.  Any thread.
    static bool Enabled(int threshold) { return m_Gate.load(std::memory_order_relaxed) >= threshold; }

    // Everything that precedes the message.
    void WritePrefix(std::streambuf& out, const LogTag& tag, std::string_view function) const;

    // An empty line for Write: one that was written before, where there is one, since making a stream costs more than
    // filling it.  Any thread.
    std::unique_ptr<std::ostringstream> NewLine();

    // Whether lines go to standard output.
    bool ToConsole() const { return m_Level == CONSOLE_LEVEL || m_Console; }

protected:
    FileLogger();

    // For a logger that counts its bytes and keeps another number of files, as this one does not.
    std::atomic<int32_t> m_FileSize{0}; // bytes
    int32_t m_MaxFileCount = 10;

private:
    static constexpr int CONSOLE_LEVEL = 8;

    void OpenForAppending(const std::string& path);
    void ForgetLostFile();
    void Append(const std::string& text);
    void KeepLine(std::unique_ptr<std::ostringstream> line);

    static std::atomic<FileLogger*> m_Instance;
    // The level as the statements see it: CONSOLE_LEVEL in console mode, where every tag is written.
    static std::atomic<int> m_Gate;

    int32_t m_MaxFileSize = 1024;                // KiB
    [[maybe_unused]] int32_t m_SecondLimit = 24; // read by no operation
    std::atomic<int32_t> m_Level{1};
    bool m_Console = false;
    bool m_CloseAfterWrite = false;
    std::string m_Directory = "./";
    std::unique_ptr<ThreadPool> m_Pool;
    std::mutex m_FileLock; // guards the settings above and the file and its date below
    // Unbuffered, a write per line: a line that could not be written leaves nothing behind for the next one.
    UniqueFd m_Descriptor;
    FileIdentity m_Opened;                                    // what m_Descriptor was opened as
    std::mutex m_SpareLock;                                   // guards m_Spare
    std::vector<std::unique_ptr<std::ostringstream>> m_Spare; // written lines, emptied
    std::string m_Name;
    std::string m_CurrentDate;
    std::string m_DateFormat = "%Y%m%d%H";
    std::string m_UserName; // stored, not printed
    std::string m_Module;   // the second field of every line
    std::string m_TagField = "NA";
    int32_t m_Pid;
    // What stands between the time and the level, and between the level and the function.
    std::string m_BeforeTag;
    std::string m_AfterTag;
};

// One line while it is being built; its end hands the line over, unless a piece has thrown.  For QZ_LOG only.
class LogLine {
public:
    LogLine(const LogTag& tag, std::string_view function, int sourceLine);
    ~LogLine();
    LogLine(const LogLine&) = delete;
    LogLine& operator=(const LogLine&) = delete;

    std::ostream& Stream() { return *m_Line; }

private:
    std::unique_ptr<std::ostringstream> m_Line;
    const int m_SourceLine;
    const int m_Exceptions = std::uncaught_exceptions(); // more of them at the end: a piece has thrown
};

// Where the function field stands in a compiler's pretty signature: between the last blank before the first "(" and
// that "(".  Length 0 without a "(".
struct FunctionSpan {
    size_t begin;
    size_t length;
};

constexpr FunctionSpan functionSpan(std::string_view signature) {
    const size_t end = signature.find('(');
    if (end == std::string_view::npos)
        return {0, 0};
    const size_t blank = signature.substr(0, end).rfind(' ');
    const size_t begin = blank == std::string_view::npos ? 0 : blank + 1;
    return {begin, end - begin};
}

// The function field itself; "::" for a signature without a "(".
constexpr std::string_view className(std::string_view signature) {
    if (signature.find('(') == std::string_view::npos)
        return "::";
    const FunctionSpan span = functionSpan(signature);
    return signature.substr(span.begin, span.length);
}

// The field of a signature whose span the compiler has worked out.  A class and no variable, so that QZ_LOG stays an
// expression.
template <size_t begin, size_t length>
struct LogFunction {
    static constexpr std::string_view In(const char* signature) { return {signature + begin, length}; }
};

// Makes both branches of QZ_LOG void.
struct LogDiscard {
    void operator&(std::ostream&) const {}
};

} // namespace qz::common

// QZ_LOG(INF, "Resize complete. jpegSize: " << width << " X " << height);
//
// The tag is one of ERR, WRN, INF, DBG.  Below the level no piece is evaluated.  One expression without names of its
// own: it may stand in an if without braces, and a piece may use any name.  The function field comes from the
// compiler's signature, so a statement stands in a named function that is no lambda and in no unnamed namespace.
#define QZ_LOG(tag, ...)                                                                                               \
    (!::qz::common::FileLogger::Enabled(::qz::common::TAG_##tag.threshold))                                            \
        ? static_cast<void>(0)                                                                                         \
        : ::qz::common::LogDiscard() &                                                                                 \
              ::qz::common::LogLine(::qz::common::TAG_##tag, QZ_LOG_FUNCTION(__PRETTY_FUNCTION__), __LINE__).Stream()  \
                  << __VA_ARGS__

// The span is a template argument, so only a pointer and two constants remain at run time.
#define QZ_LOG_FUNCTION(signature)                                                                                     \
    ::qz::common::LogFunction<::qz::common::functionSpan(signature).begin,                                             \
                              ::qz::common::functionSpan(signature).length>::In(signature)
