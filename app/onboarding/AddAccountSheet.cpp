#include "app/onboarding/AddAccountSheet.h"

#include "app/bridge/ViewModelSignals.h"
#include "app/onboarding/NativeCredentialForm.h"
#include "app/support/ExternalOpen.h"
#include "app/support/Symbols.h"
#include "app/support/WidgetText.h"
#include "core/coordinator/ScannerViewModel.h"
#include "core/onboarding/CloudServiceCatalog.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>

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
    setupLayout->addWidget(guided_);
    status_ = new QLabel(setupPage_);
    status_->setWordWrap(true);
    setupLayout->addWidget(status_);
    error_ = new QLabel(setupPage_);
    error_->setWordWrap(true);
    QPalette errorPalette = error_->palette();
    errorPalette.setColor(QPalette::WindowText, QColor(0xD0, 0x3A, 0x2F));
    error_->setPalette(errorPalette);
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
    setupButtons->addWidget(back);
    setupButtons->addWidget(advanced_);
    setupButtons->addStretch(1);
    setupButtons->addWidget(setupCancel);
    setupLayout->addLayout(setupButtons);
    pages_->addWidget(setupPage_);

    const auto& catalog = CloudServiceCatalog::majorServices();
    for (std::size_t index = 0; index < catalog.size(); ++index) {
        const auto& definition = catalog[index];
        auto* item =
            new QListWidgetItem(Symbols::icon(Symbols::serviceSymbol(definition.rcloneType)),
                                qtText(definition.displayName), services_);
        item->setData(kServiceIndexRole, static_cast<int>(index));
    }
    services_->setCurrentRow(0);

    connect(search_, &QLineEdit::textChanged, this, &AddAccountSheet::filterServices);
    connect(search_, &QLineEdit::returnPressed, next, &QPushButton::click);
    connect(services_, &QListWidget::itemActivated, next, &QPushButton::click);
    connect(next, &QPushButton::clicked, this, [this] {
        const QListWidgetItem* item = services_->currentItem();
        if (item == nullptr || item->isHidden()) {
            return;
        }
        const auto index = static_cast<std::size_t>(item->data(kServiceIndexRole).toInt());
        chooseService(CloudServiceCatalog::majorServices().at(index));
    });
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(setupCancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(back, &QPushButton::clicked, this, &AddAccountSheet::showServices);
    connect(signIn_, &QPushButton::clicked, this, &AddAccountSheet::startSignIn);
    connect(&bridge, &ViewModelSignals::onboardingChanged, this,
            &AddAccountSheet::refreshFromViewModel);
    search_->setFocus();
}

AddAccountSheet::~AddAccountSheet() = default;

void AddAccountSheet::filterServices(const QString& text) {
    const QString needle = text.trimmed();
    QListWidgetItem* firstShown = nullptr;
    for (int row = 0; row < services_->count(); ++row) {
        QListWidgetItem* item = services_->item(row);
        const bool shown = needle.isEmpty() || item->text().contains(needle, Qt::CaseInsensitive);
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

void AddAccountSheet::chooseService(const CloudServiceDefinition& definition) {
    chosen_ = definition;
    error_->clear();
    status_->clear();
    setupTitle_->setText(tr("Add %1").arg(qtText(definition.displayName)));
    RemoteNameSet taken(viewModel_.configuredRemoteNames().begin(),
                        viewModel_.configuredRemoteNames().end());
    remoteName_->setText(qtText(CloudServiceCatalog::suggestedUnusedRemoteName(definition, taken)));
    delete form_;
    form_ = nullptr;
    const auto kind = CloudServiceCatalog::nativeOnboardingKind(definition);
    if (kind) {
        form_ = new NativeCredentialForm(*kind, NativeCredentialFormPresentation::addAccountSheet,
                                         formHolder_);
        formHolder_->layout()->addWidget(form_);
        connect(form_, &NativeCredentialForm::submitted, this, &AddAccountSheet::submitForm);
    }
    formHolder_->setVisible(kind.has_value());
    guided_->setVisible(!kind.has_value());
    pages_->setCurrentIndex(1);
    remoteName_->setFocus();
}

void AddAccountSheet::refreshFromViewModel() {}

void AddAccountSheet::submitForm() {}

void AddAccountSheet::startSignIn() {}

void AddAccountSheet::done(int result) {
    QDialog::done(result);
}

} // namespace brimvale
