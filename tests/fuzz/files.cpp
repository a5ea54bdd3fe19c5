// The files that others write and the daemon reads: pid file, version file, JPEG header.  In the sandbox.
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "common/Constants.h"
#include "common/HelperImage.h"
#include "common/Util.h"

using namespace qz::common;

extern "C" int LLVMFuzzerTestOneInput(const char* data, size_t size) {
    std::filesystem::create_directories("/opt/tormel/plinta");
    std::ofstream(VERSION_FILE_PATH, std::ios::binary).write(data, static_cast<std::streamsize>(size));
    for (const VersionType type : {VersionType::BUILD_FIRST_HALF, VersionType::BUILD_SECOND_HALF}) {
        if (Util::GetVersion(type).size() > size)
            abort();
    }
    const int pid = Util::ReadPID(VERSION_FILE_PATH);
    if (pid < 1 && Util::AlivePID(pid, ""))
        abort();
    int width = -1;
    int height = -1;
    if (HelperImage::GetJPEGSize(VERSION_FILE_PATH.c_str(), width, height) ? width < 0 || height < 0 : width != -1)
        abort();
    return 0;
}
