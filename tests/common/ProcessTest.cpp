// Lock and pid files with real processes, hostile files included.
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "common/Process.h"
#include "common/Util.h"
#include "tests/support/Support.h"

using qz::common::Process;
using qz::common::Util;
using support::Exists;
using support::Log;
using support::ReadFile;
using support::WriteFile;

namespace {

using Texts = std::vector<std::string>;

const std::string LOCK = "/var/lock/thing.lock";
const std::string PID = "/var/run/thing.pid";

// A child of that process name, killed and collected with the object.
class Child {
public:
    explicit Child(const char* name, bool stubborn = false, bool ends = false) {
        m_Pid = fork();
        if (m_Pid == 0) {
            prctl(PR_SET_NAME, name);
            if (stubborn)
                signal(SIGTERM, SIG_IGN);
            if (ends)
                _exit(0);
            for (;;)
                pause();
        }
        EXPECT_TRUE(support::Eventually([this, name, ends] {
            return ends || ReadFile("/proc/" + std::to_string(m_Pid) + "/comm") ==
                               std::string(name).substr(0, 15) + "\n";
        }));
    }
    ~Child() {
        kill(m_Pid, SIGKILL);
        waitpid(m_Pid, nullptr, 0);
    }
    pid_t Pid() const { return m_Pid; }

private:
    pid_t m_Pid;
};

TEST(Process, OneOwnerAtATimeAndNothingLeftBehind) {
    testing::internal::CaptureStdout();
    {
        Process first("/usr/bin/thing");
        ASSERT_TRUE(first.Init(true));
        EXPECT_EQ(ReadFile(PID), std::to_string(getpid()));
        {
            Process second("thing");
            EXPECT_FALSE(second.Init(true));
        } // was never the owner
        EXPECT_TRUE(Exists(LOCK));
        EXPECT_EQ(ReadFile(PID), std::to_string(getpid()));
        EXPECT_EQ(fcntl(Util::FileLock("/opt/lock"), F_GETFD), FD_CLOEXEC);
    }
    EXPECT_FALSE(Exists(LOCK));
    EXPECT_FALSE(Exists(PID));
    mkdir(PID.c_str(), 0755);
    {
        Process third("thing");
        EXPECT_FALSE(third.Init(true)); // and lets go of the lock
    }
    rmdir(PID.c_str());
    Process fourth("thing");
    EXPECT_TRUE(fourth.Init(true));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), " * already running process:thing\n"
                                                      "failure to create pid file:/var/run/thing.pid\n"
                                                      " * failure to log pid:/var/run/thing.pid\n");
}

TEST(Process, TwoInstancesNeverOverlap) {
    std::atomic<int> owners{0};
    std::atomic<int> most{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&] {
            for (int i = 0; i < 500; ++i) {
                const int fd = Util::FileLock(LOCK);
                if (fd < 0)
                    continue;
                const int now = ++owners;
                most = std::max(most.load(), now);
                --owners;
                unlink(LOCK.c_str()); // as an ending owner does, while it holds the lock
                close(fd);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(most, 1);
}

TEST(Process, HostileFilesAreRefused) {
    WriteFile("/opt/precious", "precious");
    ASSERT_EQ(symlink("/opt/precious", LOCK.c_str()), 0);
    EXPECT_EQ(Util::FileLock(LOCK), -1);
    EXPECT_EQ(ReadFile("/opt/precious"), "precious");

    const std::pair<std::string, int> rows[] = {
        {"0", 0},
        {"", 0},
        {"-1", 0},
        {"x", 0},
        {"99999999999", 0},
        {"4294967297", 0},
        {"17", 17},
        {" 17\n", 17},
        {std::string(8, ' ') + "123456789", 123456789},
    };
    for (const auto& [text, pid] : rows) {
        WriteFile(PID, text);
        EXPECT_EQ(Util::ReadPID(PID), pid) << text;
    }
    EXPECT_EQ(Util::ReadPID("/opt"), 0);
    EXPECT_EQ(Util::ReadPID("/opt/missing"), 0);
    EXPECT_EQ(Util::ReadPID("/dev/zero"), 0);
    ASSERT_EQ(mkfifo("/opt/fifo", 0600), 0);
    EXPECT_EQ(Util::ReadPID("/opt/fifo"), 0);
}

TEST(Process, AliveMeansThePidAndTheName) {
    const Child child("thing");
    const Child longer("a_name_beyond_fifteen");
    EXPECT_TRUE(Util::AlivePID(child.Pid(), "thing"));
    EXPECT_TRUE(Util::AlivePID(child.Pid(), " thing\n"));
    EXPECT_TRUE(Util::AlivePID(child.Pid(), ""));
    EXPECT_FALSE(Util::AlivePID(child.Pid(), "thin"));
    EXPECT_TRUE(Util::AlivePID(longer.Pid(), "a_name_beyond_fifteen"));
    for (const int pid : {0, -1, 99999})
        EXPECT_FALSE(Util::AlivePID(pid, "")) << pid;
    // Whoever else has the pid by now is left alone.
    Log log;
    WriteFile(PID, std::to_string(longer.Pid()));
    Process("thing").FileKill();
    unlink(PID.c_str());
    Process("thing").FileKill();
    EXPECT_TRUE(Util::AlivePID(longer.Pid(), "a_name_beyond_f"));
    EXPECT_EQ(log.Messages(), Texts({"ERR thing is not running.", "ERR thing is not running."}));
}

TEST(Process, KillWaitsAndInsists) {
    Log log;
    const auto seconds = [](pid_t pid, bool result) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(Util::KillPID(pid), result);
        return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start)
            .count();
    };
    EXPECT_EQ(seconds(0, false), 0);
    const Child willing("thing"); // a zombie afterwards, as its parent does not collect it yet
    EXPECT_EQ(seconds(willing.Pid(), true), 1);
    EXPECT_EQ(log.Messages(), Texts());
    EXPECT_EQ(seconds(99999, true), 1);
    EXPECT_EQ(log.Messages(), Texts({"ERR failure to kill PID:99999 No such process"}));
    const Child stubborn("thing", true);
    EXPECT_EQ(seconds(stubborn.Pid(), true), 6);
}

} // namespace
