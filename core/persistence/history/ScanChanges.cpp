#include "core/persistence/history/ScanChanges.h"

#include "core/model/NameOrder.h"

#include <algorithm>
#include <bit>
#include <functional>
#include <limits>

namespace brimvale {
namespace {

// An open-addressing table of the earlier scan's items by (parent, name, kind): 4 bytes a slot,
// at most half full.
class ItemIndex {
public:
    explicit ItemIndex(const ScanSummary& summary)
        : summary_(summary) {
        const std::size_t count = summary.nodeCount();
        slots_.assign(std::bit_ceil(std::max<std::size_t>(count * 2, 16)), 0);
        mask_ = slots_.size() - 1;
        for (std::size_t index = 1; index < count; ++index) {
            std::size_t slot = hash(summary.parents[index], summary.name(index)) & mask_;
            while (slots_[slot] != 0) {
                slot = (slot + 1) & mask_;
            }
            slots_[slot] = static_cast<std::uint32_t>(index);
        }
    }

    // The first item of that parent, name and kind not taken yet, which it then takes (two items
    // of one name in one folder, as some cloud services allow, pair off in order); -1 for none.
    std::int32_t take(std::int32_t parent, std::string_view name, bool isDir,
                      std::vector<std::int32_t>& taken) {
        for (std::size_t slot = hash(parent, name) & mask_; slots_[slot] != 0;
             slot = (slot + 1) & mask_) {
            const std::uint32_t index = slots_[slot];
            if (summary_.parents[index] == parent && (summary_.isDirs[index] != 0) == isDir &&
                taken[index] < 0 && summary_.name(index) == name) {
                return static_cast<std::int32_t>(index);
            }
        }
        return -1;
    }

private:
    static std::size_t hash(std::int32_t parent, std::string_view name) {
        const std::size_t mixed =
            std::hash<std::string_view>{}(name) ^
            (static_cast<std::size_t>(static_cast<std::uint32_t>(parent)) * 0x9E3779B97F4A7C15ULL);
        return mixed ^ (mixed >> 29);
    }

