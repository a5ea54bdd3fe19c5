// AES-CBC decryption.  Tested in tests/common/LibraryTestBuffer.cpp.
#include "common/DecryptAes.h"

#include <algorithm>

#include <openssl/aes.h>
#include <openssl/crypto.h>

namespace qz::common {

bool DecryptAes::CbcDecrypt(const char* data, unsigned length, PacketBuffer& out) {
    if (!data || length == 0 || length % BLOCK != 0)
        return false;
    AES_KEY schedule;
    if (AES_set_decrypt_key(Key(), KeyBits(), &schedule) != 0 || !Prepare(out, length))
        return false;
    unsigned char iv[BLOCK];
    CopyIV(iv);
    AES_cbc_encrypt(reinterpret_cast<const unsigned char*>(data),
                    reinterpret_cast<unsigned char*>(out.Data()), length, &schedule, iv, AES_DECRYPT);
    OPENSSL_cleanse(&schedule, sizeof schedule);
    const int padding = static_cast<unsigned char>(out.Data()[length - 1]);
    return out.SetLength(std::max(0, static_cast<int>(length) - padding));
}

bool DecryptAes::FileCbcDecrypt(std::string path, PacketBuffer& out) {
    PacketBuffer content;
    return loadFileContent(path, content) &&
           CbcDecrypt(content.Data(), static_cast<unsigned>(content.Length()), out);
}

} // namespace qz::common
