#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <memory>

// Small owners for what the system hands out, so that an early return closes it.
namespace qz::common {

// A file descriptor, closed with its owner.  -1 means none.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : m_Fd(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : m_Fd(other.Release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        Reset(other.Release());
        return *this;
    }
    ~UniqueFd() { Reset(); }

    int Get() const { return m_Fd; }
    bool Valid() const { return m_Fd >= 0; }
    // The caller owns the descriptor from now on.
    int Release() {
        const int fd = m_Fd;
        m_Fd = -1;
        return fd;
    }
    // Closes the descriptor and takes over another.  False when the close failed, which is where a full disk
    // may show for the first time.
    bool Reset(int fd = -1) {
        const bool closed = m_Fd < 0 || close(m_Fd) == 0;
        m_Fd = fd;
        return closed;
    }

private:
    int m_Fd = -1;
};

// Which file it is, whatever its name: tells whether a path or a descriptor still means the same one.
struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0; // 0: none

    static FileIdentity Of(int fd) {
        struct stat status {};
        return fstat(fd, &status) == 0 ? FileIdentity{status.st_dev, status.st_ino} : FileIdentity{};
    }
    // Of the name itself: a symbolic link is not followed.
    static FileIdentity Of(const char* path) {
        struct stat status {};
        return lstat(path, &status) == 0 ? FileIdentity{status.st_dev, status.st_ino} : FileIdentity{};
    }
    bool operator==(const FileIdentity& other) const {
        return inode != 0 && device == other.device && inode == other.inode;
    }
};

// Opens a regular file for reading.  Anything else is refused at once, a FIFO without a writer too.
inline UniqueFd OpenRegularForReading(const char* path) {
    UniqueFd fd(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (fd.Valid() && (fstat(fd.Get(), &status) != 0 || !S_ISREG(status.st_mode)))
        fd.Reset();
    return fd;
}

// Opens a regular file for writing, made when it is missing; flags are added.  Anything else in its place is
// refused at once, a FIFO without a reader too.
inline UniqueFd OpenRegularForWriting(const char* path, int flags) {
    UniqueFd fd(open(path, O_WRONLY | O_CREAT | O_NONBLOCK | O_CLOEXEC | flags, 0666));
    struct stat status {};
    if (fd.Valid() && (fstat(fd.Get(), &status) != 0 || !S_ISREG(status.st_mode)))
        fd.Reset();
    return fd;
}

struct CloseFile {
    void operator()(FILE* file) const { fclose(file); }
};
struct ClosePipe {
    void operator()(FILE* pipe) const { pclose(pipe); }
};
struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};
using FilePtr = std::unique_ptr<FILE, CloseFile>;
using PipePtr = std::unique_ptr<FILE, ClosePipe>;
using DirectoryPtr = std::unique_ptr<DIR, CloseDirectory>;

} // namespace qz::common
