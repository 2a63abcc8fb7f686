#include "core/support/FatalError.h"

#include <cstdio>
#include <cstdlib>

namespace brimvale {

void fatalError(std::string_view message, SourceLocation where) {
    std::fprintf(stderr, "brimvale: fatal error: %.*s (%s:%u)\n", static_cast<int>(message.size()),
                 message.data(), where.file, where.line);
    std::fflush(stderr);
    std::abort();
}

} // namespace brimvale
