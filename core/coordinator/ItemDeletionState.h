#pragma once

#include "core/cleanup/ItemDeletion.h"

#include <cstdint>
#include <optional>

namespace brimvale {

// An account's deletion: the one running (at most one per account) and the report of the last
// one that finished, until it is dismissed or the next starts.
struct ItemDeletionState {
    bool running = false;
    DeletionMethod method = DeletionMethod::moveToTrash;
    DeletionProgress progress;
    std::optional<DeletionReport> lastReport;
    std::uint64_t taskID = 0;
};

} // namespace brimvale
