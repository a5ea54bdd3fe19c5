#pragma once

// These are for nearly every test.
#include <fcntl.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

// What the tests share.  Every test process has the sandbox's empty /opt, /run and /var/log to itself.
namespace support {

using Texts = std::vector<std::string>;

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& text);
inline bool Exists(const std::string& path) {
    return access(path.c_str(), F_OK) == 0;
}

// One text, for tables: "a; b".
std::string Joined(const Texts& texts);

// Runs a shell command that has to succeed.
void Shell(const std::string& command);

// Makes a script of that name, in /opt, that commands find before the real program.
void StandIn(const std::string& name, const std::string& script);

// Makes a JPEG file of that size with the real cjpeg.
void MakeJpeg(const std::string& path, int width, int height);

// The magic and the dimensions in a GIF file's header, as "GIF W x H".
std::string GifSize(const std::string& path);

// Waits for the condition, for at most ten seconds.
bool Eventually(const std::function<bool()>& condition, int milliseconds = 10000);

// An empty file system over a folder, as long as the object lives.
struct Mount {
    explicit Mount(const std::string& folder, const std::string& options = "") : path(folder) {
        EXPECT_EQ(mount("none", path.c_str(), "tmpfs", 0, options.c_str()), 0);
    }
    ~Mount() { umount2(path.c_str(), MNT_DETACH); }
    const std::string path;
};

// Another file in a file's place, as long as the object lives.
struct FileMount {
    FileMount(const char* file, const char* place) : path(place) {
        EXPECT_EQ(mount(file, place, nullptr, MS_BIND, nullptr), 0);
    }
    ~FileMount() { umount2(path, MNT_DETACH); }
    const char* const path;
};

// Whole milliseconds since then.
int Since(std::chrono::steady_clock::time_point then);

// Runs the work on four threads at once, which it tells apart by their numbers from 0.
void OnFourThreads(const std::function<void(int)>& work);

// The program directory with the real djpeg, the version file, the failure picture, the FIFO, no log yet.
class Appliance {
public:
    Appliance();
    static std::string Tmp(const std::string& name) { return "/opt/tormel/plinta/var/tmp/" + name; }
    static constexpr const char* LOG_DIRECTORY = "/var/log/tormel/agent";
    static constexpr const char* DECODER = "/opt/tormel/plinta/agent/latest/djpeg";
    static void ReplaceDecoder(const std::string& script);
    // Writes one command into the FIFO, as the appliance's other programs do.
    static void Command(const std::string& text);
};

// Today's log file of that name.
std::string LogFile(const std::string& name = "test");

// Reads today's log file of that name as it grows.
class LogReader {
public:
    explicit LogReader(std::string name) : m_Name(std::move(name)) {}
    virtual ~LogReader() = default;
    // "INF kt_init success" for every line so far, in order, except those that were forgotten.
    virtual Texts Messages();
    int Count(const std::string& message);
    bool Logs(const std::string& message); // waits for it
    void Forget();

private:
    const std::string m_Name;
    Texts m_Messages;
    size_t m_Read = 0; // bytes
};

// The log of this process, at debug level, as long as the object lives.
class Log : public LogReader {
public:
    explicit Log(int level = 6);
    ~Log() override;
    Texts Messages() override; // what is queued included
};

// The message lines of a log file's text, as LogReader::Messages.
Texts MessagesOf(const std::string& text);

// A running daemon, killed with the object.
class Daemon : public LogReader {
public:
    // Both as words for the shell.
    explicit Daemon(const std::string& arguments = "--debug", const std::string& environment = "");
    ~Daemon() override;
    bool Ready() { return Logs("INF Initialize succeed"); } // waits until commands are served
    // Whether some line of the log so far holds the text.
    bool Mentions(const std::string& text) { return Joined(Messages()).find(text) != std::string::npos; }
    // Waits for the end: the exit status, BY_SIGNAL + the signal's number, or -1 when it still runs.
    int Status(int milliseconds = 10000);
    static constexpr int BY_SIGNAL = 256;               // more than any exit status
    std::string Output() { return ReadFile(m_Output); } // standard output and error so far
    pid_t Pid() const { return m_Pid; }

private:
    pid_t m_Pid = 0;
    int m_Status = -1;
    std::string m_Output;
};

// A daemon that serves commands, on an appliance of its own.
struct ReadyDaemon : Appliance, Daemon {
    explicit ReadyDaemon(const std::string& arguments = "--debug", const std::string& environment = "")
        : Daemon(arguments, environment) {
        EXPECT_TRUE(Ready());
    }
};

// The simulator's record of calls since the last look, joined.
std::string CallsSince();

} // namespace support
