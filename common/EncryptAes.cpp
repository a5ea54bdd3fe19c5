// AES-CBC encryption.  Tested in tests/common/LibraryTestBuffer.cpp.
#include "common/EncryptAes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "common/FileAccess.h"

namespace qz::common {

namespace {

// Bytes: whole blocks, and what stays in the processor's cache from the reading to the writing.
constexpr int64_t PIECE = 64 * 1024;

} // namespace

bool EncryptAes::CbcEncrypt(const char* data, unsigned length, PacketBuffer& out) {
    if (!data || length == 0)
        return false;
    const bool inPlace = data == out.Data();
    if (!Prepare(out, uint64_t{length} - length % BLOCK + BLOCK))
        return false;
    return Run(ENCRYPT, inPlace ? out.Data() : data, static_cast<int>(length), out);
}

bool EncryptAes::FileCbcEncrypt(std::string path, PacketBuffer& out) {
    if (loadFileContent(path, out) && CbcEncrypt(out.Data(), static_cast<unsigned>(out.Length()), out))
        return true;
    Wipe(out); // of the plaintext
    return false;
}

bool EncryptAes::FileCbcEncrypt(std::string path, std::string target) {
    const UniqueFd in = OpenRegularForReading(path.c_str());
    struct stat status {};
    if (!in.Valid() || fstat(in.Get(), &status) != 0 || status.st_size < 1 ||
        status.st_size >= PacketBuffer::LIMIT) // what could not be decrypted
        return false;
    UniqueFd out = OpenRegularForWriting(target.c_str(), O_TRUNC);
    if (!out.Valid())
        return false;
    const bool written = EncryptPieces(in.Get(), out.Get(), status.st_size);
    if (out.Reset() && written) // a full disk may show at the closing alone
        return true;
    unlink(target.c_str());
    return false;
}

bool EncryptAes::EncryptPieces(int in, int out, int64_t size) const {
    Cipher cipher(*this, ENCRYPT);
    std::vector<char> piece(PIECE + BLOCK);
    for (int64_t left = size; left > 0;) {
        const auto count = static_cast<size_t>(std::min<int64_t>(left, PIECE));
        if (ReadAll(in, piece.data(), count) != count)
            return false; // it has become shorter
        const int made = cipher.Update(piece.data(), static_cast<int>(count), piece.data());
        if (made < 0 || WriteAll(out, piece.data(), static_cast<size_t>(made)) != static_cast<size_t>(made))
            return false;
        left -= static_cast<int64_t>(count);
    }
    const int made = cipher.Finish(piece.data());
    return made >= 0 && WriteAll(out, piece.data(), static_cast<size_t>(made)) == static_cast<size_t>(made);
}

} // namespace qz::common
