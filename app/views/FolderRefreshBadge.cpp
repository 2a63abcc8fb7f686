#include "app/views/FolderRefreshBadge.h"

#include "app/support/BadgeBackground.h"
#include "app/support/BadgeCloseButton.h"
#include "app/support/BusyIndicator.h"
#include "app/support/SymbolLabel.h"
#include "app/support/Symbols.h"
#include "app/support/WidgetText.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QToolButton>
#include <QVBoxLayout>

#include <string_view>

namespace brimvale {
namespace {

// The last component of a tree path ("/Photos/2024" → "2024"); the path itself when it has none.
std::string_view lastComponent(std::string_view path) {
    while (path.size() > 1 && path.ends_with('/')) {
        path.remove_suffix(1);
    }
    const auto slash = path.rfind('/');
    if (slash == std::string_view::npos || slash + 1 == path.size()) {
        return path;
    }
    return path.substr(slash + 1);
}

} // namespace

FolderRefreshBadge::FolderRefreshBadge(QWidget* parent)
    : QFrame(parent) {
    setObjectName(QStringLiteral("folderRefreshBadge"));
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(10, 4, 4, 4);
    layout->setSpacing(6);
    spinner_ = new BusyIndicator(14, this);
    layout->addWidget(spinner_, 0, Qt::AlignTop);
    warning_ = new SymbolLabel(14, this);
    warning_->setSymbol(Symbols::icon("exclamationmark.triangle.fill", QColor(0xF0, 0x8C, 0x00)));
    layout->addWidget(warning_, 0, Qt::AlignTop);
    auto* texts = new QVBoxLayout();
    texts->setSpacing(2);
    text_ = new QLabel(this);
    texts->addWidget(text_);
    detail_ = new QLabel(this);
    detail_->setWordWrap(true);
    detail_->setMaximumWidth(420);
    detail_->setForegroundRole(QPalette::PlaceholderText);
    detail_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    texts->addWidget(detail_);
    layout->addLayout(texts);
    close_ = makeBadgeCloseButton(this, tr("Hide folder rescan message"));
    connect(close_, &QToolButton::clicked, this, &FolderRefreshBadge::dismissRequested);
    layout->addWidget(close_, 0, Qt::AlignTop);
}

QString FolderRefreshBadge::busyText(const std::set<std::string>& refreshing) {
    if (refreshing.size() == 1) {
        return tr("Rescanning “%1”…").arg(qtText(lastComponent(*refreshing.begin())));
    }
    return tr("Rescanning %1 folders…")
        .arg(QLocale().toString(static_cast<qulonglong>(refreshing.size())));
}

bool FolderRefreshBadge::setStatus(const std::set<std::string>& refreshing, const QString& error) {
    busy_ = !refreshing.empty();
    const bool failed = !busy_ && !error.isEmpty();
    spinner_->setVisible(busy_);
    warning_->setVisible(failed);
    close_->setVisible(failed);
    detail_->setVisible(failed);
    if (busy_) {
        text_->setText(busyText(refreshing));
    } else if (failed) {
        text_->setText(tr("Couldn’t rescan the folder"));
        detail_->setText(error);
    }
    setAccessibleName(failed ? text_->text() + ": " + error : text_->text());
    adjustSize();
    return busy_ || failed;
}

void FolderRefreshBadge::paintEvent(QPaintEvent* /*event*/) {
    paintBadgeBackground(*this);
}

} // namespace brimvale
