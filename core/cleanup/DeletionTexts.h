#pragma once

#include "core/cleanup/ItemDeletion.h"

#include <string>
#include <vector>

namespace brimvale {

// The texts of a deletion, the same in the application and on the command line. Pure.

// "“photos” (1.2 GB, 1,234 items)" for one item, "3 items (1.2 GB, 1,240 items in all)" for
// several.
std::string deletionItemsText(const std::vector<DeletionItem>& items);

// The question before a deletion: what goes (every location, on lines of their own after the
// first), how much, whether it can come back. Cloud questions name the account and say
// whether the provider keeps a trash.
std::string deletionQuestion(DeletionMethod method, const std::vector<DeletionItem>& items,
                             const std::string& accountName, const std::string& rcloneType);

// What a deletion did, in a sentence or a few lines: what was freed, and each item not
// deleted with why. `method` picks the verb.
std::string deletionReportText(DeletionMethod method, const DeletionReport& report);

} // namespace brimvale
