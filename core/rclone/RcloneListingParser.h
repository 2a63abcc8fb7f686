#pragma once

#include "core/rclone/RcloneEntry.h"

#include <optional>
#include <string_view>
#include <vector>

namespace brimvale {

// Decodes the standard output of one `rclone lsjson` run: a JSON array of objects whose keys
// Path, Name, Size, ModTime, IsDir, ID and MimeType are read in that order (Path, Name, Size
// and IsDir required; other keys ignored); the first failure ends decoding.
//
// Limits: the whole output is held in memory and parsed at once; nesting is not limited by
// the stack (the parser is iterative); a Size must be a whole number that fits in 64 bits.
//
// Throws BrimvaleError::parseError("Could not parse folder listing for <listingContext>:
// <what went wrong> (JSON length: N bytes; starts: <first 200 bytes>; ends: <last 120
// bytes>)"). Pure: safe on any thread.
std::vector<RcloneEntry> parseJSON(std::string_view data, std::string_view listingContext);

// Decodes one element of a listing that arrives line by line (`rclone lsjson -R` writes one
// object per line): `line` is the object's text without the separating comma; `index` counts
// from 0. Throws BrimvaleError::parseError("Could not parse folder listing for
// <listingContext>: <what went wrong> (entry N: <first 200 bytes>)"). Pure.
RcloneEntry parseEntryLine(std::string_view line, std::size_t index,
                           std::string_view listingContext);

// The same without an error: nothing when `line` is not (yet) a whole entry.
std::optional<RcloneEntry> tryParseEntryLine(std::string_view line, std::size_t index);

} // namespace brimvale
