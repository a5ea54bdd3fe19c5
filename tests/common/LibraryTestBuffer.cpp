// Byte buffer and file encryption; the real openssl writes the same files.
#include <malloc.h>

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

TEST(Buffer, EachOperationInTurn) {
    const std::string big(5000, 'b'), gap(2047, '\0');
    // The operation, the contents and the capacity afterwards.
    const std::tuple<const char*, std::function<bool(PacketBuffer&)>, std::string, int> rows[] = {
        {"append", [](auto& b) { return b.Append("abc", 3); }, "abc", 3 + 2048},
        {"put inside", [](auto& b) { return b.CursorAppend(1, "XY", 2); }, "aXY", 2051},
        {"put beyond", [](auto& b) { return b.CursorAppend(5, "z", 1); }, std::string("aXY\0\0z", 6), 2051},
        {"cut", [](auto& b) { return b.Resize(2); }, "aX", 2051},
        {"assign", [](auto& b) { return b.Assign("longer", 6); }, "longer", 2051},
        {"grow", [&](auto& b) { return b.Append(big.data(), 5000); }, "longer" + big, 7054},
        {"cut again", [](auto& b) { return b.Resize(6) && b.Append(nullptr, 0); }, "longer", 7054},
        {"nothing", [](auto& b) { return b.Assign(nullptr, 0) && b.Assign("longer", 6); }, "longer", 7054},
        {"its own tail", [](auto& b) { return b.Assign(b.Data() + 4, 2); }, "er", 7054},
        {"tight", [](auto& b) { return b.Allocate(3) && b.Assign("xy", 2); }, "xy", 3},
        {"its own end", [](auto& b) { return b.Append(b.Data(), 2); }, "xyxy", 4 + 2048},
        {"its own middle", [](auto& b) { return b.CursorAppend(2051, b.Data() + 1, 2); }, "xyxy" + gap + "yx", 4101},
        {"full", [](auto& b) { return b.Allocate(8) && b.SetLength(8) && !b.SetLength(9); }, gap.substr(0, 8), 8}};
    PacketBuffer buffer;
    for (const auto& [name, operation, contents, capacity] : rows) {
        EXPECT_TRUE(operation(buffer) && buffer.Capacity() == capacity) << name << buffer.Capacity();
        EXPECT_EQ(Text(buffer), contents) << name;
        EXPECT_TRUE(buffer.Length() == capacity || buffer.Data()[buffer.Length()] == '\0') << name;
    }
}

TEST(Buffer, AbsurdSizesFailAndChangeNothing) {
    PacketBuffer buffer(16, "abc", 3);
    for (const int size : {LIMIT + 1, INT32_MAX, -1, INT32_MIN})
        EXPECT_FALSE(buffer.Allocate(size) || buffer.Resize(size) || buffer.SetLength(size) ||
                     buffer.Assign("x", size) || buffer.Append("x", size) || buffer.CursorAppend(size, "x", 1) ||
                     buffer.CursorAppend(1, "x", size));
    EXPECT_FALSE(buffer.Assign("x", LIMIT) || buffer.Append(nullptr, 1)); // no room for the zero byte; no bytes
    EXPECT_STREQ(buffer.Data(), "abc");
    EXPECT_TRUE(buffer.Resize(LIMIT) && !buffer.Append("x", LIMIT - 3) && buffer.SetLength(LIMIT));
    buffer.Data()[LIMIT - 1] = 'z';
    const PacketBuffer copy(buffer); // full to the last byte
    EXPECT_TRUE(copy.Length() == LIMIT && copy.Data()[LIMIT - 1] == 'z');
}

