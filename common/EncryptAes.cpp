// AES-CBC encryption.  Tested in tests/common/LibraryTestBuffer.cpp.
#include "common/EncryptAes.h"

namespace qz::common {

bool EncryptAes::CbcEncrypt(const char* data, unsigned length, PacketBuffer& out) {
    if (!data || length == 0)
        return false;
    const bool inPlace = data == out.Data();
    if (!Prepare(out, uint64_t{length} - length % BLOCK + BLOCK))
        return false;
    return Run(ENCRYPT, inPlace ? out.Data() : data, static_cast<int>(length), out);
}

bool EncryptAes::FileCbcEncrypt(std::string path, PacketBuffer& out) {
    if (loadFileContent(path, out) && CbcEncrypt(out.Data(), static_cast<unsigned>(out.Length()), out))
        return true;
    Wipe(out); // of the plaintext
    return false;
}

} // namespace qz::common
