#pragma once

#include <string>
#include <string_view>

namespace brimvale::LocalScanCacheStem {

// The saved-scan key of a local scan (see SavedScanNames): the account's key for the whole disk
// ("/" or nothing), else the account's key, ":" and the folder's path: a scan of
// /Volumes/Backup/Photos for account local1 has the key local1:/Volumes/Backup/Photos.
std::string stem(std::string_view remoteID, std::string_view scanPath);

} // namespace brimvale::LocalScanCacheStem
