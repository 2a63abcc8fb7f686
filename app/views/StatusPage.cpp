#include "app/views/StatusPage.h"

#include "app/support/SymbolLabel.h"
#include "app/support/Symbols.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QVBoxLayout>

namespace brimvale {

namespace {
constexpr int kSymbolSize = 56;
constexpr int kTextWidth = 440;
} // namespace

StatusPage::StatusPage(QWidget* parent)
    : QWidget(parent) {
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(32, 32, 32, 32);
    outer->addStretch(1);
    symbol_ = new SymbolLabel(kSymbolSize, this);
    symbol_->hide();
    outer->addWidget(symbol_, 0, Qt::AlignHCenter);
    outer->addSpacing(6);
    title_ = new QLabel(this);
    title_->setAlignment(Qt::AlignHCenter);
    title_->setWordWrap(true);
    QFont titleFont = title_->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() + 4.0);
    titleFont.setWeight(QFont::DemiBold);
    title_->setFont(titleFont);
    title_->hide();
    outer->addWidget(title_);
    text_ = new QLabel(this);
    text_->setAlignment(Qt::AlignHCenter);
    text_->setWordWrap(true);
    text_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    text_->hide();
    // A wrapped label needs a width of its own to wrap at, centred between two stretches.
    auto* textRow = new QHBoxLayout();
    textRow->addStretch(1);
    textRow->addWidget(text_, 0);
    textRow->addStretch(1);
    text_->setMinimumWidth(kTextWidth);
    text_->setMaximumWidth(kTextWidth);
    outer->addLayout(textRow);
    outer->addSpacing(10);
    body_ = new QVBoxLayout();
    body_->setSpacing(8);
    outer->addLayout(body_);
    outer->addStretch(1);
}

QLabel* StatusPage::symbolLabel() const {
    return symbol_;
}

void StatusPage::setSymbol(const char* symbol, const QColor& color) {
    const QIcon icon = color.isValid() ? Symbols::icon(symbol, color)
                                       : Symbols::icon(symbol, QPalette::PlaceholderText);
    symbol_->setSymbol(icon);
    symbol_->setAccessibleName(QString::fromLatin1(symbol));
    symbol_->setVisible(!icon.isNull());
}

void StatusPage::setTitle(const QString& title) {
    title_->setText(title);
    title_->setVisible(!title.isEmpty());
}

void StatusPage::setText(const QString& text) {
    text_->setText(text);
    text_->setVisible(!text.isEmpty());
}

} // namespace brimvale
