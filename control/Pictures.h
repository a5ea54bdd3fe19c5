#pragma once

#include <ctime>
#include <string>

namespace qz::control {

// A published picture as it is now.
struct Picture {
    std::string path;
    bool there = false;
    timespec written{}; // by the file system's clock
    long long size = 0;
    double age = 0;       // seconds
    bool failure = false; // it is a copy of the stock failure picture
    std::string kind;     // JPEG, GIF or unknown, by its first bytes

    static Picture Snapshot();
    static Picture LiveView();

    // Whether it was written at that moment or later; see FileSystemNow.
    bool NotBefore(const timespec& moment) const;
};

// The present by the clock that file systems stamp with, which lags behind the finer one.
timespec FileSystemNow();

// Copies a picture to a file of the caller's, which then is the old or the new one, never half of it.  Throws a
// Failure.
void CopyPicture(const Picture& picture, const std::string& target);

} // namespace qz::control
