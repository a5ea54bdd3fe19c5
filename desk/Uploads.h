#pragma once

#include <cstddef>
#include <mutex>
#include <string>

namespace qz::desk {

// Pictures that were dropped onto the page, kept as files whose names are the desk's own.  What was dropped together
// is one set, a folder; the set before stays too, since the board may just be reading it, and older ones go.
//
// Threads: any.
class Uploads {
public:
    static constexpr size_t SIZE_LIMIT = 16 * 1024 * 1024; // bytes of a file
    static constexpr int PIXEL_LIMIT = 8192;               // in each direction
    static constexpr int COUNT_LIMIT = 20;                 // files of a set

    explicit Uploads(std::string folder) : m_Folder(std::move(folder)) {}

    // Adds the file to the set, or begins another one with it, and returns the set's folder.  Throws a Refusal.
    std::string Add(const std::string& bytes, bool begin);

private:
    std::string SetFolder(int set) const { return m_Folder + "/pictures-" + std::to_string(set); }

    const std::string m_Folder;
    std::mutex m_Lock; // guards all below, and the files
    int m_Set = 0;     // 0: none yet
    int m_Count = 0;   // of its files
};

} // namespace qz::desk
