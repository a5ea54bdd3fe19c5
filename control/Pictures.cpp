// The published pictures, seen from outside.  Tested in tests/control/ControlTest.cpp.
#include "control/Pictures.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <tuple>

#include "common/Constants.h"
#include "common/FileAccess.h"
#include "control/ExitStatus.h"

namespace qz::control {

namespace {

// Empty for anything but a regular file.
std::string Contents(const qz::common::UniqueFd& file) {
    std::string bytes;
    char piece[64 * 1024];
    while (const size_t count = file.Valid() ? qz::common::ReadAll(file.Get(), piece, sizeof piece) : 0)
        bytes.append(piece, count);
    return bytes;
}

std::string KindOf(const std::string& bytes) {
    if (bytes.compare(0, 3, "\xFF\xD8\xFF") == 0)
        return "JPEG";
    return bytes.compare(0, 4, "GIF8") == 0 ? "GIF" : "unknown";
}

Picture Look(const std::string& path) {
    Picture picture;
    picture.path = path;
    const qz::common::UniqueFd file = qz::common::OpenRegularForReading(path.c_str());
    struct stat status {};
    picture.there = file.Valid() && fstat(file.Get(), &status) == 0;
    if (!picture.there)
        return picture;
    picture.written = status.st_mtim;
    const timespec now = FileSystemNow();
    picture.age =
        difftime(now.tv_sec, status.st_mtim.tv_sec) + static_cast<double>(now.tv_nsec - status.st_mtim.tv_nsec) / 1e9;
    picture.bytes = Contents(file);
    const std::string stock = Contents(qz::common::OpenRegularForReading(qz::common::LIVEVIEW_FAILED_PATH.c_str()));
    picture.failure = !picture.bytes.empty() && stock.compare(0, picture.bytes.size(), picture.bytes) == 0;
    picture.kind = KindOf(picture.bytes);
    return picture;
}

} // namespace

Picture Picture::Snapshot() {
    return Look(qz::common::MD_CAPTURE_PATH);
}

Picture Picture::LiveView() {
    return Look(qz::common::LIVEVIEW_PATH);
}

bool Picture::NotBefore(const timespec& moment) const {
    return there && std::tie(written.tv_sec, written.tv_nsec) >= std::tie(moment.tv_sec, moment.tv_nsec);
}

timespec FileSystemNow() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return now;
}

void CopyPicture(const Picture& picture, const std::string& target) {
    struct stat status {};
    if (lstat(target.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) // a device would be replaced by a file
        throw Failure{CANNOT_WRITE, "cannot write", target + " is no regular file"};
    const std::string half = target + "." + std::to_string(getpid());
    const std::string& bytes = picture.bytes;
    FILE* file = fopen(half.c_str(), "wbxe");
    const bool written = file && fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    if ((file && fclose(file) != 0) || !written || rename(half.c_str(), target.c_str()) != 0) {
        const int error = errno;
        if (file)
            unlink(half.c_str());
        throw Failure{CANNOT_WRITE, "cannot write", target + ": " + strerror(error)};
    }
}

} // namespace qz::control
