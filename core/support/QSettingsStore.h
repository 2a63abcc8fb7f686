#pragma once

#include "core/support/SettingsStore.h"

#include <memory>
#include <mutex>

class QSettings;

namespace brimvale {

// The user's settings file, shared by the desktop application and the command line:
// ~/.config/Brimvale/Brimvale.conf (INI format). Keys are stored exactly as given. Every write
// is flushed to disk at once, so the other program sees it on its next read.
class QSettingsStore final : public SettingsStore {
public:
    // The user's settings file.
    QSettingsStore();
    // A settings file at `filePath` (tests, or a profile chosen on the command line).
    explicit QSettingsStore(const std::string& filePath);
    ~QSettingsStore() override;

    static std::string defaultFilePath();
    std::string filePath() const;

    std::optional<std::string> stringValue(std::string_view key) const override;
    void setString(std::string_view key, std::string_view value) override;
    std::optional<bool> boolValue(std::string_view key) const override;
    void setBool(std::string_view key, bool value) override;
    void remove(std::string_view key) override;
    bool contains(std::string_view key) const override;
    std::vector<std::string> keys() const override;

private:
    mutable std::mutex mutex_; // QSettings objects are not safe to share between threads
    std::unique_ptr<QSettings> settings_;
};

} // namespace brimvale
