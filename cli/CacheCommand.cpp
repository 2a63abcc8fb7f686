#include "cli/CacheCommand.h"

#include "cli/CoordinatorSession.h"
#include "cli/DisplayText.h"
#include "cli/ListingArguments.h"
#include "cli/TreeJsonWriter.h"
#include "cli/TreeListing.h"
#include "core/model/SizeFormatter.h"
#include "core/persistence/cache/CacheRecord.h"
#include "core/persistence/cache/ScanCache.h"
#include "core/support/FileBytes.h"

#include <algorithm>
#include <dirent.h>
#include <ostream>
#include <sys/stat.h>
#include <system_error>

namespace brimvale::cli {
namespace {

int showCache(std::span<const std::string> arguments, CommandStreams streams) {
    const ListingArguments parsed = parseListingArguments(arguments, "cache file");
    FileBytes file;
    try {
        file = readFileBytes(parsed.target);
    } catch (const std::system_error& error) {
        streams.err << "brimvale-cli cache show: " << error.what() << '\n';
        return exitFailure;
    }
    const auto root = decodeCacheNode(file.bytes);
    if (!root) {
        streams.err << "brimvale-cli cache show: " << parsed.target
                    << " is not a Brimvale cache file, or this saved scan is damaged (a rescan "
                       "replaces it)\n";
        return exitFailure;
    }
    if (parsed.json) {
        TreeJsonWriter(streams.out).write(**root);
        return exitSuccess;
    }
    const FileNode& tree = **root;
    streams.out << displayText(tree.path().empty() ? std::string(tree.name()) : tree.path()) << "  "
                << formatBytes(tree.size()) << " in " << tree.subtreeNodeCount() << " items, saved "
                << Date::fromUnixSeconds(file.modifiedUnixSeconds).iso8601() << '\n';
    printTreeListing(streams.out, tree, {.depth = parsed.depth, .top = parsed.top});
    return exitSuccess;
}

int listCaches(std::span<const std::string> arguments, CommandStreams streams) {
    if (!arguments.empty()) {
        throw UsageError("cache list takes no arguments");
    }
    const std::string directory = ScanCache::defaultDirectory();
    streams.out << directory << '\n';
    DIR* listing = ::opendir(directory.c_str());
    if (listing == nullptr) {
        streams.out << "  (no saved scans yet)\n";
        return exitSuccess;
    }
    std::vector<std::pair<std::string, std::int64_t>> files;
    while (const dirent* entry = ::readdir(listing)) {
        const std::string name = entry->d_name;
        if (!name.ends_with(".cache") && !name.ends_with(".json")) {
            continue;
        }
        struct stat info {};
        if (::stat((directory + "/" + name).c_str(), &info) == 0) {
            files.emplace_back(name, static_cast<std::int64_t>(info.st_size));
        }
    }
    ::closedir(listing);
    std::sort(files.begin(), files.end());
    for (const auto& [name, size] : files) {
        streams.out << "  " << formatBytes(size) << "  " << displayText(name) << '\n';
    }
    if (files.empty()) {
        streams.out << "  (no saved scans yet)\n";
    }
    return exitSuccess;
}

int clearCache(std::span<const std::string> arguments, CommandStreams streams) {
    if (arguments.size() != 1) {
        throw UsageError("cache clear takes one account name");
    }
    std::string account = arguments[0];
    if (account.ends_with(':')) {
        account.pop_back();
    }
    if (account.empty() || account.find('/') != std::string::npos) {
        throw UsageError("'" + arguments[0] + "' is not an account name");
    }
    CoordinatorSession session;
    session.loadAccounts();
    // The account's own saved scan and, for a local account, those of its folders: exactly
    // this account's, whatever other accounts are called.
    const auto files = session.viewModel().cache().clearAccount(account);
    if (files.empty()) {
        streams.out << "No saved scan of " << displayText(account) << '\n';
        return exitSuccess;
    }
    for (const auto& name : files) {
        streams.out << "Removed " << displayText(name) << '\n';
    }
    return exitSuccess;
}

} // namespace

Command cacheCommand() {
    return Command{
        .name = "cache",
        .summary = "Show saved scans",
        .usage =
            "cache list | cache show FILE [--json] [--depth N] [--top N] | cache clear ACCOUNT",
        .details =
            "list     the saved scans in the cache folder, with their sizes\n"
            "clear    removes the saved scans of ACCOUNT (every volume of a local one); its\n"
            "         next scan starts afresh\n"
            "show     the tree saved in FILE (a .cache file, or an older .json one): the\n"
            "         largest items, --depth levels deep (default 1), --top per folder\n"
            "         (default 10); --json writes the whole tree as JSON instead",
        .run = [](std::span<const std::string> arguments, CommandStreams streams) {
            if (arguments.empty()) {
                throw UsageError("say list, show or clear");
            }
            if (arguments[0] == "show") {
                return showCache(arguments.subspan(1), streams);
            }
            if (arguments[0] == "list") {
                return listCaches(arguments.subspan(1), streams);
            }
            if (arguments[0] == "clear") {
                return clearCache(arguments.subspan(1), streams);
            }
            throw UsageError("unknown cache command '" + arguments[0] +
                             "': use list, show or clear");
        }};
}

} // namespace brimvale::cli