    const ScanSummary& summary_;
    std::vector<std::uint32_t> slots_; // item index; 0 (the root, never listed) is empty
    std::size_t mask_ = 0;
};

ChangeKind kindOf(const ScanChange& change) {
    if (change.beforeIndex < 0) {
        return ChangeKind::added;
    }
    if (change.afterIndex < 0) {
        return ChangeKind::removed;
    }
    if (change.after != change.before) {
        return change.after > change.before ? ChangeKind::grew : ChangeKind::shrank;
    }
    return change.itemsAfter < change.itemsBefore ? ChangeKind::shrank : ChangeKind::grew;
}

std::uint64_t itemsChangeMagnitude(const ScanChange& change) {
    const std::int64_t difference =
        static_cast<std::int64_t>(change.itemsAfter) - change.itemsBefore;
    return difference < 0 ? static_cast<std::uint64_t>(-difference)
                          : static_cast<std::uint64_t>(difference);
}

} // namespace

std::string_view changeKindName(ChangeKind kind) {
    switch (kind) {
    case ChangeKind::grew:
        return "grew";
    case ChangeKind::shrank:
        return "shrank";
    case ChangeKind::added:
        return "added";
    case ChangeKind::removed:
        return "removed";
    }
    return "grew";
}

std::int64_t ScanChange::sizeChange() const {
    const std::uint64_t magnitude = sizeChangeMagnitude();
    constexpr auto kMax = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    const auto clamped = static_cast<std::int64_t>(std::min(magnitude, kMax));
    return after >= before ? clamped : -clamped;
}

ScanComparison compareScans(const ScanSummary& before, const ScanSummary& after) {
    ScanComparison comparison{.before = &before, .after = &after};
    const std::size_t beforeCount = before.nodeCount();
    const std::size_t afterCount = after.nodeCount();
    if (beforeCount == 0 || afterCount == 0) {
        return comparison;
    }
    // Pair the items: a parent comes before its children in both, so each later item looks for
    // its name under the earlier item its parent was paired with.
    std::vector<std::int32_t> pairOfAfter(afterCount, -1);
    std::vector<std::int32_t> pairOfBefore(beforeCount, -1);
    pairOfAfter[0] = 0;
    pairOfBefore[0] = 0;
    {
        ItemIndex index(before);
        for (std::size_t item = 1; item < afterCount; ++item) {
            const std::int32_t parentPair =
                pairOfAfter[static_cast<std::size_t>(after.parents[item])];
            if (parentPair < 0) {
                continue; // inside an added folder
            }
            const std::int32_t pair =
                index.take(parentPair, after.name(item), after.isDirs[item] != 0, pairOfBefore);
            if (pair >= 0) {
                pairOfAfter[item] = pair;
                pairOfBefore[static_cast<std::size_t>(pair)] = static_cast<std::int32_t>(item);
            }
        }
    }
    // What is listed: every item that changed and the folders above it. An earlier item that
    // found no pair was removed; the folder it was in is listed.
    std::vector<std::int32_t> entryOfAfter(afterCount, -1); // -2: listed, entry not made yet
    for (std::size_t item = 1; item < beforeCount; ++item) {
        const auto parent = static_cast<std::size_t>(before.parents[item]);
        if (pairOfBefore[item] < 0 && pairOfBefore[parent] >= 0) {
            entryOfAfter[static_cast<std::size_t>(pairOfBefore[parent])] = -2;
        }
    }
    for (std::size_t item = afterCount; item-- > 0;) {
        const std::int32_t pair = pairOfAfter[item];
        const bool changed = pair < 0 ||
                             after.sizes[item] != before.sizes[static_cast<std::size_t>(pair)] ||
                             after.items[item] != before.items[static_cast<std::size_t>(pair)];
        if (changed) {
            entryOfAfter[item] = -2;
        }
        if (entryOfAfter[item] == -2 && item > 0) {
            entryOfAfter[static_cast<std::size_t>(after.parents[item])] = -2;
        }
    }
    entryOfAfter[0] = -2; // the root is always entry 0
    auto& changes = comparison.changes;
    for (std::size_t item = 0; item < afterCount; ++item) {
        if (entryOfAfter[item] != -2) {
            continue;
        }
        const std::int32_t pair = pairOfAfter[item];
        ScanChange change{
            .parent = item == 0 ? -1 : entryOfAfter[static_cast<std::size_t>(after.parents[item])],
            .beforeIndex = pair,
            .afterIndex = static_cast<std::int32_t>(item),
            .after = after.sizes[item],
            .itemsAfter = after.items[item],
            .isDir = after.isDirs[item] != 0};
        if (pair >= 0) {
            change.before = before.sizes[static_cast<std::size_t>(pair)];
            change.itemsBefore = before.items[static_cast<std::size_t>(pair)];
        }
        change.kind = kindOf(change);
        entryOfAfter[item] = static_cast<std::int32_t>(changes.size());
        changes.push_back(change);
    }
    // Removed items, each under its listed folder (a removed folder's items under it).
    std::vector<std::int32_t>& entryOfRemoved = pairOfBefore; // reused: paired items are >= 0
    for (std::size_t item = 1; item < beforeCount; ++item) {
        if (pairOfBefore[item] >= 0) {
            continue;
        }
        const auto parent = static_cast<std::size_t>(before.parents[item]);
        const std::int32_t parentEntry =
            pairOfBefore[parent] >= 0 ? entryOfAfter[static_cast<std::size_t>(pairOfBefore[parent])]
                                      : -entryOfRemoved[parent] - 2;
        ScanChange change{.parent = parentEntry,
                          .beforeIndex = static_cast<std::int32_t>(item),
                          .before = before.sizes[item],
                          .itemsBefore = before.items[item],
                          .kind = ChangeKind::removed,
                          .isDir = before.isDirs[item] != 0};
        // Negative below -1 marks a removed item's entry, so paired items stay apart.
        entryOfRemoved[item] = -static_cast<std::int32_t>(changes.size()) - 2;
        changes.push_back(change);
    }
    return comparison;
}

std::string_view ScanComparison::name(std::size_t entry) const {
    const ScanChange& change = changes[entry];
    return change.afterIndex >= 0 ? after->name(static_cast<std::size_t>(change.afterIndex))
                                  : before->name(static_cast<std::size_t>(change.beforeIndex));
}

std::string ScanComparison::path(std::size_t entry) const {
    std::vector<std::string_view> parts;
    for (std::int32_t at = static_cast<std::int32_t>(entry); at > 0;
         at = changes[static_cast<std::size_t>(at)].parent) {
        parts.push_back(name(static_cast<std::size_t>(at)));
    }
    std::string joined;
    for (auto part = parts.rbegin(); part != parts.rend(); ++part) {
        if (!joined.empty()) {
            joined += '/';
        }
        joined += *part;
    }
    return joined;
}

int ScanComparison::depth(std::size_t entry) const {
    int levels = 0;
    for (std::int32_t at = static_cast<std::int32_t>(entry); at > 0;
         at = changes[static_cast<std::size_t>(at)].parent) {
        ++levels;
    }
    return levels;
}

namespace {
void sortByChange(const ScanComparison& comparison, std::vector<std::size_t>& entries) {
    std::stable_sort(entries.begin(), entries.end(), [&](std::size_t a, std::size_t b) {
        const ScanChange& first = comparison.changes[a];
        const ScanChange& second = comparison.changes[b];
        if (first.sizeChangeMagnitude() != second.sizeChangeMagnitude()) {
            return first.sizeChangeMagnitude() > second.sizeChangeMagnitude();
        }
        if (itemsChangeMagnitude(first) != itemsChangeMagnitude(second)) {
            return itemsChangeMagnitude(first) > itemsChangeMagnitude(second);
        }
        return compareNamesForFileManager(comparison.name(a), comparison.name(b)) < 0;
    });
}
} // namespace

std::vector<std::size_t> ScanComparison::childrenByChange(std::size_t folder) const {
    std::vector<std::size_t> children;
    for (std::size_t entry = 1; entry < changes.size(); ++entry) {
        if (changes[entry].parent == static_cast<std::int32_t>(folder)) {
            children.push_back(entry);
        }
    }
    sortByChange(*this, children);
    return children;
}

std::vector<std::size_t> ScanComparison::allByChange() const {
    std::vector<std::size_t> entries;
    for (std::size_t entry = 1; entry < changes.size(); ++entry) {
        entries.push_back(entry);
    }
    sortByChange(*this, entries);
    return entries;
}

} // namespace brimvale
