#include "cli/CommandLine.h"
#include "cli/Commands.h"
#include "core/persistence/settings/ScanUISettings.h"
#include "core/support/HeapTuning.h"

#include <iostream>
#include <string>
#include <vector>

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    // Running again for a huge-page heap costs about 20 ms; a cloud scan's tree grows no faster
    // than rclone lists it, so it gains nothing from it.
    if (!brimvale::cli::scansCloudAccount(arguments)) {
        brimvale::adoptHugePageHeap(argv);
    }
    brimvale::ScanUISettings::applyEnvironmentOverrides();
    const brimvale::cli::CommandLine commandLine(brimvale::cli::allCommands());
    const int status = commandLine.run(arguments, {std::cout, std::cerr});
    std::cout.flush();
    return status;
}
