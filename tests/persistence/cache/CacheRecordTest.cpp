#include "core/persistence/cache/CacheRecord.h"

#include "core/persistence/bplist/BinaryPlistWriter.h"
#include "core/persistence/cache/CacheSnapshot.h"
#include "core/persistence/lzfse/Lzfse.h"
#include "tests/support/TreeBuilders.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace brimvale {
namespace {

std::vector<std::uint8_t> bytesOf(std::string_view text) {
    return {text.begin(), text.end()};
}

FileNodeRef sampleTree() {
    auto photo = FileNode::make({.name = "Ferien 2023 — Strand.jpg",
                                 .path = "/Pictures/Ferien 2023 — Strand.jpg",
                                 .size = 3'500'000,
                                 .modifiedDate = Date{7.2e8},
                                 .providerID = "1AbCdEf",
                                 .mimeType = "image/jpeg"});
    auto emptyID = FileNode::make(
        {.name = "notes.txt", .path = "/Pictures/notes.txt", .size = 12, .providerID = ""});
    auto pictures = FileNode::make({.name = "Pictures",
                                    .path = "/Pictures",
                                    .isDirectory = true,
                                    .size = 3'500'012,
                                    .children = {emptyID, photo}});
    auto emptyFolder = FileNode::make({.name = "Empty", .path = "/Empty", .isDirectory = true});
    auto root = FileNode::make({.name = "My Drive",
                                .path = "/",
                                .isDirectory = true,
                                .size = 3'500'012,
                                .children = {emptyFolder, pictures}});
    return root;
}

// The ten columns of a record written by hand, with version `version` and without compression.
BinaryPlistWriter handWrittenRecord(const CacheSnapshot& snapshot, std::int64_t version) {
    BinaryPlistWriter writer;
    writer.addInteger("v", version);
    writer.addString("rp", snapshot.rootPath);
    writer.addString("rn", snapshot.rootName);
    writer.addStringColumn("nm", snapshot.names);
    writer.addInt32Column("pr", snapshot.parents);
    writer.addBooleanColumn("di", snapshot.isDirs);
    writer.addInt64Column("sz", snapshot.sizes);
    writer.addRealColumn("mt", snapshot.modTimes);
    writer.addStringColumn("pi", snapshot.pids);
    writer.addStringColumn("mi", snapshot.mimes);
    return writer;
}

TEST(CacheRecord, RoundTripKeepsEveryFieldAndRebuildsPathsOrderAndLinks) {
    const auto root = sampleTree();
    const auto snapshot = snapshotForCache(*root);
    // Pre-order with children in stored order.
    EXPECT_EQ(snapshot.names, (std::vector<std::string>{"My Drive", "Empty", "Pictures",
                                                        "notes.txt", "Ferien 2023 — Strand.jpg"}));
    EXPECT_EQ(snapshot.parents, (std::vector<std::int32_t>{-1, 0, 0, 2, 2}));
    EXPECT_EQ(snapshot.pids[4], "1AbCdEf");
    EXPECT_EQ(snapshot.modTimes[0], 0.0);

    const auto bytes = encodeCacheSnapshot(snapshot);
    ASSERT_TRUE(bytes);
    std::vector<double> progress;
    const auto decoded =
        decodeCacheNode(*bytes, [&](double fraction) { progress.push_back(fraction); });
    ASSERT_TRUE(decoded);
    const FileNodeRef& back = *decoded;
    EXPECT_EQ(back->path(), "/");
    EXPECT_EQ(back->name(), "My Drive");
    EXPECT_NE(back->id(), root->id());
    EXPECT_EQ(back->parent(), nullptr);
    ASSERT_EQ(back->children().size(), 2u);
    const auto& pictures = back->children()[0]; // sorted: the larger folder first
    EXPECT_EQ(pictures->name(), "Pictures");
    EXPECT_EQ(pictures->path(), "/Pictures"); // no doubled slash under "/"
    EXPECT_EQ(pictures->parent(), back.get());
    const auto& photo = pictures->children()[0];
    EXPECT_EQ(photo->path(), "/Pictures/Ferien 2023 — Strand.jpg");
    EXPECT_EQ(photo->size(), 3'500'000);
    EXPECT_EQ(photo->modifiedDate(), Date{7.2e8});
    EXPECT_EQ(photo->providerID(), "1AbCdEf");
    EXPECT_EQ(photo->mimeType(), "image/jpeg");
    EXPECT_EQ(photo->parent(), pictures.get());
    const auto& notes = pictures->children()[1];
    EXPECT_FALSE(notes->providerID()) << "an empty provider id reads back as absent";
    EXPECT_FALSE(notes->mimeType());
    EXPECT_FALSE(notes->modifiedDate());
    EXPECT_EQ(back->children()[1]->size(), 0);

    // Progress rises from 0.1 to 1 through the fixed stages.
    ASSERT_FALSE(progress.empty());
    EXPECT_TRUE(std::is_sorted(progress.begin(), progress.end()));
    EXPECT_EQ(progress.front(), 0.1);
    EXPECT_EQ(progress.back(), 1.0);
    for (const double stage : {0.5, 0.85, 0.92}) {
        EXPECT_NE(std::find(progress.begin(), progress.end(), stage), progress.end()) << stage;
    }
}

TEST(CacheRecord, LoneRootsPathsAndUncompressedRecords) {
    auto lone = FileNode::make({.name = "data", .path = "remote:data", .isDirectory = true});
    const auto snapshot = snapshotForCache(*lone);
    EXPECT_EQ(snapshot.parents, std::vector<std::int32_t>{-1});
    EXPECT_EQ(snapshot.nodeCount(), 1u);
    auto decoded = decodeCacheNode(*encodeCacheSnapshot(snapshot));
    ASSERT_TRUE(decoded);
    EXPECT_TRUE((*decoded)->children().empty());
    EXPECT_EQ((*decoded)->path(), "remote:data");

    // A record written without compression still loads.
    CacheSnapshot plain{.rootPath = "",
                        .rootName = "root",
                        .names = {"root", "a", "b"},
                        .parents = {-1, 0, 1},
                        .isDirs = {1, 1, 0},
                        .sizes = {5, 5, 5},
                        .modTimes = {0, 0, 1.5},
                        .pids = {"", "", ""},
                        .mimes = {"", "", ""}};
    const auto propertyList = handWrittenRecord(plain, 7).write(); // any version is read
    auto fromPlain = decodeCacheNode(propertyList);
    ASSERT_TRUE(fromPlain);
    const auto& b = (*fromPlain)->children()[0]->children()[0];
    EXPECT_EQ(b->path(), "/a/b"); // an empty root path joins with "/"
    EXPECT_EQ(b->modifiedDate(), Date{1.5});
    EXPECT_FALSE(decodeCacheRecord(propertyList)->partial);

    // The partial mark of a stopped scan survives the round trip; a mark of another type or
    // of zero is not one.
    auto stopped = snapshotForCache(*sampleTree());
    stopped.partial = true;
    const auto partial = decodeCacheRecord(*encodeCacheSnapshot(stopped));
    ASSERT_TRUE(partial);
    EXPECT_TRUE(partial->partial);
    EXPECT_EQ(partial->root->size(), 3'500'012);
    EXPECT_FALSE(decodeCacheRecord(*encodeCacheSnapshot(snapshotForCache(*sampleTree())))->partial);
    for (const bool asText : {true, false}) {
        BinaryPlistWriter marked = handWrittenRecord(plain, 2);
        if (asText) {
            marked.addString("pa", "1");
        } else {
            marked.addInteger("pa", 0);
        }
        const auto decodedMarked = decodeCacheRecord(marked.write());
        ASSERT_TRUE(decodedMarked);
        EXPECT_FALSE(decodedMarked->partial);
    }
}

TEST(CacheRecord, DamagedRecordsGiveNoTreeNeverACrash) {
    const auto good = *encodeCacheSnapshot(snapshotForCache(*sampleTree()));
    EXPECT_FALSE(decodeCacheNode({}));
    EXPECT_FALSE(decodeCacheNode(bytesOf("not a cache at all")));
    EXPECT_FALSE(decodeCacheNode(bytesOf("bplist00")));
    for (std::size_t length = 0; length < good.size();
         length += std::max<std::size_t>(1, good.size() / 97)) {
        EXPECT_FALSE(decodeCacheNode(std::span(good).first(length))) << length;
    }
    for (std::size_t position = 0; position < good.size(); ++position) {
        auto flipped = good;
        flipped[position] ^= 0x5A;
        (void)decodeCacheNode(flipped); // must not crash; a tree may or may not come back
    }

    CacheSnapshot uneven{.rootPath = "/",
                         .rootName = "r",
                         .names = {"r", "a"},
                         .parents = {-1},
                         .isDirs = {1, 0},
                         .sizes = {1, 1},
                         .modTimes = {0, 0},
                         .pids = {"", ""},
                         .mimes = {"", ""}};
    EXPECT_FALSE(rebuildTree(uneven));
    EXPECT_FALSE(rebuildTree(CacheSnapshot{}));

    // Parent indices out of range, pointing forward or at the node itself are dropped.
    CacheSnapshot odd{.rootPath = "/",
                      .rootName = "r",
                      .names = {"r", "kept", "beyond", "self", "forward", "child"},
                      .parents = {-1, 0, 99, 3, 5, 1},
                      .isDirs = {1, 1, 0, 1, 0, 0},
                      .sizes = {1, 1, 1, 1, 1, 1},
                      .modTimes = std::vector<double>(6, 0.0),
                      .pids = std::vector<std::string>(6),
                      .mimes = std::vector<std::string>(6)};
    const auto rebuilt = rebuildTree(odd);
    ASSERT_TRUE(rebuilt);
    EXPECT_EQ(testing::childNames(**rebuilt), std::vector<std::string>{"kept"});
    EXPECT_EQ(testing::childNames(*(*rebuilt)->children()[0]), std::vector<std::string>{"child"});
}

TEST(CacheRecord, LegacyJsonIsReadWithFractionsAndRequiredKeys) {
    const std::string legacy =
        R"({"name":"root","path":"/","isDirectory":true,"size":30,"fractionOfParent":0,
        "children":[
          {"name":"small","path":"/small","isDirectory":false,"size":10,"fractionOfParent":0.33,"children":[],
           "modifiedDate":12.5,"providerID":"p1","mimeType":"text/plain"},
          {"name":"big","path":"/big","isDirectory":false,"size":20,"fractionOfParent":0.66,"children":[],
           "modifiedDate":null}]})";
    const auto root = decodeCacheNode(bytesOf(legacy));
    ASSERT_TRUE(root);
    EXPECT_EQ(testing::childNames(**root), (std::vector<std::string>{"big", "small"}));
    const auto& small = (*root)->children()[1];
    EXPECT_DOUBLE_EQ(small->fractionOfParent(), 0.33);
    EXPECT_EQ(small->modifiedDate(), Date{12.5});
    EXPECT_EQ(small->providerID(), "p1");
    EXPECT_EQ(small->mimeType(), "text/plain");
    EXPECT_EQ(small->parent(), root->get());
    EXPECT_FALSE((*root)->children()[0]->modifiedDate());

    for (
        const char* broken : {
            R"({"name":"r","path":"/","isDirectory":true,"size":1,"children":[]})", // no fraction
            R"({"name":"r","path":"/","isDirectory":true,"size":1.5,"fractionOfParent":0,"children":[]})",
            R"({"name":"r","path":"/","isDirectory":"yes","size":1,"fractionOfParent":0,"children":[]})",
            R"({"name":"r","path":"/","isDirectory":true,"size":1,"fractionOfParent":0,"children":[{}]})",
            R"({"name":"r","path":"/","isDirectory":true,"size":18446744073709551615,"fractionOfParent":0,"children":[]})",
            R"([1,2,3])",
            R"({"name":"r")",
        }) {
        EXPECT_FALSE(decodeCacheNode(bytesOf(broken))) << broken;
    }

    // Deep nesting is read without recursion.
    std::string deep;
    constexpr int kDepth = 20'000;
    for (int level = 0; level < kDepth; ++level) {
        deep +=
            R"({"name":"d","path":"d","isDirectory":true,"size":0,"fractionOfParent":0,"children":[)";
    }
    for (int level = 0; level < kDepth; ++level) {
        deep += "]}";
    }
    const auto deepRoot = decodeCacheNode(bytesOf(deep));
    ASSERT_TRUE(deepRoot);
    EXPECT_EQ((*deepRoot)->subtreeNodeCount(), kDepth);
}

