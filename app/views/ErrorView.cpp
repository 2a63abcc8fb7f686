#include "app/views/ErrorView.h"

#include "app/support/Symbols.h"
#include "app/support/WidgetText.h"

#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace brimvale {

ErrorView::ErrorView(QWidget* parent)
    : StatusPage(parent) {
    setSymbol("exclamationmark.triangle.fill", QColor(0xE8, 0x9A, 0x17));
    reconnect_ = new QPushButton(Symbols::icon("arrow.triangle.2.circlepath"),
                                 tr("Reconnect account"), this);
    reconnect_->setAccessibleName(tr("Reconnect account"));
    connect(reconnect_, &QPushButton::clicked, this, &ErrorView::reconnectRequested);
    body()->addWidget(reconnect_, 0, Qt::AlignHCenter);
    openSignInAgain_ = new QPushButton(tr("Open sign-in page again"), this);
    openSignInAgain_->setAccessibleName(tr("Open sign-in page again"));
    connect(openSignInAgain_, &QPushButton::clicked, this,
            [this] { emit openSignInPageRequested(signInURL_); });
    body()->addWidget(openSignInAgain_, 0, Qt::AlignHCenter);
    reconnect_->hide();
    openSignInAgain_->hide();
}

QString ErrorView::titleFor(bool isLocalDisk) {
    return isLocalDisk ? tr("Couldn’t scan this disk") : tr("Couldn’t load this account");
}

void ErrorView::showError(const ScanErrorInfo& info, bool isLocalDisk) {
    setTitle(titleFor(isLocalDisk));
    setText(qtText(info.message));
    setAccessibleName(titleLabel()->text());
    canReconnect_ = info.canReconnect;
    reconnect_->setVisible(canReconnect_);
    setReconnectState(false, signInURL_);
}

void ErrorView::setReconnectState(bool running, const QUrl& signInURL) {
    signInURL_ = signInURL;
    openSignInAgain_->setVisible(canReconnect_ && running && !signInURL.isEmpty());
    reconnect_->setEnabled(!running);
}

} // namespace brimvale
