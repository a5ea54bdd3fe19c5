// Texts.  Trim to Dump.  Tested in tests/common/UtilTest.cpp.
#include "common/Util.h"

#include <cctype>
#include <cstdint>
#include <cstdio>

#include "common/PathConstants.h"

namespace qz::common {

namespace {

bool IsSpace(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

bool BeginsWith(const std::string& text, const std::string& start) {
    return text.compare(0, start.size(), start) == 0;
}

} // namespace

void Util::Rtrim(std::string& text) {
    size_t end = text.size();
    while (end > 0 && IsSpace(text[end - 1]))
        --end;
    text.erase(end);
}

void Util::Ltrim(std::string& text) {
    size_t start = 0;
    while (start < text.size() && IsSpace(text[start]))
        ++start;
    text.erase(0, start);
}

std::string& Util::Trim(std::string& text) {
    Rtrim(text);
    Ltrim(text);
    return text;
}

void Util::StringSplit(std::string text, std::string delimiter, std::vector<std::string>& out) {
    size_t start = 0;
    if (!delimiter.empty()) {
        for (size_t end; (end = text.find(delimiter, start)) != std::string::npos; start = end + delimiter.size())
            out.push_back(text.substr(start, end - start));
    }
    out.push_back(text.substr(start));
}

std::string Util::ReplaceAll(std::string& text, const std::string& from, const std::string& to) {
    if (from.empty())
        return text;
    // Into a text of its own: from and to may be text itself.
    std::string replaced;
    size_t start = 0;
    for (size_t at; (at = text.find(from, start)) != std::string::npos; start = at + from.size())
        replaced.append(text, start, at - start).append(to);
    replaced.append(text, start, std::string::npos);
    text = replaced;
    return replaced;
}

std::string Util::ReplaceTrim(const std::string& text, std::string chars) {
    const size_t start = text.find_first_not_of(chars);
    return start == std::string::npos ? "" : text.substr(start);
}

std::string Util::GetRemoveVirtualPath(const std::string& path) {
    static const std::string prefix = "<:..ROOT..:>";
    return BeginsWith(path, prefix) ? path.substr(prefix.size()) : path;
}

std::string Util::MakeRequestUrl(const std::string& host, int port, const std::string& path) {
    std::string url;
    if (!BeginsWith(host, "https://") && !BeginsWith(host, "http://"))
        url = port == 443 ? "https://" : "http://";
    url += host;
    if (port != 80 && port != 443)
        url += ":" + std::to_string(port);
    return url + path;
}

void Util::Dump(const char* data, int length, std::string& out) {
    constexpr int PER_LINE = 16;
    out = "\n * Total Length:" + std::to_string(length) + "\n";
    if (!data)
        return;
    for (int64_t offset = 0; offset < length; offset += PER_LINE) {
        char field[16];
        snprintf(field, sizeof field, "0x%04X  ", static_cast<unsigned>(offset));
        std::string hex = field;
        std::string characters;
        for (int i = 0; i < PER_LINE; ++i) {
            const bool gap = i == 0 || i == 8;
            if (gap)
                hex += ' ';
            if (i >= length - offset) {
                hex += "   "; // keeps the character columns of all lines below each other
                continue;
            }
            const auto byte = static_cast<unsigned char>(data[offset + i]);
            snprintf(field, sizeof field, "%02X ", byte);
            hex += field;
            if (gap)
                characters += ' ';
            characters += byte < 0x80 && std::isprint(byte) ? static_cast<char>(byte) : '.';
        }
        out += hex + " | " + characters + "\n";
    }
}

} // namespace qz::common
