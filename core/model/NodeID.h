#pragma once

#include <compare>
#include <cstdint>
#include <string>

namespace brimvale {

// The identity of one node instance for lists and selection, shaped as a UUID: a random
// per-process half and a counter, so every node made in a process has its own and a node
// rebuilt from the cache gets a new one. Eight bytes per node instead of sixteen.
struct NodeID {
    std::uint64_t high = 0;
    std::uint64_t low = 0;

    // A fresh identity; thread safe.
    static NodeID next();
    // The canonical 8-4-4-4-12 lower-case hexadecimal form.
    std::string uuidString() const;

    friend auto operator<=>(const NodeID&, const NodeID&) = default;
};

namespace detail {
std::uint64_t nextNodeSerial();
NodeID nodeIDFromSerial(std::uint64_t serial);
} // namespace detail

} // namespace brimvale
