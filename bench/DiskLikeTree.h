#pragma once

// The tree the benchmarks share: shaped like a real disk, 1,000 project folders of 99
// subfolders of 10 files each (about 1.09 million nodes), names like real ones with many repeats,
// paths of about 60 characters, sizes with many ties. Deterministic: every run builds the same.

#include "core/model/FileNode.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>

namespace brimvale::bench {

// A small deterministic generator, so every run builds the same tree.
struct Random {
    std::uint64_t state = 0x9E3779B97F4A7C15ULL;
    std::uint64_t next() {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return state;
    }
    std::uint64_t below(std::uint64_t limit) { return next() % limit; }
};

inline const std::array<const char*, 12> kTopFolders = {
    "Documents", "Pictures", "Projects", "Music", "Downloads", "Videos",
    ".cache",    ".local",   "Desktop",  "src",   "Backups",   "node_modules"};
inline const std::array<const char*, 16> kExtensions = {
    ".jpg", ".png", ".txt", ".pdf", ".cpp", ".h",   ".js", ".json",
    ".md",  ".mp3", ".mov", ".zip", ".o",   ".log", ".py", ".html"};

inline std::string fileName(Random& random, int index) {
    char name[64];
    switch (random.below(5)) {
    case 0:
        std::snprintf(name, sizeof name, "IMG_2019%02d%02d_%06d%s",
                      static_cast<int>(random.below(12) + 1),
                      static_cast<int>(random.below(28) + 1),
                      static_cast<int>(random.below(240000)), kExtensions[random.below(2)]);
        break;
    case 1:
        std::snprintf(name, sizeof name, "file%d%s", index,
                      kExtensions[random.below(kExtensions.size())]);
        break;
    case 2:
        std::snprintf(name, sizeof name, "index%s", kExtensions[random.below(kExtensions.size())]);
        break;
    case 3:
        std::snprintf(name, sizeof name, "report-%04d-final%s",
                      static_cast<int>(random.below(10000)),
                      kExtensions[random.below(kExtensions.size())]);
        break;
    default:
        std::snprintf(name, sizeof name, "a%d.out", index);
        break;
    }
    return name;
}

inline std::int64_t fileSize(Random& random) {
    switch (random.below(4)) {
    case 0:
        return 0; // many empty files: ties are common on real disks
    case 1:
        return 4096;
    default:
        return static_cast<std::int64_t>(random.below(50'000'000));
    }
}

// 100 folders under each of 1,000 project folders, each holding 10 files.
inline FileNodeRef buildDiskLikeTree(std::int64_t& nodes) {
    Random random;
    const std::string rootPath = "/home/alexandra";
    auto root = FileNode::make({.name = "alexandra", .path = rootPath, .isDirectory = true});
    nodes = 1;
    for (int project = 0; project < 1000; ++project) {
        const std::string projectName =
            std::string(kTopFolders[static_cast<std::size_t>(project) % kTopFolders.size()]) + "-" +
            std::to_string(project);
        const std::string projectPath = rootPath + "/" + projectName;
        auto projectNode =
            FileNode::make({.name = projectName, .path = projectPath, .isDirectory = true});
        ++nodes;
        for (int sub = 0; sub < 99; ++sub) {
            const std::string folderName = "subfolder-" + std::to_string(sub);
            const std::string folderPath = projectPath + "/" + folderName;
            auto folderNode =
                FileNode::make({.name = folderName, .path = folderPath, .isDirectory = true});
            ++nodes;
            for (int f = 0; f < 10; ++f) {
                std::string name = fileName(random, f);
                std::string path = folderPath + "/" + name;
                folderNode->mutableChildren().push_back(FileNode::make(
                    {.name = std::move(name),
                     .path = std::move(path),
                     .size = fileSize(random),
                     .modifiedDate = Date{6.0e8 + static_cast<double>(random.below(1'000'000))}}));
                ++nodes;
            }
            projectNode->mutableChildren().push_back(std::move(folderNode));
        }
        root->mutableChildren().push_back(std::move(projectNode));
    }
    return root;
}

} // namespace brimvale::bench
