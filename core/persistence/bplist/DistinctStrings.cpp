#include "core/persistence/bplist/DistinctStrings.h"

#include "core/persistence/bplist/LargeAllocation.h"

#include <bit>
#include <cstring>
#include <stdexcept>

namespace brimvale::bplist {
namespace {

// A fast 32-bit hash for short strings (file names), 8 bytes at a time.
std::uint32_t hashBytes(std::string_view s) {
    const char* p = s.data();
    std::size_t n = s.size();
    std::uint64_t h = 0x9E3779B97F4A7C15ULL * (n + 1);
    const auto add = [&h](std::uint64_t chunk) {
        h = std::rotl(h ^ (chunk * 0xBF58476D1CE4E5B9ULL), 29) * 0x94D049BB133111EBULL;
    };
    while (n >= 8) {
        std::uint64_t chunk;
        std::memcpy(&chunk, p, 8);
        add(chunk);
        p += 8;
        n -= 8;
    }
    if (n > 0) {
        std::uint64_t chunk = 0;
        std::memcpy(&chunk, p, n);
        add(chunk);
    }
    h ^= h >> 29;
    h *= 0xD6E8FEB86659FD93ULL;
    return static_cast<std::uint32_t>(h >> 32);
}

// Open addressing with linear probing, kept at most half full. A slot holds a string's hash in
// its high half and its id + 1 in its low half (0: empty): the hash picks the slot, settles most
// mismatches without comparing strings, and lets the table grow without hashing again.
class IdTable {
public:
    IdTable()
        : slots_(64, 0)
        , mask_(63) {}

    void prefetch(std::uint32_t hash) const { __builtin_prefetch(&slots_[hash & mask_]); }

    // The id stored for a string equal to `s`, or `newId` after storing it.
    template <class Equal>
    std::uint32_t findOrAdd(std::uint32_t hash, std::uint32_t newId, Equal&& equalToId) {
        std::size_t slot = hash & mask_;
        for (;;) {
            const std::uint64_t entry = slots_[slot];
            if (entry == 0) {
                slots_[slot] = (std::uint64_t{hash} << 32) | (newId + 1);
                if (++size_ * 2 > slots_.size()) {
                    grow();
                }
                return newId;
            }
            if (static_cast<std::uint32_t>(entry >> 32) == hash) {
                const auto id = static_cast<std::uint32_t>(entry) - 1;
                if (equalToId(id)) {
                    return id;
                }
            }
            slot = (slot + 1) & mask_;
        }
    }

private:
    void grow() {
        std::vector<std::uint64_t> old;
        reserveLarge(old, slots_.size() * 2);
        old.resize(slots_.size() * 2, 0);
        old.swap(slots_);
        mask_ = slots_.size() - 1;
        for (const std::uint64_t entry : old) {
            if (entry != 0) {
                std::size_t slot = static_cast<std::size_t>(entry >> 32) & mask_;
                while (slots_[slot] != 0) {
                    slot = (slot + 1) & mask_;
                }
                slots_[slot] = entry;
            }
        }
    }

    std::vector<std::uint64_t> slots_;
    std::size_t mask_;
    std::size_t size_ = 0;
};

} // namespace

DistinctStrings findDistinctStrings(const StringColumnView& column) {
    if (column.size() >= 0xFFFFFFFFu) {
        throw std::length_error("string column of " + std::to_string(column.size()) +
                                " elements is too long");
    }
    DistinctStrings result;
    reserveLarge(result.idOfElement, column.size());
    IdTable table;
    // Hashes are computed kAhead elements early and their slots prefetched: the table is too
    // large for the caches, and waiting for one slot at a time would dominate.
    constexpr std::size_t kAhead = 16;
    std::uint32_t ahead[kAhead];
    for (std::size_t i = 0; i < kAhead && i < column.size(); ++i) {
        ahead[i] = hashBytes(column[i]);
        table.prefetch(ahead[i]);
    }
    for (std::size_t i = 0; i < column.size(); ++i) {
        const std::string_view s = column[i];
        const std::uint32_t hash = ahead[i % kAhead];
        if (i + kAhead < column.size()) {
            ahead[i % kAhead] = hashBytes(column[i + kAhead]);
            table.prefetch(ahead[i % kAhead]);
        }
        // Runs of one string ("" in sparse columns) skip the table.
        if (i > 0 && s == column[i - 1]) {
            result.idOfElement.push_back(result.idOfElement.back());
            continue;
        }
        const auto newId = static_cast<std::uint32_t>(result.firstElement.size());
        const std::uint32_t id = table.findOrAdd(hash, newId, [&](std::uint32_t known) {
            return column[result.firstElement[known]] == s;
        });
        if (id == newId) {
            result.firstElement.push_back(static_cast<std::uint32_t>(i));
        }
        result.idOfElement.push_back(id);
    }
    return result;
}

} // namespace brimvale::bplist
