// Feeds arbitrary bytes to the streamed listing: the line decoder in chunks of varying size, the
// merge of what it decodes (twice, the second as a rescan), rclone's log of unreadable folders,
// and the quick entry reader, which must agree with the general decoder whenever it answers.
#include "core/rclone/BrimvaleError.h"
#include "core/rclone/FlatEntryReader.h"
#include "core/rclone/RcloneListingErrors.h"
#include "core/rclone/RcloneListingParser.h"
#include "core/rclone/RcloneListingStream.h"
#include "core/rclone/RcloneStreamMerge.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    std::vector<brimvale::RcloneEntry> entries;
    try {
        brimvale::RcloneListingStream stream("fuzz:");
        const std::size_t step = size == 0 ? 1 : 1 + data[0] % 17;
        for (std::size_t at = 0; at < size; at += step) {
            stream.feed(bytes.substr(at, step), entries);
        }
        stream.finish(entries);
    } catch (const brimvale::BrimvaleError&) {
    }
    auto root = brimvale::FileNode::make({.name = "r", .path = "/", .isDirectory = true});
    for (std::int64_t session : {1, 2}) {
        brimvale::RcloneStreamMerge merge(root, session);
        merge.merge(entries);
        merge.rebalanceChangedFolders();
        merge.finish();
    }
    brimvale::unreadableFoldersInListingLog(bytes);

    if (const auto quick = brimvale::readFlatEntry(bytes)) {
        const auto general = brimvale::parseJSON("[" + std::string(bytes) + "]", "fuzz:");
        if (general.size() != 1 || !(general[0] == *quick)) {
            std::abort();
        }
    }
    return 0;
}
