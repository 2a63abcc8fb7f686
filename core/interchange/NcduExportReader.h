#pragma once

#include "core/interchange/JsonPullReader.h"
#include "core/model/Date.h"
#include "core/model/FileNode.h"

#include <cstdint>
#include <optional>
#include <string>

namespace brimvale {

// A scan read from an export in ncdu's JSON format.
struct ImportedScan {
    FileNodeRef root;           // named with the scanned path exactly as the export gives it
    std::string program;        // the exporting program as its metadata names it ("gdu")
    std::string programVersion; // "" when not given
    std::optional<Date> exportDate;
    std::int64_t files = 0;   // every entry that is not a folder
    std::int64_t folders = 0; // the scanned folder included
};

// Reads an export of format major version 1 (any minor version) from text that arrives through
// `fill`, never holding more of it than one buffer:
//   [1, MINOR, {metadata}, [{scanned folder}, {file}, [{folder}, …], …]]
//
// Sizes are what the disk held: each entry's "dsize" (allocated bytes) and, when the export
// has no allocated sizes at all, its "asize" (apparent bytes). A folder counts its own entry
// plus everything below it. A hard-linked file counts once: ncdu marks every name of it with
// "ino" and "hlnkc", so the first name met keeps the size; gdu marks only the names after the
// one it counted, so in an export whose metadata names gdu a marked name counts nothing.
// Entries marked "read_error", "excluded" or "notreg" keep their marks as MIME types
// (ExportEntryMarks.h). Unknown fields are skipped.
//
// Throws CorruptDataError, with the byte offset in the text, for text that is not such an
// export (malformed, truncated, another major version, sizes out of range, names that cannot
// be file names); whatever `fill` throws passes through. No recursion: any depth is read.
ImportedScan readNcduExport(JsonPullReader::Fill fill);

} // namespace brimvale
