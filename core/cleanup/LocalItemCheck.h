#pragma once

#include "core/model/Date.h"
#include "core/support/UniqueFd.h"

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/stat.h>

namespace brimvale {

// Why an item is not deleted, as one sentence for the user.
class DeletionRefused : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// What the saved scan says about a local item.
struct ScannedLocalItem {
    std::string location; // absolute, as the tree names it
    bool isDirectory = false;
    // Allocated bytes as scanned; 0 for a name of a hard-linked file counted under another.
    std::int64_t size = 0;
    std::optional<Date> modifiedDate;
};

// An item that passed every check, held through its folder's open descriptor: whatever
// happens to the path above it afterwards, what is removed is looked up in that folder.
struct CheckedLocalItem {
    UniqueFd folder;
    std::string folderLocation; // the folder's real path (no symbolic link in it)
    std::string name;
    struct stat status {}; // the item's own (a symbolic link's, not its target's)

    // The folder's real path joined with the name.
    std::string location() const;
};

// Checks, right before a deletion, that the item may go and is still the one scanned; throws
// DeletionRefused saying why not. Refused: the scanned folder itself, the home folder, the root
// of a mounted file system (its device differs from its folder's, or /proc/self/mountinfo
// lists it), an item whose folder, once symbolic links are resolved, is not inside the
// scanned folder (a path through a linked folder), and an item that changed since the scan:
// another kind, another device than the scanned folder's, another modification time, and for
// files another allocated size. The item itself is never resolved: a symbolic link is the
// item. `scanRoot` is the scanned folder's location.
CheckedLocalItem checkLocalItem(const std::string& scanRoot, const ScannedLocalItem& item);

} // namespace brimvale
