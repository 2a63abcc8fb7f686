#pragma once

#include "core/model/CloudStorageProvider.h"
#include "core/rclone/RcloneEntry.h"
#include "core/rclone/RcloneRunner.h"

#include <functional>
#include <memory>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace brimvale {

// One scan of a remote as one recursive listing (`rclone lsjson -R`), read while rclone writes
// it: entries are decoded on the scanning thread, handed to the tree's owner in batches and
// merged there (RcloneStreamMerge); progress, partial trees and checkpoints follow at their
// throttles. Entries come in any order; folders are made on demand.
//
// Folders rclone could not read are reported through ScanParameters::onSkippedFolder and the
// rest of the tree is kept, as long as anything at all was listed and the listed folder itself
// was read; otherwise the run's failure is thrown as BrimvaleError (scanFailed with rclone's
// standard error, remoteNotConfigured when rclone has no such remote, parseError for output
// that is not a listing). Stop terminates the child; the tree merged so far stays with its
// sizes rolled up, as the last partial tree handed out shows it.
//
// Threading: run() blocks its (background) thread. With a main queue in the parameters the
// tree is changed only there (batches are posted, never waited for, except the final passes);
// without one, everything happens on the scanning thread.
class RcloneStreamedScan {
public:
    // Runs rclone with the listing's arguments, handing standard output on as it comes.
    using RunListing = std::function<StreamedRcloneRun(
        const std::function<void(std::string_view)>& onOutput, std::stop_token)>;

    struct Listing {
        RunListing run;
        std::string target;               // "remote:path", for messages and progress
        std::string remoteLabelForErrors; // the account's display name
    };

    RcloneStreamedScan(std::string remoteID, Listing listing, const ScanParameters& parameters);
    ~RcloneStreamedScan();

    // Scans and returns the root: the seed root when given, else a new folder named after the
    // scanned path.
    FileNodeRef run();

private:
    struct Shared;

    void handOff(std::vector<RcloneEntry>& batch);
    template <class Work> void onOwnerAndWait(Work&& work) const;

    std::string remoteID_;
    Listing listing_;
    const ScanParameters& parameters_;
    std::shared_ptr<Shared> shared_;
};

} // namespace brimvale
