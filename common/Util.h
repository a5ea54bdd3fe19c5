#pragma once

#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace qz::common {

class PacketBuffer;

// By number from 0.
enum class FileObjectType : int {
    REGULAR,
    DIRECTORY,
    SYMBOLIC_LINK,
    CHARACTER_DEVICE,
    BLOCK_DEVICE,
    FIFO,
    SOCKET,
    OTHER
};

// Which half of the four-character build field GetVersion keeps; by number from 0.
enum class VersionType : int { BUILD_SECOND_HALF, BUILD_FIRST_HALF };

// The appliance's static helpers, one source file per topic in common/util.
//
// Failures are results (an empty text, false, -1), never exceptions, unless an operation says otherwise.  All
// operations may be called from any thread; those that run a command or change the process as a whole say so.  What is
// pasted into a shell command is marked "trusted": it must never come from outside the appliance.
class Util {
public:
    // --- util/Commands.cpp: shell commands and their output.  The command is trusted.

    // The first output line, at most 1023 bytes, its line end included; "" when the command cannot be started or prints
    // nothing.  Waits for the command to end.
    static std::string PopenCommand(const std::string& cmd);

    // Every output line, line ends included; a line above 1023 bytes comes in pieces.
    static std::vector<std::string> PopenListCommand(const std::string& cmd);

    // Output lines until the text gathered so far contains "mipi inform" or the output ends.
    static std::string PopenNetworkCommand(const std::string& cmd);

    // --- util/Text.cpp

    // Erase white space (isspace) at the end, at the start, at both; Trim returns its argument.
    static void Rtrim(std::string& text);
    static void Ltrim(std::string& text);
    static std::string& Trim(std::string& text);

    // Appends the pieces between the delimiters to out, the rest after the last one included.  An empty delimiter
    // appends the whole text.
    static void StringSplit(std::string text, std::string delimiter, std::vector<std::string>& out);

    // Replaces every occurrence in text itself, scanning on after what was put in, and returns a copy.  An empty search
    // text changes nothing.
    static std::string ReplaceAll(std::string& text, const std::string& from, const std::string& to);

    // The text from its first character that is not one of chars; empty when there is none.
    static std::string ReplaceTrim(const std::string& text, std::string chars);

    // The path without a leading "<:..ROOT..:>".
    static std::string GetRemoveVirtualPath(const std::string& path);

    // scheme://host[:port]path.  A scheme that the host carries is kept, else port 443 gives https and any other http;
    // the ports 80 and 443 are not written.
    static std::string MakeRequestUrl(const std::string& host, int port, const std::string& path);

    // Replaces out by a hex dump: a line with the length, then one line per 16 bytes with offset, bytes and characters.
    // Every line ends with a newline.
    static void Dump(const char* data, int length, std::string& out);

    // --- util/Files.cpp

    // True when the directory was made or the name was there already.
    static bool MakeDir(const std::string& path, int mode);

    // Makes every missing directory along the path, each with the same mode (less the umask); true when the whole path
    // is a directory afterwards.
    static bool MakeDirs(const std::string& path, int mode);

    // The parts of the absolute path, with "." and relative paths resolved against the working directory, ".." taken
    // back by name and empty parts left out.  False, with no parts, when there is no working directory to resolve
    // against.
    static bool MakeRealPath(const std::string& path, std::vector<std::string>& parts);

    // None of these three follows a symbolic link.
    static bool IsDirectory(const std::string& path);
    static bool GetFileType(const std::string& path, FileObjectType& type);

    // Whole seconds since the last modification, -1 with a false result.
    static bool GetFileChangeDuration(const std::string& path, long& seconds);

    // --- util/SaveFile.cpp

    // Writes the buffer's bytes to the file, created or truncated.  False when it was not opened, written and closed
    // without an error; an empty buffer makes an empty file.
    static bool SaveFile(std::string path, PacketBuffer& data);

    // --- util/System.cpp

    // Whole milliseconds from then to now; negative when the clock was set back.
    static long long GetTimeDiffMilliSec(const std::chrono::system_clock::time_point& since);

    // The local time as YYYY-MM-DD HH:MM:SS.mmm, as in the log.
    static std::string GetTimeStr();

    // The version file's first line, its four-character build field cut to the half that type names: "1.2.3.0407" gives
    // "1.2.3.04" for the first half and "1.2.3.07" for the second.  A line of another shape is returned as it is; ""
    // when there is none.
    static std::string GetVersion(VersionType type);

    // What lsb_release prints for the option letter (0 for none), trimmed; "" where it is not installed. Runs a
    // command; the option is trusted.
    static std::string LsbRelease(char option);

    // Whether /proc/mounts mentions the path.  Runs a command; the path is trusted, and a regular expression.
    static bool IsMounted(const std::string& path);

