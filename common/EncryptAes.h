#pragma once

#include <functional>
#include <string>

#include "common/AesKey.h"

namespace qz::common {

// Encrypts with AES in CBC mode, padded as in PKCS#7.  Every call starts from the same IV, so equal beginnings give
// equal ciphertexts.
class EncryptAes : public AesKey {
public:
    // False for no data, and when the result would exceed the buffer's limit.  The data is either all of what out
    // holds, and is then replaced, or lies elsewhere.
    bool CbcEncrypt(const char* data, unsigned length, PacketBuffer& out);

    // The same over a file's bytes; see loadFileContent.  After a failure out is empty.
    bool FileCbcEncrypt(std::string path, PacketBuffer& out);

    // The same from file to file, piece by piece, without the whole of it in memory.  A failure leaves the target as it
    // was; one that is a link, or another user's file, may be empty then.
    bool FileCbcEncrypt(std::string path, std::string target);

private:
    using TakePiece = std::function<bool(const char* bytes, int count)>;
    bool EncryptPieces(int in, int64_t size, const TakePiece& take) const;
};

} // namespace qz::common
