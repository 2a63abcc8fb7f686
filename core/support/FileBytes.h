#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <sys/types.h>
#include <vector>

namespace brimvale {

// Whole-file reads and writes. Failures throw std::system_error whose message names the file.
// Thread safety: free functions without shared state.

struct FileBytes {
    std::vector<std::uint8_t> bytes;
    double modifiedUnixSeconds = 0;
};

// The whole content of a regular file, with its modification time. Anything else (a folder, a
// device such as /dev/zero, a FIFO that would block) is refused at once with EINVAL or EISDIR.
FileBytes readFileBytes(const std::string& path);

// Replaces `path` with `data` atomically: written to a temporary file beside it, flushed to disk,
// then renamed over it. A failure at any point leaves the previous file as it was and no
// temporary file behind. The file gets exactly `mode` (0600: readable by the user only).
// The temporary file is ".brimvale-XXXXXX.tmp" whatever the target's name (so a target name
// close to the file-name limit can still be written), locked (flock) while it is written.
void writeFileAtomically(const std::string& path, std::span<const std::uint8_t> data,
                         mode_t mode = 0600);

// Appends bytes to the file being written; throws std::system_error when they cannot be written.
using FileAppender = std::function<void(std::span<const std::uint8_t>)>;

// As above, for content made while it is written: `produce` hands the file's bytes to the
// appender, in order and in as many calls as it likes. An exception from `produce` is a failure
// like any other: the previous file stays, and the exception goes on to the caller.
void writeFileAtomically(const std::string& path, mode_t mode,
                         const std::function<void(const FileAppender&)>& produce);

// Removes from `folder` the temporary files of writeFileAtomically calls that never finished (a
// killed process): only files named as it names them, and only those no live writer holds
// locked. Returns how many were removed.
int removeAbandonedTemporaryFiles(const std::string& folder);

} // namespace brimvale
