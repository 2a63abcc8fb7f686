#include "core/persistence/lzfse/LzfseErrors.h"

#include "core/support/CorruptDataError.h"

namespace brimvale::lzfse {

void throwTruncated(std::string_view part, std::size_t offset) {
    throw CorruptDataError("LZFSE stream truncated in " + std::string(part) + " at offset " +
                           std::to_string(offset));
}

void throwBlockError(std::size_t blockOffset, std::string_view problem) {
    throw CorruptDataError("LZFSE stream corrupt in block at offset " +
                           std::to_string(blockOffset) + ": " + std::string(problem));
}

void throwOutputLimitExceeded(std::size_t limit) {
    throw CorruptDataError("LZFSE stream output exceeds the limit of " + std::to_string(limit) +
                           " bytes");
}

} // namespace brimvale::lzfse
