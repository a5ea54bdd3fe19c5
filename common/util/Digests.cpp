// Digests and hashes.  Tested in tests/common/LibraryTestText.cpp.
#include "common/Util.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <vector>

#include <openssl/md5.h>
#include <openssl/sha.h>

#include "common/Owners.h"

namespace qz::common {

namespace {

constexpr size_t PIECE = 256 * 1024; // bytes of a file per read; smaller ones measured slower

struct Md5 {
    static constexpr int LENGTH = MD5_DIGEST_LENGTH;
    MD5_CTX context;
    Md5() { MD5_Init(&context); }
    void Update(const void* data, size_t size) { MD5_Update(&context, data, size); }
    void Final(unsigned char* digest) { MD5_Final(digest, &context); }
};

struct Sha256 {
    static constexpr int LENGTH = SHA256_DIGEST_LENGTH;
    SHA256_CTX context;
    Sha256() { SHA256_Init(&context); }
    void Update(const void* data, size_t size) { SHA256_Update(&context, data, size); }
    void Final(unsigned char* digest) { SHA256_Final(digest, &context); }
};

template <typename Digest>
std::string HashData(const unsigned char* data, unsigned length, unsigned char* digest) {
    if (!digest || (!data && length > 0))
        return "";
    Digest hash;
    if (length > 0)
        hash.Update(data, length);
    hash.Final(digest);
    return Util::ToHex(digest, Digest::LENGTH);
}

// Read without a stream in between, whose copy of the bytes would cost a tenth of the digest.
template <typename Digest>
bool HashFile(const std::string& path, std::string& hex) {
    hex.clear();
    const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.Valid())
        return false;
    Digest hash;
    std::vector<char> piece(PIECE);
    for (;;) {
        const ssize_t count = read(file.Get(), piece.data(), piece.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return false;
        if (count == 0)
            break;
        hash.Update(piece.data(), static_cast<size_t>(count));
    }
    unsigned char digest[Digest::LENGTH];
    hash.Final(digest);
    hex = Util::ToHex(digest, Digest::LENGTH);
    return true;
}

// Two bytes, the low one first, wherever they lie.
uint32_t Half(const unsigned char* data) {
    return data[0] | static_cast<uint32_t>(data[1]) << 8;
}

} // namespace

std::string Util::ToHex(const unsigned char* bytes, int count) {
    static const char digits[] = "0123456789abcdef";
    std::string text;
    for (int i = 0; bytes && i < count; ++i) {
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 15];
    }
    return text;
}

std::string Util::Md5Hash(const unsigned char* data, unsigned int length, unsigned char* digest) {
    return HashData<Md5>(data, length, digest);
}

std::string Util::Sha256Hash(const unsigned char* data, unsigned int length, unsigned char* digest) {
    return HashData<Sha256>(data, length, digest);
}

bool Util::Md5File(const std::string& path, std::string& hex) {
    return HashFile<Md5>(path, hex);
}

bool Util::Sha256File(const std::string& path, std::string& hex) {
    return HashFile<Sha256>(path, hex);
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
        hash ^= static_cast<uint32_t>(bytes[2])
                << 18; // unsigned, where the published function takes it signed
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
