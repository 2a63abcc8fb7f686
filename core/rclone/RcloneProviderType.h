#pragma once

#include <string>
#include <string_view>

// The backend type of a remote as the rest of the system uses it. Pure: safe on any thread.
namespace brimvale::RcloneProviderType {

// The configured type trimmed of white space and line breaks (" drive\n" is "drive").
std::string canonical(std::string_view configType);

} // namespace brimvale::RcloneProviderType
