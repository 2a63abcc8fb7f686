#pragma once

#include "core/coordinator/ScannerViewModel.h"
#include "core/persistence/settings/ScanUISettings.h"
#include "core/support/InMemorySettingsStore.h"
#include "core/support/ManualMainQueue.h"
#include "tests/coordinator/ScriptedProvider.h"
#include "tests/rclone/RcloneTestSupport.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>

namespace brimvale::testing {

// Every change notification, in order.
class RecordingObserver final : public ScannerViewModelObserver {
public:
    void publishedFieldChanged(PublishedField field) override { fields.push_back(field); }
    int count(PublishedField field) const {
        return static_cast<int>(std::count(fields.begin(), fields.end(), field));
    }
    std::vector<PublishedField> fields;
};

// A coordinator on a hand-pumped main queue, with its own rclone configuration, settings,
// cache folder and clock. Accounts named in `scripted` get scripted providers.
class CoordinatorTest : public ::testing::Test {
protected:
    using Clock = std::chrono::steady_clock;

    CoordinatorTest();
    ~CoordinatorTest() override;

    void makeViewModel(std::optional<RcloneRunner> runner = std::nullopt);
    // Pumps the main queue until `condition` holds; false after `timeout`.
    bool pumpUntil(const std::function<bool()>& condition,
                   std::chrono::milliseconds timeout = std::chrono::seconds(20));
    // refreshProviders, pumped to its end.
    void refresh();
    std::shared_ptr<ScriptedProvider> script(const std::string& remoteID,
                                             const std::string& type = "alias");
    ProviderRef providerNamed(const std::string& remoteID) const;
    ScannerState::Case paneCase(const std::string& remoteID) const;
    // A small finished tree whose root is named `name`.
    static FileNodeRef tree(const std::string& name, std::int64_t fileSize);
    void advanceClock(double seconds);

    RcloneSandbox sandbox;
    TemporaryFolder cacheFolder;
    ManualMainQueue queue;
    std::shared_ptr<InMemorySettingsStore> settings = std::make_shared<InMemorySettingsStore>();
    std::map<std::string, std::shared_ptr<ScriptedProvider>> scripted;
    Clock::time_point fakeNow = Clock::time_point{} + std::chrono::hours(1);
    std::unique_ptr<ScannerViewModel> viewModel;
    RecordingObserver observer;

private:
    bool previousLiveTree_;
};

} // namespace brimvale::testing
