// The pictures on request: test card or files, turned, with faults.
#include "xenc/simulator/PictureSource.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>
#include <vector>

#include "xenc/simulator/Image.h"
#include "xenc/simulator/TestCard.h"

namespace qz::xenc {

namespace {

namespace fs = std::filesystem;

std::string ErrorText(const std::string& path) {
    return path + ": " + std::generic_category().message(errno);
}

// The regular files of a directory in the order of their names; for any other path the path itself.
std::vector<std::string> FilesOf(const std::string& source) {
    std::error_code error;
    if (!fs::is_directory(source, error))
        return {source};
    std::vector<std::string> files;
    // A directory that cannot be read counts as empty.
    for (fs::directory_iterator entry(source, error), end; !error && entry != end; entry.increment(error)) {
        std::error_code ignored; // a file that went away meanwhile is no regular file
        if (entry->is_regular_file(ignored))
            files.push_back(entry->path().string());
    }
    std::sort(files.begin(), files.end());
    return files;
}

bool ReadFile(const std::string& path, std::string& bytes) {
    const std::ifstream file(path, std::ios::binary);
    std::ostringstream copy;
    copy << file.rdbuf();
    bytes = copy.str();
    return file.is_open();
}

bool Turn(std::string& jpeg, int degrees, std::string& reason) {
    Image image;
    return Decode(jpeg, image, reason) && Encode(Turned(image, degrees), jpeg, reason);
}

// The file whose turn it is.  Unturned its bytes stay as they are, so damage and markers too.
bool ReadGiven(const Shot& shot, std::string& jpeg, std::string& report) {
    const std::vector<std::string> files = FilesOf(shot.source);
    if (files.empty()) {
        report = shot.source + ": no picture in the directory";
        return false;
    }
    const std::string& file = files[(shot.number - 1) % files.size()];
    if (!ReadFile(file, jpeg)) {
        report = ErrorText(file);
        return false;
    }
    std::string reason;
    if (shot.degrees != 0 && !Turn(jpeg, shot.degrees, reason))
        report = file + " not turned, " + reason + "; ";
    return true;
}

bool MakeJpeg(const Shot& shot, std::string& jpeg, std::string& report) {
    return shot.source.empty() ? Encode(Turned(DrawTestCard(shot.degrees, shot.number), shot.degrees), jpeg, report)
                               : ReadGiven(shot, jpeg, report);
}

} // namespace

void PictureSource::Choose(const std::string& source) {
    const std::lock_guard<std::mutex> lock(m_Lock);
    m_Source = source;
    m_ShotCount = 0;
}

PictureFaults PictureSource::Faults() {
    const std::lock_guard<std::mutex> lock(m_Lock);
    return m_Faults;
}

void PictureSource::SetFaults(const PictureFaults& faults) {
    const std::lock_guard<std::mutex> lock(m_Lock);
    m_Faults = faults;
}

Shot PictureSource::Next(int degrees) {
    const std::lock_guard<std::mutex> lock(m_Lock);
    return {m_Source, ++m_ShotCount, degrees, m_Faults};
}

bool WritePicture(const Shot& shot, const std::string& path, std::string& report) {
    report.clear();
    std::string jpeg;
    if (!MakeJpeg(shot, jpeg, report))
        return false;
    if (shot.faults.keptBytes >= 0)
        jpeg.resize(std::min(jpeg.size(), static_cast<size_t>(shot.faults.keptBytes)));
    std::ofstream file(path, std::ios::binary);
    file << jpeg;
    file.close();
    report = file ? report + path + " written" : ErrorText(path);
    return !file.fail();
}

} // namespace qz::xenc
