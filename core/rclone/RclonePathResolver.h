#pragma once

#include <optional>
#include <string>
#include <vector>

namespace brimvale {

// Where the rclone program is looked for, in this order. The PATH variable is deliberately not
// among them: a desktop application does not inherit the user's shell path, so only fixed
// places count. Plain data: copy it freely between threads.
struct RcloneSearchLocations {
    // The application's own copies: <install prefix>/share/brimvale/rclone and the same path
    // relative to the executable's folder (<folder>/../share/brimvale/rclone). The first that
    // exists is taken without further tests.
    std::vector<std::string> bundledCopies;
    // The folder of the running executable; "rclone" there is taken when a file exists.
    std::string executableFolder;
    // Fixed system places, the first existing file wins.
    std::vector<std::string> fixedPaths;

    // The places of this installation: the executable's folder from /proc/self/exe.
    static RcloneSearchLocations standard();
    // The places for an executable in `executableFolder` (an empty folder leaves out the
    // places that depend on it).
    static RcloneSearchLocations forExecutableFolder(const std::string& executableFolder);
};

// The three fixed places, as every installation checks them.
const std::vector<std::string>& standardFixedRclonePaths();

// The absolute path of the rclone program to run, or nothing when there is none. Reads only
// the file system: safe on any thread.
std::optional<std::string> resolveRclonePath(const RcloneSearchLocations& locations);

} // namespace brimvale
