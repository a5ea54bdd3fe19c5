// Key, IV, cipher and file reading of the AES classes.  Tested in tests/common/LibraryTestBuffer.cpp.
#include "common/AesKey.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include "common/Owners.h"

namespace qz::common {

namespace {

constexpr unsigned char DEFAULT_KEY[32] = {0x4b, 0x8e, 0x2f, 0x71, 0xa6, 0xc3, 0xd9, 0x05, 0x1e, 0x7a, 0xb4,
                                           0xf2, 0xc8, 0x6d, 0x3a, 0x9e, 0x0f, 0x5b, 0x7c, 0x1d, 0x2e, 0x8a,
                                           0x4f, 0x6b, 0x9c, 0x3d, 0x5e, 0x7a, 0x1b, 0x2c, 0x4d, 0x6e};
constexpr unsigned char DEFAULT_IV[16] = {0x9d, 0x2e, 0x7b, 0x4a, 0x1c, 0x6f, 0x3e, 0x8d,
                                          0x5a, 0x0b, 0x7c, 0x2e, 0x4f, 0x6a, 0x8b, 0x1d};

const char* Chars(const unsigned char* data) {
    return reinterpret_cast<const char*>(data);
}

const unsigned char* Bytes(const PacketBuffer& buffer) {
    return reinterpret_cast<const unsigned char*>(buffer.Data());
}

} // namespace

AesKey::AesKey()
    : m_Key(sizeof DEFAULT_KEY + 1, Chars(DEFAULT_KEY), sizeof DEFAULT_KEY),
      m_IV(sizeof DEFAULT_IV + 1, Chars(DEFAULT_IV), sizeof DEFAULT_IV) {}

bool AesKey::SetKey(PacketBuffer& key) {
    const int length = key.Length();
    if (length != 16 && length != 24 && length != 32)
        return false;
    m_Key = key;
    m_KeyLength = length;
    return true;
}

bool AesKey::SetIV(PacketBuffer& iv) {
    if (iv.Length() != static_cast<int>(BLOCK))
        return false;
    m_IV = iv;
    return true;
}

bool AesKey::loadFileContent(std::string path, PacketBuffer& out) {
    const UniqueFd file = OpenRegularForReading(path.c_str());
    struct stat status {};
    if (!file.Valid() || fstat(file.Get(), &status) != 0 || status.st_size > PacketBuffer::LIMIT)
        return false;
    const auto length = static_cast<int>(status.st_size);
    // One more for the zero byte, where the limit has room for it.
    if (!out.Resize(std::min(length + 1, PacketBuffer::LIMIT)) || !out.SetLength(length))
        return false;
    for (int done = 0; done < length;) {
        const ssize_t count = read(file.Get(), out.Data() + done, static_cast<size_t>(length - done));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return false;
        done += static_cast<int>(count);
    }
    return true;
}

bool AesKey::Run(Direction direction, const char* data, int length, PacketBuffer& out) const {
    const EVP_CIPHER* cipher = m_KeyLength == 16   ? EVP_aes_128_cbc()
                               : m_KeyLength == 24 ? EVP_aes_192_cbc()
                                                   : EVP_aes_256_cbc();
    // Freeing it wipes the key schedule, on every path.
    const std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context(EVP_CIPHER_CTX_new(),
                                                                                  EVP_CIPHER_CTX_free);
    const auto* source = reinterpret_cast<const unsigned char*>(data);
    auto* target = reinterpret_cast<unsigned char*>(out.Data());
    int first = 0;
    int last = 0;
    return context &&
           EVP_CipherInit_ex(context.get(), cipher, nullptr, Bytes(m_Key), Bytes(m_IV), direction) == 1 &&
           // Only the encryption pads: at decryption the padding is taken on trust, which the cipher would
           // not do.
           EVP_CIPHER_CTX_set_padding(context.get(), direction == ENCRYPT) == 1 &&
           EVP_CipherUpdate(context.get(), target, &first, source, length) == 1 &&
           EVP_CipherFinal_ex(context.get(), target + first, &last) == 1 && first + last == out.Length();
}

bool AesKey::Prepare(PacketBuffer& out, uint64_t length) {
    return length <= PacketBuffer::LIMIT && out.Resize(static_cast<int>(length)) &&
           out.SetLength(static_cast<int>(length));
}

void AesKey::Wipe(PacketBuffer& out) {
    if (out.Data())
        OPENSSL_cleanse(out.Data(), static_cast<size_t>(out.Capacity()));
    out.Clear();
}

} // namespace qz::common
