#include "app/views/FullDiskAccessBadge.h"

#include "app/support/BadgeBackground.h"
#include "app/support/BadgeCloseButton.h"
#include "app/support/SymbolLabel.h"
#include "app/support/Symbols.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QToolButton>

namespace brimvale {

FullDiskAccessBadge::FullDiskAccessBadge(QWidget* parent)
    : QFrame(parent) {
    setObjectName(QStringLiteral("accessBadge"));
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(10, 4, 4, 4);
    layout->setSpacing(6);
    auto* symbol = new SymbolLabel(14, this);
    symbol->setSymbol(Symbols::icon("lock.shield", QColor(0xF0, 0x8C, 0x00)));
    layout->addWidget(symbol);
    auto* text = new QLabel(tr("Some folders need more permissions"), this);
    layout->addWidget(text);
    setAccessibleName(text->text());
    learnMore_ = new QPushButton(tr("Learn More"), this);
    learnMore_->setFlat(true);
    learnMore_->setAccessibleName(tr("Learn More"));
    connect(learnMore_, &QPushButton::clicked, this, &FullDiskAccessBadge::learnMoreRequested);
    layout->addWidget(learnMore_);
    close_ = makeBadgeCloseButton(this, tr("Hide permissions badge"));
    connect(close_, &QToolButton::clicked, this, &FullDiskAccessBadge::dismissRequested);
    layout->addWidget(close_);
}

void FullDiskAccessBadge::paintEvent(QPaintEvent* /*event*/) {
    paintBadgeBackground(*this);
}

QString FullDiskAccessBadge::explanation() {
    return tr("Brimvale counts only what your user may read. Folders it could not open are left "
              "out of the sizes. To include them, give your user read permission on those "
              "folders (or scan as a user who has it), then rescan.");
}

} // namespace brimvale
