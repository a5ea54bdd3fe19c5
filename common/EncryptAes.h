#pragma once

#include <string>

#include "common/AesKey.h"

namespace qz::common {

// Encrypts with AES in CBC mode, padded as in PKCS#7.  Every call starts from the same IV, so equal
// beginnings give equal ciphertexts.
class EncryptAes : public AesKey {
public:
    // False for no data, and when the result would exceed the buffer's limit.  The data must not lie in out.
    bool CbcEncrypt(const char* data, unsigned length, PacketBuffer& out);

    bool FileCbcEncrypt(std::string path, PacketBuffer& out);
};

} // namespace qz::common
