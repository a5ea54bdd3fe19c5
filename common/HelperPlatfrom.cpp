// Times and character widths of other systems.  Tested in tests/common/LibraryTestText.cpp.
#include "common/HelperPlatfrom.h"

#include <cstdint>
#include <cstring>

namespace qz::common {

namespace {

constexpr long long TICKS_PER_SECOND = 10000000; // of 100 ns
constexpr long long SECONDS_1601_TO_1970 = 11644473600;
constexpr size_t UNIT = 2; // bytes

} // namespace

bool HelperPlatfrom::IsLittleEndian() {
    return true;
}

int HelperPlatfrom::WinFileTimeToUnixTime(long long fileTime) {
    if (fileTime <= 0)
        return 0;
    return static_cast<int>(static_cast<uint32_t>(fileTime / TICKS_PER_SECOND - SECONDS_1601_TO_1970));
}

long long HelperPlatfrom::UnixTimeToWinFileTime(int time) {
    return time <= 0 ? 0 : (time + SECONDS_1601_TO_1970) * TICKS_PER_SECOND;
}

bool HelperPlatfrom::UnixToWinWcharBytes(const wchar_t* src, int count, short* dst) {
    if (!src || !dst)
        return false;
    for (int i = 0; i < count; ++i)
        memcpy(dst + i, src + i, UNIT);
    return true;
}

const void* HelperPlatfrom::WinToUnixWcharBytes(const short* src, int count, wchar_t* dst) {
    if (!src || !dst)
        return nullptr;
    if (count < 1)
        return src;
    for (int i = 0; i < count; ++i)
        memcpy(dst + i, src + i, UNIT);
    return dst;
}

} // namespace qz::common
