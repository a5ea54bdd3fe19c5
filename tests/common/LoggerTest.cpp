// The log and its pool: line format, thresholds, files and their rotation, refused and discarded items, the
// bounded join.
#include <dirent.h>
#include <sys/mount.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <iomanip>
#include <thread>

#include <gtest/gtest.h>

#include "common/FileLogger.h"
#include "common/ThreadPool.h"
#include "common/Util.h"
#include "tests/support/Support.h"

using namespace qz::common;
using support::Eventually;
using support::Log;
using support::ReadFile;

class Talker {
public:
    template <typename T>
    static void Say(T piece) {
        QZ_LOG(INF, piece);
    }
    static void AllTags() {
        QZ_LOG(ERR, "e");
        QZ_LOG(WRN, "w");
        QZ_LOG(INF, "i");
        QZ_LOG(DBG, "d");
    }
};

namespace {

using Texts = std::vector<std::string>;

const std::string DIRECTORY = "/var/log/tormel/agent";

std::string Dated(const std::string& name) {
    return DIRECTORY + "/" + name + "-" + FileLogger::GetDateFormat(time(nullptr), "%Y%m%d") + ".log";
}

// Keeps what the pool does with its items.  The worker stays in the item BLOCK until released.
class Recorder : public IExecutor {
public:
    static constexpr intptr_t BLOCK = 1;

    void OnExecute(void* item) override {
        if (item == Item(BLOCK)) {
            blocked = true;
            while (!release)
                std::this_thread::yield();
        }
        executed.push_back(item);
    }
    void OnDeletor(void* item) override { deleted.push_back(item); }
    static void* Item(intptr_t number) { return reinterpret_cast<void*>(number); }

