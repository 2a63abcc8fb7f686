// The overview passes over the shared disk-like tree (about 1.09 million nodes) and prints one
// figure per line as "name: value unit": the treemap of the whole tree at 1920 × 1080 (taking
// its cells and laying them out), the 100 largest files, the totals by kind and extension, and
// a search as it is typed (the index built once, then every keystroke). Each figure is the
// median of five runs, the keystroke figure the slowest keystroke.
// Run the release build: build/release/bench/insights_bench
#include "bench/BenchMeasures.h"
#include "bench/DiskLikeTree.h"
#include "core/insights/LargestFiles.h"
#include "core/insights/NameIndex.h"
#include "core/insights/SpaceByType.h"
#include "core/insights/TreemapLayout.h"
#include "core/support/HeapTuning.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

using namespace brimvale;
using brimvale::bench::millisecondsSince;

namespace {

double medianMilliseconds(const std::function<void()>& run) {
    std::vector<double> times;
    for (int i = 0; i < 5; ++i) {
        const auto start = std::chrono::steady_clock::now();
        run();
        times.push_back(millisecondsSince(start));
    }
    std::sort(times.begin(), times.end());
    return times[2];
}

// The slowest keystroke of typing `text` letter by letter, and the matches of the whole text.
double slowestKeystroke(const NameIndex& index, const std::string& text, std::size_t& matches) {
    double slowest = 0;
    for (std::size_t length = 1; length <= text.size(); ++length) {
        const auto start = std::chrono::steady_clock::now();
        const auto found = index.search(NamePattern(text.substr(0, length)), 500);
        slowest = std::max(slowest, millisecondsSince(start));
        matches = found.count;
    }
    return slowest;
}

} // namespace

int main(int, char** argv) {
    adoptHugePageHeap(argv);
    std::int64_t nodes = 0;
    FileNodeRef tree = bench::buildDiskLikeTree(nodes);
    tree->propagateSizes();
    tree->sortChildren();
    tree->relinkDescendantParentPointers();
    std::printf("insights.tree_nodes: %lld nodes\n", static_cast<long long>(nodes));

    const TreemapOptions options{.padding = 2, .headerHeight = 14};
    std::size_t cells = 0;
    const double treemap = medianMilliseconds(
        [&] {
            TreemapLayout layout = TreemapLayout::take(tree, 1920, 1080, options);
            layout.layOut(1920, 1080);
            cells = layout.cells().size();
        });
    std::printf("insights.treemap_cells: %zu cells\n", cells);
    std::printf("insights.treemap_layout_ms: %.1f ms\n", treemap);
    TreemapLayout taken = TreemapLayout::take(tree, 1920, 1080, options);
    taken.layOut(1920, 1080);
    const double relayout = medianMilliseconds([&] {
        TreemapLayout copy = taken;
        copy.layOut(1600, 900);
    });
    std::printf("insights.treemap_relayout_ms: %.1f ms\n", relayout);

    std::size_t largest = 0;
    const double top = medianMilliseconds([&] { largest = largestFiles(*tree, 100).size(); });
    std::printf("insights.top100_files_ms: %.1f ms\n", top);

    std::size_t extensions = 0;
    const double types =
        medianMilliseconds([&] { extensions = spaceByType(*tree).topExtensions.size(); });
    std::printf("insights.type_totals_ms: %.1f ms\n", types);

    NameIndex index;
    const double build = medianMilliseconds([&] { index = NameIndex(*tree); });
    std::printf("insights.search_index_ms: %.1f ms\n", build);
    std::size_t matches = 0;
    const double typed = slowestKeystroke(index, "report-12", matches);
    std::printf("insights.search_keystroke_ms: %.1f ms\n", typed);
    std::printf("insights.search_matches: %zu items\n", matches);
    const double globbed = slowestKeystroke(index, "img_*.jpg", matches);
    std::printf("insights.glob_keystroke_ms: %.1f ms\n", globbed);
    std::printf("insights.glob_matches: %zu items\n", matches);
    return largest == 100 && extensions > 0 ? 0 : 1;
}
