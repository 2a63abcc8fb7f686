#pragma once

#include "app/bridge/QtMainQueue.h"
#include "core/coordinator/ScannerViewModel.h"
#include "core/support/InMemorySettingsStore.h"
#include "tests/coordinator/ScriptedProvider.h"
#include "tests/rclone/RcloneTestSupport.h"

#include <QColor>
#include <QPalette>
#include <QUrl>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace brimvale::testing {

// Runs the Qt event loop (the coordinator's main queue included) until `condition` holds;
// false after `timeout`.
bool pumpUntil(const std::function<bool()>& condition,
               std::chrono::milliseconds timeout = std::chrono::seconds(20));
// Runs the event loop for `duration`.
void pumpFor(std::chrono::milliseconds duration);

// A folder whose children are files of the given sizes, named by `prefix` and their position,
// sized and sorted as a finished scan leaves them.
FileNodeRef folderOfFiles(const std::string& name, const std::vector<std::int64_t>& sizes,
                          const std::string& prefix = "f");
// Rolls sizes up, links parents and sorts: what a scan does at its end.
FileNodeRef finished(FileNodeRef root);

// Records the addresses handed to the desktop instead of opening them.
class OpenedURLs {
public:
    OpenedURLs();
    ~OpenedURLs();
    std::vector<QUrl> urls;
};

// A coordinator on the Qt event loop (QtMainQueue), with its own rclone configuration,
// settings and cache folder; accounts named in `scripted` get scripted providers.
class AppTest : public ::testing::Test {
protected:
    AppTest();
    ~AppTest() override;

    void makeViewModel();
    // refreshProviders, run to its end.
    void refresh();
    std::shared_ptr<ScriptedProvider> script(const std::string& remoteID,
                                             const std::string& type = "alias");
    ProviderRef providerNamed(const std::string& remoteID) const;

    RcloneSandbox sandbox;
    TemporaryFolder cacheFolder;
    QtMainQueue queue;
    std::shared_ptr<InMemorySettingsStore> settings = std::make_shared<InMemorySettingsStore>();
    std::map<std::string, std::shared_ptr<ScriptedProvider>> scripted;
    std::unique_ptr<ScannerViewModel> viewModel;

private:
    bool previousLiveTree_;
};

// A dark desktop palette. Themes differ in their placeholder colour (which the application's
// secondary texts use) and highlight, so the tests choose those.
QPalette darkPalette(const QColor& placeholderText = QColor(0x9a, 0x9a, 0xa0),
                     const QColor& highlight = QColor(0x2f, 0x7d, 0xd1));

} // namespace brimvale::testing
