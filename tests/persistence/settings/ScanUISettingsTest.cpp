#include "core/persistence/settings/ScanUISettings.h"

#include "core/persistence/settings/SettingsKeys.h"

#include <gtest/gtest.h>

namespace brimvale {
namespace {

TEST(ScanUISettings, LiveRefreshIntervalSteps) {
    using ScanUISettings::adaptiveLiveRefreshInterval;
    EXPECT_DOUBLE_EQ(adaptiveLiveRefreshInterval(-1), 0.12);
    EXPECT_DOUBLE_EQ(adaptiveLiveRefreshInterval(0), 0.12);
    EXPECT_DOUBLE_EQ(adaptiveLiveRefreshInterval(24'999), 0.12);
    EXPECT_DOUBLE_EQ(adaptiveLiveRefreshInterval(25'000), 0.22);
    EXPECT_DOUBLE_EQ(adaptiveLiveRefreshInterval(99'999), 0.22);
    EXPECT_DOUBLE_EQ(adaptiveLiveRefreshInterval(100'000), 0.45);
    EXPECT_DOUBLE_EQ(adaptiveLiveRefreshInterval(250'000), 0.85);
    EXPECT_DOUBLE_EQ(adaptiveLiveRefreshInterval(600'000), 1.5);
    EXPECT_DOUBLE_EQ(adaptiveLiveRefreshInterval(10'000'000), 1.5);
}

TEST(ScanUISettings, CheckpointIntervalSteps) {
    using ScanUISettings::adaptiveCheckpointMinInterval;
    EXPECT_DOUBLE_EQ(adaptiveCheckpointMinInterval(-5), 30.0);
    EXPECT_DOUBLE_EQ(adaptiveCheckpointMinInterval(0), 30.0);
    EXPECT_DOUBLE_EQ(adaptiveCheckpointMinInterval(199'999), 30.0);
    EXPECT_DOUBLE_EQ(adaptiveCheckpointMinInterval(200'000), 45.0);
    EXPECT_DOUBLE_EQ(adaptiveCheckpointMinInterval(500'000), 75.0);
    EXPECT_DOUBLE_EQ(adaptiveCheckpointMinInterval(1'000'000), 120.0);
    EXPECT_DOUBLE_EQ(adaptiveCheckpointMinInterval(INT64_MAX), 120.0);
}

TEST(ScanUISettings, StepsOutsideFloorAndCeilingAreClamped) {
    const auto savedSteps = ScanUISettings::liveUIRefreshSteps;
    ScanUISettings::liveUIRefreshSteps = {{10, 0.01}, {20, 5.0}};
    EXPECT_DOUBLE_EQ(ScanUISettings::adaptiveLiveRefreshInterval(15), 0.12);
    EXPECT_DOUBLE_EQ(ScanUISettings::adaptiveLiveRefreshInterval(25), 2.0);
    ScanUISettings::liveUIRefreshSteps = savedSteps;
}

TEST(SettingsKeys, PerAccountKeysEndInTheAccountID) {
    EXPECT_EQ(SettingsKeys::localScanPath("local1"), "Brimvale.localScanPath.v1.local1");
    EXPECT_EQ(SettingsKeys::gcsScanBucket("g"), "Brimvale.gcsScanBucket.g");
    EXPECT_EQ(SettingsKeys::s3ObjectPrefix("s3.work"), "Brimvale.objectPrefix.s3.s3.work");
    EXPECT_EQ(SettingsKeys::azureObjectPrefix("az"), "Brimvale.objectPrefix.azure.az");
    EXPECT_EQ(SettingsKeys::didPurgeBvUnderscoreTestRemotes,
              "Brimvale.didPurgeBvUnderscoreTestRemotes.v1");
    for (const auto& key : SettingsKeys::keysOwnedByAccount("acct")) {
        EXPECT_TRUE(key.ends_with(".acct")) << key;
    }
}

} // namespace
} // namespace brimvale
