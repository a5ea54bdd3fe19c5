// Key, IV, cipher and file reading of the AES classes.  Tested in tests/common/LibraryTestBuffer.cpp.
#include "common/AesKey.h"

#include <sys/stat.h>

#include <algorithm>

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include "common/FileAccess.h"

namespace qz::common {

namespace {

constexpr unsigned char DEFAULT_KEY[] = {0x4b, 0x8e, 0x2f, 0x71, 0xa6, 0xc3, 0xd9, 0x05, 0x1e, 0x7a, 0xb4,
                                         0xf2, 0xc8, 0x6d, 0x3a, 0x9e, 0x0f, 0x5b, 0x7c, 0x1d, 0x2e, 0x8a,
                                         0x4f, 0x6b, 0x9c, 0x3d, 0x5e, 0x7a, 0x1b, 0x2c, 0x4d, 0x6e};
constexpr unsigned char DEFAULT_IV[] = {0x9d, 0x2e, 0x7b, 0x4a, 0x1c, 0x6f, 0x3e, 0x8d,
                                        0x5a, 0x0b, 0x7c, 0x2e, 0x4f, 0x6a, 0x8b, 0x1d};

const char* Chars(const unsigned char* data) {
    return reinterpret_cast<const char*>(data);
}

const unsigned char* Bytes(const PacketBuffer& buffer) {
    return reinterpret_cast<const unsigned char*>(buffer.Data());
}

} // namespace

AesKey::AesKey()
    : m_Key(sizeof DEFAULT_KEY, Chars(DEFAULT_KEY), sizeof DEFAULT_KEY),
      m_IV(sizeof DEFAULT_IV, Chars(DEFAULT_IV), sizeof DEFAULT_IV) {}

bool AesKey::SetKey(PacketBuffer& key) {
    const int length = key.Length();
    return (length == 16 || length == 24 || length == 32) && m_Key.Assign(key.Data(), length);
}

bool AesKey::SetIV(PacketBuffer& iv) {
    return iv.Length() == static_cast<int>(BLOCK) && m_IV.Assign(iv.Data(), iv.Length());
}

bool AesKey::loadFileContent(std::string path, PacketBuffer& out) {
    const UniqueFd file = OpenRegularForReading(path.c_str());
    struct stat status {};
    if (!file.Valid() || fstat(file.Get(), &status) != 0 || status.st_size > PacketBuffer::LIMIT)
        return false;
    const auto length = static_cast<int>(status.st_size);
    // One more for the zero byte, where the limit has room for it.
    return out.Resize(std::min(length + 1, PacketBuffer::LIMIT)) && out.SetLength(length) &&
           ReadAll(file.Get(), out.Data(), static_cast<size_t>(length)) == static_cast<size_t>(length);
}

AesKey::Cipher::Cipher(const AesKey& key, Direction direction) : m_Context(EVP_CIPHER_CTX_new()) {
    const int length = key.m_Key.Length();
    const EVP_CIPHER* cipher = length == 16 ? EVP_aes_128_cbc() : length == 24 ? EVP_aes_192_cbc() : EVP_aes_256_cbc();
    // Only the encryption pads: at decryption the padding is taken on trust, which libcrypto would not do.
    // An empty IV: there was no memory for one, and libcrypto would take zeros.
    m_Good = m_Context && !key.m_IV.Empty() &&
             EVP_CipherInit_ex(m_Context, cipher, nullptr, Bytes(key.m_Key), Bytes(key.m_IV), direction) == 1 &&
             EVP_CIPHER_CTX_set_padding(m_Context, direction == ENCRYPT) == 1;
}

AesKey::Cipher::~Cipher() {
    EVP_CIPHER_CTX_free(m_Context); // wipes the key schedule
}

int AesKey::Cipher::Update(const char* data, int length, char* out) {
    int written = 0;
    m_Good = m_Good && EVP_CipherUpdate(m_Context, reinterpret_cast<unsigned char*>(out), &written,
                                        reinterpret_cast<const unsigned char*>(data), length) == 1;
    return m_Good ? written : -1;
}

int AesKey::Cipher::Finish(char* out) {
    int written = 0;
    m_Good = m_Good && EVP_CipherFinal_ex(m_Context, reinterpret_cast<unsigned char*>(out), &written) == 1;
    return m_Good ? written : -1;
}

bool AesKey::Run(Direction direction, const char* data, int length, PacketBuffer& out) const {
    Cipher cipher(*this, direction);
    const int written = cipher.Update(data, length, out.Data());
    return written >= 0 && cipher.Finish(out.Data() + written) == out.Length() - written;
}

bool AesKey::Prepare(PacketBuffer& out, uint64_t length, const char*& data) {
    const bool inPlace = data == out.Data();
    if (length > PacketBuffer::LIMIT || (!inPlace && out.Holds(data)))
        return false;
    if (!out.Resize(static_cast<int>(length)) || !out.SetLength(static_cast<int>(length)))
        return false;
    if (inPlace)
        data = out.Data(); // may have moved
    return true;
}

void AesKey::Wipe(PacketBuffer& out) {
    if (out.Data())
        OPENSSL_cleanse(out.Data(), static_cast<size_t>(out.Capacity()));
    out.Clear();
}

} // namespace qz::common
