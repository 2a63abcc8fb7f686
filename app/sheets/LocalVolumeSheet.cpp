#include "app/sheets/LocalVolumeSheet.h"

#include "app/support/SymbolLabel.h"
#include "app/support/Symbols.h"
#include "app/support/WidgetText.h"

#include <QApplication>
#include <QDialogButtonBox>
#include <QDir>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

#include <thread>

namespace brimvale {
namespace {

constexpr int kChoiceIDRole = Qt::UserRole + 1;

QWidget* choiceRow(const LocalVolumePickerOptions::Choice& choice, QWidget* parent) {
    auto* row = new QWidget(parent);
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(10, 8, 10, 8);
    layout->setSpacing(12);
    const bool wholeDisk = choice.scanPath == "/";
    auto* icon = new SymbolLabel(28, row);
    icon->setSymbol(Symbols::icon(wholeDisk ? "internaldrive.fill" : "externaldrive",
                                  QPalette::Highlight));
    icon->setObjectName(QStringLiteral("choiceIcon"));
    icon->setProperty("symbol", wholeDisk ? "internaldrive.fill" : "externaldrive");
    layout->addWidget(icon);
    auto* texts = new QVBoxLayout();
    texts->setSpacing(3);
    auto* titleLine = new QHBoxLayout();
    auto* title = new QLabel(qtText(choice.title), row);
    QFont titleFont = title->font();
    titleFont.setWeight(QFont::DemiBold);
    title->setFont(titleFont);
    titleLine->addWidget(title);
    auto* path = new QLabel(qtText(choice.pathLine), row);
    path->setObjectName(QStringLiteral("secondary"));
    path->setForegroundRole(QPalette::PlaceholderText);
    titleLine->addWidget(path, 1);
    texts->addLayout(titleLine);
    if (choice.totalBytes && *choice.totalBytes > 0) {
        auto* bar = new QProgressBar(row);
        bar->setRange(0, 1000);
        bar->setTextVisible(false);
        bar->setFixedHeight(6);
        const std::int64_t total = *choice.totalBytes;
        const std::int64_t free = choice.freeBytes.value_or(0);
        const double used =
            static_cast<double>(total - std::min(free, total)) / static_cast<double>(total);
        bar->setValue(choice.freeBytes ? static_cast<int>(used * 1000.0) : 0);
        bar->setAccessibleName(qtText(choice.capacitySummary().value_or("")));
        texts->addWidget(bar);
    }
    if (const auto summary = choice.capacitySummary()) {
        auto* capacity = new QLabel(qtText(*summary), row);
        capacity->setObjectName(QStringLiteral("secondary"));
        capacity->setForegroundRole(QPalette::PlaceholderText);
        texts->addWidget(capacity);
    }
    layout->addLayout(texts, 1);
    for (QLabel* label : row->findChildren<QLabel*>()) {
        label->setAttribute(Qt::WA_TransparentForMouseEvents);
    }
    return row;
}

} // namespace

LocalVolumeSheet::LocalVolumeSheet(Options options, QWidget* parent)
    : QDialog(parent)
    , options_(std::move(options))
    , alive_(std::make_shared<bool>(true)) {
    setWindowTitle(tr("Choose what to scan"));
    setWindowModality(Qt::WindowModal);
    setMinimumSize(520, 420);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 18, 20, 16);
    layout->setSpacing(12);
    auto* title = new QLabel(options_.accountName.isEmpty()
                                 ? tr("Choose a disk or folder to scan")
                                 : tr("Choose a disk or folder for %1").arg(options_.accountName),
                             this);
    QFont titleFont = title->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() + 2.0);
    titleFont.setWeight(QFont::DemiBold);
    title->setFont(titleFont);
    layout->addWidget(title);
    status_ = new QLabel(tr("Reading the disks of this computer…"), this);
    layout->addWidget(status_);
    list_ = new QListWidget(this);
    list_->setAccessibleName(tr("Disks"));
    list_->setSelectionMode(QAbstractItemView::SingleSelection);
    list_->setUniformItemSizes(false);
    list_->setSpacing(2);
    layout->addWidget(list_, 1);

    auto* buttons = new QHBoxLayout();
    chooseFolder_ = new QPushButton(Symbols::icon("folder.badge.plus"), tr("Choose folder…"), this);
    chooseFolder_->setAccessibleName(tr("Choose folder…"));
    buttons->addWidget(chooseFolder_);
    buttons->addStretch(1);
    auto* cancel = new QPushButton(tr("Cancel"), this);
    cancel->setAccessibleName(tr("Cancel"));
    scan_ = new QPushButton(tr("Scan"), this);
    scan_->setAccessibleName(tr("Scan"));
    scan_->setDefault(true);
    scan_->setEnabled(false);
    buttons->addWidget(cancel);
    buttons->addWidget(scan_);
    layout->addLayout(buttons);

    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(scan_, &QPushButton::clicked, this, [this] {
        const QListWidgetItem* item = list_->currentItem();
        if (item == nullptr) {
            return;
        }
        const std::string id = item->data(kChoiceIDRole).toString().toStdString();
        for (const auto& choice : choices_) {
            if (choice.id == id) {
                finish(choice.scanPath);
                return;
            }
        }
    });
    connect(list_, &QListWidget::currentItemChanged, this, [this](QListWidgetItem* current) {
        scan_->setEnabled(current != nullptr);
        // The row on the selection's colour reads in the selection's text colour.
        for (int index = 0; index < list_->count(); ++index) {
            QWidget* row = list_->itemWidget(list_->item(index));
            if (row == nullptr) {
                continue;
            }
            const bool selected = list_->item(index) == current;
            for (QLabel* label : row->findChildren<QLabel*>()) {
                label->setForegroundRole(selected
                                             ? QPalette::HighlightedText
                                             : (label->objectName() == QStringLiteral("secondary")
                                                    ? QPalette::PlaceholderText
                                                    : QPalette::WindowText));
            }
            if (auto* icon = row->findChild<SymbolLabel*>(QStringLiteral("choiceIcon"))) {
                icon->setSymbol(
                    Symbols::icon(icon->property("symbol").toString().toStdString(),
                                  selected ? QPalette::HighlightedText : QPalette::Highlight));
            }
        }
    });
    connect(list_, &QListWidget::itemActivated, scan_, &QPushButton::click);
    connect(chooseFolder_, &QPushButton::clicked, this, &LocalVolumeSheet::chooseFolder);

    auto load = options_.loadChoices ? options_.loadChoices : [] {
        return LocalVolumePickerOptions::linuxChoices();
    };
    // statvfs of a dead network mount can block for long: never on the GUI thread. The result
    // comes back as a queued call to the application object, checked against the sheet's life.
    std::thread([load, alive = std::weak_ptr<bool>(alive_), sheet = QPointer(this)] {
        Choices choices = load();
        QMetaObject::invokeMethod(
            qApp,
            [alive, sheet, choices = std::move(choices)]() mutable {
                if (alive.lock() && sheet) {
                    sheet->showChoices(std::move(choices));
                }
            },
            Qt::QueuedConnection);
    }).detach();
}

