// The JPEG header probe on good and bad files.
#include <unistd.h>

#include <gtest/gtest.h>

#include "common/HelperImage.h"
#include "tests/support/Support.h"

using qz::common::HelperImage;
using support::Log;
using support::ReadFile;
using support::WriteFile;

namespace {

using Texts = std::vector<std::string>;

TEST(Image, SizeOrTheLibrarysOwnReason) {
    support::MakeJpeg("/opt/good.jpg", 641, 479);
    const std::string good = ReadFile("/opt/good.jpg");
    WriteFile("/opt/empty.jpg", "");
    WriteFile("/opt/text.jpg", "hello");
    WriteFile("/opt/cut.jpg", good.substr(0, 30));
    WriteFile("/opt/headless.jpg", good.substr(0, 2) + "\xFF\xD9");
    WriteFile("/opt/nobody.jpg", good.substr(0, good.size() / 2));
    struct Row {
        const char* path;
        bool good;
        Texts log;
    };
    const Row rows[] = {
        {"/opt/good.jpg", true, {}},
        {"/opt/nobody.jpg", true, {}}, // only the picture is cut
        {nullptr, false, {}},
        {"/opt/missing.jpg", false, {"ERR /opt/missing.jpg Open Error"}},
        {"/opt/empty.jpg", false, {"ERR Empty input file"}},
        {"/opt", false, {"ERR Empty input file"}},
        {"/opt/text.jpg", false, {"ERR Not a JPEG file: starts with 0x68 0x65"}},
        {"/opt/headless.jpg", false, {"ERR JPEG datastream contains no image"}},
        {"/opt/cut.jpg", false, {"ERR JPEG datastream contains no image"}},
    };
    const int descriptors = dup(0);
    for (int round = 0; round < 50; ++round) {
        for (const Row& row : rows) {
            SCOPED_TRACE(row.path ? row.path : "null");
            int width = -5;
            int height = -6;
            Log log;
            EXPECT_EQ(HelperImage::GetJPEGSize(row.path, width, height), row.good);
            EXPECT_EQ(width, row.good ? 641 : -5);
            EXPECT_EQ(height, row.good ? 479 : -6);
            if (round == 0) {
                EXPECT_EQ(log.Messages(), row.log);
            }
        }
    }
    close(descriptors);
    EXPECT_EQ(dup(0), descriptors); // every failure closed its file
}

} // namespace
