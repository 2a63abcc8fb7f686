// Feeds arbitrary bytes to the decoders of rclone's output: the lsjson listing (and the merge
// of what it decodes into a tree) and the configuration dump (and the account labels read
// from it, JWTs included).
#include "core/rclone/BrimvaleError.h"
#include "core/rclone/RcloneConfigDump.h"
#include "core/rclone/RcloneListingMerge.h"
#include "core/rclone/RcloneListingParser.h"
#include "core/rclone/RemoteAccountLabel.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    try {
        const auto entries = brimvale::parseJSON(bytes, "fuzz:");
        auto root = brimvale::FileNode::make({.name = "r", .path = "/", .isDirectory = true});
        // Twice, so the second merge replaces what the first made.
        brimvale::mergeListingEntries(entries, *root, {"fuzz:", "fuzz", 1});
        brimvale::mergeListingEntries(entries, *root, {"fuzz:", "fuzz", 2});
    } catch (const brimvale::BrimvaleError&) {
    }
    try {
        const auto dump = brimvale::parseConfigDump(bytes);
        for (const auto& [name, section] : dump) {
            const auto type = section.find("type");
            brimvale::RemoteAccountLabel::pick(&section, name,
                                               type == section.end() ? "" : type->second);
        }
    } catch (const brimvale::BrimvaleError&) {
    }
    brimvale::RemoteAccountLabel::labelFromJWTAccessToken(bytes);
    return 0;
}
