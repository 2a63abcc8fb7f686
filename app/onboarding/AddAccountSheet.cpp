#include "app/onboarding/AddAccountSheet.h"

#include "app/bridge/ViewModelSignals.h"
#include "app/onboarding/GeneratedBackendForm.h"
#include "app/onboarding/NativeCredentialForm.h"
#include "app/support/ErrorText.h"
#include "app/support/ExternalOpen.h"
#include "app/support/Symbols.h"
#include "app/support/WidgetText.h"
#include "core/coordinator/ScannerViewModel.h"
#include "core/onboarding/CloudServiceCatalog.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPointer>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>

#include <algorithm>
#include <type_traits>
#include <variant>

namespace brimvale {
namespace {

constexpr int kServiceIndexRole = Qt::UserRole + 1;

QLabel* heading(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() + 2.0);
    font.setWeight(QFont::DemiBold);
    label->setFont(font);
    return label;
}

} // namespace

AddAccountSheet::AddAccountSheet(ScannerViewModel& viewModel, ViewModelSignals& bridge,
                                 QWidget* parent)
    : QDialog(parent)
    , viewModel_(viewModel) {
    setWindowTitle(tr("Add Account"));
    setWindowModality(Qt::WindowModal);
    setMinimumSize(560, 520);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 18, 20, 16);
    pages_ = new QStackedWidget(this);
    layout->addWidget(pages_, 1);

    // The service list.
    auto* listPage = new QWidget(pages_);
    auto* listLayout = new QVBoxLayout(listPage);
    listLayout->setContentsMargins(0, 0, 0, 0);
    listLayout->addWidget(heading(tr("Add an account"), listPage));
    search_ = new QLineEdit(listPage);
    search_->setPlaceholderText(tr("Search services"));
    search_->setAccessibleName(tr("Search services"));
    search_->setClearButtonEnabled(true);
    search_->addAction(Symbols::icon("magnifyingglass"), QLineEdit::LeadingPosition);
    listLayout->addWidget(search_);
    services_ = new QListWidget(listPage);
    services_->setAccessibleName(tr("Services"));
    services_->setIconSize(QSize(20, 20));
    listLayout->addWidget(services_, 1);
    auto* listButtons = new QHBoxLayout();
    listButtons->addStretch(1);
    auto* cancel = new QPushButton(tr("Cancel"), listPage);
    cancel->setAccessibleName(tr("Cancel"));
    auto* next = new QPushButton(tr("Continue"), listPage);
    next->setAccessibleName(tr("Continue"));
    next->setDefault(true);
    listButtons->addWidget(cancel);
    listButtons->addWidget(next);
    listLayout->addLayout(listButtons);
    pages_->addWidget(listPage);

    // The set-up page of the chosen service.
    setupPage_ = new QWidget(pages_);
    auto* setupLayout = new QVBoxLayout(setupPage_);
    setupLayout->setContentsMargins(0, 0, 0, 0);
    setupLayout->setSpacing(10);
    setupTitle_ = heading(QString(), setupPage_);
    setupLayout->addWidget(setupTitle_);
    auto* nameRow = new QHBoxLayout();
    auto* nameLabel = new QLabel(tr("Account name"), setupPage_);
    remoteName_ = new QLineEdit(setupPage_);
    remoteName_->setAccessibleName(tr("Account name"));
    nameLabel->setBuddy(remoteName_);
    nameRow->addWidget(nameLabel);
    nameRow->addWidget(remoteName_, 1);
    setupLayout->addLayout(nameRow);
    formHolder_ = new QWidget(setupPage_);
    auto* formLayout = new QVBoxLayout(formHolder_);
    formLayout->setContentsMargins(0, 0, 0, 0);
    setupLayout->addWidget(formHolder_);
    guided_ = new QWidget(setupPage_);
    auto* guidedLayout = new QVBoxLayout(guided_);
    guidedLayout->setContentsMargins(0, 0, 0, 0);
    auto* guidedText = new QLabel(
        tr("Sign in through your browser. Brimvale opens the sign-in page and waits for it."),
        guided_);
    guidedText->setWordWrap(true);
    guidedLayout->addWidget(guidedText);
    signIn_ =
        new QPushButton(Symbols::icon("person.badge.key"), tr("Sign in in browser…"), guided_);
    signIn_->setAccessibleName(tr("Sign in in browser…"));
    guidedLayout->addWidget(signIn_, 0, Qt::AlignLeft);
    openSignInAgain_ = new QPushButton(tr("Open sign-in page again"), guided_);
    openSignInAgain_->setAccessibleName(tr("Open sign-in page again"));
    openSignInAgain_->hide();
    guidedLayout->addWidget(openSignInAgain_, 0, Qt::AlignLeft);
    cancelSignIn_ = new QPushButton(tr("Cancel sign-in"), guided_);
    cancelSignIn_->setAccessibleName(tr("Cancel sign-in"));
    cancelSignIn_->hide();
    guidedLayout->addWidget(cancelSignIn_, 0, Qt::AlignLeft);
    setupLayout->addWidget(guided_);
    status_ = new QLabel(setupPage_);
    status_->setWordWrap(true);
    setupLayout->addWidget(status_);
    error_ = new QLabel(setupPage_);
    error_->setWordWrap(true);
    useErrorColour(*error_);
    error_->setAccessibleName(tr("Error"));
    setupLayout->addWidget(error_);
    setupLayout->addStretch(1);
    auto* setupButtons = new QHBoxLayout();
    auto* back = new QPushButton(tr("Back"), setupPage_);
    back->setAccessibleName(tr("Back"));
    advanced_ = new QPushButton(Symbols::icon("globe"),
                                tr("Open full configuration website (advanced)…"), setupPage_);
    advanced_->setAccessibleName(advanced_->text());
    advanced_->setFlat(true);
    auto* setupCancel = new QPushButton(tr("Cancel"), setupPage_);
    setupCancel->setAccessibleName(tr("Cancel"));
    finishedInBrowser_ = new QPushButton(tr("Done — add account"), setupPage_);
    finishedInBrowser_->setAccessibleName(finishedInBrowser_->text());
    finishedInBrowser_->setToolTip(tr("The account was made on the configuration website"));
    finishedInBrowser_->hide();
    setupButtons->addWidget(back);
    setupButtons->addWidget(advanced_);
    setupButtons->addStretch(1);
    setupButtons->addWidget(finishedInBrowser_);
    setupButtons->addWidget(setupCancel);
    setupLayout->addLayout(setupButtons);
    pages_->addWidget(setupPage_);

    rows_ = CloudServiceCatalog::majorServices();
    fillServices();

    connect(search_, &QLineEdit::textChanged, this, &AddAccountSheet::filterServices);
    connect(search_, &QLineEdit::returnPressed, next, &QPushButton::click);
    connect(services_, &QListWidget::itemActivated, next, &QPushButton::click);
    connect(next, &QPushButton::clicked, this, [this] {
        const QListWidgetItem* item = services_->currentItem();
        if (item == nullptr || item->isHidden()) {
            return;
        }
        const auto index = static_cast<std::size_t>(item->data(kServiceIndexRole).toInt());
        // A copy: the rows are replaced when rclone's backends arrive.
        const CloudServiceDefinition chosen = rows_.at(index);
        chooseService(chosen);
    });
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(setupCancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(back, &QPushButton::clicked, this, &AddAccountSheet::showServices);
    connect(signIn_, &QPushButton::clicked, this, &AddAccountSheet::startSignIn);
    connect(openSignInAgain_, &QPushButton::clicked, this, [this] {
        if (const auto& url = viewModel_.addAccountSignInURL()) {
            ExternalOpen::openInDesktop(QUrl(qtText(*url)));
        }
    });
    connect(cancelSignIn_, &QPushButton::clicked, this, &QDialog::reject);
    connect(advanced_, &QPushButton::clicked, this,
            [this] { viewModel_.openAddAccountAdvancedWebUI(); });
    connect(finishedInBrowser_, &QPushButton::clicked, this,
            [this] { viewModel_.completeAddAccount(); });
    connect(remoteName_, &QLineEdit::textChanged, this, &AddAccountSheet::updateNameProblem);
    connect(&bridge, &ViewModelSignals::onboardingChanged, this,
            &AddAccountSheet::refreshFromViewModel);
    search_->setFocus();
    refreshFromViewModel();
}

