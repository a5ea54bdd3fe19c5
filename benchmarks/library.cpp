// The shared library against the system's own programs: digests of a large file in the page cache, encryption of the
// largest file that the byte buffer takes, and the hash against a plain loop of the same steps.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "benchmarks/Measure.h"
#include "common/Util.h"

using namespace qz::benchmarks;
using qz::common::Util;

namespace {

constexpr int ROUNDS = 11;
constexpr size_t MIB = 1 << 20;
const std::string FOLDER = "/opt/";

// Measures a program's wall time from its start to its end; its output goes nowhere.
double Run(std::vector<std::string> command) {
    std::vector<char*> arguments;
    for (std::string& word : command)
        arguments.push_back(&word[0]);
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    const double start = WallTime();
    pid_t child = 0;
    Require(posix_spawnp(&child, arguments[0], &files, nullptr, arguments.data(), environ) == 0, command[0]);
    int status = -1;
    waitpid(child, &status, 0);
    const double time = WallTime() - start;
    posix_spawn_file_actions_destroy(&files);
    Require(status == 0, command[0] + " failed");
    return time;
}

template <typename Work>
double Time(Work work) {
    const double start = WallTime();
    Require(work(), "the library's operation failed");
    return WallTime() - start;
}

void MakeFile(const std::string& path, size_t size) {
    FILE* file = fopen(path.c_str(), "wb");
    Require(file != nullptr, path);
    uint32_t value = 1;
    std::vector<uint32_t> piece(MIB / sizeof value);
    for (size_t left = size; left > 0;) {
        for (uint32_t& word : piece)
            word = value = value * 1664525 + 1013904223;
        const size_t count = left < MIB ? left : MIB;
        Require(fwrite(piece.data(), 1, count, file) == count, path);
        left -= count;
    }
    fclose(file);
}

void Digests(Report& report) {
    const std::string path = FOLDER + "digest";
    MakeFile(path, 256 * MIB);
    std::string hex;
    std::vector<double> md5, md5sum, sha256, openssl;
    for (int round = 0; round < ROUNDS; ++round) {
        md5.push_back(Time([&] { return Util::Md5File(path, hex); }));
        md5sum.push_back(Run({"md5sum", path}));
        sha256.push_back(Time([&] { return Util::Sha256File(path, hex); }));
        openssl.push_back(Run({"openssl", "dgst", "-sha256", path}));
    }
    report.Ratio("Md5File / md5sum, 256 MiB", md5, md5sum, 0.95);
    report.Ratio("Sha256File / openssl dgst -sha256, 256 MiB", sha256, openssl, 0.9);
    unlink(path.c_str());
}

void Encryption(Report& report) {
    const std::string path = FOLDER + "plain";
    const std::string key = "4b8e2f71a6c3d9051e7ab4f2c86d3a9e0f5b7c1d2e8a4f6b9c3d5e7a1b2c4d6e";
    const std::string iv = "9d2e7b4a1c6f3e8d5a0b7c2e4f6a8b1d";
    MakeFile(path,
             50 * MIB - 32); // encrypted it still fits the byte buffer, so that it can be decrypted again
    std::vector<double> encrypt, theirEncrypt, decrypt, theirDecrypt;
    for (int round = 0; round < ROUNDS; ++round) {
        encrypt.push_back(Time([&] { return Util::SaveToEnc(path); }));
        theirEncrypt.push_back(
            Run({"openssl", "enc", "-aes-256-cbc", "-K", key, "-iv", iv, "-in", path, "-out", FOLDER + "theirs.enc"}));
        decrypt.push_back(Time([&] { return Util::SaveToDec(FOLDER + "theirs.enc"); }));
        theirDecrypt.push_back(Run({"openssl", "enc", "-d", "-aes-256-cbc", "-K", key, "-iv", iv, "-in", path + ".enc",
                                    "-out", FOLDER + "back"}));
    }
    Run({"cmp", path, FOLDER + "back"});
    Run({"cmp", path, FOLDER + "theirs"});
    report.Ratio("SaveToEnc / openssl enc, 50 MiB", encrypt, theirEncrypt, 0.9);
    report.Ratio("SaveToDec / openssl enc -d, 50 MiB", decrypt, theirDecrypt, 1.3);
}

// The steps of the hash's four-byte blocks and of its end, for lengths that are a multiple of four.  Called like a
// library's function: what the compiler knows of it must not shorten the measurement.
__attribute__((noipa)) uint32_t PlainLoop(const char* data, uint32_t length) {
    uint32_t hash = length;
    for (uint32_t at = 0; at < length; at += 4) {
        uint16_t low;
        uint16_t high;
        __builtin_memcpy(&low, data + at, 2);
        __builtin_memcpy(&high, data + at + 2, 2);
        hash += low;
        hash = (hash << 16) ^ ((static_cast<uint32_t>(high) << 11) ^ hash);
        hash += hash >> 11;
    }
    hash ^= hash << 3;
    hash += hash >> 5;
    hash ^= hash << 4;
    hash += hash >> 17;
    hash ^= hash << 25;
    hash ^= hash << 6;
    return hash;
}

void Hash(Report& report) {
    const std::string data(MIB, 'h');
    std::vector<double> ours, plain, speed;
    uint32_t sums[2] = {};
    for (int round = 0; round < 101; ++round) {
        double start = WallTime();
        for (int i = 0; i < 8; ++i)
            sums[0] += Util::SuperFastHash(data.data(), static_cast<unsigned>(data.size()));
        ours.push_back(WallTime() - start);
        speed.push_back(8.0 * static_cast<double>(data.size()) / ours.back() / 1000);
        start = WallTime();
        for (int i = 0; i < 8; ++i)
            sums[1] += PlainLoop(data.data(), static_cast<uint32_t>(data.size()));
        plain.push_back(WallTime() - start);
    }
    Require(sums[0] == sums[1], "the two hashes differ");
    report.Ratio("SuperFastHash / plain loop, 8 x 1 MiB", ours, plain, 1.05);
    report.Plain("SuperFastHash", speed, "GB/s");
}

} // namespace

int main() {
    Report report("Shared library");
    Digests(report);
    Encryption(report);
    Hash(report);
    return report.Status();
}
