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

// New contents of a file.  They are gathered beside it and take its name when they are complete, so that a failure on
// the way costs no older copy.  Where a rename would change more than the contents (a link, another user's file), and
// where nothing can be made beside it, the file itself is written, and emptied after a failure.
class NewContents {
public:
    explicit NewContents(const std::string& path) : m_Path(path), m_Written(path + "." + std::to_string(gettid())) {}
    ~NewContents() {
        if (m_Written != m_Path)
            unlink(m_Written.c_str()); // after Publish there is none
        else if (m_File.Valid())
            (void)!ftruncate(m_File.Get(), 0);
    }
    NewContents(const NewContents&) = delete;
    NewContents& operator=(const NewContents&) = delete;

    // Touches nothing before the first bytes.
    bool Write(const char* bytes, int count) {
        const auto size = static_cast<size_t>(count);
        return (m_File.Valid() || Open()) && WriteAll(m_File.Get(), bytes, size) == size;
    }

    bool Publish() {
        return m_File.Reset() && // a full disk may show here
               (m_Written == m_Path || rename(m_Written.c_str(), m_Path.c_str()) == 0);
    }

private:
    bool Open() {
        struct stat old {};
        const bool exists = lstat(m_Path.c_str(), &old) == 0;
        if (!exists || (S_ISREG(old.st_mode) && old.st_nlink == 1 && old.st_uid == geteuid())) {
            unlink(m_Written.c_str()); // left behind by a crash
            m_File = OpenRegularForWriting(m_Written.c_str(), O_EXCL);
            if (exists && m_File.Valid() && fchmod(m_File.Get(), old.st_mode & 07777) != 0)
                m_File.Reset();
        }
        if (!m_File.Valid()) {
            unlink(m_Written.c_str());
            m_Written = m_Path;
            m_File = OpenRegularForWriting(m_Written.c_str(), O_TRUNC);
        }
        return m_File.Valid();
    }

    const std::string m_Path;
    std::string m_Written;
    UniqueFd m_File;
};

} // namespace

bool EncryptAes::CbcEncrypt(const char* data, unsigned length, PacketBuffer& out) {
    return data && length > 0 && Prepare(out, uint64_t{length} - length % BLOCK + BLOCK, data) &&
           Run(ENCRYPT, data, static_cast<int>(length), out);
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
    NewContents out(target);
    return EncryptPieces(in.Get(), status.st_size,
                         [&out](const char* bytes, int count) { return out.Write(bytes, count); }) &&
           out.Publish();
}

bool EncryptAes::EncryptPieces(int in, int64_t size, const TakePiece& take) const {
    Cipher cipher(*this, ENCRYPT);
    std::vector<char> piece(PIECE + BLOCK);
    for (int64_t left = size; left > 0;) {
        const auto count = static_cast<size_t>(std::min<int64_t>(left, PIECE));
        if (ReadAll(in, piece.data(), count) != count)
            return false; // it has become shorter
        const int made = cipher.Update(piece.data(), static_cast<int>(count), piece.data());
        if (made < 0 || !take(piece.data(), made))
            return false;
        left -= static_cast<int64_t>(count);
    }
    const int made = cipher.Finish(piece.data());
    return made >= 0 && take(piece.data(), made);
}

} // namespace qz::common
