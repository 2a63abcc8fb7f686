#pragma once

#include <span>
#include <string>
#include <string_view>

namespace brimvale::cli {

// The arguments of the commands that show a tree: one target (a folder, a cache file…) and
// --json, or --depth N and --top N for the listing. Throws UsageError for anything else.
struct ListingArguments {
    std::string target;
    bool json = false;
    int depth = 1;
    int top = 10;
    bool listingOptionGiven = false;
};

// `noun` names the target in messages: "give the folder to scan".
ListingArguments parseListingArguments(std::span<const std::string> arguments,
                                       std::string_view noun);

} // namespace brimvale::cli
