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
    const bool inPlace = data == out.Data();
    if (AES_set_decrypt_key(Key(), KeyBits(), &schedule) != 0 || !Prepare(out, length))
        return false;
    if (inPlace)
        data = out.Data(); // may have moved
    unsigned char iv[BLOCK];
    CopyIV(iv);
    AES_cbc_encrypt(reinterpret_cast<const unsigned char*>(data),
                    reinterpret_cast<unsigned char*>(out.Data()), length, &schedule, iv, AES_DECRYPT);
    OPENSSL_cleanse(&schedule, sizeof schedule);
    const int padding = static_cast<unsigned char>(out.Data()[length - 1]);
    return out.SetLength(std::max(0, static_cast<int>(length) - padding));
}

bool DecryptAes::FileCbcDecrypt(std::string path, PacketBuffer& out) {
    return loadFileContent(path, out) && CbcDecrypt(out.Data(), static_cast<unsigned>(out.Length()), out);
}

} // namespace qz::common
