// A byte buffer into a file.  Tested in tests/common/LibraryTestBuffer.cpp.
#include "common/Util.h"

#include <fcntl.h>

#include "common/FileAccess.h"
#include "common/PacketBuffer.h"

namespace qz::common {

bool Util::SaveFile(std::string path, PacketBuffer& data) {
    UniqueFd file = OpenRegularForWriting(path.c_str(), O_TRUNC);
    if (!file.Valid())
        return false;
    const auto length = static_cast<size_t>(data.Length());
    const bool written = WriteAll(file.Get(), data.Data(), length) == length;
    return file.Reset() && written; // a full disk may show at the closing alone
}

} // namespace qz::common
