#include "core/support/ScanDiagnostics.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <mutex>
#include <regex>
#include <sstream>
#include <thread>
#include <vector>

namespace brimvale {
namespace {

// Sets or clears an environment variable for one test, restoring it afterwards.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const char* value)
        : name_(name) {
        if (const char* old = std::getenv(name)) {
            old_ = old;
        }
        value ? setenv(name, value, 1) : unsetenv(name);
    }
    ~ScopedEnvironment() { old_ ? setenv(name_, old_->c_str(), 1) : unsetenv(name_); }

private:
    const char* name_;
    std::optional<std::string> old_;
};

// Collects what would go to the system log.
class CapturedSystemLog {
public:
    CapturedSystemLog() {
        previous_ = ScanDiagnostics::setSystemLogWriter(
            [this](std::string_view category, std::string_view line) {
                std::lock_guard lock(mutex_);
                lines_.push_back(std::string(category) + "|" + std::string(line));
            });
    }
    ~CapturedSystemLog() { ScanDiagnostics::setSystemLogWriter(previous_); }
    std::vector<std::string> lines() {
        std::lock_guard lock(mutex_);
        return lines_;
    }

private:
    ScanDiagnostics::SystemLogWriter previous_;
    std::mutex mutex_;
    std::vector<std::string> lines_;
};

std::string logAndCaptureStandardError(const char* message) {
    ::testing::internal::CaptureStderr();
    ScanDiagnostics::log(message);
    ScanDiagnostics::waitForPendingWrites();
    return ::testing::internal::GetCapturedStderr();
}

TEST(ScanDiagnostics, OnlyTheExactValueOneSwitchesStandardErrorOn) {
    CapturedSystemLog systemLog;
    for (const char* value : {"true", "yes", "01", "", " 1", "1 ", "2"}) {
        ScopedEnvironment environment("BRIMVALE_SCAN_DEBUG", value);
        EXPECT_FALSE(ScanDiagnostics::stdoutEnabled()) << '"' << value << '"';
        EXPECT_EQ(logAndCaptureStandardError("quiet"), "") << '"' << value << '"';
    }
    {
        ScopedEnvironment environment("BRIMVALE_SCAN_DEBUG", nullptr);
        EXPECT_FALSE(ScanDiagnostics::stdoutEnabled());
        EXPECT_EQ(logAndCaptureStandardError("unset"), "");
    }
    // With the switch off, every message still reached the system log, with its source suffix.
    const auto lines = systemLog.lines();
    ASSERT_EQ(lines.size(), 8u);
    EXPECT_TRUE(std::regex_match(
        lines.back(), std::regex(R"(Scan\|unset \xE2\x80\x94 ScanDiagnosticsTest\.cpp:\d+)")))
        << lines.back();

    ScopedEnvironment environment("BRIMVALE_SCAN_DEBUG", "1");
    EXPECT_TRUE(ScanDiagnostics::stdoutEnabled());
    const std::string line = logAndCaptureStandardError("lsjson parsed remote=gdrive");
    EXPECT_TRUE(std::regex_match(
        line,
        std::regex(
            R"(\[Scan\] \d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z lsjson parsed remote=gdrive \xE2\x80\x94 ScanDiagnosticsTest\.cpp:\d+\n)")))
        << line;
    EXPECT_EQ(systemLog.lines().size(), 9u);
}

TEST(ScanDiagnostics, LinesFromConcurrentScannersNeverInterleave) {
    CapturedSystemLog systemLog;
    ScopedEnvironment environment("BRIMVALE_SCAN_DEBUG", "1");
    ::testing::internal::CaptureStderr();
    std::vector<std::thread> scanners;
    for (int t = 0; t < 4; ++t) {
        scanners.emplace_back([t] {
            for (int i = 0; i < 200; ++i) {
                ScanDiagnostics::log("scanner " + std::to_string(t) + " message " +
                                     std::to_string(i) + std::string(200, 'x'));
            }
        });
    }
    for (auto& scanner : scanners) {
        scanner.join();
    }
    ScanDiagnostics::waitForPendingWrites();
    std::istringstream output(::testing::internal::GetCapturedStderr());
    const std::regex whole(R"(\[Scan\] \S+ scanner (\d) message (\d+)x{200} \xE2\x80\x94 \S+:\d+)");
    int lines = 0;
    int lastIndex[4] = {-1, -1, -1, -1};
    for (std::string line; std::getline(output, line);) {
        std::smatch match;
        ASSERT_TRUE(std::regex_match(line, match, whole)) << line;
        const int scanner = std::stoi(match[1]);
        const int index = std::stoi(match[2]);
        EXPECT_EQ(index,
                  lastIndex[scanner] + 1); // each scanner's lines in the order it logged them
        lastIndex[scanner] = index;
        ++lines;
    }
    EXPECT_EQ(lines, 800);
}

TEST(ScanDiagnostics, SubsystemFallsBackUntilTheApplicationNamesItself) {
    EXPECT_EQ(ScanDiagnostics::subsystem(), "BrimvaleProgressiveAppExec");
    ScanDiagnostics::setSubsystem("io.brimvale.Brimvale");
    EXPECT_EQ(ScanDiagnostics::subsystem(), "io.brimvale.Brimvale");
    ScanDiagnostics::setSubsystem("BrimvaleProgressiveAppExec");
}

} // namespace
} // namespace brimvale
