// What the system tells: time, version, mounts, disk space, descriptors.  Tested in tests/common/UtilTest.cpp.
#include "common/Util.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "common/Constants.h"
#include "common/FileAccess.h"
#include "common/FileLogger.h"
#include "common/Owners.h"

namespace qz::common {

namespace {

constexpr std::string_view LINE_ENDS("\n\0", 2); // a zero byte ends a line as well

constexpr const char* OWN_DESCRIPTORS = "/proc/self/fd";

// A descriptor number, or -1 for any other text.
int ToDescriptor(const char* text) {
    int value = -1;
    const auto [end, error] = std::from_chars(text, text + strlen(text), value);
    return error == std::errc{} && *end == '\0' ? value : -1;
}

} // namespace

long long Util::GetTimeDiffMilliSec(const std::chrono::system_clock::time_point& since) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now() - since).count();
}

std::string Util::GetTimeStr() {
    return FileLogger::GetLogTime();
}

std::string Util::GetVersion(VersionType type) {
    std::string line = ReadText(VERSION_FILE_PATH, 256);
    line.erase(std::min(line.find_first_of(LINE_ENDS), line.size()));
    if (Trim(line).empty())
        return "";

    std::vector<std::string> parts;
    StringSplit(line, ".", parts);
    if (parts.size() != 4)
        return line;
    const std::string& build = parts[3];
    std::string half;
    if (build.size() == 4)
        half = type == VersionType::BUILD_FIRST_HALF ? build.substr(0, 2) : build.substr(2);
    return parts[0] + "." + parts[1] + "." + parts[2] + "." + half;
}

std::string Util::LsbRelease(char option) {
    std::string cmd = "lsb_release";
    if (option != 0)
        cmd += std::string(" -") + option;
    cmd += " 2>/dev/null | grep -v grep | awk -F \":\" '{printf $2}'";
    std::string answer = PopenCommand(cmd);
    return Trim(answer);
}

bool Util::IsMounted(const std::string& path) {
    return !PopenCommand("grep " + path + " /proc/mounts").empty();
}

bool Util::GetDiskSpace(const std::string& path, long long& total, long long& used, long long& available) {
    const std::string answer = PopenCommand("df -B1 " + path + " | grep " + path + "| awk '{print $2, $3, $4}'");
    std::vector<std::string> fields;
    StringSplit(answer, " ", fields);
    if (fields.size() != 3)
        return false;
    total = strtoll(fields[0].c_str(), nullptr, 10);
    used = strtoll(fields[1].c_str(), nullptr, 10);
    available = strtoll(fields[2].c_str(), nullptr, 10);
    return true;
}

void Util::CloseAllFDsProcess() {
    // Collected first: closing while reading the directory would close the directory's own descriptor.
    std::vector<int> descriptors;
    DIR* directory = opendir(OWN_DESCRIPTORS);
    if (!directory)
        return;
    while (const dirent* entry = readdir(directory)) {
        if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0)
            continue;
        const int fd = ToDescriptor(entry->d_name);
        if (fd < 0)
            QZ_LOG(ERR, "Failed to convert FD:" << entry->d_name);
        else if (fd > STDERR_FILENO && fd != dirfd(directory))
            descriptors.push_back(fd);
    }
    if (closedir(directory) != 0)
        QZ_LOG(ERR, "Failed to close directory:" << OWN_DESCRIPTORS);
    for (const int fd : descriptors) {
        if (close(fd) != 0)
            QZ_LOG(ERR, "Failed to close FD" << fd);
    }
}

} // namespace qz::common
