#include "tests/support/Support.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

#include "common/FileLogger.h"
#include "xenc/simulator/simulator.h"

namespace support {

namespace {

const std::string PROGRAM_DIRECTORY = "/opt/tormel/plinta/agent/latest";
const std::string TMP_DIRECTORY = "/opt/tormel/plinta/var/tmp";

std::string DatedLog(const std::string& name) {
    return std::string(Appliance::LOG_DIRECTORY) + "/" + name + "-" +
           qz::common::FileLogger::GetDateFormat(time(nullptr), "%Y%m%d") + ".log";
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

} // namespace

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void WriteFile(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

bool Exists(const std::string& path) {
    return access(path.c_str(), F_OK) == 0;
}

void Shell(const std::string& command) {
    ASSERT_EQ(system(command.c_str()), 0) << command;
}

void MakeJpeg(const std::string& path, int width, int height) {
    WriteFile(path + ".pgm", "P5 " + std::to_string(width) + " " + std::to_string(height) + " 255\n" +
                                 std::string(static_cast<size_t>(width) * height, 'x'));
    Shell("cjpeg -outfile " + path + " " + path + ".pgm && rm " + path + ".pgm");
}

std::string GifSize(const std::string& path) {
    const std::string header = ReadFile(path).substr(0, 10);
    if (header.size() < 10 || header.compare(0, 3, "GIF") != 0)
        return "no GIF";
    const auto number = [&header](size_t at) {
        return std::to_string(static_cast<unsigned char>(header[at]) +
                              256 * static_cast<unsigned char>(header[at + 1]));
    };
    return number(6) + " x " + number(8);
}

bool Eventually(const std::function<bool()>& condition, int milliseconds) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

Appliance::Appliance() {
    std::filesystem::remove_all("/opt/tormel");
    std::filesystem::create_directories(PROGRAM_DIRECTORY);
    std::filesystem::create_directories(TMP_DIRECTORY);
    std::filesystem::create_directories(LOG_DIRECTORY);
    Shell("ln -s $(command -v djpeg) " + PROGRAM_DIRECTORY + "/djpeg");
    WriteFile("/opt/tormel/plinta/version", "1.2.3.0407\n");
    MakeJpeg(Tmp("liveview_failed.jpg"), 32, 16);
    EXPECT_EQ(mkfifo(Tmp("capture.fifo").c_str(), 0666), 0);
}

std::string Appliance::Tmp(const std::string& name) {
    return TMP_DIRECTORY + "/" + name;
}

void Appliance::Command(const std::string& text) {
    int fd = -1;
    ASSERT_TRUE(Eventually([&fd] {
        fd = open(Tmp("capture.fifo").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        return fd >= 0;
    })) << "nobody reads the pipe";
    ASSERT_EQ(write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    // Until it has been read: two texts in the pipe at once would be read as one.
    int unread = 0;
    EXPECT_TRUE(Eventually([&] { return ioctl(fd, FIONREAD, &unread) == 0 && unread == 0; }));
    close(fd);
}

Log::Log(int level) {
    std::filesystem::remove_all(Appliance::LOG_DIRECTORY);
    std::filesystem::create_directories(Appliance::LOG_DIRECTORY);
    EXPECT_TRUE(qz::common::FileLogger::instance()->Initialize(Appliance::LOG_DIRECTORY, "test", level,
                                                               "%Y%m%d", false));
}

Log::~Log() {
    delete qz::common::FileLogger::instance();
}

std::vector<std::string> Log::Messages() {
    // The worker has taken a line before it has written it, so a last line of our own says that all are
    // there.
    static int mark = 0;
    const std::string end = "end of messages " + std::to_string(++mark);
    auto* line = new std::ostringstream;
    *line << "x|x|ERR|x] " << end << " [L:\n";
    EXPECT_TRUE(qz::common::FileLogger::instance()->Write(line));
    std::vector<std::string> messages;
    EXPECT_TRUE(Eventually([&] {
        messages = MessagesOf(ReadFile(DatedLog("test")));
        const auto found = std::find(messages.begin(), messages.end(), "ERR " + end);
        const bool there = found != messages.end();
        messages.erase(found, messages.end()); // other threads may have gone on logging
        return there;
    }));
    std::vector<std::string> result;
    for (size_t i = m_Forgotten; i < messages.size(); ++i) {
        if (messages[i].compare(0, 20, "ERR end of messages ") != 0)
            result.push_back(messages[i]);
    }
    return result;
}

int Log::Count(const std::string& message) {
    const std::vector<std::string> all = Messages();
    return static_cast<int>(std::count(all.begin(), all.end(), message));
}

void Log::Forget() {
    Messages();
    const std::vector<std::string> all = MessagesOf(ReadFile(DatedLog("test")));
    const auto mark = std::find_if(all.rbegin(), all.rend(), [](const std::string& message) {
        return message.compare(0, 20, "ERR end of messages ") == 0;
    });
    m_Forgotten = static_cast<size_t>(all.rend() - mark);
}

std::vector<std::string> MessagesOf(const std::string& text) {
    std::vector<std::string> messages;
    for (const std::string& line : Lines(text)) {
        const size_t tag = line.find_first_of("EWID", line.find("|"));
        const size_t start = line.find("] ", tag);
        const size_t end = line.rfind(" [L:");
        if (start == std::string::npos || end == std::string::npos || end < start + 2)
            messages.push_back(line);
        else
            messages.push_back(line.substr(tag, 3) + " " + line.substr(start + 2, end - start - 2));
    }
    return messages;
}

Daemon::Daemon(std::vector<std::string> arguments, std::vector<std::string> environment) {
    static int number = 0;
    m_Output = "/opt/output" + std::to_string(++number);
    arguments.insert(arguments.begin(), QZ_DAEMON);
    for (char** variable = environ; *variable; ++variable)
        environment.emplace_back(*variable);
    const auto pointers = [](std::vector<std::string>& texts) {
        std::vector<char*> result;
        for (std::string& text : texts)
            result.push_back(&text[0]);
        result.push_back(nullptr);
        return result;
    };
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, 1, m_Output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    posix_spawn_file_actions_adddup2(&files, 1, 2);
    EXPECT_EQ(posix_spawn(&m_Pid, QZ_DAEMON, &files, nullptr, pointers(arguments).data(),
                          pointers(environment).data()),
              0);
    posix_spawn_file_actions_destroy(&files);
}

Daemon::~Daemon() {
    if (Status(0) == -1) {
        kill(m_Pid, SIGKILL);
        Status();
    }
    if (testing::Test::HasFailure())
        std::cerr << "--- output\n" << Output() << "--- log\n" << LogText();
}

bool Daemon::Ready() {
    return Logs("INF Initialize succeed");
}

bool Daemon::Logs(const std::string& message, int times) {
    return Eventually([&] {
        const std::vector<std::string> all = MessagesOf(LogText());
        return std::count(all.begin(), all.end(), message) >= times;
    });
}

std::string Daemon::LogText() {
    return ReadFile(DatedLog("capture"));
}

int Daemon::Status(int milliseconds) {
    Eventually(
        [this] {
            int status = 0;
            if (m_Status == -1 && waitpid(m_Pid, &status, WNOHANG) == m_Pid)
                m_Status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            return m_Status != -1;
        },
        milliseconds);
    return m_Status;
}

std::string Daemon::Output() {
    return ReadFile(m_Output);
}

std::vector<std::string> Calls() {
    std::string text(static_cast<size_t>(xenc_sim_calls(nullptr, 0)) + 1, '\0');
    xenc_sim_calls(&text[0], static_cast<int>(text.size()));
    text.pop_back();
    return Lines(text);
}

std::vector<std::string> CallNames() {
    std::vector<std::string> names = Calls();
    for (std::string& name : names)
        name.erase(name.find('('));
    return names;
}

} // namespace support
