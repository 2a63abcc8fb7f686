#pragma once

#include "core/local/DirEntry.h"

#include <cstddef>
#include <limits>
#include <vector>

namespace brimvale {

// A set of file identities in one flat table (open addressing, linear probing): no node per
// entry, so a scan's hundreds of thousands of inserts stay in a few cache-friendly arrays.
// Not thread-safe; callers guard it.
class FileIdentitySet {
public:
    // True when `identity` was not in the set (it is now).
    bool insert(const FileIdentity& identity) {
        if ((count_ + 1) * 2 > slots_.size()) {
            grow();
        }
        if (insertInto(slots_, identity)) {
            ++count_;
            return true;
        }
        return false;
    }

    std::size_t size() const { return count_; }

private:
    // No device has every bit set, so this never stands for a real file.
    static constexpr FileIdentity kEmpty{std::numeric_limits<std::uint64_t>::max(), 0};

    static bool insertInto(std::vector<FileIdentity>& slots, const FileIdentity& identity) {
        const std::size_t mask = slots.size() - 1;
        for (std::size_t at = FileIdentityHash{}(identity)&mask;; at = (at + 1) & mask) {
            if (slots[at] == kEmpty) {
                slots[at] = identity;
                return true;
            }
            if (slots[at] == identity) {
                return false;
            }
        }
    }

    void grow() {
        std::vector<FileIdentity> larger(slots_.empty() ? 1024 : slots_.size() * 2, kEmpty);
        for (const auto& identity : slots_) {
            if (!(identity == kEmpty)) {
                insertInto(larger, identity);
            }
        }
        slots_.swap(larger);
    }

    std::vector<FileIdentity> slots_;
    std::size_t count_ = 0;
};

} // namespace brimvale
