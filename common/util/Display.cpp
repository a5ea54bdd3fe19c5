// The desktop user's X display.  Tested in tests/common/LibraryTestDisplay.cpp.
#include "common/Util.h"

#include <cstdlib>

#include "common/FileAccess.h"
#include "common/FileLogger.h"

namespace qz::common {

namespace {

constexpr const char* ALLOW_ROOT = "xhost + si:localuser:root";

// The value of the first environment entry that starts with key, from the processes that the pids command feeds.
std::string EnvironmentEntry(const std::string& environments, const std::string& key) {
    return Util::PopenCommand(environments + " grep -m1 '^" + key + "' | " + " awk -F '=' '{ print $2 }' |" +
                              " tr '\\n' '\\0'");
}

std::string FirstOf(const std::string& preferred, std::string (*otherwise)()) {
    return preferred.empty() ? otherwise() : preferred;
}

std::string AuthorityOfAnyProcess() {
    return Util::GetEnvironmentPs("XAUTHORITY=");
}

bool AllowRoot() {
    return !Util::PopenCommand(ALLOW_ROOT).empty();
}

} // namespace

// Sets a variable and logs it, unless the value is empty.  A macro, so that the line names the operation it stands in.
#define QZ_SET_AND_LOG(variable, value)                                                                                \
    do {                                                                                                               \
        if (!(value).empty()) {                                                                                        \
            QZ_LOG(DBG, "setenv : " variable "=" << (value));                                                          \
            setenv(variable, (value).c_str(), 1);                                                                      \
        }                                                                                                              \
    } while (false)

std::string Util::GetEnvironmentWho(const std::string& key) {
    return EnvironmentEntry("who | grep -v pts | awk '{ print $1 }' | sort -u | xargs -I{} id -u {} | "
                            "xargs -I{} ps -u {} -o pid= | xargs -I{} cat /proc/{}/environ 2>/dev/null | "
                            "tr '\\0' '\\n' 2>/dev/null |",
                            key);
}

std::string Util::GetEnvironmentPs(const std::string& key) {
    return EnvironmentEntry("ps -e -o pid= | xargs -I{} cat /proc/{}/environ 2>/dev/null | tr '\\0' '\\n' |", key);
}

std::string Util::GetProcessXauth() {
    return PopenCommand("ps -ef | grep X | grep '\\-auth ' | grep -v grep | grep -Po '(?<=\\-auth ).*' | "
                        "awk '{ print $1 }' |  tr '\\n' '\\0'");
}

std::string Util::GetDefaultXAuthPath() {
    const std::string text = ReadText("/etc/X11/default-display-manager");
    return text.find("lightdm") != std::string::npos ? "/var/lib/lightdm/.Xauthority" : "/var/gdm/:0.Xauth";
}

bool Util::SetEnvironmentWhoX() {
    const std::string display = GetEnvironmentWho("DISPLAY=:");
    if (display.empty())
        return false;
    QZ_SET_AND_LOG("DISPLAY", display);
    const std::string auth = FirstOf(GetEnvironmentWho("XAUTHORITY="), GetDefaultXAuthPath);
    QZ_SET_AND_LOG("XAUTHORITY", auth);
    return AllowRoot();
}

bool Util::SetEnvironmentPsX() {
    const std::string display = GetEnvironmentPs("DISPLAY=:"); // empty is no failure here
    QZ_SET_AND_LOG("DISPLAY", display);
    const std::string auth = FirstOf(GetProcessXauth(), AuthorityOfAnyProcess);
    QZ_SET_AND_LOG("XAUTHORITY", auth);
    return AllowRoot();
}

bool Util::SetEnvironmentX() {
    // Without a socket the command still prints a colon, and the strategy goes on with that.
    const std::string display =
        PopenCommand("echo \":$(ls -t /tmp/.X11-unix/* | sed 's#/tmp/.X11-unix/X##' | head -n 1)\" |tr '\\n' '\\0'");
    if (display.empty())
        return false;
    QZ_SET_AND_LOG("DISPLAY", display);
    std::string auth = FirstOf(GetEnvironmentWho("XAUTHORITY="), GetDefaultXAuthPath);
    QZ_SET_AND_LOG("XAUTHORITY", auth);
    if (AllowRoot())
        return true;
    auth = FirstOf(GetProcessXauth(), AuthorityOfAnyProcess);
    QZ_SET_AND_LOG("XAUTHORITY", auth);
    return AllowRoot();
}

} // namespace qz::common
