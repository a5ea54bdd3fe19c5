#pragma once

#include <string>

#include "common/AesKey.h"

namespace qz::common {

// Decrypts what EncryptAes made.
class DecryptAes : public AesKey {
public:
    // False for no data and for a length that is no multiple of 16.  The padding is taken on trust: the last byte says
    // how much to cut, so a wrong key gives garbage of some length and no error.  The data is either all of what out
    // holds, and is then replaced, or lies elsewhere.
    bool CbcDecrypt(const char* data, unsigned length, PacketBuffer& out);

    // The same over a file's bytes; see loadFileContent.
    bool FileCbcDecrypt(std::string path, PacketBuffer& out);
};

} // namespace qz::common
