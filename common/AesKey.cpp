// Key, IV and file reading of the AES classes.  Tested in tests/common/LibraryTestBuffer.cpp.
#include "common/AesKey.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstring>

#include "common/Owners.h"

namespace qz::common {

namespace {

constexpr unsigned char DEFAULT_KEY[32] = {0x4b, 0x8e, 0x2f, 0x71, 0xa6, 0xc3, 0xd9, 0x05, 0x1e, 0x7a, 0xb4,
                                           0xf2, 0xc8, 0x6d, 0x3a, 0x9e, 0x0f, 0x5b, 0x7c, 0x1d, 0x2e, 0x8a,
                                           0x4f, 0x6b, 0x9c, 0x3d, 0x5e, 0x7a, 0x1b, 0x2c, 0x4d, 0x6e};
constexpr unsigned char DEFAULT_IV[16] = {0x9d, 0x2e, 0x7b, 0x4a, 0x1c, 0x6f, 0x3e, 0x8d,
                                          0x5a, 0x0b, 0x7c, 0x2e, 0x4f, 0x6a, 0x8b, 0x1d};

const char* Bytes(const unsigned char* data) {
    return reinterpret_cast<const char*>(data);
}

} // namespace

AesKey::AesKey()
    : m_Key(sizeof DEFAULT_KEY + 1, Bytes(DEFAULT_KEY), sizeof DEFAULT_KEY),
      m_IV(sizeof DEFAULT_IV + 1, Bytes(DEFAULT_IV), sizeof DEFAULT_IV) {}

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
    const FilePtr file(fopen(path.c_str(), "rbe"));
    struct stat status {};
    if (!file || fstat(fileno(file.get()), &status) != 0 || !S_ISREG(status.st_mode))
        return false;
    if (fseeko(file.get(), 0, SEEK_END) != 0)
        return false;
    const off_t size = ftello(file.get());
    if (size < 0 || size >= PacketBuffer::LIMIT || fseeko(file.get(), 0, SEEK_SET) != 0)
        return false;
    const auto length = static_cast<int>(size);
    if (!out.Resize(length + 1) || !out.SetLength(length))
        return false;
    return length == 0 ||
           fread(out.Data(), 1, static_cast<size_t>(length), file.get()) == static_cast<size_t>(length);
}

const unsigned char* AesKey::Key() const {
    return reinterpret_cast<const unsigned char*>(m_Key.Data());
}

void AesKey::CopyIV(unsigned char (&iv)[BLOCK]) const {
    memcpy(iv, m_IV.Data(), BLOCK);
}

bool AesKey::Prepare(PacketBuffer& out, uint64_t length) {
    return length <= PacketBuffer::LIMIT && out.Resize(static_cast<int>(length)) &&
           out.SetLength(static_cast<int>(length));
}

} // namespace qz::common
