// Starts, supersedes, stops and removes accounts in a random order (the seed is printed on a
// failure; BRIMVALE_STRESS_SEED replays one) and checks after every step what must always hold:
// at most one scan per account that has not been told to stop, the shown state is the active
// account's own, and once the writer is idle every saved scan is the tree its pane shows.
#include "core/persistence/cache/CacheRecord.h"
#include "tests/coordinator/CoordinatorTestSupport.h"
#include "tests/support/TreeBuilders.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

namespace brimvale::testing {
namespace {

using Case = ScannerState::Case;

std::int64_t nodeCount(const FileNode& root) {
    std::int64_t count = 1;
    for (const auto& child : root.children()) {
        count += nodeCount(*child);
    }
    return count;
}

class AccountRunsStressTest : public CoordinatorTest {
protected:
    const std::vector<std::string> names{"alpha", "beta", "gamma"};

    void SetUp() override {
        for (const auto& name : names) {
            sandbox.addRemote(name, "alias", {{"remote", "/nonexistent"}});
            script(name);
        }
        makeViewModel();
        refresh();
    }

    // A tree of its own for step `step`: sizes and counts tell trees apart.
    static FileNodeRef treeFor(const std::string& name, int step) {
        std::vector<FileNodeRef> files;
        for (int i = 0; i <= step % 5; ++i) {
            files.push_back(file("f" + std::to_string(i), 1000 + step));
        }
        auto root = folder(name, {folder("sub", std::move(files)), file("top", step)});
        root->relinkDescendantParentPointers();
        root->propagateSizes();
        return root;
    }

    std::optional<DecodedScan> savedScan(const std::string& stem) const {
        std::ifstream in(cacheFolder / (stem + ".cache"), std::ios::binary);
        if (!in) {
            return std::nullopt;
        }
        const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(in),
                                              std::istreambuf_iterator<char>()};
        return decodeCacheRecord(bytes);
    }

    void rescan(const std::string& name) {
        auto& account = *scripted.at(name);
        const int before = account.scansStarted();
        viewModel->openAccount(providerNamed(name), {.rescan = true});
        ASSERT_TRUE(account.waitForScans(before + 1));
        ASSERT_TRUE(pumpUntil([&] { return paneCase(name) == Case::scanning; }));
    }

    void checkInvariants() {
        ASSERT_TRUE(viewModel->waitForSavedScans(std::chrono::seconds(30)));
        queue.runUntilIdle();
        for (const auto& name : names) {
            SCOPED_TRACE(name);
            EXPECT_LE(scripted.at(name)->runningUnstopped(), 1);
            const ScannerState pane = viewModel->paneState(name);
            const auto* done = pane.as<ScannerState::Done>();
            if (done == nullptr || done->saveFailure) {
                continue;
            }
            const auto saved = savedScan(name);
            ASSERT_TRUE(saved) << "a finished tree on the pane was never saved";
            EXPECT_EQ(saved->root->size(), done->root->size());
            EXPECT_EQ(nodeCount(*saved->root), nodeCount(*done->root));
            EXPECT_EQ(saved->partial, done->partial);
        }
        if (const auto& active = viewModel->activeProvider()) {
            const ScannerState pane = viewModel->paneState(active->remoteID());
            EXPECT_EQ(viewModel->state().kind(), pane.kind());
            EXPECT_EQ(viewModel->state().shownTree(), pane.shownTree());
        }
    }
};

TEST_F(AccountRunsStressTest, RandomStartsSupersedesStopsAndRemovalsKeepTheInvariants) {
    const char* fixed = std::getenv("BRIMVALE_STRESS_SEED");
    const unsigned seed = fixed != nullptr ? static_cast<unsigned>(std::strtoul(fixed, nullptr, 10))
                                           : std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed) + " (BRIMVALE_STRESS_SEED replays it)");
    std::mt19937 random(seed);
    const auto pick = [&](int count) {
        return std::uniform_int_distribution<int>(0, count - 1)(random);
    };
    std::set<std::string> removed;
    for (int step = 0; step < 2500 && !HasFatalFailure(); ++step) {
        const std::string name = names[static_cast<std::size_t>(pick(3))];
        auto& account = *scripted.at(name);
        SCOPED_TRACE("step " + std::to_string(step) + " on " + name);
        if (removed.contains(name)) {
            // Back under the same name: a new account with nothing of the old one.
            sandbox.addRemote(name, "alias", {{"remote", "/nonexistent"}});
            refresh();
            removed.erase(name);
            EXPECT_EQ(paneCase(name), Case::idle);
            EXPECT_FALSE(std::filesystem::exists(cacheFolder / (name + ".cache")));
            continue;
        }
        const bool scanning = paneCase(name) == Case::scanning;
        switch (pick(scanning ? 7 : 2)) {
        case 0: // a start, superseding whatever ran
            rescan(name);
            break;
        case 1: { // the result comes in and a new run supersedes it before it is applied
            if (!scanning) {
                rescan(name);
                break;
            }
            const auto late = treeFor(name, step);
            account.push(ScriptedProvider::Finish{late});
            rescan(name);
            queue.runUntilIdle();
            EXPECT_NE(viewModel->paneState(name).shownTree(), late) << "a superseded result shown";
            break;
        }
        case 2: // a partial tree
        case 3: {
            account.push(ScriptedProvider::PartialTree{treeFor(name, step)});
            // The scan hands its tree over on the main queue and waits for it.
            ASSERT_TRUE(pumpUntil(
                [&] { return account.waitUntilDrained(std::chrono::milliseconds(0)); }));
            queue.runUntilIdle();
            advanceClock(pick(200));
            break;
        }
        case 4: { // the scan finishes
            const auto result = treeFor(name, step);
            account.push(ScriptedProvider::Finish{result});
            ASSERT_TRUE(pumpUntil([&] { return paneCase(name) == Case::done; }));
            EXPECT_EQ(viewModel->paneState(name).shownTree(), result);
            break;
        }
        case 5: // Stop
            viewModel->selectProvider(providerNamed(name));
            viewModel->cancelScan();
            ASSERT_TRUE(pumpUntil(
                [&] { return paneCase(name) == Case::done || paneCase(name) == Case::idle; }));
            break;
        case 6: { // Remove Account, now and then
            if (pick(20) != 0) {
                break;
            }
            bool finished = false;
            viewModel->removeAccount(providerNamed(name), [&finished] { finished = true; });
            ASSERT_TRUE(pumpUntil([&] { return finished; }));
            // Its rclone remote is gone; the row stays away until it is added again.
            EXPECT_EQ(providerNamed(name), nullptr);
            EXPECT_EQ(viewModel->paneState(name).kind(), Case::idle);
            removed.insert(name);
            break;
        }
        }
        checkInvariants();
        for (const auto& gone : removed) {
            EXPECT_FALSE(std::filesystem::exists(cacheFolder / (gone + ".cache")))
                << gone << ": a removed account's scan came back";
        }
    }
    // Every scan still running ends, so the coordinator's destructor has nothing to wait for.
    for (const auto& name : names) {
        scripted.at(name)->push(ScriptedProvider::Finish{treeFor(name, 0)});
    }
}

} // namespace
} // namespace brimvale::testing
