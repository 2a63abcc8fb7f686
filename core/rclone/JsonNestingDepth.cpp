#include "core/rclone/JsonNestingDepth.h"

#include <algorithm>

namespace brimvale {

std::size_t jsonNestingDepth(std::string_view text) {
    std::size_t depth = 0;
    std::size_t deepest = 0;
    bool inString = false;
    bool escaped = false;
    for (const char c : text) {
        if (inString) {
            if (escaped) {
                escaped = false;
            } else if (c == '\\') {
                escaped = true;
            } else if (c == '"') {
                inString = false;
            }
            continue;
        }
        switch (c) {
        case '"':
            inString = true;
            break;
        case '[':
        case '{':
            deepest = std::max(deepest, ++depth);
            break;
        case ']':
        case '}':
            depth = depth > 0 ? depth - 1 : 0;
            break;
        default:
            break;
        }
    }
    return deepest;
}

} // namespace brimvale
