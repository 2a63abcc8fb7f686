#pragma once

#include "core/interchange/NcduExportReader.h"

#include <string>
#include <string_view>

namespace brimvale {

// An export file opened whole: `path` ("-" for standard input), plain or gzip, read through
// ExportTextSource and readNcduExport. Throws std::system_error when the file cannot be read
// and CorruptDataError when it is not an export.
ImportedScan readNcduExportFile(const std::string& path);

// Writes `root` as an export to `path`: into "PATH.partial" first, renamed over `path` once
// complete, so a failure never leaves a half-written export where a good one was (nor the
// partial file). Throws std::system_error or std::runtime_error saying what failed.
void writeNcduExportFile(const std::string& path, const FileNode& root, std::string_view rootName,
                         Date exportDate);

} // namespace brimvale
