// Decompresses arbitrary bytes: every input must decode within the limit or end in
// CorruptDataError, without crashes, sanitizer reports or large allocations.

#include "core/persistence/lzfse/Lzfse.h"
#include "core/support/CorruptDataError.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

namespace {
constexpr std::size_t kOutputLimit = 4 << 20;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        const auto output = brimvale::lzfseDecompress(std::span(data, size), kOutputLimit);
        if (output.size() > kOutputLimit) {
            std::abort();
        }
    } catch (const brimvale::CorruptDataError&) {
    }
    return 0;
}
