#include "core/persistence/cache/LocalScanCacheStem.h"

namespace brimvale::LocalScanCacheStem {
namespace {

bool isSpaceOrLineBreak(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

} // namespace

std::string stem(std::string_view remoteID, std::string_view scanPath) {
    while (!scanPath.empty() && isSpaceOrLineBreak(scanPath.front())) {
        scanPath.remove_prefix(1);
    }
    while (!scanPath.empty() && isSpaceOrLineBreak(scanPath.back())) {
        scanPath.remove_suffix(1);
    }
    if (scanPath.empty() || scanPath == "/") {
        return std::string(remoteID);
    }
    if (scanPath.front() == '/') {
        scanPath.remove_prefix(1);
    }
    std::string result(remoteID);
    result += '_';
    for (const char c : scanPath) {
        if (c == '/') {
            result += "__";
        } else {
            result += c;
        }
    }
    return result;
}

} // namespace brimvale::LocalScanCacheStem
