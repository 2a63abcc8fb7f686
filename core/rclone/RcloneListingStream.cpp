#include "core/rclone/RcloneListingStream.h"

#include "core/rclone/BrimvaleError.h"
#include "core/rclone/RcloneListingParser.h"
#include "core/rclone/Utf8Text.h"

#include <optional>

namespace brimvale {
namespace {

constexpr std::size_t kLongestLine = std::size_t{16} << 20;

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t' || text.front() == '\r')) {
        text.remove_prefix(1);
    }
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r')) {
        text.remove_suffix(1);
    }
    return text;
}

} // namespace

RcloneListingStream::RcloneListingStream(std::string listingContext)
    : listingContext_(std::move(listingContext)) {}

void RcloneListingStream::decodeLine(std::string_view line, std::vector<RcloneEntry>& into) {
    line = trimmed(line);
    if (line.empty()) {
        return;
    }
    if (!opened_) {
        if (line == "[") {
            opened_ = true;
            return;
        }
        if (line == "[]") {
            opened_ = closed_ = true;
            return;
        }
        throw BrimvaleError::parseError(
            "Could not parse folder listing for " + listingContext_ +
            ": Invalid or incomplete JSON (often truncated output): the listing does not start "
            "with \"[\" (starts: " +
            Utf8Text::decodeLossy(line.substr(0, 200)) + ")");
    }
    if (closed_ || line == "]") {
        if (closed_ || line != "]") {
            throw BrimvaleError::parseError("Could not parse folder listing for " +
                                            listingContext_ +
                                            ": text after the end of the listing (" +
                                            Utf8Text::decodeLossy(line.substr(0, 200)) + ")");
        }
        closed_ = true;
        return;
    }
    if (line.back() == ',') {
        line.remove_suffix(1);
    }
    if (line.empty()) {
        return; // the separator after an entry that was decoded before its line ended
    }
    into.push_back(parseEntryLine(line, entryCount_, listingContext_));
    ++entryCount_;
}

bool RcloneListingStream::decodeUnfinishedLine(std::vector<RcloneEntry>& into) {
    // rclone writes the separator before the next entry, not after this one, so an entry's
    // line ends only when the next one starts: a folder's last entry would wait for the next
    // folder's listing. A whole object is decoded at once; anything less waits.
    const std::string_view line = trimmed(partialLine_);
    if (!opened_ || closed_ || !line.starts_with('{') || !line.ends_with('}')) {
        return false;
    }
    std::optional<RcloneEntry> entry = tryParseEntryLine(line, entryCount_);
    if (!entry) {
        return false;
    }
    into.push_back(std::move(*entry));
    ++entryCount_;
    partialLine_.clear();
    return true;
}

void RcloneListingStream::feed(std::string_view chunk, std::vector<RcloneEntry>& into) {
    while (!chunk.empty()) {
        const auto newline = chunk.find('\n');
        if (newline == std::string_view::npos) {
            if (partialLine_.size() + chunk.size() > kLongestLine) {
                throw BrimvaleError::parseError("Could not parse folder listing for " +
                                                listingContext_ + ": an entry longer than 16 MiB");
            }
            partialLine_.append(chunk);
            return;
        }
        if (partialLine_.empty()) {
            decodeLine(chunk.substr(0, newline), into);
        } else {
            partialLine_.append(chunk.substr(0, newline));
            decodeLine(partialLine_, into);
            partialLine_.clear();
        }
        chunk.remove_prefix(newline + 1);
    }
}

void RcloneListingStream::finish(std::vector<RcloneEntry>& into) {
    if (!partialLine_.empty()) {
        std::string last = std::move(partialLine_);
        partialLine_.clear();
        decodeLine(last, into);
    }
}

} // namespace brimvale