AddAccountSheet::~AddAccountSheet() = default;

void AddAccountSheet::fillServices() {
    const QListWidgetItem* current = services_->currentItem();
    const int chosen = current == nullptr ? 0 : current->data(kServiceIndexRole).toInt();
    services_->clear();
    for (std::size_t index = 0; index < rows_.size(); ++index) {
        const auto& definition = rows_[index];
        auto* item =
            new QListWidgetItem(Symbols::icon(Symbols::serviceSymbol(definition.rcloneType)),
                                qtText(definition.displayName), services_);
        item->setData(kServiceIndexRole, static_cast<int>(index));
        // The title is short; the description says more.
        const QString description = qtText(definition.description);
        if (!description.isEmpty() && description.compare(item->text(), Qt::CaseInsensitive) != 0) {
            item->setToolTip(description);
        }
    }
    services_->setCurrentRow(std::min(chosen, services_->count() - 1));
    filterServices(search_->text());
}

void AddAccountSheet::filterServices(const QString& text) {
    const std::string needle = text.toStdString();
    QListWidgetItem* firstShown = nullptr;
    for (int row = 0; row < services_->count(); ++row) {
        QListWidgetItem* item = services_->item(row);
        const auto index = static_cast<std::size_t>(item->data(kServiceIndexRole).toInt());
        const bool shown = CloudServiceCatalog::matchesSearch(rows_.at(index), needle);
        item->setHidden(!shown);
        if (shown && firstShown == nullptr) {
            firstShown = item;
        }
    }
    if (services_->currentItem() == nullptr || services_->currentItem()->isHidden()) {
        services_->setCurrentItem(firstShown);
    }
}

