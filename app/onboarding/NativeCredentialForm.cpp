#include "app/onboarding/NativeCredentialForm.h"

#include "app/support/ErrorText.h"
#include "app/support/WidgetText.h"

#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include <filesystem>

namespace brimvale {
namespace {

std::string trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos) {
        return {};
    }
    const auto last = text.find_last_not_of(" \t\r\n");
    return std::string(text.substr(first, last - first + 1));
}

bool fileExists(const std::string& path) {
    std::error_code error;
    return std::filesystem::exists(NativeCredentialConfiguration::expandingTildeInPath(path),
                                   error);
}

// The form's labels, used as keys of its fields.
const char* const kRegion = "AWS region (e.g. us-east-1)";
const char* const kAccessKeyID = "Access key ID";
const char* const kSecretAccessKey = "Secret access key";
const char* const kBucket = "Bucket name (scan root)";
const char* const kAccountID = "Account ID (from Cloudflare sidebar)";
const char* const kR2AccessKeyID = "Access Key ID";
const char* const kR2SecretAccessKey = "Secret Access Key";
const char* const kProjectNumber = "Project number (optional)";
const char* const kStorageAccount = "Storage account name";
const char* const kStorageKey = "Storage account key";
const char* const kContainer = "Container name (scan root)";
const char* const kHost = "Host";
const char* const kFTPPort = "Port (optional, default 21)";
const char* const kSFTPPort = "Port (optional, default 22)";
const char* const kUser = "Username";
const char* const kFTPPassword = "Password (optional)";
const char* const kSFTPPassword = "Password (if not using a key)";

} // namespace

NativeCredentialForm::NativeCredentialForm(NativeCredentialOnboardingKind kind,
                                           NativeCredentialFormPresentation presentation,
                                           QWidget* parent)
    : QWidget(parent)
    , kind_(kind) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(10);
    auto* introduction = new QLabel(qtText(NativeCredentialFormText::introduction(kind)), this);
    introduction->setWordWrap(true);
    layout->addWidget(introduction);
    form_ = new QFormLayout();
    form_->setFieldGrowthPolicy(QFormLayout::ExpandingFieldsGrow);
    form_->setLabelAlignment(Qt::AlignRight);
    layout->addLayout(form_);

    using Form = NativeCredentialOnboardingKind::Form;
    switch (kind.form()) {
    case Form::s3:
        if (kind.s3Variant() == S3CatalogVariant::cloudflareR2) {
            addLine(tr(kAccountID));
            addLine(tr(kR2AccessKeyID));
            addLine(tr(kR2SecretAccessKey), true);
            addLine(tr(kBucket));
        } else {
            addLine(tr(kRegion));
            addLine(tr(kAccessKeyID));
            addLine(tr(kSecretAccessKey), true);
            addLine(tr(kBucket));
        }
        break;
    case Form::gcs: {
        addLine(tr(kBucket), false,
                tr("Scans use this bucket as the root (rclone path `remote:bucket`)."));
        addLine(tr(kProjectNumber), false,
                tr("Numeric project ID from Google Cloud console—helps when listing buckets or "
                   "using requester-pays."));
        addKeyFileChooser(tr("Choose JSON key file…"), tr("JSON key (*.json);;All files (*)"));
        auto* pasteLabel = new QLabel(tr("Or paste the JSON key below (not both)."), this);
        form_->addRow(pasteLabel);
        pastedJSON_ = new QPlainTextEdit(this);
        pastedJSON_->setAccessibleName(tr("Service account JSON key"));
        pastedJSON_->setFixedHeight(90);
        pastedJSON_->setTabChangesFocus(true);
        connect(pastedJSON_, &QPlainTextEdit::textChanged, this, &NativeCredentialForm::revalidate);
        form_->addRow(pastedJSON_);
        break;
    }
    case Form::azureBlob:
        addLine(tr(kStorageAccount));
        addLine(tr(kStorageKey), true);
        addLine(tr(kContainer));
        break;
    case Form::ftp:
        addLine(tr(kHost));
        addLine(tr(kFTPPort));
        addLine(tr(kUser));
        addLine(tr(kFTPPassword), true);
        break;
    case Form::sftp: {
        addLine(tr(kHost));
        addLine(tr(kSFTPPort));
        addLine(tr(kUser));
        addLine(tr(kSFTPPassword), true);
        addKeyFileChooser(tr("Choose SSH private key…"), tr("All files (*)"));
        auto* hint = new QLabel(
            tr("Provide a password or a key file (not both required if one is set)."), this);
        hint->setWordWrap(true);
        form_->addRow(hint);
        break;
    }
    }

    message_ = new QLabel(this);
    message_->setWordWrap(true);
    message_->setAccessibleName(tr("Form message"));
    layout->addWidget(message_);
    auto* buttons = new QHBoxLayout();
    buttons->addStretch(1);
    submit_ =
        new QPushButton(qtText(NativeCredentialFormText::submitButtonTitle(presentation)), this);
    submit_->setDefault(true);
    submit_->setAccessibleName(submit_->text());
    buttons->addWidget(submit_);
    layout->addLayout(buttons);
    connect(submit_, &QPushButton::clicked, this, [this] {
        if (!validationMessage(fields())) {
            emit submitted();
        }
    });
    revalidate();
}

