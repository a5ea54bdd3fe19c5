// Constants, texts, commands, files and system queries.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <set>
#include <thread>

#include <gtest/gtest.h>

#include "common/Constants.h"
#include "common/Util.h"
#include "tests/support/Support.h"

using namespace qz::common;
using support::WriteFile;

namespace {

using Texts = std::vector<std::string>;

TEST(Constants, ComposedPaths) {
    EXPECT_EQ(MD_CAPTURE_TMP_PATH, "/opt/tormel/plinta/var/tmp/md_capture_tmp.jpg");
    EXPECT_EQ(CAPTURE_FIFO_PATH, "/opt/tormel/plinta/var/tmp/capture.fifo");
    EXPECT_EQ(EVENT_LOG_PATH, "/var/log/tormel/event.log");
    EXPECT_EQ(WEB_AGENT_PATH, "/opt/tormel/plinta/var/tmp/web_agent");
    EXPECT_EQ(std::size(SESSION_STATE_NAMES), 6U);
    EXPECT_EQ(SESSION_STATE_NAMES[5], "MAXIMUM");
}

TEST(Commands, LinesAsTheyAre) {
    EXPECT_EQ(Util::PopenCommand("printf 'one\\ntwo\\n'"), "one\n");
    EXPECT_EQ(Util::PopenCommand("printf 'a\\0b'"), "a");
    EXPECT_EQ(Util::PopenCommand("true"), "");
    EXPECT_EQ(Util::PopenCommand("no_such_command 2>/dev/null"), "");
    EXPECT_EQ(Util::PopenCommand("head -c 3000 /dev/zero | tr '\\0' x").size(), 1023U);
    EXPECT_EQ(Util::PopenListCommand("printf 'one\\n\\nlast'"), Texts({"one\n", "\n", "last"}));
    EXPECT_EQ(Util::PopenNetworkCommand("printf 'a\\nmipi inform b\\nc\\n'"), "a\nmipi inform b\n");
    EXPECT_EQ(Util::PopenNetworkCommand("printf 'a\\nb'"), "a\nb");
}

TEST(Commands, ASignalDoesNotCutALine) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, nullptr);
    std::thread alarms([main = pthread_self()] {
        for (int i = 0; i < 30; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            pthread_kill(main, SIGALRM);
        }
    });
    EXPECT_EQ(Util::PopenCommand("printf o; sleep 0.2; echo ne"), "one\n");
    alarms.join();
}

TEST(Text, TrimSplitReplace) {
    std::string text = " \t a b \n";
    EXPECT_EQ(&Util::Trim(text), &text);
    EXPECT_EQ(text, "a b");
    text = " \n\t ";
    EXPECT_EQ(Util::Trim(text), "");

    Texts pieces;
    Util::StringSplit("a::b::", "::", pieces);
    Util::StringSplit("whole", "", pieces);
    EXPECT_EQ(pieces, Texts({"a", "b", "", "whole"}));

    text = "aXbX";
    EXPECT_EQ(Util::ReplaceAll(text, "X", "XX"), "aXXbXX");
    EXPECT_EQ(text, "aXXbXX");
    EXPECT_EQ(Util::ReplaceAll(text, "", "y"), "aXXbXX");
    EXPECT_EQ(Util::ReplaceTrim("--a-b-", "-+"), "a-b-");
    EXPECT_EQ(Util::ReplaceTrim("--", "-"), "");
    EXPECT_EQ(Util::GetRemoveVirtualPath("<:..ROOT..:>/a"), "/a");
    EXPECT_EQ(Util::GetRemoveVirtualPath("x<:..ROOT..:>/a"), "x<:..ROOT..:>/a");
}

TEST(Text, Urls) {
    EXPECT_EQ(Util::MakeRequestUrl("https://h", 8443, "/p"), "https://h:8443/p");
    EXPECT_EQ(Util::MakeRequestUrl("h", 80, "/p"), "http://h/p");
    EXPECT_EQ(Util::MakeRequestUrl("h", 443, ""), "https://h");
    EXPECT_EQ(Util::MakeRequestUrl("http://h", 443, "/p"), "http://h/p");
    EXPECT_EQ(Util::MakeRequestUrl("h", 8080, "/p"), "http://h:8080/p");
}

TEST(Text, Dump) {
    std::string out = "old";
    const std::string data = "0123456789abcdef\x80z";
    Util::Dump(data.data(), static_cast<int>(data.size()), out);
    EXPECT_EQ(out, "\n * Total Length:18\n"
                   "0x0000   30 31 32 33 34 35 36 37  38 39 61 62 63 64 65 66  |  01234567 89abcdef\n"
                   "0x0010   80 7A                                             |  .z\n");
    Util::Dump(nullptr, -3, out);
    EXPECT_EQ(out, "\n * Total Length:-3\n");
}