// A tree wide enough to be shared out among the cores, with ids and MIME types on some items and
// none on others, flattens to what a plain recursive pre-order gives.
TEST(CacheRecord, ALargeTreeFlattensToThePreOrderWhicheverCoreTakesASubtree) {
    std::mt19937 random(5);
    auto root = FileNode::make({.name = "r", .path = "/", .isDirectory = true});
    std::vector<FileNode*> folders{root.get()};
    for (int i = 0; i < 20'000; ++i) {
        const bool isFolder = i < 400 || random() % 6 == 0;
        const bool cloud = random() % 3 == 0;
        auto node = FileNode::make(
            {.name = "n" + std::to_string(i),
             .path = "p",
             .isDirectory = isFolder,
             .size = static_cast<std::int64_t>(random() % 1000),
             .modifiedDate = random() % 2 == 0 ? std::optional(Date{1.0 * i}) : std::nullopt,
             .providerID =
                 cloud ? std::optional<std::string>("id" + std::to_string(i)) : std::nullopt,
             .mimeType =
                 cloud && !isFolder ? std::optional<std::string>("text/plain") : std::nullopt});
        (i < 400 ? root.get() : folders[random() % folders.size()])
            ->mutableChildren()
            .push_back(node);
        if (isFolder) {
            folders.push_back(node.get());
        }
    }
    // Wide enough that even eight cores get subtrees of their own below the root.
    EXPECT_GE(std::count_if(root->children().begin(), root->children().end(),
                            [](const FileNodeRef& child) { return !child->children().empty(); }),
              8 * 16);
    CacheSnapshot expected;
    const auto flatten = [&](const auto& self, const FileNode& node, std::int32_t parent) -> void {
        const auto index = static_cast<std::int32_t>(expected.names.size());
        expected.names.push_back(node.name());
        expected.parents.push_back(parent);
        expected.isDirs.push_back(node.isDirectory() ? 1 : 0);
        expected.sizes.push_back(node.size());
        expected.modTimes.push_back(
            node.modifiedDate() ? node.modifiedDate()->secondsSinceReferenceDate : 0.0);
        expected.pids.push_back(node.providerID().value_or(""));
        expected.mimes.push_back(node.mimeType().value_or(""));
        for (const auto& child : node.children()) {
            self(self, *child, index);
        }
    };
    flatten(flatten, *root, -1);

    const CacheSnapshot snapshot = snapshotForCache(*root);
    EXPECT_EQ(snapshot.names, expected.names);
    EXPECT_EQ(snapshot.parents, expected.parents);
    EXPECT_EQ(snapshot.isDirs, expected.isDirs);
    EXPECT_EQ(snapshot.sizes, expected.sizes);
    EXPECT_EQ(snapshot.modTimes, expected.modTimes);
    EXPECT_EQ(snapshot.pids, expected.pids);
    EXPECT_EQ(snapshot.mimes, expected.mimes);
    EXPECT_EQ(snapshot.rootName, "r");
}

} // namespace
} // namespace brimvale

