// Lock and pid files with real processes, hostile files included.
#include <sys/prctl.h>

#include "common/Owners.h"
#include "common/Process.h"
#include "common/Util.h"
#include "tests/support/Support.h"

using namespace support;
using qz::common::Process;
using qz::common::Util;

namespace {

const std::string LOCK = "/var/lock/thing.lock";
const std::string PID = "/var/run/thing.pid";

// A child of that process name, killed and collected with the object.
struct Child {
    explicit Child(const std::string& name, bool stubborn = false) : pid(fork()) {
        if (pid == 0) {
            signal(SIGTERM, stubborn ? SIG_IGN : SIG_DFL);
            prctl(PR_SET_NAME, name.c_str());
            for (;;)
                pause();
        }
        const std::string comm = "/proc/" + std::to_string(pid) + "/comm";
        EXPECT_TRUE(Eventually([&] { return ReadFile(comm) == name.substr(0, 15) + "\n"; }));
    }
    ~Child() {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    const pid_t pid;
};

TEST(Process, OneOwnerAtATimeAndNothingLeftBehind) {
    testing::internal::CaptureStdout();
    {
        Process first("/usr/bin/thing");
        ASSERT_TRUE(first.Init(true));
        EXPECT_FALSE(Process("thing").Init(true)); // was never the owner
        EXPECT_TRUE(first.Init(true));             // keeps what it holds
        EXPECT_FALSE(Process("thing").Init(true));
        unlink(LOCK.c_str());
        Process second("thing");
        EXPECT_TRUE(second.Lock() > 0 && first.Lock() == -1);
        second.Unlock();
        EXPECT_GT(first.Lock(), 0);
        EXPECT_EQ(ReadFile(PID), std::to_string(getpid()));
        EXPECT_EQ(fcntl(Util::FileLock("/opt/lock"), F_GETFD), FD_CLOEXEC);
    }
    EXPECT_FALSE(Exists(LOCK) || Exists(PID));
    const Mount small("/opt", "size=4k");
    WriteFile("/opt/fill", std::string(4096, 'x'));
    EXPECT_EQ(Util::LogPID("/opt/pid"), -1); // of a full disk
    mkdir(PID.c_str(), 0755);
    EXPECT_FALSE(Process("thing").Init(true)); // and lets go of the lock
    rmdir(PID.c_str());
    EXPECT_TRUE(Process("thing").Init(true));
    static std::atomic<int> told{0};
    signal(SIGTERM, [](int number) { told = number; });
    EXPECT_EQ(Process("thing").CurrentKill(), 0);
    EXPECT_EQ(told, SIGTERM);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), " * already running process:thing\n"
                                                      " * already running process:thing\n"
                                                      "failure to create pid file:/var/run/thing.pid\n"
                                                      " * failure to log pid:/var/run/thing.pid\n");
}

TEST(Process, TwoInstancesNeverOverlap) {
    std::atomic<int> owners{0}, most{0};
    OnFourThreads([&](int) {
        for (int i = 0; i < 500; ++i) {
            const qz::common::UniqueFd fd(Util::FileLock(LOCK));
            if (!fd.Valid())
                continue;
            most = std::max(most.load(), ++owners);
            --owners;
            unlink(LOCK.c_str()); // as an ending owner does, while it holds the lock
        }
    });
    EXPECT_EQ(most, 1);
}

TEST(Process, HostileFilesAreRefused) {
    WriteFile("/opt/precious", "precious");
    ASSERT_EQ(symlink("/opt/precious", LOCK.c_str()), 0);
    EXPECT_EQ(Util::FileLock(LOCK), -1);
    EXPECT_EQ(ReadFile("/opt/precious"), "precious");
    unlink(LOCK.c_str());
    ASSERT_EQ(mkfifo(LOCK.c_str(), 0600), 0);
    EXPECT_EQ(Util::FileLock(LOCK), -1); // at once

    const std::pair<std::string, int> rows[] = {{std::string(4096, ' ') + "17", 0},
                                                {std::string(4088, ' ') + "17", 17},
                                                {"-2147483648", INT32_MIN},
                                                {"-2147483649", 0},
                                                {"2147483647", INT32_MAX},
                                                {"0", 0},
                                                {"", 0},
                                                {"-1", -1},
                                                {"x", 0},
                                                {"17", 17},
                                                {" 17\n", 17},
                                                {"99999999999", 0},
                                                {"4294967297", 0},
                                                {"        12345678", 12345678}};
    for (const auto& [text, pid] : rows) {
        WriteFile(PID, text);
        EXPECT_EQ(Util::ReadPID(PID), pid) << text;
    }
    ASSERT_EQ(mkfifo("/opt/fifo", 0600), 0);
    for (const char* path : {"/opt", "/opt/missing", "/dev/zero", "/opt/fifo"})
        EXPECT_EQ(Util::ReadPID(path), 0) << path;
}

TEST(Process, AliveMeansThePidAndTheName) {
    const Child child("thing"), longer("a_name_beyond_fifteen");
    const std::tuple<pid_t, const char*, bool> rows[] = {{child.pid, "thing", true},
                                                         {child.pid, " thing\n", true},
                                                         {child.pid, "", true},
                                                         {child.pid, "thin", false},
                                                         {1, "", true},
                                                         {0, "", false},
                                                         {-1, "", false},
                                                         {99999, "", false},
                                                         {longer.pid, "a_name_beyond_fifteen", true}};
    for (const auto& [pid, name, alive] : rows)
        EXPECT_EQ(Util::AlivePID(pid, name), alive) << pid << name;
    // Whoever else has the pid by now is left alone.
    Log log;
    for (const std::string& text : {std::to_string(longer.pid), std::string()}) {
        WriteFile(PID, text);
        Process("thing").FileKill();
    }
    EXPECT_TRUE(Util::AlivePID(longer.pid, "a_name_beyond_f"));
    EXPECT_EQ(Joined(log.Messages()), "ERR thing is not running.; ERR thing is not running.");
}

TEST(Process, KillWaitsAndInsists) {
    Log log;
    const Child willing("thing"), stubborn("thing", true); // zombies then, as this parent does not collect them
    const std::tuple<pid_t, bool, int> rows[] = {
        {0, false, 0}, {willing.pid, true, 1}, {stubborn.pid, true, 6}, {99999, true, 1}};
    for (const auto& [pid, result, seconds] : rows) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(Util::KillPID(pid), result);
        EXPECT_EQ(Since(start) / 1000, seconds) << pid;
    }
    EXPECT_EQ(Joined(log.Messages()), "ERR failure to kill PID:99999 No such process");
}

} // namespace
