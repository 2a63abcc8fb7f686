#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace brimvale {

// The arguments of an rclone run joined by single spaces for the log, with every secret value
// replaced by "***". Secrets are the values of the keys pass, key, key_pem,
// secret_access_key, service_account_credentials, token, client_secret, sas_url and
// connection_string, and the answer after --result, in every form rclone accepts them:
// `KEY VALUE` pairs (config create/update), `KEY=VALUE`, backend flags such as
// `--sftp-pass VALUE` or `--s3-secret-access-key=VALUE`, and connection strings such as
// `:sftp,pass=VALUE:path`. Pure: safe on any thread.
std::string argumentsForLog(const std::vector<std::string>& arguments);

// Whether `name` (as a config key, or a flag name with dashes) names a secret.
bool isSecretKeyName(std::string_view name);

} // namespace brimvale
