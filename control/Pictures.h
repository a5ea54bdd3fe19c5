#pragma once

#include <ctime>
#include <string>

namespace qz::control {

// A published picture as it is now.  All of it is of one file, whatever replaces that meanwhile.
struct Picture {
    std::string path;
    bool there = false;
    timespec written{}; // by the file system's clock
    double age = 0;     // seconds
    std::string bytes;
    bool failure = false; // it is a copy of the stock failure picture, or what there is of one yet
    std::string kind;     // JPEG, GIF or unknown, by its first bytes

    static Picture Snapshot();
    static Picture LiveView();

    // Whether it was written at that moment or later; see FileSystemNow.
    bool NotBefore(const timespec& moment) const;
};

// The present by the clock that file systems stamp with, which lags behind the finer one.
timespec FileSystemNow();

// Writes a picture's bytes to a file of the caller's, which then is the old or the new one, never half of it.  Throws a
// Failure.
void CopyPicture(const Picture& picture, const std::string& target);

} // namespace qz::control
