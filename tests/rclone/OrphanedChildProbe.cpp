// Starts rclone's web configuration helper and a streamed rclone run, each from a thread of
// its own that then ends, prints "ready" and waits to be killed. Its children must outlive
// those threads but not this process.
#include "core/onboarding/RcloneWebConfigServer.h"
#include "core/rclone/ChildProcess.h"

#include <chrono>
#include <iostream>
#include <memory>
#include <thread>
#include <unistd.h>

int main() {
    using namespace brimvale;
    RcloneWebConfigServer server;
    std::unique_ptr<ChildProcess> listing;
    std::thread([&] {
        server.startWebConfig();
        // Reads standard input, which never ends: runs until it is killed.
        listing = ChildProcess::spawn({.executable = "/usr/bin/rclone",
                                       .arguments = {"rcat", "--", "/dev/null"},
                                       .standardInput = ChildStandardInput::pipe,
                                       .outputs = ChildOutputs::memoryFileAndPipe});
    }).join();
    if (!server.waitUntilAnswering(std::chrono::seconds(30))) {
        std::cerr << "the web configuration helper did not answer\n";
        return 1;
    }
    std::cout << "ready" << std::endl;
    for (;;) {
        ::pause();
    }
}
