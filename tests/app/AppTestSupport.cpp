#include "tests/app/AppTestSupport.h"

#include "app/support/ExternalOpen.h"
#include "core/persistence/settings/ScanUISettings.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QThread>

namespace brimvale::testing {

bool pumpUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (std::chrono::steady_clock::now() < deadline) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        if (condition()) {
            return true;
        }
        QThread::msleep(1);
    }
    QCoreApplication::processEvents();
    return condition();
}

void pumpFor(std::chrono::milliseconds duration) {
    const auto deadline = std::chrono::steady_clock::now() + duration;
    while (std::chrono::steady_clock::now() < deadline) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        QThread::msleep(1);
    }
}

FileNodeRef finished(FileNodeRef root) {
    root->relinkDescendantParentPointers();
    root->propagateSizes();
    root->sortChildren();
    return root;
}

FileNodeRef folderOfFiles(const std::string& name, const std::vector<std::int64_t>& sizes,
                          const std::string& prefix) {
    std::vector<FileNodeRef> children;
    for (std::size_t index = 0; index < sizes.size(); ++index) {
        const std::string childName = prefix + std::to_string(index);
        children.push_back(FileNode::make(
            {.name = childName, .path = name + "/" + childName, .size = sizes[index]}));
    }
    return finished(FileNode::make(
        {.name = name, .path = name, .isDirectory = true, .children = std::move(children)}));
}

OpenedURLs::OpenedURLs() {
    ExternalOpen::setOpener([this](const QUrl& url) {
        urls.push_back(url);
        return true;
    });
}

OpenedURLs::~OpenedURLs() {
    ExternalOpen::setOpener(nullptr);
}

AppTest::AppTest()
    : previousLiveTree_(ScanUISettings::liveTreeDuringScan.exchange(true)) {}

AppTest::~AppTest() {
    if (viewModel) {
        viewModel->cancelAllWork();
        pumpUntil([this] { return !viewModel->hasBackgroundWork(); }, std::chrono::seconds(10));
        viewModel->waitForSavedScans(std::chrono::seconds(10));
        viewModel.reset();
    }
    QCoreApplication::processEvents();
    ScanUISettings::liveTreeDuringScan = previousLiveTree_;
}

void AppTest::makeViewModel() {
    viewModel = std::make_unique<ScannerViewModel>(ScannerViewModelOptions{
        .mainQueue = &queue,
        .settings = settings,
        .cacheDirectory = cacheFolder.path().string(),
        .runner = sandbox.realRunner(),
        .providerFactory = [this](const AccountEntry& entry) -> ProviderRef {
            const auto found = scripted.find(entry.remoteName);
            return found == scripted.end() ? nullptr : found->second;
        }});
}

void AppTest::refresh() {
    bool done = false;
    viewModel->refreshProviders([&done] { done = true; });
    ASSERT_TRUE(pumpUntil([&done] { return done; }));
}

std::shared_ptr<ScriptedProvider> AppTest::script(const std::string& remoteID,
                                                  const std::string& type) {
    auto provider = std::make_shared<ScriptedProvider>(remoteID, type);
    scripted[remoteID] = provider;
    sandbox.addRemote(remoteID, type,
                      type == "alias"
                          ? std::map<std::string, std::string>{{"remote", "/nonexistent"}}
                          : std::map<std::string, std::string>{});
    return provider;
}

ProviderRef AppTest::providerNamed(const std::string& remoteID) const {
    return viewModel->provider(remoteID);
}

QPalette darkPalette(const QColor& placeholderText, const QColor& highlight) {
    QPalette palette;
    palette.setColor(QPalette::Window, QColor(0x2b, 0x2b, 0x2d));
    palette.setColor(QPalette::WindowText, QColor(0xe8, 0xe8, 0xea));
    palette.setColor(QPalette::Base, QColor(0x1e, 0x1e, 0x20));
    palette.setColor(QPalette::AlternateBase, QColor(0x26, 0x26, 0x28));
    palette.setColor(QPalette::Text, QColor(0xe8, 0xe8, 0xea));
    palette.setColor(QPalette::PlaceholderText, placeholderText);
    palette.setColor(QPalette::Button, QColor(0x3a, 0x3a, 0x3d));
    palette.setColor(QPalette::ButtonText, QColor(0xe8, 0xe8, 0xea));
    palette.setColor(QPalette::Highlight, highlight);
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::Mid, QColor(0x4a, 0x4a, 0x4e));
    palette.setColor(QPalette::ToolTipBase, QColor(0x3a, 0x3a, 0x3d));
    palette.setColor(QPalette::ToolTipText, QColor(0xe8, 0xe8, 0xea));
    return palette;
}

} // namespace brimvale::testing
