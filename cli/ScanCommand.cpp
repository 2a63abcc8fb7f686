#include "cli/ScanCommand.h"

#include "cli/DisplayText.h"
#include "cli/TreeJsonWriter.h"
#include "core/local/LocalDiskAdapter.h"
#include "core/model/SizeFormatter.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace brimvale::cli {
namespace {

constexpr int kBarCells = 20;

struct ScanArguments {
    std::string path;
    bool json = false;
    int depth = 1;
    int top = 10;
    bool listingOptionGiven = false;
};

int positiveCount(const std::string& option, const std::string& value) {
    int number = 0;
    const auto result = std::from_chars(value.data(), value.data() + value.size(), number);
    if (result.ec != std::errc() || result.ptr != value.data() + value.size() || number < 1) {
        throw UsageError(option + " needs a whole number of at least 1, not '" + value + "'");
    }
    return number;
}

ScanArguments parseArguments(std::span<const std::string> arguments) {
    ScanArguments parsed;
    bool havePath = false;
    bool optionsEnded = false;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (!optionsEnded && argument == "--") {
            optionsEnded = true;
            continue;
        }
        if (!optionsEnded && argument.starts_with("-") && argument != "-") {
            std::string name = argument;
            std::optional<std::string> value;
            if (const auto equals = argument.find('='); equals != std::string::npos) {
                name = argument.substr(0, equals);
                value = argument.substr(equals + 1);
            }
            if (name == "--json" && !value) {
                parsed.json = true;
                continue;
            }
            if (name == "--depth" || name == "--top") {
                if (!value) {
                    if (i + 1 == arguments.size()) {
                        throw UsageError(name + " needs a number");
                    }
                    value = arguments[++i];
                }
                (name == "--depth" ? parsed.depth : parsed.top) = positiveCount(name, *value);
                parsed.listingOptionGiven = true;
                continue;
            }
            throw UsageError("unknown option '" + argument + "'");
        }
        if (havePath) {
            throw UsageError("give one folder to scan, not several");
        }
        parsed.path = argument;
        havePath = true;
    }
    if (!havePath) {
        throw UsageError("give the folder to scan");
    }
    if (parsed.json && parsed.listingOptionGiven) {
        throw UsageError("--depth and --top shape the listing; --json writes the whole tree");
    }
    return parsed;
}

// The live status line on a terminal: rewritten in place at most ten times a second and
// erased before the result is printed.
class StatusLine {
public:
    StatusLine(std::ostream& err, bool enabled)
        : err_(err)
        , enabled_(enabled)
        , started_(std::chrono::steady_clock::now()) {}

    void update(const ScanProgress& progress) {
        if (!enabled_) {
            return;
        }
        const auto now = std::chrono::steady_clock::now();
        if (shown_ && now - lastShown_ < std::chrono::milliseconds(100)) {
            return;
        }
        lastShown_ = now;
        shown_ = true;
        const double seconds = std::chrono::duration<double>(now - started_).count();
        const auto rate =
            seconds > 0.05
                ? static_cast<std::int64_t>(static_cast<double>(progress.itemsScanned()) / seconds)
                : 0;
        err_ << "\r\x1b[2KScanning\u2026 " << groupedCount(progress.itemsScanned())
             << " items \u00B7 " << groupedCount(progress.foldersScanned) << " folders \u00B7 "
             << formatBytes(progress.bytesAccountedFor) << " \u00B7 " << groupedCount(rate)
             << " items/s" << std::flush;
    }

    void erase() {
        if (shown_) {
            err_ << "\r\x1b[2K" << std::flush;
            shown_ = false;
        }
    }

private:
    std::ostream& err_;
    const bool enabled_;
    const std::chrono::steady_clock::time_point started_;
    std::chrono::steady_clock::time_point lastShown_;
    bool shown_ = false;
};

bool writesToTerminal(const CommandStreams& streams) {
    return &streams.out == &std::cout && &streams.err == &std::cerr && ::isatty(STDOUT_FILENO) &&
           ::isatty(STDERR_FILENO);
}

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

void printItem(std::ostream& out, const FileNode& node, int level) {
    char percent[16];
    std::snprintf(percent, sizeof percent, "%5.1f%%", node.fractionOfParent() * 100.0);
    out << std::string(static_cast<std::size_t>(level) * 2, ' ')
        << padLeft(formatBytes(node.size()), 9) << "  " << percent << "  "
        << shareBar(node.fractionOfParent()) << "  " << displayText(node.name())
        << (node.isDirectory() ? "/" : "") << '\n';
}

