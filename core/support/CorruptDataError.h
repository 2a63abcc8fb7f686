#pragma once

#include <stdexcept>
#include <string>

namespace brimvale {

// Thrown by every decoder of outside bytes (compressed streams, property lists, cache records)
// when the input is truncated, malformed or exceeds a limit the caller set. The message says
// what was wrong and where, for logs and the command line.
class CorruptDataError : public std::runtime_error {
public:
    explicit CorruptDataError(const std::string& what)
        : std::runtime_error(what) {}
};

} // namespace brimvale
