#include "cli/OverviewCommands.h"

#include "cli/DisplayText.h"
#include "cli/SavedTree.h"
#include "cli/TreeJsonWriter.h"
#include "core/insights/LargestFiles.h"
#include "core/insights/NameIndex.h"
#include "core/insights/SpaceByType.h"
#include "core/model/SizeFormatter.h"
#include "core/model/TreePath.h"

#include <charconv>
#include <iostream>
#include <optional>
#include <vector>

namespace brimvale::cli {
namespace {

struct OverviewArguments {
    std::vector<std::string> operands; // TARGET, then PATTERN for find
    bool json = false;
    int count = 0;
    std::optional<std::string> folder; // --in: a folder of the saved scan, below its root
};

// The saved scan of the first operand and the folder of it looked at (--in, else its root);
// none after saying why.
struct Scope {
    SavedTree saved;
    const FileNode* folder = nullptr;
};

std::optional<Scope> readScope(const OverviewArguments& parsed, const char* command,
                               CommandStreams streams) {
    auto saved = readSavedTree(parsed.operands[0], command, streams);
    if (!saved) {
        return std::nullopt;
    }
    const FileNode* folder = folderBelow(*saved->root, parsed.folder.value_or(""));
    if (folder == nullptr) {
        streams.err << "brimvale-cli " << command << ": the saved scan of "
                    << displayText(parsed.operands[0]) << " has no folder "
                    << displayText(*parsed.folder) << '\n';
        return std::nullopt;
    }
    return Scope{std::move(*saved), folder};
}

OverviewArguments parseOverviewArguments(std::span<const std::string> arguments,
                                         std::size_t operandCount, int defaultCount,
                                         const char* missing) {
    OverviewArguments parsed{.count = defaultCount};
    bool optionsEnded = false;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        std::string name = arguments[i];
        if (!optionsEnded && name == "--") {
            optionsEnded = true;
            continue;
        }
        if (optionsEnded || !name.starts_with("-") || name == "-") {
            if (parsed.operands.size() == operandCount) {
                throw UsageError("unexpected '" + name + "'");
            }
            parsed.operands.push_back(name);
            continue;
        }
        std::optional<std::string> value;
        if (const auto equals = name.find('='); name.starts_with("--") && equals != name.npos) {
            value = name.substr(equals + 1);
            name.resize(equals);
        }
        if (name == "--json" && !value) {
            parsed.json = true;
        } else if (name == "--in") {
            if (!value) {
                if (i + 1 == arguments.size()) {
                    throw UsageError("--in needs a folder of the saved scan");
                }
                value = arguments[++i];
            }
            parsed.folder = *value;
        } else if (defaultCount > 0 && (name == "-n" || name == "--count")) {
            if (!value) {
                if (i + 1 == arguments.size()) {
                    throw UsageError(name + " needs a number");
                }
                value = arguments[++i];
            }
            const auto result =
                std::from_chars(value->data(), value->data() + value->size(), parsed.count);
            if (result.ec != std::errc() || result.ptr != value->data() + value->size() ||
                parsed.count < 1) {
                throw UsageError(name + " needs a whole number of at least 1, not '" + *value +
                                 "'");
            }
        } else {
            throw UsageError("unknown option '" + arguments[i] + "'");
        }
    }
    if (parsed.operands.size() < operandCount) {
        throw UsageError(missing);
    }
    return parsed;
}

std::string padLeft(const std::string& text, std::size_t width) {
    return text.size() >= width ? text : std::string(width - text.size(), ' ') + text;
}

// Output that ends the program: the tree is kept, not freed node by node.
void finish(CommandStreams streams, FileNodeRef root) {
    streams.out.flush();
    if (&streams.out == &std::cout) {
        keepUntilExit(std::move(root));
    }
}

std::string itemPath(const FileNode& node, const FileNode& root) {
    std::string path = pathBelow(node, root);
    if (node.isDirectory()) {
        path += '/';
    }
    return path;
}

int runTop(std::span<const std::string> arguments, CommandStreams streams) {
    const auto parsed =
        parseOverviewArguments(arguments, 1, 20, "give the folder or account (as scan takes it)");
    auto scope = readScope(parsed, "top", streams);
    if (!scope) {
        return exitFailure;
    }
    const SavedTree* saved = &scope->saved;
    const FileNode& root = *saved->root;
    const auto largest = largestFiles(*scope->folder, static_cast<std::size_t>(parsed.count));
    if (parsed.json) {
        std::string text = "{\"target\":";
        TreeJsonWriter::appendJsonString(text, saved->rootName);
        text += ",\"files\":[";
        for (std::size_t i = 0; i < largest.size(); ++i) {
            text += i == 0 ? "{\"path\":" : ",{\"path\":";
            TreeJsonWriter::appendJsonString(text, pathBelow(*largest[i], root));
            text += ",\"size\":" + std::to_string(largest[i]->size()) + "}";
        }
        streams.out << text << "]}\n";
    } else {
        streams.out << displayText(saved->rootName) << "  " << formatBytes(root.size()) << "  the "
                    << largest.size()
                    << (largest.size() == 1 ? " largest file\n" : " largest files\n");
        for (const FileNodeRef& file : largest) {
            streams.out << padLeft(formatBytes(file->size()), 9) << "  "
                        << displayText(pathBelow(*file, root)) << '\n';
        }
    }
    finish(streams, saved->root);
    return exitSuccess;
}

void appendTotal(std::string& text, const TypeTotal& total) {
    text += "\"size\":" + std::to_string(total.bytes) + ",\"files\":" + std::to_string(total.files);
}

std::string shareText(std::int64_t part, std::int64_t whole) {
    if (whole <= 0) {
        return "     ";
    }
    char buffer[16];
    std::snprintf(buffer, sizeof buffer, "%5.1f%%",
                  100.0 * static_cast<double>(part) / static_cast<double>(whole));
    return buffer;
}

void printTotalRow(std::ostream& out, const std::string& label, const TypeTotal& total,
                   std::int64_t whole) {
    out << "  " << label << std::string(label.size() < 18 ? 18 - label.size() : 1, ' ')
        << padLeft(formatBytes(total.bytes), 9) << "  " << shareText(total.bytes, whole)
        << padLeft(groupedCount(total.files), 12) << '\n';
}

int runTypes(std::span<const std::string> arguments, CommandStreams streams) {
    const auto parsed =
        parseOverviewArguments(arguments, 1, 0, "give the folder or account (as scan takes it)");
    auto scope = readScope(parsed, "types", streams);
    if (!scope) {
        return exitFailure;
    }
    const SavedTree* saved = &scope->saved;
    const SpaceByType totals = spaceByType(*scope->folder);
    if (parsed.json) {
        std::string text = "{\"target\":";
        TreeJsonWriter::appendJsonString(text, saved->rootName);
        text += ",";
        appendTotal(text, totals.all);
        text += ",\"kinds\":[";
        for (std::size_t i = 0; i < kFileCategoryCount; ++i) {
            text += i == 0 ? "{\"kind\":\"" : ",{\"kind\":\"";
            text += fileCategoryKey(static_cast<FileCategory>(i));
            text += "\",";
            appendTotal(text, totals.byCategory[i]);
            text += "}";
        }
        text += "],\"extensions\":[";
        for (std::size_t i = 0; i < totals.topExtensions.size(); ++i) {
            const ExtensionTotal& extension = totals.topExtensions[i];
            text += i == 0 ? "{\"extension\":" : ",{\"extension\":";
            TreeJsonWriter::appendJsonString(text, extension.extension);
            text += ",\"kind\":\"";
            text += fileCategoryKey(extension.category);
            text += "\",";
            appendTotal(text, extension.total);
            text += "}";
        }
        text += "],\"otherExtensions\":{";
        appendTotal(text, totals.otherExtensions);
        text += "},\"noExtension\":{";
        appendTotal(text, totals.noExtension);
        streams.out << text << "}}\n";
    } else {
        streams.out << displayText(saved->rootName) << "  " << formatBytes(totals.all.bytes)
                    << "  (" << groupedCount(totals.all.files)
                    << (totals.all.files == 1 ? " file)\n" : " files)\n");
        streams.out << "  KIND                   SIZE   SHARE       FILES\n";
        std::vector<std::size_t> order;
        for (std::size_t i = 0; i < kFileCategoryCount; ++i) {
            order.push_back(i);
        }
        std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
            return totals.byCategory[a].bytes > totals.byCategory[b].bytes;
        });
        for (const std::size_t i : order) {
            if (totals.byCategory[i].files > 0) {
                printTotalRow(streams.out,
                              std::string(fileCategoryName(static_cast<FileCategory>(i))),
                              totals.byCategory[i], totals.all.bytes);
            }
        }
        streams.out << "\n  EXTENSION              SIZE   SHARE       FILES\n";
        for (const ExtensionTotal& extension : totals.topExtensions) {
            // Appended, not "." + text: GCC 12 warns of an overlapping copy in the temporary.
            std::string label = ".";
            label += displayText(extension.extension);
            printTotalRow(streams.out, label, extension.total, totals.all.bytes);
        }
        if (totals.otherExtensions.files > 0) {
            printTotalRow(streams.out, "other extensions", totals.otherExtensions,
                          totals.all.bytes);
        }
        if (totals.noExtension.files > 0) {
            printTotalRow(streams.out, "no extension", totals.noExtension, totals.all.bytes);
        }
    }
    finish(streams, saved->root);
    return exitSuccess;
}