TEST(Files, DirectoriesOfEveryShape) {
    std::filesystem::current_path("/opt");
    const std::string deep = "/opt/" + std::string(200, 'x') + "/" + std::string(200, 'y') + "/z";
    for (const std::string& path : {std::string("/opt/a/b/c"), std::string("/opt/a/b/c"), std::string("r/s"),
                                    std::string("/opt//d//e/"), std::string("./f/./g"), std::string("h/../i"),
                                    deep, std::string("/")}) {
        EXPECT_TRUE(Util::MakeDirs(path, 0755)) << path;
        EXPECT_TRUE(std::filesystem::is_directory(path)) << path;
    }
    WriteFile("/opt/file", "");
    for (const char* path : {"/opt/file", "/opt/file/x", "", "/proc/no/such"})
        EXPECT_FALSE(Util::MakeDirs(path, 0755)) << path;
    EXPECT_TRUE(Util::MakeDir("/opt/a", 0755));
    EXPECT_FALSE(Util::MakeDir("/opt/no/parent", 0755));

    const std::pair<std::string, Texts> rows[] = {
        {"/a//b/./c/", {"a", "b", "c"}},
        {"./a", {"opt", "a"}},
        {"a/../b", {"opt", "b"}},
        {".", {"opt"}},
        {"/../..", {}},
        {"", {"opt"}},
    };
    for (const auto& [path, expected] : rows) {
        Texts parts = {"old"};
        EXPECT_TRUE(Util::MakeRealPath(path, parts));
        EXPECT_EQ(parts, expected) << path;
    }
    std::filesystem::current_path(deep); // beyond the first buffer
    Texts parts;
    EXPECT_TRUE(Util::MakeRealPath("./q", parts));
    EXPECT_EQ(parts.size(), 5U);
    std::filesystem::remove_all("/opt/" + std::string(200, 'x'));
    EXPECT_FALSE(Util::MakeRealPath("./q", parts));
}

TEST(Files, TypesAndAges) {
    WriteFile("/opt/file", "");
    ASSERT_EQ(mkfifo("/opt/fifo", 0600), 0);
    ASSERT_EQ(symlink("/opt", "/opt/link"), 0);
    const std::pair<const char*, FileObjectType> rows[] = {
        {"/opt/file", FileObjectType::REGULAR},       {"/opt", FileObjectType::DIRECTORY},
        {"/opt/link", FileObjectType::SYMBOLIC_LINK}, {"/dev/null", FileObjectType::CHARACTER_DEVICE},
        {"/opt/fifo", FileObjectType::FIFO},
    };
    for (const auto& [path, expected] : rows) {
        FileObjectType type = FileObjectType::OTHER;
        EXPECT_TRUE(Util::GetFileType(path, type));
        EXPECT_EQ(type, expected) << path;
    }
    FileObjectType type = FileObjectType::SOCKET;
    EXPECT_FALSE(Util::GetFileType("/opt/missing", type));
    EXPECT_EQ(type, FileObjectType::SOCKET);
    EXPECT_TRUE(Util::IsDirectory("/opt"));
    EXPECT_FALSE(Util::IsDirectory("/opt/link"));

    long seconds = 5;
    EXPECT_FALSE(Util::GetFileChangeDuration("/opt/missing", seconds));
    EXPECT_EQ(seconds, -1);
    support::Shell("touch -d '100 seconds ago' /opt/file");
    EXPECT_TRUE(Util::GetFileChangeDuration("/opt/file", seconds));
    EXPECT_GE(seconds, 100);
    EXPECT_LT(seconds, 130);
}

TEST(System, Versions) {
    struct Row {
        std::string file, second, first;
    };
    const Row rows[] = {
        {"1.2.3.0407\nmore", "1.2.3.07", "1.2.3.04"},
        {" 1.2.3 \n", "1.2.3", "1.2.3"},
        {"1.2.3.407", "1.2.3.", "1.2.3."},
        {"\n1.2.3.0407", "", ""},
        {"1.2.3.4.5", "1.2.3.4.5", "1.2.3.4.5"},
        {std::string(300, 'v'), std::string(256, 'v'), std::string(256, 'v')},
    };
    EXPECT_EQ(Util::GetVersion(VersionType::BUILD_FIRST_HALF), "");
    Util::MakeDirs("/opt/tormel/plinta", 0755);
    for (const Row& row : rows) {
        WriteFile(VERSION_FILE_PATH, row.file);
        EXPECT_EQ(Util::GetVersion(VersionType::BUILD_SECOND_HALF), row.second) << row.file;
        EXPECT_EQ(Util::GetVersion(VersionType::BUILD_FIRST_HALF), row.first) << row.file;
    }
}

TEST(System, Queries) {
    EXPECT_TRUE(Util::IsMounted("/opt"));
    EXPECT_FALSE(Util::IsMounted("/no/such/mount"));
    long long total = -1, used = -1, available = -1;
    ASSERT_TRUE(Util::GetDiskSpace("/opt", total, used, available));
    EXPECT_GT(total, 0);
    EXPECT_LE(used + available, total);
    total = -1;
    EXPECT_FALSE(Util::GetDiskSpace("/no/such/mount", total, used, available));
    EXPECT_EQ(total, -1);
    const auto then = std::chrono::system_clock::now() - std::chrono::milliseconds(1500);
    EXPECT_GE(Util::GetTimeDiffMilliSec(then), 1500);
    EXPECT_LT(Util::GetTimeDiffMilliSec(then), 11500);
    EXPECT_EQ(Util::GetTimeStr().size(), 23U);
    // A stand-in, as a bare system has none.
    WriteFile("/opt/lsb_release", "#!/bin/sh\necho \"Description: Thing $1\"\n");
    chmod("/opt/lsb_release", 0755);
    setenv("PATH", ("/opt:" + std::string(getenv("PATH"))).c_str(), 1);
    EXPECT_EQ(Util::LsbRelease('d'), "Thing -d");
    EXPECT_EQ(Util::LsbRelease(0), "Thing");
}

TEST(System, CloseAllLeavesTheStandardDescriptors) {
    const int high = fcntl(0, F_DUPFD, 500);
    const int low = dup(0);
    Util::CloseAllFDsProcess();
    EXPECT_EQ(fcntl(high, F_GETFD), -1);
    EXPECT_EQ(fcntl(low, F_GETFD), -1);
    for (int fd = 0; fd < 3; ++fd)
        EXPECT_NE(fcntl(fd, F_GETFD), -1) << fd;
}

} // namespace
