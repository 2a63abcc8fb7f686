#include "core/coordinator/AccountDirectory.h"
#include "core/persistence/cache/LocalScanCacheStem.h"
#include "core/persistence/cache/ScanCache.h"
#include "core/persistence/settings/SettingsKeys.h"
#include "core/rclone/ObjectStorageScanPrefix.h"
#include "core/rclone/RcloneConfigDump.h"
#include "tests/coordinator/CoordinatorTestSupport.h"
#include "tests/onboarding/OnboardingTestSupport.h"

#include <filesystem>
#include <thread>

namespace brimvale::testing {
namespace {

using Case = ScannerState::Case;

std::vector<std::string> ids(const std::vector<ProviderRef>& providers) {
    std::vector<std::string> names;
    for (const auto& provider : providers) {
        names.push_back(provider->remoteID());
    }
    return names;
}

TEST(AccountDirectoryTest, TypesAreTrimmedNumbersKeptAsTextAliasesRepairedAndReadinessJudged) {
    const auto dump = parseConfigDump(R"({
        "numbered": {"type": 5},
        "spaced": {"type": " sftp\n", "host": "h"},
        "bucket": {"type": "Google Cloud Storage"},
        "half": {"type": "drive"},
        "signed": {"type": "drive", "token": "{\"access_token\":\"x\"}"},
        "emptytoken": {"type": "dropbox", "token": "{}"}
    })");
    const auto directory = readAccountDirectory(
        {"numbered", " spaced ", "bucket", "half", "signed", "emptytoken", "spaced"}, dump);
    std::vector<std::string> names;
    for (const auto& entry : directory.accounts) {
        names.push_back(entry.remoteName + "=" + entry.rcloneType +
                        (entry.readyForUse ? "+" : "-") + (entry.isPlaceholder ? "p" : ""));
    }
    // A dropbox remote exists, so only the local row is pinned; the duplicate name is dropped.
    EXPECT_EQ(names, (std::vector<std::string>{"numbered=5+", "spaced=sftp+", "bucket=gcs+",
                                               "half=drive-", "signed=drive+",
                                               "emptytoken=dropbox-", "localdisk=local-p"}));
    EXPECT_EQ(directory.repairs, (std::vector<AliasedTypeRepair>{{"bucket", "gcs"}}));
    EXPECT_EQ(directory.accounts[1].displayName, "SFTP (spaced)");

