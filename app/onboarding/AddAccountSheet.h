#pragma once

#include "core/onboarding/CloudServiceDefinition.h"
#include "core/onboarding/RcloneBackends.h"

#include <QDialog>

#include <memory>
#include <optional>
#include <string>
#include <vector>

class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;
class QStackedWidget;

namespace brimvale {

class GeneratedBackendForm;
class NativeCredentialForm;
class ScannerViewModel;
class ViewModelSignals;

// The sheet that adds an account: the services of the catalog (every backend of the installed
// rclone, once read) as a list with icons, searched by name and description; choosing one
// proposes an unused remote name and shows its credential form (our own, or one made from
// rclone's description of the backend), or the browser sign-in for the services that use one,
// with a way to cancel; the configuration website is the advanced way. The coordinator drives it
// (isPresentingAddAccount opens and closes it, its pending service, sign-in and error fields fill
// it); every button is one of its operations. Window-modal.
class AddAccountSheet final : public QDialog {
    Q_OBJECT
public:
    AddAccountSheet(ScannerViewModel& viewModel, ViewModelSignals& bridge,
                    QWidget* parent = nullptr);
    ~AddAccountSheet() override;

    QLineEdit* searchField() const { return search_; }
    QListWidget* serviceList() const { return services_; }
    // The service being set up, once one is chosen.
    const std::optional<CloudServiceDefinition>& chosenService() const { return chosen_; }
    QLineEdit* remoteNameField() const { return remoteName_; }
    NativeCredentialForm* form() const { return form_; }
    GeneratedBackendForm* generatedForm() const { return generated_; }
    QPushButton* signInButton() const { return signIn_; }
    QLabel* statusLabel() const { return status_; }
    QLabel* errorLabel() const { return error_; }

    // Shows the services whose title, description or type contains `text` (any case).
    void filterServices(const QString& text);
    // Opens the set-up page of a service, proposing its remote name.
    void chooseService(const CloudServiceDefinition& definition);
    // Closes the sheet without telling the coordinator (it closed the flow itself).
    void dismissWithoutReport();
    QPushButton* openSignInAgainButton() const { return openSignInAgain_; }
    QPushButton* advancedButton() const { return advanced_; }
    QPushButton* finishedInBrowserButton() const { return finishedInBrowser_; }
    QPushButton* cancelSignInButton() const { return cancelSignIn_; }

protected:
    void done(int result) override;

private:
    void showServices();
    void refreshFromViewModel();
    void submitForm();
    void submitGeneratedForm();
    void fillServices();
    void startSignIn();
    void updateNameProblem();

    ScannerViewModel& viewModel_;
    QStackedWidget* pages_;
    QLineEdit* search_;
    QListWidget* services_;
    QWidget* setupPage_;
    QLabel* setupTitle_;
    QLineEdit* remoteName_;
    QWidget* formHolder_;
    NativeCredentialForm* form_ = nullptr;
    GeneratedBackendForm* generated_ = nullptr;
    std::vector<CloudServiceDefinition> rows_;
    std::shared_ptr<const RcloneBackendList> listedBackends_;
    QWidget* guided_;
    QPushButton* signIn_;
    QPushButton* openSignInAgain_;
    QPushButton* advanced_;
    QPushButton* finishedInBrowser_;
    QPushButton* cancelSignIn_;
    bool reported_ = false;
    std::string openedWebURL_;
    QLabel* status_;
    QLabel* error_;
    std::optional<CloudServiceDefinition> chosen_;
};

} // namespace brimvale
