#include "app/onboarding/NativeCredentialForm.h"
#include "app/views/CacheBadge.h"
#include "app/views/ErrorView.h"
#include "app/views/FullDiskAccessBadge.h"
#include "app/views/IdleView.h"
#include "app/views/LoadingCacheView.h"
#include "app/views/NeedsSetupView.h"
#include "tests/coordinator/ScriptedProvider.h"
#include "tests/rclone/RcloneTestSupport.h"

#include <QDateTime>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QToolButton>
#include <gtest/gtest.h>

#include <cmath>

namespace brimvale {
namespace {

TEST(StateViews, IdleAndLoadingTexts) {
    IdleView idle;
    EXPECT_EQ(idle.textLabel()->text(), "Select a cloud provider to scan");
    EXPECT_EQ(idle.symbolLabel()->accessibleName(), "cloud.fill");

    EXPECT_EQ(LoadingCacheView::percentFor(0.5), 50);
    EXPECT_EQ(LoadingCacheView::percentFor(0.999), 99);
    EXPECT_EQ(LoadingCacheView::percentFor(1.0), 100);
    EXPECT_EQ(LoadingCacheView::percentFor(1.7), 100);
    EXPECT_EQ(LoadingCacheView::percentFor(-0.2), 0);
    EXPECT_EQ(LoadingCacheView::percentFor(std::nan("")), 0);
    LoadingCacheView loading;
    loading.setFraction(0.5); // not on screen: shown at once
    EXPECT_EQ(loading.textLabel()->text(), "Loading saved scan — 50%");

    // On screen the percentage counts up to its target.
    loading.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&loading));
    loading.setFraction(0.9);
    EXPECT_EQ(loading.targetPercent(), 90);
    QTRY_COMPARE_WITH_TIMEOUT(loading.textLabel()->text(), QString("Loading saved scan — 90%"),
                              2000);
}

TEST(StateViews, ErrorTitleDependsOnlyOnTheBackendAndReconnectFollowsTheFlow) {
    ErrorView view;
    view.show();
    view.showError({.message = "Access denied.", .canReconnect = false}, true);
    EXPECT_EQ(view.titleLabel()->text(), "Couldn’t scan this disk");
    EXPECT_EQ(view.textLabel()->text(), "Access denied.");
    EXPECT_FALSE(view.reconnectButton()->isVisible());

    view.showError({.message = "Token expired.", .canReconnect = true}, false);
    EXPECT_EQ(view.titleLabel()->text(), "Couldn’t load this account");
    EXPECT_TRUE(view.reconnectButton()->isVisible());
    EXPECT_EQ(view.reconnectButton()->text(), "Reconnect account");
    QSignalSpy reconnect(&view, &ErrorView::reconnectRequested);
    QTest::mouseClick(view.reconnectButton(), Qt::LeftButton);
    EXPECT_EQ(reconnect.count(), 1);

    // While the reconnect runs: the page again, once its address is known.
    view.setReconnectState(true, {});
    EXPECT_FALSE(view.openSignInAgainButton()->isVisible());
    const QUrl signIn("http://127.0.0.1:53682/auth?state=abc");
    view.setReconnectState(true, signIn);
    ASSERT_TRUE(view.openSignInAgainButton()->isVisible());
    QSignalSpy open(&view, &ErrorView::openSignInPageRequested);
    QTest::mouseClick(view.openSignInAgainButton(), Qt::LeftButton);
    ASSERT_EQ(open.count(), 1);
    EXPECT_EQ(open.front().front().toUrl(), signIn);
    view.setReconnectState(false, signIn);
    EXPECT_FALSE(view.openSignInAgainButton()->isVisible());
}

