#pragma once

namespace qz::common {

// Times and character widths of other systems.  Static, no state, any thread.  (The spelling is the interface.)
class HelperPlatfrom {
public:
    // Always true: every board of the appliance is.
    static bool IsLittleEndian();

    // 100 ns since 1601 to seconds since 1970, cut to 32 bits; 0 for 0 and less.
    static int WinFileTimeToUnixTime(long long fileTime);

    // The other way; 0 for 0 and less.
    static long long UnixTimeToWinFileTime(int time);

    // Copies the lower two bytes of count 4-byte characters into consecutive 2-byte units.  False for a null pointer;
    // nothing is copied for a count below 1.
    static bool UnixToWinWcharBytes(const wchar_t* src, int count, short* dst);

    // Copies count 2-byte units into the lower two bytes of consecutive 4-byte characters and leaves their upper two
    // bytes as they are.  Returns null for a null pointer, src for a count below 1, else dst.
    static const void* WinToUnixWcharBytes(const short* src, int count, wchar_t* dst);
};

} // namespace qz::common
