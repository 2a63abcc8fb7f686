#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace brimvale {

// Removes the OAuth page template keys ("config_template", "config_template_file") from one
// remote's section of the rclone configuration file, so rclone shows its own plain sign-in
// pages. The file is edited in place of rclone in this one spot only.
//
// Thread safety: the functions share no state; two clean-ups of one file at the same time are
// the caller's to avoid (one guided setup runs at a time).
namespace RcloneOAuthBranding {

// The configuration file's path from the standard output of `rclone config paths`: the first
// line beginning with "Config file:", without that prefix, trimmed. Throws
// std::runtime_error("Could not find rclone config file path.") without such a line or with
// nothing after the prefix.
std::string configPathFromPathsOutput(std::string_view pathsOutput);

// `configText` without the template-key lines of the section named `remoteName`. Lines are cut
// at "\n"; a line whose trimmed text starts with "[" and ends with "]" opens a section; a line
// is a template key when its trimmed text before the first "=" is one of the two keys. Every
// other byte stays as it was (line ends, "\r", blanks, comments, invalid UTF-8).
std::string strippingOAuthTemplateKeys(std::string_view configText, std::string_view remoteName);

// Rewrites the file at `configPath` when its remote section holds template keys: atomically,
// keeping the file's permissions. A file that does not exist is left alone; one that cannot be
// read or written throws std::system_error.
void stripOAuthTemplateKeys(const std::string& configPath, std::string_view remoteName);

} // namespace RcloneOAuthBranding

} // namespace brimvale
