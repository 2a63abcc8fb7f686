#include "tests/rclone/RcloneTestSupport.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <regex>
#include <spawn.h>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace brimvale::testing {
namespace fs = std::filesystem;

TemporaryFolder::TemporaryFolder() {
    std::string pattern = (fs::temp_directory_path() / "brimvale-rclone-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("mkdtemp failed");
    }
    path_ = pattern;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code error;
    // Folders a test made unreadable are opened up again so they can be removed.
    for (auto it = fs::recursive_directory_iterator(
             path_, fs::directory_options::skip_permission_denied, error);
         !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
        fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, error);
    }
    fs::remove_all(path_, error);
}

void writeFile(const fs::path& path, const std::string& content) {
    fs::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
}

std::string readFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void writeFileOfSize(const fs::path& path, std::size_t size) {
    writeFile(path, std::string(size, 'x'));
}

bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

std::vector<ChildProcessInfo> childProcessesOfThisProcess() {
    std::vector<ChildProcessInfo> children;
    const pid_t self = ::getpid();
    std::error_code error;
    for (const auto& entry : fs::directory_iterator("/proc", error)) {
        const std::string name = entry.path().filename().string();
        if (name.find_first_not_of("0123456789") != std::string::npos) {
            continue;
        }
        const std::string stat = readFile(entry.path() / "stat");
        // pid (comm) state ppid …; comm may hold spaces and parentheses.
        const auto commEnd = stat.rfind(')');
        if (commEnd == std::string::npos || commEnd + 4 >= stat.size()) {
            continue;
        }
        std::istringstream rest(stat.substr(commEnd + 2));
        char state = '?';
        pid_t parent = 0;
        rest >> state >> parent;
        if (parent != self) {
            continue;
        }
        ChildProcessInfo info{.pid = std::stoi(name), .state = state};
        const std::string commandLine = readFile(entry.path() / "cmdline");
        std::string part;
        for (const char c : commandLine) {
            if (c == '\0') {
                info.commandLine.push_back(part);
                part.clear();
            } else {
                part.push_back(c);
            }
        }
        children.push_back(std::move(info));
    }
    return children;
}

int threadCountOfThisProcess() {
    int count = 0;
    std::error_code error;
    for (auto it = fs::directory_iterator("/proc/self/task", error);
         !error && it != fs::directory_iterator(); it.increment(error)) {
        ++count;
    }
    return count;
}

RcloneSandbox::RcloneSandbox() {
    writeFile(configPath(), "");
}

std::vector<EnvironmentChange> RcloneSandbox::environment() const {
    return {{"RCLONE_CONFIG", configPath().string()},
            {"RCLONE_CACHE_DIR", (folder_ / "cache").string()},
            // rclone 1.60 refuses custom CA bundles.
            {"AWS_CA_BUNDLE", std::nullopt},
            {"RCLONE_CONFIG_PASS", std::nullopt}};
}

RcloneRunner RcloneSandbox::realRunner() const {
    return RcloneRunner({.searchLocations = {.fixedPaths = {"/usr/bin/rclone"}},
                         .environmentChanges = environment()});
}

RcloneRunner RcloneSandbox::fakeRunner(const std::string& body,
                                       std::chrono::milliseconds killGracePeriod) {
    const fs::path script = folder_ / ("fake" + std::to_string(++fakeCount_)) / "rclone";
    writeFile(script, "#!/bin/sh\n" + body + "\n");
    fs::permissions(script, fs::perms::owner_all);
    return RcloneRunner({.searchLocations = {.fixedPaths = {script.string()}},
                         .environmentChanges = environment(),
                         .killGracePeriod = killGracePeriod});
}

void RcloneSandbox::addRemote(const std::string& name, const std::string& type,
                              const std::map<std::string, std::string>& settings) {
    std::string section = "[" + name + "]\ntype = " + type + "\n";
    for (const auto& [key, value] : settings) {
        section += key + " = " + value + "\n";
    }
    writeFile(configPath(), readFile(configPath()) + section + "\n");
}

std::string RcloneSandbox::obscured(const std::string& text) const {
    const std::string output = realRunner().runRclone({"obscure", text}, "obscure");
    return output.substr(0, output.find_last_not_of("\r\n") + 1);
}

