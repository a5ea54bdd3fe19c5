// AES-CBC decryption.  Tested in tests/common/LibraryTestBuffer.cpp.
#include "common/DecryptAes.h"

#include <algorithm>

namespace qz::common {

bool DecryptAes::CbcDecrypt(const char* data, unsigned length, PacketBuffer& out) {
    if (!data || length == 0 || length % BLOCK != 0 || !Prepare(out, length, data) ||
        !Run(DECRYPT, data, static_cast<int>(length), out))
        return false;
    const int padding = static_cast<unsigned char>(out.Data()[length - 1]);
    return out.SetLength(std::max(0, static_cast<int>(length) - padding));
}

bool DecryptAes::FileCbcDecrypt(std::string path, PacketBuffer& out) {
    return loadFileContent(path, out) && CbcDecrypt(out.Data(), static_cast<unsigned>(out.Length()), out);
}

} // namespace qz::common