LocalVolumeSheet::~LocalVolumeSheet() {
    alive_.reset();
}

void LocalVolumeSheet::showChoices(Choices choices) {
    choices_ = std::move(choices);
    loaded_ = true;
    list_->clear();
    status_->setText(choices_.empty() ? tr("No disks found. Choose a folder instead.")
                                      : tr("Brimvale lists every file and folder of what you "
                                           "choose and adds up their sizes."));
    const std::optional<std::string> savedID =
        options_.savedPath
            ? LocalVolumePickerOptions::choiceIDMatchingSavedPath(*options_.savedPath, choices_)
            : std::nullopt;
    for (const auto& choice : choices_) {
        auto* item = new QListWidgetItem(list_);
        item->setData(kChoiceIDRole, qtText(choice.id));
        item->setData(Qt::AccessibleTextRole, qtText(choice.title + " " + choice.pathLine + " " +
                                                     choice.capacitySummary().value_or("")));
        QWidget* row = choiceRow(choice, list_);
        item->setSizeHint(row->sizeHint());
        list_->setItemWidget(item, row);
        if (savedID && *savedID == choice.id) {
            list_->setCurrentItem(item);
        }
    }
    if (list_->currentItem() == nullptr && list_->count() > 0) {
        list_->setCurrentRow(0);
    }
    list_->setFocus();
}

void LocalVolumeSheet::chooseFolder() {
    std::optional<std::string> folder;
    if (options_.chooseFolder) {
        folder = options_.chooseFolder(this);
    } else {
        const QString start = options_.savedPath ? qtText(*options_.savedPath) : QDir::homePath();
        const QString chosen = QFileDialog::getExistingDirectory(
            this, tr("Choose a folder to scan"), start, QFileDialog::ShowDirsOnly);
        if (!chosen.isEmpty()) {
            folder = chosen.toStdString();
        }
    }
    if (folder) {
        finish(LocalVolumePickerOptions::normalizeScanPath(*folder));
    }
}

void LocalVolumeSheet::finish(std::optional<std::string> scanPath) {
    if (!reported_) {
        reported_ = true;
        if (scanPath) {
            emit chosen(*scanPath);
        } else {
            emit cancelled();
        }
    }
    QDialog::done(scanPath ? Accepted : Rejected);
}

void LocalVolumeSheet::dismissWithoutReport() {
    if (reported_) {
        return; // closing already, after its report
    }
    reported_ = true;
    QDialog::done(Rejected);
}

void LocalVolumeSheet::done(int result) {
    if (!reported_ && result != Accepted) {
        finish(std::nullopt);
        return;
    }
    QDialog::done(result);
}

} // namespace brimvale
