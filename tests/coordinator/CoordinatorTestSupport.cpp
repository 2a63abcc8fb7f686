#include "tests/coordinator/CoordinatorTestSupport.h"

#include "tests/support/TreeBuilders.h"

namespace brimvale::testing {

CoordinatorTest::CoordinatorTest()
    : previousLiveTree_(ScanUISettings::liveTreeDuringScan.exchange(true)) {}

CoordinatorTest::~CoordinatorTest() {
    if (viewModel) {
        viewModel->removeObserver(&observer);
        viewModel->cancelAllWork();
        // Cancelled tasks may be waiting for the main thread; let them end.
        pumpUntil([this] { return !viewModel->hasBackgroundWork(); }, std::chrono::seconds(10));
        viewModel->waitForSavedScans(std::chrono::seconds(10));
        viewModel.reset();
    }
    queue.runUntilIdle();
    ScanUISettings::liveTreeDuringScan = previousLiveTree_;
}

void CoordinatorTest::makeViewModel(std::optional<RcloneRunner> runner) {
    viewModel = std::make_unique<ScannerViewModel>(ScannerViewModelOptions{
        .mainQueue = &queue,
        .settings = settings,
        .cacheDirectory = cacheFolder.path().string(),
        .runner = runner ? std::move(*runner) : sandbox.realRunner(),
        .providerFactory = [this](const AccountEntry& entry) -> ProviderRef {
            const auto found = scripted.find(entry.remoteName);
            return found == scripted.end() ? nullptr : found->second;
        },
        .clock =
            [this] {
                return fakeNow;
            }});
    viewModel->addObserver(&observer);
}

bool CoordinatorTest::pumpUntil(const std::function<bool()>& condition,
                                std::chrono::milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    while (Clock::now() < deadline) {
        queue.runUntilIdle();
        if (condition()) {
            return true;
        }
        queue.waitAndRun(std::chrono::milliseconds(5));
    }
    queue.runUntilIdle();
    return condition();
}

void CoordinatorTest::refresh() {
    bool finished = false;
    viewModel->refreshProviders([&finished] { finished = true; });
    ASSERT_TRUE(pumpUntil([&finished] { return finished; }));
}

std::shared_ptr<ScriptedProvider> CoordinatorTest::script(const std::string& remoteID,
                                                          const std::string& type) {
    auto provider = std::make_shared<ScriptedProvider>(remoteID, type);
    scripted[remoteID] = provider;
    return provider;
}

ProviderRef CoordinatorTest::providerNamed(const std::string& remoteID) const {
    return viewModel->provider(remoteID);
}

ScannerState::Case CoordinatorTest::paneCase(const std::string& remoteID) const {
    return viewModel->paneState(remoteID).kind();
}

FileNodeRef CoordinatorTest::tree(const std::string& name, std::int64_t fileSize) {
    auto root = folder(name, {file("big.bin", fileSize), folder("sub", {file("small.txt", 7)})});
    root->relinkDescendantParentPointers();
    root->propagateSizes();
    return root;
}

void CoordinatorTest::advanceClock(double seconds) {
    fakeNow += std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

} // namespace brimvale::testing
