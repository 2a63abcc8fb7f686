#include <QApplication>
#include <gtest/gtest.h>

#include <cstdlib>

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
    setenv("QT_QPA_PLATFORM", platform != nullptr ? platform : "offscreen", 1);
    // Fixed fonts and scale, so sizes measured by the tests do not depend on the desktop.
    setenv("QT_SCALE_FACTOR", "1", 1);
    setenv("LANG", "en_US.UTF-8", 0);
    ::testing::InitGoogleTest(&argc, argv);
    standardHandler = qInstallMessageHandler(filterPlatformNoise);
    QApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