    std::vector<void*> executed;
    std::vector<void*> deleted;
    std::atomic<bool> blocked{false};
    std::atomic<bool> release{false};
};

TEST(Pool, AdmitsLimitPlusOneAndHandsTheRestToTheDeletor) {
    Recorder recorder;
    std::thread releaser;
    {
        ThreadPool pool(&recorder, 1, 1);
        EXPECT_FALSE(pool.Enqueue(nullptr));
        EXPECT_TRUE(pool.Enqueue(Recorder::Item(Recorder::BLOCK)));
        ASSERT_TRUE(Eventually([&recorder] { return recorder.blocked.load(); }));
        EXPECT_TRUE(pool.Enqueue(Recorder::Item(2)));
        EXPECT_TRUE(pool.Enqueue(Recorder::Item(3)));
        EXPECT_FALSE(pool.Enqueue(Recorder::Item(4)));
        EXPECT_EQ(pool.Pending(), 2);
        releaser = std::thread([&recorder] {
            std::this_thread::sleep_for(std::chrono::milliseconds(50)); // the destructor has long begun
            recorder.release = true;
        });
    }
    releaser.join();
    EXPECT_EQ(recorder.executed.size(), 1U);
    EXPECT_EQ(recorder.deleted, std::vector<void*>({Recorder::Item(2), Recorder::Item(3)}));

    Recorder idle;
    {
        ThreadPool pool(&idle, 0, 0);
        EXPECT_TRUE(pool.Enqueue(Recorder::Item(7)));
        EXPECT_FALSE(pool.Enqueue(Recorder::Item(8)));
    }
    EXPECT_EQ(idle.deleted, std::vector<void*>({Recorder::Item(7)}));
}

TEST(Pool, OneWorkerKeepsTheOrderOfManyCallers) {
    Recorder recorder;
    std::vector<void*> expected;
    {
        ThreadPool pool(&recorder, 1, 100000);
        for (intptr_t i = 2; i < 3000; ++i) {
            ASSERT_TRUE(pool.Enqueue(Recorder::Item(i)));
            expected.push_back(Recorder::Item(i));
            if (i % 500 == 0) { // let the worker go idle: a wake-up that is missed costs 10 ms, no item
                EXPECT_TRUE(Eventually([&pool] { return pool.Pending() == 0; }, 1000));
            }
        }
        EXPECT_TRUE(Eventually([&pool] { return pool.Pending() == 0; }));
    }
    EXPECT_EQ(recorder.executed, expected);
}

TEST(Threads, BoundedJoinAlwaysJoins) {
    std::thread quick([] {});
    EXPECT_EQ(Util::WaitForJoin(&quick, 3000), 0);
    EXPECT_EQ(Util::WaitForJoin(&quick, 3000), 2);
    EXPECT_EQ(Util::WaitForJoin(nullptr, 1), 2);
    std::thread slow([] { std::this_thread::sleep_for(std::chrono::milliseconds(100)); });
    EXPECT_EQ(Util::WaitForJoin(&slow, 1), 1);
    EXPECT_FALSE(slow.joinable());
}

TEST(Logger, LineFormat) {
    Log log(4);
    Talker::Say(42);
    log.Messages();
    const std::string text = ReadFile(Dated("test"));
    // Digits as 0 in the time; the rest to the letter.
    std::string line = text.substr(0, text.find('\n'));
    for (size_t i = 0; i < 23 && i < line.size(); ++i)
        line[i] = isdigit(static_cast<unsigned char>(line[i])) ? '0' : line[i];
    const size_t number = line.find("[L:");
    EXPECT_EQ(line.substr(0, number),
              "0000-00-00 00:00:00.000||INF|NA|[" + std::to_string(getpid()) + "][Talker::Say] 42 ");
    EXPECT_GT(atoi(line.c_str() + number + 3), 0);
    EXPECT_EQ(line.back(), ']');

    const std::pair<const char*, const char*> signatures[] = {
        {"static qz::common::FileLogger* qz::common::FileLogger::instance()",
         "qz::common::FileLogger::instance"},
        {"bool qz::capture::Config::GetEnvInteger(const string&, int&)",
         "qz::capture::Config::GetEnvInteger"},
        {"int main(int, char**)", "main"},
        {"main()", "main"},
        {"no bracket", "::"},
    };
    for (const auto& [signature, field] : signatures)
        EXPECT_EQ(className(signature), field);
}

TEST(Logger, TheStatementIsOneExpressionAndLeavesNothingBehind) {
    Log log(4);
    const int line = 1, tag = 2, logger = 3;
    const int number = __LINE__ + 4;
    if (line == 2)
        QZ_LOG(INF, "not this");
    else
        QZ_LOG(INF, line << tag << logger << std::setw(9) << std::setfill('*') << std::hex << 255
                         << std::setw(20));
    QZ_LOG(INF, "failed" << static_cast<const char*>(nullptr) << "dropped");
    QZ_LOG(INF, "next");
    int evaluated = 0;
    QZ_LOG(DBG, ++evaluated);
    EXPECT_EQ(evaluated, 0);
    const Texts messages = log.Messages();
    ASSERT_EQ(messages.size(), 3U);
    EXPECT_EQ(messages[0], "INF 123*******ff");
    EXPECT_NE(messages[1].find("] failed"), std::string::npos);
    EXPECT_EQ(messages[2], "INF next");
    // The suffix is decimal after a hexadecimal message.
    EXPECT_NE(ReadFile(Dated("test")).find("*ff [L:" + std::to_string(number) + "]\n"), std::string::npos);
}

TEST(Logger, Thresholds) {
    const std::pair<int, Texts> rows[] = {
        {1, {}},
        {2, {"ERR e"}},
        {3, {"ERR e", "WRN w"}},
        {4, {"ERR e", "WRN w", "INF i"}},
        {5, {"ERR e", "WRN w", "INF i"}},
        {6, {"ERR e", "WRN w", "INF i", "DBG d"}},
        {8, {}},
    };
    for (const auto& [level, expected] : rows) {
        Log log(level);
        testing::internal::CaptureStdout();
        Talker::AllTags();
        const std::string output = testing::internal::GetCapturedStdout();
        EXPECT_EQ(log.Messages(), expected) << level;
        if (level == 8)
            EXPECT_EQ(support::MessagesOf(output), Texts({"ERR e", "WRN w", "INF i", "DBG d"}));
        else
            EXPECT_EQ(output, "") << level;
    }
}

TEST(Logger, KeepsTheTenNewestFilesOfItsOwn) {
    std::filesystem::create_directories(DIRECTORY);
    for (int day = 10; day < 21; ++day)
        support::WriteFile(DIRECTORY + "/test-202001" + std::to_string(day) + ".log", "old");
    const Texts others = {"test-2020010112.log", "other-20200101.log", "test-20200101.txt"};
    for (const std::string& other : others)
        support::WriteFile(DIRECTORY + "/" + other, "kept");
    std::filesystem::create_directories(DIRECTORY + "/test-20190101.log");
    FileLogger* logger = FileLogger::instance();
    testing::internal::CaptureStdout();
    EXPECT_TRUE(logger->Initialize(DIRECTORY, "test", 6, "%Y%m%d", false));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "unlink file : " + DIRECTORY + "/test-20200110.log\n" +
                                                          "unlink file : " + DIRECTORY +
                                                          "/test-20200111.log\n");
    std::set<std::string> files;
    EXPECT_EQ(logger->GetLogFileList(files, 17), 10);
    EXPECT_EQ(*files.begin(), "test-20200112.log");
    for (const std::string& other : others)
        EXPECT_EQ(ReadFile(DIRECTORY + "/" + other), "kept");
    EXPECT_TRUE(logger->CheckLogSize());
    EXPECT_EQ(logger->getFileSize(), 0);
    delete logger;
}

