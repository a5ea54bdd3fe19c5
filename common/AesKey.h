#pragma once

#include <cstdint>
#include <string>

#include "common/PacketBuffer.h"

namespace qz::common {

// What encryption and decryption share: key, IV and the reading of files.  The default key and IV are
// constants of this program, the same in every appliance: they keep files from casual readers, not from
// anyone who has the program.
class AesKey {
public:
    AesKey();
    virtual ~AesKey() = default;

    // Takes a copy of a key of 16, 24 or 32 bytes (AES-128, -192, -256).  Any other length is refused, and
    // the key stays.
    bool SetKey(PacketBuffer& key);

    // Takes a copy of an IV of 16 bytes; likewise.
    bool SetIV(PacketBuffer& iv);

    // The file's bytes.  False when it is no regular file, cannot be opened or read as a whole, or is above
    // the buffer's limit less one.
    bool loadFileContent(std::string path, PacketBuffer& out);

protected:
    static constexpr unsigned BLOCK = 16; // bytes

    const unsigned char* Key() const;
    int KeyBits() const { return m_KeyLength * 8; }
    // A copy for one run of the cipher, which changes it.
    void CopyIV(unsigned char (&iv)[BLOCK]) const;
    // Makes out exactly length bytes long, whatever it held.
    static bool Prepare(PacketBuffer& out, uint64_t length);

private:
    PacketBuffer m_Key;
    PacketBuffer m_IV;
    int32_t m_KeyLength = 32; // bytes
};

} // namespace qz::common
