#pragma once

#include <cstddef>
#include <string_view>

namespace brimvale {

// The deepest nesting of arrays and objects in JSON text (brackets inside strings do not
// count), measured without parsing. Decoders that walk or print a parsed value recursively
// refuse text nested deeper than they allow, so outside bytes cannot exhaust the stack.
// Pure: safe on any thread.
std::size_t jsonNestingDepth(std::string_view text);

// The nesting the configuration decoders accept; real rclone output nests two or three levels.
inline constexpr std::size_t kMaximumConfigJsonNesting = 64;

} // namespace brimvale
