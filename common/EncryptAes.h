#pragma once

#include <string>

#include "common/AesKey.h"

namespace qz::common {

// Encrypts with AES in CBC mode, padded as in PKCS#7.  Every call starts from the same IV, so equal
// beginnings give equal ciphertexts.
class EncryptAes : public AesKey {
public:
    // False for no data, and when the result would exceed the buffer's limit.  The data is either
    // all of what out holds, and is then replaced, or lies elsewhere.
    bool CbcEncrypt(const char* data, unsigned length, PacketBuffer& out);

    // The same over a file's bytes; see loadFileContent.  After a failure out is empty.
    bool FileCbcEncrypt(std::string path, PacketBuffer& out);
};

} // namespace qz::common
