// Writes and reads a scan cache record of 1,000,000 nodes shaped like a real disk tree: file
// names that repeat a lot (package trees, photo folders, build output), some unique ones, a few
// outside ASCII, and mostly empty "pi"/"mi" columns. Prints the best time of several runs.

#include "core/persistence/bplist/BinaryPlistColumns.h"
#include "core/persistence/bplist/BinaryPlistReader.h"
#include "core/persistence/bplist/BinaryPlistWriter.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using brimvale::BinaryPlistReader;
using brimvale::BinaryPlistWriter;

constexpr std::size_t kNodes = 1'000'000;
constexpr int kRuns = 5;

class Random {
public:
    std::uint64_t next() {
        state_ += 0x9E3779B97F4A7C15ULL;
        std::uint64_t z = state_;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
        return z ^ (z >> 31);
    }
    std::size_t below(std::size_t n) { return static_cast<std::size_t>(next() % n); }
    bool chance(double p) { return static_cast<double>(next() >> 11) * 0x1.0p-53 < p; }

private:
    std::uint64_t state_ = 20240611;
};

const std::vector<std::string> kDirectoryNames = {
    "src",      "lib",         "node_modules",  "test",        "tests",     "docs",
    "dist",     "build",       "include",       "assets",      "images",    "icons",
    "locales",  "bin",         "Resources",     "Contents",    ".git",      "objects",
    "refs",     "__pycache__", "site-packages", "vendor",      "scripts",   "config",
    "examples", "fixtures",    "Photos 2019",   "Camera Roll", "Downloads", "Documents",
    "Music",    "Invoices",    "cache",         "tmp"};

const std::vector<std::string> kCommonFileNames = {
    "index.js",    "package.json",  "README.md",      "LICENSE",     "CHANGELOG.md", ".DS_Store",
    "__init__.py", "Makefile",      "CMakeLists.txt", "main.c",      "style.css",    ".gitignore",
    "Thumbs.db",   "desktop.ini",   "index.d.ts",     "utils.js",    "index.html",   "setup.py",
    "config.json", "Info.plist",    "icon.png",       "favicon.ico", "types.ts",     "test.js",
    ".npmignore",  "tsconfig.json", "LICENSE.txt",    "README",      "index.mjs",    "cover.jpg"};

// Names outside ASCII (written as UTF-16).
const std::vector<std::string> kOtherFileNames = {"Caf\xC3\xA9 Men\xC3\xBC.pdf",
                                                  "R\xC3\xA9sum\xC3\xA9.pdf"};

std::string hex(Random& random, std::size_t digits) {
    static const char kDigits[] = "0123456789abcdef";
    std::string s;
    for (std::size_t i = 0; i < digits; ++i) {
        s.push_back(kDigits[random.below(16)]);
    }
    return s;
}

std::string fileName(Random& random) {
    const std::size_t kind = random.below(100);
    if (kind < 44) {
        return kCommonFileNames[random.below(kCommonFileNames.size())];
    }
    if (kind < 45) {
        return kOtherFileNames[random.below(kOtherFileNames.size())];
    }
    if (kind < 60) {
        return "IMG_" + std::to_string(20150000 + random.below(90000)) + "_" +
               std::to_string(100000 + random.below(900000)) + ".jpg";
    }
    if (kind < 70) {
        return hex(random, 38); // git objects, content-addressed caches
    }
    if (kind < 78) {
        return "module" + std::to_string(random.below(5000)) + ".js";
    }
    if (kind < 80) {
        return "\xE5\x86\x99\xE7\x9C\x9F_" + std::to_string(random.below(100000)) + ".heic";
    }
    if (kind < 90) {
        return "part-" + std::to_string(random.below(100000)) + ".dat";
    }
    return "report " + std::to_string(random.below(3000)) + " (final).docx";
}

struct Columns {
    std::vector<std::string> names;
    std::vector<std::int32_t> parents;
    std::vector<std::uint8_t> directories;
    std::vector<std::int64_t> sizes;
    std::vector<double> modified;
    std::vector<std::string> pathInfo;
    std::vector<std::string> mountInfo;
};

