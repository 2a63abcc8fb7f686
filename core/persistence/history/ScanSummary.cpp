#include "core/persistence/history/ScanSummary.h"

#include "core/persistence/bplist/BinaryPlistColumns.h"
#include "core/persistence/bplist/BinaryPlistReader.h"
#include "core/persistence/bplist/BinaryPlistWriter.h"
#include "core/persistence/cache/CacheRecord.h"
#include "core/persistence/lzfse/Lzfse.h"
#include "core/support/CorruptDataError.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

namespace brimvale {
namespace {

constexpr std::int64_t kRecordVersion = 1;

} // namespace

void ScanSummary::append(std::string_view nodeName, std::int32_t parent, bool isDir,
                         std::int64_t size, std::int32_t itemCount) {
    if (nameBytes.size() + nodeName.size() > std::numeric_limits<std::uint32_t>::max()) {
        throw std::length_error("the names of a scan summary exceed 4 GiB");
    }
    nameBytes += nodeName;
    nameEnds.push_back(static_cast<std::uint32_t>(nameBytes.size()));
    parents.push_back(parent);
    isDirs.push_back(isDir ? 1 : 0);
    sizes.push_back(size);
    items.push_back(itemCount);
}

ScanSummary summarizeSnapshot(const CacheSnapshot& snapshot, std::int64_t fileThreshold) {
    ScanSummary summary;
    summary.rootName = snapshot.rootName;
    summary.partial = snapshot.partial;
    summary.fileThreshold = fileThreshold;
    const std::size_t count = snapshot.nodeCount();
    // Pre-order puts every parent before its children, so one backward pass counts items.
    std::vector<std::int32_t> itemCounts(count, 0);
    for (std::size_t index = count; index-- > 1;) {
        const std::int32_t parent = snapshot.parents[index];
        if (parent >= 0 && static_cast<std::size_t>(parent) < index) {
            itemCounts[static_cast<std::size_t>(parent)] += itemCounts[index] + 1;
        }
    }
    std::vector<std::int32_t> kept(count, -1); // the summary's index of each node kept
    for (std::size_t index = 0; index < count; ++index) {
        const std::int32_t parent = snapshot.parents[index];
        const bool isDir = snapshot.isDirs[index] != 0;
        if (index > 0 && (parent < 0 || static_cast<std::size_t>(parent) >= index ||
                          kept[static_cast<std::size_t>(parent)] < 0 ||
                          (!isDir && snapshot.sizes[index] < fileThreshold))) {
            continue;
        }
        kept[index] = static_cast<std::int32_t>(summary.nodeCount());
        summary.append(snapshot.names[index],
                       index == 0 ? -1 : kept[static_cast<std::size_t>(parent)], isDir,
                       snapshot.sizes[index], itemCounts[index]);
    }
    return summary;
}

std::vector<std::uint8_t> encodeScanSummary(const ScanSummary& summary) {
    std::vector<std::string> names;
    names.reserve(summary.nodeCount());
    for (std::size_t index = 0; index < summary.nodeCount(); ++index) {
        names.emplace_back(summary.name(index));
    }
    BinaryPlistWriter writer;
    writer.addInteger("v", kRecordVersion);
    writer.addString("ky", summary.key);
    writer.addString("rn", summary.rootName);
    writer.addInteger("dt", std::llround(summary.date.unixSeconds() * 1000.0));
    writer.addInteger("th", summary.fileThreshold);
    writer.addString("sf", summary.savedFile);
    if (summary.partial) {
        writer.addInteger("pa", 1);
    }
    writer.addStringColumn("nm", names);
    writer.addInt32Column("pr", summary.parents);
    writer.addBooleanColumn("di", summary.isDirs);
    writer.addInt64Column("sz", summary.sizes);
    writer.addInt32Column("ic", summary.items);
    const std::vector<std::uint8_t> propertyList = writer.write();
    return lzfseCompress(propertyList);
}

static PlistRef topOf(const BinaryPlistReader& reader) {
    const PlistRef top = reader.topObject();
    if (reader.kind(top) != PlistKind::Dictionary) {
        throw CorruptDataError("the history record is not a dictionary");
    }
    if (reader.integer(reader.at(top, "v")) != kRecordVersion) {
        throw CorruptDataError("the history record is of an unknown version");
    }
    return top;
}

static Date dateOf(const BinaryPlistReader& reader, PlistRef top) {
    return Date::fromUnixSeconds(static_cast<double>(reader.integer(reader.at(top, "dt"))) /
                                 1000.0);
}

ScanSummaryHeader decodeScanSummaryHeader(std::span<const std::uint8_t> bytes) {
    const std::vector<std::uint8_t> propertyList =
        lzfseDecompress(bytes, savedFileDecompressionLimit(bytes.size()));
    const BinaryPlistReader reader(propertyList);
    const PlistRef top = topOf(reader);
    ScanSummaryHeader header{.key = reader.string(reader.at(top, "ky")),
                             .date = dateOf(reader, top),
                             .savedFile = reader.string(reader.at(top, "sf"))};
    const PlistRefs sizes = reader.elements(reader.at(top, "sz"));
    const PlistRefs items = reader.elements(reader.at(top, "ic"));
    if (sizes.empty() || items.empty()) {
        throw CorruptDataError("the history record is empty");
    }
    header.totalSize = reader.integer(sizes[0]);
    header.totalItems = reader.integer(items[0]);
    return header;
}

ScanSummary decodeScanSummary(std::span<const std::uint8_t> bytes) {
    const std::vector<std::uint8_t> propertyList =
        lzfseDecompress(bytes, savedFileDecompressionLimit(bytes.size()));
    const std::uint64_t decodedLimit =
        std::max<std::uint64_t>(std::uint64_t{64} << 20, std::uint64_t{16} * propertyList.size());
    const BinaryPlistReader reader(propertyList, PlistReadLimits{.maxDecodedBytes = decodedLimit});
    const PlistRef top = topOf(reader);
    ScanSummary summary;
    summary.key = reader.string(reader.at(top, "ky"));
    summary.rootName = reader.string(reader.at(top, "rn"));
    summary.date = dateOf(reader, top);
    summary.fileThreshold = reader.integer(reader.at(top, "th"));
    summary.savedFile = reader.string(reader.at(top, "sf"));
    if (const auto partial = reader.find(top, "pa")) {
        summary.partial = reader.integer(*partial) != 0;
    }
    const PlistRefs names = reader.elements(reader.at(top, "nm"));
    summary.nameEnds.reserve(names.size());
    for (std::size_t index = 0; index < names.size(); ++index) {
        reader.appendString(names[index], summary.nameBytes);
        if (summary.nameBytes.size() > std::numeric_limits<std::uint32_t>::max() ||
            summary.nameBytes.size() > decodedLimit) {
            throw CorruptDataError("the history record's names are too long");
        }
        summary.nameEnds.push_back(static_cast<std::uint32_t>(summary.nameBytes.size()));
    }
    summary.parents = readInt32Column(reader, reader.at(top, "pr"));
    summary.isDirs = readBooleanColumn(reader, reader.at(top, "di"));
    summary.sizes = readInt64Column(reader, reader.at(top, "sz"));
    summary.items = readInt32Column(reader, reader.at(top, "ic"));
    const std::size_t count = summary.nameEnds.size();
    if (count == 0 || summary.parents.size() != count || summary.isDirs.size() != count ||
        summary.sizes.size() != count || summary.items.size() != count) {
        throw CorruptDataError("the history record's columns disagree in length");
    }
    for (std::size_t index = 0; index < count; ++index) {
        const std::int32_t parent = summary.parents[index];
        const bool parentValid = index == 0
                                     ? parent == -1
                                     : parent >= 0 && static_cast<std::size_t>(parent) < index &&
                                           summary.isDirs[static_cast<std::size_t>(parent)];
        if (!parentValid || summary.sizes[index] < 0 || summary.items[index] < 0) {
            throw CorruptDataError("the history record's item " + std::to_string(index) +
                                   " is out of place or negative");
        }
    }
    return summary;
}

} // namespace brimvale