void AddAccountSheet::showServices() {
    chosen_.reset();
    pages_->setCurrentIndex(0);
    search_->setFocus();
}

void AddAccountSheet::chooseService(const CloudServiceDefinition& chosen) {
    chosen_ = chosen;
    const CloudServiceDefinition& definition = *chosen_;
    error_->clear();
    status_->clear();
    setupTitle_->setText(tr("Add %1").arg(qtText(definition.displayName)));
    // The coordinator proposes the name and says which form the service uses.
    viewModel_.addAccountPickService(definition);
    remoteName_->setText(qtText(viewModel_.addAccountPendingRemoteName().value_or("")));
    delete form_;
    form_ = nullptr;
    delete generated_;
    generated_ = nullptr;
    const auto kind = viewModel_.addAccountPendingNativeKind();
    const RcloneBackend* backend = nullptr;
    if (const auto& backends = viewModel_.rcloneBackends();
        backends && CloudServiceCatalog::usesGeneratedForm(definition)) {
        const auto found =
            std::ranges::find(*backends, definition.rcloneType, &RcloneBackend::type);
        backend = found == backends->end() ? nullptr : &*found;
    }
    if (kind) {
        form_ = new NativeCredentialForm(*kind, NativeCredentialFormPresentation::addAccountSheet,
                                         formHolder_);
        formHolder_->layout()->addWidget(form_);
        connect(form_, &NativeCredentialForm::submitted, this, &AddAccountSheet::submitForm);
    } else if (backend != nullptr) {
        generated_ = new GeneratedBackendForm(*backend, formHolder_);
        formHolder_->layout()->addWidget(generated_);
        connect(generated_, &GeneratedBackendForm::submitted, this,
                &AddAccountSheet::submitGeneratedForm);
    }
    const bool anyForm = form_ != nullptr || generated_ != nullptr;
    formHolder_->setVisible(anyForm);
    guided_->setVisible(!anyForm);
    pages_->setCurrentIndex(1);
    remoteName_->setFocus();
    refreshFromViewModel();
}

