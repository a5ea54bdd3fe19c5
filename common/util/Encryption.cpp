// Encrypted copies of files.  Tested in tests/common/LibraryTestBuffer.cpp.
#include "common/Util.h"

#include "common/DecryptAes.h"
#include "common/EncryptAes.h"

namespace qz::common {

namespace {

const std::string EXTENSION = ".enc";

} // namespace

bool Util::SaveToEnc(std::string path) {
    return EncryptAes().FileCbcEncrypt(path, path + EXTENSION);
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
