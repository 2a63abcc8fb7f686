#include "core/cleanup/DeletionTexts.h"

#include "core/cleanup/CloudDeletion.h"
#include "core/model/SizeFormatter.h"
#include "core/support/SaturatingAdd.h"

namespace brimvale {
namespace {

std::string grouped(std::int64_t count) {
    std::string digits = std::to_string(count);
    std::string text;
    for (std::size_t i = 0; i < digits.size(); ++i) {
        if (i > 0 && (digits.size() - i) % 3 == 0) {
            text.push_back(',');
        }
        text.push_back(digits[i]);
    }
    return text;
}

std::string countOf(std::int64_t count, const char* noun) {
    return grouped(count) + " " + noun + (count == 1 ? "" : "s");
}

std::string lastName(const std::string& location) {
    const auto slash = location.find_last_of("/:");
    return slash == std::string::npos ? location : location.substr(slash + 1);
}

// Items named in a question or a report; the rest are counted.
constexpr std::size_t kNamedFailures = 10;

} // namespace

std::string deletionItemsText(const std::vector<DeletionItem>& items) {
    std::int64_t bytes = 0;
    std::int64_t count = 0;
    for (const auto& item : items) {
        bytes = saturatingAdd(bytes, item.size);
        count += item.itemCount;
    }
    if (items.size() == 1) {
        return "\u201C" + lastName(items.front().location) + "\u201D (" + formatBytes(bytes) +
               ", " + countOf(count, "item") + ")";
    }
    return countOf(static_cast<std::int64_t>(items.size()), "item") + " (" + formatBytes(bytes) +
           ", " + countOf(count, "item") + " in all)";
}

std::string deletionQuestion(DeletionMethod method, const std::vector<DeletionItem>& items,
                             const std::string& accountName, const std::string& rcloneType) {
    const std::string what = deletionItemsText(items);
    std::string text;
    switch (method) {
    case DeletionMethod::moveToTrash:
        text = "Move " + what + " to the trash?";
        break;
    case DeletionMethod::deletePermanently:
        text = "Delete " + what + " permanently? This cannot be undone.";
        break;
    case DeletionMethod::deleteFromCloud:
        text = "Delete " + what + " from the account \u201C" + accountName + "\u201D?";
        break;
    }
    for (std::size_t i = 0; i < items.size() && i < kNamedFailures; ++i) {
        text += "\n  ";
        text += items[i].location;
        text += items[i].isDirectory ? " (folder)" : "";
    }
    if (items.size() > kNamedFailures) {
        text += "\n  \u2026 and " +
                grouped(static_cast<std::int64_t>(items.size() - kNamedFailures)) + " more";
    }
    if (method == DeletionMethod::deleteFromCloud) {
        text += '\n';
        text += providerTrashSentence(rcloneType);
    }
    return text;
}

std::string deletionReportText(DeletionMethod method, const DeletionReport& report) {
    const char* verb = method == DeletionMethod::moveToTrash ? "Moved to the trash: " : "Deleted: ";
    std::string text;
    if (!report.deleted.empty()) {
        text = verb + countOf(static_cast<std::int64_t>(report.deleted.size()), "item") + ", " +
               formatBytes(report.bytesFreed) + " freed.";
    } else if (report.failures.empty()) {
        text = "Nothing was deleted.";
    }
    if (report.stopped) {
        text += std::string(text.empty() ? "" : " ") + "Stopped before the end.";
    }
    if (!report.failures.empty()) {
        text += std::string(text.empty() ? "" : "\n") + "Not deleted (" +
                grouped(static_cast<std::int64_t>(report.failures.size())) + "):";
        for (std::size_t i = 0; i < report.failures.size() && i < kNamedFailures; ++i) {
            text += "\n  " + report.failures[i].location + ": " + report.failures[i].reason;
        }
        if (report.failures.size() > kNamedFailures) {
            text += "\n  \u2026 and " +
                    grouped(static_cast<std::int64_t>(report.failures.size() - kNamedFailures)) +
                    " more (the diagnostics log has them all)";
        }
    }
    return text;
}

} // namespace brimvale
