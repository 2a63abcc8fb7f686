#include "cli/VolumesCommand.h"

#include "cli/DisplayText.h"
#include "core/local/LocalVolumePickerOptions.h"

#include <nlohmann/json.hpp>

#include <ostream>

namespace brimvale::cli {
namespace {

nlohmann::json optionalNumber(const std::optional<std::int64_t>& value) {
    return value ? nlohmann::json(*value) : nlohmann::json(nullptr);
}

int runVolumes(std::span<const std::string> arguments, CommandStreams streams) {
    bool json = false;
    for (const auto& argument : arguments) {
        if (argument == "--json") {
            json = true;
        } else {
            throw UsageError("unknown argument '" + argument + "'");
        }
    }
    const auto choices = LocalVolumePickerOptions::linuxChoices();
    if (json) {
        auto list = nlohmann::json::array();
        for (const auto& choice : choices) {
            const auto summary = choice.capacitySummary();
            list.push_back({{"id", choice.id},
                            {"title", choice.title},
                            {"pathLine", choice.pathLine},
                            {"scanPath", choice.scanPath},
                            {"totalBytes", optionalNumber(choice.totalBytes)},
                            {"freeBytes", optionalNumber(choice.freeBytes)},
                            {"notResponding", choice.notResponding},
                            {"capacitySummary",
                             summary ? nlohmann::json(*summary) : nlohmann::json(nullptr)}});
        }
        streams.out << list.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
        return exitSuccess;
    }
    for (const auto& choice : choices) {
        streams.out << displayText(choice.title) << "  " << displayText(choice.pathLine) << '\n';
        if (const auto summary = choice.capacitySummary()) {
            streams.out << "    " << *summary << '\n';
        }
    }
    return exitSuccess;
}

} // namespace

Command volumesCommand() {
    return Command{.name = "volumes",
                   .summary = "List the places a local scan can start from",
                   .usage = "volumes [--json]",
                   .details =
                       "The whole startup disk first, then every mounted disk, partition and\n"
                       "network share, with its capacity. --json writes the same as a JSON list.",
                   .run = runVolumes};
}

} // namespace brimvale::cli
