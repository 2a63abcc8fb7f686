#pragma once

#include "core/rclone/RcloneEntry.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace brimvale {

// Decodes the standard output of `rclone lsjson -R` while it arrives: rclone writes "[" on a
// line of its own, then one entry object per line (each but the last followed by a comma),
// then "]". Chunks may split a line anywhere; names with line breaks arrive escaped, so a line
// break outside a string always ends an entry. Only the unfinished last line is held; when it
// already holds a whole entry (rclone ends a line only when it starts the next entry), that
// entry is decoded at once.
//
// Limits: a line longer than 16 MiB is refused as a parse error (no real entry comes near).
// Thread safety: one reader thread.
class RcloneListingStream {
public:
    explicit RcloneListingStream(std::string listingContext);

    // Decodes every line finished by `chunk` and appends its entry to `into`. Throws
    // BrimvaleError::parseError for a line that is not an entry.
    void feed(std::string_view chunk, std::vector<RcloneEntry>& into);
    // The end of the output: appends a last unterminated entry, if any. Whether the closing
    // "]" came is told by complete().
    void finish(std::vector<RcloneEntry>& into);

    // Whether the whole array, opening and closing bracket included, has been read.
    bool complete() const { return closed_; }
    std::size_t entryCount() const { return entryCount_; }

private:
    void decodeLine(std::string_view line, std::vector<RcloneEntry>& into);
    bool decodeUnfinishedLine(std::vector<RcloneEntry>& into);

    std::string listingContext_;
    std::string partialLine_;
    bool opened_ = false;
    bool closed_ = false;
    std::size_t entryCount_ = 0;
};

} // namespace brimvale