TEST(Buffer, CopiesAreDeepAndEndWithAZero) {
    PacketBuffer original(100, "abc", 3), assigned;
    assigned = original;
    assigned = *&assigned;
    const PacketBuffer constructed(original);
    const std::unique_ptr<const PacketBuffer> clone(original.Clone());
    original.Data()[0] = 'X';
    for (const PacketBuffer& copy : {std::cref(assigned), std::cref(constructed), std::cref(*clone)})
        EXPECT_TRUE(Text(copy) == "abc" && copy.Data()[3] == 0 && copy.Capacity() == 100);
    EXPECT_TRUE(original.Allocate(2) && original.SetLength(2)); // without room for one
    EXPECT_EQ(PacketBuffer(original).Capacity(), 3);
    EXPECT_EQ(PacketBuffer(8).Capacity() + PacketBuffer().Capacity(), 8);
    EXPECT_EQ(Text(PacketBuffer(PacketBuffer(1, "x", 1))) + Text(PacketBuffer(1)), "x");
    PacketBuffer one(1);
    EXPECT_TRUE(one.Capacity() == 1 && one.SetLength(1));
    one.Data()[0] = 'x';
    EXPECT_TRUE(one.Resize(5) && Text(one) == "x");
    EXPECT_EQ((assigned = PacketBuffer(50)).Capacity(), 0);
    const size_t before = mallinfo2().hblkhd; // bytes in blocks of their own, as large ones are
    EXPECT_TRUE(PacketBuffer(LIMIT).Allocate(LIMIT));
    EXPECT_EQ(mallinfo2().hblkhd, before);
}

TEST(Encryption, EveryLengthComesBackAndIsWhatOthersMakeOfIt) {
    const std::string theirs = "openssl enc -aes-256-cbc -iv 9d2e7b4a1c6f3e8d5a0b7c2e4f6a8b1d "
                               "-K 4b8e2f71a6c3d9051e7ab4f2c86d3a9e0f5b7c1d2e8a4f6b9c3d5e7a1b2c4d6e -in a.enc.txt";
    Shell("cd /opt; printf older > a.enc.txt.enc; chmod 600 a.enc.txt.enc");
    for (const int length : {1, 15, 16, 17, 31, 32, 1024, 70001}) {
        SCOPED_TRACE(length);
        Shell("seq 20000 | head -c " + std::to_string(length) + " > /opt/a.enc.txt");
        EXPECT_TRUE(Util::SaveToEnc("/opt/a.enc.txt") && Util::SaveToDec("/opt/a.enc.txt.enc"));
        Shell("cd /opt && " + theirs + " | cmp - a.enc.txt.enc && cmp a.enc.txt a.txt.enc"); // the first ".enc" goes
    }
    Shell("cd /opt; test $(stat -c %a a.enc.txt.enc) = 600 -a $(ls | wc -l) = 3"); // replaced, with its mode
}

TEST(Encryption, KeysIVsAndRefusals) {
    EncryptAes encrypt;
    DecryptAes decrypt;
    PacketBuffer bad(40, "kkkkkkkkkkkkkkkkkkkk", 20), iv(40, "iviviviviviviviv", 16), out;
    // "secret" by another implementation, with keys of k and that IV.
    const std::pair<size_t, const char*> rows[] = {{16, "1c2c22d3048a1dec221e2c3aaff687b8"},
                                                   {24, "7c9e9eb6a456c927c76cb1b3a71011c1"},
                                                   {32, "b3b63b1dcf988e66e5a4ab164d4d2f6c"}};
    EXPECT_TRUE(encrypt.SetIV(iv) && decrypt.SetIV(iv)); // once: it is not used up
    for (const auto& [length, expected] : rows) {
        PacketBuffer key(40, std::string(length, 'k').data(), static_cast<int>(length));
        ASSERT_TRUE(encrypt.SetKey(key) && decrypt.SetKey(key));
        EXPECT_FALSE(encrypt.SetKey(bad) || encrypt.SetIV(bad)); // the good ones stay
        ASSERT_TRUE(EncryptAes(encrypt).CbcEncrypt("secret", 6, out));
        EXPECT_EQ(Util::ToHex(reinterpret_cast<unsigned char*>(out.Data()), out.Length()), expected);
        EXPECT_TRUE(decrypt.CbcDecrypt(out.Data(), 16, out) && Text(out) == "secret");
    }
    const std::string longer(40, 'l'); // than a block
    EXPECT_TRUE(encrypt.CbcEncrypt(longer.data(), 40, out) && out.Length() == 48);
    EXPECT_TRUE(decrypt.CbcDecrypt(out.Data(), 48, out) && Text(out) == longer);
    EXPECT_FALSE(encrypt.CbcEncrypt("x", 0, out) || encrypt.CbcEncrypt(nullptr, 5, out) ||
                 encrypt.CbcEncrypt("x", UINT32_MAX, out) || decrypt.CbcDecrypt("0123456789abcdefg", 17, out) ||
                 decrypt.CbcDecrypt("", 0, out) || encrypt.CbcEncrypt(out.Data() + 1, 5, out));
    // A last byte above the length, for many of these: nothing is left, and that is no error.
    for (const char byte : std::string("0123456789"))
        EXPECT_TRUE(decrypt.CbcDecrypt(std::string(16, byte).data(), 16, out) && out.Length() <= 16);
}

