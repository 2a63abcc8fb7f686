#include "core/persistence/cache/CacheRecord.h"
#include "core/persistence/cache/CacheSnapshot.h"
#include "core/persistence/cache/LocalScanCacheStem.h"
#include "core/persistence/cache/ScanCache.h"
#include "core/persistence/settings/SettingsKeys.h"
#include "core/rclone/BrimvaleError.h"
#include "tests/coordinator/CoordinatorTestSupport.h"
#include "tests/support/TreeBuilders.h"

#include <filesystem>

namespace brimvale::testing {
namespace {

using Case = ScannerState::Case;

class ScanRunsTest : public CoordinatorTest {
protected:
    void SetUp() override {
        sandbox.addRemote("photos", "alias", {{"remote", "/nonexistent"}});
        sandbox.addRemote("music", "alias", {{"remote", "/nonexistent"}});
        photos = script("photos");
        music = script("music");
        makeViewModel();
        refresh();
    }

    // Selects `remoteID` and plays a scan to its end with `root` as the result.
    void scanToDone(const std::string& remoteID, const std::shared_ptr<ScriptedProvider>& provider,
                    const FileNodeRef& root) {
        const int before = provider->scansStarted();
        viewModel->selectProvider(providerNamed(remoteID));
        ASSERT_TRUE(provider->waitForScans(before + 1));
        provider->push(ScriptedProvider::Finish{root});
        ASSERT_TRUE(pumpUntil([&] { return paneCase(remoteID) == Case::done; }));
    }

    bool cacheFileExists(const std::string& stem) const {
        return std::filesystem::exists(cacheFolder / (stem + ".cache"));
    }

