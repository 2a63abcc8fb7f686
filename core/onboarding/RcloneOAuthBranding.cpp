#include "core/onboarding/RcloneOAuthBranding.h"

#include "core/rclone/Utf8Text.h"
#include "core/support/FileBytes.h"

#include <cerrno>
#include <filesystem>
#include <optional>
#include <span>
#include <stdexcept>
#include <sys/stat.h>
#include <system_error>

namespace brimvale::RcloneOAuthBranding {
namespace {

using Utf8Text::trimWhitespaceAndNewlines;

constexpr std::string_view kConfigFilePrefix = "Config file:";

// The section a line opens, or nothing when it opens none.
std::optional<std::string_view> sectionOpenedBy(std::string_view line) {
    const std::string_view trimmed = trimWhitespaceAndNewlines(line);
    if (trimmed.size() < 2 || !trimmed.starts_with('[') || !trimmed.ends_with(']')) {
        return std::nullopt;
    }
    return trimWhitespaceAndNewlines(trimmed.substr(1, trimmed.size() - 2));
}

bool isTemplateKeyLine(std::string_view line) {
    const std::string_view key = trimWhitespaceAndNewlines(line.substr(0, line.find('=')));
    return key == "config_template" || key == "config_template_file";
}

} // namespace

std::string configPathFromPathsOutput(std::string_view pathsOutput) {
    std::size_t lineStart = 0;
    while (lineStart <= pathsOutput.size()) {
        const std::size_t lineEnd = pathsOutput.find('\n', lineStart);
        const std::string_view line =
            pathsOutput.substr(lineStart, lineEnd == std::string_view::npos ? std::string_view::npos
                                                                            : lineEnd - lineStart);
        if (line.starts_with(kConfigFilePrefix)) {
            const std::string_view path =
                trimWhitespaceAndNewlines(line.substr(kConfigFilePrefix.size()));
            if (path.empty()) {
                break;
            }
            return std::string(path);
        }
        if (lineEnd == std::string_view::npos) {
            break;
        }
        lineStart = lineEnd + 1;
    }
    throw std::runtime_error("Could not find rclone config file path.");
}

std::string strippingOAuthTemplateKeys(std::string_view configText, std::string_view remoteName) {
    std::string result;
    result.reserve(configText.size());
    bool inRemoteSection = false;
    bool firstKeptLine = true;
    std::size_t lineStart = 0;
    for (;;) {
        const std::size_t lineEnd = configText.find('\n', lineStart);
        const std::string_view line =
            configText.substr(lineStart, lineEnd == std::string_view::npos ? std::string_view::npos
                                                                           : lineEnd - lineStart);
        if (const auto section = sectionOpenedBy(line)) {
            inRemoteSection = *section == remoteName;
        }
        if (!(inRemoteSection && isTemplateKeyLine(line))) {
            if (!firstKeptLine) {
                result.push_back('\n');
            }
            result.append(line);
            firstKeptLine = false;
        }
        if (lineEnd == std::string_view::npos) {
            break;
        }
        lineStart = lineEnd + 1;
    }
    return result;
}

void stripOAuthTemplateKeys(const std::string& configPath, std::string_view remoteName) {
    struct stat status {};
    if (::stat(configPath.c_str(), &status) != 0) {
        if (errno == ENOENT) {
            return; // rclone makes the file when it first writes a remote
        }
        throw std::system_error(errno, std::generic_category(), "could not read " + configPath);
    }
    const FileBytes file = readFileBytes(configPath);
    const std::string_view text(reinterpret_cast<const char*>(file.bytes.data()),
                                file.bytes.size());
    const std::string stripped = strippingOAuthTemplateKeys(text, remoteName);
    if (stripped == text) {
        return;
    }
    // A linked configuration file is rewritten where the link points, as rclone does.
    std::error_code error;
    const auto target = std::filesystem::canonical(configPath, error);
    writeFileAtomically(
        error ? configPath : target.string(),
        std::span(reinterpret_cast<const std::uint8_t*>(stripped.data()), stripped.size()),
        status.st_mode & 07777);
}

} // namespace brimvale::RcloneOAuthBranding