TEST(Encryption, FilesUpToTheLimit) {
    EncryptAes aes;
    PacketBuffer out(10, "old", 3), bytes(10, "a\0b", 3), none;
    // The largest that can be encrypted, the largest that can be read, one more.
    Shell("cd /opt; truncate -s 52428799 most; truncate -s 52428800 full; truncate -s 52428801 over; "
          "touch empty; mkdir folder plain.enc small; mkfifo fifo; printf 0123456789abcdef | tee plain > link; ln -s "
          "linked link.enc");
    EXPECT_TRUE(aes.loadFileContent("/opt/empty", out) && out.Empty());
    EXPECT_TRUE(aes.loadFileContent("/opt/full", out) && out.Length() == LIMIT);
    for (const char* path : {"/opt/over", "/opt/folder", "/opt/missing", "/dev/zero", "/opt/fifo"})
        EXPECT_FALSE(aes.loadFileContent(path, out)) << path;
    ASSERT_TRUE(Util::SaveToEnc("/opt/most") && Util::SaveToDec("/opt/most.enc"));
    Shell("cmp -n 52428799 /opt/most /dev/zero");
    EXPECT_TRUE(!aes.FileCbcEncrypt("/opt/full", out) && out.Capacity() == 0); // no plaintext stays
    const Mount small("/opt/small", "size=64k");
    WriteFile("/opt/small/text", std::string(40000, 'x')); // its ciphertext does not fit
    WriteFile("/opt/small/text.enc", "older");
    Shell("cd /opt/small; ln text twice; echo older >twice.enc; ln twice.enc second"); // a rename would part them
    for (const char* path :
         {"/opt/empty", "/opt/folder", "/opt/fifo", "/opt/full", "/opt/small/text", "/opt/small/twice", "/opt/plain"})
        EXPECT_FALSE(Util::SaveToEnc(path)) << path;
    Shell("cd /opt/small; test $(ls | wc -l) = 5 -a ! -s second");
    EXPECT_TRUE(ReadFile("/opt/small/text.enc") == "older");
    EXPECT_TRUE(Util::SaveToEnc("/opt/link") && ReadFile("/opt/linked").size() == 32 &&
                !Util::SaveToDec("/opt/missing"));
    EXPECT_THROW(Util::SaveToDec("/opt/plain"), std::out_of_range);

    const mode_t mask = umask(0);
    EXPECT_TRUE(Util::SaveFile("/opt/saved", bytes) && ReadFile("/opt/saved") == Text(bytes));
    EXPECT_TRUE(Util::SaveFile("/opt/saved", none) && ReadFile("/opt/saved").empty());
    Shell("test $(stat -c %a /opt/saved) = 666");
    umask(mask);
    EXPECT_FALSE(Util::SaveFile("/opt/folder", bytes) || Util::SaveFile("/dev/full", bytes));
    EXPECT_TRUE(none.Allocate(65536) && none.SetLength(65536));
    EXPECT_FALSE(Util::SaveFile("/opt/small/much", none));
}

} // namespace
