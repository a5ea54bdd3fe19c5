// Decryption of any bytes; what encryption made of them comes back.
#include <cstdlib>
#include <cstring>

#include "common/DecryptAes.h"
#include "common/EncryptAes.h"

using namespace qz::common;

extern "C" int LLVMFuzzerTestOneInput(const char* data, size_t size) {
    PacketBuffer out;
    const bool decrypted = DecryptAes().CbcDecrypt(data, static_cast<unsigned>(size), out);
    if (decrypted != (size > 0 && size % 16 == 0) || out.Length() < 0 || out.Length() > static_cast<int>(size))
        abort();
    PacketBuffer text;
    if (size > 0 && (!EncryptAes().CbcEncrypt(data, static_cast<unsigned>(size), out) ||
                     !DecryptAes().CbcDecrypt(out.Data(), static_cast<unsigned>(out.Length()), text) ||
                     text.Length() != static_cast<int>(size) || memcmp(text.Data(), data, size) != 0))
        abort();
    return 0;
}
