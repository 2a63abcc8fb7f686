#pragma once

#include "core/cleanup/LocalRemoval.h"

#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace brimvale {

class RcloneRunner;

// Whether a provider keeps what is deleted through rclone, by rclone backend type, as the
// providers do by default.
enum class ProviderTrash {
    keeps,          // drive: moved to the trash (rclone's --drive-use-trash is on by default)
    keepsForAWhile, // box, pcloud, onedrive, dropbox, jottacloud, mega: restorable for a time
    none,           // s3, gcs, azureblob, b2 (unless the bucket keeps versions), sftp, ftp,
                    // webdav, local: gone at once
    unknown,        // any other backend
};
ProviderTrash providerTrash(std::string_view rcloneType);
// One sentence for a confirmation, such as "Google Drive keeps deleted items in its trash."
std::string providerTrashSentence(std::string_view rcloneType);

// The rclone command line that deletes `target` ("remote:path"): deletefile for a file, purge
// (the folder and everything in it) for a folder, "--" before the target.
std::vector<std::string> cloudDeletionArguments(const std::string& target, bool isFolder);

// The items a failed deletion names in rclone's standard error ("… ERROR : a/b: reason"),
// each once, with the reason.
std::vector<DeletionFailure> failuresInDeletionLog(std::string_view standardError);

// Deletes one cloud item with rclone. Returns the items rclone could not delete (empty when
// everything went). Throws CancellationError when `stopToken` is stopped (rclone gets SIGTERM;
// what it deleted before is gone), BrimvaleError when rclone fails without naming items (not
// found, signed out, no rclone) — ScanErrorInfo makes the message.
std::vector<DeletionFailure> deleteCloudItem(const RcloneRunner& runner,
                                             const std::string& accountLabel,
                                             const std::string& target, bool isFolder,
                                             std::stop_token stopToken);

} // namespace brimvale
