#pragma once

#include "core/rclone/RcloneConfigDump.h"

#include <string_view>

namespace brimvale {

class SettingsStore;

// Whether an account's settings are complete enough to try a listing: object storage needs
// its stored scan root and credentials, FTP and SFTP a host and user (SFTP also a password or
// key); every other type is taken as ready. "Truthy" settings are "true". Thread safety: as
// the settings store's.
bool remoteHasMinimalListingSetup(std::string_view rcloneType, std::string_view remoteName,
                                  const RemoteConfigSection& config, const SettingsStore& settings);

} // namespace brimvale
