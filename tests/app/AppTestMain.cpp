#include <QApplication>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

// The widget tests run on Qt's offscreen platform unless BRIMVALE_TEST_PLATFORM names another
// (the end-to-end run on Xvfb uses "xcb"), so they need no display.
namespace {

QtMessageHandler standardHandler = nullptr;

// The offscreen platform warns about window features it lacks; the rest is shown.
void filterPlatformNoise(QtMsgType type, const QMessageLogContext& context, const QString& text) {
    if (text.startsWith("This plugin does not support")) {
        return;
    }
    if (standardHandler != nullptr) {
        standardHandler(type, context, text);
    }
}

} // namespace

int main(int argc, char** argv) {
    const char* platform = std::getenv("BRIMVALE_TEST_PLATFORM");
    std::string chosen = platform != nullptr ? platform : "offscreen";
    std::string config;
    if (chosen == "offscreen") {
        // A screen of a common desktop size (the platform's own is 800 x 600, smaller than the
        // main window's default size, which the window would shrink to fit).
        config = (std::filesystem::temp_directory_path() /
                  ("brimvale-offscreen-" + std::to_string(::getpid()) + ".json"))
                     .string();
        std::ofstream(config) << R"({"screens": [{"name": "screen", "x": 0, "y": 0, )"
                              << R"("width": 1920, "height": 1200, "logicalDpi": 96}]})";
        chosen += ":configfile=" + config;
    }
    setenv("QT_QPA_PLATFORM", chosen.c_str(), 1);
    // Fixed fonts and scale, so sizes measured by the tests do not depend on the desktop; a run
    // at another scale names it in BRIMVALE_TEST_SCALE.
    const char* scale = std::getenv("BRIMVALE_TEST_SCALE");
    setenv("QT_SCALE_FACTOR", scale != nullptr ? scale : "1", 1);
    setenv("LANG", "en_US.UTF-8", 0);
    ::testing::InitGoogleTest(&argc, argv);
    standardHandler = qInstallMessageHandler(filterPlatformNoise);
    QApplication application(argc, argv);
    const int status = RUN_ALL_TESTS();
    if (!config.empty()) {
        // Kept to the end: the application programs the tests start read it too.
        std::filesystem::remove(config);
    }
    return status;
}
