#include "core/model/FileNode.h"

#include "core/model/FolderShares.h"
#include "tests/support/TreeBuilders.h"

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <string>
#include <vector>

namespace brimvale {
namespace {

using testing::childNames;
using testing::file;
using testing::folder;

TEST(FileNode, CreationSetsDefaultsAndLeavesChildLinksAlone) {
    auto child = file("a.txt", 5);
    auto root = FileNode::make({.name = "root",
                                .path = "/root",
                                .isDirectory = true,
                                .size = 10,
                                .modifiedDate = Date{12.5},
                                .providerID = "id-1",
                                .mimeType = "text/plain",
                                .children = {child}});
    EXPECT_EQ(root->name(), "root");
    EXPECT_EQ(root->path(), "/root");
    EXPECT_TRUE(root->isDirectory());
    EXPECT_EQ(root->size(), 10);
    EXPECT_EQ(root->modifiedDate(), Date{12.5});
    EXPECT_EQ(root->providerID(), "id-1");
    EXPECT_EQ(root->mimeType(), "text/plain");
    EXPECT_EQ(root->fractionOfParent(), 0.0);
    EXPECT_EQ(root->scanGeneration(), 0);
    EXPECT_EQ(root->parent(), nullptr);
    ASSERT_EQ(root->children().size(), 1u);
    EXPECT_EQ(child->parent(), nullptr);

    auto bare = file("b", 0);
    EXPECT_FALSE(bare->modifiedDate());
    EXPECT_FALSE(bare->providerID());
    EXPECT_FALSE(bare->mimeType());
    EXPECT_FALSE(bare->displayKind());

    // Each instance has its own identity, also for equal contents.
    std::set<NodeID> ids;
    for (int i = 0; i < 1000; ++i) {
        ids.insert(file("same", 1)->id());
    }
    EXPECT_EQ(ids.size(), 1000u);
    const std::string uuid = root->id().uuidString();
    EXPECT_EQ(uuid.size(), 36u);
    EXPECT_EQ(uuid[14], '4');
}

TEST(FileNode, PathsKeepEveryShapeTheyWereMadeWith) {
    const char* paths[][2] = {
        {"/", "/"},        {"", ""},      {"/a", "a"},      {"a", "a"},   {"x/y/a", "a"},
        {"/x/y/a", "a"},   {"/x/y/", ""}, {"odd", "other"}, {"//a", "a"}, {"remote:dir/a", "a"},
        {"weird/ab", "b"},
    };
    for (const auto& [path, name] : paths) {
        auto node = FileNode::make({.name = name, .path = path});
        EXPECT_EQ(node->path(), path) << path;
        EXPECT_EQ(node->name(), name);
        EXPECT_EQ(node->sharedPath()->view(), path);
    }
    // Long names and names with odd bytes stay byte for byte.
    const std::string longName(300, 'n');
    const std::string oddName = "bad\xff\xfe"
                                "name\n";
    EXPECT_EQ(FileNode::make({.name = longName, .path = "/d/" + longName})->path(),
              "/d/" + longName);
    EXPECT_EQ(FileNode::make({.name = oddName, .path = "d/" + oddName})->name(), oddName);

    // Children made from a folder's shared path.
    auto slashRoot = SharedText::make("/");
    auto emptyRoot = SharedText::make("");
    auto deep = SharedText::make("/x/y");
    EXPECT_EQ(FileNode::makeChild(slashRoot, PathJoin::slash, {.name = "a"})->path(), "/a");
    EXPECT_EQ(FileNode::makeChild(emptyRoot, PathJoin::slash, {.name = "a"})->path(), "/a");
    EXPECT_EQ(FileNode::makeChild(nullptr, PathJoin::slash, {.name = "a"})->path(), "/a");
    EXPECT_EQ(FileNode::makeChild(deep, PathJoin::slash, {.name = "a"})->path(), "/x/y/a");
    EXPECT_EQ(FileNode::makeChild(emptyRoot, PathJoin::relativeTail, {.name = "a"})->path(), "a");
    auto tail = SharedText::make("home/me");
    EXPECT_EQ(FileNode::makeChild(tail, PathJoin::relativeTail, {.name = "a"})->path(),
              "home/me/a");
}

TEST(FileNode, AddChildAddsSizeWithoutLinking) {
    auto parent = folder("p", {});
    parent->setSize(10);
    auto child = file("c", 5);
    parent->addChild(child);
    EXPECT_EQ(parent->size(), 15);
    EXPECT_EQ(child->parent(), nullptr);
    parent->addChild(file("negative", -20));
    EXPECT_EQ(parent->size(), -5);
}

TEST(FileNode, SizeSumsPastTheLargestSizeStayAtIt) {
    auto parent = folder("p", {});
    parent->setSize(INT64_MAX - 1);
    parent->addChild(file("c", 2));
    EXPECT_EQ(parent->size(), INT64_MAX);

    auto root = folder("r", {file("a", INT64_MAX), file("b", 1), folder("d", {file("e", 3)})});
    root->propagateSizes();
    EXPECT_EQ(root->size(), INT64_MAX);
    EXPECT_EQ(root->children()[2]->size(), 3);
}

TEST(FileNode, FractionsAreKeptForEmptyOrNegativeFolders) {
    auto a = file("a", 30);
    auto b = file("b", 10);
    auto root = folder("r", {a, b});
    root->setSize(40);
    root->rebalanceChildren();
    EXPECT_DOUBLE_EQ(a->fractionOfParent(), 0.75);
    EXPECT_DOUBLE_EQ(b->fractionOfParent(), 0.25);

    for (const std::int64_t degenerate : {0, -7}) {
        root->setSize(degenerate);
        root->rebalanceChildren();
        EXPECT_DOUBLE_EQ(a->fractionOfParent(), 0.75);
        EXPECT_DOUBLE_EQ(b->fractionOfParent(), 0.25);
    }
    // Only direct children are touched.
    auto grandchild = file("g", 1);
    auto middle = folder("m", {grandchild});
    auto top = folder("t", {middle});
    top->setSize(100);
    middle->setSize(1);
    top->rebalanceChildren();
    EXPECT_DOUBLE_EQ(middle->fractionOfParent(), 0.01);
    EXPECT_EQ(grandchild->fractionOfParent(), 0.0);
}

TEST(FileNode, ChildOrderIsSizeThenFileManagerNameThenPreviousOrder) {
    auto root = folder("r", {
                                file("a10", 5),
                                file("a9", 5),
                                file("big", 100),
                                file("same", 1),
                                file("B", 5),
                                file("Same", 1), // ranks equal to "same": stays after it
                                file("b", 5),
                                file("neg", -1),
                                file("file02", 7),
                                file("file1", 7),
                            });
    root->sortImmediateChildren();
    EXPECT_EQ(childNames(*root), (std::vector<std::string>{"big", "file1", "file02", "a9", "a10",
                                                           "B", "b", "same", "Same", "neg"}));

    // The previous order decides ties: sorting again keeps it.
    auto again = folder("r", {file("Same", 1), file("same", 1)});
    again->sortImmediateChildren();
    EXPECT_EQ(childNames(*again), (std::vector<std::string>{"Same", "same"}));
}

TEST(FileNode, SortChildrenOrdersEveryLevelButSortImmediateOnlyOne) {
    auto inner = folder("inner", {file("x", 1), file("y", 2)});
    auto root = folder("r", {file("small", 1), inner});
    inner->setSize(3);
    root->sortImmediateChildren();
    EXPECT_EQ(childNames(*root), (std::vector<std::string>{"inner", "small"}));
    EXPECT_EQ(childNames(*inner), (std::vector<std::string>{"x", "y"}));
    root->sortChildren();
    EXPECT_EQ(childNames(*inner), (std::vector<std::string>{"y", "x"}));
}

TEST(FileNode, RollUpSumsFoldersOnlyAndRebalances) {
    auto emptyFolder = folder("empty", {});
    emptyFolder->setSize(999); // a stale size is replaced by the sum of no children
    auto sub = folder("sub", {file("c", 3), file("d", 1)});
    auto root = folder("r", {file("a", 4), sub, emptyFolder});
    auto lonelyFile = file("f", 8);
    root->propagateSizes();
    EXPECT_EQ(sub->size(), 4);
    EXPECT_EQ(emptyFolder->size(), 0);
    EXPECT_EQ(root->size(), 8);
    EXPECT_DOUBLE_EQ(sub->fractionOfParent(), 0.5);
    EXPECT_DOUBLE_EQ(sub->children()[0]->fractionOfParent(), 0.75);
    lonelyFile->propagateSizes();
    EXPECT_EQ(lonelyFile->size(), 8);
}

TEST(FileNode, StalePruningAndClearingMarks) {
    auto keptFile = file("kept", 1);
    auto staleFile = file("stale", 2);
    auto staleFolder = folder("staleFolder", {file("inside", 3)});
    auto keptFolder = folder("keptFolder", {file("old", 4), file("new", 5)});
    auto root = folder("r", {staleFile, keptFile, staleFolder, keptFolder});
    root->relinkDescendantParentPointers();
    for (auto* node :
         {root.get(), keptFile.get(), keptFolder.get(), keptFolder->children()[1].get()}) {
        node->setScanGeneration(7);
    }
    staleFolder->setScanGeneration(6);
    staleFolder->children()[0]->setScanGeneration(7); // seen, but under a stale folder

    root->pruneStaleNodes(7);
    EXPECT_EQ(childNames(*root), (std::vector<std::string>{"kept", "keptFolder"}));
    EXPECT_EQ(childNames(*keptFolder), (std::vector<std::string>{"new"}));
    EXPECT_EQ(staleFile->parent(), nullptr); // a removed node held elsewhere has no parent
    EXPECT_EQ(keptFile->parent(), root.get());

    root->clearScanMarks();
    EXPECT_EQ(root->scanGeneration(), 0);
    EXPECT_EQ(keptFolder->children()[0]->scanGeneration(), 0);
}

TEST(FileNode, RelinkAndParentLinksAreNeverOwning) {
    auto leaf = file("leaf", 1);
    {
        auto middle = folder("m", {leaf});
        auto root = folder("r", {middle});
        root->relinkDescendantParentPointers();
        EXPECT_EQ(leaf->parent(), middle.get());
        EXPECT_EQ(middle->parent(), root.get());
        EXPECT_EQ(root->parent(), nullptr);
    }
    // The tree is gone; the node a view still holds lives on without a dangling parent.
    EXPECT_EQ(leaf->parent(), nullptr);
    EXPECT_EQ(leaf->name(), "leaf");
}

TEST(FileNode, DeepChainsDoNotOverflowTheStackInAnyPass) {
    constexpr int kDepth = 100'000;
    auto root = folder("root", {});
    FileNode* tip = root.get();
    for (int level = 0; level < kDepth; ++level) {
        auto next = folder("d" + std::to_string(level), {});
        FileNode* raw = next.get();
        tip->mutableChildren().push_back(std::move(next));
        tip = raw;
    }
    tip->mutableChildren().push_back(file("end", 42));
    root->relinkDescendantParentPointers();
    root->propagateSizes();
    EXPECT_EQ(root->size(), 42);
    root->sortChildren();
    root->setScanGeneration(1);
    root->pruneStaleNodes(1);
    EXPECT_TRUE(root->children().empty());
    root->clearScanMarks();
    EXPECT_EQ(root->subtreeNodeCount(), 1);

    // And freeing a deep chain in one go.
    auto chain = folder("c", {});
    FileNode* end = chain.get();
    for (int level = 0; level < kDepth; ++level) {
        auto next = folder("d", {});
        FileNode* raw = next.get();
        end->mutableChildren().push_back(std::move(next));
        end = raw;
    }
    EXPECT_EQ(chain->subtreeNodeCount(), kDepth + 1);
    chain.reset();
}

// The same tree every time for a seed: folders of random width and depth, one deep chain, equal
// sizes under different names, folder sizes already the sums.
FileNodeRef randomTree(std::uint32_t seed) {
    std::mt19937 random(seed);
    auto root = folder("root", {});
    std::vector<FileNode*> folders{root.get()};
    for (int i = 0; i < 30'000; ++i) {
        FileNode* parent = folders[random() % folders.size()];
        const std::string name = "n" + std::to_string(random() % 500);
        if (random() % 8 == 0) {
            auto child = folder(name, {});
            folders.push_back(child.get());
            parent->mutableChildren().push_back(std::move(child));
        } else {
            parent->mutableChildren().push_back(
                file(name, static_cast<std::int64_t>(random() % 50)));
        }
    }
    FileNode* tip = folders[1];
    for (int level = 0; level < 20'000; ++level) {
        auto next = folder("d", {});
        FileNode* raw = next.get();
        tip->mutableChildren().push_back(std::move(next));
        tip = raw;
    }
    tip->mutableChildren().push_back(file("end", 9));
    root->relinkDescendantParentPointers();
    root->propagateSizes();
    return root;
}

std::vector<std::tuple<std::string, std::int64_t, double>> preOrder(const FileNode& root) {
    std::vector<std::tuple<std::string, std::int64_t, double>> order;
    std::vector<const FileNode*> stack{&root};
    while (!stack.empty()) {
        const FileNode* node = stack.back();
        stack.pop_back();
        order.emplace_back(node->name(), node->size(), node->fractionOfParent());
        for (auto it = node->children().rbegin(); it != node->children().rend(); ++it) {
            stack.push_back(it->get());
        }
    }
    return order;
}

// Shared out among threads by subtrees, a large tree gets the shares and order of the
// one-folder-at-a-time passes; small trees and single folders too.
TEST(FileNode, EveryFolderRebalancedAndSortedMatchesTheSequentialPasses) {
    for (const std::uint32_t seed : {1u, 2u}) {
        const auto parallel = randomTree(seed);
        const auto sequential = randomTree(seed);
        rebalanceAndSortEveryFolder(*parallel);
        sequential->sortChildren();
        EXPECT_EQ(preOrder(*parallel), preOrder(*sequential));
    }
    auto small = folder("s", {file("b", 1), file("a", 1), file("c", 3)});
    small->propagateSizes();
    rebalanceAndSortEveryFolder(*small);
    EXPECT_EQ(childNames(*small), (std::vector<std::string>{"c", "a", "b"}));
    EXPECT_DOUBLE_EQ(small->children()[0]->fractionOfParent(), 0.6);
    auto empty = folder("e", {});
    rebalanceAndSortEveryFolder(*empty);
    EXPECT_TRUE(empty->children().empty());
}

TEST(FileNode, DisplayKindFromMimeType) {
    const std::pair<std::optional<std::string>, std::optional<std::string>> cases[] = {
        {"Application/PDF", "PDF"},
        {"image/heic", "Image"},
        {"IMAGE/PNG", "Image"},
        {"video/mp4", "Video"},
        {"audio/mpeg", "Audio"},
        {"text/plain", "Plain text"},
        {"text/plain; charset=utf-8", "text/plain; charset=utf-8"},
        {"application/zip", "application/zip"},
        {"Application/X-Custom", "application/x-custom"},
        {"application/vnd.google-apps.document", "Google Doc"},
        {"application/vnd.google-apps.spreadsheet", "Google Sheet"},
        {"application/vnd.google-apps.presentation", "Google Slides"},
        {"application/vnd.google-apps.form", "Google Form"},
        {"application/vnd.google-apps.drawing", "Google Drawing"},
        {"application/vnd.google-apps.site", "Google Site"},
        {"application/vnd.google-apps.shortcut", "Shortcut"},
        {"application/vnd.google-apps.map", "Google My Maps"},
        {"application/vnd.google-apps.script", "Apps Script"},
        {"application/vnd.google-apps.folder", "application/vnd.google-apps.folder"},
        {"inode/directory", "Folder"},
        {"Inode/Directory", "Folder"},
        {"image", "image"},
        {"", std::nullopt},
        {std::nullopt, std::nullopt},
    };
    for (const auto& [mime, kind] : cases) {
        auto node = FileNode::make({.name = "x", .path = "x", .mimeType = mime});
        EXPECT_EQ(node->displayKind(), kind) << mime.value_or("(none)");
    }
}

TEST(FileNode, FormattedSizeUsesTheByteCountText) {
    EXPECT_EQ(file("a", 1250)->formattedSize(), "1.2 KB");
    EXPECT_EQ(file("a", 1)->formattedSize(), "1 bytes");
}

} // namespace
} // namespace brimvale
