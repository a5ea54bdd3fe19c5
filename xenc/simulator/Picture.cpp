// Picture files.  ListPictures, ReadPicture, WritePicture.
#include "xenc/simulator/Picture.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

namespace qz::xenc {

namespace {

class Descriptor {
public:
    explicit Descriptor(int fd) : m_Fd(fd) {}
    ~Descriptor() { Close(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int Get() const { return m_Fd; }

    // 0 or the errno: some file systems tell only here that the data did not fit.
    int Close() {
        const int result = m_Fd < 0 ? 0 : close(m_Fd);
        m_Fd = -1;
        return result == 0 ? 0 : errno;
    }

private:
    int m_Fd;
};

} // namespace

std::vector<std::string> ListPictures(const std::string& path) {
    namespace fs = std::filesystem;
    std::vector<std::string> files;
    std::error_code error;
    if (path.empty())
        return files;
    if (!fs::is_directory(path, error))
        return {path};
    // A directory that cannot be read counts as empty.
    for (fs::directory_iterator entry(path, error), end; !error && entry != end; entry.increment(error)) {
        std::error_code ignored; // a file that went away meanwhile is no regular file
        if (entry->is_regular_file(ignored))
            files.push_back(entry->path().string());
    }
    std::sort(files.begin(), files.end());
    return files;
}

int ReadPicture(const std::string& path, std::string& bytes) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status {};
    if (file.Get() < 0 || fstat(file.Get(), &status) != 0)
        return errno;
    bytes.resize(static_cast<size_t>(status.st_size));
    size_t filled = 0;
    while (filled < bytes.size()) {
        const ssize_t count = read(file.Get(), &bytes[filled], bytes.size() - filled);
        if (count < 0 && errno != EINTR)
            return errno;
        if (count == 0)
            break; // it has become shorter
        filled += count > 0 ? static_cast<size_t>(count) : 0;
    }
    bytes.resize(filled);
    return 0;
}

int WritePicture(const std::string& path, const std::string& bytes) {
    Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    if (file.Get() < 0)
        return errno;
    size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t count = write(file.Get(), bytes.data() + written, bytes.size() - written);
        if (count < 0 && errno != EINTR)
            return errno;
        written += count > 0 ? static_cast<size_t>(count) : 0;
    }
    return file.Close();
}

} // namespace qz::xenc
