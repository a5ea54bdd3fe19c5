// Identifiers and random numbers.  Tested in tests/common/LibraryTestText.cpp.
#include "common/Util.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <random>

namespace qz::common {

namespace {

constexpr int UUID_BYTES = 16;
constexpr size_t DASHED_LENGTH = 35; // characters: one less than the format gives, as in all identifiers issued so far

void DropLast(std::string& text) {
    if (!text.empty())
        text.pop_back();
}

// A generator of its own for every draw, seeded by the system's random device.
std::mt19937 FreshGenerator() {
    std::random_device device("default");
    return std::mt19937(device());
}

} // namespace

unsigned long long Util::Htonll(unsigned long long value) {
    return __builtin_bswap64(value);
}

unsigned long long Util::Ntohll(unsigned long long value) {
    return __builtin_bswap64(value);
}

std::string Util::FmtUuid(char* bytes, bool compact) {
    if (!bytes)
        return "";
    const auto* b = reinterpret_cast<const unsigned char*>(bytes);
    const uint32_t first =
        static_cast<uint32_t>(b[0]) << 24 | static_cast<uint32_t>(b[1]) << 16 | static_cast<uint32_t>(b[2]) << 8 | b[3];
    const unsigned second = static_cast<unsigned>(b[4]) << 8 | b[5];
    const unsigned third = static_cast<unsigned>(b[6]) << 8 | b[7];
    // Bytes 10 to 15 have never reached the text; the identifiers that the appliance has issued end in zeros.
    char text[sizeof "00000000-0000-0000-0000-000000000000"];
    snprintf(text, sizeof text,
             compact ? "%08X%04X%04X%02X%02X%02X%02X%02X%02X%02X%02X"
                     : "%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X",
             first, second, third, b[8], b[9], 0, 0, 0, 0, 0, 0);
    return compact ? std::string(text) : std::string(text, DASHED_LENGTH);
}

std::string Util::GenerateRandGuid(bool compact) {
    srand(static_cast<unsigned>(time(nullptr)));
    char bytes[UUID_BYTES];
    for (char& byte : bytes)
        byte = static_cast<char>(rand() & 0xFF);
    return FmtUuid(bytes, compact);
}

std::string Util::GenerateRandGuidMt(bool compact) {
    char bytes[UUID_BYTES];
    for (char& byte : bytes)
        byte = static_cast<char>(FreshGenerator()() & 0xFF);
    return FmtUuid(bytes, compact);
}

int Util::GenerateRandomRange(int low, int high) {
    if (low > high)
        return low;
    std::mt19937 generator = FreshGenerator();
    const uint32_t range = static_cast<uint32_t>(high) - static_cast<uint32_t>(low);
    uint32_t value = static_cast<uint32_t>(generator());
    if (range < UINT32_MAX) {
        const uint32_t scale = UINT32_MAX / (range + 1);
        const uint32_t limit = scale * (range + 1);
        while (value >= limit)
            value = static_cast<uint32_t>(generator());
        value /= scale;
    }
    return static_cast<int>(value + static_cast<uint32_t>(low));
}

std::string Util::GenerateUrandGuid() {
    std::string text =
        PopenCommand("od -N 16 -x /dev/urandom | head -1 | awk '{OFS=\"-\"; print $2$3,$4,$5,$6,$7$8$9}'");
    DropLast(text);
    text = PopenCommand("echo " + text + " | tr [:lower:] [:upper:] | sed 's/-//g'");
    DropLast(text);
    // The line end has gone by now, so this takes a digit: 31 are left.
    if (text.find('\n') != 0)
        DropLast(text);
    return text;
}

} // namespace qz::common
