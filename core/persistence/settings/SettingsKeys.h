#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace brimvale::SettingsKeys {

// Every key Brimvale keeps in the user's settings store. Per-account keys end in the account id
// (the rclone remote name), appended directly after the final point.

// Text: the folder chosen for a local-disk account; absent means no choice yet.
inline std::string localScanPath(std::string_view accountID) {
    return "Brimvale.localScanPath.v1." + std::string(accountID);
}

// Bool: the one-time removal of "bv_" test accounts has run.
inline constexpr std::string_view didPurgeBvUnderscoreTestRemotes =
    "Brimvale.didPurgeBvUnderscoreTestRemotes.v1";

// Text: the bucket to scan for a Google Cloud Storage account.
inline std::string gcsScanBucket(std::string_view accountID) {
    return "Brimvale.gcsScanBucket." + std::string(accountID);
}

// Text: the bucket (and prefix) to scan for an S3-type account.
inline std::string s3ObjectPrefix(std::string_view accountID) {
    return "Brimvale.objectPrefix.s3." + std::string(accountID);
}

// Text: the container to scan for an Azure Blob account.
inline std::string azureObjectPrefix(std::string_view accountID) {
    return "Brimvale.objectPrefix.azure." + std::string(accountID);
}

// Text: the local disk account the last reading of the account list chose, as
// "configured:<id>" (a local remote of the rclone configuration) or "pinned:<id>" (the pinned
// row). Lets a command scan a folder without running rclone.
inline std::string localDiskAccount() {
    return "Brimvale.localDiskAccount.v1";
}

// Bool: list the account one folder per rclone run instead of one recursive listing (for
// providers that throttle recursive listings). Absent means false.
inline std::string listOneFolderAtATime(std::string_view accountID) {
    return "Brimvale.listOneFolderAtATime.v1." + std::string(accountID);
}

// Text: whether the account's backend lists a whole tree in one go (rclone's ListR feature),
// as "<backend type>=yes" or "<backend type>=no"; asked once, asked again after a retyping.
inline std::string recursiveListingFeature(std::string_view accountID) {
    return "Brimvale.recursiveListingFeature.v1." + std::string(accountID);
}

// Text, a whole number: how many finished scans before the newest the scan history keeps
// (default 10).
inline std::string scanHistoryLength(std::string_view accountID) {
    return "Brimvale.scanHistoryLength.v1." + std::string(accountID);
}

// Text, a whole number: the age in days beyond which earlier scans leave the history (default
// 90).
inline std::string scanHistoryDays(std::string_view accountID) {
    return "Brimvale.scanHistoryDays.v1." + std::string(accountID);
}

// The keys that belong to one account, removed with it.
inline std::vector<std::string> keysOwnedByAccount(std::string_view accountID) {
    return {localScanPath(accountID),        gcsScanBucket(accountID),
            s3ObjectPrefix(accountID),       azureObjectPrefix(accountID),
            listOneFolderAtATime(accountID), recursiveListingFeature(accountID),
            scanHistoryLength(accountID),    scanHistoryDays(accountID)};
}

} // namespace brimvale::SettingsKeys