    // Bytes of the file system mounted at path.  False, with the outputs untouched, when df lists no such mount point.
    // Runs a command; the path is trusted.
    static bool GetDiskSpace(const std::string& path, long long& total, long long& used, long long& available);

    // Closes every descriptor of the process but 0, 1 and 2, whoever owns it: for a freshly forked child.
    static void CloseAllFDsProcess();

    // --- util/Threads.cpp

    // Joins the thread.  0: it ended within the time; 1: it took longer, but it has ended now; 2: null or not joinable.
    // Always returns with the thread joined.
    static int WaitForJoin(std::thread* thread, int milliseconds);

    // --- util/ProcessId.cpp: pid and lock files; see Process for their use.

    // Opens (and creates) the file and takes an exclusive lock without waiting.  The descriptor, which holds the lock
    // and belongs to the caller, or -1.  What is no regular file, a symbolic link too, is refused.
    static int FileLock(std::string path);

    // Writes the own pid in decimal.  0, or -1 after a line on standard output.
    static int LogPID(std::string path);

    // The number in the file; 0 when it cannot be read, holds none, or one that is no int.  It may be negative:
    // AlivePID and KillPID take nothing below 1.
    static int ReadPID(std::string path);

    // Whether the pid belongs to a live process of that name (any name when empty).  The kernel keeps 15 characters of
    // a process name, so only the first 15 are compared.
    static bool AlivePID(int pid, std::string name);

    // SIGTERM, then SIGKILL after each 5 seconds, until the process has gone (a zombie has).  False for a pid below 1
    // and when even SIGKILL is refused.  Takes at least a second.
    static bool KillPID(int pid);

    // --- util/Digests.cpp

    // Lower-case hexadecimal text, two characters per byte; empty for a null pointer or a count below 1.
    static std::string ToHex(const unsigned char* bytes, int count);

    // The digest of the data as hexadecimal text; the raw digest (16 or 32 bytes) goes to digest, which the caller
    // provides.
    static std::string Md5Hash(const unsigned char* data, unsigned int length, unsigned char* digest);
    static std::string Sha256Hash(const unsigned char* data, unsigned int length, unsigned char* digest);

    // The digest of a file's contents.  False, with hex emptied, when it cannot be opened or read.
    static bool Md5File(const std::string& path, std::string& hex);
    static bool Sha256File(const std::string& path, std::string& hex);

    // A fast 32-bit hash, for tables and not for secrets.  It differs from the published function of this name in two
    // steps, which the appliance's stored values depend on.  0 for null data or length 0.
    static unsigned int SuperFastHash(const char* data, unsigned int length);

    // --- util/Identifiers.cpp

    // The value with its eight bytes reversed.
    static unsigned long long Htonll(unsigned long long value);
    static unsigned long long Ntohll(unsigned long long value);

    // The identifier text of 16 bytes, of which the last six never reach the text: 32 upper-case digits, or 35
    // characters with dashes.  Both as the appliance has always issued them.
    static std::string FmtUuid(char* bytes, bool compact);

    // From rand, reseeded with the time on every call: two calls within a second give the same identifier.  Changes the
    // process's rand sequence.
    static std::string GenerateRandGuid(bool compact);

    // From a Mersenne twister seeded by the system's random device.
    static std::string GenerateRandGuidMt(bool compact);

    // From /dev/urandom, 31 upper-case digits.  Runs commands.
    static std::string GenerateUrandGuid();

    // A uniformly drawn integer in [low, high]; low when low is above high.
    static int GenerateRandomRange(int low, int high);

    // --- util/Encryption.cpp: with the built-in key and IV of EncryptAes and DecryptAes

    // Encrypts the file to path + ".enc".
    static bool SaveToEnc(std::string path);

    // Decrypts the file to the path with its first ".enc" removed, wherever in the path that stands.  Throws
    // std::out_of_range for a path without one.
    static bool SaveToDec(std::string path);

    // --- util/Display.cpp: finds the desktop user's X display for a process started by the system.  All run
    // commands; key is trusted.  The Set operations change the environment: only while no other thread reads it.

    // The value of the first environment entry that starts with key, among the processes of users logged in locally,
    // and among all processes.  "" when there is none.
    static std::string GetEnvironmentWho(const std::string& key);
    static std::string GetEnvironmentPs(const std::string& key);

    // The argument of the running X server's -auth option; "" when there is none.
    static std::string GetProcessXauth();

    // The authority file of the installed display manager.
    static std::string GetDefaultXAuthPath();

    // Set DISPLAY and XAUTHORITY and allow root on the display; true when xhost answered.  They look at logged-in
    // users, at all processes and the X server, and at the newest X socket.  What was set before a failure stays set.
    static bool SetEnvironmentWhoX();
    static bool SetEnvironmentPsX();
    static bool SetEnvironmentX();
};

} // namespace qz::common
