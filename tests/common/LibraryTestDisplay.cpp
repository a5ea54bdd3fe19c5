// Display discovery with a real process and its environment, and stand-ins for who, ps and xhost first on the PATH.
#include "common/Util.h"
#include "tests/support/Support.h"

using namespace support;
using qz::common::Util;

namespace {

void StandIn(const std::string& name, const std::string& script) {
    WriteFile("/opt/" + name, "#!/bin/sh\n" + script + "\n");
    chmod(("/opt/" + name).c_str(), 0755);
}

// A process of a desktop user; the stand-ins name it, and only it.
struct Display : testing::Test {
    Display() {
        Shell("env -i DISPLAY=:7 XAUTHORITY=/home/u/.Xauthority sleep 60 & echo $! >/opt/user; "
              "until grep -q sleep /proc/$!/comm; do sleep 0.01; done");
        setenv("PATH", ("/opt:" + std::string(getenv("PATH"))).c_str(), 1);
        unsetenv("DISPLAY"); // the developer's
        unsetenv("XAUTHORITY");
        StandIn("who", "echo 'root tty7'; echo 'root pts/1'; echo 'nobody pts/2'");
        StandIn("ps",
                "[ \"$1\" != -ef ] || exec echo 'root 1 /usr/lib/Xorg :7 -auth /run/x/auth -nolisten'; cat /opt/user");
        StandIn("xhost",
                "echo \"$@ $DISPLAY $XAUTHORITY\" >>/opt/xhost.log; [ $XAUTHORITY != refused ] && echo allowed");
    }
    ~Display() override { Shell("kill $(cat /opt/user)"); }
    Log log;
};

TEST_F(Display, FindsTheUsersEntriesAndAllowsRoot) {
    EXPECT_EQ(Util::GetEnvironmentWho("DISPLAY=:"), ":7");
    EXPECT_EQ(Util::GetEnvironmentPs("XAUTHORITY="), "/home/u/.Xauthority");
    EXPECT_EQ(Util::GetEnvironmentWho("NONE="), "");
    EXPECT_EQ(Util::GetProcessXauth(), "/run/x/auth");
    EXPECT_TRUE(Util::SetEnvironmentWhoX() && Util::SetEnvironmentPsX());
    EXPECT_EQ(ReadFile("/opt/xhost.log"), "+ si:localuser:root :7 /home/u/.Xauthority\n"
                                          "+ si:localuser:root :7 /run/x/auth\n");
    EXPECT_EQ(Joined(log.Messages()), "DBG setenv : DISPLAY=:7; DBG setenv : XAUTHORITY=/home/u/.Xauthority; "
                                      "DBG setenv : DISPLAY=:7; DBG setenv : XAUTHORITY=/run/x/auth");
    StandIn("who", "true"); // nobody is logged in
    unsetenv("DISPLAY");
    EXPECT_FALSE(Util::SetEnvironmentWhoX());
    StandIn("ps", "true");
    EXPECT_TRUE(Util::SetEnvironmentPsX()); // no display is no failure here
    EXPECT_EQ(getenv("DISPLAY"), nullptr);
    setenv("XAUTHORITY", "refused", 1);
    EXPECT_FALSE(Util::SetEnvironmentPsX());
}

TEST_F(Display, TheNewestSocketAndASecondAttempt) {
    const Mount temporary("/tmp");
    Shell("mkdir /tmp/.X11-unix; touch -d '1 hour ago' /tmp/.X11-unix/X3; touch /tmp/.X11-unix/X12");
    StandIn("xhost", "echo \"$DISPLAY $XAUTHORITY\" >>/opt/xhost.log; [ $XAUTHORITY = /run/x/auth ] && echo allowed");
    EXPECT_TRUE(Util::SetEnvironmentX());
    EXPECT_EQ(ReadFile("/opt/xhost.log"), ":12 /home/u/.Xauthority\n:12 /run/x/auth\n");
    Shell("rm -r /tmp/.X11-unix");
    EXPECT_TRUE(Util::SetEnvironmentX());
    EXPECT_STREQ(getenv("DISPLAY"), ":"); // a lone colon without a socket
}

TEST(Authority, OfTheDisplayManager) {
    const Mount settings("/etc");
    EXPECT_EQ(Util::GetDefaultXAuthPath(), "/var/gdm/:0.Xauth");
    std::filesystem::create_directory("/etc/X11");
    WriteFile("/etc/X11/default-display-manager", "/usr/sbin/gdm3");
    EXPECT_EQ(Util::GetDefaultXAuthPath(), "/var/gdm/:0.Xauth");
    WriteFile("/etc/X11/default-display-manager", "/usr/sbin/lightdm");
    EXPECT_EQ(Util::GetDefaultXAuthPath(), "/var/lib/lightdm/.Xauthority");
}

} // namespace
