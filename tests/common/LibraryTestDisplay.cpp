// Display discovery with a real process and its environment, and stand-ins for who, ps and xhost first on the PATH.
#include "common/Util.h"
#include "tests/support/Support.h"

using namespace support;
using qz::common::Util;

namespace {

// A process of a desktop user; the stand-ins name it, and only it.
class Display : public testing::Test {
protected:
    Display() {
        Shell("env -i A=1 DISPLAY=:7 XAUTHORITY=/home/u/.Xauthority sleep 60 & echo $! > /opt/user; "
              "until grep -qs A=1 /proc/$!/environ; do sleep 0.01; done");
        unsetenv("DISPLAY"); // the developer's
        unsetenv("XAUTHORITY");
        StandIn("who", "echo 'root tty7'; echo 'root pts/1'; echo 'nobody pts/2'");
        StandIn("ps", "[ $1 != -ef ] && cat /opt/user || echo 'root 1 /usr/lib/Xorg :7 -auth /run/x/auth -nolisten'");
        StandIn("xhost", "echo \"$@ $DISPLAY $XAUTHORITY\" >> /opt/xhost.log; echo allowed");
    }
    ~Display() override { Shell("kill $(cat /opt/user)"); }
    Log m_Log;
};

TEST_F(Display, FindsTheUsersEntries) {
    EXPECT_EQ(Util::GetEnvironmentPs("XAUTHORITY=") + Util::GetEnvironmentWho("NONE="), "/home/u/.Xauthority");
    EXPECT_TRUE(Util::SetEnvironmentWhoX());
    EXPECT_TRUE(Util::SetEnvironmentPsX());
    EXPECT_EQ(ReadFile("/opt/xhost.log"), "+ si:localuser:root :7 /home/u/.Xauthority\n"
                                          "+ si:localuser:root :7 /run/x/auth\n");
    EXPECT_EQ(Joined(m_Log.Messages()), "DBG setenv : DISPLAY=:7; DBG setenv : XAUTHORITY=/home/u/.Xauthority; "
                                        "DBG setenv : DISPLAY=:7; DBG setenv : XAUTHORITY=/run/x/auth");
}

TEST_F(Display, NobodyLoggedIn) {
    StandIn("who", "echo 'root pts/1'"); // not locally
    EXPECT_FALSE(Util::SetEnvironmentWhoX());
    StandIn("ps", "true");
    EXPECT_TRUE(Util::SetEnvironmentPsX()); // no display is no failure here
    EXPECT_TRUE(!getenv("DISPLAY") && !getenv("XAUTHORITY"));
    StandIn("xhost", "true");
    EXPECT_FALSE(Util::SetEnvironmentPsX());
}

TEST_F(Display, TheNewestSocketAndASecondAttempt) {
    const Mount temporary("/tmp");
    Shell("mkdir /tmp/.X11-unix; touch -d '1 hour ago' /tmp/.X11-unix/X3; touch /tmp/.X11-unix/X12");
    StandIn("xhost", "echo \"$DISPLAY $XAUTHORITY\" >> /opt/xhost.log; [ $XAUTHORITY = /run/x/auth ] && echo allowed");
    EXPECT_TRUE(Util::SetEnvironmentX());
    EXPECT_EQ(ReadFile("/opt/xhost.log"), ":12 /home/u/.Xauthority\n:12 /run/x/auth\n");
    Shell("rm -r /tmp/.X11-unix");
    EXPECT_TRUE(Util::SetEnvironmentX());
    EXPECT_STREQ(getenv("DISPLAY"), ":"); // a lone colon without a socket
}

TEST_F(Display, TheDisplayManagersAuthorityFile) {
    const Mount settings("/etc");
    EXPECT_EQ(Util::GetDefaultXAuthPath(), "/var/gdm/:0.Xauth");
    Shell("mkdir /etc/X11; echo /usr/sbin/lightdm > /etc/X11/default-display-manager");
    EXPECT_EQ(Util::GetDefaultXAuthPath(), "/var/lib/lightdm/.Xauthority");
    Shell("echo /usr/sbin/gdm3 > /etc/X11/default-display-manager");
    EXPECT_EQ(Util::GetDefaultXAuthPath(), "/var/gdm/:0.Xauth");
}

} // namespace