QLineEdit* NativeCredentialForm::addLine(const QString& label, bool secret, const QString& help) {
    auto* edit = new QLineEdit(this);
    edit->setObjectName(label);
    edit->setAccessibleName(label);
    if (secret) {
        edit->setEchoMode(QLineEdit::Password);
    }
    if (!help.isEmpty()) {
        edit->setToolTip(help);
        edit->setPlaceholderText(help);
    }
    connect(edit, &QLineEdit::textChanged, this, &NativeCredentialForm::revalidate);
    connect(edit, &QLineEdit::returnPressed, this, [this] { submit_->click(); });
    form_->addRow(label, edit);
    return edit;
}

void NativeCredentialForm::addKeyFileChooser(const QString& buttonText, const QString& filter) {
    auto* row = new QWidget(this);
    auto* rowLayout = new QHBoxLayout(row);
    rowLayout->setContentsMargins(0, 0, 0, 0);
    auto* choose = new QPushButton(buttonText, row);
    choose->setAccessibleName(buttonText);
    keyFileLabel_ = new QLabel(tr("No file chosen"), row);
    keyFileLabel_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto* clear = new QPushButton(tr("Clear"), row);
    clear->setAccessibleName(tr("Clear key file"));
    rowLayout->addWidget(choose);
    rowLayout->addWidget(keyFileLabel_, 1);
    rowLayout->addWidget(clear);
    form_->addRow(row);
    connect(choose, &QPushButton::clicked, this, [this, buttonText, filter] {
        const QString path = QFileDialog::getOpenFileName(this, buttonText, QString(), filter);
        if (!path.isEmpty()) {
            setKeyFilePath(path);
        }
    });
    connect(clear, &QPushButton::clicked, this, [this] { setKeyFilePath({}); });
}

void NativeCredentialForm::setKeyFilePath(const QString& path) {
    keyFilePath_ = path;
    if (keyFileLabel_ != nullptr) {
        keyFileLabel_->setText(path.isEmpty() ? tr("No file chosen") : path);
    }
    revalidate();
}

QLineEdit* NativeCredentialForm::field(const QString& label) const {
    return findChild<QLineEdit*>(label);
}

std::string NativeCredentialForm::text(const QString& label) const {
    const QLineEdit* edit = field(label);
    return edit == nullptr ? std::string() : edit->text().toStdString();
}

NativeCredentialForm::Fields NativeCredentialForm::fields() const {
    using Form = NativeCredentialOnboardingKind::Form;
    switch (kind_.form()) {
    case Form::s3:
        if (kind_.s3Variant() == S3CatalogVariant::cloudflareR2) {
            return CloudflareR2CredentialFields{.accountId = text(tr(kAccountID)),
                                                .accessKeyId = text(tr(kR2AccessKeyID)),
                                                .secretAccessKey = text(tr(kR2SecretAccessKey)),
                                                .bucket = text(tr(kBucket))};
        }
        return S3AwsCredentialFields{.region = text(tr(kRegion)),
                                     .accessKeyId = text(tr(kAccessKeyID)),
                                     .secretAccessKey = text(tr(kSecretAccessKey)),
                                     .bucket = text(tr(kBucket))};
    case Form::gcs:
        return GCSCredentialFields{.bucket = text(tr(kBucket)),
                                   .projectNumber = text(tr(kProjectNumber)),
                                   .keyFilePath = keyFilePath_.toStdString(),
                                   .serviceAccountJSON =
                                       pastedJSON_ ? pastedJSON_->toPlainText().toStdString() : ""};
    case Form::azureBlob:
        return AzureBlobCredentialFields{.account = text(tr(kStorageAccount)),
                                         .storageKey = text(tr(kStorageKey)),
                                         .container = text(tr(kContainer))};
    case Form::ftp:
        return FTPCredentialFields{.host = text(tr(kHost)),
                                   .port = text(tr(kFTPPort)),
                                   .user = text(tr(kUser)),
                                   .password = text(tr(kFTPPassword))};
    case Form::sftp:
        return SFTPCredentialFields{.host = text(tr(kHost)),
                                    .port = text(tr(kSFTPPort)),
                                    .user = text(tr(kUser)),
                                    .password = text(tr(kSFTPPassword)),
                                    .keyFilePath = keyFilePath_.toStdString()};
    }
    return S3AwsCredentialFields{};
}

