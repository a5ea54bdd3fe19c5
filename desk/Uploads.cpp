// Dropped pictures.  Tested in tests/desk/desk_test.py.
#include "desk/Uploads.h"

#include <fcntl.h>

#include <filesystem>

#include "common/FileAccess.h"
#include "common/HelperImage.h"
#include "desk/Picture.h"
#include "desk/Refusal.h"

using qz::common::HelperImage;
using qz::common::UniqueFd;

namespace fs = std::filesystem;

namespace qz::desk {

namespace {

constexpr int FIRST_NAME = 1000;

void Save(const std::string& path, const std::string& bytes) {
    UniqueFd file = qz::common::OpenRegularForWriting(path.c_str(), O_TRUNC);
    const bool written = file.Valid() && qz::common::WriteAll(file.Get(), bytes.data(), bytes.size()) == bytes.size();
    if (!file.Reset() || !written)
        throw Refusal{TROUBLE, "the picture cannot be stored"};
}

// The header alone: a picture that is damaged further down is something the daemon has to cope with.
void CheckHeader(const std::string& path) {
    int width = 0;
    int height = 0;
    if (!HelperImage::GetJPEGSize(path.c_str(), width, height) || width <= 0 || height <= 0)
        throw Refusal{NO_JPEG, "this is no JPEG picture"};
    if (width > Uploads::PIXEL_LIMIT || height > Uploads::PIXEL_LIMIT)
        throw Refusal{TOO_LARGE,
                      "the picture has more than " + std::to_string(Uploads::PIXEL_LIMIT) + " pixels a side"};
}

} // namespace

std::string Uploads::Add(const std::string& bytes, bool begin) {
    if (bytes.size() > SIZE_LIMIT)
        throw Refusal{TOO_LARGE, "the picture is larger than " + std::to_string(SIZE_LIMIT >> 20) + " MB"};
    if (MediaType(bytes) != "image/jpeg")
        throw Refusal{NO_JPEG, "this is no JPEG picture"};

    const std::lock_guard<std::mutex> lock(m_Lock);
    const std::string candidate = m_Folder + "/candidate";
    Save(candidate, bytes);
    CheckHeader(candidate);

    std::error_code error;
    if (begin || m_Set == 0) {
        ++m_Set;
        m_Count = 0;
        fs::remove_all(SetFolder(m_Set - 2), error); // not there, at first
        fs::create_directory(SetFolder(m_Set), error);
    }
    if (m_Count == COUNT_LIMIT)
        throw Refusal{TOO_LARGE, "at most " + std::to_string(COUNT_LIMIT) + " pictures take turns"};
    // They take turns in the order of their names.
    const std::string name = "/" + std::to_string(FIRST_NAME + ++m_Count) + ".jpg";
    fs::rename(candidate, SetFolder(m_Set) + name, error);
    if (error)
        throw Refusal{TROUBLE, "the picture cannot be stored"};
    return SetFolder(m_Set);
}

} // namespace qz::desk