    std::shared_ptr<ScriptedProvider> photos;
    std::shared_ptr<ScriptedProvider> music;
};

TEST_F(ScanRunsTest, FirstSelectionScansThenTheSavedScanIsLoadedAndADoneTreeIsShownWithoutIO) {
    EXPECT_TRUE(viewModel->state().is<ScannerState::Idle>());
    std::vector<Case> seen;
    viewModel->addObserver(&observer);
    viewModel->selectProvider(providerNamed("photos"));
    ASSERT_TRUE(photos->waitForScans(1));
    ASSERT_TRUE(pumpUntil([&] { return paneCase("photos") == Case::scanning; }));
    EXPECT_TRUE(viewModel->remoteIDsLoading().contains("photos"));
    const auto root = tree("photos", 1000);
    photos->push(ScriptedProvider::Finish{root});
    ASSERT_TRUE(pumpUntil([&] { return paneCase("photos") == Case::done; }));
    const auto* done = viewModel->state().as<ScannerState::Done>();
    ASSERT_NE(done, nullptr);
    EXPECT_EQ(done->root, root);
    EXPECT_TRUE(done->savedDate.has_value());
    EXPECT_FALSE(done->occupiedBytes.has_value()) << "cloud accounts report no occupied size";
    // The finished scan is written while it is shown.
    EXPECT_TRUE(viewModel->waitForSavedScans(std::chrono::seconds(20)));
    EXPECT_TRUE(cacheFileExists("photos"));
    ASSERT_TRUE(pumpUntil([&] { return viewModel->remoteIDsLoading().empty(); }));

    // Back to the account with its tree on screen: nothing is read or scanned, even with the
    // saved scan gone.
    viewModel->selectProvider(providerNamed("music"));
    std::filesystem::remove(cacheFolder / "photos.cache");
    viewModel->selectProvider(providerNamed("photos"));
    queue.runUntilIdle();
    EXPECT_EQ(viewModel->state().as<ScannerState::Done>()->root, root);
    EXPECT_EQ(photos->scansStarted(), 1);
    EXPECT_FALSE(viewModel->remoteIDsLoading().contains("photos"));
}

TEST_F(ScanRunsTest, ASavedScanIsDecodedWithProgressAndAnUnreadableOneIsScannedAgain) {
    scanToDone("photos", photos, tree("photos", 5000));
    // A new coordinator (the next start of the application) finds the saved scan.
    viewModel->removeObserver(&observer);
    viewModel.reset();
    makeViewModel();
    refresh();
    std::vector<Case> cases;
    std::vector<double> fractions;
    struct Watch : ScannerViewModelObserver {
        ScannerViewModel* vm;
        std::vector<Case>* cases;
        std::vector<double>* fractions;
        void publishedFieldChanged(PublishedField field) override {
            if (field != PublishedField::state) {
                return;
            }
            cases->push_back(vm->state().kind());
            if (const auto* loading = vm->state().as<ScannerState::LoadingCache>()) {
                fractions->push_back(loading->fraction);
            }
        }
    } watch;
    watch.vm = viewModel.get();
    watch.cases = &cases;
    watch.fractions = &fractions;
    viewModel->addObserver(&watch);
    viewModel->selectProvider(providerNamed("photos"));
    ASSERT_TRUE(pumpUntil([&] { return paneCase("photos") == Case::done; }));
    viewModel->removeObserver(&watch);
    EXPECT_EQ(photos->scansStarted(), 1) << "the saved scan is shown, not scanned again";
    // Selecting shows the account's (empty) pane first.
    std::erase(cases, Case::idle);
    ASSERT_FALSE(cases.empty());
    EXPECT_EQ(cases.front(), Case::loadingCache);
    EXPECT_EQ(cases.back(), Case::done);
    ASSERT_FALSE(fractions.empty());
    EXPECT_EQ(fractions.front(), 0.0);
    EXPECT_TRUE(std::is_sorted(fractions.begin(), fractions.end()));
    EXPECT_EQ(viewModel->state().as<ScannerState::Done>()->root->size(), 5007);

    // A damaged saved scan never leaves the pane loading: the account is scanned afresh.
    writeFile(cacheFolder / "music.cache", "bplist00 and then nothing useful");
    viewModel->selectProvider(providerNamed("music"));
    ASSERT_TRUE(music->waitForScans(1));
    ASSERT_TRUE(pumpUntil([&] { return paneCase("music") == Case::scanning; }));
    music->push(ScriptedProvider::Finish{tree("music", 3)});
    ASSERT_TRUE(pumpUntil([&] { return paneCase("music") == Case::done; }));
}

TEST_F(ScanRunsTest, ARunningScanIsNeverStartedTwiceAndOtherAccountsKeepTheirOwnPanes) {
    viewModel->selectProvider(providerNamed("photos"));
    ASSERT_TRUE(photos->waitForScans(1));
    photos->push(ScriptedProvider::Progress{{.stage = Stage::listing("a"), .filesScanned = 10}});
    ASSERT_TRUE(photos->waitUntilDrained());
    ASSERT_TRUE(pumpUntil([&] {
        const auto* scanning = viewModel->state().as<ScannerState::Scanning>();
        return scanning != nullptr && scanning->progress.filesScanned == 10;
    }));

    // Looking at another account while photos scans: photos' results land in its pane only.
    viewModel->selectProvider(providerNamed("music"));
    ASSERT_TRUE(music->waitForScans(1));
    advanceClock(10);
    photos->push(ScriptedProvider::Progress{{.stage = Stage::listing("b"), .filesScanned = 20}});
    ASSERT_TRUE(photos->waitUntilDrained());
    ASSERT_TRUE(pumpUntil([&] {
        const auto pane = viewModel->paneState("photos");
        return pane.as<ScannerState::Scanning>() &&
               pane.as<ScannerState::Scanning>()->progress.filesScanned == 20;
    }));
    EXPECT_EQ(viewModel->activeProvider()->remoteID(), "music");
    EXPECT_FALSE(viewModel->state().is<ScannerState::Scanning>() &&
                 viewModel->state().as<ScannerState::Scanning>()->progress.filesScanned == 20);

    // Selecting photos again, twice, shows its live progress and starts nothing.
    viewModel->selectProvider(providerNamed("photos"));
    viewModel->selectProvider(providerNamed("photos"));
    queue.runUntilIdle();
    ASSERT_TRUE(viewModel->state().is<ScannerState::Scanning>());
    EXPECT_EQ(viewModel->state().as<ScannerState::Scanning>()->progress.filesScanned, 20);
    EXPECT_EQ(photos->scansStarted(), 1);
    EXPECT_EQ(viewModel->remoteIDsLoading(), (std::set<std::string>{"music", "photos"}));
}

TEST_F(ScanRunsTest, LiveUpdatesAreThrottledButTheFirstProgressAndPartialTreeAlwaysArrive) {
    viewModel->selectProvider(providerNamed("photos"));
    ASSERT_TRUE(photos->waitForScans(1));
    ASSERT_TRUE(pumpUntil([&] { return paneCase("photos") == Case::scanning; }));
    const auto emitsBefore = observer.count(PublishedField::state);

    photos->push(ScriptedProvider::Progress{{.filesScanned = 1}});
    ASSERT_TRUE(photos->waitUntilDrained());
    ASSERT_TRUE(pumpUntil([&] {
        return viewModel->state().as<ScannerState::Scanning>()->progress.filesScanned == 1;
    }));
    // The clock stands still: further progress is kept but not pushed to the pane.
    photos->push(ScriptedProvider::Progress{{.filesScanned = 2}});
    const auto partial = tree("photos", 10);
    photos->push(ScriptedProvider::PartialTree{partial});
    ASSERT_TRUE(pumpUntil([&] { return photos->waitUntilDrained(std::chrono::milliseconds(1)); }));
    queue.runUntilIdle();
    EXPECT_EQ(viewModel->state().as<ScannerState::Scanning>()->progress.filesScanned, 1);
    EXPECT_EQ(viewModel->state().as<ScannerState::Scanning>()->liveRoot, nullptr);
    EXPECT_EQ(observer.count(PublishedField::state), emitsBefore + 1);

    // Once the interval has passed, the next callback carries everything kept so far.
    advanceClock(ScanUISettings::adaptiveLiveRefreshInterval(2) + 0.01);
    photos->push(ScriptedProvider::Progress{{.filesScanned = 3}});
    ASSERT_TRUE(photos->waitUntilDrained());
    ASSERT_TRUE(pumpUntil([&] {
        return viewModel->state().as<ScannerState::Scanning>()->progress.filesScanned == 3;
    }));
    EXPECT_EQ(viewModel->state().as<ScannerState::Scanning>()->liveRoot, partial);

    // A rescan's first progress is shown at once, whatever the previous run emitted.
    viewModel->rescan();
    ASSERT_TRUE(photos->waitForScans(2));
    photos->push(ScriptedProvider::Progress{{.filesScanned = 99}});
    ASSERT_TRUE(photos->waitUntilDrained());
    ASSERT_TRUE(pumpUntil([&] {
        const auto* scanning = viewModel->state().as<ScannerState::Scanning>();
        return scanning && scanning->progress.filesScanned == 99;
    }));
}

TEST_F(ScanRunsTest, ResultsOfSupersededAndCancelledRunsNeverReachThePane) {
    viewModel->selectProvider(providerNamed("photos"));
    ASSERT_TRUE(photos->waitForScans(1));
    ASSERT_TRUE(pumpUntil([&] { return paneCase("photos") == Case::scanning; }));
    const auto shown = tree("photos", 1);
    photos->push(ScriptedProvider::PartialTree{shown});
    ASSERT_TRUE(pumpUntil([&] { return photos->waitUntilDrained(std::chrono::milliseconds(1)); }));

    // The rescan seeds the new run with the tree on screen.
    photos->ignoresStop = true;
    viewModel->rescan();
    ASSERT_TRUE(photos->waitForScans(2));
    ASSERT_TRUE(pumpUntil([&] { return paneCase("photos") == Case::scanning; }));
    EXPECT_EQ(photos->seeds().at(1), shown);

    // The first run's progress is already on its way (its scan has not noticed the stop); the
    // second run has shown its first state. The late progress must not replace it.
    const auto stale = tree("stale", 666);
    photos->pushTo(0, ScriptedProvider::Progress{{.filesScanned = 500}});
    ASSERT_TRUE(pumpUntil([&] { return photos->waitUntilDrained(std::chrono::milliseconds(1)); }));
    advanceClock(100);
    queue.runUntilIdle();
    EXPECT_NE(viewModel->state().as<ScannerState::Scanning>()->progress.filesScanned, 500);
    photos->pushTo(0, ScriptedProvider::Finish{stale});
    ASSERT_TRUE(pumpUntil([&] { return photos->waitUntilDrained(std::chrono::milliseconds(1)); }));
    EXPECT_TRUE(viewModel->state().is<ScannerState::Scanning>());
    photos->ignoresStop = false;
    const auto fresh = tree("fresh", 42);
    photos->push(ScriptedProvider::Finish{fresh});
    ASSERT_TRUE(pumpUntil([&] { return paneCase("photos") == Case::done; }));
    EXPECT_EQ(viewModel->state().as<ScannerState::Done>()->root, fresh);
    ASSERT_TRUE(pumpUntil([&] { return viewModel->remoteIDsLoading().empty(); }));

    // Cancel before anything was listed: the pane goes idle and a result arriving afterwards is
    // dropped.
    viewModel->rescan();
    ASSERT_TRUE(photos->waitForScans(3));
    viewModel->cancelScan();
    EXPECT_EQ(paneCase("photos"), Case::idle);
    EXPECT_TRUE(viewModel->remoteIDsLoading().empty());
    photos->push(ScriptedProvider::Finish{stale});
    queue.runUntilIdle();
    ASSERT_TRUE(pumpUntil([&] { return !viewModel->hasBackgroundWork(); }));
    EXPECT_EQ(paneCase("photos"), Case::idle);
}

TEST_F(ScanRunsTest, CancellingKeepsThePartialTreeWhichTheNextSelectionShowsAsSaved) {
    viewModel->selectProvider(providerNamed("photos"));
    ASSERT_TRUE(photos->waitForScans(1));
    // The first partial tree is checkpointed at once; the second only by the stop.
    auto early = folder("photos", {file("half.bin", 300)});
    early->relinkDescendantParentPointers();
    early->propagateSizes();
    photos->push(ScriptedProvider::PartialTree{early});
    ASSERT_TRUE(pumpUntil([&] { return photos->waitUntilDrained(std::chrono::milliseconds(1)); }));
    ASSERT_TRUE(viewModel->waitForSavedScans(std::chrono::seconds(10)));
    ASSERT_TRUE(cacheFileExists("photos"));
    auto partial = folder("photos", {file("half.bin", 300), file("other.bin", 200)});
    partial->relinkDescendantParentPointers();
    partial->propagateSizes();
    photos->push(ScriptedProvider::PartialTree{partial});
    ASSERT_TRUE(pumpUntil([&] { return photos->waitUntilDrained(std::chrono::milliseconds(1)); }));
    viewModel->cancelScan();
    EXPECT_NE(paneCase("photos"), Case::idle) << "the stopped scan's tree is shown";
    EXPECT_TRUE(viewModel->remoteIDsLoading().empty());

    // Selected again at once: the tree the stop saved, never the older checkpoint.
    viewModel->selectProvider(providerNamed("photos"));
    ASSERT_TRUE(pumpUntil([&] { return paneCase("photos") == Case::done; }));
    const auto* done = viewModel->state().as<ScannerState::Done>();
    EXPECT_EQ(done->root->size(), 500);
    EXPECT_EQ(childNames(*done->root), (std::vector<std::string>{"half.bin", "other.bin"}));
    EXPECT_TRUE(done->partial);
    EXPECT_EQ(photos->scansStarted(), 1);

    // Rescanning to the end replaces the partial tree with a whole one.
    viewModel->rescan();
    ASSERT_TRUE(photos->waitForScans(2));
    auto whole = folder("photos", {file("half.bin", 300), file("other.bin", 200)});
    photos->push(ScriptedProvider::Finish{whole});
    ASSERT_TRUE(pumpUntil([&] { return paneCase("photos") == Case::done; }));
    EXPECT_FALSE(viewModel->state().as<ScannerState::Done>()->partial);

    // Stop keeps the partial tree on screen, sorted, with its sizes, marked partial.
    viewModel->rescan();
    ASSERT_TRUE(photos->waitForScans(3));
    auto third = folder("photos", {file("small.bin", 1), file("large.bin", 900)});
    third->relinkDescendantParentPointers();
    third->propagateSizes();
    photos->push(ScriptedProvider::PartialTree{third});
    ASSERT_TRUE(pumpUntil([&] { return photos->waitUntilDrained(std::chrono::milliseconds(1)); }));
    viewModel->cancelScan();
    ASSERT_TRUE(pumpUntil([&] { return paneCase("photos") == Case::done; }));
    const auto* stopped = viewModel->state().as<ScannerState::Done>();
    EXPECT_TRUE(stopped->partial);
    EXPECT_EQ(stopped->root->size(), 901);
    EXPECT_EQ(childNames(*stopped->root), (std::vector<std::string>{"large.bin", "small.bin"}));
    EXPECT_NE(stopped->root, third) << "the live tree itself may still be merged into";
    EXPECT_EQ(photos->scansStarted(), 3);
}

TEST_F(ScanRunsTest, DestroyingTheCoordinatorMidScanEndsEverythingAndKeepsTheStoppedTree) {
    // Quitting while a scan streams partial trees and progress: the tasks end before anything
    // they use goes, jobs they posted meanwhile do nothing, and the stopped tree is saved.
    for (int round = 0; round < 5; ++round) {
        if (!viewModel) {
            makeViewModel();
            refresh();
        }
        viewModel->selectProvider(providerNamed("photos"));
        ASSERT_TRUE(photos->waitForScans(round + 1));
        auto partial = folder("photos", {file("a.bin", 10 + round)});
        partial->relinkDescendantParentPointers();
        partial->propagateSizes();
        photos->push(ScriptedProvider::PartialTree{partial});
        for (int step = 0; step < 50; ++step) {
            photos->push(ScriptedProvider::Progress{ScanProgress{}});
        }
        ASSERT_TRUE(
            pumpUntil([&] { return photos->waitUntilDrained(std::chrono::milliseconds(1)); }));
        for (int step = 0; step < 50; ++step) {
            photos->push(ScriptedProvider::Progress{ScanProgress{}});
        }
        viewModel->cancelAllWork();
        viewModel.reset();
        queue.runUntilIdle();
        const auto saved = ScanCache(cacheFolder.path().string()).loadData("photos");
        ASSERT_TRUE(saved);
        const auto decoded = decodeCacheRecord(saved->bytes);
        ASSERT_TRUE(decoded);
        EXPECT_TRUE(decoded->partial);
        EXPECT_EQ(decoded->root->size(), 10 + round);
        std::filesystem::remove(cacheFolder / "photos.cache");
    }
}

TEST_F(ScanRunsTest, CheckpointsAreWrittenNoMoreOftenThanTheirInterval) {
    viewModel->selectProvider(providerNamed("photos"));
    ASSERT_TRUE(photos->waitForScans(1));
    const auto checkpointNodes = [&] {
        viewModel->waitForSavedScans(std::chrono::seconds(10));
        const auto bytes = readFile(cacheFolder / "photos.cache");
        const auto root = decodeCacheNode(
            std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()));
        return root ? (*root)->subtreeNodeCount() : 0;
    };
    const auto partialOf = [](int files) {
        std::vector<FileNodeRef> children;
        for (int i = 0; i < files; ++i) {
            children.push_back(file("f" + std::to_string(i), 1));
        }
        auto root = folder("photos", std::move(children));
        root->relinkDescendantParentPointers();
        return root;
    };
    // The first partial tree is checkpointed at once.
    photos->push(ScriptedProvider::PartialTree{partialOf(1)});
    ASSERT_TRUE(pumpUntil([&] { return photos->waitUntilDrained(std::chrono::milliseconds(1)); }));
    EXPECT_EQ(checkpointNodes(), 2);
    // Within the interval: no new checkpoint.
    advanceClock(ScanUISettings::adaptiveCheckpointMinInterval(0) - 1);
    photos->push(ScriptedProvider::PartialTree{partialOf(2)});
    ASSERT_TRUE(pumpUntil([&] { return photos->waitUntilDrained(std::chrono::milliseconds(1)); }));
    EXPECT_EQ(checkpointNodes(), 2);
    // After it: the newest tree is written.
    advanceClock(2);
    photos->push(ScriptedProvider::PartialTree{partialOf(3)});
    ASSERT_TRUE(pumpUntil([&] { return photos->waitUntilDrained(std::chrono::milliseconds(1)); }));
    EXPECT_EQ(checkpointNodes(), 4);
}

TEST_F(ScanRunsTest, FailuresBecomeNeedsSetupOrErrorWithTheUsersMessage) {
    music->configured = false;
    viewModel->selectProvider(providerNamed("music"));
    ASSERT_TRUE(pumpUntil([&] { return paneCase("music") == Case::needsSetup; }));
    EXPECT_EQ(viewModel->state().as<ScannerState::NeedsSetup>()->provider, providerNamed("music"));
    EXPECT_EQ(music->scansStarted(), 0);

    viewModel->selectProvider(providerNamed("photos"));
    ASSERT_TRUE(photos->waitForScans(1));
    photos->push(ScriptedProvider::Fail{std::make_exception_ptr(
        BrimvaleError::scanFailed("photos", "Failed to create file system: couldn't find "
                                            "root: token expired"))});
    ASSERT_TRUE(pumpUntil([&] { return paneCase("photos") == Case::error; }));
    // Reconnecting is offered for rclone accounts only; this one is scripted.
    EXPECT_EQ(viewModel->state().as<ScannerState::Error>()->info.message,
              "Sign-in for this account is missing or expired. Reconnect to keep using it.");
    ASSERT_TRUE(pumpUntil([&] { return viewModel->remoteIDsLoading().empty(); }));

    // Rescan from the error state goes back into the loading sequence.
    viewModel->rescan();
    ASSERT_TRUE(photos->waitForScans(2));
    ASSERT_TRUE(pumpUntil([&] { return paneCase("photos") == Case::scanning; }));
}

TEST_F(ScanRunsTest, AFolderRefreshReplacesOneSubtreeUnlessTheTreeChangedMeanwhile) {
    const auto root = tree("photos", 1000);
    scanToDone("photos", photos, root);
    ASSERT_TRUE(viewModel->waitForSavedScans(std::chrono::seconds(20)));
    viewModel->addObserver(&observer);

    // The refreshed folder grows: the root grows by as much and is re-sorted.
    viewModel->refreshFolder("photos", "/sub");
    EXPECT_TRUE(viewModel->foldersRefreshing("photos").contains("/sub"));
    ASSERT_TRUE(photos->waitForScans(2));
    EXPECT_EQ(photos->scannedPaths().at(1), "sub");
    EXPECT_EQ(paneCase("photos"), Case::done) << "the tree stays on screen meanwhile";
    auto grown = folder("sub", {file("small.txt", 7), file("new.bin", 2000)});
    grown->propagateSizes();
    photos->push(ScriptedProvider::Finish{grown});
    ASSERT_TRUE(pumpUntil([&] { return viewModel->foldersRefreshing("photos").empty(); }));
    const auto* done = viewModel->state().as<ScannerState::Done>();
    ASSERT_NE(done, nullptr);
    EXPECT_EQ(done->root, root);
    EXPECT_EQ(root->size(), 3007);
    EXPECT_EQ(root->children()[0], grown) << "the grown folder moved first";
    EXPECT_EQ(grown->parent(), root.get());
    EXPECT_DOUBLE_EQ(grown->fractionOfParent(), 2007.0 / 3007.0);
    EXPECT_GE(observer.count(PublishedField::folderRefreshes), 2);
    EXPECT_TRUE(viewModel->waitForSavedScans(std::chrono::seconds(20)));

    // A failed refresh says why and leaves the tree as it was.
    viewModel->refreshFolder("photos", "/sub");
    ASSERT_TRUE(photos->waitForScans(3));
    photos->push(ScriptedProvider::Fail{
        std::make_exception_ptr(BrimvaleError::scanFailed("Scripted photos", "connection reset"))});
    ASSERT_TRUE(pumpUntil([&] { return viewModel->foldersRefreshing("photos").empty(); }));
    ASSERT_TRUE(viewModel->folderRefreshError("photos"));
    EXPECT_NE(viewModel->folderRefreshError("photos")->find("connection reset"), std::string::npos);
    EXPECT_EQ(root->size(), 3007);

    // A rescan started while a refresh runs wins: the refresh's result is dropped.
    viewModel->refreshFolder("photos", "/sub");
    EXPECT_FALSE(viewModel->folderRefreshError("photos")) << "a new refresh clears the old error";
    ASSERT_TRUE(photos->waitForScans(4));
    viewModel->rescan();
    ASSERT_TRUE(photos->waitForScans(5));
    const auto rescanned = tree("photos", 10);
    photos->push(ScriptedProvider::Finish{rescanned});
    ASSERT_TRUE(pumpUntil([&] {
        return paneCase("photos") == Case::done &&
               viewModel->state().as<ScannerState::Done>()->root == rescanned;
    }));
    photos->pushTo(3, ScriptedProvider::Finish{folder("sub", {file("late.bin", 99999)})});
    ASSERT_TRUE(pumpUntil([&] { return viewModel->foldersRefreshing("photos").empty(); }));
    EXPECT_EQ(viewModel->state().as<ScannerState::Done>()->root, rescanned);
    EXPECT_EQ(rescanned->size(), 17);

    // Only folders of a done tree are refreshed; the root means a rescan.
    viewModel->refreshFolder("photos", "/big.bin");
    viewModel->refreshFolder("photos", "/nowhere");
    EXPECT_TRUE(viewModel->foldersRefreshing("photos").empty());
    EXPECT_EQ(photos->scansStarted(), 5);
    viewModel->refreshFolder("photos", rescanned->path());
    ASSERT_TRUE(photos->waitForScans(6));
    EXPECT_TRUE(pumpUntil([&] { return paneCase("photos") == Case::scanning; }));
    viewModel->removeObserver(&observer);
}

class LocalAccountTest : public CoordinatorTest {};

TEST_F(LocalAccountTest, TheLocalRowScansRootUnlessAPathWasChosenAndAConfiguredOneAsksFirst) {
    // The pinned local row (no remote of type local) scans "/" when nothing was chosen.
    auto pinned = script("localdisk", "local");
    pinned->occupiedBytes = 123456;
    auto configured = script("mydisk", "local");
    makeViewModel();
    refresh();
    viewModel->selectProvider(providerNamed("localdisk"));
    ASSERT_TRUE(pinned->waitForScans(1));
    EXPECT_EQ(pinned->scannedPaths().at(0), "/");
    pinned->push(ScriptedProvider::Finish{tree("", 10)});
    ASSERT_TRUE(pumpUntil([&] { return paneCase("localdisk") == Case::done; }));
    EXPECT_EQ(viewModel->state().as<ScannerState::Done>()->occupiedBytes, 123456);
    EXPECT_TRUE(viewModel->waitForSavedScans(std::chrono::seconds(20)));
    EXPECT_TRUE(std::filesystem::exists(cacheFolder / "localdisk.cache"));

    // A configured local account opens the volume picker and waits for a choice.
    sandbox.addRemote("mydisk", "local");
    refresh();
    viewModel->selectProvider(providerNamed("mydisk"));
    EXPECT_TRUE(viewModel->showLocalVolumePicker());
    EXPECT_EQ(viewModel->pendingLocalDiskPickerRemoteID(), "mydisk");
    EXPECT_EQ(configured->scansStarted(), 0);
    viewModel->cancelLocalDiskScanPicker();
    EXPECT_FALSE(viewModel->showLocalVolumePicker());
    EXPECT_EQ(paneCase("mydisk"), Case::idle);

    viewModel->selectProvider(providerNamed("mydisk"));
    viewModel->confirmLocalDiskScan("mydisk", "/srv/media");
    EXPECT_FALSE(viewModel->showLocalVolumePicker());
    EXPECT_EQ(settings->stringValue(SettingsKeys::localScanPath("mydisk")), "/srv/media");
    ASSERT_TRUE(configured->waitForScans(1));
    EXPECT_EQ(configured->scannedPaths().at(0), "/srv/media");
    configured->push(ScriptedProvider::Finish{tree("media", 10)});
    ASSERT_TRUE(pumpUntil([&] { return paneCase("mydisk") == Case::done; }));
    // Each volume of a local account has its own saved scan.
    EXPECT_TRUE(viewModel->waitForSavedScans(std::chrono::seconds(20)));
    EXPECT_TRUE(std::filesystem::exists(
        cacheFolder / ScanCache::fileNameFor(LocalScanCacheStem::stem("mydisk", "/srv/media"))));

    // Back to the account once its load has ended: the picker asks again; closing it keeps
    // the finished tree.
    ASSERT_TRUE(pumpUntil([&] { return viewModel->remoteIDsLoading().empty(); }));
    viewModel->selectProvider(providerNamed("localdisk"));
    viewModel->selectProvider(providerNamed("mydisk"));
    EXPECT_TRUE(viewModel->showLocalVolumePicker());
    viewModel->cancelLocalDiskScanPicker();
    EXPECT_EQ(paneCase("mydisk"), Case::done);
    ASSERT_TRUE(viewModel->state().is<ScannerState::Done>());
    EXPECT_EQ(viewModel->state().as<ScannerState::Done>()->root->name(), "media");
}

TEST_F(LocalAccountTest, TheRealLocalScannerRunsThroughTheCoordinatorOnAChosenFolder) {
    TemporaryFolder folder;
    std::filesystem::create_directories(folder / "open");
    makeViewModel();
    refresh();
    const auto local = providerNamed("localdisk");
    ASSERT_NE(local, nullptr);
    ASSERT_EQ(local->rcloneType(), "local");
    viewModel->openAccount(local, {.localScanPath = folder.path().string()});
    ASSERT_TRUE(pumpUntil([&] { return paneCase("localdisk") == Case::done; }));
    EXPECT_FALSE(viewModel->showFullDiskAccessAdvisory());
    EXPECT_EQ(viewModel->state().as<ScannerState::Done>()->root->children().size(), 1u);
}

} // namespace
} // namespace brimvale::testing