    // Two servers of one kind signed in as one user read apart; a third user stays as it was.
    const auto twins = readAccountDirectory(
        {"dav1", "dav2", "dav3"}, parseConfigDump(R"({"dav1": {"type": "webdav", "user": "u"},
            "dav2": {"type": "webdav", "user": "u"}, "dav3": {"type": "webdav", "user": "v"}})"));
    const auto label = [&](int index) {
        return twins.accounts[index].displayName;
    };
    EXPECT_NE(label(0), label(1));
    EXPECT_NE(label(0).find("u, dav1"), std::string::npos) << label(0);
    EXPECT_NE(label(1).find("u, dav2"), std::string::npos) << label(1);
    EXPECT_EQ(label(2).find("dav3"), std::string::npos) << label(2);
}

class AccountsTest : public CoordinatorTest {};

TEST_F(AccountsTest, AnEmptyConfigurationStillListsThePinnedRowsWhichCannotBeRemoved) {
    makeViewModel();
    EXPECT_TRUE(viewModel->providers().empty()) << "construction reads nothing";
    refresh();
    EXPECT_EQ(ids(viewModel->providers()), (std::vector<std::string>{"localdisk", "dropbox"}));
    EXPECT_TRUE(viewModel->configuredRemoteNames().empty());
    EXPECT_TRUE(viewModel->state().is<ScannerState::Idle>());
    for (const auto& provider : viewModel->providers()) {
        EXPECT_FALSE(viewModel->canRemoveAccount(*provider));
        EXPECT_TRUE(viewModel->sidebarRemoteShowsInMainList(*provider));
    }
    EXPECT_EQ(viewModel->providers()[0]->displayName(), "Local disk");
    EXPECT_EQ(viewModel->providers()[1]->displayName(), "Dropbox");
    EXPECT_EQ(observer.count(PublishedField::providers), 1);
    // A second refresh that finds the same accounts keeps the same objects and says nothing.
    const auto before = viewModel->providers();
    refresh();
    EXPECT_EQ(viewModel->providers(), before);
    EXPECT_EQ(observer.count(PublishedField::providers), 1);
}

TEST_F(AccountsTest, IncompleteRemotesAreHiddenAndAliasedTypesAreRewrittenInTheConfiguration) {
    sandbox.addRemote("half", "drive");
    sandbox.addRemote("bucket", "google cloud storage");
    makeViewModel();
    refresh();
    EXPECT_FALSE(viewModel->sidebarRemoteShowsInMainList(*providerNamed("half")));
    EXPECT_TRUE(viewModel->canRemoveAccount(*providerNamed("half")));
    EXPECT_EQ(providerNamed("bucket")->rcloneType(), "gcs");
    EXPECT_TRUE(viewModel->backendTypesPresentInRclone().contains("gcs"));
    EXPECT_NE(readFile(sandbox.configPath()).find("type = gcs"), std::string::npos);

    // A sign-in the application never finished leaves a remote without its token: it stands in
    // for the pinned Dropbox row (which would otherwise be gone) until a signed-in one exists.
    sandbox.addRemote("dropbox", "dropbox");
    sandbox.addRemote("dropbox_2", "dropbox");
    refresh();
    EXPECT_TRUE(viewModel->sidebarRemoteShowsInMainList(*providerNamed("dropbox")));
    EXPECT_FALSE(viewModel->sidebarRemoteShowsInMainList(*providerNamed("dropbox_2")));
    sandbox.addRemote("signed", "dropbox", {{"token", R"({"access_token":"x"})"}});
    refresh();
    EXPECT_FALSE(viewModel->sidebarRemoteShowsInMainList(*providerNamed("dropbox")));
    EXPECT_TRUE(viewModel->sidebarRemoteShowsInMainList(*providerNamed("signed")));
}

TEST_F(AccountsTest, TestRemotesArePurgedOnceAndLaterOnesAreLeftAlone) {
    sandbox.addRemote("bv_leftover", "memory");
    sandbox.addRemote("keep", "memory");
    makeViewModel();
    refresh();
    EXPECT_EQ(viewModel->configuredRemoteNames(), (std::set<std::string>{"keep"}));
    EXPECT_EQ(settings->boolValue(SettingsKeys::didPurgeBvUnderscoreTestRemotes), true);
    sandbox.addRemote("bv_new", "memory");
    refresh();
    EXPECT_EQ(viewModel->configuredRemoteNames(), (std::set<std::string>{"bv_new", "keep"}));
}

TEST_F(AccountsTest, RemovingTheActiveAccountWhileItScansDropsItsResultsAndEverythingSaved) {
    sandbox.addRemote("photos", "alias", {{"remote", "/nonexistent"}});
    sandbox.addRemote("photos_2", "alias", {{"remote", "/nonexistent"}});
    auto photos = script("photos");
    makeViewModel();
    refresh();
    writeFile(cacheFolder / "photos_2.cache", "another account's saved scan");
    ObjectStorageScanPrefix::setS3Bucket(*settings, "b", "photos");
    viewModel->selectProvider(providerNamed("photos"));
    ASSERT_TRUE(photos->waitForScans(1));
    ASSERT_TRUE(pumpUntil([&] { return paneCase("photos") == Case::scanning; }));
    photos->push(ScriptedProvider::PartialTree{tree("photos", 1)});
    ASSERT_TRUE(pumpUntil([&] { return photos->waitUntilDrained(std::chrono::milliseconds(1)); }));
    viewModel->waitForSavedScans(std::chrono::seconds(10));
    ASSERT_TRUE(std::filesystem::exists(cacheFolder / "photos.cache"));

    bool removed = false;
    viewModel->removeAccount(providerNamed("photos"), [&removed] { removed = true; });
    photos->push(ScriptedProvider::Finish{tree("late", 5)});
    ASSERT_TRUE(pumpUntil([&] { return removed; }));
    EXPECT_EQ(viewModel->provider("photos"), nullptr);
    EXPECT_EQ(viewModel->activeProvider(), nullptr);
    EXPECT_TRUE(viewModel->state().is<ScannerState::Idle>());
    EXPECT_FALSE(viewModel->accountRemovalError().has_value());
    EXPECT_EQ(readFile(sandbox.configPath()).find("[photos]"), std::string::npos);
    ASSERT_TRUE(pumpUntil([&] { return !viewModel->hasBackgroundWork(); }));
    EXPECT_FALSE(std::filesystem::exists(cacheFolder / "photos.cache"));
    EXPECT_TRUE(std::filesystem::exists(cacheFolder / "photos_2.cache"))
        << "another account whose name begins the same keeps its saved scan";
    EXPECT_FALSE(settings->contains(SettingsKeys::s3ObjectPrefix("photos")));
    EXPECT_TRUE(viewModel->state().is<ScannerState::Idle>()) << caseName(viewModel->state().kind());
}

TEST_F(AccountsTest, RemovingALocalAccountDeletesTheSavedScansOfAllItsVolumes) {
    sandbox.addRemote("disk", "local");
    makeViewModel();
    refresh();
    writeFile(cacheFolder / "disk.cache", "x");
    const std::string mediaFile =
        ScanCache::fileNameFor(LocalScanCacheStem::stem("disk", "/srv/media"));
    writeFile(cacheFolder / mediaFile, "x");
    settings->setString(SettingsKeys::localScanPath("disk"), "/srv/media");
    bool removed = false;
    viewModel->removeAccount(providerNamed("disk"), [&removed] { removed = true; });
    ASSERT_TRUE(pumpUntil([&] { return removed; }));
    EXPECT_FALSE(std::filesystem::exists(cacheFolder / "disk.cache"));
    EXPECT_FALSE(std::filesystem::exists(cacheFolder / mediaFile));
    EXPECT_FALSE(settings->contains(SettingsKeys::localScanPath("disk")));
    // The pinned local row is back.
    EXPECT_NE(viewModel->provider("localdisk"), nullptr);
}

TEST_F(AccountsTest, AFailedRemovalIsReportedAndKeepsTheSavedScan) {
    // rclone refuses to write its configuration (a read-only home, a full disk).
    makeViewModel(sandbox.fakeRunner(R"(
case "$1 $2" in
  "config dump") echo '{"photos": {"type": "alias", "remote": "/x"}}' ;;
  "config delete") echo "Failed to save config after 10 tries: permission denied" >&2; exit 1 ;;
  *) exit 0 ;;
esac)"));
    refresh();
    ASSERT_NE(providerNamed("photos"), nullptr);
    writeFile(cacheFolder / "photos.cache", "x");
    bool removed = false;
    viewModel->removeAccount(providerNamed("photos"), [&removed] { removed = true; });
    ASSERT_TRUE(pumpUntil([&removed] { return removed; }));
    ASSERT_TRUE(viewModel->accountRemovalError().has_value());
    EXPECT_NE(viewModel->accountRemovalError()->find("permission denied"), std::string::npos)
        << *viewModel->accountRemovalError();
    EXPECT_TRUE(std::filesystem::exists(cacheFolder / "photos.cache"));
    EXPECT_NE(providerNamed("photos"), nullptr) << "the account is still configured";
    viewModel->dismissAccountRemovalError();
    EXPECT_FALSE(viewModel->accountRemovalError().has_value());
}

