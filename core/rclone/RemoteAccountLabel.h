#pragma once

#include "core/rclone/RcloneConfigDump.h"

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <string_view>

// A readable label for an account (an e-mail address or user name) taken from its rclone
// settings, shown instead of the bare remote name. Pure functions: safe on any thread.
namespace brimvale::RemoteAccountLabel {

// The first non-empty of: the section's client_email, account, user, login, username; the
// token's email, preferred_username, username, user_id; a label from the token's id_token,
// then its access_token (read as JWTs); for "drive" the team_drive id. Nothing without a
// section or when none of these is there (callers then show the remote name).
std::optional<std::string> pick(const RemoteConfigSection* section, std::string_view remoteName,
                                std::string_view backendType);

// The label a JWT's payload carries: email, preferred_username, unique_name, upn, name, or a
// "sub" that contains "@". Opaque tokens give nothing.
std::optional<std::string> labelFromJWTAccessToken(std::string_view token);

// The payload (second part) of a JWT as a JSON object: base64url without padding decoded.
std::optional<nlohmann::json> decodeJWTPayload(std::string_view token);

} // namespace brimvale::RemoteAccountLabel
