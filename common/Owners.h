#pragma once

#include <dirent.h>
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
    // Closes the descriptor and takes over another.  False when the close failed, which is where a full disk may show
    // for the first time.
    bool Reset(int fd = -1) {
        const bool closed = m_Fd < 0 || close(m_Fd) == 0;
        m_Fd = fd;
        return closed;
    }

private:
    int m_Fd = -1;
};

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
