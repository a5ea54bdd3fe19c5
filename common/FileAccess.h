#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

#include "common/Owners.h"

// Files that are what they should be, read and written without waiting for anybody.  Any thread.
namespace qz::common {

// A program that is compiled without the definitions of this library's target would disagree with it about both.
static_assert(sizeof(off_t) == 8, "compile with -D_FILE_OFFSET_BITS=64");
#if !defined(__GLIBC__) || __GLIBC__ > 2 || __GLIBC_MINOR__ >= 34 // before, 32 bits had no other time
static_assert(sizeof(time_t) == 8, "compile with -D_TIME_BITS=64");
#endif

// Which file it is, whatever its name: tells whether a path or a descriptor still means the same one.
struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0; // 0: none

    static FileIdentity Of(int fd);
    static FileIdentity Of(const char* path); // of the name itself: a symbolic link is not followed
    bool operator==(const FileIdentity& other) const {
        return inode != 0 && device == other.device && inode == other.inode;
    }
};

// Open a regular file, for writing made when it is missing, with the flags added.  Anything else is refused at once, a
// FIFO that nobody has open at its other end too.
UniqueFd OpenRegularForReading(const char* path);
UniqueFd OpenRegularForWriting(const char* path, int flags);

// The next bytes, as read gives them, but not interrupted by a signal.
ssize_t ReadSome(int fd, char* data, size_t size);

// How many bytes were read: as many as were asked for, or fewer before the end or an error.
size_t ReadAll(int fd, char* data, size_t size);

// The beginning of a regular file, at most that many bytes; empty when there is none.
std::string ReadText(const std::string& path, size_t limit = 4096);

// How many of the bytes were written: all of them, or fewer before an error.
size_t WriteAll(int fd, const char* data, size_t size);

// Wakes whoever waits to read from an eventfd or at the other end of a pipe; the descriptor is non-blocking, and what
// is full wakes as well.  Not given up at the first failure, since nothing else may tell the waiting side.
// Async-signal-safe.
void Wake(int fd);

} // namespace qz::common
