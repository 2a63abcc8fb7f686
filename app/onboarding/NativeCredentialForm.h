#pragma once

#include "core/onboarding/NativeCredentialConfiguration.h"
#include "core/onboarding/NativeCredentialOnboardingKind.h"

#include <QWidget>

#include <optional>
#include <string>
#include <variant>

class QFormLayout;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;

namespace brimvale {

// One of our own credential forms (S3 on AWS, Cloudflare R2, Google Cloud Storage, Azure Blob,
// FTP, SFTP): its introduction, its fields, a validation message that follows the typing (the
// same checks, in the same order, as the configuration that the submit runs) and the submit
// button, enabled while nothing is missing.
class NativeCredentialForm final : public QWidget {
    Q_OBJECT
public:
    using Fields = NativeCredentialFields;

    NativeCredentialForm(NativeCredentialOnboardingKind kind,
                         NativeCredentialFormPresentation presentation, QWidget* parent = nullptr);

    const NativeCredentialOnboardingKind& kind() const { return kind_; }
    // What was typed, as the configuration takes it.
    Fields fields() const;
    // The first problem of the fields as they stand; none when they can be submitted.
    static std::optional<std::string> validationMessage(const Fields& fields);

    // A failure reported after submitting (rclone's, or a check only the configuration can
    // make); cleared by the next edit.
    void showSubmitError(const QString& message);
    void setBusy(bool busy);

    QPushButton* submitButton() const { return submit_; }
    QLabel* messageLabel() const { return message_; }
    // The line edit labelled `label`, for tests.
    QLineEdit* field(const QString& label) const;
    QPlainTextEdit* pastedJSON() const { return pastedJSON_; }
    void setKeyFilePath(const QString& path);

signals:
    void submitted();

private:
    QLineEdit* addLine(const QString& label, bool secret = false, const QString& help = {});
    void addKeyFileChooser(const QString& buttonText, const QString& filter);
    void revalidate();
    std::string text(const QString& label) const;

    NativeCredentialOnboardingKind kind_;
    QFormLayout* form_;
    QLabel* message_;
    QPushButton* submit_;
    QPlainTextEdit* pastedJSON_ = nullptr;
    QLabel* keyFileLabel_ = nullptr;
    QString keyFilePath_;
    bool busy_ = false;
    bool showingSubmitError_ = false;
};

} // namespace brimvale
