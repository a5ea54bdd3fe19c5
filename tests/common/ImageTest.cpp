// The JPEG header probe on good and bad files.
#include "common/HelperImage.h"
#include "tests/support/Support.h"

using namespace support;

TEST(Image, SizeOrTheLibrarysOwnReason) {
    MakeJpeg("/opt/good.jpg", 641, 479);
    const std::string good = ReadFile("/opt/good.jpg");
    WriteFile("/opt/empty.jpg", "");
    WriteFile("/opt/text.jpg", "hello");
    WriteFile("/opt/cut.jpg", good.substr(0, 30));
    WriteFile("/opt/headless.jpg", good.substr(0, 2) + "\xFF\xD9");
    WriteFile("/opt/nobody.jpg", good.substr(0, good.size() / 2));
    const std::pair<const char*, const char*> rows[] = {{"/opt/good.jpg", ""},
                                                        {"/opt/nobody.jpg", ""}, // only the picture is cut
                                                        {nullptr, ""},
                                                        {"/opt/missing.jpg", "ERR /opt/missing.jpg Open Error"},
                                                        {"/opt/empty.jpg", "ERR Empty input file"},
                                                        {"/opt", "ERR Empty input file"},
                                                        {"/opt/text.jpg", "ERR Not a JPEG file: starts with 0x68 0x65"},
                                                        {"/opt/headless.jpg", "ERR JPEG datastream contains no image"},
                                                        {"/opt/cut.jpg", "ERR JPEG datastream contains no image"}};
    Log log;
    const int descriptor = dup(0);
    for (const auto& [path, line] : rows) {
        SCOPED_TRACE(path ? path : "null");
        const bool readable = path && !*line;
        int width = -5, height = -6;
        EXPECT_EQ(qz::common::HelperImage::GetJPEGSize(path, width, height), readable);
        EXPECT_EQ(std::make_pair(width, height), readable ? std::make_pair(641, 479) : std::make_pair(-5, -6));
        EXPECT_EQ(Joined(log.Messages()), line);
        log.Forget();
    }
    int none = 7;
    EXPECT_TRUE(qz::common::HelperImage::Resizing("", none, none) && none == 7);
    close(descriptor);
    EXPECT_EQ(dup(0), descriptor); // every failure closed its file
}
