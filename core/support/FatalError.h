#pragma once

#include "core/support/SourceLocation.h"

#include <cstdint>
#include <string_view>

namespace brimvale {

// Ends the process with a message on standard error. Used for broken invariants that the
// program cannot continue past, such as a byte-count sum that would overflow: a wrapped size
// would silently show a wrong tree, which is worse than stopping.
[[noreturn]] void fatalError(std::string_view message,
                             SourceLocation where = SourceLocation::current());

// a + b, or a fatal error naming `what` when the sum does not fit in 64 bits.
inline std::int64_t checkedAdd(std::int64_t a, std::int64_t b, std::string_view what,
                               SourceLocation where = SourceLocation::current()) {
    std::int64_t sum = 0;
    if (__builtin_add_overflow(a, b, &sum)) {
        fatalError(what, where);
    }
    return sum;
}

} // namespace brimvale
