#include "app/MainWindow.h"
#include "app/onboarding/AddAccountSheet.h"
#include "app/onboarding/GeneratedBackendForm.h"
#include "app/onboarding/NativeCredentialForm.h"
#include "app/sidebar/AccountSidebar.h"
#include "app/sidebar/SidebarModel.h"
#include "app/views/ErrorView.h"
#include "app/views/NeedsSetupView.h"
#include "core/onboarding/CloudServiceCatalog.h"
#include "tests/app/AppTestSupport.h"
#include "tests/app/VisibleTextChecks.h"
#include "tests/onboarding/OnboardingTestSupport.h"

#include <QAction>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QStackedWidget>
#include <QTest>
#include <QToolButton>
#include <gtest/gtest.h>

#include <filesystem>

namespace brimvale {
namespace {

using namespace std::chrono_literals;
using testing::pumpUntil;

// The add-account sheet and the set-up view on the real coordinator and the real rclone, with
// the sandbox's own configuration; addresses meant for the browser are recorded.
class OnboardingViewsTest : public testing::AppTest {
protected:
    void SetUp() override {
        makeViewModel();
        refresh();
        window = std::make_unique<MainWindow>(*viewModel,
                                              MainWindow::Options{.refreshAccountsOnShow = false});
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
    }
    void TearDown() override { window.reset(); }

