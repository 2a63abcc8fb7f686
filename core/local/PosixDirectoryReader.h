#pragma once

#include "core/local/DirectoryReader.h"

namespace brimvale {

// Reads folders with POSIX calls: openat relative to the parent when it is open (any depth,
// no path walk), getdents64 on Linux (readdir elsewhere) and fstatat per entry without
// building a path. Sizes are allocated sizes, st_blocks * 512. Thread safety: read() may be
// called from many threads at once; each thread uses its own listing buffer.
class PosixDirectoryReader final : public DirectoryReader {
public:
    FolderReadOutcome read(const FolderReadRequest& request, DirEntrySink& sink) override;
};

// Opens a folder for reading without following a symbolic link in its last component.
// Locations longer than the kernel's path limit are opened piece by piece. Returns -1 with
// errno set on failure.
int openFolderForReading(int parentDescriptor, std::string_view name, std::string_view location);

} // namespace brimvale
