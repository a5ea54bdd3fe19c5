// Encrypted copies of files.  Tested in tests/common/LibraryTestBuffer.cpp.
#include "common/Util.h"

#include "common/DecryptAes.h"
#include "common/EncryptAes.h"

namespace qz::common {

namespace {

const std::string EXTENSION = ".enc";

} // namespace

bool Util::SaveToEnc(std::string path) {
    EncryptAes aes;
    PacketBuffer encrypted;
    return aes.FileCbcEncrypt(path, encrypted) && SaveFile(path + EXTENSION, encrypted);
}

bool Util::SaveToDec(std::string path) {
    DecryptAes aes;
    PacketBuffer decrypted;
    if (!aes.FileCbcDecrypt(path, decrypted))
        return false;
    path.erase(path.find(EXTENSION), EXTENSION.size()); // throws without one
    return SaveFile(path, decrypted);
}

} // namespace qz::common
