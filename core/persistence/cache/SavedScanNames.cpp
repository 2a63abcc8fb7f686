#include "core/persistence/cache/SavedScanNames.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace brimvale::SavedScanNames {
namespace {

constexpr std::size_t kLongestPlainStem = 120;
constexpr std::size_t kAccountPrefixBytes = 48;
constexpr std::size_t kFolderPrefixBytes = 64;

bool isUnsafe(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F || c == '/' || c == ':' || c == '~' || c == '\\';
}

std::string escapedID(std::string_view accountID) {
    std::string escaped;
    escaped.reserve(accountID.size());
    for (const char c : accountID) {
        if (c == '%') {
            escaped += "%25";
        } else if (c == ':') {
            escaped += "%3A";
        } else {
            escaped += c;
        }
    }
    return escaped;
}

bool isPlain(std::string_view key) {
    return !key.empty() && key.size() <= kLongestPlainStem && key.front() != '.' &&
           std::none_of(key.begin(), key.end(), isUnsafe);
}

// At most `limit` bytes of `text` with unsafe characters (and a leading ".") as "_"; never cut
// inside a UTF-8 sequence.
std::string readablePrefix(std::string_view text, std::size_t limit) {
    if (text.size() > limit) {
        std::size_t cut = limit;
        while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) {
            --cut;
        }
        text = text.substr(0, cut);
    }
    std::string readable(text);
    std::replace_if(readable.begin(), readable.end(), isUnsafe, '_');
    if (!readable.empty() && readable.front() == '.') {
        readable.front() = '_';
    }
    return readable;
}

std::uint64_t fnv1a(std::string_view text) {
    std::uint64_t hash = 0xcbf29ce484222325ULL;
    for (const char c : text) {
        hash ^= static_cast<unsigned char>(c);
        hash *= 0x100000001b3ULL;
    }
    return hash;
}

std::string_view trimmed(std::string_view text) {
    const auto isSpace = [](char c) {
        return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
    };
    while (!text.empty() && isSpace(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isSpace(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

} // namespace

std::string accountKey(std::string_view accountID) {
    return escapedID(accountID);
}

std::string folderKey(std::string_view accountID, std::string_view folderPath) {
    folderPath = trimmed(folderPath);
    if (folderPath.empty() || folderPath == "/") {
        return accountKey(accountID);
    }
    std::string key = accountKey(accountID);
    key += ':';
    if (folderPath.front() != '/') {
        key += '/';
    }
    key += folderPath;
    return key;
}

std::string fileStem(std::string_view key) {
    if (isPlain(key)) {
        return std::string(key);
    }
    const auto colon = key.find(':');
    const std::string_view account = key.substr(0, colon);
    std::string_view folder =
        colon == std::string_view::npos ? std::string_view() : key.substr(colon + 1);
    while (!folder.empty() && folder.front() == '/') {
        folder.remove_prefix(1);
    }
    char hash[17];
    std::snprintf(hash, sizeof hash, "%016llx", static_cast<unsigned long long>(fnv1a(key)));
    return readablePrefix(account, kAccountPrefixBytes) + "~" +
           readablePrefix(folder, kFolderPrefixBytes) + "~" + hash;
}

bool isHashedStem(std::string_view stem) {
    return std::count(stem.begin(), stem.end(), '~') == 2;
}

bool keyBelongsToAccount(std::string_view key, std::string_view accountID) {
    const std::string own = accountKey(accountID);
    return key == own ||
           (key.size() > own.size() && key.starts_with(own) && key[own.size()] == ':');
}

bool stemMayBelongToAccount(std::string_view stem, std::string_view accountID) {
    const std::string own = accountKey(accountID);
    if (stem == fileStem(own)) {
        return true;
    }
    return isHashedStem(stem) && stem.starts_with(readablePrefix(own, kAccountPrefixBytes) + "~");
}

} // namespace brimvale::SavedScanNames
