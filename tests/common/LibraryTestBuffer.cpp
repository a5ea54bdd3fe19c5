// Byte buffer and file encryption; the real openssl reads and writes the same files.
#include <memory>

#include <gtest/gtest.h>

#include "common/DecryptAes.h"
#include "common/EncryptAes.h"
#include "common/PacketBuffer.h"
#include "common/Util.h"
#include "tests/support/Support.h"

using namespace qz::common;
using support::ReadFile;
using support::Shell;
using support::WriteFile;

namespace {

constexpr int LIMIT = PacketBuffer::LIMIT;

std::string Text(const PacketBuffer& buffer) {
    return buffer.Empty() ? "" : std::string(buffer.Data(), static_cast<size_t>(buffer.Length()));
}

TEST(Buffer, GrowsCutsAndEndsWithAZero) {
    PacketBuffer buffer;
    EXPECT_TRUE(buffer.Empty());
    EXPECT_TRUE(buffer.Append("abc", 3));
    EXPECT_EQ(buffer.Capacity(), 3 + 2048);
    EXPECT_TRUE(buffer.CursorAppend(1, "XY", 2)); // inside: the length stays
    EXPECT_EQ(Text(buffer), "aXY");
    EXPECT_TRUE(buffer.CursorAppend(5, "z", 1));
    EXPECT_EQ(Text(buffer), std::string("aXY\0\0z", 6));
    EXPECT_TRUE(buffer.Resize(2));
    EXPECT_STREQ(buffer.Data(), "aX");
    EXPECT_EQ(buffer.Capacity(), 3 + 2048);
    EXPECT_TRUE(buffer.Assign("longer", 6));
    EXPECT_STREQ(buffer.Data(), "longer");
    const std::string big(5000, 'b');
    EXPECT_TRUE(buffer.Append(big.data(), 5000));
    EXPECT_EQ(Text(buffer), "longer" + big);
    EXPECT_TRUE(buffer.Allocate(8));
    EXPECT_EQ(buffer.Length(), 0);
    EXPECT_EQ(std::string(buffer.Data(), 8), std::string(8, '\0'));
    EXPECT_TRUE(buffer.SetLength(8));
    EXPECT_FALSE(buffer.SetLength(9));
}

TEST(Buffer, AbsurdSizesFailAndChangeNothing) {
    PacketBuffer buffer(16, "abc", 3);
    for (const int size : {LIMIT + 1, INT32_MAX, -1, INT32_MIN}) {
        EXPECT_FALSE(buffer.Allocate(size)) << size;
        EXPECT_FALSE(buffer.Resize(size)) << size;
        EXPECT_FALSE(buffer.Assign("x", size)) << size;
        EXPECT_FALSE(buffer.Append("x", size)) << size;
        EXPECT_FALSE(buffer.CursorAppend(size, "x", 1)) << size;
        EXPECT_FALSE(buffer.CursorAppend(1, "x", size)) << size;
        EXPECT_TRUE(PacketBuffer(size).Empty()) << size;
    }
    EXPECT_FALSE(buffer.Assign("x", LIMIT)); // no room for the zero byte
    EXPECT_FALSE(buffer.Append(nullptr, 1));
    EXPECT_TRUE(buffer.Append(nullptr, 0));
    EXPECT_STREQ(buffer.Data(), "abc");
    EXPECT_TRUE(buffer.Resize(LIMIT));
    EXPECT_FALSE(buffer.Append("x", LIMIT - 3));
    EXPECT_TRUE(buffer.SetLength(LIMIT));
    const PacketBuffer copy(buffer); // full to the last byte
    EXPECT_EQ(copy.Length(), LIMIT);
}

TEST(Buffer, CopiesAreDeep) {
    PacketBuffer first(100, "abc", 3);
    PacketBuffer second(first);
    PacketBuffer third;
    third = first;
    third = *&third;
    const std::unique_ptr<PacketBuffer> clone(first.Clone());
    first.Data()[0] = 'X';
    for (const PacketBuffer* copy : {&second, &third, clone.get()}) {
        EXPECT_STREQ(copy->Data(), "abc");
        EXPECT_EQ(copy->Capacity(), 100);
    }
    third = PacketBuffer(50);
    EXPECT_EQ(third.Capacity(), 0);
}

TEST(Encryption, EveryLengthComesBackAndOthersCanReadIt) {
    const std::string arguments = " -K 4b8e2f71a6c3d9051e7ab4f2c86d3a9e0f5b7c1d2e8a4f6b9c3d5e7a1b2c4d6e -iv "
                                  "9d2e7b4a1c6f3e8d5a0b7c2e4f6a8b1d ";
    std::string data;
    for (const size_t length : {1, 15, 16, 17, 31, 32, 1000, 1024, 70001}) {
        SCOPED_TRACE(length);
        while (data.size() < length)
            data += static_cast<char>(data.size() * 31);
        data.resize(length);
        WriteFile("/opt/a.enc.txt", data);
        ASSERT_TRUE(Util::SaveToEnc("/opt/a.enc.txt"));
        EXPECT_EQ(ReadFile("/opt/a.enc.txt.enc").size(), length / 16 * 16 + 16);
        Shell("openssl enc -d -aes-256-cbc" + arguments + "-in /opt/a.enc.txt.enc -out /opt/theirs");
        EXPECT_EQ(ReadFile("/opt/theirs"), data);
        Shell("openssl enc -aes-256-cbc" + arguments + "-in /opt/a.enc.txt -out /opt/b.enc");
        EXPECT_EQ(ReadFile("/opt/b.enc"), ReadFile("/opt/a.enc.txt.enc"));
        ASSERT_TRUE(Util::SaveToDec("/opt/b.enc"));
        EXPECT_EQ(ReadFile("/opt/b"), data);
        ASSERT_TRUE(Util::SaveToDec("/opt/a.enc.txt.enc")); // the first ".enc" of the path goes
        EXPECT_EQ(ReadFile("/opt/a.txt.enc"), data);
    }
}

TEST(Encryption, KeysIVsAndRefusals) {
    EncryptAes encrypt;
    DecryptAes decrypt;
    PacketBuffer out;
    PacketBuffer back;
    PacketBuffer bad(40, std::string(20, 'k').data(), 20);
    EXPECT_FALSE(encrypt.SetKey(bad));
    EXPECT_FALSE(encrypt.SetIV(bad));
    ASSERT_TRUE(encrypt.CbcEncrypt("0123456789abcdef", 16, out));
    EXPECT_EQ(out.Length(), 32);
    ASSERT_TRUE(decrypt.CbcDecrypt(out.Data(), 32, back)); // the refused ones left the defaults
    EXPECT_STREQ(back.Data(), "0123456789abcdef");
    for (const int length : {16, 24, 32}) {
        PacketBuffer key(40, std::string(static_cast<size_t>(length), 'k').data(), length);
        PacketBuffer iv(40, "iviviviviviviviv", 16);
        ASSERT_TRUE(encrypt.SetKey(key) && encrypt.SetIV(iv) && decrypt.SetKey(key) && decrypt.SetIV(iv));
        const EncryptAes copy(encrypt);
        for (int again = 0; again < 2; ++again) { // the stored IV is not used up
            ASSERT_TRUE(EncryptAes(copy).CbcEncrypt("secret", 6, out));
            ASSERT_TRUE(decrypt.CbcDecrypt(out.Data(), 16, back));
            EXPECT_STREQ(back.Data(), "secret");
        }
        WriteFile("/opt/ours", Text(out));
        Shell("printf secret | openssl enc -aes-" + std::to_string(length * 8) +
              "-cbc -K $(printf '6b%.0s' $(seq " + std::to_string(length) +
              ")) -iv $(printf '6976%.0s' $(seq 8)) | cmp - /opt/ours");
    }
    EXPECT_FALSE(encrypt.CbcEncrypt("x", 0, out));
    EXPECT_FALSE(encrypt.CbcEncrypt(nullptr, 5, out));
    EXPECT_FALSE(encrypt.CbcEncrypt("x", UINT32_MAX, out));
    EXPECT_FALSE(decrypt.CbcDecrypt("0123456789abcdefg", 17, out));
    EXPECT_FALSE(decrypt.CbcDecrypt("", 0, out));
    // A last byte above the length: nothing is left, and that is no error.
    for (int first = 0; first < 256; ++first) {
        const std::string garbage(16, static_cast<char>(first));
        ASSERT_TRUE(decrypt.CbcDecrypt(garbage.data(), 16, out));
        ASSERT_TRUE(out.Length() >= 0 && out.Length() <= 16);
    }
}

TEST(Encryption, FilesThatCannotBeReadOrWritten) {
    EncryptAes aes;
    PacketBuffer out;
    WriteFile("/opt/empty", "");
    Shell("truncate -s 52428799 /opt/largest; truncate -s 52428800 /opt/larger; mkdir /opt/folder");
    EXPECT_TRUE(aes.loadFileContent("/opt/empty", out));
    EXPECT_EQ(out.Length(), 0);
    EXPECT_TRUE(aes.loadFileContent("/opt/largest", out));
    EXPECT_EQ(out.Length(), 52428799);
    for (const char* path : {"/opt/larger", "/opt/folder", "/opt/missing", "/dev/zero"})
        EXPECT_FALSE(aes.loadFileContent(path, out)) << path;
    EXPECT_FALSE(Util::SaveToEnc("/opt/empty"));
    EXPECT_FALSE(Util::SaveToEnc("/opt/folder"));
    WriteFile("/opt/plain", std::string(16, 'x'));
    EXPECT_THROW(Util::SaveToDec("/opt/plain"), std::out_of_range);
    EXPECT_FALSE(Util::SaveToDec("/opt/missing"));

    PacketBuffer bytes(10, "a\0b", 3);
    EXPECT_TRUE(Util::SaveFile("/opt/saved", bytes));
    EXPECT_EQ(ReadFile("/opt/saved"), std::string("a\0b", 3));
    PacketBuffer none;
    EXPECT_TRUE(Util::SaveFile("/opt/saved", none));
    EXPECT_EQ(ReadFile("/opt/saved"), "");
    EXPECT_FALSE(Util::SaveFile("/opt/folder", bytes));
    EXPECT_FALSE(Util::SaveFile("/dev/full", bytes));
}

} // namespace
