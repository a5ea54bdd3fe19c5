// The JPEG header probe on good and bad files.
#include "common/HelperImage.h"
#include "tests/support/Support.h"

using namespace support;
using qz::common::HelperImage;

TEST(Image, SizeOrTheLibrarysOwnReason) {
    MakeJpeg("/opt/good", 641, 479);
    Shell("cd /opt; touch empty; echo hello > text; head -c 30 good > cut; "
          "head -c $(($(stat -c %s good) / 2)) good > nobody"); // only the picture is cut
    const std::pair<const char*, const char*> rows[] = {{"/opt/good", ""},
                                                        {"/opt/nobody", ""},
                                                        {nullptr, ""},
                                                        {"/opt/missing", "ERR /opt/missing Open Error"},
                                                        {"/opt/empty", "ERR Empty input file"},
                                                        {"/opt", "ERR Empty input file"},
                                                        {"/opt/text", "ERR Not a JPEG file: starts with 0x68 0x65"},
                                                        {"/opt/cut", "ERR JPEG datastream contains no image"}};
    Log log;
    const int descriptor = dup(0);
    for (const auto& [path, line] : rows) {
        const bool readable = path && !*line;
        int width = -5, height = -6;
        EXPECT_EQ(HelperImage::GetJPEGSize(path, width, height), readable) << line;
        EXPECT_TRUE(HelperImage::Resizing(path, width, height)); // changes nothing
        EXPECT_EQ(std::pair(width, height), readable ? std::pair(641, 479) : std::pair(-5, -6)) << line;
        EXPECT_EQ(Joined(log.Messages()), line);
        log.Forget();
    }
    close(descriptor);
    EXPECT_EQ(dup(0), descriptor); // every failure closed its file
}
