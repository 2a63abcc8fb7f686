#pragma once

#include "core/onboarding/NativeCredentialOnboardingKind.h"
#include "core/rclone/BrimvaleError.h"

#include <stop_token>
#include <string>
#include <string_view>
#include <variant>

namespace brimvale {

class RcloneAdapter;
class SettingsStore;

// What the user typed into each native credential form. Every field is trimmed of white space
// and line breaks before use; optional fields are empty when not given. Ports are the field's
// text: a decimal number of at least 1 is written, anything else leaves rclone's default.
struct S3AwsCredentialFields {
    std::string region;
    std::string accessKeyId;
    std::string secretAccessKey;
    std::string bucket;
};
struct CloudflareR2CredentialFields {
    std::string accountId;
    std::string accessKeyId;
    std::string secretAccessKey;
    std::string bucket;
};
struct GCSCredentialFields {
    std::string bucket;
    std::string projectNumber;      // optional
    std::string keyFilePath;        // optional; "~" is the home folder
    std::string serviceAccountJSON; // optional, pasted; exactly one of the two
};
struct AzureBlobCredentialFields {
    std::string account;
    std::string storageKey;
    std::string container;
};
struct FTPCredentialFields {
    std::string host;
    std::string port; // optional, default 21
    std::string user;
    std::string password; // optional
};
struct SFTPCredentialFields {
    std::string host;
    std::string port; // optional, default 22
    std::string user;
    std::string password;    // optional when a key file is given
    std::string keyFilePath; // optional; "~" is the home folder
};

// The fields of whichever form the user filled in.
using NativeCredentialFields =
    std::variant<S3AwsCredentialFields, CloudflareR2CredentialFields, GCSCredentialFields,
                 AzureBlobCredentialFields, FTPCredentialFields, SFTPCredentialFields>;

// A form's input was refused before anything was written. A scanFailed error whose detail is
// the form's own message, which is what the form shows (message()); other failures of the
// apply operations are rclone's and are shown through ScanErrorInfo::addAccountFlowMessage.
class CredentialFormValidationError : public BrimvaleError {
public:
    CredentialFormValidationError(std::string remoteName, std::string message);
    const std::string& message() const { return as<ScanFailed>()->detail; }
};

// The native credential forms' effect on the rclone configuration: validate the fields (the
// first failing check wins), then write the remote with the form's type and every key in one
// request to rclone's remote control (RcloneAdapter::writeRemoteSettings), so a typed secret is
// never on a command line; rclone obscures the passwords it stores obscured. A refused write
// changes nothing a new remote would keep (it is deleted again), and its error never quotes a
// secret. On success the bucket or container becomes the account's scan root in `settings`.
//
// Thread safety: blocking; call from a background thread. `stopToken` cancels the running
// rclone child (CancellationError).
namespace NativeCredentialConfiguration {

// The account's R2 S3 endpoint: "https://<account id>.r2.cloudflarestorage.com".
std::string cloudflareR2Endpoint(std::string_view accountId);

// `path` with a leading "~" or "~user" replaced by that home folder.
std::string expandingTildeInPath(std::string_view path);

// provider AWS, region, access_key_id, secret_access_key; scan root: the S3 bucket.
void applyS3AwsConfiguration(const RcloneAdapter& adapter, const std::string& remoteName,
                             const S3AwsCredentialFields& fields, SettingsStore& settings,
                             std::stop_token stopToken = {});
// provider Cloudflare, endpoint, region auto, access_key_id, secret_access_key; scan root: the
// S3 bucket.
void applyS3CloudflareR2Configuration(const RcloneAdapter& adapter, const std::string& remoteName,
                                      const CloudflareR2CredentialFields& fields,
                                      SettingsStore& settings, std::stop_token stopToken = {});
// service_account_file (then service_account_credentials cleared) or
// service_account_credentials, then project_number when given; scan root: the GCS bucket.
void applyGCSConfiguration(const RcloneAdapter& adapter, const std::string& remoteName,
                           const GCSCredentialFields& fields, SettingsStore& settings,
                           std::stop_token stopToken = {});
// account, key; scan root: the Azure container.
void applyAzureBlobAccountKeyConfiguration(const RcloneAdapter& adapter,
                                           const std::string& remoteName,
                                           const AzureBlobCredentialFields& fields,
                                           SettingsStore& settings, std::stop_token stopToken = {});
// host, user, port when given, pass when given.
void applyFTPConfiguration(const RcloneAdapter& adapter, const std::string& remoteName,
                           const FTPCredentialFields& fields, std::stop_token stopToken = {});
// host, user, port when given, key_file when given, pass when given.
void applySFTPConfiguration(const RcloneAdapter& adapter, const std::string& remoteName,
                            const SFTPCredentialFields& fields, std::stop_token stopToken = {});

} // namespace NativeCredentialConfiguration

// The texts of the native credential forms.
namespace NativeCredentialFormText {

// The one line that opens each form.
std::string_view introduction(const NativeCredentialOnboardingKind& kind);
// "Save and add account" in the add-account sheet, "Save and start scanning" on first run.
std::string_view submitButtonTitle(NativeCredentialFormPresentation presentation);

} // namespace NativeCredentialFormText

} // namespace brimvale
