// The published pictures.  Tested in tests/desk/desk_test.py.
#include "desk/Picture.h"

#include <sys/stat.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <tuple>

#include "common/Constants.h"
#include "common/HelperImage.h"
#include "common/Json.h"

using qz::common::FileIdentity;
using qz::common::HelperImage;
using qz::common::JsonText;

namespace qz::desk {

namespace {

struct Size {
    int width = 0;
    int height = 0;
};

// In pixels; a GIF has it in bytes 6 to 9.
Size SizeOf(const std::string& path, const std::string& bytes) {
    Size size;
    const auto number = [&bytes](size_t at) {
        return static_cast<uint8_t>(bytes[at]) + 256 * static_cast<uint8_t>(bytes[at + 1]);
    };
    if (MediaType(bytes) == "image/jpeg")
        HelperImage::GetJPEGSize(path.c_str(), size.width, size.height);
    else if (bytes.size() >= 10)
        size = {number(6), number(8)};
    return size;
}

} // namespace

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::string MediaType(const std::string& bytes) {
    if (bytes.compare(0, 3, "\xFF\xD8\xFF") == 0)
        return "image/jpeg";
    return bytes.compare(0, 4, "GIF8") == 0 ? "image/gif" : "application/octet-stream";
}

bool Picture::Changed() {
    struct stat status {};
    const bool there = stat(m_Path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
    const FileIdentity identity = there ? FileIdentity{status.st_dev, status.st_ino} : FileIdentity{};
    const timespec written = there ? status.st_mtim : timespec{};
    const long long size = there ? status.st_size : -1;
    const auto all = [](const FileIdentity& id, const timespec& time, long long bytes) {
        return std::make_tuple(id.device, id.inode, time.tv_sec, time.tv_nsec, bytes);
    };
    if (all(identity, written, size) == all(m_Identity, m_Written, m_Size))
        return false;
    m_Identity = identity;
    m_Written = written;
    m_Size = size;
    ++m_Version;
    return true;
}

std::string Picture::Json() const {
    const std::string bytes = ReadFile(m_Path);
    const Size size = SizeOf(m_Path, bytes);
    const bool failure = !bytes.empty() && bytes == ReadFile(qz::common::LIVEVIEW_FAILED_PATH);
    const std::string written =
        std::to_string(static_cast<int64_t>(m_Written.tv_sec) * 1000 + m_Written.tv_nsec / 1'000'000);
    return "{\"version\":" + std::to_string(m_Version) + ",\"there\":" + (m_Size >= 0 ? "true" : "false") +
           ",\"written\":" + written + ",\"bytes\":" + std::to_string(bytes.size()) +
           ",\"width\":" + std::to_string(size.width) + ",\"height\":" + std::to_string(size.height) +
           ",\"type\":" + JsonText(MediaType(bytes)) + ",\"failure\":" + (failure ? "true" : "false") + "}";
}

} // namespace qz::desk