int runFind(std::span<const std::string> arguments, CommandStreams streams) {
    const auto parsed = parseOverviewArguments(
        arguments, 2, 50, "give the folder or account (as scan takes it) and a name to look for");
    if (parsed.operands[1].empty()) {
        throw UsageError("give a name, part of a name or a pattern such as '*.iso' to look for");
    }
    auto scope = readScope(parsed, "find", streams);
    if (!scope) {
        return exitFailure;
    }
    const SavedTree* saved = &scope->saved;
    const FileNode& root = *saved->root;
    const NamePattern pattern(parsed.operands[1]);
    const NameIndex::Matches matches =
        NameIndex(*scope->folder).search(pattern, static_cast<std::size_t>(parsed.count));
    if (parsed.json) {
        std::string text = "{\"target\":";
        TreeJsonWriter::appendJsonString(text, saved->rootName);
        text += ",\"pattern\":";
        TreeJsonWriter::appendJsonString(text, parsed.operands[1]);
        text += ",\"matches\":" + std::to_string(matches.count) + ",\"items\":[";
        for (std::size_t i = 0; i < matches.items.size(); ++i) {
            const FileNode& item = *matches.items[i];
            text += i == 0 ? "{\"path\":" : ",{\"path\":";
            TreeJsonWriter::appendJsonString(text, pathBelow(item, root));
            text += ",\"size\":" + std::to_string(item.size()) +
                    ",\"folder\":" + (item.isDirectory() ? "true}" : "false}");
        }
        streams.out << text << "]}\n";
    } else {
        streams.out << displayText(saved->rootName) << "  "
                    << groupedCount(static_cast<std::int64_t>(matches.count))
                    << (matches.count == 1 ? " item matches " : " items match ")
                    << displayText(parsed.operands[1]) << '\n';
        for (const FileNodeRef& item : matches.items) {
            streams.out << padLeft(formatBytes(item->size()), 9) << "  "
                        << displayText(itemPath(*item, root)) << '\n';
        }
        if (matches.count > matches.items.size()) {
            const auto more = static_cast<std::int64_t>(matches.count - matches.items.size());
            streams.out << padLeft("", 9) << "  \u2026 " << groupedCount(more) << " more (-n "
                        << matches.count << " lists them all)\n";
        }
    }
    finish(streams, saved->root);
    return exitSuccess;
}

} // namespace

