#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

// What the tests share.  Every test process has the sandbox's empty /opt, /run and /var/log to itself.
namespace support {

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& text);
bool Exists(const std::string& path);

// Runs a shell command that has to succeed.
void Shell(const std::string& command);

// Makes a JPEG file of that size with the real cjpeg.
void MakeJpeg(const std::string& path, int width, int height);

// The dimensions in a GIF file's header as "W x H".
std::string GifSize(const std::string& path);

// Waits for the condition, for at most ten seconds.
bool Eventually(const std::function<bool()>& condition, int milliseconds = 10000);

// The program directory with the real djpeg, the version file, the failure picture and the FIFO.
class Appliance {
public:
    Appliance();
    static std::string Tmp(const std::string& name);
    static constexpr const char* LOG_DIRECTORY = "/var/log/tormel/agent";
    // Writes one command into the FIFO, as the appliance's other programs do.
    static void Command(const std::string& text);
};

// The log of this process, at debug level, as long as the object lives.
class Log {
public:
    explicit Log(int level = 6);
    ~Log();
    // "INF kt_init success" for every line so far, in order.
    std::vector<std::string> Messages();
    int Count(const std::string& message);
    void Forget();

private:
    size_t m_Forgotten = 0;
};

// The message lines of a log file's text, as Log::Messages.
std::vector<std::string> MessagesOf(const std::string& text);

// A running daemon, killed with the object.
class Daemon {
public:
    // program is the path under which the daemon is started; the real one is linked there.
    explicit Daemon(std::vector<std::string> arguments = {"--debug"},
                    std::vector<std::string> environment = {});
    ~Daemon();
    bool Ready(); // waits until commands are served
    bool Logs(const std::string& message, int times = 1);
    static std::string LogText();
    // Waits for the end: the exit status, 128 + the signal's number, or -1 when it still runs.
    int Status(int milliseconds = 10000);
    std::string Output(); // standard output and error so far
    pid_t Pid() const { return m_Pid; }

private:
    pid_t m_Pid = 0;
    int m_Status = -1;
    std::string m_Output;
};

// The simulator's record of calls, names only.
std::vector<std::string> CallNames();
std::vector<std::string> Calls();

} // namespace support
