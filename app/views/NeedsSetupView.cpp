#include "app/views/NeedsSetupView.h"

#include "app/onboarding/NativeCredentialForm.h"
#include "app/support/Symbols.h"
#include "app/support/WidgetText.h"

#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace brimvale {

NeedsSetupView::NeedsSetupView(QWidget* parent)
    : StatusPage(parent) {
    progress_ = new QLabel(this);
    progress_->setWordWrap(true);
    progress_->setAlignment(Qt::AlignHCenter);
    progress_->setMaximumWidth(440);
    body()->addWidget(progress_, 0, Qt::AlignHCenter);

    signIn_ = new QPushButton(Symbols::icon("person.badge.key"), tr("Sign in in browser…"), this);
    signIn_->setAccessibleName(tr("Sign in in browser…"));
    signIn_->setDefault(true);
    connect(signIn_, &QPushButton::clicked, this, &NeedsSetupView::signInRequested);
    body()->addWidget(signIn_, 0, Qt::AlignHCenter);

    browserButtons_ = new QWidget(this);
    auto* buttons = new QVBoxLayout(browserButtons_);
    buttons->setContentsMargins(0, 0, 0, 0);
    openSignInAgain_ = new QPushButton(tr("Open sign-in page again"), browserButtons_);
    openWebConfig_ = new QPushButton(Symbols::icon("globe"), tr("Open full configuration website…"),
                                     browserButtons_);
    done_ = new QPushButton(tr("Done — start scanning"), browserButtons_);
    for (QPushButton* button : {openSignInAgain_, openWebConfig_, done_}) {
        button->setAccessibleName(button->text());
        buttons->addWidget(button, 0, Qt::AlignHCenter);
    }
    body()->addWidget(browserButtons_, 0, Qt::AlignHCenter);
    cancelSignIn_ = new QPushButton(tr("Cancel sign-in"), this);
    cancelSignIn_->setAccessibleName(cancelSignIn_->text());
    cancelSignIn_->setFlat(true);
    body()->addWidget(cancelSignIn_, 0, Qt::AlignHCenter);
    connect(openSignInAgain_, &QPushButton::clicked, this,
            [this] { emit openSignInPageRequested(signInURL_); });
    connect(openWebConfig_, &QPushButton::clicked, this,
            &NeedsSetupView::openFullWebConfigRequested);
    connect(done_, &QPushButton::clicked, this, &NeedsSetupView::finishSetupRequested);
    connect(cancelSignIn_, &QPushButton::clicked, this, &NeedsSetupView::cancelSignInRequested);

    advancedWebConfig_ = new QPushButton(tr("Open full configuration website (advanced)…"), this);
    advancedWebConfig_->setAccessibleName(advancedWebConfig_->text());
    advancedWebConfig_->setFlat(true);
    connect(advancedWebConfig_, &QPushButton::clicked, this,
            &NeedsSetupView::openFullWebConfigRequested);
    body()->addWidget(advancedWebConfig_, 0, Qt::AlignHCenter);
    setSignInState(false, {});
}

QString NeedsSetupView::hintFor(const NativeCredentialOnboardingKind& kind) {
    using Form = NativeCredentialOnboardingKind::Form;
    switch (kind.form()) {
    case Form::s3:
        if (kind.s3Variant() == S3CatalogVariant::cloudflareR2) {
            return tr("Cloudflare R2 uses S3-compatible API credentials. Enter your account ID, "
                      "an R2 API token (Access Key ID and Secret), and bucket—the form below is "
                      "tailored for R2, not generic S3.");
        }
        return tr("Enter your AWS region, access keys, and the bucket to scan. Keys are stored "
                  "in your local rclone config.");
    case Form::gcs:
        return tr("Google Cloud Storage uses a service account key and a bucket name—not a "
                  "browser sign-in. Enter the JSON key (file or paste), optional project number, "
                  "then save.");
    case Form::azureBlob:
        return tr("Enter your storage account name, account key, and container to use as the "
                  "scan root.");
    case Form::ftp:
        return tr("Enter the FTP host, credentials, and optional port. Anonymous login is "
                  "supported if the server allows it (leave password empty when appropriate).");
    case Form::sftp:
        return tr("Enter host, user, and either a password or an SSH private key file.");
    }
    return {};
}

void NeedsSetupView::showAccount(const std::shared_ptr<CloudStorageProvider>& provider,
                                 std::optional<NativeCredentialOnboardingKind> kind) {
    const bool sameForm =
        provider == provider_ && form_ != nullptr && kind && form_->kind() == *kind;
    provider_ = provider;
    const QString name = provider ? qtText(provider->displayName()) : QString();
    if (!sameForm && form_ != nullptr) {
        delete form_;
        form_ = nullptr;
    }
    if (kind) {
        setSymbol("cloud.slash.fill");
        setTitle(tr("%1 isn't connected").arg(name));
        setText(hintFor(*kind));
        if (form_ == nullptr) {
            form_ =
                new NativeCredentialForm(*kind, NativeCredentialFormPresentation::needsSetup, this);
            form_->setMinimumWidth(420);
            connect(form_, &NativeCredentialForm::submitted, this, &NeedsSetupView::formSubmitted);
            body()->insertWidget(0, form_, 0, Qt::AlignHCenter);
        }
        signIn_->hide();
        progress_->hide();
        browserButtons_->hide();
        cancelSignIn_->hide();
        advancedWebConfig_->show();
    } else {
        setSymbol("cloud.slash.fill");
        setTitle(tr("%1 isn't connected").arg(name));
        setText(tr("Connect this account through your browser. Click the button below to start; "
                   "choosing other accounts in the sidebar does not open sign-in."));
        signIn_->show();
        advancedWebConfig_->hide();
        setSignInState(false, signInURL_);
    }
    setAccessibleName(titleLabel()->text());
}

void NeedsSetupView::setSignInState(bool running, const QUrl& signInURL) {
    signInURL_ = signInURL;
    if (form_ != nullptr) {
        return;
    }
    signIn_->setEnabled(!running);
    cancelSignIn_->setVisible(running);
    progress_->setVisible(running);
    browserButtons_->setVisible(running && !signInURL.isEmpty());
    if (running) {
        progress_->setText(signInURL.isEmpty()
                               ? tr("Starting sign-in… your browser should open when the link is "
                                    "ready.")
                               : tr("Use the in-app panel below, or close it and continue from "
                                    "the browser."));
    }
}

} // namespace brimvale
