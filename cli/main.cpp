#include "cli/CommandLine.h"
#include "cli/Commands.h"
#include "core/persistence/settings/ScanUISettings.h"
#include "core/support/HeapTuning.h"

#include <iostream>
#include <string>
#include <vector>

int main(int argc, char** argv) {
    brimvale::adoptHugePageHeap(argv);
    brimvale::ScanUISettings::applyEnvironmentOverrides();
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const brimvale::cli::CommandLine commandLine(brimvale::cli::allCommands());
    const int status = commandLine.run(arguments, {std::cout, std::cerr});
    std::cout.flush();
    return status;
}
