#pragma once

#include <string>
#include <vector>

namespace qz::xenc {

// The regular files of a directory in the order of their names; for any other path the path itself.  Empty
// for an empty path.
std::vector<std::string> ListPictures(const std::string& path);

// The bytes of a file as they are.  0 or the errno; a failed write leaves behind what it has written.
int ReadPicture(const std::string& path, std::string& bytes);
int WritePicture(const std::string& path, const std::string& bytes);

} // namespace qz::xenc
