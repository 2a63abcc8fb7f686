#pragma once

#include "core/cleanup/LocalItemCheck.h"

#include <cstdint>
#include <functional>
#include <stop_token>
#include <string>
#include <vector>

namespace brimvale {

// One item that was not deleted, and why.
struct DeletionFailure {
    std::string location;
    std::string reason;
};

// What removing one item did.
struct RemovalOutcome {
    // Entries removed, the item itself and everything it held.
    std::int64_t entriesRemoved = 0;
    // Entries left behind (for a folder, the deepest ones that could not go; its folders stay).
    std::vector<DeletionFailure> failures;
    // Stopped before the end: what was not reached is still there.
    bool stopped = false;
    // The item itself is gone.
    bool itemGone() const { return failures.empty() && !stopped; }
};

// Moves the checked item to the user's trash (the freedesktop trash, through Qt). A file
// system without a usable trash, or a name the trash cannot record, throws DeletionRefused
// saying so; nothing is removed then.
void moveLocalItemToTrash(const CheckedLocalItem& item);

// Removes the checked item and, for a folder, everything in it. Every step goes through open
// folders (openat, unlinkat, O_NOFOLLOW): a symbolic link is removed as a link and never
// followed, and a file system mounted inside is left alone (reported). The folder being
// emptied must still be the item checked. `onProgress` gets the count removed so far, now and
// then; `stopToken` ends the walk between entries.
RemovalOutcome removeLocalItemPermanently(const CheckedLocalItem& item, std::stop_token stopToken,
                                          const std::function<void(std::int64_t)>& onProgress = {});

} // namespace brimvale
