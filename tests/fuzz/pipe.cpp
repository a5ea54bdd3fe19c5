// The command pipe: a whole session whose pipe holds any bytes.  In the sandbox.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "capture/Capture.h"
#include "common/Constants.h"

using namespace qz::common;

extern "C" int LLVMFuzzerTestOneInput(const char* data, size_t size) {
    std::filesystem::create_directories(TMP_DIR);
    mkfifo(CAPTURE_FIFO_PATH.c_str(), 0600);
    const UniqueFd pipe(open(CAPTURE_FIFO_PATH.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    std::string text(data, size);
    text.resize((size + 10) / 11 * 11); // so that the end is a chunk of its own
    text += "capture_end";
    if (write(pipe.Get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        abort();
    qz::capture::Capture capture;
    if (capture.Run() != 1)
        abort();
    capture.Stop();
    return 0;
}
