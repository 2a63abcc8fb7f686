// The real application told to end by a signal while it scans: a logout (SIGHUP), a shutdown
// (SIGTERM) or Ctrl-C in its terminal (SIGINT). It quits the ordinary way and what the scan found
// is saved, as a partial scan. The folder is an rclone mount of an SFTP server that rclone may
// ask only twenty times a second, so the scan is still running when the signal comes.
#include "core/persistence/cache/CacheRecord.h"
#include "core/rclone/ChildProcess.h"
#include "tests/rclone/RcloneTestSupport.h"
#include "tests/support/TemporaryTree.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <thread>
#include <unistd.h>

namespace brimvale {
namespace {

using namespace std::chrono_literals;

bool isMounted(const std::filesystem::path& folder) {
    std::ifstream mounts("/proc/self/mounts");
    const std::string wanted = " " + folder.string() + " ";
    for (std::string line; std::getline(mounts, line);) {
        if (line.find(wanted) != std::string::npos) {
            return true;
        }
    }
    return false;
}

std::vector<std::filesystem::path> savedScans(const std::filesystem::path& folder) {
    std::vector<std::filesystem::path> found;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
        if (entry.path().extension() == ".cache") {
            found.push_back(entry.path());
        }
    }
    return found;
}

std::vector<std::uint8_t> bytesOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

class TerminationSignalEndToEnd : public ::testing::Test {
protected:
    // At twenty listings a second, about fifteen seconds of scanning.
    static constexpr int kFolders = 300;

    void SetUp() override {
        if (!std::filesystem::exists("/dev/fuse") || ::access("/dev/fuse", R_OK | W_OK) != 0) {
            GTEST_SKIP() << "the slow folder is an rclone mount, which needs /dev/fuse";
        }
        for (int i = 0; i < kFolders; ++i) {
            remoteTree.file("d" + std::to_string(i) + "/f.bin", 1000 + i);
        }
        server = testing::startSftpServer(sandbox, remoteTree.root());
        sandbox.addRemote("slow", "sftp",
                          {{"host", "127.0.0.1"},
                           {"port", std::to_string(server.port)},
                           {"user", "u"},
                           {"pass", sandbox.obscured("p")}});
    }
    void TearDown() override { unmount(); }

    // A fresh mount for each scan: its folder listings are not cached yet.
    void mountSlowFolder() {
        std::filesystem::create_directories(mountPoint());
        mount = ChildProcess::spawn(
            {.executable = "/usr/bin/rclone",
             .arguments = {"mount", "--tpslimit", "20", "--", "slow:", mountPoint().string()},
             .environmentChanges = sandbox.environment(),
             .standardInput = ChildStandardInput::nullDevice,
             .outputs = ChildOutputs::nullDevice});
        ASSERT_TRUE(testing::waitUntil([&] { return isMounted(mountPoint()); }))
            << "rclone mount did not come up";
    }
    void unmount() {
        if (mount) {
            mount->terminate();
            mount->collectOutputAndWait();
            mount.reset();
            std::system(("fusermount -uz " + mountPoint().string() + " 2>/dev/null").c_str());
        }
    }

    std::filesystem::path mountPoint() const { return home.path() / "mnt"; }
    std::filesystem::path cacheFolder() const { return home.path() / "cache" / "Brimvale"; }

    // Starts the application on the mounted folder, waits until its scan has saved the first
    // checkpoint, removes it (only the quit's own save may leave a file), then sends `signal`.
    ChildProcessResult scanThenSignal(int signalNumber) {
        std::filesystem::remove_all(cacheFolder());
        mountSlowFolder();
        auto environment = sandbox.environment();
        environment.push_back({"HOME", home.path().string()});
        environment.push_back({"XDG_CACHE_HOME", (home.path() / "cache").string()});
        environment.push_back({"XDG_CONFIG_HOME", (home.path() / "config").string()});
        environment.push_back({"BRIMVALE_CHECKPOINT_SECONDS", "3600"});
        auto application = ChildProcess::spawn({.executable = BRIMVALE_APP_PROGRAM,
                                                .arguments = {mountPoint().string()},
                                                .environmentChanges = environment,
                                                .standardInput = ChildStandardInput::nullDevice});
        auto result = std::async(std::launch::async,
                                 [&application] { return application->collectOutputAndWait(); });
        const bool checkpointed =
            testing::waitUntil([&] { return !savedScans(cacheFolder()).empty(); }, 60s);
        EXPECT_TRUE(checkpointed) << "the scan never saved a checkpoint";
        for (const auto& saved : savedScans(cacheFolder())) {
            std::filesystem::remove(saved);
        }
        // Some folders come in meanwhile.
        std::this_thread::sleep_for(1500ms);
        ::kill(application->pid(), signalNumber);
        auto ended = result.get();
        unmount();
        return ended;
    }

    testing::RcloneSandbox sandbox;
    testing::TemporaryFolder home;
    testing::TemporaryTree remoteTree;
    testing::RunningServer server;
    std::unique_ptr<ChildProcess> mount;
};

TEST_F(TerminationSignalEndToEnd, ARunningScanIsSavedAsPartialOnSigtermSigintAndSighup) {
    for (const int signalNumber : {SIGTERM, SIGINT, SIGHUP}) {
        SCOPED_TRACE(::strsignal(signalNumber));
        const ChildProcessResult ended = scanThenSignal(signalNumber);
        // Quit by the application itself, not killed by the signal.
        EXPECT_FALSE(ended.terminatingSignal) << ended.standardError;
        EXPECT_EQ(ended.exitStatus, 128 + signalNumber) << ended.standardError;
        const auto saved = savedScans(cacheFolder());
        ASSERT_EQ(saved.size(), 1u) << ended.standardError;
        const auto decoded = decodeCacheRecord(bytesOf(saved.front()));
        ASSERT_TRUE(decoded) << saved.front();
        EXPECT_TRUE(decoded->partial);
        EXPECT_GT(decoded->root->size(), 0);
        EXPECT_LT(decoded->root->size(), kFolders * 1000 + (kFolders - 1) * kFolders / 2)
            << "the scan had finished";
    }
}

} // namespace
} // namespace brimvale
