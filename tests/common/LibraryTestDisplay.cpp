// Display discovery with real processes and environments, and stand-ins for who, ps and xhost first on the
// PATH.
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include <gtest/gtest.h>

#include "common/Util.h"
#include "tests/support/Support.h"

using qz::common::Util;
using support::Log;
using support::WriteFile;

namespace {

using Texts = std::vector<std::string>;

void StandIn(const std::string& name, const std::string& script) {
    WriteFile("/opt/" + name, "#!/bin/sh\n" + script + "\n");
    chmod(("/opt/" + name).c_str(), 0755);
}

// A process of a desktop user; the stand-ins name it, and only it.
class Display : public testing::Test {
protected:
    Display() {
        m_User = fork();
        if (m_User == 0) {
            const char* const environment[] = {"A=1", "DISPLAY=:7", "XAUTHORITY=/home/u/.Xauthority",
                                               nullptr};
            execle("/bin/sleep", "sleep", "60", nullptr, environment);
            _exit(1);
        }
        support::Eventually([this] {
            return support::ReadFile("/proc/" + std::to_string(m_User) + "/environ")
                       .compare(0, 4, std::string("A=1\0", 4)) == 0;
        });
        setenv("PATH", ("/opt:" + std::string(getenv("PATH"))).c_str(), 1);
        unsetenv("DISPLAY"); // the developer's
        unsetenv("XAUTHORITY");
        StandIn("who", "echo 'root tty7'; echo 'root pts/1'; echo 'nobody pts/2'");
        StandIn("ps",
                "case \"$1\" in -ef) echo 'root 1 /usr/lib/Xorg :7 -auth /run/x/auth -nolisten' ;; *) echo " +
                    std::to_string(m_User) + " ;; esac");
        StandIn("xhost", "echo \"$@ $DISPLAY $XAUTHORITY\" >> /opt/xhost.log; echo allowed");
    }
    ~Display() override {
        kill(m_User, SIGKILL);
        waitpid(m_User, nullptr, 0);
    }
    Log m_Log;
    pid_t m_User;
};

TEST_F(Display, FindsTheUsersEntries) {
    EXPECT_EQ(Util::GetEnvironmentWho("DISPLAY=:"), ":7");
    EXPECT_EQ(Util::GetEnvironmentPs("XAUTHORITY="), "/home/u/.Xauthority");
    EXPECT_EQ(Util::GetEnvironmentWho("NONE="), "");
    EXPECT_EQ(Util::GetProcessXauth(), "/run/x/auth");
    EXPECT_TRUE(Util::SetEnvironmentWhoX());
    EXPECT_TRUE(Util::SetEnvironmentPsX());
    EXPECT_EQ(support::ReadFile("/opt/xhost.log"), "+ si:localuser:root :7 /home/u/.Xauthority\n"
                                                   "+ si:localuser:root :7 /run/x/auth\n");
    EXPECT_EQ(m_Log.Messages(),
              Texts({"DBG setenv : DISPLAY=:7", "DBG setenv : XAUTHORITY=/home/u/.Xauthority",
                     "DBG setenv : DISPLAY=:7", "DBG setenv : XAUTHORITY=/run/x/auth"}));
}

TEST_F(Display, NobodyLoggedIn) {
    StandIn("who", "true");
    StandIn("ps", "true");
    EXPECT_FALSE(Util::SetEnvironmentWhoX());
    EXPECT_EQ(getenv("DISPLAY"), nullptr);
    EXPECT_TRUE(Util::SetEnvironmentPsX()); // no display is no failure here
    EXPECT_EQ(getenv("XAUTHORITY"), nullptr);
    StandIn("xhost", "true");
    EXPECT_FALSE(Util::SetEnvironmentPsX());
}

TEST_F(Display, TheNewestSocketAndASecondAttempt) {
    const support::Mount temporary("/tmp");
    mkdir("/tmp/.X11-unix", 0755);
    support::Shell("touch -d '1 hour ago' /tmp/.X11-unix/X3; touch /tmp/.X11-unix/X12");
    StandIn("xhost",
            "echo \"$DISPLAY $XAUTHORITY\" >> /opt/xhost.log; [ $XAUTHORITY = /run/x/auth ] && echo allowed");
    EXPECT_TRUE(Util::SetEnvironmentX());
    EXPECT_EQ(support::ReadFile("/opt/xhost.log"), ":12 /home/u/.Xauthority\n:12 /run/x/auth\n");
    support::Shell("rm -r /tmp/.X11-unix");
    EXPECT_TRUE(Util::SetEnvironmentX());
    EXPECT_STREQ(getenv("DISPLAY"), ":"); // a lone colon without a socket
}

TEST_F(Display, TheDisplayManagersAuthorityFile) {
    const support::Mount settings("/etc");
    EXPECT_EQ(Util::GetDefaultXAuthPath(), "/var/gdm/:0.Xauth");
    support::Shell("mkdir /etc/X11; echo /usr/sbin/lightdm > /etc/X11/default-display-manager");
    EXPECT_EQ(Util::GetDefaultXAuthPath(), "/var/lib/lightdm/.Xauthority");
    support::Shell("echo /usr/sbin/gdm3 > /etc/X11/default-display-manager");
    EXPECT_EQ(Util::GetDefaultXAuthPath(), "/var/gdm/:0.Xauth");
}

} // namespace
