// AES-CBC encryption.  Tested in tests/common/LibraryTestBuffer.cpp.
#include "common/EncryptAes.h"

#include <cstring>

#include <openssl/aes.h>
#include <openssl/crypto.h>

namespace qz::common {

bool EncryptAes::CbcEncrypt(const char* data, unsigned length, PacketBuffer& out) {
    if (!data || length == 0)
        return false;
    const unsigned rest = length % BLOCK;
    const unsigned whole = length - rest;
    const bool inPlace = data == out.Data();
    if (!Prepare(out, uint64_t{whole} + BLOCK))
        return false;
    if (inPlace)
        data = out.Data(); // may have moved
    AES_KEY schedule;
    if (AES_set_encrypt_key(Key(), KeyBits(), &schedule) != 0)
        return false;

    // The whole blocks go straight from the data to out; only the last one, with the padding, is put
    // together.
    unsigned char last[BLOCK];
    memcpy(last, data + whole, rest);
    memset(last + rest, static_cast<int>(BLOCK - rest), BLOCK - rest);
    unsigned char iv[BLOCK];
    CopyIV(iv);
    auto* target = reinterpret_cast<unsigned char*>(out.Data());
    AES_cbc_encrypt(reinterpret_cast<const unsigned char*>(data), target, whole, &schedule, iv, AES_ENCRYPT);
    AES_cbc_encrypt(last, target + whole, BLOCK, &schedule, iv, AES_ENCRYPT);
    OPENSSL_cleanse(&schedule, sizeof schedule);
    OPENSSL_cleanse(last, sizeof last);
    return true;
}

bool EncryptAes::FileCbcEncrypt(std::string path, PacketBuffer& out) {
    return loadFileContent(path, out) && CbcEncrypt(out.Data(), static_cast<unsigned>(out.Length()), out);
}

} // namespace qz::common