// The largest `top` items of each folder, `depth` levels deep, without recursion.
void printListing(std::ostream& out, const FileNode& root, const ScanArguments& arguments) {
    struct Pending {
        const FileNode* folder;
        int level;
        std::size_t next;
    };
    std::vector<Pending> stack{{&root, 1, 0}};
    while (!stack.empty()) {
        Pending& pending = stack.back();
        const auto& children = pending.folder->children();
        const std::size_t shown =
            std::min(children.size(), static_cast<std::size_t>(arguments.top));
        if (pending.next == shown) {
            if (children.size() > shown) {
                std::int64_t rest = 0;
                for (std::size_t i = shown; i < children.size(); ++i) {
                    rest += children[i]->size();
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
        printItem(out, child, level);
        if (child.isDirectory() && level < arguments.depth && !child.children().empty()) {
            stack.push_back({&child, level + 1, 0});
        }
    }
}

// The program ends right after a scan; giving half a million nodes back to the allocator one
// by one would only delay its exit. Still reachable, so not a leak to a checker.
void keepUntilExit(FileNodeRef root) {
    static auto* kept = new std::vector<FileNodeRef>();
    kept->push_back(std::move(root));
}

int runScan(std::span<const std::string> rawArguments, CommandStreams streams) {
    const ScanArguments arguments = parseArguments(rawArguments);
    const std::string shownPath = displayText(arguments.path);
    struct stat status {};
    if (::stat(arguments.path.c_str(), &status) != 0) {
        const int error = errno;
        if (error == ENOENT) {
            streams.err << "brimvale-cli scan: '" << shownPath << "' does not exist\n";
        } else {
            streams.err << "brimvale-cli scan: cannot open '" << shownPath
                        << "': " << std::error_code(error, std::generic_category()).message()
                        << '\n';
        }
        return exitFailure;
    }
    if (!S_ISDIR(status.st_mode)) {
        streams.err << "brimvale-cli scan: '" << shownPath << "' is a file, not a folder\n";
        return exitFailure;
    }

    std::vector<SkippedFolder> skipped;
    LocalDiskAdapter adapter(
        "local", "Local disk",
        LocalScanOptions{.onSkippedFolder = [&skipped](const SkippedFolder& folder) {
            skipped.push_back(folder);
        }});
    StatusLine statusLine(streams.err, writesToTerminal(streams));
    ScanProgress lastProgress;
    std::string location;
    FileNodeRef root;
    try {
        location = LocalDiskAdapter::resolveScanLocation(arguments.path);
        root = adapter.scan(
            ScanParameters{.path = location, .progress = [&](const ScanProgress& progress) {
                               lastProgress = progress;
                               statusLine.update(progress);
                           }});
    } catch (const std::system_error& error) {
        statusLine.erase();
        streams.err << "brimvale-cli scan: " << displayText(error.what()) << '\n';
        return exitFailure;
    }
    statusLine.erase();

    if (arguments.json) {
        TreeJsonWriter(streams.out).write(*root);
    } else {
        streams.out << displayText(location) << "  " << formatBytes(root->size()) << "  ("
                    << groupedCount(lastProgress.filesScanned) << " files, "
                    << groupedCount(lastProgress.foldersScanned) << " folders)\n";
        printListing(streams.out, *root, arguments);
    }
    streams.out.flush();

    if (!skipped.empty()) {
        std::sort(
            skipped.begin(), skipped.end(),
            [](const SkippedFolder& a, const SkippedFolder& b) { return a.location < b.location; });
        streams.err << "brimvale-cli scan: "
                    << groupedCount(static_cast<std::int64_t>(skipped.size()))
                    << (skipped.size() == 1 ? " folder" : " folders")
                    << " could not be read and counted as empty:\n";
        for (const auto& folder : skipped) {
            streams.err << "  " << displayText(folder.location) << ": " << folder.reason << '\n';
        }
    }
    if (&streams.out == &std::cout) {
        keepUntilExit(std::move(root));
    }
    return exitSuccess;
}

} // namespace

Command scanCommand() {
    return Command{
        .name = "scan",
        .summary = "Scan a local folder and list its largest items",
        .usage = "scan PATH [--json] [--depth N] [--top N]",
        .details = "Adds up the space on disk of everything in the folder PATH and lists the\n"
                   "largest items with their share of their folder. Hard-linked files count once;\n"
                   "symbolic links count as themselves and are not followed; kernel file systems\n"
                   "such as /proc are not entered.\n"
                   "\n"
                   "  --depth N   list folders N levels deep (default 1)\n"
                   "  --top N     show the N largest items of each folder (default 10)\n"
                   "  --json      write the whole tree as JSON, one object per item\n"
                   "\n"
                   "Folders that cannot be read are listed on standard error at the end.",
        .run = runScan};
}

} // namespace brimvale::cli
