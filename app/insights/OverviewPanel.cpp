#include "app/insights/OverviewPanel.h"

#include "app/insights/TreemapImage.h"
#include "app/support/Symbols.h"
#include "core/insights/LargestFiles.h"
#include "core/insights/SpaceByType.h"
#include "core/model/SizeFormatter.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLocale>
#include <QPainter>
#include <QPixmap>
#include <QToolButton>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace brimvale {
namespace {

constexpr int kNodeRole = Qt::UserRole + 1;

QString fromBytes(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

QString sizeText(std::int64_t bytes) {
    return QString::fromStdString(formatBytes(bytes));
}

QString countText(std::int64_t count) {
    return QLocale().toString(static_cast<qlonglong>(count));
}

QString shareText(std::int64_t part, std::int64_t whole) {
    return whole > 0 ? QLocale().toString(
                           100.0 * static_cast<double>(part) / static_cast<double>(whole), 'f', 1) +
                           QLatin1Char('%')
                     : QString();
}

// The folder path of `node` below `top` ("" when it is directly inside it).
QString folderBelow(const FileNode& node, const FileNode& top) {
    QStringList names;
    for (const FileNode* at = node.parent(); at != nullptr && at != &top; at = at->parent()) {
        names.prepend(fromBytes(at->name()));
    }
    return names.join(QLatin1Char('/'));
}

QIcon swatch(const QColor& color) {
    QPixmap pixmap(12, 12);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(color);
    painter.drawRoundedRect(QRectF(0.5, 0.5, 11, 11), 3, 3);
    return QIcon(pixmap);
}

} // namespace

OverviewPanel::OverviewPanel(QWidget* parent)
    : QFrame(parent) {
    setFrameShape(QFrame::NoFrame);
    setAutoFillBackground(true);
    setBackgroundRole(QPalette::Base);
    setFixedWidth(360);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(12, 8, 12, 8);
    layout->setSpacing(6);

    auto* header = new QHBoxLayout();
    title_ = new QLabel(this);
    QFont titleFont = title_->font();
    titleFont.setBold(true);
    title_->setFont(titleFont);
    header->addWidget(title_);
    header->addStretch(1);
    scopeChoice_ = new QComboBox(this);
    scopeChoice_->addItem(tr("Whole scan"));
    scopeChoice_->addItem(tr("Selected folder"));
    scopeChoice_->setToolTip(tr("Look at the whole scan or only the selected folder"));
    header->addWidget(scopeChoice_);
    auto* close = new QToolButton(this);
    close->setIcon(Symbols::icon("xmark.circle.fill"));
    close->setAutoRaise(true);
    close->setToolTip(tr("Close"));
    header->addWidget(close);
    layout->addLayout(header);

    summary_ = new QLabel(this);
    summary_->setForegroundRole(QPalette::PlaceholderText);
    summary_->setWordWrap(true);
    layout->addWidget(summary_);

    list_ = new QTreeWidget(this);
    list_->setRootIsDecorated(false);
    list_->setUniformRowHeights(true);
    list_->setAlternatingRowColors(true);
    list_->setFrameShape(QFrame::NoFrame);
    list_->setTextElideMode(Qt::ElideMiddle);
    list_->setSelectionMode(QAbstractItemView::SingleSelection);
    list_->header()->setStretchLastSection(false);
    layout->addWidget(list_, 1);

    refresh_.setSingleShot(true);
    connect(&refresh_, &QTimer::timeout, this, &OverviewPanel::refreshNow);
    connect(scopeChoice_, &QComboBox::currentIndexChanged, this, [this] { scheduleRefresh(0); });
    connect(close, &QToolButton::clicked, this, &OverviewPanel::closeRequested);
    connect(list_, &QTreeWidget::itemClicked, this, [this](QTreeWidgetItem* item) {
        const QVariant row = item->data(0, kNodeRole);
        if (row.isValid() && row.toULongLong() < rows_.size()) {
            emit itemPicked(rows_[row.toULongLong()]);
        }
    });
    showPage(Page::largestFiles);
}

void OverviewPanel::showEvent(QShowEvent*) {
    scheduleRefresh(0);
}

void OverviewPanel::hideEvent(QHideEvent*) {
    dropSearchIndex();
}

void OverviewPanel::dropSearchIndex() {
    // The index holds every node of its tree (removed ones too); it is made again when needed.
    index_ = NameIndex();
    indexedFolder_ = nullptr;
}

void OverviewPanel::showPage(Page page) {
    page_ = page;
    if (page != Page::search) {
        dropSearchIndex();
    }
    title_->setText(page == Page::largestFiles ? tr("Largest files")
                    : page == Page::types      ? tr("Space by type")
                                               : tr("Search"));
    scheduleRefresh(0);
}

void OverviewPanel::setTree(FileNodeRef root) {
    if (root != root_) {
        root_ = std::move(root);
        selectedFolder_ = nullptr;
        dropSearchIndex(); // it would keep the previous tree alive
    }
    indexStale_ = true;
    // A live tree changes at every refresh; the lists follow at a calmer pace.
    scheduleRefresh(refresh_.isActive() ? refresh_.remainingTime() : 250);
}

void OverviewPanel::setSelectedFolder(FileNodeRef folder) {
    if (folder == selectedFolder_) {
        return;
    }
    selectedFolder_ = std::move(folder);
    if (scopeChoice_->currentIndex() == 1) {
        scheduleRefresh(150);
    }
}

void OverviewPanel::setSearchText(const QString& text) {
    searchText_ = text;
    if (page_ == Page::search) {
        scheduleRefresh(0);
    }
}

void OverviewPanel::setWholeScan(bool whole) {
    scopeChoice_->setCurrentIndex(whole ? 0 : 1);
}

FileNodeRef OverviewPanel::scope() const {
    if (scopeChoice_->currentIndex() == 1 && selectedFolder_) {
        return selectedFolder_;
    }
    return root_;
}

void OverviewPanel::scheduleRefresh(int delayMilliseconds) {
    refresh_.start(std::max(0, delayMilliseconds));
}

void OverviewPanel::refreshNow() {
    refresh_.stop();
    list_->clear();
    rows_.clear();
    summary_->clear();
    const FileNodeRef folder = scope();
    if (!folder || !isVisible()) {
        return;
    }
    switch (page_) {
    case Page::largestFiles:
        showLargestFiles(*folder);
        break;
    case Page::types:
        showTypes(*folder);
        break;
    case Page::search:
        showSearch(folder);
        break;
    }
}

QTreeWidgetItem* OverviewPanel::itemRow(const FileNodeRef& node, const FileNode& folder) {
    auto* item = new QTreeWidgetItem(list_);
    const QString name = fromBytes(node->name()) + (node->isDirectory() ? "/" : "");
    const QString inside = folderBelow(*node, folder);
    item->setText(0, sizeText(node->size()));
    item->setTextAlignment(0, Qt::AlignRight | Qt::AlignVCenter);
    item->setText(1, name);
    item->setText(2, inside);
    item->setToolTip(1, fromBytes(node->path()));
    item->setToolTip(2, inside);
    item->setForeground(2, palette().brush(QPalette::PlaceholderText));
    item->setData(0, kNodeRole, QVariant::fromValue(static_cast<qulonglong>(rows_.size())));
    rows_.push_back(node);
    return item;
}

void OverviewPanel::showLargestFiles(const FileNode& folder) {
    list_->setColumnCount(3);
    list_->setHeaderLabels({tr("Size"), tr("Name"), tr("Folder")});
    const auto largest = largestFiles(folder, kLargestCount);
    for (const FileNodeRef& file : largest) {
        itemRow(file, folder);
    }
    summary_->setText(largest.empty() ? tr("No files with any size.")
                                      : tr("The %n largest files of %1", nullptr,
                                           static_cast<int>(largest.size()))
                                            .arg(fromBytes(folder.name())));
    list_->header()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
    list_->header()->setSectionResizeMode(1, QHeaderView::Interactive);
    list_->header()->setSectionResizeMode(2, QHeaderView::Stretch);
    list_->setColumnWidth(1, 150);
}

void OverviewPanel::showTypes(const FileNode& folder) {
    list_->setColumnCount(4);
    list_->setHeaderLabels({tr("Kind"), tr("Size"), tr("Share"), tr("Files")});
    const SpaceByType totals = spaceByType(folder);
    const TreemapLook look = TreemapLook::standard(font());
    std::vector<std::size_t> order;
    for (std::size_t i = 0; i < kFileCategoryCount; ++i) {
        if (totals.byCategory[i].files > 0) {
            order.push_back(i);
        }
    }
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        return totals.byCategory[a].bytes > totals.byCategory[b].bytes;
    });
    const auto row = [&](const QString& label, const TypeTotal& total, const QColor& color) {
        auto* item = new QTreeWidgetItem(list_);
        item->setText(0, label);
        if (color.isValid()) {
            item->setIcon(0, swatch(color));
        }
        item->setText(1, sizeText(total.bytes));
        item->setText(2, shareText(total.bytes, totals.all.bytes));
        item->setText(3, countText(total.files));
        for (int column = 1; column < 4; ++column) {
            item->setTextAlignment(column, Qt::AlignRight | Qt::AlignVCenter);
        }
        return item;
    };
    for (const std::size_t i : order) {
        const auto category = static_cast<FileCategory>(i);
        row(fromBytes(fileCategoryName(category)), totals.byCategory[i], look.categoryColors[i]);
    }
    auto* heading = new QTreeWidgetItem(list_);
    heading->setText(0, tr("Extensions"));
    QFont bold = heading->font(0);
    bold.setBold(true);
    heading->setFont(0, bold);
    heading->setFlags(Qt::NoItemFlags);
    for (const ExtensionTotal& extension : totals.topExtensions) {
        row(QLatin1Char('.') + fromBytes(extension.extension), extension.total,
            look.categoryColors[static_cast<std::size_t>(extension.category)]);
    }
    if (totals.otherExtensions.files > 0) {
        row(tr("Other extensions"), totals.otherExtensions, QColor());
    }
    if (totals.noExtension.files > 0) {
        row(tr("No extension"), totals.noExtension, QColor());
    }
    summary_->setText(
        &folder == root_.get()
            ? tr("%1 in %2 files").arg(sizeText(totals.all.bytes), countText(totals.all.files))
            : tr("%1 in %2 files of %3")
                  .arg(sizeText(totals.all.bytes), countText(totals.all.files),
                       fromBytes(folder.name())));
    list_->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    for (int column = 1; column < 4; ++column) {
        list_->header()->setSectionResizeMode(column, QHeaderView::ResizeToContents);
    }
}

