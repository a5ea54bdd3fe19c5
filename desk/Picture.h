#pragma once

#include <ctime>
#include <string>

#include "common/FileAccess.h"

namespace qz::desk {

// One of the published pictures, watched.
//
// Threads: one; the functions any.
class Picture {
public:
    explicit Picture(std::string path) : m_Path(std::move(path)) {}

    // Whether it is another one, or has been written again, since the last look.
    bool Changed();

    // What it is, as one JSON object: when written, size in bytes and pixels, kind, whether it is the failure picture.
    std::string Json() const;

private:
    const std::string m_Path;
    qz::common::FileIdentity m_Identity;
    timespec m_Written{};
    long long m_Size = -1; // -1: there is none
    int m_Version = 0;     // counts the changes
};

// The bytes of a file; empty when there is none.
std::string ReadFile(const std::string& path);

// By its first bytes: a JPEG may stand under a GIF's name.
std::string MediaType(const std::string& bytes);

} // namespace qz::desk
