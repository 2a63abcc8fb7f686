#pragma once

#include "core/onboarding/CloudServiceDefinition.h"

#include <optional>

namespace brimvale {

// Which of the application's own credential forms configures a service (services without one
// go through rclone's guided configuration). Value type; two `s3` kinds are equal only when
// their variants are.
class NativeCredentialOnboardingKind {
public:
    enum class Form { s3, gcs, azureBlob, ftp, sftp };

    static NativeCredentialOnboardingKind s3(S3CatalogVariant variant) {
        return NativeCredentialOnboardingKind(Form::s3, variant);
    }
    static NativeCredentialOnboardingKind gcs() {
        return NativeCredentialOnboardingKind(Form::gcs);
    }
    static NativeCredentialOnboardingKind azureBlob() {
        return NativeCredentialOnboardingKind(Form::azureBlob);
    }
    static NativeCredentialOnboardingKind ftp() {
        return NativeCredentialOnboardingKind(Form::ftp);
    }
    static NativeCredentialOnboardingKind sftp() {
        return NativeCredentialOnboardingKind(Form::sftp);
    }

    Form form() const { return form_; }
    // Set exactly for Form::s3.
    std::optional<S3CatalogVariant> s3Variant() const { return s3Variant_; }

    friend bool operator==(const NativeCredentialOnboardingKind&,
                           const NativeCredentialOnboardingKind&) = default;

private:
    explicit NativeCredentialOnboardingKind(Form form, std::optional<S3CatalogVariant> variant = {})
        : form_(form)
        , s3Variant_(variant) {}

    Form form_;
    std::optional<S3CatalogVariant> s3Variant_;
};

// Where a native credential form is shown, so it can choose its surrounding chrome and its
// submit button.
enum class NativeCredentialFormPresentation { addAccountSheet, needsSetup };

} // namespace brimvale