void OverviewPanel::prepareSearch() {
    if (const FileNodeRef folder = scope()) {
        indexFolder(folder);
    }
}

void OverviewPanel::indexFolder(const FileNodeRef& folder) {
    if (indexStale_ || folder != indexedFolder_) {
        index_ = NameIndex(*folder);
        indexedFolder_ = folder;
        indexStale_ = false;
    }
}

void OverviewPanel::showSearch(const FileNodeRef& folder) {
    list_->setColumnCount(3);
    list_->setHeaderLabels({tr("Size"), tr("Name"), tr("Folder")});
    const NamePattern pattern(searchText_.toStdString());
    if (pattern.isEmpty()) {
        summary_->setText(tr("Type a name, part of one, or a pattern such as *.iso."));
        return;
    }
    indexFolder(folder);
    const NameIndex::Matches matches = index_.search(pattern, kSearchRows);
    for (const FileNodeRef& item : matches.items) {
        itemRow(item, *folder);
    }
    const auto count = static_cast<std::int64_t>(matches.count);
    summary_->setText(matches.count > matches.items.size()
                          ? tr("%1 items match; the %2 largest are listed")
                                .arg(countText(count), countText(kSearchRows))
                          : tr("%n items match", nullptr, static_cast<int>(count)));
    list_->header()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
    list_->header()->setSectionResizeMode(1, QHeaderView::Interactive);
    list_->header()->setSectionResizeMode(2, QHeaderView::Stretch);
    list_->setColumnWidth(1, 150);
}

} // namespace brimvale