Command topCommand() {
    return Command{
        .name = "top",
        .summary = "List the largest files of a saved scan",
        .usage = "top PATH|ACCOUNT: [--in FOLDER] [-n N] [--json]",
        .details =
            "Lists the N largest files anywhere in the saved scan of the folder PATH or the\n"
            "account ACCOUNT: (made by scan), largest first, with their paths below it.\n"
            "Reads only the saved scan: nothing is scanned and no account is contacted.\n"
            "\n"
            "  --in FOLDER     only what FOLDER holds, a path below PATH or ACCOUNT:\n"
            "  -n, --count N   how many files (default 20)\n"
            "  --json          write {\"target\", \"files\": [{\"path\", \"size\"}]}",
        .run = runTop};
}

Command typesCommand() {
    return Command{
        .name = "types",
        .summary = "Show where the space of a saved scan goes by kind of file",
        .usage = "types PATH|ACCOUNT: [--in FOLDER] [--json]",
        .details =
            "Totals the files of the saved scan of PATH or ACCOUNT: by kind (video, images,\n"
            "audio, archives, code, documents, other) and by extension (the 20 that take the\n"
            "most space, then all others and the files without one). The kind comes from the\n"
            "MIME type a cloud account reports, else from the extension.\n"
            "\n"
            "  --in FOLDER   only what FOLDER holds, a path below PATH or ACCOUNT:\n"
            "  --json        write {\"target\", \"size\", \"files\", \"kinds\",\n"
            "                \"extensions\", \"otherExtensions\", \"noExtension\"}",
        .run = runTypes};
}

Command findCommand() {
    return Command{
        .name = "find",
        .summary = "Find items of a saved scan by name",
        .usage = "find PATH|ACCOUNT: PATTERN [--in FOLDER] [-n N] [--json]",
        .details =
            "Lists the files and folders of the saved scan of PATH or ACCOUNT: whose names\n"
            "contain PATTERN, largest first, with their paths. A PATTERN with *, ? or [...]\n"
            "is matched against whole names instead ('*.iso', 'IMG_20??_*'; quote it for the\n"
            "shell). Letters A to Z match either case.\n"
            "\n"
            "  --in FOLDER     only in FOLDER, a path below PATH or ACCOUNT:\n"
            "  -n, --count N   how many items to list (default 50); all are counted\n"
            "  --json          write {\"target\", \"pattern\", \"matches\",\n"
            "                  \"items\": [{\"path\", \"size\", \"folder\"}]}",
        .run = runFind};
}

} // namespace brimvale::cli
