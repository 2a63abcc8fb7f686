#include "core/local/MountTable.h"

#include <charconv>
#include <fstream>
#include <iterator>

namespace brimvale::MountTable {
namespace {

std::vector<std::string_view> splitFields(std::string_view line) {
    std::vector<std::string_view> fields;
    std::size_t start = 0;
    while (start < line.size()) {
        const std::size_t end = line.find(' ', start);
        const std::size_t stop = end == std::string_view::npos ? line.size() : end;
        if (stop > start) {
            fields.push_back(line.substr(start, stop - start));
        }
        start = stop + 1;
    }
    return fields;
}

bool parseDeviceNumbers(std::string_view field, MountEntry& entry) {
    const std::size_t colon = field.find(':');
    if (colon == std::string_view::npos) {
        return false;
    }
    const char* end = field.data() + field.size();
    const auto major = std::from_chars(field.data(), field.data() + colon, entry.major);
    const auto minor = std::from_chars(field.data() + colon + 1, end, entry.minor);
    return major.ec == std::errc() && major.ptr == field.data() + colon &&
           minor.ec == std::errc() && minor.ptr == end;
}

bool isOctalDigit(char c) {
    return c >= '0' && c <= '7';
}

} // namespace

std::string decodeOctalEscapes(std::string_view field) {
    std::string decoded;
    decoded.reserve(field.size());
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (field[i] == '\\' && i + 3 < field.size() && isOctalDigit(field[i + 1]) &&
            isOctalDigit(field[i + 2]) && isOctalDigit(field[i + 3])) {
            const int value =
                (field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 + (field[i + 3] - '0');
            if (value < 256) {
                decoded.push_back(static_cast<char>(value));
                i += 3;
                continue;
            }
        }
        decoded.push_back(field[i]);
    }
    return decoded;
}

std::vector<MountEntry> parseMountInfo(std::string_view text) {
    std::vector<MountEntry> entries;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = text.find('\n', start);
        if (end == std::string_view::npos) {
            end = text.size();
        }
        const auto fields = splitFields(text.substr(start, end - start));
        start = end + 1;
        // id parent major:minor root mountpoint options [optional…] - type source superoptions
        std::size_t separator = 6;
        while (separator < fields.size() && fields[separator] != "-") {
            ++separator;
        }
        if (separator + 2 >= fields.size()) {
            continue;
        }
        MountEntry entry;
        if (!parseDeviceNumbers(fields[2], entry)) {
            continue;
        }
        entry.root = decodeOctalEscapes(fields[3]);
        entry.mountPoint = decodeOctalEscapes(fields[4]);
        entry.fileSystemType = decodeOctalEscapes(fields[separator + 1]);
        entry.source = decodeOctalEscapes(fields[separator + 2]);
        if (separator + 3 < fields.size()) {
            entry.superOptions = decodeOctalEscapes(fields[separator + 3]);
        }
        entries.push_back(std::move(entry));
    }
    return entries;
}

std::vector<MountEntry> readCurrent() {
    std::ifstream file("/proc/self/mountinfo");
    if (!file) {
        return {};
    }
    const std::string text((std::istreambuf_iterator<char>(file)),
                           std::istreambuf_iterator<char>());
    return parseMountInfo(text);
}

} // namespace brimvale::MountTable
