#include "cli/ListingArguments.h"

#include "cli/CommandLine.h"

#include <charconv>
#include <optional>

namespace brimvale::cli {
namespace {

int positiveCount(const std::string& option, const std::string& value) {
    int number = 0;
    const auto result = std::from_chars(value.data(), value.data() + value.size(), number);
    if (result.ec != std::errc() || result.ptr != value.data() + value.size() || number < 1) {
        throw UsageError(option + " needs a whole number of at least 1, not '" + value + "'");
    }
    return number;
}

} // namespace

ListingArguments parseListingArguments(std::span<const std::string> arguments,
                                       std::string_view noun) {
    ListingArguments parsed;
    bool havePath = false;
    bool optionsEnded = false;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (!optionsEnded && argument == "--") {
            optionsEnded = true;
            continue;
        }
        if (!optionsEnded && argument.starts_with("-") && argument != "-") {
            std::string name = argument;
            std::optional<std::string> value;
            if (const auto equals = argument.find('='); equals != std::string::npos) {
                name = argument.substr(0, equals);
                value = argument.substr(equals + 1);
            }
            if (name == "--json" && !value) {
                parsed.json = true;
                continue;
            }
            if (name == "--depth" || name == "--top") {
                if (!value) {
                    if (i + 1 == arguments.size()) {
                        throw UsageError(name + " needs a number");
                    }
                    value = arguments[++i];
                }
                (name == "--depth" ? parsed.depth : parsed.top) = positiveCount(name, *value);
                parsed.listingOptionGiven = true;
                continue;
            }
            throw UsageError("unknown option '" + argument + "'");
        }
        if (havePath) {
            throw UsageError("give one " + std::string(noun) + ", not several");
        }
        parsed.target = argument;
        havePath = true;
    }
    if (!havePath) {
        throw UsageError("give the " + std::string(noun));
    }
    if (parsed.json && parsed.listingOptionGiven) {
        throw UsageError("--depth and --top shape the listing; --json writes the whole tree");
    }
    return parsed;
}

} // namespace brimvale::cli
