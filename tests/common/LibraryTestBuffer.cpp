// Byte buffer and file encryption; the real openssl reads and writes the same files.
#include <functional>
#include <memory>

#include "common/DecryptAes.h"
#include "common/EncryptAes.h"
#include "common/PacketBuffer.h"
#include "common/Util.h"
#include "tests/support/Support.h"

using namespace qz::common;
using namespace support;

namespace {

constexpr int LIMIT = PacketBuffer::LIMIT;

std::string Text(const PacketBuffer& buffer) {
    return buffer.Empty() ? "" : std::string(buffer.Data(), static_cast<size_t>(buffer.Length()));
}

using Operation = std::function<bool(PacketBuffer&)>;

TEST(Buffer, EachOperationInTurn) {
    const std::string big(5000, 'b');
    // The operation, the contents and the capacity afterwards.
    const std::tuple<const char*, Operation, std::string, int> rows[] = {
        {"append", [](auto& b) { return b.Append("abc", 3); }, "abc", 3 + 2048},
        {"put inside", [](auto& b) { return b.CursorAppend(1, "XY", 2); }, "aXY", 2051},
        {"put beyond", [](auto& b) { return b.CursorAppend(5, "z", 1); }, std::string("aXY\0\0z", 6), 2051},
        {"cut", [](auto& b) { return b.Resize(2); }, "aX", 2051},
        {"assign", [](auto& b) { return b.Assign("longer", 6); }, "longer", 2051},
        {"grow", [&](auto& b) { return b.Append(big.data(), 5000); }, "longer" + big, 7054},
        {"cut again", [](auto& b) { return b.Resize(6); }, "longer", 7054},
        {"nothing", [](auto& b) { return b.Append(nullptr, 0); }, "longer", 7054},
        {"its own tail", [](auto& b) { return b.Assign(b.Data() + 4, 2); }, "er", 7054},
        {"tight", [](auto& b) { return b.Allocate(3) && b.Assign("xy", 2); }, "xy", 3},
        {"its own end", [](auto& b) { return b.Append(b.Data(), 2); }, "xyxy", 4 + 2048},
        {"its own middle", [](auto& b) { return b.CursorAppend(2051, b.Data() + 1, 2); },
         "xyxy" + std::string(2047, '\0') + "yx", 2053 + 2048},
        {"allocate", [](auto& b) { return b.Allocate(8) && b.SetLength(8); }, std::string(8, '\0'), 8},
        {"beyond the capacity", [](auto& b) { return !b.SetLength(9); }, std::string(8, '\0'), 8}};
    PacketBuffer buffer;
    EXPECT_TRUE(buffer.Empty());
    for (const auto& [name, operation, contents, capacity] : rows) {
        SCOPED_TRACE(name);
        EXPECT_TRUE(operation(buffer));
        EXPECT_EQ(Text(buffer), contents);
        EXPECT_EQ(buffer.Capacity(), capacity);
        EXPECT_TRUE(buffer.Length() == capacity || buffer.Data()[buffer.Length()] == '\0');
    }
}

TEST(Buffer, AbsurdSizesFailAndChangeNothing) {
    PacketBuffer buffer(16, "abc", 3);
    for (const int size : {LIMIT + 1, INT32_MAX, -1, INT32_MIN}) {
        SCOPED_TRACE(size);
        EXPECT_FALSE(buffer.Allocate(size) || buffer.Resize(size) || buffer.Assign("x", size) ||
                     buffer.Append("x", size) || buffer.CursorAppend(size, "x", 1) ||
                     buffer.CursorAppend(1, "x", size));
        EXPECT_TRUE(PacketBuffer(size).Empty());
    }
    EXPECT_FALSE(buffer.Assign("x", LIMIT)); // no room for the zero byte
    EXPECT_FALSE(buffer.Append(nullptr, 1));
    EXPECT_STREQ(buffer.Data(), "abc");
    EXPECT_TRUE(buffer.Resize(LIMIT));
    EXPECT_FALSE(buffer.Append("x", LIMIT - 3));
    EXPECT_TRUE(buffer.SetLength(LIMIT));
    EXPECT_EQ(PacketBuffer(buffer).Length(), LIMIT); // full to the last byte
}

TEST(Buffer, CopiesAreDeepAndEndWithAZero) {
    PacketBuffer first(100, "abc", 3), second(first), third;
    third = first;
    third = *&third;
    const std::unique_ptr<PacketBuffer> clone(first.Clone());
    first.Data()[0] = 'X';
    for (const PacketBuffer* copy : {&second, &third, clone.get()}) {
        EXPECT_STREQ(copy->Data(), "abc");
        EXPECT_EQ(copy->Capacity(), 100);
    }
    EXPECT_TRUE(first.Allocate(2) && first.SetLength(2)); // without room for one
    EXPECT_EQ(PacketBuffer(first).Capacity(), 3);
    third = PacketBuffer(50);
    EXPECT_EQ(third.Capacity(), 0);
}

TEST(Encryption, EveryLengthComesBackAndOthersCanReadIt) {
    const std::string arguments = " -K 4b8e2f71a6c3d9051e7ab4f2c86d3a9e0f5b7c1d2e8a4f6b9c3d5e7a1b2c4d6e -iv "
                                  "9d2e7b4a1c6f3e8d5a0b7c2e4f6a8b1d ";
    for (const size_t length : {1, 15, 16, 17, 31, 32, 1000, 1024, 70001}) {
        SCOPED_TRACE(length);
        Shell("head -c " + std::to_string(length) + " /dev/urandom >/opt/a.enc.txt");
        const std::string data = ReadFile("/opt/a.enc.txt");
        ASSERT_TRUE(Util::SaveToEnc("/opt/a.enc.txt"));
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
    PacketBuffer out, back;
    PacketBuffer bad(40, std::string(20, 'k').data(), 20), iv(40, "iviviviviviviviv", 16);
    EXPECT_FALSE(encrypt.SetKey(bad) || encrypt.SetIV(bad));
    ASSERT_TRUE(encrypt.CbcEncrypt("0123456789abcdef", 16, out));
    EXPECT_EQ(out.Length(), 32);
    ASSERT_TRUE(decrypt.CbcDecrypt(out.Data(), 32, back)); // the refused ones left the defaults
    EXPECT_STREQ(back.Data(), "0123456789abcdef");
    // "secret" by another implementation, with keys of k and that IV.
    const std::pair<int, const char*> rows[] = {{16, "1c2c22d3048a1dec221e2c3aaff687b8"},
                                                {24, "7c9e9eb6a456c927c76cb1b3a71011c1"},
                                                {32, "b3b63b1dcf988e66e5a4ab164d4d2f6c"}};
    for (const auto& [length, expected] : rows) {
        PacketBuffer key(40, std::string(static_cast<size_t>(length), 'k').data(), length);
        ASSERT_TRUE(encrypt.SetKey(key) && encrypt.SetIV(iv) && decrypt.SetKey(key) && decrypt.SetIV(iv));
        const EncryptAes copy(encrypt);
        for (int again = 0; again < 2; ++again) { // the stored IV is not used up
            ASSERT_TRUE(EncryptAes(copy).CbcEncrypt("secret", 6, out));
            EXPECT_EQ(Util::ToHex(reinterpret_cast<unsigned char*>(out.Data()), out.Length()), expected);
            ASSERT_TRUE(decrypt.CbcDecrypt(out.Data(), 16, back));
            EXPECT_STREQ(back.Data(), "secret");
        }
    }
    EXPECT_FALSE(encrypt.CbcEncrypt("x", 0, out) || encrypt.CbcEncrypt(nullptr, 5, out) ||
                 encrypt.CbcEncrypt("x", UINT32_MAX, out));
    EXPECT_FALSE(decrypt.CbcDecrypt("0123456789abcdefg", 17, out) || decrypt.CbcDecrypt("", 0, out));
    // A last byte above the length: nothing is left, and that is no error.
    for (int first = 0; first < 256; ++first) {
        const std::string garbage(16, static_cast<char>(first));
        ASSERT_TRUE(decrypt.CbcDecrypt(garbage.data(), 16, out));
        ASSERT_TRUE(out.Length() >= 0 && out.Length() <= 16);
    }
}

TEST(Encryption, FilesUpToTheLimit) {
    EncryptAes aes;
    PacketBuffer out;
    WriteFile("/opt/empty", "");
    // The largest that can be encrypted, the largest that can be read, one more.
    Shell("cd /opt; truncate -s 52428799 most; truncate -s 52428800 full; truncate -s 52428801 over; "
          "mkdir folder; mkfifo fifo");
    EXPECT_TRUE(aes.loadFileContent("/opt/empty", out));
    EXPECT_EQ(out.Length(), 0);
    EXPECT_TRUE(aes.loadFileContent("/opt/full", out));
    EXPECT_EQ(out.Length(), LIMIT);
    for (const char* path : {"/opt/over", "/opt/folder", "/opt/missing", "/dev/zero", "/opt/fifo"})
        EXPECT_FALSE(aes.loadFileContent(path, out)) << path;
    ASSERT_TRUE(Util::SaveToEnc("/opt/most") && Util::SaveToDec("/opt/most.enc"));
    Shell("cmp -n 52428799 /opt/most /dev/zero");
    ASSERT_TRUE(out.Assign("old", 3));
    EXPECT_FALSE(aes.FileCbcEncrypt("/opt/full", out));
    EXPECT_EQ(out.Capacity(), 0); // no plaintext stays
    for (const char* path : {"/opt/empty", "/opt/folder", "/opt/fifo", "/opt/full"})
        EXPECT_FALSE(Util::SaveToEnc(path)) << path;
    mkdir("/opt/small", 0755);
    const Mount small("/opt/small", "size=64k");
    WriteFile("/opt/small/text", std::string(40000, 'x')); // its ciphertext does not fit
    EXPECT_FALSE(Util::SaveToEnc("/opt/small/text") || Exists("/opt/small/text.enc"));
    mkdir("/opt/most.enc.enc", 0755);
    EXPECT_FALSE(Util::SaveToEnc("/opt/most.enc"));
    WriteFile("/opt/plain", std::string(16, 'x'));
    EXPECT_THROW(Util::SaveToDec("/opt/plain"), std::out_of_range);
    EXPECT_FALSE(Util::SaveToDec("/opt/missing"));

    PacketBuffer bytes(10, "a\0b", 3), none;
    EXPECT_TRUE(Util::SaveFile("/opt/saved", bytes));
    EXPECT_EQ(ReadFile("/opt/saved"), std::string("a\0b", 3));
    EXPECT_TRUE(Util::SaveFile("/opt/saved", none));
    EXPECT_EQ(ReadFile("/opt/saved"), "");
    EXPECT_FALSE(Util::SaveFile("/opt/folder", bytes) || Util::SaveFile("/dev/full", bytes));
}

} // namespace