namespace brimvale {
namespace {

TEST(CacheSnapshot, FoldersOfAStoppedScanAreAddedUpFromTheDeepestLevel) {
    // root ─ a ─ f(5)
    //        └ b ─ g(7)
    //      └ c(100, holding 1) ─ h(1)
    //      └ huge(2^62) and huge2(2^62 + 2^62 - 1): the sum stops at the largest size
    const std::int64_t quarter = std::int64_t{1} << 62;
    CacheSnapshot snapshot{
        .rootPath = "/",
        .rootName = "root",
        .names = {"root", "a", "f", "b", "g", "c", "h", "huge", "huge2"},
        .parents = {-1, 0, 1, 1, 3, 0, 5, 0, 0},
        .isDirs = {1, 1, 0, 1, 0, 1, 0, 0, 0},
        .sizes = {0, 0, 5, 0, 7, 100, 1, quarter, std::numeric_limits<std::int64_t>::max() - 1},
        .modTimes = std::vector<double>(9, 0.0),
        .pids = std::vector<std::string>(9),
        .mimes = std::vector<std::string>(9)};
    rollUpFolderSizes(snapshot);
    EXPECT_EQ(snapshot.sizes[3], 7);
    EXPECT_EQ(snapshot.sizes[1], 12);
    EXPECT_EQ(snapshot.sizes[5], 100) << "a folder larger than what it holds keeps its size";
    EXPECT_EQ(snapshot.sizes[0], std::numeric_limits<std::int64_t>::max());
    // Files keep theirs.
    EXPECT_EQ(snapshot.sizes[2], 5);
    // Rolling up twice changes nothing.
    const auto once = snapshot.sizes;
    rollUpFolderSizes(snapshot);
    EXPECT_EQ(snapshot.sizes, once);
}

} // namespace
} // namespace brimvale