TEST(Logger, ADateChangeOpensTheNewFile) {
    std::filesystem::create_directories(DIRECTORY);
    FileLogger* logger = FileLogger::instance();
    ASSERT_TRUE(logger->Initialize(DIRECTORY, "test", 6, "%H%M%S", true));
    Talker::Say("first");
    const auto holders = [](const std::string& text) {
        Texts files;
        for (const auto& entry : std::filesystem::directory_iterator(DIRECTORY)) {
            if (ReadFile(entry.path()).find(text) != std::string::npos)
                files.push_back(entry.path());
        }
        return files;
    };
    ASSERT_TRUE(Eventually([&] { return holders("] first [").size() == 1; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(1100)); // the "date" is the second
    Talker::Say("second");
    ASSERT_TRUE(Eventually([&] { return holders("] second [").size() == 1; }));
    EXPECT_NE(holders("] first ["), holders("] second ["));
    delete logger;
}

TEST(Logger, LinesComeBackAfterAMissingDirectoryAndAFullDisk) {
    FileLogger* logger = FileLogger::instance();
    EXPECT_FALSE(logger->Initialize(DIRECTORY, "test", 6, "%Y%m%d", false));
    Talker::Say("lost");
    const auto arrives = [](const char* text) {
        return Eventually([text] {
            Talker::Say(text);
            return ReadFile(Dated("test")).find(std::string("] ") + text + " [L:") != std::string::npos;
        });
    };
    std::filesystem::create_directories(DIRECTORY);
    EXPECT_TRUE(arrives("opened late"));
    std::filesystem::remove_all(DIRECTORY);
    Talker::Say("lost");
    std::filesystem::create_directories(DIRECTORY);
    EXPECT_TRUE(arrives("directory is back"));

    delete logger;
    ASSERT_EQ(mount("none", DIRECTORY.c_str(), "tmpfs", 0, "size=8k"), 0);
    logger = FileLogger::instance();
    ASSERT_TRUE(logger->Initialize(DIRECTORY, "test", 6, "%Y%m%d", false));
    support::Shell("dd if=/dev/zero of=" + DIRECTORY + "/fill bs=4k count=2 2>/dev/null; true");
    for (int i = 0; i < 100; ++i)
        Talker::Say(std::string(200, 'x'));
    logger->Drain(std::chrono::seconds(10));
    unlink((DIRECTORY + "/fill").c_str());
    EXPECT_TRUE(arrives("space is back"));
    delete logger;
    umount(DIRECTORY.c_str());
}

TEST(Logger, ManyThreadsLoseNoLine) {
    Log log;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([] {
            for (int i = 0; i < 500; ++i)
                Talker::Say(i);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(log.Messages().size(), 2000U);
}

} // namespace
