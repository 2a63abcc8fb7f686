#include "core/persistence/cache/ScanCache.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <csignal>
#include <dirent.h>
#include <fstream>
#include <regex>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>

namespace brimvale {
namespace {

std::vector<std::uint8_t> bytesOf(std::string_view text) {
    return {text.begin(), text.end()};
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void writeFile(const std::string& path, std::string_view text) {
    std::ofstream(path, std::ios::binary) << text;
}

std::vector<std::string> directoryEntries(const std::string& directory) {
    std::vector<std::string> names;
    if (DIR* listing = opendir(directory.c_str())) {
        while (const dirent* entry = readdir(listing)) {
            const std::string name = entry->d_name;
            if (name != "." && name != "..") {
                names.push_back(name);
            }
        }
        closedir(listing);
    }
    std::sort(names.begin(), names.end());
    return names;
}

class ScanCacheTest : public ::testing::Test {
protected:
    QTemporaryDir temporary_;
    std::string directory_ = temporary_.path().toStdString() + "/caches/Brimvale";
    ScanCache cache_{directory_};
};

TEST_F(ScanCacheTest, WritesAtomicallyPrivatelyAndLogs) {
    cache_.write(bytesOf("first"), "gdrive");
    cache_.write(bytesOf("second version"), "gdrive");
    EXPECT_EQ(readFile(directory_ + "/gdrive.cache"), "second version");
    struct stat info {};
    ASSERT_EQ(stat((directory_ + "/gdrive.cache").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    EXPECT_EQ(directoryEntries(directory_),
              (std::vector<std::string>{"cache.log", "gdrive.cache"}));

    const std::string log = readFile(cache_.logPath());
    EXPECT_TRUE(std::regex_match(
        log,
        std::regex(
            R"((\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d \+0000\] Saved \d+ bytes \xE2\x86\x92 gdrive\.cache\n){2})")))
        << log;

    const auto loaded = cache_.loadData("gdrive");
    ASSERT_TRUE(loaded);
    EXPECT_EQ(loaded->bytes, bytesOf("second version"));
    EXPECT_EQ(cache_.cacheDate("gdrive"), loaded->modified);
}

TEST_F(ScanCacheTest, AFailedWriteKeepsThePreviousFileAndLeavesNothingBehind) {
    cache_.write(bytesOf("good old tree"), "acct");
    // A file-size limit stands in for a full disk: the write of the new file fails midway.
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit saved{};
    getrlimit(RLIMIT_FSIZE, &saved);
    rlimit small = saved;
    small.rlim_cur = 4096;
    setrlimit(RLIMIT_FSIZE, &small);
    cache_.write(std::vector<std::uint8_t>(100'000, 'x'), "acct");
    setrlimit(RLIMIT_FSIZE, &saved);

    EXPECT_EQ(readFile(directory_ + "/acct.cache"), "good old tree");
    EXPECT_EQ(directoryEntries(directory_), (std::vector<std::string>{"acct.cache", "cache.log"}));
    const std::string log = readFile(cache_.logPath());
    EXPECT_NE(log.find("] Save failed: "), std::string::npos) << log;
    EXPECT_EQ(log.find("Saved 100000"), std::string::npos);

    // A key that reads like a way out of the folder is only a name inside it.
    cache_.write(bytesOf("x"), "../escape");
    EXPECT_EQ(directoryEntries(temporary_.path().toStdString() + "/caches"),
              std::vector<std::string>{"Brimvale"});
    EXPECT_FALSE(cache_.loadData("../escape")) << "a record without its key is not trusted";
}

// A file made while it is written lands whole or not at all.
TEST_F(ScanCacheTest, AStreamedWriteThatFailsMidwayKeepsThePreviousFile) {
    ASSERT_FALSE(cache_.write(bytesOf("good old tree"), "acct"));
    const auto failed = cache_.write("acct", [](const FileAppender& append) {
        append(std::vector<std::uint8_t>(300'000, 'n'));
        throw std::runtime_error("the encoder gave up");
    });
    ASSERT_TRUE(failed);
    EXPECT_EQ(*failed, "the encoder gave up");
    EXPECT_EQ(readFile(directory_ + "/acct.cache"), "good old tree");
    EXPECT_EQ(directoryEntries(directory_), (std::vector<std::string>{"acct.cache", "cache.log"}));

    EXPECT_FALSE(cache_.write("acct", [](const FileAppender& append) {
        append(bytesOf("new "));
        append({});
        append(bytesOf("tree"));
    }));
    EXPECT_EQ(readFile(directory_ + "/acct.cache"), "new tree");
    EXPECT_NE(readFile(cache_.logPath()).find("Saved 8 bytes"), std::string::npos);
}

TEST_F(ScanCacheTest, LoadPrefersTheCurrentFormatAndFallsBackToLegacy) {
    EXPECT_FALSE(cache_.loadData("none"));
    EXPECT_FALSE(cache_.cacheDate("none"));

    writeFile(directory_ + "/both.json", "legacy");
    writeFile(directory_ + "/both.cache", "current");
    EXPECT_EQ(cache_.loadData("both")->bytes, bytesOf("current"));

    writeFile(directory_ + "/old.json", "legacy only");
    EXPECT_EQ(cache_.loadData("old")->bytes, bytesOf("legacy only"));
    EXPECT_TRUE(cache_.cacheDate("old"));

    // An unreadable current file (here: a folder of that name) falls back to the legacy one.
    ASSERT_EQ(mkdir((directory_ + "/odd.cache").c_str(), 0700), 0);
    writeFile(directory_ + "/odd.json", "fallback");
    EXPECT_EQ(cache_.loadData("odd")->bytes, bytesOf("fallback"));

    cache_.clear("both");
    cache_.clear("never-existed");
    EXPECT_FALSE(cache_.loadData("both"));
}

TEST_F(ScanCacheTest, ConcurrentWritersNeverMixTheirBytes) {
    std::vector<std::thread> writers;
    for (int t = 0; t < 4; ++t) {
        writers.emplace_back([this, t] {
            const std::vector<std::uint8_t> payload(50'000, static_cast<std::uint8_t>('a' + t));
            for (int i = 0; i < 10; ++i) {
                cache_.write(payload, "shared");
            }
        });
    }
    for (auto& writer : writers) {
        writer.join();
    }
    const std::string content = readFile(directory_ + "/shared.cache");
    ASSERT_EQ(content.size(), 50'000u);
    EXPECT_EQ(std::count(content.begin(), content.end(), content.front()), 50'000);
}

} // namespace
} // namespace brimvale
