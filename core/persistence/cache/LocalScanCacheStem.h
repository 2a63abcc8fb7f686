#pragma once

#include <string>
#include <string_view>

namespace brimvale::LocalScanCacheStem {

// The cache stem of a local scan: the account id alone for the whole disk ("/" or nothing),
// else the account id, "_", and the path without its leading "/" with every "/" written "__":
// a scan of /Volumes/Backup/Photos for account local1 has the stem
// local1_Volumes__Backup__Photos.
std::string stem(std::string_view remoteID, std::string_view scanPath);

} // namespace brimvale::LocalScanCacheStem
