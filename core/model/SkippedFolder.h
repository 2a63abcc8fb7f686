#pragma once

#include <string>

namespace brimvale {

// A folder a scan could not read: it is counted as empty (or, for a cloud listing, without the
// part that could not be listed) and reported at the end. Plain data.
struct SkippedFolder {
    // Where it is: the folder's path on disk for local scans, its path below the scanned
    // folder ("/Photos/2019") for cloud scans.
    std::string location;
    // Why, in the system's own words ("permission denied").
    std::string reason;
    // A folder that gave no answer in time, rather than an error.
    bool timedOut = false;
    // Local scans: under a quiet prefix (no permission prompt).
    bool quiet = false;

    friend bool operator==(const SkippedFolder&, const SkippedFolder&) = default;
};

} // namespace brimvale
