#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace brimvale {

// The arguments of an rclone run joined by single spaces for the log, with every secret value
// replaced by "***". Secrets are the values of the keys pass, key, key_pem,
// secret_access_key, service_account_credentials, token, client_secret, sas_url and
// connection_string, and the answer after --result, in every form rclone accepts them:
// settings of `config create NAME TYPE …` and `config update NAME …` (`KEY VALUE` pairs or
// `KEY=VALUE`, found by their place in the list, so a remote called "pass" is only a name),
// backend flags such as `--sftp-pass VALUE` or `--s3-secret-access-key=VALUE`, and connection
// strings such as `:sftp,pass=VALUE:path`. Pure: safe on any thread.
std::string argumentsForLog(const std::vector<std::string>& arguments);

// Whether `name` (as a config key, or a flag name with dashes) names a secret.
bool isSecretKeyName(std::string_view name);

} // namespace brimvale
