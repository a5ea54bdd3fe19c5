// Regular files, opened and written.  Tested in tests/common/ProcessTest.cpp, LoggerTest.cpp and LibraryTestBuffer.cpp.
#include "common/FileAccess.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

namespace qz::common {

namespace {

constexpr int WAKE_ATTEMPTS = 3;

UniqueFd OpenRegular(const char* path, int flags) {
    UniqueFd fd(open(path, flags | O_NONBLOCK | O_CLOEXEC, 0666));
    struct stat status {};
    if (fd.Valid() && (fstat(fd.Get(), &status) != 0 || !S_ISREG(status.st_mode)))
        fd.Reset();
    return fd;
}

} // namespace

FileIdentity FileIdentity::Of(int fd) {
    struct stat status {};
    return fstat(fd, &status) == 0 ? FileIdentity{status.st_dev, status.st_ino} : FileIdentity{};
}

FileIdentity FileIdentity::Of(const char* path) {
    struct stat status {};
    return lstat(path, &status) == 0 ? FileIdentity{status.st_dev, status.st_ino} : FileIdentity{};
}

UniqueFd OpenRegularForReading(const char* path) {
    return OpenRegular(path, O_RDONLY);
}

UniqueFd OpenRegularForWriting(const char* path, int flags) {
    return OpenRegular(path, O_WRONLY | O_CREAT | flags);
}

ssize_t ReadSome(int fd, char* data, size_t size) {
    for (;;) {
        const ssize_t count = read(fd, data, size);
        if (count >= 0 || errno != EINTR)
            return count;
    }
}

size_t ReadAll(int fd, char* data, size_t size) {
    size_t done = 0;
    while (done != size) {
        const ssize_t count = ReadSome(fd, data + done, size - done);
        if (count <= 0)
            break;
        done += static_cast<size_t>(count);
    }
    return done;
}

std::string ReadText(const std::string& path, size_t limit) {
    const UniqueFd file = OpenRegularForReading(path.c_str());
    std::string text(limit, '\0');
    text.resize(file.Valid() ? ReadAll(file.Get(), &text[0], limit) : 0);
    return text;
}

size_t WriteAll(int fd, const char* data, size_t size) {
    size_t done = 0;
    while (done != size) {
        const ssize_t written = write(fd, data + done, size - done);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            break;
        done += static_cast<size_t>(written);
    }
    return done;
}

void Wake(int fd) {
    const uint64_t one = 1; // an eventfd takes no other size
    for (int attempt = 0; attempt < WAKE_ATTEMPTS; ++attempt) {
        if (write(fd, &one, sizeof one) > 0 || errno == EAGAIN)
            return;
    }
}

} // namespace qz::common
