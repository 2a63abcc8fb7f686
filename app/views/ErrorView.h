#pragma once

#include "app/views/StatusPage.h"
#include "core/rclone/ScanErrorInfo.h"

#include <QUrl>

class QPushButton;

namespace brimvale {

// The last load or scan of the account failed: its message and, where signing in again may
// help, "Reconnect account" (with "Open sign-in page again" while a reconnect runs).
class ErrorView final : public StatusPage {
    Q_OBJECT
public:
    explicit ErrorView(QWidget* parent = nullptr);

    // `isLocalDisk`: the account's backend type is "local" (the title speaks of a disk).
    void showError(const ScanErrorInfo& info, bool isLocalDisk);
    // The reconnect flow's state: running, and its sign-in page once known.
    void setReconnectState(bool running, const QUrl& signInURL);

    static QString titleFor(bool isLocalDisk);
    QPushButton* reconnectButton() const { return reconnect_; }
    QPushButton* openSignInAgainButton() const { return openSignInAgain_; }

signals:
    void reconnectRequested();
    void openSignInPageRequested(const QUrl& url);

private:
    QPushButton* reconnect_;
    QPushButton* openSignInAgain_;
    bool canReconnect_ = false;
    QUrl signInURL_;
};

} // namespace brimvale
