#include "cli/ChangesOutput.h"

#include "cli/DisplayText.h"
#include "cli/HistoryDates.h"
#include "cli/TreeJsonWriter.h"
#include "core/model/SizeFormatter.h"
#include "core/support/SaturatingAdd.h"

#include <algorithm>
#include <ostream>

namespace brimvale::cli {
namespace {

constexpr int kDefaultDepth = 3;
constexpr int kDefaultTop = 5;
constexpr std::size_t kWidestNameColumn = 44;

std::string signedCount(std::int64_t change, std::string_view unit) {
    const std::string count = groupedCount(change < 0 ? -change : change) + " " +
                              std::string(unit) + (change == 1 || change == -1 ? "" : "s");
    return (change < 0 ? "\u2212" : "+") + count;
}

// Characters on a terminal, counting each UTF-8 sequence as one.
std::size_t columns(std::string_view text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char byte) { return (byte & 0xC0) != 0x80; }));
}

std::string detailOf(const ScanChange& change) {
    if (change.kind == ChangeKind::added || change.kind == ChangeKind::removed) {
        const bool added = change.kind == ChangeKind::added;
        const std::int32_t items = added ? change.itemsAfter : change.itemsBefore;
        return std::string(added ? "new" : "gone") +
               (change.isDir ? ", " + groupedCount(items) + (items == 1 ? " item" : " items") : "");
    }
    std::string text = formatBytes(change.before) + " \u2192 " + formatBytes(change.after);
    if (change.itemsAfter != change.itemsBefore) {
        text +=
            ", " +
            signedCount(static_cast<std::int64_t>(change.itemsAfter) - change.itemsBefore, "item");
    }
    return text;
}

struct Line {
    std::string change;
    std::string name; // indented
    std::string detail;
};

void collect(const ScanComparison& comparison, std::size_t folder, int level, int depth, int top,
             std::vector<Line>& lines) {
    const auto children = comparison.childrenByChange(folder);
    const std::string indent(static_cast<std::size_t>(level) * 2, ' ');
    for (std::size_t index = 0; index < children.size(); ++index) {
        const std::size_t entry = children[index];
        if (index == static_cast<std::size_t>(top)) {
            std::int64_t rest = 0;
            for (std::size_t other = index; other < children.size(); ++other) {
                rest = saturatingAdd(rest, comparison.changes[children[other]].sizeChange());
            }
            const std::size_t hidden = children.size() - index;
            lines.push_back(Line{
                "",
                indent + "\u2026 " + groupedCount(static_cast<std::int64_t>(hidden)) +
                    (hidden == 1 ? " more change, " : " more changes, ") + signedBytesText(rest),
                ""});
            break;
        }
        const ScanChange& change = comparison.changes[entry];
        lines.push_back(
            Line{signedBytesText(change.sizeChange()),
                 indent + displayText(comparison.name(entry)) + (change.isDir ? "/" : ""),
                 detailOf(change)});
        if (change.isDir && level + 1 < depth) {
            collect(comparison, entry, level + 1, depth, top, lines);
        }
    }
}

} // namespace

std::string signedBytesText(std::int64_t change) {
    if (change == 0) {
        return formatBytes(0);
    }
    return (change < 0 ? "\u2212" : "+") + formatBytes(change < 0 ? -change : change);
}

void printChanges(std::ostream& out, const ScanComparison& comparison, std::string_view rootName,
                  const ChangesShape& shape) {
    const ScanChange& root = comparison.changes.front();
    out << displayText(rootName) << "  " << signedBytesText(root.sizeChange()) << "  ("
        << formatBytes(root.before) << " \u2192 " << formatBytes(root.after) << ", "
        << groupedCount(root.itemsBefore) << " \u2192 " << groupedCount(root.itemsAfter)
        << " items)  " << localDateText(comparison.before->date) << " \u2192 "
        << localDateText(comparison.after->date) << '\n';
    std::vector<Line> lines;
    collect(comparison, 0, 0, shape.depth.value_or(kDefaultDepth), shape.top.value_or(kDefaultTop),
            lines);
    if (lines.empty()) {
        out << "  No changes.\n";
        return;
    }
    std::size_t changeWidth = 0;
    std::size_t nameWidth = 0;
    for (const auto& line : lines) {
        changeWidth = std::max(changeWidth, columns(line.change));
        if (!line.detail.empty()) {
            nameWidth = std::max(nameWidth, std::min(columns(line.name), kWidestNameColumn));
        }
    }
    for (const auto& line : lines) {
        std::string text(changeWidth + 2 - columns(line.change), ' ');
        text += line.change;
        text += "  ";
        text += line.name;
        if (!line.detail.empty()) {
            const std::size_t used = columns(line.name);
            text += std::string(used < nameWidth ? nameWidth - used + 2 : 2, ' ');
            text += line.detail;
        }
        out << text << '\n';
    }
}

void writeChangesJson(std::ostream& out, const ScanComparison& comparison,
                      const ChangesShape& shape) {
    const ScanChange& root = comparison.changes.front();
    std::string text = "{\"from\":";
    TreeJsonWriter::appendJsonString(text, comparison.before->date.iso8601());
    text += ",\"to\":";
    TreeJsonWriter::appendJsonString(text, comparison.after->date.iso8601());
    text += ",\"before\":" + std::to_string(root.before) +
            ",\"after\":" + std::to_string(root.after) + ",\"changes\":[";
    std::size_t written = 0;
    for (const std::size_t entry : comparison.allByChange()) {
        if (shape.top && written == static_cast<std::size_t>(*shape.top)) {
            break;
        }
        if (shape.depth && comparison.depth(entry) > *shape.depth) {
            continue;
        }
        const ScanChange& change = comparison.changes[entry];
        text += written++ == 0 ? "{\"path\":" : ",{\"path\":";
        TreeJsonWriter::appendJsonString(text, comparison.path(entry));
        text += ",\"before\":" + std::to_string(change.before) +
                ",\"after\":" + std::to_string(change.after) +
                ",\"itemsBefore\":" + std::to_string(change.itemsBefore) +
                ",\"itemsAfter\":" + std::to_string(change.itemsAfter) + ",\"kind\":\"" +
                std::string(changeKindName(change.kind)) + "\"}";
    }
    out << text << "]}\n";
}

} // namespace brimvale::cli
