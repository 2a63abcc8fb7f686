// The desktop application's figures, on Qt's offscreen platform, one per line as
// "name: value unit":
//   gui.open_done_ms        a done state of the 1.09-million-node benchmark tree (plus a folder of
//                           100,000 files) applied, to the window painted
//   gui.key_step_p95_ms     Down in that 100,000-item column, to the window painted (95th
//                           percentile of 300 steps)
//   gui.live_scan_seconds, gui.live_scan_items, gui.event_loop_lag_p99_ms
//                           a live local scan of FOLDER (default /usr) through the window, with a
//                           10 ms heartbeat timer measuring how late the loop runs it
//   gui.peak_rss_mb         the process's peak resident memory
// Usage: gui_bench [FOLDER]

#include "DiskLikeTree.h"
#include "app/MainWindow.h"
#include "app/bridge/QtMainQueue.h"
#include "app/browser/ColumnBrowser.h"
#include "app/browser/ColumnListView.h"
#include "app/views/TreePage.h"
#include "bench/BenchMeasures.h"
#include "core/coordinator/ScannerViewModel.h"
#include "core/persistence/settings/ScanUISettings.h"
#include "core/support/InMemorySettingsStore.h"
#include "core/support/Task.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QKeyEvent>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace brimvale;
using Clock = std::chrono::steady_clock;

using brimvale::bench::millisecondsSince;

double percentile(std::vector<double> values, double fraction) {
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    const auto index = static_cast<std::size_t>(fraction * static_cast<double>(values.size() - 1));
    return values[index];
}

void pumpUntil(const std::function<bool()>& condition, std::chrono::seconds timeout) {
    const auto deadline = Clock::now() + timeout;
    while (!condition() && Clock::now() < deadline) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    }
}

// An account whose scan waits until it is stopped: it keeps the window's account active while
// the benchmark applies states of its own.
class WaitingProvider final : public CloudStorageProvider {
public:
    std::string remoteID() const override { return "bench"; }
    std::string displayName() const override { return "Benchmark tree"; }
    std::string rcloneType() const override { return "alias"; }
    bool isConfigured(std::stop_token) override { return true; }
    std::vector<FileNodeRef> listDirectory(const std::string&, std::stop_token) override {
        return {};
    }
    FileNodeRef scan(const ScanParameters& parameters) override {
        while (!parameters.stopToken.stop_requested()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        throw CancellationError();
    }
    std::optional<std::string> webURL(const FileNode&) const override { return std::nullopt; }
    std::optional<std::int64_t> totalOccupiedBytesForScanPath(const std::string&,
                                                              std::stop_token) override {
        return std::nullopt;
    }
};

FileNodeRef benchmarkTree(FileNodeRef& huge) {
    std::int64_t nodes = 0;
    FileNodeRef root = bench::buildDiskLikeTree(nodes);
    bench::Random random;
    huge = FileNode::make({.name = "Huge", .path = "/home/alexandra/Huge", .isDirectory = true});
    for (int index = 0; index < 100'000; ++index) {
        const std::string name = "item-" + std::to_string(index) + ".bin";
        huge->mutableChildren().push_back(FileNode::make({.name = name,
                                                          .path = "/home/alexandra/Huge/" + name,
                                                          .size = bench::fileSize(random)}));
    }
    root->mutableChildren().push_back(huge);
    root->relinkDescendantParentPointers();
    root->propagateSizes();
    root->sortChildren();
    return root;
}

} // namespace

