#include "cli/RemotesCommand.h"

#include "core/model/SizeFormatter.h"
#include "core/rclone/BrimvaleError.h"
#include "core/rclone/DropboxAdapter.h"
#include "core/rclone/GenericRcloneAdapter.h"
#include "core/rclone/GoogleDriveAdapter.h"
#include "core/rclone/RemoteAccountLabel.h"
#include "core/rclone/ScanErrorInfo.h"
#include "core/support/FatalError.h"
#include "core/support/SaturatingAdd.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <memory>
#include <ostream>

namespace brimvale::cli {
namespace {

using Json = nlohmann::json;

struct ParsedArguments {
    std::vector<std::string> positional;
    bool json = false;
};

ParsedArguments parseArguments(std::span<const std::string> arguments) {
    ParsedArguments parsed;
    for (const auto& argument : arguments) {
        if (argument == "--json") {
            parsed.json = true;
        } else if (argument.starts_with("-") && argument.size() > 1) {
            throw UsageError("unknown option '" + argument + "'");
        } else {
            parsed.positional.push_back(argument);
        }
    }
    return parsed;
}

// The message for a failed command: rclone missing gets its install hint, everything else the
// text the application shows for it.
std::string failureMessage(const std::exception& error, const CloudStorageProvider& provider) {
    const auto* brimvaleError = dynamic_cast<const BrimvaleError*>(&error);
    if (brimvaleError != nullptr && brimvaleError->is<BrimvaleError::RcloneNotInstalled>()) {
        return brimvaleError->description();
    }
    return ScanErrorInfo::from(error, provider).message;
}

int fail(CommandStreams streams, const std::string& command, const std::string& message) {
    streams.err << "brimvale-cli " << command << ": " << message << '\n';
    return exitFailure;
}

std::unique_ptr<RcloneAdapter> adapterFor(const std::string& name, const std::string& type,
                                          const std::string& displayName, RcloneRunner runner,
                                          const RemoteConfigSection* section) {
    RcloneAdapterOptions options{.runner = std::move(runner)};
    if (section != nullptr) {
        options.configSection = *section;
    }
    if (type == "drive") {
        return std::make_unique<GoogleDriveAdapter>(name, displayName, std::move(options));
    }
    if (type == "dropbox") {
        return std::make_unique<DropboxAdapter>(name, displayName, std::move(options));
    }
    return std::make_unique<GenericRcloneAdapter>(name, type, displayName, std::move(options));
}

std::string paddedRight(const std::string& text, std::size_t width) {
    return text + std::string(width > text.size() ? width - text.size() : 0, ' ');
}

std::string paddedLeft(const std::string& text, std::size_t width) {
    return std::string(width > text.size() ? width - text.size() : 0, ' ') + text;
}

int runRemotes(const RcloneRunner& runner, std::span<const std::string> arguments,
               CommandStreams streams) {
    const auto parsed = parseArguments(arguments);
    if (!parsed.positional.empty()) {
        throw UsageError("unexpected argument '" + parsed.positional.front() + "'");
    }
    const GenericRcloneAdapter helper("", "", "rclone configuration", {.runner = runner});
    RcloneConfigDump dump;
    try {
        dump = helper.configDumpDictionary();
    } catch (const std::exception& error) {
        return fail(streams, "remotes", failureMessage(error, helper));
    }
    const auto remotes = configuredRemotes(dump);

    struct Row {
        std::string name;
        std::string type;
        std::optional<std::string> account;
    };
    std::vector<Row> rows;
    for (const auto& remote : remotes) {
        rows.push_back({remote.name, remote.type,
                        RemoteAccountLabel::pick(&dump.at(remote.name), remote.name, remote.type)});
    }

    if (parsed.json) {
        Json list = Json::array();
        for (const auto& row : rows) {
            list.push_back({{"name", row.name},
                            {"type", row.type},
                            {"account", row.account ? Json(*row.account) : Json(nullptr)}});
        }
        streams.out << list.dump(2) << '\n';
        return exitSuccess;
    }
    if (rows.empty()) {
        streams.out << "No rclone remotes are configured. Add one with 'rclone config'.\n";
        return exitSuccess;
    }
    std::size_t nameWidth = 4;
    std::size_t typeWidth = 4;
    for (const auto& row : rows) {
        nameWidth = std::max(nameWidth, row.name.size());
        typeWidth = std::max(typeWidth, row.type.size());
    }
    streams.out << paddedRight("NAME", nameWidth) << "  " << paddedRight("TYPE", typeWidth)
                << "  ACCOUNT\n";
    for (const auto& row : rows) {
        streams.out << paddedRight(row.name, nameWidth) << "  " << paddedRight(row.type, typeWidth)
                    << "  " << row.account.value_or("-") << '\n';
    }
    return exitSuccess;
}

int runLs(const RcloneRunner& runner, std::span<const std::string> arguments,
          CommandStreams streams) {
    const auto parsed = parseArguments(arguments);
    if (parsed.positional.size() != 1) {
        throw UsageError(parsed.positional.empty() ? "give the folder to list as REMOTE:PATH"
                                                   : "give exactly one REMOTE:PATH");
    }
    const std::string& target = parsed.positional.front();
    const auto colon = target.find(':');
    if (colon == std::string::npos || colon == 0 || target.find('/') < colon) {
        throw UsageError("'" + target +
                         "' is not REMOTE:PATH (for example gdrive:Photos, or gdrive: for the "
                         "top folder)");
    }
    const std::string remoteName = target.substr(0, colon);
    const std::string path = target.substr(colon + 1);

    const GenericRcloneAdapter helper(remoteName, "", remoteName, {.runner = runner});
    RcloneConfigDump dump;
    try {
        dump = helper.configDumpDictionary();
    } catch (const std::exception& error) {
        return fail(streams, "ls", failureMessage(error, helper));
    }
    const auto section = dump.find(remoteName);
    if (section == dump.end()) {
        return fail(
            streams, "ls",
            ScanErrorInfo::from(BrimvaleError::remoteNotConfigured(remoteName), helper).message +
                " Run 'brimvale-cli remotes' to see the configured remotes.");
    }
    const auto type = configuredRemotes({{section->first, section->second}}).front().type;
    const auto adapter = adapterFor(remoteName, type, remoteName, runner, &section->second);

    std::vector<FileNodeRef> items;
    try {
        items = adapter->listDirectory(path, {});
    } catch (const std::exception& error) {
        return fail(streams, "ls", failureMessage(error, *adapter));
    }
    // Largest first, as the application shows a folder.
    const auto folder = FileNode::make({.isDirectory = true, .children = items});
    folder->sortImmediateChildren();
    items = folder->children();

    std::int64_t fileBytes = 0;
    std::size_t fileCount = 0;
    for (const auto& item : items) {
        if (!item->isDirectory()) {
            ++fileCount;
            fileBytes = saturatingAdd(fileBytes, item->size());
        }
    }

    if (parsed.json) {
        Json list = Json::array();
        for (const auto& item : items) {
            Json entry{{"name", item->name()},
                       {"path", item->path()},
                       {"isDirectory", item->isDirectory()}};
            entry["size"] = item->isDirectory() ? Json(nullptr) : Json(item->size());
            entry["sizeText"] =
                item->isDirectory() ? Json(nullptr) : Json(formatBytes(item->size()));
            const auto modified = item->modifiedDate();
            entry["modified"] = modified ? Json(modified->iso8601()) : Json(nullptr);
            const auto id = item->providerID();
            entry["id"] = id ? Json(std::string(*id)) : Json(nullptr);
            const auto mimeType = item->mimeType();
            entry["mimeType"] = mimeType ? Json(std::string(*mimeType)) : Json(nullptr);
            list.push_back(std::move(entry));
        }
        streams.out << Json{{"remote", remoteName}, {"path", path}, {"items", list}}.dump(2)
                    << '\n';
        return exitSuccess;
    }

    if (items.empty()) {
        streams.out << "(empty folder)\n";
        return exitSuccess;
    }
    std::vector<std::string> sizes;
    std::size_t sizeWidth = 0;
    for (const auto& item : items) {
        sizes.push_back(item->isDirectory() ? "-" : formatBytes(item->size()));
        sizeWidth = std::max(sizeWidth, sizes.back().size());
    }
    for (std::size_t i = 0; i < items.size(); ++i) {
        streams.out << paddedLeft(sizes[i], sizeWidth) << "  " << items[i]->name()
                    << (items[i]->isDirectory() ? "/" : "") << '\n';
    }
    const std::size_t folderCount = items.size() - fileCount;
    streams.out << items.size() << (items.size() == 1 ? " item: " : " items: ") << folderCount
                << (folderCount == 1 ? " folder, " : " folders, ") << fileCount
                << (fileCount == 1 ? " file, " : " files, ") << formatBytes(fileBytes)
                << " in files\n";
    return exitSuccess;
}

} // namespace

Command remotesCommand(RcloneRunner runner) {
    return Command{.name = "remotes",
                   .summary = "List the configured rclone remotes (cloud accounts)",
                   .usage = "remotes [--json]",
                   .details =
                       "One line per remote: its name, backend type and the account it signs in "
                       "as, when the\nconfiguration tells. --json writes the same as a JSON array.",
                   .run = [runner = std::move(runner)](std::span<const std::string> arguments,
                                                       CommandStreams streams) {
                       return runRemotes(runner, arguments, streams);
                   }};
}

Command lsCommand(RcloneRunner runner) {
    return Command{.name = "ls",
                   .summary = "List one folder of a cloud account with sizes",
                   .usage = "ls REMOTE:PATH [--json]",
                   .details =
                       "REMOTE is a configured rclone remote (see 'brimvale-cli remotes'); PATH is "
                       "a folder in it,\nempty for the top folder. Files are listed largest first "
                       "with their sizes; folders\nshow no size (their contents are not added "
                       "up here).",
                   .run = [runner = std::move(runner)](std::span<const std::string> arguments,
                                                       CommandStreams streams) {
                       return runLs(runner, arguments, streams);
                   }};
}

} // namespace brimvale::cli