TEST_F(AccountsTest, AnAccountThatLeavesTheConfigurationStopsItsLoadAndLeavesTheSelection) {
    sandbox.addRemote("photos", "alias", {{"remote", "/nonexistent"}});
    auto photos = script("photos");
    makeViewModel();
    refresh();
    viewModel->selectProvider(providerNamed("photos"));
    ASSERT_TRUE(photos->waitForScans(1));
    writeFile(sandbox.configPath(), "");
    refresh();
    EXPECT_EQ(viewModel->activeProvider(), nullptr);
    EXPECT_TRUE(viewModel->state().is<ScannerState::Idle>());
    EXPECT_TRUE(viewModel->remoteIDsLoading().empty());
    photos->push(ScriptedProvider::Finish{tree("late", 1)});
    ASSERT_TRUE(pumpUntil([&] { return !viewModel->hasBackgroundWork(); }));
    EXPECT_TRUE(viewModel->state().is<ScannerState::Idle>());
    EXPECT_EQ(paneCase("photos"), Case::idle);
}

TEST_F(AccountsTest, APlaceholderOrARetypedRemoteUnderAnOldNameStartsWithAnEmptyPane) {
    sandbox.addRemote("dropbox", "dropbox", {{"token", "{\"access_token\":\"x\"}"}});
    sandbox.addRemote("photos", "alias", {{"remote", "/nonexistent"}});
    auto dropbox = script("dropbox", "dropbox");
    auto photos = script("photos");
    makeViewModel();
    refresh();
    ASSERT_TRUE(viewModel->configuredRemoteNames().contains("dropbox"));
    viewModel->selectProvider(providerNamed("photos"));
    ASSERT_TRUE(photos->waitForScans(1));
    photos->push(ScriptedProvider::Finish{tree("photos", 5)});
    ASSERT_TRUE(pumpUntil([&] { return paneCase("photos") == Case::done; }));
    viewModel->selectProvider(providerNamed("dropbox"));
    ASSERT_TRUE(dropbox->waitForScans(1));
    dropbox->push(ScriptedProvider::Finish{tree("dropbox", 7)});
    ASSERT_TRUE(pumpUntil([&] { return paneCase("dropbox") == Case::done; }));

    // The Dropbox account leaves the configuration: its pinned placeholder takes the row, and
    // "photos" becomes another kind of account under the same name.
    writeFile(sandbox.configPath(), "");
    sandbox.addRemote("photos", "memory");
    refresh();
    ASSERT_NE(providerNamed("dropbox"), nullptr);
    EXPECT_FALSE(viewModel->configuredRemoteNames().contains("dropbox"));
    EXPECT_EQ(paneCase("dropbox"), Case::idle);
    EXPECT_TRUE(viewModel->state().is<ScannerState::Idle>()) << "the removed account's tree";
    EXPECT_EQ(paneCase("photos"), Case::idle);
}

