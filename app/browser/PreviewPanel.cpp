#include "app/browser/PreviewPanel.h"

#include "app/support/DateTexts.h"
#include "app/support/SymbolLabel.h"
#include "app/support/Symbols.h"
#include "app/support/WidgetText.h"

#include <QGridLayout>
#include <QLabel>
#include <QLocale>
#include <QMimeDatabase>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>

namespace brimvale {
namespace {

constexpr int kLargestCount = 5;
constexpr int kMainIconSize = 40;

QLabel* secondaryLabel(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    label->setForegroundRole(QPalette::PlaceholderText);
    return label;
}

void clearGrid(QGridLayout* grid) {
    while (QLayoutItem* item = grid->takeAt(0)) {
        delete item->widget();
        delete item;
    }
}

} // namespace

PreviewPanel::PreviewPanel(int width, QWidget* parent)
    : QFrame(parent) {
    setFixedWidth(width);
    setFrameShape(QFrame::NoFrame);
    setAutoFillBackground(true);
    setBackgroundRole(QPalette::Base);
    setAccessibleName(tr("Preview"));

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(14, 10, 14, 14);
    layout->setSpacing(10);

    auto* header = new QHBoxLayout();
    auto* title = new QLabel(tr("Preview"), this);
    QFont titleFont = title->font();
    titleFont.setBold(true);
    title->setFont(titleFont);
    header->addWidget(title);
    header->addStretch(1);
    closeButton_ = new QToolButton(this);
    closeButton_->setIcon(Symbols::icon("xmark.circle.fill"));
    closeButton_->setAutoRaise(true);
    closeButton_->setToolTip(tr("Hide preview (click an item to show again)"));
    closeButton_->setAccessibleName(tr("Hide preview"));
    connect(closeButton_, &QToolButton::clicked, this, &PreviewPanel::dismissRequested);
    header->addWidget(closeButton_);
    layout->addLayout(header);

    content_ = new QWidget(this);
    auto* contentLayout = new QVBoxLayout(content_);
    contentLayout->setContentsMargins(0, 0, 0, 0);
    contentLayout->setSpacing(12);

    icon_ = new SymbolLabel(kMainIconSize, content_);
    contentLayout->addWidget(icon_, 0, Qt::AlignHCenter);
    name_ = new QLabel(content_);
    name_->setAlignment(Qt::AlignHCenter);
    name_->setWordWrap(true);
    name_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    QFont nameFont = name_->font();
    nameFont.setBold(true);
    name_->setFont(nameFont);
    contentLayout->addWidget(name_);

    auto* infoHolder = new QWidget(content_);
    infoGrid_ = new QGridLayout(infoHolder);
    infoGrid_->setContentsMargins(0, 4, 0, 0);
    infoGrid_->setHorizontalSpacing(12);
    infoGrid_->setVerticalSpacing(6);
    infoGrid_->setColumnStretch(1, 1);
    contentLayout->addWidget(infoHolder);

    largestSection_ = new QWidget(content_);
    auto* largestLayout = new QVBoxLayout(largestSection_);
    largestLayout->setContentsMargins(0, 6, 0, 0);
    largestLayout->setSpacing(6);
    auto* largestTitle = new QLabel(tr("Largest items"), largestSection_);
    largestTitle->setFont(titleFont);
    largestLayout->addWidget(largestTitle);
    auto* largestHolder = new QWidget(largestSection_);
    largestGrid_ = new QGridLayout(largestHolder);
    largestGrid_->setContentsMargins(0, 0, 0, 0);
    largestGrid_->setHorizontalSpacing(10);
    largestGrid_->setVerticalSpacing(4);
    largestGrid_->setColumnStretch(0, 1);
    largestLayout->addWidget(largestHolder);
    contentLayout->addWidget(largestSection_);

    layout->addWidget(content_);
    layout->addStretch(1);
    setNode({});
}

QString PreviewPanel::kindText(const FileNode& node) {
    if (const auto kind = node.displayKind()) {
        return qtText(*kind);
    }
    if (node.isDirectory()) {
        return tr("Folder");
    }
    // By name only: reading the file would be I/O on the GUI thread.
    static const QMimeDatabase database;
    const QMimeType type =
        database.mimeTypeForFile(qtText(node.name()), QMimeDatabase::MatchExtension);
    if (type.isValid() && !type.isDefault() && !type.comment().isEmpty()) {
        QString comment = type.comment();
        comment[0] = comment[0].toUpper();
        return comment;
    }
    return tr("File");
}

std::vector<PreviewPanel::InfoRow> PreviewPanel::infoRowsFor(const FileNode& node) {
    std::vector<InfoRow> rows;
    rows.push_back({tr("Size"), qtText(node.formattedSize())});
    rows.push_back({tr("Kind"), kindText(node)});
    const auto modified = node.modifiedDate();
    rows.push_back(
        {tr("Modified"), modified ? qtText(DateTexts::abbreviatedDateText(*modified)) : tr("—")});
    if (node.isDirectory()) {
        rows.push_back(
            {tr("Items"), QLocale().toString(static_cast<qlonglong>(node.children().size()))});
    }
    return rows;
}

void PreviewPanel::clearContent() {
    clearGrid(infoGrid_);
    clearGrid(largestGrid_);
    infoRows_.clear();
    largest_.clear();
}

bool PreviewPanel::isStale() const {
    return node_ && (node_->size() != shownSize_ || node_->children().size() != shownChildCount_);
}

void PreviewPanel::setNode(FileNodeRef node) {
    node_ = std::move(node);
    shownSize_ = node_ ? node_->size() : 0;
    shownChildCount_ = node_ ? node_->children().size() : 0;
    clearContent();
    content_->setVisible(node_ != nullptr);
    if (!node_) {
        return;
    }
    const bool isDirectory = node_->isDirectory();
    icon_->setSymbol(isDirectory ? Symbols::icon("folder.fill", QPalette::Highlight)
                                 : Symbols::icon("doc.fill", QPalette::PlaceholderText));
    name_->setText(qtText(node_->name()));

    infoRows_ = infoRowsFor(*node_);
    int row = 0;
    for (const auto& info : infoRows_) {
        auto* label = secondaryLabel(info.label, this);
        auto* value = new QLabel(info.value, this);
        value->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
        value->setTextInteractionFlags(Qt::TextSelectableByMouse);
        infoGrid_->addWidget(label, row, 0);
        infoGrid_->addWidget(value, row, 1);
        ++row;
    }

    // Sorted children, largest first; a live folder may not be sorted yet.
    std::vector<const FileNode*> children;
    if (isDirectory) {
        for (const auto& child : node_->sortedChildren()) {
            children.push_back(child.get());
        }
        const auto shown = std::min<std::size_t>(kLargestCount, children.size());
        const bool sorted = std::is_sorted(
            children.begin(), children.end(),
            [](const FileNode* a, const FileNode* b) { return a->size() > b->size(); });
        if (!sorted) {
            std::partial_sort(
                children.begin(), children.begin() + static_cast<std::ptrdiff_t>(shown),
                children.end(),
                [](const FileNode* a, const FileNode* b) { return a->size() > b->size(); });
        }
        children.resize(shown);
    }
    largestSection_->setVisible(!children.empty());
    row = 0;
    const QFontMetrics metrics(font());
    for (const FileNode* child : children) {
        const QString name = qtText(child->name());
        const QString size = qtText(child->formattedSize());
        largest_.emplace_back(name, size);
        const QString shownName = metrics.elidedText(name, Qt::ElideMiddle, width() - 110);
        auto* nameLabel = new QLabel(shownName, this);
        if (shownName != name) {
            nameLabel->setToolTip(name);
        }
        auto* sizeLabel = secondaryLabel(size, this);
        sizeLabel->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
        largestGrid_->addWidget(nameLabel, row, 0);
        largestGrid_->addWidget(sizeLabel, row, 1);
        ++row;
    }
}

} // namespace brimvale