// Nodes in creation order; a node's parent is a directory created before it.
Columns makeTree() {
    Random random;
    Columns c;
    std::vector<std::int32_t> directories;
    for (std::size_t i = 0; i < kNodes; ++i) {
        const bool isDirectory = i == 0 || random.chance(0.08);
        std::int32_t parent = -1;
        if (i > 0) {
            // Mostly the newest directories, as a depth-first scan produces.
            const std::size_t back = std::min(directories.size() - 1, random.below(8));
            parent = directories[directories.size() - 1 - back];
        }
        c.parents.push_back(parent);
        c.directories.push_back(isDirectory ? 1 : 0);
        c.names.push_back(i == 0        ? std::string("/")
                          : isDirectory ? kDirectoryNames[random.below(kDirectoryNames.size())]
                                        : fileName(random));
        c.sizes.push_back(
            isDirectory ? 0 : static_cast<std::int64_t>(random.next() >> (28 + random.below(36))));
        c.modified.push_back(1.4e9 + static_cast<double>(random.below(300'000'000)) +
                             static_cast<double>(random.below(1000)) / 1000.0);
        c.pathInfo.push_back(random.chance(0.005) ? "/Volumes/Backup" : "");
        c.mountInfo.push_back(random.chance(0.001) ? "apfs" : "");
        if (isDirectory) {
            directories.push_back(static_cast<std::int32_t>(i));
        }
    }
    return c;
}

std::vector<std::uint8_t> writeRecord(const Columns& c, BinaryPlistWriter::Options options) {
    BinaryPlistWriter writer(options);
    writer.addInteger("v", 2);
    writer.addString("rp", "/home/user");
    writer.addString("rn", "user");
    writer.addStringColumn("nm", c.names);
    writer.addInt32Column("pr", c.parents);
    writer.addBooleanColumn("di", c.directories);
    writer.addInt64Column("sz", c.sizes);
    writer.addRealColumn("mt", c.modified);
    writer.addStringColumn("pi", c.pathInfo);
    writer.addStringColumn("mi", c.mountInfo);
    return writer.write();
}

Columns readRecord(const std::vector<std::uint8_t>& file) {
    const BinaryPlistReader reader(file);
    const auto top = reader.topObject();
    Columns c;
    if (reader.integer(reader.at(top, "v")) != 2 || reader.string(reader.at(top, "rp")).empty() ||
        reader.string(reader.at(top, "rn")).empty()) {
        std::fprintf(stderr, "bad scalars\n");
        std::exit(1);
    }
    c.names = readStringColumn(reader, reader.at(top, "nm"));
    c.parents = readInt32Column(reader, reader.at(top, "pr"));
    c.directories = readBooleanColumn(reader, reader.at(top, "di"));
    c.sizes = readInt64Column(reader, reader.at(top, "sz"));
    c.modified = readRealColumn(reader, reader.at(top, "mt"));
    c.pathInfo = readStringColumn(reader, reader.at(top, "pi"));
    c.mountInfo = readStringColumn(reader, reader.at(top, "mi"));
    return c;
}

template <class F> double bestSeconds(F&& run) {
    double best = 1e9;
    for (int i = 0; i < kRuns; ++i) {
        const auto start = std::chrono::steady_clock::now();
        run();
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
        best = std::min(best, elapsed.count());
    }
    return best;
}

} // namespace

int main() {
    const Columns tree = makeTree();

    std::vector<std::uint8_t> file;
    const double writeSeconds = bestSeconds([&] { file = writeRecord(tree, {}); });
    Columns back;
    const double readSeconds = bestSeconds([&] { back = readRecord(file); });
    if (back.names != tree.names || back.parents != tree.parents ||
        back.directories != tree.directories || back.sizes != tree.sizes ||
        back.pathInfo != tree.pathInfo || back.mountInfo != tree.mountInfo ||
        back.modified != tree.modified) {
        std::fprintf(stderr, "record did not read back identically\n");
        return 1;
    }

    std::vector<std::uint8_t> unshared;
    const double unsharedSeconds =
        bestSeconds([&] { unshared = writeRecord(tree, {.shareEqualStrings = false}); });

    std::printf("bplist.write_1m_s: %.4f s\n", writeSeconds);
    std::printf("bplist.read_1m_s: %.4f s\n", readSeconds);
    std::printf("bplist.bytes_1m: %zu bytes\n", file.size());
    std::printf("bplist.write_1m_unshared_s: %.4f s\n", unsharedSeconds);
    std::printf("bplist.bytes_1m_unshared: %zu bytes\n", unshared.size());
    return 0;
}