    testing::OpenedURLs opened;
    std::unique_ptr<MainWindow> window;
};

TEST_F(OnboardingViewsTest, AFormServiceIsAddedFromTheSheetAndSelected) {
    window->addAccountAction()->trigger();
    ASSERT_TRUE(viewModel->isPresentingAddAccount());
    AddAccountSheet* sheet = window->addAccountSheet();
    ASSERT_NE(sheet, nullptr);

    // The search narrows the list.
    sheet->searchField()->setText("sft");
    int shown = 0;
    for (int row = 0; row < sheet->serviceList()->count(); ++row) {
        shown += sheet->serviceList()->item(row)->isHidden() ? 0 : 1;
    }
    EXPECT_EQ(shown, 1);
    EXPECT_EQ(sheet->serviceList()->currentItem()->text(), "SFTP");
    QTest::keyClick(sheet->searchField(), Qt::Key_Return);
    ASSERT_TRUE(sheet->chosenService().has_value());
    EXPECT_EQ(sheet->chosenService()->rcloneType, "sftp");
    EXPECT_EQ(sheet->remoteNameField()->text().toStdString(),
              viewModel->addAccountPendingRemoteName().value_or("?"));
    NativeCredentialForm* form = sheet->form();
    ASSERT_NE(form, nullptr);

    // A name that cannot be a remote is refused before anything runs.
    sheet->remoteNameField()->setText("my files!");
    EXPECT_FALSE(sheet->errorLabel()->text().isEmpty());
    EXPECT_FALSE(form->submitButton()->isEnabled());
    sheet->remoteNameField()->setText("nas");
    form->field("Host")->setText("127.0.0.1");
    form->field("Port (optional, default 22)")->setText("2222");
    form->field("Username")->setText("me");
    form->field("Password (if not using a key)")->setText("secret");
    ASSERT_TRUE(form->submitButton()->isEnabled());
    QTest::mouseClick(form->submitButton(), Qt::LeftButton);

    // Saved: the sheet closes and the new account is selected.
    ASSERT_TRUE(pumpUntil([this] { return !viewModel->isPresentingAddAccount(); }, 30s));
    ASSERT_TRUE(pumpUntil(
        [this] {
            return viewModel->activeProvider() && viewModel->activeProvider()->remoteID() == "nas";
        },
        30s));
    const std::string config = testing::readFile(sandbox.configPath());
    EXPECT_NE(config.find("[nas]"), std::string::npos);
    EXPECT_NE(config.find("port = 2222"), std::string::npos);
    EXPECT_EQ(config.find("secret"), std::string::npos); // obscured
    EXPECT_TRUE(pumpUntil([this] { return window->addAccountSheet() == nullptr; }));
    viewModel->cancelScan();
}

TEST_F(OnboardingViewsTest, ClosingTheSheetEndsTheFlow) {
    window->addAccountAction()->trigger();
    AddAccountSheet* sheet = window->addAccountSheet();
    ASSERT_NE(sheet, nullptr);
    sheet->chooseService(CloudServiceCatalog::majorServices().front());
    sheet->reject();
    EXPECT_FALSE(viewModel->isPresentingAddAccount());
    EXPECT_TRUE(pumpUntil([this] { return window->addAccountSheet() == nullptr; }));

    // The coordinator closing the flow closes the sheet.
    viewModel->beginAddAccount();
    ASSERT_TRUE(pumpUntil([this] { return window->addAccountSheet() != nullptr; }));
    viewModel->cancelAddAccount();
    EXPECT_TRUE(pumpUntil([this] { return window->addAccountSheet() == nullptr; }));
}

// A browser sign-in started from the sheet and cancelled: the status says what is happening in
// full while it runs and goes with it; the remote rclone began is deleted, so the pinned
// Dropbox row is back in the sidebar.
TEST_F(OnboardingViewsTest, ACancelledSignInLeavesNoRemoteAndItsStatusGoes) {
    const testing::OAuthPortLock oauthPort;
    window->resize(900, 600);
    window->addAccountAction()->trigger();
    AddAccountSheet* sheet = window->addAccountSheet();
    ASSERT_NE(sheet, nullptr);
    sheet->searchField()->setText("dropbox");
    QTest::keyClick(sheet->searchField(), Qt::Key_Return);
    ASSERT_EQ(sheet->chosenService()->rcloneType, "dropbox");
    QTest::mouseClick(sheet->signInButton(), Qt::LeftButton);
    ASSERT_TRUE(pumpUntil([this] { return viewModel->addAccountSignInURL().has_value(); }, 60s));
    QTest::qWait(50); // layout
    EXPECT_FALSE(sheet->statusLabel()->text().isEmpty());
    EXPECT_EQ(testing::clippedLabels(*sheet), QStringList());
    EXPECT_NE(testing::readFile(sandbox.configPath()).find("[dropbox]"), std::string::npos);

    ASSERT_TRUE(sheet->cancelSignInButton()->isVisible());
    QTest::mouseClick(sheet->cancelSignInButton(), Qt::LeftButton);
    EXPECT_FALSE(viewModel->isPresentingAddAccount());
    ASSERT_TRUE(pumpUntil([this] { return !viewModel->hasBackgroundWork(); }, 30s));
    EXPECT_EQ(testing::readFile(sandbox.configPath()).find("[dropbox]"), std::string::npos);
    const ProviderRef dropbox = providerNamed("dropbox");
    ASSERT_NE(dropbox, nullptr);
    EXPECT_TRUE(viewModel->sidebarRemoteShowsInMainList(*dropbox));
}

// rclone's refusal is shown once, in the form, and the sheet's "Saving…" goes when the save
// has failed.
TEST_F(OnboardingViewsTest, ARefusedFormShowsRclonesErrorOnce) {
    window->addAccountAction()->trigger();
    AddAccountSheet* sheet = window->addAccountSheet();
    ASSERT_NE(sheet, nullptr);
    sheet->chooseService(CloudServiceCatalog::majorServices().back());
    ASSERT_EQ(sheet->chosenService()->rcloneType, "ftp");
    NativeCredentialForm* form = sheet->form();
    ASSERT_NE(form, nullptr);
    form->field("Host")->setText("127.0.0.1");
    form->field("Username")->setText("me");
    // rclone cannot read a configuration that is a folder.
    std::filesystem::remove(sandbox.configPath());
    std::filesystem::create_directory(sandbox.configPath());
    QTest::mouseClick(form->submitButton(), Qt::LeftButton);
    ASSERT_TRUE(pumpUntil([this] { return viewModel->addAccountError().has_value(); }, 30s));
    ASSERT_TRUE(pumpUntil([this] { return !viewModel->addAccountGuidedRunning(); }, 30s));
    QTest::qWait(50);
    const QString error = QString::fromStdString(*viewModel->addAccountError());
    EXPECT_EQ(testing::visibleTextsContaining(*sheet, error.left(30)), 1) << error.toStdString();
    EXPECT_TRUE(sheet->statusLabel()->text().isEmpty());
    EXPECT_EQ(testing::clippedLabels(*sheet), QStringList());
    std::filesystem::remove(sandbox.configPath());
}

// A service without a form of ours gets one made from rclone's description of it: found by
// search, required fields first, secrets hidden, proposed values in a list; the account it
// adds against a real WebDAV server is selected and scanned.
TEST_F(OnboardingViewsTest, AWebdavAccountIsAddedThroughItsGeneratedFormAndScanned) {
    const std::filesystem::path served = sandbox.folder().path() / "served";
    std::filesystem::create_directories(served / "docs");
    testing::writeFile(served / "docs" / "a.txt", std::string(3000, 'a'));
    testing::writeFile(served / "b.bin", std::string(5000, 'b'));
    const auto server =
        testing::startWebdavServer(sandbox, served, {"--user", "u", "--pass", "pw"});
    window->addAccountAction()->trigger();
    AddAccountSheet* sheet = window->addAccountSheet();
    ASSERT_NE(sheet, nullptr);
    ASSERT_TRUE(pumpUntil([this] { return viewModel->rcloneBackends() != nullptr; }));
    sheet->searchField()->setText("webdav");
    ASSERT_EQ(sheet->serviceList()->currentItem()->text(), "WebDAV");
    QTest::keyClick(sheet->searchField(), Qt::Key_Return);
    GeneratedBackendForm* form = sheet->generatedForm();
    ASSERT_NE(form, nullptr);
    EXPECT_EQ(sheet->remoteNameField()->text(), "webdav");
    EXPECT_FALSE(form->submitButton()->isEnabled());
    EXPECT_EQ(form->messageLabel()->text(), "Enter \u201cURL of http host to connect to\u201d.");
    EXPECT_EQ(qobject_cast<QLineEdit*>(form->editor("pass"))->echoMode(), QLineEdit::Password);
    EXPECT_NE(qobject_cast<QComboBox*>(form->editor("vendor")), nullptr);
    EXPECT_FALSE(form->editor("headers")->isVisibleTo(form));
    form->advancedToggle()->click();
    EXPECT_TRUE(form->editor("headers")->isVisibleTo(form));
    QTest::qWait(50);
    EXPECT_EQ(testing::clippedLabels(*sheet), QStringList());
    EXPECT_EQ(testing::repeatedToolTips(*sheet), QStringList());

    sheet->remoteNameField()->setText("dav");
    form->setValue("url", QStringLiteral("http://127.0.0.1:%1/").arg(server.port));
    form->setValue("vendor", "other");
    form->setValue("user", "u");
    form->setValue("pass", "pw");
    ASSERT_TRUE(form->submitButton()->isEnabled());
    QTest::mouseClick(form->submitButton(), Qt::LeftButton);
    ASSERT_TRUE(pumpUntil([this] { return !viewModel->isPresentingAddAccount(); }, 30s))
        << viewModel->addAccountError().value_or("");
    ASSERT_TRUE(pumpUntil(
        [this] {
            const auto* done = viewModel->state().as<ScannerState::Done>();
            return done != nullptr && viewModel->activeProvider()->remoteID() == "dav";
        },
        30s));
    EXPECT_EQ(viewModel->state().as<ScannerState::Done>()->root->size(), 8000);
    EXPECT_EQ(testing::readFile(sandbox.configPath()).find("pw\n"), std::string::npos);
}

// A Google Drive remote without its token: its scan fails with a reconnect offer; rclone then
// reaches its sign-in step offline and prints the address, which the view offers and the
// browser gets; cancelling stops rclone.
TEST_F(OnboardingViewsTest, ReconnectAndBrowserSignInOfAnAccountWithoutItsToken) {
    sandbox.addRemote("work", "drive");
    refresh();
    const ProviderRef work = providerNamed("work");
    ASSERT_NE(work, nullptr);
    viewModel->selectProvider(work);
    ASSERT_TRUE(pumpUntil([this] { return viewModel->state().is<ScannerState::Error>(); }));
    ErrorView* error = window->errorView();
    ASSERT_EQ(window->detail()->currentWidget(), error);
    ASSERT_TRUE(error->reconnectButton()->isVisible());

    QTest::mouseClick(error->reconnectButton(), Qt::LeftButton);
    EXPECT_TRUE(viewModel->isGuidedConnectRunning());
    ASSERT_TRUE(viewModel->state().is<ScannerState::NeedsSetup>());
    NeedsSetupView* view = window->needsSetupView();
    ASSERT_EQ(window->detail()->currentWidget(), view);
    EXPECT_TRUE(view->progressLabel()->text().startsWith("Starting sign-in…"));
    EXPECT_FALSE(view->signInButton()->isEnabled());
    EXPECT_TRUE(view->cancelSignInButton()->isVisible());
    ASSERT_TRUE(pumpUntil([this] { return viewModel->mainFlowSignInURL().has_value(); }, 60s));
    // The browser got the address once, and the view offers it again.
    ASSERT_TRUE(pumpUntil([this] { return !opened.urls.empty(); }));
    EXPECT_TRUE(opened.urls.front().toString().startsWith("http://127.0.0.1:53682/"));
    EXPECT_FALSE(viewModel->oauthBrowserURL().has_value());
    EXPECT_EQ(view->progressLabel()->text(),
              "Use the in-app panel below, or close it and continue from the browser.");
    ASSERT_TRUE(view->openSignInAgainButton()->isVisible());
    QTest::mouseClick(view->openSignInAgainButton(), Qt::LeftButton);
    EXPECT_EQ(opened.urls.size(), 2u);

    QTest::mouseClick(view->cancelSignInButton(), Qt::LeftButton);
    EXPECT_FALSE(viewModel->isGuidedConnectRunning());
    EXPECT_TRUE(pumpUntil([this] { return viewModel->state().is<ScannerState::Idle>(); }));

    // The set-up view's own button starts a first connection the same way.
    viewModel->applyPaneState(ScannerState::NeedsSetup{work}, "work");
    ASSERT_EQ(window->detail()->currentWidget(), view);
    ASSERT_TRUE(view->signInButton()->isEnabled());
    QTest::mouseClick(view->signInButton(), Qt::LeftButton);
    EXPECT_TRUE(viewModel->isGuidedConnectRunning());
    viewModel->cancelSetup(work);
}

} // namespace
} // namespace brimvale
