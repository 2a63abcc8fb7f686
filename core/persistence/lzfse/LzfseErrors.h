#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Errors of the LZFSE decoders. Every message names the stream offset where the problem was
// found, so a damaged cache file can be examined with a hex viewer.

namespace brimvale::lzfse {

// "LZFSE stream truncated in <part> at offset <offset>"
[[noreturn]] void throwTruncated(std::string_view part, std::size_t offset);

// "LZFSE stream corrupt in block at offset <offset>: <problem>"
[[noreturn]] void throwBlockError(std::size_t blockOffset, std::string_view problem);

// "LZFSE stream output exceeds the limit of <limit> bytes"
[[noreturn]] void throwOutputLimitExceeded(std::size_t limit);

} // namespace brimvale::lzfse
