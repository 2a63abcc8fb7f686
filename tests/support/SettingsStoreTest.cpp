#include "core/support/InMemorySettingsStore.h"
#include "core/support/QSettingsStore.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <thread>
#include <vector>

namespace brimvale {
namespace {

// Both stores must behave the same; the file-backed one also across instances.
class SettingsStoreContract : public ::testing::TestWithParam<bool> {
protected:
    void SetUp() override {
        if (GetParam()) {
            ASSERT_TRUE(directory_.isValid());
            store_ = std::make_unique<QSettingsStore>(filePath());
        } else {
            store_ = std::make_unique<InMemorySettingsStore>();
        }
    }
    std::string filePath() const {
        return (directory_.path() + "/nested/Brimvale.conf").toStdString();
    }

    QTemporaryDir directory_;
    std::unique_ptr<SettingsStore> store_;
};

TEST_P(SettingsStoreContract, ValuesKeysAndRemoval) {
    SettingsStore& store = *store_;
    const std::string accountKey = "Brimvale.localScanPath.v1.My Drive (work) é";
    EXPECT_FALSE(store.stringValue(accountKey));
    EXPECT_FALSE(store.boolValue("Brimvale.didPurgeBvUnderscoreTestRemotes.v1"));
    EXPECT_FALSE(store.contains(accountKey));

    store.setString(accountKey, "/media/backup/Фото");
    store.setBool("Brimvale.didPurgeBvUnderscoreTestRemotes.v1", true);
    store.setString("Brimvale.empty", "");
    EXPECT_EQ(store.stringValue(accountKey), "/media/backup/Фото");
    EXPECT_EQ(store.boolValue("Brimvale.didPurgeBvUnderscoreTestRemotes.v1"), true);
    EXPECT_EQ(store.stringValue("Brimvale.empty"), "");
    EXPECT_TRUE(store.contains("Brimvale.empty"));
    EXPECT_FALSE(store.boolValue(accountKey)) << "a path is not a bool";

    store.setString(accountKey, "/second");
    EXPECT_EQ(store.stringValue(accountKey), "/second");

    auto keys = store.keys();
    std::sort(keys.begin(), keys.end());
    EXPECT_EQ(keys, (std::vector<std::string>{"Brimvale.didPurgeBvUnderscoreTestRemotes.v1",
                                              "Brimvale.empty", accountKey}));

    store.remove(accountKey);
    store.remove("Brimvale.never.set");
    EXPECT_FALSE(store.stringValue(accountKey));
    EXPECT_EQ(store.keys().size(), 2u);

    if (GetParam()) {
        // A second program (the command line beside the application) sees the same values.
        QSettingsStore reopened(filePath());
        EXPECT_EQ(reopened.boolValue("Brimvale.didPurgeBvUnderscoreTestRemotes.v1"), true);
        EXPECT_FALSE(reopened.stringValue(accountKey));
        EXPECT_EQ(reopened.filePath(), filePath());
    }
}

TEST_P(SettingsStoreContract, SafeFromManyThreads) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([this, t] {
            for (int i = 0; i < 25; ++i) {
                const std::string key = "Brimvale.k" + std::to_string(t) + "." + std::to_string(i);
                store_->setString(key, std::to_string(i));
                EXPECT_EQ(store_->stringValue(key), std::to_string(i));
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(store_->keys().size(), 100u);
}

INSTANTIATE_TEST_SUITE_P(Stores, SettingsStoreContract, ::testing::Values(false, true),
                         [](const auto& parameter) {
                             return parameter.param ? "File" : "InMemory";
                         });

} // namespace
} // namespace brimvale