int main(int argc, char** argv) {
    const std::string folder = argc > 1 ? argv[1] : "/usr";
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    const std::filesystem::path scratch =
        std::filesystem::temp_directory_path() / ("brimvale-gui-bench-" + std::to_string(getpid()));
    std::filesystem::create_directories(scratch);
    {
        std::ofstream config(scratch / "rclone.conf");
        config << "[bench]\ntype = alias\nremote = /nonexistent\n";
    }
    setenv("RCLONE_CONFIG", (scratch / "rclone.conf").c_str(), 1);
    QApplication application(argc, argv);
    ScanUISettings::liveTreeDuringScan = true;

    FileNodeRef huge;
    const FileNodeRef root = benchmarkTree(huge);
    // Kept alive past the coordinator: its detached tasks may post while they end.
    auto* queue = new QtMainQueue();
    {
        auto provider = std::make_shared<WaitingProvider>();
        ScannerViewModel viewModel(ScannerViewModelOptions{
            .mainQueue = queue,
            .settings = std::make_shared<InMemorySettingsStore>(),
            .cacheDirectory = (scratch / "cache").string(),
            .providerFactory = [provider](const AccountEntry& entry) -> ProviderRef {
                return entry.remoteName == "bench" ? provider : nullptr;
            }});
        MainWindow window(viewModel, {.refreshAccountsOnShow = false});
        window.resize(1400, 900);
        window.show();
        bool listed = false;
        viewModel.refreshProviders([&listed] { listed = true; });
        pumpUntil([&] { return listed; }, std::chrono::seconds(30));
        viewModel.selectProvider(viewModel.provider("bench"));
        pumpUntil([&] { return viewModel.state().is<ScannerState::Scanning>(); },
                  std::chrono::seconds(30));

        // The done state of a million-node tree, to the painted window.
        const auto open = Clock::now();
        viewModel.applyPaneState(ScannerState::Done{root, std::nullopt, std::nullopt}, "bench");
        window.repaint();
        std::printf("gui.open_done_ms: %.1f ms\n", millisecondsSince(open));

        // Down in the column of 100,000 items.
        ColumnBrowser* browser = window.treePage()->browser();
        browser->selectNode(0, huge);
        window.repaint();
        ColumnListView* column = browser->columnView(1);
        std::vector<double> steps;
        for (int step = 0; step < 300 && column != nullptr; ++step) {
            QKeyEvent press(QEvent::KeyPress, Qt::Key_Down, Qt::NoModifier);
            const auto start = Clock::now();
            QApplication::sendEvent(column, &press);
            window.repaint();
            steps.push_back(millisecondsSince(start));
            QCoreApplication::processEvents();
        }
        std::printf("gui.key_step_p95_ms: %.2f ms\n", percentile(steps, 0.95));

        // A live scan of a real folder through the window, with a heartbeat on the loop.
        ProviderRef local;
        for (const auto& candidate : viewModel.providers()) {
            if (candidate->rcloneType() == "local") {
                local = candidate;
            }
        }
        if (local && std::filesystem::is_directory(folder)) {
            std::vector<double> lags;
            auto last = Clock::now();
            QTimer heartbeat;
            heartbeat.setTimerType(Qt::PreciseTimer);
            heartbeat.setInterval(10);
            QObject::connect(&heartbeat, &QTimer::timeout, [&] {
                const auto now = Clock::now();
                lags.push_back(std::max(
                    0.0, std::chrono::duration<double, std::milli>(now - last).count() - 10.0));
                last = now;
            });
            const auto scanStart = Clock::now();
            viewModel.openAccount(local, {.localScanPath = folder, .rescan = true});
            last = Clock::now();
            heartbeat.start();
            pumpUntil([&] { return viewModel.state().is<ScannerState::Done>(); },
                      std::chrono::seconds(600));
            heartbeat.stop();
            const FileNodeRef scanned = viewModel.state().shownTree();
            std::printf("gui.live_scan_seconds: %.2f s\n", millisecondsSince(scanStart) / 1000.0);
            std::printf("gui.live_scan_items: %lld items\n",
                        static_cast<long long>(scanned ? scanned->subtreeNodeCount() : 0));
            std::printf("gui.event_loop_lag_p99_ms: %.1f ms\n", percentile(lags, 0.99));
        }
        std::printf("gui.peak_rss_mb: %.0f MB\n",
                    static_cast<double>(brimvale::bench::statusKilobytes("VmHWM")) / 1024.0);
        std::fflush(stdout);
        window.close();
        viewModel.cancelAllWork();
        viewModel.waitForSavedScans(std::chrono::seconds(60));
    }
    queue->close();
    std::filesystem::remove_all(scratch);
    return 0;
}
