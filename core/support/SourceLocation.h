#pragma once

namespace brimvale {

// Where a call was written, filled in by default arguments. A stand-in for std::source_location,
// which clang 14 with libstdc++ 12 (the fuzzing toolchain) does not provide.
struct SourceLocation {
    const char* file = "";
    unsigned line = 0;

    static constexpr SourceLocation current(const char* file = __builtin_FILE(),
                                            unsigned line = __builtin_LINE()) {
        return SourceLocation{file, line};
    }
};

} // namespace brimvale
