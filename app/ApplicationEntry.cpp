#include "app/ApplicationEntry.h"

#include "app/ApplicationCommandLine.h"
#include "app/ImportedScanController.h"
#include "app/MainWindow.h"
#include "app/bridge/QtMainQueue.h"
#include "app/support/ReadableSecondaryText.h"
#include "app/support/Symbols.h"
#include "app/support/TerminationSignals.h"
#include "app/support/WidgetText.h"
#include "core/coordinator/ScannerViewModel.h"
#include "core/persistence/settings/ScanUISettings.h"
#include "core/support/QSettingsStore.h"
#include "core/support/ScanDiagnostics.h"
#include "core/support/Version.h"

#include <QApplication>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace brimvale {
namespace {

// How long quitting waits for the saves of stopped scans.
constexpr std::chrono::seconds kSaveWaitOnQuit{60};

// The folder's absolute path, made from its bytes (a QString could not hold a name that is not
// UTF-8): relative to the working folder, "." and ".." taken out, no trailing "/".
std::string absoluteFolderPath(const std::string& folder) {
    std::string absolute = std::filesystem::absolute(folder).lexically_normal().string();
    while (absolute.size() > 1 && absolute.ends_with('/')) {
        absolute.pop_back();
    }
    return absolute;
}

void scanFolderOnceAccountsAreRead(ScannerViewModel& viewModel, const std::string& folder) {
    const std::string absolute = absoluteFolderPath(folder);
    viewModel.refreshProviders([&viewModel, absolute] {
        for (const auto& provider : viewModel.providers()) {
            if (provider->rcloneType() == "local") {
                viewModel.openAccount(provider, {.localScanPath = absolute});
                return;
            }
        }
    });
}

} // namespace

int runApplication(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    ApplicationCommandLine commandLine = ApplicationCommandLine::parse(arguments);
    switch (commandLine.action) {
    case ApplicationCommandLine::Action::printHelp:
        std::fputs(ApplicationCommandLine::helpText().c_str(), stdout);
        return 0;
    case ApplicationCommandLine::Action::printVersion:
        std::fputs(ApplicationCommandLine::versionText().c_str(), stdout);
        return 0;
    case ApplicationCommandLine::Action::usageError:
        std::fprintf(stderr, "brimvale: %s\nTry 'brimvale --help' for more information.\n",
                     commandLine.error.c_str());
        return 2;
    case ApplicationCommandLine::Action::run:
        break;
    }
    // A file is a scan exported by ncdu, gdu or Brimvale, opened beside the accounts.
    std::optional<std::string> scanFile;
    std::error_code error;
    if (commandLine.folder && std::filesystem::is_regular_file(*commandLine.folder, error)) {
        scanFile = std::move(commandLine.folder);
        commandLine.folder.reset();
    }
    if (commandLine.folder && !std::filesystem::is_directory(*commandLine.folder, error)) {
        std::fprintf(stderr, "brimvale: %s is not a folder or a scan export\n",
                     commandLine.folder->c_str());
        return 1;
    }

    // Qt sees only its own options.
    std::vector<char*> toolkitArguments{argv[0]};
    std::vector<std::string> kept = commandLine.toolkitArguments;
    for (auto& argument : kept) {
        toolkitArguments.push_back(argument.data());
    }
    toolkitArguments.push_back(nullptr);
    int toolkitCount = static_cast<int>(toolkitArguments.size()) - 1;

    QApplication::setHighDpiScaleFactorRoundingPolicy(
        Qt::HighDpiScaleFactorRoundingPolicy::PassThrough);
    QApplication application(toolkitCount, toolkitArguments.data());
    QApplication::setApplicationName(QString::fromLatin1(kProductName));
    QApplication::setApplicationDisplayName(QString::fromLatin1(kProductName));
    QApplication::setApplicationVersion(QString::fromLatin1(kVersion));
    QApplication::setDesktopFileName(QStringLiteral("brimvale"));
    QApplication::setWindowIcon(Symbols::applicationIcon());
    app::keepSecondaryTextReadable(application);
    ScanDiagnostics::setSubsystem("brimvale");
    ScanUISettings::liveTreeDuringScan = true;

    int status = 0;
    // Never destroyed: tasks the coordinator detached on its way out may still post to it while
    // they end (it is closed below, so their jobs are dropped).
    static auto* mainQueue = new QtMainQueue(); // reachable to the end: not a leak
    {
        ScannerViewModel viewModel(ScannerViewModelOptions{
            .mainQueue = mainQueue, .settings = std::make_shared<QSettingsStore>()});
        MainWindow window(viewModel, {.refreshAccountsOnShow = !commandLine.folder});
        window.show();
        window.raise();
        window.activateWindow();
        if (commandLine.folder) {
            scanFolderOnceAccountsAreRead(viewModel, *commandLine.folder);
        }
        if (scanFile) {
            window.importer()->openFile(qtPathText(*scanFile));
        }
        // A logout or shutdown quits like the window's close: the partial trees below are saved.
        int quitSignal = 0;
        TerminationSignals terminationSignals;
        QObject::connect(&terminationSignals, &TerminationSignals::received, &window,
                         [&window, &quitSignal](int signalNumber) {
                             ScanDiagnostics::log("quitting on signal " +
                                                  std::to_string(signalNumber));
                             quitSignal = signalNumber;
                             window.close();
                             QApplication::quit();
                         });
        status = QApplication::exec();
        if (quitSignal != 0) {
            // What a shell reports for a program a signal ended.
            status = 128 + quitSignal;
        }
        // Running scans stop and keep their partial trees; the window is gone, so waiting here
        // blocks nothing the user sees.
        viewModel.cancelAllWork();
        if (!viewModel.waitForSavedScans(kSaveWaitOnQuit)) {
            ScanDiagnostics::log("quit before every partial tree was saved");
        }
    }
    mainQueue->close();
    return status;
}

} // namespace brimvale