TEST_F(AccountsTest, OverlappingAccountListRefreshesActOnTheNewestListAndCancelledOnesEnd) {
    // Each `config dump` leaves a file "ran-N" when it ends; while the file "slow" exists,
    // they take a second.
    const auto folder = sandbox.folder().path().string();
    makeViewModel(sandbox.fakeRunner("cd '" + folder +
                                     "' && n=$(($(ls | grep -c '^ran-') + 1))\n"
                                     "[ -f slow ] && sleep 1\n"
                                     "/usr/bin/rclone \"$@\"; status=$?\n"
                                     "touch ran-$n; exit $status"));
    const auto runsSoFar = [&] {
        int count = 0;
        for (const auto& entry : std::filesystem::directory_iterator(sandbox.folder().path())) {
            count += entry.path().filename().string().starts_with("ran-") ? 1 : 0;
        }
        return count;
    };
    refresh();
    EXPECT_EQ(runsSoFar(), 1) << "the account list costs one rclone run, the first time too";
    sandbox.addRemote("added", "alias", {{"remote", "/nonexistent"}});
    // The sign-in that made "added" selects it once the list is read; meanwhile something else
    // asks for the list again, slowly. The first refresh ends first, superseded: its follow-up
    // must wait for the newest list rather than act on the list shown now, which lacks it.
    bool sawTheAccount = false;
    bool followedUp = false;
    const int before = runsSoFar();
    viewModel->refreshProviders([&] {
        followedUp = true;
        sawTheAccount = providerNamed("added") != nullptr;
    });
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (runsSoFar() == before && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    writeFile(sandbox.folder() / "slow", "");
    viewModel->refreshProviders();
    ASSERT_TRUE(pumpUntil([&] { return followedUp; }));
    EXPECT_TRUE(sawTheAccount);
    ASSERT_TRUE(pumpUntil([&] { return !viewModel->hasBackgroundWork(); }));
    std::filesystem::remove(sandbox.folder() / "slow");

    // A refresh stopped midway ends all the same: nothing is left waiting for it.
    viewModel->refreshProviders();
    viewModel->refreshProviders();
    viewModel->cancelAllWork();
    EXPECT_TRUE(
        pumpUntil([&] { return !viewModel->hasBackgroundWork(); }, std::chrono::seconds(5)));
    bool afterwards = false;
    viewModel->refreshProviders([&] { afterwards = true; });
    EXPECT_TRUE(pumpUntil([&] { return afterwards; }));
    EXPECT_NE(providerNamed("added"), nullptr);
}

} // namespace
} // namespace brimvale::testing

