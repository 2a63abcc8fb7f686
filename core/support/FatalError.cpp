#include "core/support/FatalError.h"

#include <cstdio>
#include <cstdlib>

namespace brimvale {

void fatalError(std::string_view message, std::source_location where) {
    std::fprintf(stderr, "brimvale: fatal error: %.*s (%s:%u)\n", static_cast<int>(message.size()),
                 message.data(), where.file_name(), static_cast<unsigned>(where.line()));
    std::fflush(stderr);
    std::abort();
}

} // namespace brimvale