void AddAccountSheet::updateNameProblem() {
    const auto problem = viewModel_.remoteNameProblem(remoteName_->text().trimmed().toStdString());
    const bool running = viewModel_.addAccountGuidedRunning();
    signIn_->setEnabled(!problem && !running);
    if (form_ != nullptr) {
        form_->setBusy(problem.has_value() || running);
    }
    if (generated_ != nullptr) {
        generated_->setBusy(problem.has_value() || running);
    }
    // A form shows rclone's refusal itself, under its fields.
    const bool formShowsErrors = form_ != nullptr || generated_ != nullptr;
    if (problem) {
        error_->setText(qtText(*problem));
    } else if (const auto& error = viewModel_.addAccountError(); error && !formShowsErrors) {
        error_->setText(qtText(*error));
    } else {
        error_->clear();
    }
    error_->setVisible(!error_->text().isEmpty());
}

void AddAccountSheet::refreshFromViewModel() {
    if (const auto& backends = viewModel_.rcloneBackends();
        backends && backends != listedBackends_) {
        listedBackends_ = backends;
        rows_ = CloudServiceCatalog::services(*backends);
        fillServices();
    }
    const bool running = viewModel_.addAccountGuidedRunning();
    const auto& signInURL = viewModel_.addAccountSignInURL();
    const auto& webURL = viewModel_.addAccountWebURL();
    const bool anyForm = form_ != nullptr || generated_ != nullptr;
    // What the sheet is waiting for, and only while it waits.
    QString status;
    if (running && signInURL) {
        status = tr("Waiting for you to finish signing in in the browser…");
    } else if (running) {
        status = anyForm ? tr("Saving…")
                         : tr("Starting sign-in… your browser should open when the link is "
                              "ready.");
    } else if (webURL) {
        status = tr("The configuration website is open in your browser. Make the account "
                    "there, then click Done.");
    }
    status_->setText(status);
    status_->setVisible(!status.isEmpty());
    openSignInAgain_->setVisible(running && signInURL.has_value());
    cancelSignIn_->setVisible(running && !anyForm);
    remoteName_->setEnabled(!running);
    if (webURL && *webURL != openedWebURL_) {
        openedWebURL_ = *webURL;
        ExternalOpen::openInDesktop(QUrl(qtText(*webURL)));
    }
    finishedInBrowser_->setVisible(webURL.has_value());
    if (const auto& error = viewModel_.addAccountError(); error && !running) {
        if (form_ != nullptr) {
            form_->showSubmitError(qtText(*error));
        } else if (generated_ != nullptr) {
            generated_->showSubmitError(qtText(*error));
        }
    }
    updateNameProblem();
}

void AddAccountSheet::submitForm() {
    if (form_ == nullptr) {
        return;
    }
    const std::string name = remoteName_->text().trimmed().toStdString();
    const auto finished = [this, name, sheet = QPointer<AddAccountSheet>(this)](bool succeeded) {
        if (succeeded && sheet) {
            viewModel_.completeNativeAddAccount(name);
        }
    };
    viewModel_.applyNativeCredentials(name, form_->fields(), finished);
}

void AddAccountSheet::submitGeneratedForm() {
    if (generated_ == nullptr) {
        return;
    }
    viewModel_.applyBackendOptions(remoteName_->text().trimmed().toStdString(),
                                   generated_->backend().type, generated_->values());
}

void AddAccountSheet::startSignIn() {
    if (!chosen_) {
        return;
    }
    viewModel_.runAddAccountGuidedFlow(remoteName_->text().trimmed().toStdString(),
                                       chosen_->rcloneType);
}

void AddAccountSheet::dismissWithoutReport() {
    if (reported_) {
        return; // closing already
    }
    reported_ = true;
    QDialog::done(Rejected);
}

void AddAccountSheet::done(int result) {
    if (!reported_) {
        reported_ = true;
        // Closing the sheet ends the flow: a half-made sign-in is removed, the helper stops.
        viewModel_.cancelAddAccount();
    }
    QDialog::done(result);
}

} // namespace brimvale