namespace brimvale::testing {
namespace {

class ConnectHooksTest : public CoordinatorTest {};

TEST_F(ConnectHooksTest, ASignInThatCannotRunShowsAnErrorAndCancellingSetupGoesIdle) {
    // The configuration holds "photos" as a memory remote, but the sidebar row says alias: the
    // reconnect refuses the mismatch instead of retyping the account.
    sandbox.addRemote("photos", "memory");
    auto photos = script("photos", "alias");
    makeViewModel();
    refresh();
    viewModel->selectProvider(providerNamed("photos"));
    ASSERT_TRUE(photos->waitForScans(1));
    viewModel->cancelScan();
    bool finished = false;
    bool succeeded = true;
    viewModel->beginReconnect(providerNamed("photos"), [&](bool ok) {
        finished = true;
        succeeded = ok;
    });
    EXPECT_TRUE(viewModel->isGuidedConnectRunning());
    EXPECT_EQ(paneCase("photos"), Case::needsSetup);
    ASSERT_TRUE(pumpUntil([&] { return finished; }));
    EXPECT_FALSE(succeeded);
    EXPECT_FALSE(viewModel->isGuidedConnectRunning());
    ASSERT_EQ(paneCase("photos"), Case::error);
    EXPECT_TRUE(viewModel->state().as<ScannerState::Error>()->info.canReconnect);
    EXPECT_NE(readFile(sandbox.configPath()).find("type = memory"), std::string::npos);

    viewModel->cancelSetup(providerNamed("photos"));
    EXPECT_EQ(paneCase("photos"), Case::idle);
    EXPECT_FALSE(viewModel->showWebConfigSheet());
}

TEST_F(ConnectHooksTest, ASignInReplacedByAnotherFlowNoLongerCountsAsRunning) {
    // rclone's guided set-up of a Drive account waits at its sign-in address (offline).
    sandbox.addRemote("gd", "drive");
    makeViewModel();
    refresh();
    bool finished = false;
    bool succeeded = true;
    viewModel->beginGuidedConnect(providerNamed("gd"), [&](bool ok) {
        finished = true;
        succeeded = ok;
    });
    ASSERT_TRUE(pumpUntil([&] { return viewModel->mainFlowSignInURL().has_value(); }));
    EXPECT_TRUE(viewModel->isGuidedConnectRunning());

    // The user turns to adding another account, which signs in through rclone too.
    viewModel->beginAddAccount();
    viewModel->runAddAccountGuidedFlow("gd2", "drive");
    ASSERT_TRUE(pumpUntil([&] { return finished; }));
    EXPECT_FALSE(succeeded);
    EXPECT_FALSE(viewModel->isGuidedConnectRunning()) << "the account could never connect again";
    viewModel->cancelAddAccount();

    // It can be connected again.
    finished = false;
    viewModel->beginGuidedConnect(providerNamed("gd"), [&](bool) { finished = true; });
    EXPECT_TRUE(viewModel->isGuidedConnectRunning());
    ASSERT_TRUE(pumpUntil([&] { return viewModel->mainFlowSignInURL().has_value(); }));
    viewModel->cancelSetup(providerNamed("gd"));
    ASSERT_TRUE(pumpUntil([&] { return finished; }));
    EXPECT_FALSE(viewModel->isGuidedConnectRunning());
}

TEST_F(ConnectHooksTest, TheAddAccountSheetProposesFreeNamesRefusesBadFormsAndKeepsASavedOne) {
    sandbox.addRemote("sftp", "sftp", {{"host", "h"}});
    makeViewModel();
    refresh();
    viewModel->beginAddAccount();
    EXPECT_TRUE(viewModel->isPresentingAddAccount());
    viewModel->addAccountPickService(
        {.rcloneType = "sftp", .displayName = "SFTP", .defaultRemoteName = "sftp"});
    EXPECT_EQ(viewModel->addAccountPendingRemoteName(), "sftp_2");
    EXPECT_EQ(viewModel->addAccountPendingNativeKind(), NativeCredentialOnboardingKind::sftp());

    // A refused form says why and writes nothing.
    bool finished = false;
    bool succeeded = true;
    viewModel->applySFTPNativeCredentials("sftp_2", {.host = "", .user = "u"}, [&](bool ok) {
        finished = true;
        succeeded = ok;
    });
    ASSERT_TRUE(pumpUntil([&] { return finished; }));
    EXPECT_FALSE(succeeded);
    ASSERT_TRUE(viewModel->addAccountError().has_value());
    EXPECT_EQ(readFile(sandbox.configPath()).find("[sftp_2]"), std::string::npos);

    // A taken or malformed name is refused before rclone runs.
    viewModel->applySFTPNativeCredentials("sftp", {.host = "h", .user = "u"});
    EXPECT_NE(viewModel->addAccountError()->find("already exists"), std::string::npos);
    viewModel->applySFTPNativeCredentials("-x", {.host = "h", .user = "u"});
    EXPECT_NE(viewModel->addAccountError()->find("not starting with"), std::string::npos);

    finished = false;
    viewModel->applySFTPNativeCredentials(
        "sftp_2", {.host = "127.0.0.1", .user = "u", .password = "p"}, [&](bool ok) {
            finished = true;
            succeeded = ok;
        });
    ASSERT_TRUE(pumpUntil([&] { return finished; }));
    EXPECT_TRUE(succeeded) << viewModel->addAccountError().value_or("");
    EXPECT_TRUE(viewModel->configuredRemoteNames().contains("sftp_2"));
    viewModel->cancelAddAccount();
    EXPECT_FALSE(viewModel->isPresentingAddAccount());
    EXPECT_FALSE(viewModel->addAccountPendingRemoteName().has_value());
    ASSERT_TRUE(pumpUntil([&] { return !viewModel->hasBackgroundWork(); }));
    EXPECT_TRUE(viewModel->configuredRemoteNames().contains("sftp_2"))
        << "a saved form is not undone by closing the sheet";
}

// The forms made from rclone's description of a backend write what they were given, secrets
// obscured; a WebDAV account added so against a real server scans.
TEST_F(ConnectHooksTest, GeneratedFormsWriteTheirRemotesAndAWebdavOneScans) {
    const std::filesystem::path served = sandbox.folder().path() / "served";
    std::filesystem::create_directories(served / "docs");
    writeFile(served / "docs" / "a.txt", std::string(3000, 'a'));
    writeFile(served / "b.bin", std::string(5000, 'b'));
    const auto server = startWebdavServer(sandbox, served, {"--user", "u", "--pass", "pw"});
    makeViewModel();
    refresh();
    viewModel->beginAddAccount();
    ASSERT_TRUE(pumpUntil([this] { return viewModel->rcloneBackends() != nullptr; }));

    const auto add = [this](const std::string& name, const std::string& type,
                            std::vector<std::pair<std::string, std::string>> values) {
        bool finished = false;
        bool succeeded = false;
        viewModel->applyBackendOptions(name, type, std::move(values), [&](bool ok) {
            finished = true;
            succeeded = ok;
        });
        EXPECT_TRUE(pumpUntil([&] { return finished; }, std::chrono::seconds(30)));
        return succeeded;
    };
    const std::string url = "http://127.0.0.1:" + std::to_string(server.port) + "/";
    ASSERT_TRUE(
        add("dav", "webdav", {{"url", url}, {"vendor", "other"}, {"user", "u"}, {"pass", "pw"}}))
        << viewModel->addAccountError().value_or("");
    EXPECT_FALSE(viewModel->isPresentingAddAccount()) << "the sheet closes";
    ASSERT_TRUE(add("nas", "smb", {{"host", "nas.local"}, {"user", "ann"}, {"pass", "smbpw"}}));
    ASSERT_TRUE(add("backup", "b2", {{"account", "0012ab"}, {"key", "K001secret"}}));
    const RcloneConfigDump dump = configDump(sandbox);
    EXPECT_EQ(dump.at("dav"), (RemoteConfigSection{{"type", "webdav"},
                                                   {"url", url},
                                                   {"vendor", "other"},
                                                   {"user", "u"},
                                                   {"pass", dump.at("dav").at("pass")}}));
    EXPECT_EQ(revealed(sandbox, dump.at("dav").at("pass")), "pw");
    EXPECT_EQ(dump.at("nas").at("type"), "smb");
    EXPECT_EQ(dump.at("nas").at("host"), "nas.local");
    EXPECT_EQ(revealed(sandbox, dump.at("nas").at("pass")), "smbpw");
    EXPECT_EQ(dump.at("backup"),
              (RemoteConfigSection{{"type", "b2"}, {"account", "0012ab"}, {"key", "K001secret"}}))
        << "B2's key is not a password option: rclone keeps it as typed";
    const std::string log = readFile(sandbox.folder().path() / "rclone.log");
    EXPECT_EQ(log.find("smbpw"), std::string::npos);

    // Refused by rclone: its reason, and nothing left behind.
    EXPECT_FALSE(add("odd", "nosuchbackend", {{"pass", "x"}}));
    EXPECT_TRUE(viewModel->addAccountError().has_value());
    EXPECT_FALSE(configDump(sandbox).contains("odd"));

    refresh();
    viewModel->selectProvider(providerNamed("dav"));
    ASSERT_TRUE(pumpUntil([this] { return viewModel->state().is<ScannerState::Done>(); },
                          std::chrono::seconds(30)));
    const auto* done = viewModel->state().as<ScannerState::Done>();
    EXPECT_EQ(done->root->size(), 8000);
    EXPECT_EQ(done->root->children().size(), 2u);
}

} // namespace
} // namespace brimvale::testing
