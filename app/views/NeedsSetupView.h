#pragma once

#include "app/views/StatusPage.h"
#include "core/model/CloudStorageProvider.h"
#include "core/onboarding/NativeCredentialOnboardingKind.h"

#include <QUrl>

#include <memory>
#include <optional>

class QPushButton;
class QLabel;

namespace brimvale {

class NativeCredentialForm;

// An account without a usable configuration. Services with a form of our own (object storage,
// FTP, SFTP) show it with its hint; the others are connected through the browser: "Sign in in
// browser…", then, while the sign-in runs, the lines and buttons that follow its progress.
class NeedsSetupView final : public StatusPage {
    Q_OBJECT
public:
    explicit NeedsSetupView(QWidget* parent = nullptr);

    // The account to set up, and which form it uses (none: browser sign-in).
    void showAccount(const std::shared_ptr<CloudStorageProvider>& provider,
                     std::optional<NativeCredentialOnboardingKind> kind);
    // The sign-in flow's state: running, and its sign-in page once known.
    void setSignInState(bool running, const QUrl& signInURL);

    // The hint that stands above each form.
    static QString hintFor(const NativeCredentialOnboardingKind& kind);

    const std::shared_ptr<CloudStorageProvider>& provider() const { return provider_; }
    QPushButton* signInButton() const { return signIn_; }
    QPushButton* openSignInAgainButton() const { return openSignInAgain_; }
    QPushButton* openWebConfigButton() const { return openWebConfig_; }
    QPushButton* doneButton() const { return done_; }
    QPushButton* advancedWebConfigButton() const { return advancedWebConfig_; }
    QPushButton* cancelSignInButton() const { return cancelSignIn_; }
    QLabel* progressLabel() const { return progress_; }
    NativeCredentialForm* form() const { return form_; }

signals:
    void signInRequested();
    void openSignInPageRequested(const QUrl& url);
    void openFullWebConfigRequested();
    void finishSetupRequested();
    void cancelSignInRequested();
    // The form was submitted (its fields are the form's).
    void formSubmitted();

private:
    std::shared_ptr<CloudStorageProvider> provider_;
    QLabel* progress_;
    QPushButton* signIn_;
    QPushButton* openSignInAgain_;
    QPushButton* openWebConfig_;
    QPushButton* done_;
    QPushButton* advancedWebConfig_;
    QPushButton* cancelSignIn_;
    QWidget* browserButtons_;
    NativeCredentialForm* form_ = nullptr;
    QUrl signInURL_;
};

} // namespace brimvale
