// Exports written by the real ncdu and gdu of Debian, opened; our exports read by them.
#include "core/interchange/ExportEntryMarks.h"
#include "core/interchange/NcduExportReader.h"
#include "core/interchange/NcduExportWriter.h"
#include "tests/support/ProgramRun.h"
#include "tests/support/TemporaryTree.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <unistd.h>

namespace brimvale {
namespace {

using testing::ProgramResult;
using testing::runProgram;
using testing::TemporaryTree;

const std::string kOddName = "caf\xe9 \xff\"quoted\"\\"; // Latin-1 bytes: not UTF-8

ImportedScan readExportText(const std::string& text) {
    std::size_t position = 0;
    return readNcduExport([&](char* buffer, std::size_t capacity) {
        const std::size_t count = std::min(capacity, text.size() - position);
        std::memcpy(buffer, text.data() + position, count);
        position += count;
        return count;
    });
}

std::string writeExportText(const FileNode& root) {
    std::ostringstream out;
    NcduExportWriter(out).write(root, root.name(), Date::fromUnixSeconds(1'700'000'000));
    return out.str();
}

// Runs a program as a user who cannot read a folder of mode 000 (nobody when the tests run as
// root, who reads everything), with no configuration of the user's own.
ProgramResult runUnprivileged(std::vector<std::string> arguments) {
    std::vector<std::string> command{"env", "HOME=/nonexistent"};
    if (::geteuid() == 0) {
        command = {"setpriv", "--reuid=nobody",   "--regid=nogroup", "--clear-groups",
                   "env",     "HOME=/nonexistent"};
    }
    command.insert(command.end(), arguments.begin(), arguments.end());
    return runProgram(command);
}

// du's allocated total of the tree, and the part of it that is the folders' own blocks, as
// the user the peers ran as sees them.
struct DiskUsage {
    std::int64_t total = 0;
    std::int64_t folderBlocks = 0;
};

DiskUsage diskUsage(const std::string& root) {
    const auto du = runUnprivileged({"du", "-s", "-B1", root});
    const auto folders = runUnprivileged({"find", root, "-type", "d", "-printf", "%b\\n"});
    DiskUsage usage{.total = std::stoll(du.out)};
    std::istringstream blocks(folders.out);
    for (std::int64_t count = 0; blocks >> count;) {
        usage.folderBlocks += count * 512;
    }
    return usage;
}

// A tree with what trips disk-usage tools up: hard links inside and across folders, a sparse
// file, a symbolic link, a name that is not UTF-8 and a folder its reader cannot open.
void makeAwkwardTree(TemporaryTree& tree) {
    tree.file("data", 20'000);
    tree.hardLink("data", "sub/data-link");
    tree.hardLink("data", "sub/deeper/data-link-2");
    tree.sparseFile("sparse", 10 << 20, 8192);
    tree.file("sub/" + kOddName, 3000);
    tree.symbolicLink("data", "link");
    tree.file("locked/inside", 50'000);
    tree.setMode("locked", 0);
}

const FileNode* find(const FileNode& root, std::string_view relative) {
    const FileNode* node = &root;
    while (!relative.empty() && node != nullptr) {
        const auto slash = relative.find('/');
        const std::string_view name = relative.substr(0, slash);
        relative.remove_prefix(slash == std::string_view::npos ? relative.size() : slash + 1);
        const FileNode* next = nullptr;
        for (const auto& child : node->children()) {
            next = child->name() == name ? child.get() : next;
        }
        node = next;
    }
    return node;
}

// Every entry by its path below the root, with its mark, to its size.
std::map<std::string, std::int64_t> sizesByPath(const FileNode& root) {
    std::map<std::string, std::int64_t> sizes;
    std::vector<std::pair<const FileNode*, std::string>> pending{{&root, ""}};
    while (!pending.empty()) {
        const auto [node, path] = pending.back();
        pending.pop_back();
        sizes[path + (node->mimeType() ? " " + std::string(*node->mimeType()) : "")] = node->size();
        for (const auto& child : node->children()) {
            pending.emplace_back(child.get(), path + "/" + std::string(child->name()));
        }
    }
    return sizes;
}

TEST(PeerToolInterop, NcduExportOfAnAwkwardTreeOpensWithDuTotal) {
    TemporaryTree tree;
    makeAwkwardTree(tree);
    const auto ncdu = runUnprivileged({"ncdu", "--ignore-config", "-0", "-o", "-", tree.root()});
    ASSERT_EQ(ncdu.exitStatus, 0) << ncdu.err;
    const ImportedScan scan = readExportText(ncdu.out);
    const FileNode& root = *scan.root;

    EXPECT_EQ(root.size(), diskUsage(tree.root()).total) << "every block once, folders included";
    EXPECT_EQ(root.name(), tree.root());
    const FileNode* odd = find(root, "sub/" + kOddName);
    ASSERT_NE(odd, nullptr) << "the name's bytes come through unchanged";
    EXPECT_EQ(odd->size(), 4096);
    EXPECT_EQ(find(root, "sparse")->size(), 8192);
    EXPECT_EQ(find(root, "data")->size() + find(root, "sub/data-link")->size() +
                  find(root, "sub/deeper/data-link-2")->size(),
              20'480);
    EXPECT_EQ(entryMarkNote(*find(root, "locked")), "read error");
    EXPECT_EQ(entryMarkNote(*find(root, "link")), "special file");

    // ncdu reads our export of it back, with the same sizes.
    QTemporaryDir folder;
    const std::string ours = folder.path().toStdString() + "/ours.json";
    const std::string back = folder.path().toStdString() + "/back.json";
    std::ofstream(ours, std::ios::binary) << writeExportText(root);
    const auto reread = runProgram({"ncdu", "--ignore-config", "-0", "-f", ours, "-o", back});
    EXPECT_EQ(reread.exitStatus, 0);
    EXPECT_EQ(reread.err, "") << "ncdu says it refused a file only on standard error";
    std::ifstream backFile(back, std::ios::binary);
    const std::string backText((std::istreambuf_iterator<char>(backFile)), {});
    const ImportedScan again = readExportText(backText);
    EXPECT_EQ(again.root->size(), root.size());
    EXPECT_EQ(sizesByPath(*again.root), sizesByPath(root));
}

TEST(PeerToolInterop, GduExportOfAnAwkwardTreeCountsHardLinksOnce) {
    TemporaryTree tree;
    makeAwkwardTree(tree);
    const auto gdu = runUnprivileged({"gdu", "-n", "-o", "-", tree.root()});
    ASSERT_EQ(gdu.exitStatus, 0) << gdu.err;
    const ImportedScan scan = readExportText(gdu.out);
    ASSERT_EQ(scan.program, "gdu");
    // gdu writes no size for folders: what the disk held is everything but their own blocks.
    const DiskUsage usage = diskUsage(tree.root());
    EXPECT_EQ(scan.root->size(), usage.total - usage.folderBlocks);
    EXPECT_EQ(find(*scan.root, "data")->size() + find(*scan.root, "sub/data-link")->size() +
                  find(*scan.root, "sub/deeper/data-link-2")->size(),
              20'480);
    // gdu replaces the bytes that are not UTF-8.
    EXPECT_NE(find(*scan.root, "sub/caf\xef\xbf\xbd \xef\xbf\xbd\"quoted\"\\"), nullptr);

    // gdu opens our export of it and lists each item with the size we wrote.
    QTemporaryDir folder;
    const std::string ours = folder.path().toStdString() + "/ours.json";
    std::ofstream(ours, std::ios::binary) << writeExportText(*scan.root);
    const auto listing = runProgram({"gdu", "-n", "--no-prefix", "-f", ours});
    EXPECT_EQ(listing.exitStatus, 0);
    EXPECT_EQ(listing.err, "");
    for (const auto& child : scan.root->children()) {
        if (!child->isDirectory()) {
            const std::string line =
                std::to_string(child->size()) + " " + std::string(child->name());
            EXPECT_NE(listing.out.find(line), std::string::npos) << line << "\n" << listing.out;
        }
    }
}

TEST(PeerToolInterop, OurOwnRoundTripKeepsEverySizeNameAndMark) {
    auto make = [](std::string name, bool folder, std::int64_t size,
                   std::optional<std::string> mark = std::nullopt) {
        return FileNode::make({.name = name,
                               .path = name,
                               .isDirectory = folder,
                               .size = size,
                               .mimeType = std::move(mark)});
    };
    // Sizes as the reader makes them: a folder's own bytes plus its children.
    auto root = make("/backup", true, 0);
    auto odd = make(kOddName + "\n\t\x01", false, 12'288);
    auto unreadable = make("private", true, 4096, std::string(kReadErrorMimeType));
    auto excluded = make("mnt", false, 0, excludedMimeType("otherfs"));
    auto fifo = make("pipe", false, 0, std::string(kSpecialFileMimeType));
    auto photos = make("photos", true, 4096 + 1'000'000);
    photos->mutableChildren().push_back(make("a.jpg", false, 1'000'000));
    for (auto& child : {odd, unreadable, excluded, fifo, photos}) {
        root->mutableChildren().push_back(child);
    }
    root->setSize(12'288 + 4096 + 1'004'096 + 512);
    root->relinkDescendantParentPointers();

    const ImportedScan back = readExportText(writeExportText(*root));
    EXPECT_EQ(back.program, "brimvale");
    EXPECT_EQ(back.exportDate->unixSeconds(), 1'700'000'000);
    EXPECT_EQ(sizesByPath(*back.root), sizesByPath(*root));
    EXPECT_EQ(excludedReason(*find(*back.root, "mnt")->mimeType()), "otherfs");
}

} // namespace
} // namespace brimvale
