#include "cli/HistoryCommand.h"

#include "cli/ChangesOutput.h"
#include "cli/CoordinatorSession.h"
#include "cli/DisplayText.h"
#include "cli/HistoryDates.h"
#include "cli/SavedScanTarget.h"
#include "cli/TreeJsonWriter.h"
#include "core/model/SizeFormatter.h"
#include "core/persistence/cache/ScanCache.h"
#include "core/persistence/history/SavedScanHistory.h"
#include "core/persistence/history/ScanChanges.h"

#include <charconv>
#include <ostream>

namespace brimvale::cli {
namespace {

struct HistoryArguments {
    std::string target;
    bool json = false;
    std::optional<std::string> since;
    std::optional<int> from;
    std::optional<int> top;
    std::optional<int> depth;
};

int wholeNumber(const std::string& option, const std::string& value, int least) {
    int number = 0;
    const auto result = std::from_chars(value.data(), value.data() + value.size(), number);
    if (result.ec != std::errc() || result.ptr != value.data() + value.size() || number < least) {
        throw UsageError(option + " needs a whole number of at least " + std::to_string(least) +
                         ", not '" + value + "'");
    }
    return number;
}

HistoryArguments parseArguments(std::span<const std::string> arguments, bool changes) {
    HistoryArguments parsed;
    bool haveTarget = false;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        std::string name = arguments[i];
        std::optional<std::string> value;
        if (const auto equals = name.find('='); name.starts_with("--") && equals != name.npos) {
            value = name.substr(equals + 1);
            name.resize(equals);
        }
        const bool takesValue = changes && (name == "--since" || name == "--from" ||
                                            name == "--top" || name == "--depth");
        if (takesValue && !value) {
            if (i + 1 == arguments.size()) {
                throw UsageError(name + (name == "--since" ? " needs a date" : " needs a number"));
            }
            value = arguments[++i];
        }
        if (name == "--json" && !value) {
            parsed.json = true;
        } else if (takesValue && name == "--since") {
            parsed.since = *value;
        } else if (takesValue && name == "--from") {
            parsed.from = wholeNumber(name, *value, 0);
        } else if (takesValue) {
            (name == "--top" ? parsed.top : parsed.depth) = wholeNumber(name, *value, 1);
        } else if (name.starts_with("-") && name != "-") {
            throw UsageError("unknown option '" + arguments[i] + "'");
        } else if (haveTarget) {
            throw UsageError("give one folder or account, not several");
        } else {
            parsed.target = name;
            haveTarget = true;
        }
    }
    if (!haveTarget) {
        throw UsageError("give the folder or account (as scan takes it)");
    }
    if (parsed.since && parsed.from) {
        throw UsageError("give --since or --from, not both");
    }
    return parsed;
}

// The target's scans, newest first; an error message instead when there are none.
struct TargetScans {
    SavedScanTarget target;
    std::vector<ListedScan> scans;
};

std::optional<TargetScans> scansOf(const HistoryArguments& arguments, const char* command,
                                   CommandStreams streams) {
    CoordinatorSession session;
    TargetScans found;
    try {
        found.target = resolveSavedScanTarget(arguments.target, session);
    } catch (const UsageError&) {
        throw;
    } catch (const std::exception& error) {
        streams.err << "brimvale-cli " << command << ": " << displayText(error.what()) << '\n';
        return std::nullopt;
    }
    found.scans = listSavedScans(session.viewModel().cache(), found.target.key);
    if (found.scans.empty()) {
        streams.err << "brimvale-cli " << command << ": there is no saved scan of "
                    << displayText(arguments.target) << " yet (brimvale-cli scan "
                    << displayText(arguments.target) << " makes one)\n";
        return std::nullopt;
    }
    return found;
}

int runHistory(std::span<const std::string> rawArguments, CommandStreams streams) {
    const HistoryArguments arguments = parseArguments(rawArguments, false);
    const auto found = scansOf(arguments, "history", streams);
    if (!found) {
        return exitFailure;
    }
    if (arguments.json) {
        std::string text = "{\"target\":";
        TreeJsonWriter::appendJsonString(text, found->target.rootName);
        text += ",\"scans\":[";
        for (std::size_t index = 0; index < found->scans.size(); ++index) {
            const ListedScan& scan = found->scans[index];
            text += index == 0 ? "{\"number\":" : ",{\"number\":";
            text += std::to_string(index) + ",\"date\":";
            TreeJsonWriter::appendJsonString(text, scan.date.iso8601());
            text += ",\"size\":" + std::to_string(scan.totalSize) +
                    ",\"items\":" + std::to_string(scan.totalItems) +
                    ",\"partial\":" + (scan.partial ? "true}" : "false}");
        }
        streams.out << text << "]}\n";
        return exitSuccess;
    }
    streams.out << displayText(found->target.rootName) << ": " << found->scans.size()
                << (found->scans.size() == 1 ? " saved scan\n" : " saved scans\n");
    streams.out << "   #  SAVED               SIZE        ITEMS\n";
    for (std::size_t index = 0; index < found->scans.size(); ++index) {
        const ListedScan& scan = found->scans[index];
        std::string size = formatBytes(scan.totalSize);
        std::string items = groupedCount(scan.totalItems);
        char line[160];
        std::snprintf(line, sizeof line, "%4zu  %-16s  %9s  %11s", index,
                      localDateText(scan.date).c_str(), size.c_str(), items.c_str());
        streams.out << line << (scan.partial ? "  partial: the scan did not finish\n" : "\n");
    }
    return exitSuccess;
}

// Which two scans to compare: the newest finished one, and the one before it, --from's or the
// newest one saved at or before --since.
struct Pair {
    std::size_t from = 0;
    std::size_t to = 0;
};

std::optional<Pair> choosePair(const HistoryArguments& arguments, const TargetScans& found,
                               CommandStreams streams) {
    const auto& scans = found.scans;
    const std::string target = displayText(arguments.target);
    const auto fail = [&](const std::string& message) {
        streams.err << "brimvale-cli changes: " << message << '\n';
        return std::nullopt;
    };
    std::size_t to = 0;
    while (to < scans.size() && scans[to].partial) {
        ++to;
    }
    if (to == scans.size()) {
        return fail("the only saved scan of " + target +
                    " is partial (the scan did not finish); scan it with brimvale-cli scan " +
                    target + " --rescan");
    }
    std::optional<std::size_t> from;
    if (arguments.from) {
        const auto number = static_cast<std::size_t>(*arguments.from);
        if (number >= scans.size()) {
            return fail("--from " + std::to_string(number) + " is out of range: " + target +
                        " has scans 0 to " + std::to_string(scans.size() - 1) +
                        " (brimvale-cli history " + target + " lists them)");
        }
        if (scans[number].partial) {
            return fail("scan " + std::to_string(number) +
                        " is partial (the scan did not finish) and cannot be compared");
        }
        if (number <= to) {
            return fail("scan " + std::to_string(number) +
                        " is not older than the newest finished scan (" + std::to_string(to) +
                        "); give an older one");
        }
        from = number;
    } else if (arguments.since) {
        const auto since = parseHistoryDate(*arguments.since);
        if (!since) {
            throw UsageError("'" + *arguments.since +
                             "' is not a date: give YYYY-MM-DD, YYYY-MM-DD HH:MM or an ISO-8601 "
                             "time such as 2026-05-01T09:30:00Z");
        }
        for (std::size_t index = to + 1; index < scans.size() && !from; ++index) {
            if (!scans[index].partial && scans[index].date <= *since) {
                from = index;
            }
        }
        if (!from) {
            return fail("no earlier finished scan of " + target + " was saved at or before " +
                        localDateText(*since) + "; the oldest is from " +
                        localDateText(scans.back().date));
        }
    } else {
        for (std::size_t index = to + 1; index < scans.size() && !from; ++index) {
            if (!scans[index].partial) {
                from = index;
            }
        }
        if (!from) {
            return fail("there is only one finished scan of " + target + " (" +
                        localDateText(scans[to].date) +
                        "); changes need two: scan it again with brimvale-cli scan " + target +
                        " --rescan");
        }
    }
    return Pair{.from = *from, .to = to};
}

int runChanges(std::span<const std::string> rawArguments, CommandStreams streams) {
    const HistoryArguments arguments = parseArguments(rawArguments, true);
    const auto found = scansOf(arguments, "changes", streams);
    if (!found) {
        return exitFailure;
    }
    const auto pair = choosePair(arguments, *found, streams);
    if (!pair) {
        return exitFailure;
    }
    std::shared_ptr<const ScanSummary> before;
    std::shared_ptr<const ScanSummary> after;
    try {
        before = loadListedScan(found->scans[pair->from]);
        after = loadListedScan(found->scans[pair->to]);
    } catch (const std::exception& error) {
        streams.err << "brimvale-cli changes: a saved scan of " << displayText(arguments.target)
                    << " cannot be read any more: " << displayText(error.what()) << '\n';
        return exitFailure;
    }
    const ScanComparison comparison = compareScans(*before, *after);
    const ChangesShape shape{.depth = arguments.depth, .top = arguments.top};
    if (arguments.json) {
        writeChangesJson(streams.out, comparison, shape);
    } else {
        printChanges(streams.out, comparison, found->target.rootName, shape);
    }
    return exitSuccess;
}

} // namespace

