#include "cli/Commands.h"

#include "cli/AccountsCommand.h"
#include "cli/CacheCommand.h"
#include "cli/ExportCommand.h"
#include "cli/HistoryCommand.h"
#include "cli/LzfseCommand.h"
#include "cli/OpenCommand.h"
#include "cli/OverviewCommands.h"
#include "cli/RemotesCommand.h"
#include "cli/RemoveCommand.h"
#include "cli/ScanCommand.h"
#include "cli/VolumesCommand.h"
#include "core/model/SizeFormatter.h"

#include <ostream>

namespace brimvale::cli {
namespace {

// `brimvale-cli size BYTES…`: the byte-count text Brimvale shows for each number.
Command sizeCommand() {
    return Command{
        .name = "size",
        .summary = "Write byte counts the way Brimvale shows them",
        .usage = "size BYTES...",
        .details =
            "Each BYTES is a whole number (negative allowed); one line is written for each,\n"
            "for example 1250 gives \"1.2 KB\".",
        .run = [](std::span<const std::string> arguments, CommandStreams streams) {
            if (arguments.empty()) {
                throw UsageError("give at least one byte count");
            }
            std::vector<std::int64_t> counts;
            for (const auto& argument : arguments) {
                std::size_t consumed = 0;
                long long value = 0;
                try {
                    value = std::stoll(argument, &consumed, 10);
                } catch (const std::out_of_range&) {
                    throw UsageError("'" + argument +
                                     "' does not fit in a signed 64-bit byte count");
                } catch (const std::invalid_argument&) {
                    consumed = 0;
                }
                if (consumed == 0 || consumed != argument.size()) {
                    throw UsageError("'" + argument + "' is not a whole number of bytes");
                }
                counts.push_back(value);
            }
            for (const auto count : counts) {
                streams.out << formatBytes(count) << '\n';
            }
            return static_cast<int>(exitSuccess);
        }};
}

} // namespace

std::vector<Command> allCommands() {
    return {sizeCommand(),    remotesCommand(), lsCommand(),      accountsCommand(),
            scanCommand(),    historyCommand(), changesCommand(), topCommand(),
            typesCommand(),   findCommand(),    openCommand(),    exportCommand(),
            volumesCommand(), cacheCommand(),   lzfseCommand(),   webConfigCommand(),
            removeCommand()};
}

} // namespace brimvale::cli
