// Digests and hashes.  Tested in tests/common/LibraryTestText.cpp.
#include "common/Util.h"

#include <unistd.h>

#include <cstdint>
#include <memory>
#include <vector>

#include <openssl/evp.h>

#include "common/FileAccess.h"

namespace qz::common {

namespace {

constexpr size_t PIECE = 256 * 1024; // bytes of a file per read; smaller ones measured slower

// One digest being worked out.  False results are libcrypto's failures.
class Digest {
public:
    explicit Digest(const EVP_MD* kind)
        : m_Context(EVP_MD_CTX_new()), m_Good(m_Context && EVP_DigestInit_ex(m_Context.get(), kind, nullptr) == 1) {}

    void Update(const void* data, size_t size) {
        m_Good = m_Good && EVP_DigestUpdate(m_Context.get(), data, size) == 1;
    }

    // The digest's text; its bytes go to the caller's buffer.  "" after a failure.
    std::string Finish(unsigned char* digest) {
        unsigned length = 0;
        m_Good = m_Good && EVP_DigestFinal_ex(m_Context.get(), digest, &length) == 1;
        return m_Good ? Util::ToHex(digest, static_cast<int>(length)) : "";
    }

private:
    struct Free {
        void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
    };
    std::unique_ptr<EVP_MD_CTX, Free> m_Context;
    bool m_Good;
};

// The implementation, looked up once and kept: to look it up for each digest takes longer than a short digest.
const EVP_MD* Fetched(const char* name, const EVP_MD* otherwise) {
    const EVP_MD* kind = EVP_MD_fetch(nullptr, name, nullptr);
    return kind ? kind : otherwise;
}

const EVP_MD* Md5() {
    static const EVP_MD* const kind = Fetched("MD5", EVP_md5());
    return kind;
}

const EVP_MD* Sha256() {
    static const EVP_MD* const kind = Fetched("SHA256", EVP_sha256());
    return kind;
}

std::string HashData(const EVP_MD* kind, const unsigned char* data, unsigned length, unsigned char* digest) {
    if (!digest || (!data && length > 0))
        return "";
    Digest hash(kind);
    hash.Update(data, length);
    return hash.Finish(digest);
}

// Read without a stream in between, whose copy of the bytes would cost a tenth of the digest.
bool HashFile(const EVP_MD* kind, const std::string& path, std::string& hex) {
    const UniqueFd file = OpenRegularForReading(path.c_str());
    hex.clear(); // not before: it may be the path
    if (!file.Valid())
        return false;
    Digest hash(kind);
    std::vector<char> piece(PIECE);
    ssize_t count = 0;
    while ((count = ReadSome(file.Get(), piece.data(), piece.size())) > 0)
        hash.Update(piece.data(), static_cast<size_t>(count));
    if (count < 0)
        return false;
    unsigned char digest[EVP_MAX_MD_SIZE];
    hex = hash.Finish(digest);
    return !hex.empty();
}

// Two bytes, the low one first, wherever they lie.
uint32_t Half(const unsigned char* data) {
    return data[0] | static_cast<uint32_t>(data[1]) << 8;
}

} // namespace

std::string Util::ToHex(const unsigned char* bytes, int count) {
    static const char digits[] = "0123456789abcdef";
    if (!bytes || count < 1)
        return "";
    std::string text(static_cast<size_t>(count) * 2, '\0');
    for (size_t i = 0; i < text.size(); ++i)
        text[i] = digits[i % 2 == 0 ? bytes[i / 2] >> 4 : bytes[i / 2] & 15];
    return text;
}

std::string Util::Md5Hash(const unsigned char* data, unsigned int length, unsigned char* digest) {
    return HashData(Md5(), data, length, digest);
}

std::string Util::Sha256Hash(const unsigned char* data, unsigned int length, unsigned char* digest) {
    return HashData(Sha256(), data, length, digest);
}

bool Util::Md5File(const std::string& path, std::string& hex) {
    return HashFile(Md5(), path, hex);
}

bool Util::Sha256File(const std::string& path, std::string& hex) {
    return HashFile(Sha256(), path, hex);
}

unsigned int Util::SuperFastHash(const char* data, unsigned int length) {
    if (!data || length == 0)
        return 0;
    const auto* bytes = reinterpret_cast<const unsigned char*>(data);
    uint32_t hash = length;
    for (unsigned blocks = length / 4; blocks > 0; --blocks, bytes += 4) {
        hash += Half(bytes);
        const uint32_t mixed = (Half(bytes + 2) << 11) ^ hash;
        hash = (hash << 16) ^ mixed;
        hash += hash >> 11;
    }
    switch (length % 4) {
    case 3:
        hash += Half(bytes);
        hash ^= hash << 16;
        hash ^= static_cast<uint32_t>(bytes[2]) << 18; // unsigned, where the published function takes it signed
        hash += hash >> 11;
        break;
    case 2:
        hash += Half(bytes);
        hash ^= hash << 11;
        hash += hash >> 17;
        break;
    case 1:
        hash += static_cast<uint32_t>(static_cast<signed char>(bytes[0])); // signed, on every machine
        hash ^= hash << 10;
        hash += hash >> 1;
        break;
    default:
        break;
    }
    hash ^= hash << 3;
    hash += hash >> 5;
    hash ^= hash << 4;
    hash += hash >> 17;
    hash ^= hash << 25;
    hash ^= hash << 6; // where the published function adds hash >> 6
    return hash;
}

} // namespace qz::common
