#include "cli/TreeListing.h"

#include "cli/DisplayText.h"
#include "core/interchange/ExportEntryMarks.h"
#include "core/model/SizeFormatter.h"
#include "core/support/SaturatingAdd.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace brimvale::cli {
namespace {

constexpr int kBarCells = 20;

std::string shareBar(double fraction) {
    static constexpr std::string_view kPartials[] = {"",       "\u258F", "\u258E", "\u258D",
                                                     "\u258C", "\u258B", "\u258A", "\u2589"};
    const int eighths =
        static_cast<int>(std::lround(std::clamp(fraction, 0.0, 1.0) * kBarCells * 8));
    std::string bar;
    int cells = 0;
    for (; cells < eighths / 8; ++cells) {
        bar.append("\u2588");
    }
    if (eighths % 8 != 0) {
        bar.append(kPartials[eighths % 8]);
        ++cells;
    }
    bar.append(static_cast<std::size_t>(kBarCells - cells), ' ');
    return bar;
}

std::string padLeft(const std::string& text, std::size_t width) {
    return text.size() >= width ? text : std::string(width - text.size(), ' ') + text;
}

// The share of the folder comes from the sizes, so trees whose fractions were never worked out
// (a tree read from the cache) show it too.
void printItem(std::ostream& out, const FileNode& node, std::int64_t folderSize, int level) {
    const double share =
        folderSize >= 1 ? static_cast<double>(node.size()) / static_cast<double>(folderSize) : 0.0;
    char percent[16];
    std::snprintf(percent, sizeof percent, "%5.1f%%", share * 100.0);
    out << std::string(static_cast<std::size_t>(level) * 2, ' ')
        << padLeft(formatBytes(node.size()), 9) << "  " << percent << "  " << shareBar(share)
        << "  " << displayText(node.name()) << (node.isDirectory() ? "/" : "");
    if (const auto note = entryMarkNote(node)) {
        out << "  (" << *note << ')';
    }
    out << '\n';
}

// The largest `top` items of each folder, `depth` levels deep, without recursion.
} // namespace

void printTreeListing(std::ostream& out, const FileNode& root, const TreeListingOptions& options) {
    struct Pending {
        const FileNode* folder;
        int level;
        std::size_t next;
    };
    std::vector<Pending> stack{{&root, 1, 0}};
    while (!stack.empty()) {
        Pending& pending = stack.back();
        const auto& children = pending.folder->children();
        const std::size_t shown = std::min(children.size(), static_cast<std::size_t>(options.top));
        if (pending.next == shown) {
            if (children.size() > shown) {
                std::int64_t rest = 0;
                for (std::size_t i = shown; i < children.size(); ++i) {
                    rest = saturatingAdd(rest, children[i]->size());
                }
                const std::size_t more = children.size() - shown;
                out << std::string(static_cast<std::size_t>(pending.level) * 2, ' ')
                    << padLeft("", 9) << "  \u2026 "
                    << groupedCount(static_cast<std::int64_t>(more))
                    << (more == 1 ? " more item, " : " more items, ") << formatBytes(rest) << '\n';
            }
            stack.pop_back();
            continue;
        }
        const FileNode& child = *children[pending.next++];
        const int level = pending.level;
        printItem(out, child, pending.folder->size(), level);
        if (child.isDirectory() && level < options.depth && !child.children().empty()) {
            stack.push_back({&child, level + 1, 0});
        }
    }
}

} // namespace brimvale::cli
