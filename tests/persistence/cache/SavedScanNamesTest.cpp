// Saved-scan keys and file names: unambiguous, bounded, and checked against the key stored in
// the file.
#include "core/persistence/cache/SavedScanNames.h"

#include "core/persistence/cache/CacheRecord.h"
#include "core/persistence/cache/LocalScanCacheStem.h"
#include "core/persistence/cache/ScanCache.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace brimvale {
namespace {

std::vector<std::uint8_t> savedScanOf(const std::string& rootName, const std::string& key) {
    auto root = FileNode::make({.name = rootName, .path = "", .isDirectory = true, .size = 5});
    root->addChild(FileNode::make({.name = "a.bin", .path = "a.bin", .size = 5}));
    return *encodeCacheSnapshot(snapshotForCache(*root), key);
}

void writeFile(const std::filesystem::path& path, std::string_view text) {
    std::ofstream(path, std::ios::binary) << text;
}

std::vector<std::string> namesIn(const std::filesystem::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

TEST(SavedScanNames, KeysAndStemsNeverShareAnAccountOrFolder) {
    // An account id with "_" and a folder with "_" no longer meet.
    const std::string folderOfA = LocalScanCacheStem::stem("a", "/b");
    const std::string wholeDiskOfAB = LocalScanCacheStem::stem("a_b", "/");
    EXPECT_NE(folderOfA, wholeDiskOfAB);
    EXPECT_NE(SavedScanNames::fileStem(folderOfA), SavedScanNames::fileStem(wholeDiskOfAB));
    EXPECT_NE(LocalScanCacheStem::stem("a:", "/b"), LocalScanCacheStem::stem("a", "/:/b"));
    EXPECT_NE(LocalScanCacheStem::stem("a/b", "/"), LocalScanCacheStem::stem("a", "/b"));

    // Accounts and whole disks keep the names they always had.
    EXPECT_EQ(SavedScanNames::fileStem(LocalScanCacheStem::stem("local1", " \n/ \t")), "local1");
    EXPECT_EQ(SavedScanNames::fileStem("gdrive"), "gdrive");
    EXPECT_EQ(LocalScanCacheStem::stem("local1", "  /home/me\n"), "local1:/home/me");

    // Folder keys, long keys and keys that could leave the folder get a bounded, safe stem.
    for (const std::string& key :
         {LocalScanCacheStem::stem("localdisk", "/" + std::string(4000, 'x')),
          std::string(300, 'g'), std::string("../../etc"), std::string(".hidden"),
          std::string("a\nb"), LocalScanCacheStem::stem("local1", "/home/me/~/a:b")}) {
        const std::string stem = SavedScanNames::fileStem(key);
        EXPECT_LE(stem.size(), 140U) << key.substr(0, 40);
        EXPECT_TRUE(SavedScanNames::isHashedStem(stem)) << stem;
        EXPECT_EQ(stem.find('/'), std::string::npos) << stem;
        EXPECT_NE(stem.front(), '.') << stem;
    }
    EXPECT_EQ(SavedScanNames::fileStem(LocalScanCacheStem::stem("local1", "/Volumes/Backup"))
                  .substr(0, 22),
              "local1~Volumes_Backup~");
}

class SavedScanFiles : public ::testing::Test {
protected:
    QTemporaryDir temporary_;
    std::filesystem::path folder_ = temporary_.path().toStdString() + "/Brimvale";
    ScanCache cache_{folder_.string()};
};

TEST_F(SavedScanFiles, ALongFolderPathIsSavedAndReadBack) {
    const std::string key = LocalScanCacheStem::stem("localdisk", "/" + std::string(250, 'p'));
    cache_.write(savedScanOf("p", key), key);
    const auto loaded = cache_.loadData(key);
    ASSERT_TRUE(loaded);
    const auto decoded = decodeCacheNode(loaded->bytes);
    ASSERT_TRUE(decoded);
    EXPECT_EQ((*decoded)->subtreeNodeCount(), 2);
    EXPECT_EQ(namesIn(folder_),
              (std::vector<std::string>{"cache.log", ScanCache::fileNameFor(key)}));
}

TEST_F(SavedScanFiles, AFileUnderAnotherKeysStemIsNotTrusted) {
    const std::string mine = LocalScanCacheStem::stem("localdisk", "/srv/mine");
    const std::string other = LocalScanCacheStem::stem("localdisk", "/srv/other");
    cache_.write(savedScanOf("other", other), other);
    // As if the two keys hashed alike: the other folder's scan lies under my stem.
    std::filesystem::copy_file(folder_ / ScanCache::fileNameFor(other),
                               folder_ / ScanCache::fileNameFor(mine));
    EXPECT_FALSE(cache_.loadData(mine));
    EXPECT_TRUE(cache_.loadData(other));
    // A record without a stored key (written before keys were stored) is not trusted either.
    cache_.write(savedScanOf("mine", ""), mine);
    EXPECT_FALSE(cache_.loadData(mine));
}

TEST_F(SavedScanFiles, ClearingAnAccountRemovesExactlyItsFiles) {
    const std::vector<std::string> keys = {
        "localdisk",
        LocalScanCacheStem::stem("localdisk", "/home/me"),
        LocalScanCacheStem::stem("localdisk", "/" + std::string(300, 'q')),
        "localdisk_backup",
        LocalScanCacheStem::stem("localdisk_backup", "/home/me"),
        "localdisk2",
        LocalScanCacheStem::stem("localdisk~", "/x"),
    };
    for (const auto& key : keys) {
        cache_.write(savedScanOf("r", key), key);
    }
    writeFile(folder_ / "localdisk.json", "{}");
    writeFile(folder_ / "localdisk_backup.json", "{}");

    const auto removed = cache_.clearAccount("localdisk");
    std::vector<std::string> expected = {ScanCache::fileNameFor(keys[0]),
                                         ScanCache::fileNameFor(keys[1]),
                                         ScanCache::fileNameFor(keys[2]), "localdisk.json"};
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(removed, expected);
    for (std::size_t index = 3; index < keys.size(); ++index) {
        EXPECT_TRUE(cache_.loadData(keys[index])) << keys[index];
    }
    EXPECT_TRUE(std::filesystem::exists(folder_ / "localdisk_backup.json"));
    EXPECT_TRUE(cache_.clearAccount("localdisk").empty());
}

TEST_F(SavedScanFiles, OpeningTheStoreRemovesWhatAKilledSaveLeft) {
    writeFile(folder_ / ".brimvale-Ab12Cd.tmp", "half of a saved scan");
    writeFile(folder_ / ".gdrive.cache.Ab12Cd", "not a name the store makes");
    const ScanCache reopened(folder_.string());
    EXPECT_EQ(namesIn(folder_), (std::vector<std::string>{".gdrive.cache.Ab12Cd", "cache.log"}));
    std::ifstream log(reopened.logPath());
    const std::string text{std::istreambuf_iterator<char>(log), std::istreambuf_iterator<char>()};
    EXPECT_NE(text.find("Removed 1 temporary file left by a save that did not finish"),
              std::string::npos)
        << text;
}

} // namespace
} // namespace brimvale