TEST(StateViews, CacheBadgeCoverageRule) {
    // Unknown occupied size (a cloud account): no drive symbol.
    EXPECT_FALSE(CacheBadge::accountsForTooLittle(100, std::nullopt));
    // An occupied size of 0 is never a warning (no ratio is computed).
    EXPECT_FALSE(CacheBadge::accountsForTooLittle(100, 0));
    EXPECT_FALSE(CacheBadge::accountsForTooLittle(0, -5));
    EXPECT_TRUE(CacheBadge::accountsForTooLittle(0, 1));
    EXPECT_TRUE(CacheBadge::accountsForTooLittle(8499, 10'000));
    EXPECT_FALSE(CacheBadge::accountsForTooLittle(8500, 10'000));
    EXPECT_FALSE(CacheBadge::accountsForTooLittle(20'000, 10'000));

    CacheBadge badge;
    badge.show();
    const Date threeHoursAgo = Date::fromUnixSeconds(
        static_cast<double>(QDateTime::currentSecsSinceEpoch()) - 3 * 3600 - 60);
    badge.setScan(threeHoursAgo, 5000, std::nullopt);
    EXPECT_FALSE(badge.driveSymbol()->isVisible());
    EXPECT_TRUE(badge.dateLabel()->text().startsWith("Cached "));
    EXPECT_EQ(badge.rescanButton()->text(), "Rescan");

    badge.setScan(threeHoursAgo, 5000, 10'000);
    EXPECT_TRUE(badge.driveSymbol()->isVisible());
    EXPECT_TRUE(badge.driveIsWarning());
    EXPECT_EQ(badge.driveSymbol()->toolTip(),
              "Scan accounts for less than 85% of reported occupied size — rescan to refresh.");
    badge.setScan(std::nullopt, 9000, 10'000);
    EXPECT_FALSE(badge.driveIsWarning());
    EXPECT_EQ(badge.driveSymbol()->toolTip(),
              "Scan accounts for most of the reported occupied size.");
    EXPECT_FALSE(badge.dateLabel()->isVisible());

    QSignalSpy rescan(&badge, &CacheBadge::rescanRequested);
    QSignalSpy dismiss(&badge, &CacheBadge::dismissRequested);
    QTest::mouseClick(badge.rescanButton(), Qt::LeftButton);
    QTest::mouseClick(badge.closeButton(), Qt::LeftButton);
    EXPECT_EQ(rescan.count(), 1);
    EXPECT_EQ(dismiss.count(), 1);

    FullDiskAccessBadge access;
    EXPECT_EQ(access.accessibleName(), "Some folders need more permissions");
}

TEST(StateViews, NeedsSetupShowsTheFormOrTheBrowserSignIn) {
    auto drive = std::make_shared<testing::ScriptedProvider>("work", "drive");
    NeedsSetupView view;
    view.show();
    view.showAccount(drive, std::nullopt);
    EXPECT_EQ(view.titleLabel()->text(), "Scripted work isn't connected");
    EXPECT_EQ(view.textLabel()->text(),
              "Connect this account through your browser. Click the button below to start; "
              "choosing other accounts in the sidebar does not open sign-in.");
    EXPECT_TRUE(view.signInButton()->isVisible());
    EXPECT_EQ(view.signInButton()->text(), "Sign in in browser…");
    EXPECT_FALSE(view.progressLabel()->isVisible());
    EXPECT_FALSE(view.doneButton()->isVisible());
    QSignalSpy signIn(&view, &NeedsSetupView::signInRequested);
    QTest::mouseClick(view.signInButton(), Qt::LeftButton);
    EXPECT_EQ(signIn.count(), 1);

    view.setSignInState(true, {});
    EXPECT_EQ(view.progressLabel()->text(),
              "Starting sign-in… your browser should open when the link is ready.");
    EXPECT_FALSE(view.signInButton()->isEnabled());
    EXPECT_FALSE(view.openSignInAgainButton()->isVisible());
    view.setSignInState(true, QUrl("http://127.0.0.1:53682/auth"));
    EXPECT_EQ(view.progressLabel()->text(),
              "Use the in-app panel below, or close it and continue from the browser.");
    EXPECT_TRUE(view.openSignInAgainButton()->isVisible());
    EXPECT_EQ(view.openWebConfigButton()->text(), "Open full configuration website…");
    EXPECT_EQ(view.doneButton()->text(), "Done — start scanning");
    QSignalSpy finish(&view, &NeedsSetupView::finishSetupRequested);
    QSignalSpy web(&view, &NeedsSetupView::openFullWebConfigRequested);
    QTest::mouseClick(view.doneButton(), Qt::LeftButton);
    QTest::mouseClick(view.openWebConfigButton(), Qt::LeftButton);
    EXPECT_EQ(finish.count(), 1);
    EXPECT_EQ(web.count(), 1);

    // A form service: the form with its hint and the advanced button, no browser sign-in.
    auto ftp = std::make_shared<testing::ScriptedProvider>("files", "ftp");
    view.showAccount(ftp, NativeCredentialOnboardingKind::ftp());
    ASSERT_NE(view.form(), nullptr);
    EXPECT_EQ(view.textLabel()->text(),
              "Enter the FTP host, credentials, and optional port. Anonymous login is supported "
              "if the server allows it (leave password empty when appropriate).");
    EXPECT_FALSE(view.signInButton()->isVisible());
    EXPECT_EQ(view.advancedWebConfigButton()->text(),
              "Open full configuration website (advanced)…");
    EXPECT_EQ(view.form()->submitButton()->text(), "Save and start scanning");
    EXPECT_EQ(NeedsSetupView::hintFor(NativeCredentialOnboardingKind::sftp()),
              "Enter host, user, and either a password or an SSH private key file.");
    EXPECT_TRUE(
        NeedsSetupView::hintFor(NativeCredentialOnboardingKind::s3(S3CatalogVariant::cloudflareR2))
            .startsWith("Cloudflare R2 uses S3-compatible API credentials."));
}

TEST(StateViews, CredentialFormsValidateAsTheUserTypes) {
    NativeCredentialForm aws(NativeCredentialOnboardingKind::s3(S3CatalogVariant::standardAws),
                             NativeCredentialFormPresentation::addAccountSheet);
    EXPECT_EQ(aws.submitButton()->text(), "Save and add account");
    EXPECT_FALSE(aws.submitButton()->isEnabled());
    EXPECT_EQ(aws.messageLabel()->text(), "Enter an AWS region (e.g. us-east-1).");
    // A region of spaces is empty.
    aws.field("AWS region (e.g. us-east-1)")->setText("   ");
    EXPECT_EQ(aws.messageLabel()->text(), "Enter an AWS region (e.g. us-east-1).");
    aws.field("AWS region (e.g. us-east-1)")->setText(" eu-west-1 ");
    EXPECT_EQ(aws.messageLabel()->text(), "Enter access key ID and secret access key.");
    aws.field("Access key ID")->setText("AKIA");
    aws.field("Secret access key")->setText("secret");
    EXPECT_EQ(aws.messageLabel()->text(), "Enter a bucket name.");
    aws.field("Bucket name (scan root)")->setText("photos");
    EXPECT_TRUE(aws.messageLabel()->text().isEmpty());
    EXPECT_TRUE(aws.submitButton()->isEnabled());
    QSignalSpy submitted(&aws, &NativeCredentialForm::submitted);
    QTest::mouseClick(aws.submitButton(), Qt::LeftButton);
    EXPECT_EQ(submitted.count(), 1);
    const auto fields = std::get<S3AwsCredentialFields>(aws.fields());
    EXPECT_EQ(fields.region, " eu-west-1 "); // trimming is the configuration's
    // A failure after submitting stays until the next edit.
    aws.showSubmitError("Access denied.");
    EXPECT_EQ(aws.messageLabel()->text(), "Access denied.");
    aws.field("Bucket name (scan root)")->setText("");
    EXPECT_EQ(aws.messageLabel()->text(), "Enter a bucket name.");

    testing::TemporaryFolder folder;
    testing::writeFile(folder / "key.json", "{}");
    NativeCredentialForm gcs(NativeCredentialOnboardingKind::gcs(),
                             NativeCredentialFormPresentation::needsSetup);
    gcs.field("Bucket name (scan root)")->setText("b");
    EXPECT_EQ(gcs.messageLabel()->text(),
              "Choose a service account JSON key file, or paste the JSON.");
    gcs.setKeyFilePath(QString::fromStdString((folder / "missing.json").string()));
    EXPECT_EQ(gcs.messageLabel()->text(), "Key file not found at path.");
    gcs.setKeyFilePath(QString::fromStdString((folder / "key.json").string()));
    EXPECT_TRUE(gcs.submitButton()->isEnabled());
    gcs.pastedJSON()->setPlainText("{\"type\": \"service_account\"}");
    EXPECT_EQ(gcs.messageLabel()->text(), "Use either a key file or pasted JSON—not both.");

    NativeCredentialForm sftp(NativeCredentialOnboardingKind::sftp(),
                              NativeCredentialFormPresentation::needsSetup);
    sftp.field("Host")->setText("example.org");
    sftp.field("Username")->setText("me");
    EXPECT_EQ(sftp.messageLabel()->text(), "Enter a password or choose an SSH private key file.");
    sftp.setKeyFilePath(QString::fromStdString((folder / "id_missing").string()));
    EXPECT_EQ(sftp.messageLabel()->text(), "SSH key file not found.");
    sftp.field("Password (if not using a key)")->setText("pw");
    EXPECT_EQ(sftp.messageLabel()->text(), "SSH key file not found.");
    sftp.setKeyFilePath({});
    EXPECT_TRUE(sftp.submitButton()->isEnabled());

    // FTP: anonymous login needs no password.
    NativeCredentialForm ftp(NativeCredentialOnboardingKind::ftp(),
                             NativeCredentialFormPresentation::needsSetup);
    ftp.field("Host")->setText("ftp.example.org");
    EXPECT_EQ(ftp.messageLabel()->text(), "Enter host and username.");
    ftp.field("Username")->setText("anonymous");
    EXPECT_TRUE(ftp.submitButton()->isEnabled());
}

} // namespace
} // namespace brimvale
