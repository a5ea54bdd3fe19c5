// What reads foreign bytes, each as a subject; a program is built for one of them.  In the sandbox.
#include <sys/stat.h>

#include <cstring>
#include <fstream>

#include "capture/Capture.h"
#include "common/Constants.h"
#include "common/DecryptAes.h"
#include "common/EncryptAes.h"
#include "common/FileLogger.h"
#include "common/HelperChar.h"
#include "common/HelperImage.h"
#include "common/Util.h"

using namespace qz::common;
using Bytes = std::string_view;

namespace {

void Expect(bool condition) {
    if (!condition)
        abort();
}

} // namespace

// The character conversions: whatever comes in, what goes out is valid and comes back as it is.
void Characters(Bytes bytes) {
    const std::string text(bytes);
    std::wstring wide(bytes.size() / sizeof(wchar_t), L'\0');
    std::u16string narrow(bytes.size() / sizeof(char16_t), u'\0');
    memcpy(wide.data(), bytes.data(), wide.size() * sizeof(wchar_t));
    memcpy(narrow.data(), bytes.data(), narrow.size() * sizeof(char16_t));
    for (const std::string& utf8 :
         {HelperChar::LinuxWideCharToUTF8(HelperChar::UTF8toLinuxWideChar(text.c_str()).c_str()),
          HelperChar::LinuxWideCharToUTF8(wide.c_str()), HelperChar::WinWideChartoUTF8(narrow.c_str())}) {
        std::u16string units(utf8.size() + 1, u'x');
        HelperChar::UTF8toWinWideChar(utf8.c_str(), units.data());
        Expect(HelperChar::WinWideChartoUTF8(units.c_str()) == utf8);
        Expect(HelperChar::LinuxWideCharToUTF8(HelperChar::UTF8toLinuxWideChar(utf8.c_str()).c_str()) == utf8);
    }
    HelperChar::MbstrToWstr(text.c_str());
    HelperChar::WcstrToStr(wide.c_str());
}

// Decryption of any bytes; what encryption made of them comes back.
void Decryption(Bytes bytes) {
    const auto length = static_cast<unsigned>(bytes.size());
    PacketBuffer out;
    Expect(DecryptAes().CbcDecrypt(bytes.data(), length, out) == (length > 0 && length % 16 == 0));
    Expect(out.Length() >= 0 && out.Length() <= static_cast<int>(length));
    if (length == 0)
        return;
    Expect(EncryptAes().CbcEncrypt(bytes.data(), length, out));
    Expect(DecryptAes().CbcDecrypt(out.Data(), static_cast<unsigned>(out.Length()), out));
    Expect(Bytes(out.Data(), static_cast<size_t>(out.Length())) == bytes);
}

// The files that others write and the daemon reads: version file, pid file, JPEG header.
void Files(Bytes bytes) {
    Util::MakeDirs(TMP_DIR, 0755);
    std::ofstream(VERSION_FILE_PATH, std::ios::binary) << bytes;
    for (const VersionType type : {VersionType::BUILD_FIRST_HALF, VersionType::BUILD_SECOND_HALF})
        Expect(Util::GetVersion(type).size() <= bytes.size());
    const int pid = Util::ReadPID(VERSION_FILE_PATH);
    Expect(pid > 0 || !Util::AlivePID(pid, ""));
    int width = -1, height = -1;
    const bool read = HelperImage::GetJPEGSize(VERSION_FILE_PATH.c_str(), width, height);
    Expect(read ? width >= 0 && height >= 0 : width == -1);
}

// The command pipe: a whole session whose pipe holds any bytes.
void Pipe(Bytes bytes) {
    Util::MakeDirs(TMP_DIR, 0755);
    mkfifo(CAPTURE_FIFO_PATH.c_str(), 0600);
    std::fstream pipe(CAPTURE_FIFO_PATH);                          // both ends, so that it waits for nobody
    const std::string filler((11 - bytes.size() % 11) % 11, '\0'); // so that the end is a chunk of its own
    Expect((pipe << bytes << filler << "capture_end" << std::flush).good());
    qz::capture::Capture capture;
    Expect(capture.Run() == 1);
    capture.Stop();
}

// The function field of a log line, from any text that a compiler might give as a signature.
void Signature(Bytes bytes) {
    const Bytes name = className(bytes);
    Expect(name == "::" || (name.find(' ') == name.npos && bytes.find(name) != name.npos));
}

extern "C" int LLVMFuzzerTestOneInput(const char* data, size_t size) {
    FUZZ_SUBJECT({data, size});
    return 0;
}