Command historyCommand() {
    return Command{
        .name = "history",
        .summary = "List the saved scans of a folder or an account",
        .usage = "history PATH|ACCOUNT: [--json]",
        .details =
            "Lists the scans kept of the folder PATH or the account ACCOUNT:, newest first,\n"
            "numbered from 0, with when each was saved, its total size and its number of\n"
            "items; a scan that did not finish is marked partial. Each finished scan is kept\n"
            "when the next one finishes: the last 10 before the newest, none older than 90\n"
            "days. Folders and files of 1 MB or more are kept by name, smaller files in their\n"
            "folder's size and count.\n"
            "\n"
            "  --json   write {\"target\", \"scans\": [{\"number\", \"date\", \"size\",\n"
            "           \"items\", \"partial\"}]}",
        .run = runHistory};
}

Command changesCommand() {
    return Command{
        .name = "changes",
        .summary = "Show what grew or shrank between two scans",
        .usage = "changes PATH|ACCOUNT: [--since DATE | --from N] [--top N] [--depth N] [--json]",
        .details =
            "Compares the newest finished scan of PATH or ACCOUNT: with the one before it and\n"
            "prints the folders that changed most as a tree, largest change first: how much\n"
            "each grew (+) or shrank (-), and the items that are new or gone.\n"
            "\n"
            "  --since DATE  compare with the newest scan saved at or before DATE\n"
            "                (YYYY-MM-DD, YYYY-MM-DD HH:MM, or ISO-8601 such as\n"
            "                2026-05-01T09:30:00Z; local time unless a zone is given)\n"
            "  --from N      compare with scan N of brimvale-cli history\n"
            "  --depth N     list changes N levels deep (default 3)\n"
            "  --top N       show the N largest changes of each folder (default 5)\n"
            "  --json        write every change, largest first (--top N: the N largest,\n"
            "                --depth N: those at most N levels deep), as\n"
            "                {\"from\", \"to\", \"before\", \"after\", \"changes\": [{\"path\",\n"
            "                \"before\", \"after\", \"itemsBefore\", \"itemsAfter\", \"kind\"}]}\n"
            "\n"
            "Partial scans are never compared. A renamed item shows as one gone and one new.",
        .run = runChanges};
}

} // namespace brimvale::cli
