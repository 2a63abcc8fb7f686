#include "core/model/NodeID.h"

#include <atomic>
#include <cstdio>
#include <random>

namespace brimvale {
namespace {

std::uint64_t processHalf() {
    static const std::uint64_t half = [] {
        std::random_device source;
        const std::uint64_t random = (std::uint64_t{source()} << 32) ^ source();
        // Version 4 in the version nibble, as a random UUID has.
        return (random & ~std::uint64_t{0xF000}) | 0x4000;
    }();
    return half;
}

} // namespace

namespace detail {

std::uint64_t nextNodeSerial() {
    static std::atomic<std::uint64_t> counter{0}; // node identities handed out so far
    return counter.fetch_add(1, std::memory_order_relaxed) + 1;
}

NodeID nodeIDFromSerial(std::uint64_t serial) {
    // The RFC 4122 variant in the top two bits of the low half.
    return NodeID{processHalf(),
                  (std::uint64_t{2} << 62) | (serial & ((std::uint64_t{1} << 62) - 1))};
}

} // namespace detail

NodeID NodeID::next() {
    return detail::nodeIDFromSerial(detail::nextNodeSerial());
}

std::string NodeID::uuidString() const {
    char text[37];
    std::snprintf(text, sizeof text, "%08x-%04x-%04x-%04x-%012llx",
                  static_cast<unsigned>(high >> 32), static_cast<unsigned>(high >> 16 & 0xFFFF),
                  static_cast<unsigned>(high & 0xFFFF), static_cast<unsigned>(low >> 48),
                  static_cast<unsigned long long>(low & 0xFFFF'FFFF'FFFFULL));
    return text;
}

} // namespace brimvale
