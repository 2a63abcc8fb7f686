#include "app/views/SkippedFoldersBadge.h"

#include "app/support/BadgeBackground.h"
#include "app/support/BadgeCloseButton.h"
#include "app/support/SymbolLabel.h"
#include "app/support/Symbols.h"
#include "app/support/WidgetText.h"
#include "core/model/NameOrder.h"

#include <QApplication>
#include <QClipboard>
#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLocale>
#include <QMouseEvent>
#include <QPushButton>
#include <QToolButton>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <algorithm>
#include <string_view>

namespace brimvale {
namespace {

const QColor kWarning(0xF0, 0x8C, 0x00);

// The next path component of `path` (leading slashes skipped), removed from it.
std::string_view takeComponent(std::string_view& path) {
    while (path.starts_with('/')) {
        path.remove_prefix(1);
    }
    const auto slash = path.find('/');
    const std::string_view component = path.substr(0, slash);
    path.remove_prefix(slash == std::string_view::npos ? path.size() : slash);
    return component;
}

// Negative when `a` comes first: component by component, a folder before what it holds.
int comparePaths(std::string_view a, std::string_view b) {
    while (true) {
        const std::string_view left = takeComponent(a);
        const std::string_view right = takeComponent(b);
        if (left.empty() || right.empty()) {
            if (left.empty() != right.empty()) {
                return left.empty() ? -1 : 1;
            }
            return 0;
        }
        if (const int order = compareNamesForFileManager(left, right); order != 0) {
            return order;
        }
    }
}

} // namespace

SkippedFoldersBadge::SkippedFoldersBadge(QWidget* parent)
    : QFrame(parent) {
    setObjectName(QStringLiteral("skippedFoldersBadge"));
    setCursor(Qt::PointingHandCursor);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(10, 4, 4, 4);
    layout->setSpacing(6);
    auto* symbol = new SymbolLabel(14, this);
    symbol->setSymbol(Symbols::icon("exclamationmark.triangle.fill", kWarning));
    layout->addWidget(symbol);
    text_ = new QLabel(this);
    layout->addWidget(text_);
    show_ = new QPushButton(tr("Show…"), this);
    show_->setFlat(true);
    show_->setAccessibleName(tr("Show the folders that could not be read"));
    connect(show_, &QPushButton::clicked, this, &SkippedFoldersBadge::listRequested);
    layout->addWidget(show_);
    close_ = makeBadgeCloseButton(this, tr("Hide unreadable-folders badge"));
    close_->setCursor(Qt::ArrowCursor);
    connect(close_, &QToolButton::clicked, this, &SkippedFoldersBadge::dismissRequested);
    layout->addWidget(close_);
    setCount(0);
}

QString SkippedFoldersBadge::countText(std::size_t count) {
    const QString number = QLocale().toString(static_cast<qulonglong>(count));
    return count == 1 ? tr("%1 folder could not be read").arg(number)
                      : tr("%1 folders could not be read").arg(number);
}

void SkippedFoldersBadge::setCount(std::size_t count) {
    text_->setText(countText(count));
    setAccessibleName(text_->text());
    setToolTip(tr("Their contents are not in the sizes. Click to see which folders and why."));
    adjustSize();
}

void SkippedFoldersBadge::paintEvent(QPaintEvent* /*event*/) {
    paintBadgeBackground(*this);
}

void SkippedFoldersBadge::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton && rect().contains(event->position().toPoint())) {
        emit listRequested();
        return;
    }
    QFrame::mouseReleaseEvent(event);
}

SkippedFoldersDialog::SkippedFoldersDialog(std::vector<SkippedFolder> folders, bool local,
                                           QWidget* parent)
    : QDialog(parent)
    , folders_(sortedByPath(std::move(folders))) {
    setWindowTitle(tr("Folders That Could Not Be Read"));
    setObjectName(QStringLiteral("skippedFoldersDialog"));
    auto* layout = new QVBoxLayout(this);
    auto* heading = new QLabel(SkippedFoldersBadge::countText(folders_.size()), this);
    QFont headingFont = heading->font();
    headingFont.setWeight(QFont::DemiBold);
    heading->setFont(headingFont);
    layout->addWidget(heading);
    auto* explanation =
        new QLabel(local ? tr("These folders were counted as empty. Everything else was scanned.")
                         : tr("What these folders hold is not in the sizes. Everything else was "
                              "listed; rescan a folder once it can be read."),
                   this);
    explanation->setWordWrap(true);
    layout->addWidget(explanation);

    list_ = new QTreeWidget(this);
    list_->setColumnCount(2);
    list_->setHeaderLabels({tr("Folder"), tr("Reason")});
    list_->setRootIsDecorated(false);
    list_->setUniformRowHeights(true);
    list_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    list_->setAlternatingRowColors(true);
    list_->setAccessibleName(tr("Folders that could not be read"));
    list_->setTextElideMode(Qt::ElideMiddle);
    QList<QTreeWidgetItem*> items;
    items.reserve(static_cast<qsizetype>(folders_.size()));
    for (const auto& folder : folders_) {
        auto* item = new QTreeWidgetItem({qtText(folder.location), reasonText(folder)});
        items.push_back(item);
    }
    list_->addTopLevelItems(items);
    list_->installEventFilter(this);
    list_->header()->setStretchLastSection(true);
    list_->header()->setSectionResizeMode(0, QHeaderView::Interactive);
    list_->resizeColumnToContents(0);
    list_->setColumnWidth(0, std::clamp(list_->columnWidth(0) + 16, 160, 420));
    layout->addWidget(list_, 1);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    copy_ = buttons->addButton(tr("Copy All"), QDialogButtonBox::ActionRole);
    copy_->setToolTip(tr("Copy every folder and its reason, one per line"));
    connect(copy_, &QPushButton::clicked, this,
            [this] { QApplication::clipboard()->setText(copyText(folders_)); });
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);
    resize(640, 380);
}

std::vector<SkippedFolder> SkippedFoldersDialog::sortedByPath(std::vector<SkippedFolder> folders) {
    std::stable_sort(folders.begin(), folders.end(),
                     [](const SkippedFolder& a, const SkippedFolder& b) {
                         if (const int order = comparePaths(a.location, b.location); order != 0) {
                             return order < 0;
                         }
                         return a.location < b.location;
                     });
    return folders;
}

QString SkippedFoldersDialog::reasonText(const SkippedFolder& folder) {
    if (!folder.reason.empty()) {
        return qtText(folder.reason);
    }
    return folder.timedOut ? tr("no answer in time") : tr("could not be read");
}

QString SkippedFoldersDialog::copyText(const std::vector<SkippedFolder>& folders) {
    QString text;
    for (const auto& folder : folders) {
        text += qtText(folder.location) + QStringLiteral(": ") + reasonText(folder) + '\n';
    }
    return text;
}

void SkippedFoldersDialog::copySelection() const {
    std::vector<SkippedFolder> selected;
    for (int row = 0; row < list_->topLevelItemCount(); ++row) {
        if (list_->topLevelItem(row)->isSelected()) {
            selected.push_back(folders_[static_cast<std::size_t>(row)]);
        }
    }
    QApplication::clipboard()->setText(copyText(selected.empty() ? folders_ : selected));
}

bool SkippedFoldersDialog::eventFilter(QObject* watched, QEvent* event) {
    // The list would copy only its current cell.
    if (watched == list_ && event->type() == QEvent::KeyPress &&
        static_cast<QKeyEvent*>(event)->matches(QKeySequence::Copy)) {
        copySelection();
        return true;
    }
    return QDialog::eventFilter(watched, event);
}

} // namespace brimvale
