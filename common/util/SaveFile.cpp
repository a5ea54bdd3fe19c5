// A byte buffer into a file.  Tested in tests/common/LibraryTestBuffer.cpp.
#include "common/Util.h"

#include <cstdio>

#include "common/Owners.h"
#include "common/PacketBuffer.h"

namespace qz::common {

bool Util::SaveFile(std::string path, PacketBuffer& data) {
    FilePtr file(fopen(path.c_str(), "wbe"));
    if (!file)
        return false;
    const auto length = static_cast<size_t>(data.Length());
    const bool written = length == 0 || fwrite(data.Data(), 1, length, file.get()) == length;
    return fclose(file.release()) == 0 && written; // a full disk may show at the closing alone
}

} // namespace qz::common
