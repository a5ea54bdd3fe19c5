// Directories and what a path names.  MakeDir to GetFileChangeDuration.  Tested in tests/common/UtilTest.cpp.
#include "common/Util.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <ctime>
#include <iterator>
#include <utility>

#include "common/PathConstants.h"

namespace qz::common {

namespace {

constexpr std::pair<mode_t, FileObjectType> FILE_TYPES[] = {
    {S_IFREG, FileObjectType::REGULAR},       {S_IFDIR, FileObjectType::DIRECTORY},
    {S_IFLNK, FileObjectType::SYMBOLIC_LINK}, {S_IFCHR, FileObjectType::CHARACTER_DEVICE},
    {S_IFBLK, FileObjectType::BLOCK_DEVICE},  {S_IFIFO, FileObjectType::FIFO},
    {S_IFSOCK, FileObjectType::SOCKET}};

// False when there is no working directory, or its path is longer than any.
bool WorkingDirectory(std::string& path) {
    char buffer[PATH_MAX];
    if (!getcwd(buffer, sizeof buffer))
        return false;
    path = buffer;
    return true;
}

} // namespace

bool Util::MakeDir(const std::string& path, int mode) {
    return mkdir(path.c_str(), static_cast<mode_t>(mode)) == 0 || errno == EEXIST;
}

bool Util::MakeDirs(const std::string& path, int mode) {
    // Every prefix that ends before a separator, then the whole.  mkdir answers EEXIST for what is there, "."  and ".."
    // included; what cannot be made shows at the end.
    for (size_t end = path.find(PATH_SEPARATOR); end != std::string::npos; end = path.find(PATH_SEPARATOR, end + 1)) {
        if (end > 0)
            MakeDir(path.substr(0, end), mode);
    }
    MakeDir(path, mode);
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool Util::MakeRealPath(const std::string& path, std::vector<std::string>& parts) {
    parts.clear();
    std::string absolute = path;
    if (path.compare(0, PATH_SEPARATOR.size(), PATH_SEPARATOR) != 0) {
        if (!WorkingDirectory(absolute))
            return false;
        absolute += PATH_SEPARATOR + path;
    }
    std::vector<std::string> pieces;
    StringSplit(absolute, PATH_SEPARATOR, pieces);
    for (const std::string& piece : pieces) {
        if (piece.empty() || piece == ".")
            continue;
        if (piece != "..")
            parts.push_back(piece);
        else if (!parts.empty())
            parts.pop_back();
    }
    return true;
}

bool Util::IsDirectory(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool Util::GetFileType(const std::string& path, FileObjectType& type) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0)
        return false;
    const auto* known = std::find_if(std::begin(FILE_TYPES), std::end(FILE_TYPES),
                                     [&](const auto& row) { return row.first == (status.st_mode & S_IFMT); });
    type = known == std::end(FILE_TYPES) ? FileObjectType::OTHER : known->second;
    return true;
}

bool Util::GetFileChangeDuration(const std::string& path, long& seconds) {
    seconds = -1;
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0)
        return false;
    seconds = static_cast<long>(time(nullptr) - status.st_mtime);
    return true;
}

} // namespace qz::common
