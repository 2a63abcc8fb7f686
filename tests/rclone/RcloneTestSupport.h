#pragma once

#include "core/rclone/BrimvaleError.h"
#include "core/rclone/RcloneRunner.h"

#include <chrono>
#include <exception>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace brimvale::testing {

// A folder under the system's temporary folder, removed with everything in it.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

void writeFile(const std::filesystem::path& path, const std::string& content);
std::string readFile(const std::filesystem::path& path);
// A file of `size` bytes (parent folders are made).
void writeFileOfSize(const std::filesystem::path& path, std::size_t size);

// Polls `condition` until it holds or `timeout` passes; returns whether it held.
bool waitUntil(const std::function<bool()>& condition,
               std::chrono::milliseconds timeout = std::chrono::seconds(20));

// The BrimvaleError inside `failure` (a test failure when it holds something else).
BrimvaleError brimvaleErrorOf(const std::exception_ptr& failure);

// A child process of this test process, as /proc shows it.
struct ChildProcessInfo {
    pid_t pid = 0;
    char state = '?'; // 'Z' for a zombie
    std::vector<std::string> commandLine;
};
std::vector<ChildProcessInfo> childProcessesOfThisProcess();
int threadCountOfThisProcess();

// An rclone setup of its own for one test: a temporary folder with the configuration file,
// rclone's cache, and runners that use the real /usr/bin/rclone or a fake program.
class RcloneSandbox {
public:
    RcloneSandbox();

    const TemporaryFolder& folder() const { return folder_; }
    std::filesystem::path configPath() const { return folder_ / "rclone.conf"; }

    // The environment every rclone child of this sandbox gets.
    std::vector<EnvironmentChange> environment() const;
    // A runner for the real rclone.
    RcloneRunner realRunner() const;
    // A runner whose rclone is a shell script with `body` (after "#!/bin/sh").
    RcloneRunner fakeRunner(const std::string& body,
                            std::chrono::milliseconds killGracePeriod = std::chrono::seconds(10));

    // Appends a remote section to the configuration file.
    void addRemote(const std::string& name, const std::string& type,
                   const std::map<std::string, std::string>& settings = {});
    // `rclone obscure TEXT`, as configuration files keep passwords.
    std::string obscured(const std::string& text) const;

private:
    TemporaryFolder folder_;
    int fakeCount_ = 0;
};

// A server started by a test (rclone serve …, an FTP server), its output in a log file;
// stopped (SIGTERM, then SIGKILL) and reaped when destroyed.
class ServerProcess {
public:
    ServerProcess(const std::vector<std::string>& commandLine,
                  const std::vector<EnvironmentChange>& environment,
                  const std::filesystem::path& logPath);
    ~ServerProcess();
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    // Waits for a log line matching `pattern` and returns its first group.
    std::string waitForLog(const std::string& pattern);
    std::string log() const;
    void pause();  // SIGSTOP: connections are accepted by the system but never answered
    void resume(); // SIGCONT
    pid_t pid() const { return pid_; }

private:
    pid_t pid_ = -1;
    std::filesystem::path logPath_;
};

// Servers on 127.0.0.1 with a free port, sharing `root`; user "u", password "p".
struct RunningServer {
    std::unique_ptr<ServerProcess> process;
    int port = 0;
};
RunningServer startSftpServer(const RcloneSandbox& sandbox, const std::filesystem::path& root);
// `extraArguments` go to `rclone serve webdav` ("--user", "u", "--pass", "p" for a login).
RunningServer startWebdavServer(const RcloneSandbox& sandbox, const std::filesystem::path& root,
                                const std::vector<std::string>& extraArguments = {});
RunningServer startFtpServer(const RcloneSandbox& sandbox, const std::filesystem::path& root);

} // namespace brimvale::testing