ServerProcess::ServerProcess(const std::vector<std::string>& commandLine,
                             const std::vector<EnvironmentChange>& environment,
                             const fs::path& logPath)
    : logPath_(logPath) {
    std::vector<std::string> environmentStrings;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        environmentStrings.emplace_back(*entry);
    }
    for (const auto& change : environment) {
        std::erase_if(environmentStrings, [&](const std::string& entry) {
            return entry.starts_with(change.name + "=");
        });
        if (change.value) {
            environmentStrings.push_back(change.name + "=" + *change.value);
        }
    }
    std::vector<std::string> arguments = commandLine;
    std::vector<char*> argv;
    for (auto& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    std::vector<char*> envp;
    for (auto& entry : environmentStrings) {
        envp.push_back(entry.data());
    }
    envp.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, logPath.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    const int result = ::posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (result != 0) {
        throw std::runtime_error("could not start " + commandLine.front());
    }
}

ServerProcess::~ServerProcess() {
    ::kill(pid_, SIGCONT);
    ::kill(pid_, SIGTERM);
    int status = 0;
    const bool ended = waitUntil([&] { return ::waitpid(pid_, &status, WNOHANG) == pid_; },
                                 std::chrono::seconds(5));
    if (!ended) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, &status, 0);
    }
}

std::string ServerProcess::waitForLog(const std::string& pattern) {
    const std::regex expression(pattern);
    std::smatch match;
    std::string text;
    const bool found = waitUntil([&] {
        text = log();
        return std::regex_search(text, match, expression);
    });
    if (!found) {
        throw std::runtime_error("server never logged /" + pattern + "/; its log:\n" + text);
    }
    return match[1].str();
}

std::string ServerProcess::log() const {
    return readFile(logPath_);
}

void ServerProcess::pause() {
    ::kill(pid_, SIGSTOP);
}

void ServerProcess::resume() {
    ::kill(pid_, SIGCONT);
}

namespace {

RunningServer startRcloneServer(const RcloneSandbox& sandbox, std::vector<std::string> arguments,
                                const std::string& name, const std::string& portPattern) {
    std::vector<std::string> commandLine{"/usr/bin/rclone"};
    commandLine.insert(commandLine.end(), arguments.begin(), arguments.end());
    RunningServer server;
    server.process = std::make_unique<ServerProcess>(commandLine, sandbox.environment(),
                                                     sandbox.folder() / (name + ".log"));
    server.port = std::stoi(server.process->waitForLog(portPattern));
    return server;
}

} // namespace

RunningServer startSftpServer(const RcloneSandbox& sandbox, const fs::path& root) {
    return startRcloneServer(
        sandbox,
        {"serve", "sftp", root.string(), "--addr", "127.0.0.1:0", "--user", "u", "--pass", "p"},
        "sftp", R"(SFTP server listening on 127\.0\.0\.1:(\d+))");
}

RunningServer startWebdavServer(const RcloneSandbox& sandbox, const fs::path& root,
                                const std::vector<std::string>& extraArguments) {
    std::vector<std::string> arguments{"serve", "webdav", root.string(), "--addr", "127.0.0.1:0"};
    arguments.insert(arguments.end(), extraArguments.begin(), extraArguments.end());
    return startRcloneServer(sandbox, arguments, "webdav",
                             R"(started on http://127\.0\.0\.1:(\d+)/)");
}

RunningServer startFtpServer(const RcloneSandbox& sandbox, const fs::path& root) {
    // pyftpdlib from Debian; port 0 lets the system choose, the script prints what it got.
    const std::string script = R"(
import sys
from pyftpdlib.authorizers import DummyAuthorizer
from pyftpdlib.handlers import FTPHandler
from pyftpdlib.servers import FTPServer
authorizer = DummyAuthorizer()
authorizer.add_user("u", "p", sys.argv[1], perm="elr")
handler = FTPHandler
handler.authorizer = authorizer
handler.passive_ports = None
server = FTPServer(("127.0.0.1", 0), handler)
print("FTP listening on port %d" % server.address[1], flush=True)
server.serve_forever()
)";
    RunningServer server;
    server.process = std::make_unique<ServerProcess>(
        std::vector<std::string>{"/usr/bin/python3", "-c", script, root.string()},
        sandbox.environment(), sandbox.folder() / "ftp.log");
    server.port = std::stoi(server.process->waitForLog(R"(FTP listening on port (\d+))"));
    return server;
}

BrimvaleError brimvaleErrorOf(const std::exception_ptr& failure) {
    if (!failure) {
        ADD_FAILURE() << "expected a BrimvaleError, the operation succeeded";
        return BrimvaleError::parseError("none");
    }
    try {
        std::rethrow_exception(failure);
    } catch (const BrimvaleError& error) {
        return error;
    } catch (const std::exception& other) {
        ADD_FAILURE() << "expected a BrimvaleError, got: " << other.what();
    } catch (...) {
        ADD_FAILURE() << "expected a BrimvaleError";
    }
    return BrimvaleError::parseError("none");
}

} // namespace brimvale::testing
