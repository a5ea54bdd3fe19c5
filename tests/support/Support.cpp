#include "tests/support/Support.h"

#include <sys/ioctl.h>

#include <algorithm>
#include <fstream>
#include <iostream>
#include <sstream>

#include "common/FileLogger.h"
#include "common/Util.h"
#include "xenc/simulator/simulator.h"

using qz::common::FileLogger;
using std::chrono::steady_clock;

namespace support {

namespace {

Texts Lines(const std::string& text) {
    Texts lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

// Every test starts with empty folders, from / and with the environment that the program was given, also when one
// program runs several, in any order.
class CleanStart : public testing::EmptyTestEventListener {
    void OnTestProgramStart(const testing::UnitTest&) override {
        // What is emptied must be the sandbox's.
        if (ReadFile("/proc/self/mounts").find("sandbox /opt tmpfs") == std::string::npos) {
            std::cerr << "run this through scripts/sandbox.sh\n";
            _exit(1);
        }
        for (char** entry = environ; *entry; ++entry)
            m_Environment.emplace_back(*entry);
    }
    void OnTestStart(const testing::TestInfo&) override {
        std::filesystem::current_path("/");
        for (const char* folder : {"/opt", "/var/log", "/run"}) {
            for (const auto& entry : std::filesystem::directory_iterator(folder))
                std::filesystem::remove_all(entry);
        }
        std::filesystem::create_directory("/run/lock");
        clearenv();
        for (std::string& entry : m_Environment)
            putenv(&entry[0]);
    }
    Texts m_Environment;
};

const bool registered = (testing::UnitTest::GetInstance()->listeners().Append(new CleanStart), true);

} // namespace

std::string ReadFile(const std::string& path) {
    std::ostringstream out;
    out << std::ifstream(path, std::ios::binary).rdbuf();
    return out.str();
}

void WriteFile(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

std::string Joined(const Texts& texts) {
    std::string all;
    for (const std::string& text : texts)
        all += (all.empty() ? "" : "; ") + text;
    return all;
}

void Shell(const std::string& command) {
    ASSERT_EQ(system(command.c_str()), 0) << command;
}

void StandIn(const std::string& name, const std::string& script) {
    WriteFile("/opt/" + name, "#!/bin/sh\n" + script + "\n");
    Shell("chmod +x /opt/" + name);
    setenv("PATH", ("/opt:" + std::string(getenv("PATH"))).c_str(), 1);
}

void MakeJpeg(const std::string& path, int width, int height) {
    const std::string size = std::to_string(width) + " " + std::to_string(height);
    Shell("(echo P5 " + size + " 255; head -c " + std::to_string(width * height) + " /dev/zero) | cjpeg -outfile " +
          path);
}

std::string GifSize(const std::string& path) {
    return qz::common::Util::PopenCommand("printf '%s %s x %s' $(head -c 3 " + path + ") $(od -An -tu2 -j6 -N4 " +
                                          path + ")");
}

bool Eventually(const std::function<bool()>& condition, int milliseconds) {
    const auto start = steady_clock::now();
    while (!condition()) {
        if (Since(start) > milliseconds)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

int Since(steady_clock::time_point then) {
    return static_cast<int>((steady_clock::now() - then) / std::chrono::milliseconds(1));
}

void OnFourThreads(const std::function<void(int)>& work) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back(work, i);
    for (std::thread& thread : threads)
        thread.join();
}

Appliance::Appliance() {
    std::filesystem::remove_all("/opt/tormel"); // several in one test
    std::filesystem::remove_all(LOG_DIRECTORY);
    std::filesystem::create_directories(Tmp(""));
    std::filesystem::create_directories(std::filesystem::path(DECODER).parent_path());
    Shell("ln -s $(command -v djpeg) " + std::string(DECODER));
    WriteFile("/opt/tormel/plinta/version", "1.2.3.0407\n");
    WriteFile(Tmp("liveview_failed.jpg"), "the failure picture");
    EXPECT_EQ(mkfifo(Tmp("capture.fifo").c_str(), 0666), 0);
}

void Appliance::ReplaceDecoder(const std::string& script) {
    unlink(DECODER); // a link to the real one
    WriteFile(DECODER, "#!/bin/sh\n" + script + "\n");
    chmod(DECODER, 0755);
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

std::string LogFile(const std::string& name) {
    const std::string date = FileLogger::GetDateFormat(time(nullptr), "%Y%m%d");
    return std::string(Appliance::LOG_DIRECTORY) + "/" + name + "-" + date + ".log";
}

Texts LogReader::Messages() {
    std::string text = ReadFile(LogFile(m_Name));
    text.erase(text.rfind('\n') + 1); // a line may be just being written
    for (const std::string& message : MessagesOf(text.substr(std::min(m_Read, text.size()))))
        m_Messages.push_back(message);
    m_Read = text.size();
    return m_Messages;
}

int LogReader::Count(const std::string& message) {
    const Texts all = Messages();
    return static_cast<int>(std::count(all.begin(), all.end(), message));
}

bool LogReader::Logs(const std::string& message) {
    return Eventually([&] { return Count(message) > 0; });
}

void LogReader::Forget() {
    Messages();
    m_Messages.clear();
}

Log::Log(int level) : LogReader("test") {
    const std::string directory = Appliance::LOG_DIRECTORY;
    std::filesystem::remove_all(directory);
    std::filesystem::create_directories(directory);
    EXPECT_TRUE(FileLogger::instance()->Initialize(directory, "test", level, "%Y%m%d", false));
}

Log::~Log() {
    delete FileLogger::instance();
}

Texts Log::Messages() {
    FileLogger::instance()->Drain(std::chrono::seconds(10));
    return LogReader::Messages();
}

Texts MessagesOf(const std::string& text) {
    Texts messages;
    for (const std::string& line : Lines(text)) {
        const size_t tag = line.find_first_of("EWID", line.find("|"));
        const size_t start = line.find("] ", tag);
        const size_t end = line.rfind(" [L:");
        if (start != std::string::npos && end != std::string::npos && end >= start + 2)
            messages.push_back(line.substr(tag, 3) + " " + line.substr(start + 2, end - start - 2));
        else
            messages.push_back(line);
    }
    return messages;
}

Daemon::Daemon(const std::string& arguments, const std::string& environment) : LogReader("capture") {
    static int number = 0;
    m_Output = "/opt/output" + std::to_string(++number);
    const std::string command =
        "exec env " + environment + " '" + QZ_DAEMON "' " + arguments + " >" + m_Output + " 2>&1";
    m_Pid = fork();
    if (m_Pid == 0) {
        execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
        _exit(127);
    }
}

Daemon::~Daemon() {
    if (Status(0) == -1) {
        kill(m_Pid, SIGKILL);
        Status();
    }
    if (testing::Test::HasFailure())
        std::cerr << "--- output\n" << Output() << "--- log\n" << ReadFile(LogFile("capture"));
}

int Daemon::Status(int milliseconds) {
    const auto ended = [this] {
        int status = 0;
        if (m_Status == -1 && waitpid(m_Pid, &status, WNOHANG) == m_Pid)
            m_Status = WIFEXITED(status) ? WEXITSTATUS(status) : BY_SIGNAL + WTERMSIG(status);
        return m_Status != -1;
    };
    Eventually(ended, milliseconds);
    return m_Status;
}

std::string CallsSince() {
    return Joined(Lines(xenc_sim_take_calls()));
}

} // namespace support
