// Uses what needs the library's own libraries, OpenSSL, libjpeg and threads.  Succeeds when they all answer.
#include "common/FileLogger.h"
#include "common/HelperImage.h"
#include "common/Util.h"

int main() {
    using namespace qz::common;
    unsigned char digest[16];
    int width = 0, height = 0;
    QZ_LOG(ERR, "nowhere, since no log was opened");
    const bool hashes =
        Util::Md5Hash(reinterpret_cast<const unsigned char*>("abc"), 3, digest) == "900150983cd24fb0d6963f7d28e17f72";
    return hashes && !HelperImage::GetJPEGSize("/nonexistent.jpg", width, height) ? 0 : 1;
}
