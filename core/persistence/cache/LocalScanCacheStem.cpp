#include "core/persistence/cache/LocalScanCacheStem.h"

#include "core/persistence/cache/SavedScanNames.h"

namespace brimvale::LocalScanCacheStem {

std::string stem(std::string_view remoteID, std::string_view scanPath) {
    return SavedScanNames::folderKey(remoteID, scanPath);
}

} // namespace brimvale::LocalScanCacheStem
