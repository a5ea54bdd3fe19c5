#pragma once

#include <cstdint>
#include <string>

#include "common/PacketBuffer.h"

struct evp_cipher_ctx_st; // libcrypto's EVP_CIPHER_CTX

namespace qz::common {

// What encryption and decryption share: key, IV and the reading of files.  The default key and IV are constants of this
// program, the same in every appliance: they keep files from casual readers, not from anyone who has the program.
class AesKey {
public:
    AesKey();
    virtual ~AesKey() = default;

    // Takes a copy of a key of 16, 24 or 32 bytes (AES-128, -192, -256).  Any other length is refused, and the key
    // stays.
    bool SetKey(PacketBuffer& key);

    // Takes a copy of an IV of 16 bytes; likewise.
    bool SetIV(PacketBuffer& iv);

    // The file's bytes.  False when it is no regular file, cannot be opened or read as a whole, or is above the
    // buffer's limit.
    bool loadFileContent(std::string path, PacketBuffer& out);

protected:
    static constexpr unsigned BLOCK = 16; // bytes

    enum Direction { DECRYPT = 0, ENCRYPT = 1 }; // libcrypto's numbers

    // One run of the cipher.  The stored IV is not changed.  After a failure of libcrypto every result is -1.
    class Cipher {
    public:
        Cipher(const AesKey& key, Direction direction);
        ~Cipher();
        Cipher(const Cipher&) = delete;
        Cipher& operator=(const Cipher&) = delete;

        // How many bytes went to out: at most length + 15.  Out may be the data's own place as long as only whole
        // blocks came before: the rest of one would be written over what has not been read yet.
        int Update(const char* data, int length, char* out);
        // The rest: at most 16.
        int Finish(char* out);

    private:
        evp_cipher_ctx_st* m_Context; // owned
        bool m_Good;
    };

    // Runs the cipher over the data into out, which has the result's length already; the data may be out's own.  The
    // stored IV is not changed.  False when libcrypto fails.
    bool Run(Direction direction, const char* data, int length, PacketBuffer& out) const;
    // Makes out exactly length bytes long for what becomes of the data.  The data may be what out holds, from its first
    // byte on, and is found there again afterwards; false when it lies anywhere else in out.
    static bool Prepare(PacketBuffer& out, uint64_t length, const char*& data);
    // Empties out, so that nothing of what it held stays in memory.
    static void Wipe(PacketBuffer& out);

private:
    PacketBuffer m_Key;
    PacketBuffer m_IV;
};

} // namespace qz::common
