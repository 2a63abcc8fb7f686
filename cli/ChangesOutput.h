#pragma once

#include "core/persistence/history/ScanChanges.h"

#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>

namespace brimvale::cli {

struct ChangesShape {
    std::optional<int> depth; // levels below the root; text default 3, JSON default all
    std::optional<int> top;   // text: per folder, default 5; JSON: in all, default all
};

// "+1.2 GB", "−300 MB" (a minus sign, U+2212), "0 bytes".
std::string signedBytesText(std::int64_t change);

// The header (root, change, sizes, dates), then the changed items as an indented tree, each
// folder's largest changes first, with "… N more changes" for what --top leaves out.
void printChanges(std::ostream& out, const ScanComparison& comparison, std::string_view rootName,
                  const ChangesShape& shape);

// {"from": ISO-8601, "to": ISO-8601, "before": bytes, "after": bytes, "changes": [{"path": "a/b",
// "before": …, "after": …, "itemsBefore": …, "itemsAfter": …, "kind": "grew"|…}]}, largest
// change first, paths relative to the scanned root.
void writeChangesJson(std::ostream& out, const ScanComparison& comparison,
                      const ChangesShape& shape);

} // namespace brimvale::cli
