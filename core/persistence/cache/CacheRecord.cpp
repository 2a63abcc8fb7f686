#include "core/persistence/cache/CacheRecord.h"

#include "core/model/FolderShares.h"
#include "core/persistence/bplist/BinaryPlistColumns.h"
#include "core/persistence/bplist/BinaryPlistReader.h"
#include "core/persistence/bplist/BinaryPlistWriter.h"
#include "core/persistence/cache/LegacyCacheReader.h"
#include "core/persistence/lzfse/Lzfse.h"
#include "core/persistence/lzfse/LzfseStreamCompressor.h"
#include "core/support/CorruptDataError.h"

#include <algorithm>
#include <string_view>

namespace brimvale {
namespace {

constexpr std::int64_t kRecordVersion = 2;

std::optional<DecodedScan> decodeBoundedRecord(std::span<const std::uint8_t> data,
                                               const std::function<void(double)>& onProgress);

void report(const std::function<void(double)>& onProgress, double fraction) {
    if (onProgress) {
        onProgress(fraction);
    }
}

} // namespace

std::size_t savedFileDecompressionLimit(std::size_t compressedSize) {
    constexpr std::size_t kFloor = std::size_t{64} << 20;
    constexpr std::size_t kCeiling = std::size_t{16} << 30;
    if (compressedSize > kCeiling / 512) {
        return kCeiling;
    }
    return std::max(kFloor, compressedSize * 512);
}

namespace {

// Pieces of the property list compressed on their own: large enough that cutting the stream
// costs next to no ratio, small enough that both cores get work early.
constexpr std::size_t kRecordPieceBytes = std::size_t{1} << 20;

BinaryPlistWriter recordWriter(const CacheSnapshot& snapshot, std::string_view key) {
    BinaryPlistWriter writer;
    writer.addInteger("v", kRecordVersion);
    writer.addString("rp", snapshot.rootPath);
    writer.addString("rn", snapshot.rootName);
    writer.addStringColumn("nm", snapshot.names);
    writer.addInt32Column("pr", snapshot.parents);
    writer.addBooleanColumn("di", snapshot.isDirs);
    writer.addInt64Column("sz", snapshot.sizes);
    writer.addRealColumn("mt", snapshot.modTimes);
    writer.addStringColumn("pi", snapshot.pids);
    writer.addStringColumn("mi", snapshot.mimes);
    if (snapshot.partial) {
        writer.addInteger("pa", 1);
    }
    if (!key.empty()) {
        writer.addString("ky", key);
    }
    return writer;
}

} // namespace

std::optional<std::vector<std::uint8_t>> encodeCacheSnapshot(const CacheSnapshot& snapshot,
                                                             std::string_view key) {
    std::vector<std::uint8_t> file;
    try {
        writeCacheSnapshot(snapshot, key, [&file](std::span<const std::uint8_t> bytes) {
            file.insert(file.end(), bytes.begin(), bytes.end());
        });
    } catch (const std::exception&) {
        return std::nullopt;
    }
    return file;
}

void writeCacheSnapshot(const CacheSnapshot& snapshot, std::string_view key,
                        const std::function<void(std::span<const std::uint8_t>)>& sink) {
    LzfseStreamCompressor compressor(sink);
    bool started = false;
    try {
        recordWriter(snapshot, key)
            .write(
                [&](std::vector<std::uint8_t>&& piece) {
                    started = true;
                    compressor.compress(std::move(piece));
                    return compressor.emptyPiece();
                },
                kRecordPieceBytes);
    } catch (const std::exception&) {
        if (!started) {
            throw CacheEncodingError(); // the plan failed: nothing went out
        }
        throw;
    }
    compressor.finish();
}

StoredRecord readStoredRecord(std::span<const std::uint8_t> data) {
    StoredRecord record;
    try {
        record.propertyList = lzfseDecompress(data, savedFileDecompressionLimit(data.size()));
    } catch (const CorruptDataError&) {
        record.propertyList.assign(data.begin(), data.end());
    }
    const BinaryPlistReader reader(record.propertyList);
    const PlistRef top = reader.topObject();
    if (reader.kind(top) != PlistKind::Dictionary) {
        throw CorruptDataError("the cache record is not a dictionary");
    }
    if (const auto key = reader.find(top, "ky"); key && reader.kind(*key) == PlistKind::String) {
        record.key = reader.string(*key);
    }
    return record;
}

CacheSnapshot decodeCacheSnapshot(std::span<const std::uint8_t> propertyList,
                                  std::size_t maxNodes) {
    // Shared strings let a small record stand for huge columns; real records decode to a few
    // times their size, so a bound in proportion to the input keeps hostile files in check.
    const std::uint64_t decodedLimit =
        std::max<std::uint64_t>(std::uint64_t{64} << 20, std::uint64_t{16} * propertyList.size());
    const BinaryPlistReader reader(propertyList, PlistReadLimits{.maxDecodedBytes = decodedLimit});
    const PlistRef top = reader.topObject();
    if (reader.kind(top) != PlistKind::Dictionary) {
        throw CorruptDataError("the cache record is not a dictionary");
    }
    (void)reader.at(top, "v"); // required, but any version is read
    if (const PlistRef names = reader.at(top, "nm");
        reader.kind(names) == PlistKind::Array && reader.elements(names).size() > maxNodes) {
        throw CorruptDataError("the cache record has more items than its file can hold");
    }
    CacheSnapshot snapshot;
    snapshot.rootPath = reader.string(reader.at(top, "rp"));
    snapshot.rootName = reader.string(reader.at(top, "rn"));
    snapshot.names = readPackedStringColumn(reader, reader.at(top, "nm"));
    snapshot.parents = readInt32Column(reader, reader.at(top, "pr"));
    snapshot.isDirs = readBooleanColumn(reader, reader.at(top, "di"));
    snapshot.sizes = readInt64Column(reader, reader.at(top, "sz"));
    snapshot.modTimes = readRealColumn(reader, reader.at(top, "mt"));
    snapshot.pids = readPackedStringColumn(reader, reader.at(top, "pi"));
    snapshot.mimes = readPackedStringColumn(reader, reader.at(top, "mi"));
    if (const auto partial = reader.find(top, "pa")) {
        snapshot.partial =
            reader.kind(*partial) == PlistKind::Integer && reader.integer(*partial) != 0;
    }
    return snapshot;
}

std::optional<FileNodeRef> rebuildTree(const CacheSnapshot& snapshot,
                                       const std::function<void(double)>& onProgress,
                                       const RebuildLimits& limits) {
    const std::size_t count = snapshot.names.size();
    if (count == 0 || count > limits.maxNodes || snapshot.parents.size() != count ||
        snapshot.isDirs.size() != count || snapshot.sizes.size() != count ||
        snapshot.modTimes.size() != count || snapshot.pids.size() != count ||
        snapshot.mimes.size() != count) {
        return std::nullopt;
    }
    const std::size_t stride = count < 20 ? 1 : count / 20;
    const auto parentOf = [&](std::size_t index) -> std::optional<std::size_t> {
        const std::int32_t parent = snapshot.parents[index];
        // A parent must come before its child; anything else would allow cycles.
        if (parent < 0 || static_cast<std::size_t>(parent) >= index) {
            return std::nullopt;
        }
        return static_cast<std::size_t>(parent);
    };

    // Every folder with children gets its whole path as one string, so a deep chain costs the
    // sum of its path lengths: checked against the limit before anything is made.
    std::vector<std::uint32_t> childCounts(count, 0);
    std::vector<std::uint64_t> pathLengths(count, 0);
    pathLengths[0] = snapshot.rootPath.size();
    std::uint64_t folderPathBytes = 0;
    for (std::size_t index = 1; index < count; ++index) {
        if (const auto parent = parentOf(index)) {
            if (childCounts[*parent]++ == 0) {
                folderPathBytes += pathLengths[*parent];
                if (folderPathBytes > limits.maxFolderPathBytes) {
                    return std::nullopt;
                }
            }
            pathLengths[index] = pathLengths[*parent] + 1 + snapshot.names[index].size();
        }
    }
    pathLengths = {};

    std::vector<FileNodeRef> nodes(count);
    std::vector<SharedTextRef> folderPaths(count); // set for nodes that have children
    const SharedTextRef rootPath = SharedText::make(snapshot.rootPath);
    for (std::size_t index = 0; index < count; ++index) {
        if (index % stride == 0) {
            report(onProgress,
                   0.5 + 0.35 * static_cast<double>(index) / static_cast<double>(count));
        }
        const double modified = snapshot.modTimes[index];
        FileNodeFields fields{
            .name = std::string(snapshot.names[index]),
            .isDirectory = snapshot.isDirs[index] != 0,
            .size = snapshot.sizes[index],
            .modifiedDate = modified == 0.0 ? std::nullopt : std::optional<Date>(Date{modified})};
        if (!snapshot.pids[index].empty()) {
            fields.providerID = std::string(snapshot.pids[index]);
        }
        if (!snapshot.mimes[index].empty()) {
            fields.mimeType = std::string(snapshot.mimes[index]);
        }
        const auto parent = parentOf(index);
        FileNodeRef node;
        if (snapshot.parents[index] < 0) {
            fields.path = snapshot.rootPath;
            node = FileNode::make(std::move(fields));
        } else {
            const SharedTextRef& folder = parent ? folderPaths[*parent] : nullptr;
            node = FileNode::makeChild(folder, PathJoin::slash, std::move(fields));
        }
        if (childCounts[index] > 0) {
            node->mutableChildren().reserve(childCounts[index]);
            folderPaths[index] = snapshot.parents[index] < 0 ? rootPath : node->sharedPath();
        }
        if (parent) {
            nodes[*parent]->mutableChildren().push_back(node);
        }
        nodes[index] = std::move(node);
    }
    return nodes.front();
}

void finishRebuiltTree(FileNode& root, const std::function<void(double)>& onProgress) {
    root.setParent(nullptr);
    report(onProgress, 0.85);
    root.relinkDescendantParentPointers();
    report(onProgress, 0.92);
    // Shares are not saved: each folder's are worked out again with its order.
    rebalanceAndSortEveryFolder(root);
    report(onProgress, 1.0);
}

std::optional<FileNodeRef> decodeCacheNode(std::span<const std::uint8_t> data,
                                           const std::function<void(double)>& onProgress) {
    auto decoded = decodeCacheRecord(data, onProgress);
    if (!decoded) {
        return std::nullopt;
    }
    return std::move(decoded->root);
}

std::optional<DecodedScan> decodeCacheRecord(std::span<const std::uint8_t> data,
                                             const std::function<void(double)>& onProgress) {
    try {
        return decodeBoundedRecord(data, onProgress);
    } catch (const std::bad_alloc&) {
    } catch (const std::length_error&) {
    }
    return std::nullopt; // more than this machine can hold: damaged, as far as a reader can tell
}

RebuildLimits RebuildLimits::forRecordOf(std::size_t fileBytes) {
    constexpr std::uint64_t kNodeFloor = std::uint64_t{1} << 16;
    constexpr std::uint64_t kPathFloor = std::uint64_t{64} << 20;
    const auto bytes = static_cast<std::uint64_t>(fileBytes);
    return RebuildLimits{
        .maxNodes = static_cast<std::size_t>(std::max(kNodeFloor, bytes * kNodesPerFileByte)),
        .maxFolderPathBytes = std::max(kPathFloor, bytes * kFolderPathBytesPerFileByte)};
}

namespace {

std::optional<DecodedScan> decodeBoundedRecord(std::span<const std::uint8_t> data,
                                               const std::function<void(double)>& onProgress) {
    const RebuildLimits limits = RebuildLimits::forRecordOf(data.size());
    std::vector<std::uint8_t> decompressed;
    std::span<const std::uint8_t> propertyList = data;
    try {
        decompressed = lzfseDecompress(data, savedFileDecompressionLimit(data.size()));
        propertyList = decompressed;
    } catch (const CorruptDataError&) {
    } catch (const std::bad_alloc&) {
    }
    report(onProgress, 0.1);

    std::optional<CacheSnapshot> snapshot;
    try {
        snapshot = decodeCacheSnapshot(propertyList, limits.maxNodes);
    } catch (const CorruptDataError&) {
    }
    if (snapshot) {
        decompressed = {};
        report(onProgress, 0.5);
        auto root = rebuildTree(*snapshot, onProgress, limits);
        const bool partial = snapshot->partial;
        snapshot.reset(); // the columns go before the tree is linked and sorted
        if (!root) {
            return std::nullopt;
        }
        finishRebuiltTree(**root, onProgress);
        return DecodedScan{.root = std::move(*root), .partial = partial};
    }

    report(onProgress, 0.5);
    auto root = readLegacyCacheTree(data);
    if (!root) {
        return std::nullopt;
    }
    report(onProgress, 0.8);
    (*root)->relinkDescendantParentPointers();
    report(onProgress, 0.92);
    (*root)->sortChildren();
    report(onProgress, 1.0);
    return DecodedScan{.root = std::move(*root)};
}

} // namespace

} // namespace brimvale
