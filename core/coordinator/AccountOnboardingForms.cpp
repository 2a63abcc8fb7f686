// The native credential forms of AccountOnboarding: validated, written to the rclone
// configuration in the background, then the account list is read again.
#include "core/coordinator/AccountOnboardingInternals.h"
#include "core/rclone/BrimvaleError.h"
#include "core/support/Task.h"

namespace brimvale {

void AccountOnboarding::applyNativeCredentials(
    const std::string& remoteName,
    std::function<void(const RcloneAdapter&, SettingsStore&, std::stop_token)> apply,
    std::function<void(bool)> onFinished) {
    terminateGuidedProcess();
    if (auto problem = remoteNameProblem(remoteName)) {
        publish(addAccountError_, problem, PublishedField::addAccountError);
        reportFinished(onFinished, false);
        return;
    }
    publish(addAccountError_, std::optional<std::string>(), PublishedField::addAccountError);
    publish(addAccountGuidedRunning_, true, PublishedField::addAccountGuidedRunning);
    coordinator_.launchTask("form " + remoteName, [this, remoteName, apply = std::move(apply),
                                                   onFinished](std::stop_token token) {
        std::optional<std::string> failure;
        try {
            apply(coordinator_.addAccountHelper_, *coordinator_.options_.settings, token);
        } catch (const CancellationError&) {
            throw;
        } catch (const CredentialFormValidationError& error) {
            failure = error.message();
        } catch (const std::exception& error) {
            failure = ScanErrorInfo::addAccountFlowMessage(error);
        }
        coordinator_.postIfAlive([this, failure, onFinished] {
            publish(addAccountGuidedRunning_, false, PublishedField::addAccountGuidedRunning);
            publish(addAccountError_, failure, PublishedField::addAccountError);
            coordinator_.refreshProviders(
                [onFinished, succeeded = !failure] { reportFinished(onFinished, succeeded); });
        });
    });
}

void AccountOnboarding::applyS3AwsNativeCredentials(const std::string& remoteName,
                                                    S3AwsCredentialFields fields,
                                                    std::function<void(bool)> onFinished) {
    applyNativeCredentials(
        remoteName,
        [remoteName, fields](const RcloneAdapter& adapter, SettingsStore& settings,
                             std::stop_token token) {
            NativeCredentialConfiguration::applyS3AwsConfiguration(adapter, remoteName, fields,
                                                                   settings, token);
        },
        std::move(onFinished));
}

void AccountOnboarding::applyS3CloudflareR2NativeCredentials(const std::string& remoteName,
                                                             CloudflareR2CredentialFields fields,
                                                             std::function<void(bool)> onFinished) {
    applyNativeCredentials(
        remoteName,
        [remoteName, fields](const RcloneAdapter& adapter, SettingsStore& settings,
                             std::stop_token token) {
            NativeCredentialConfiguration::applyS3CloudflareR2Configuration(
                adapter, remoteName, fields, settings, token);
        },
        std::move(onFinished));
}

void AccountOnboarding::applyGCSNativeCredentials(const std::string& remoteName,
                                                  GCSCredentialFields fields,
                                                  std::function<void(bool)> onFinished) {
    applyNativeCredentials(
        remoteName,
        [remoteName, fields](const RcloneAdapter& adapter, SettingsStore& settings,
                             std::stop_token token) {
            NativeCredentialConfiguration::applyGCSConfiguration(adapter, remoteName, fields,
                                                                 settings, token);
        },
        std::move(onFinished));
}

void AccountOnboarding::applyAzureBlobNativeCredentials(const std::string& remoteName,
                                                        AzureBlobCredentialFields fields,
                                                        std::function<void(bool)> onFinished) {
    applyNativeCredentials(
        remoteName,
        [remoteName, fields](const RcloneAdapter& adapter, SettingsStore& settings,
                             std::stop_token token) {
            NativeCredentialConfiguration::applyAzureBlobAccountKeyConfiguration(
                adapter, remoteName, fields, settings, token);
        },
        std::move(onFinished));
}

void AccountOnboarding::applyFTPNativeCredentials(const std::string& remoteName,
                                                  FTPCredentialFields fields,
                                                  std::function<void(bool)> onFinished) {
    applyNativeCredentials(
        remoteName,
        [remoteName, fields](const RcloneAdapter& adapter, SettingsStore&, std::stop_token token) {
            NativeCredentialConfiguration::applyFTPConfiguration(adapter, remoteName, fields,
                                                                 token);
        },
        std::move(onFinished));
}

void AccountOnboarding::applySFTPNativeCredentials(const std::string& remoteName,
                                                   SFTPCredentialFields fields,
                                                   std::function<void(bool)> onFinished) {
    applyNativeCredentials(
        remoteName,
        [remoteName, fields](const RcloneAdapter& adapter, SettingsStore&, std::stop_token token) {
            NativeCredentialConfiguration::applySFTPConfiguration(adapter, remoteName, fields,
                                                                  token);
        },
        std::move(onFinished));
}

void AccountOnboarding::applyNativeCredentials(const std::string& remoteName,
                                               const NativeCredentialFields& fields,
                                               std::function<void(bool)> onFinished) {
    std::visit(
        [&](const auto& form) {
            using Form = std::decay_t<decltype(form)>;
            if constexpr (std::is_same_v<Form, S3AwsCredentialFields>) {
                applyS3AwsNativeCredentials(remoteName, form, std::move(onFinished));
            } else if constexpr (std::is_same_v<Form, CloudflareR2CredentialFields>) {
                applyS3CloudflareR2NativeCredentials(remoteName, form, std::move(onFinished));
            } else if constexpr (std::is_same_v<Form, GCSCredentialFields>) {
                applyGCSNativeCredentials(remoteName, form, std::move(onFinished));
            } else if constexpr (std::is_same_v<Form, AzureBlobCredentialFields>) {
                applyAzureBlobNativeCredentials(remoteName, form, std::move(onFinished));
            } else if constexpr (std::is_same_v<Form, FTPCredentialFields>) {
                applyFTPNativeCredentials(remoteName, form, std::move(onFinished));
            } else {
                applySFTPNativeCredentials(remoteName, form, std::move(onFinished));
            }
        },
        fields);
}

} // namespace brimvale
