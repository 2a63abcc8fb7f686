#pragma once

#include "core/model/Date.h"
#include "core/model/FileNode.h"

#include <iosfwd>
#include <string>
#include <string_view>

namespace brimvale {

// Writes a scan tree as an export in ncdu's JSON format (major version 1, minor version 2),
// which ncdu and gdu open:
//   [1,2,{"progname":"brimvale","progver":…,"timestamp":…},
//   [{"name":ROOT,"asize":…,"dsize":…},{file},[{folder},…],…]]
//
// Brimvale keeps one size per item, so it goes out as both sizes. A folder's own entry gets
// what its size holds beyond its children (nothing for a tree Brimvale scanned itself, the
// folder's own bytes for one opened from an export), so every folder's total reads back the
// same. Marks kept from an opened export (ExportEntryMarks.h) are written back as their flags.
// Names are written as their bytes, as ncdu writes them, so names that are not valid UTF-8 read
// back unchanged; quotes, backslashes and control characters are escaped.
//
// The walk is iterative and the text goes out through a buffer of fixed size, so trees of any
// size and depth are written without building the document.
// Thread safety: one writer per thread; the tree must not change while it is written.
class NcduExportWriter {
public:
    explicit NcduExportWriter(std::ostream& out);

    // `rootName` is what the scanned folder is called in the export (an absolute path for a
    // local scan). Throws std::runtime_error when the stream fails.
    void write(const FileNode& root, std::string_view rootName, Date exportDate);

private:
    void appendEntry(const FileNode& node, std::string_view name);
    void appendName(std::string_view name);
    void appendNumber(std::int64_t value);
    void flushIfFull();
    void flush();

    std::ostream& out_;
    std::string buffer_;
};

} // namespace brimvale