std::optional<std::string> NativeCredentialForm::validationMessage(const Fields& fields) {
    struct Check {
        std::optional<std::string> operator()(const S3AwsCredentialFields& f) const {
            if (trimmed(f.region).empty()) {
                return "Enter an AWS region (e.g. us-east-1).";
            }
            if (trimmed(f.accessKeyId).empty() || trimmed(f.secretAccessKey).empty()) {
                return "Enter access key ID and secret access key.";
            }
            if (trimmed(f.bucket).empty()) {
                return "Enter a bucket name.";
            }
            return std::nullopt;
        }
        std::optional<std::string> operator()(const CloudflareR2CredentialFields& f) const {
            if (trimmed(f.accountId).empty()) {
                return "Enter your Cloudflare account ID.";
            }
            if (trimmed(f.accessKeyId).empty() || trimmed(f.secretAccessKey).empty()) {
                return "Enter the R2 access key ID and secret.";
            }
            if (trimmed(f.bucket).empty()) {
                return "Enter a bucket name.";
            }
            return std::nullopt;
        }
        std::optional<std::string> operator()(const GCSCredentialFields& f) const {
            const std::string keyFile = trimmed(f.keyFilePath);
            const std::string json = trimmed(f.serviceAccountJSON);
            if (trimmed(f.bucket).empty()) {
                return "Enter a bucket name.";
            }
            if (!keyFile.empty() && !json.empty()) {
                return "Use either a key file or pasted JSON—not both.";
            }
            if (keyFile.empty() && json.empty()) {
                return "Choose a service account JSON key file, or paste the JSON.";
            }
            if (!keyFile.empty() && !fileExists(keyFile)) {
                return "Key file not found at path.";
            }
            return std::nullopt;
        }
        std::optional<std::string> operator()(const AzureBlobCredentialFields& f) const {
            if (trimmed(f.account).empty() || trimmed(f.storageKey).empty()) {
                return "Enter storage account name and key.";
            }
            if (trimmed(f.container).empty()) {
                return "Enter a container name.";
            }
            return std::nullopt;
        }
        std::optional<std::string> operator()(const FTPCredentialFields& f) const {
            if (trimmed(f.host).empty() || trimmed(f.user).empty()) {
                return "Enter host and username.";
            }
            return std::nullopt;
        }
        std::optional<std::string> operator()(const SFTPCredentialFields& f) const {
            const std::string keyFile = trimmed(f.keyFilePath);
            if (trimmed(f.host).empty() || trimmed(f.user).empty()) {
                return "Enter host and username.";
            }
            if (trimmed(f.password).empty() && keyFile.empty()) {
                return "Enter a password or choose an SSH private key file.";
            }
            if (!keyFile.empty() && !fileExists(keyFile)) {
                return "SSH key file not found.";
            }
            return std::nullopt;
        }
    };
    return std::visit(Check{}, fields);
}

void NativeCredentialForm::showSubmitError(const QString& message) {
    showingSubmitError_ = !message.isEmpty();
    message_->setText(message);
    useErrorColour(*message_);
}

void NativeCredentialForm::setBusy(bool busy) {
    busy_ = busy;
    revalidate();
}

void NativeCredentialForm::revalidate() {
    const auto problem = validationMessage(fields());
    submit_->setEnabled(!busy_ && !problem);
    if (showingSubmitError_ && sender() != nullptr) {
        showingSubmitError_ = false;
    }
    if (showingSubmitError_) {
        return;
    }
    message_->setText(problem ? qtText(*problem) : QString());
    message_->setPalette(QPalette());
    message_->setForegroundRole(QPalette::PlaceholderText);
}

} // namespace brimvale
