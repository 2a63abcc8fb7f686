#include "core/insights/FileCategory.h"

#include <algorithm>
#include <utility>

namespace brimvale {
namespace {

// Sorted by extension, for a binary search.
constexpr std::pair<std::string_view, FileCategory> kExtensionCategories[] = {
    {"3gp", FileCategory::video},       {"7z", FileCategory::archive},
    {"a", FileCategory::code},          {"aac", FileCategory::audio},
    {"ai", FileCategory::image},        {"aif", FileCategory::audio},
    {"aiff", FileCategory::audio},      {"ape", FileCategory::audio},
    {"apk", FileCategory::archive},     {"appimage", FileCategory::archive},
    {"asm", FileCategory::code},        {"avi", FileCategory::video},
    {"avif", FileCategory::image},      {"bat", FileCategory::code},
    {"bmp", FileCategory::image},       {"bz2", FileCategory::archive},
    {"c", FileCategory::code},          {"cab", FileCategory::archive},
    {"cc", FileCategory::code},         {"class", FileCategory::code},
    {"cmake", FileCategory::code},      {"cpp", FileCategory::code},
    {"cr2", FileCategory::image},       {"crx", FileCategory::archive},
    {"cs", FileCategory::code},         {"css", FileCategory::code},
    {"csv", FileCategory::document},    {"cxx", FileCategory::code},
    {"deb", FileCategory::archive},     {"diff", FileCategory::code},
    {"dmg", FileCategory::archive},     {"dng", FileCategory::image},
    {"doc", FileCategory::document},    {"docx", FileCategory::document},
    {"el", FileCategory::code},         {"epub", FileCategory::document},
    {"f90", FileCategory::code},        {"flac", FileCategory::audio},
    {"flatpak", FileCategory::archive}, {"flv", FileCategory::video},
    {"gem", FileCategory::archive},     {"gif", FileCategory::image},
    {"go", FileCategory::code},         {"gz", FileCategory::archive},
    {"h", FileCategory::code},          {"heic", FileCategory::image},
    {"heif", FileCategory::image},      {"hpp", FileCategory::code},
    {"hs", FileCategory::code},         {"htm", FileCategory::code},
    {"html", FileCategory::code},       {"ico", FileCategory::image},
    {"img", FileCategory::archive},     {"inc", FileCategory::code},
    {"iso", FileCategory::archive},     {"jar", FileCategory::archive},
    {"java", FileCategory::code},       {"jpeg", FileCategory::image},
    {"jpg", FileCategory::image},       {"js", FileCategory::code},
    {"json", FileCategory::code},       {"jsx", FileCategory::code},
    {"jxl", FileCategory::image},       {"key", FileCategory::document},
    {"kt", FileCategory::code},         {"lua", FileCategory::code},
    {"lz", FileCategory::archive},      {"lz4", FileCategory::archive},
    {"lzma", FileCategory::archive},    {"m", FileCategory::code},
    {"m2ts", FileCategory::video},      {"m4a", FileCategory::audio},
    {"m4v", FileCategory::video},       {"md", FileCategory::document},
    {"mid", FileCategory::audio},       {"mka", FileCategory::audio},
    {"mkv", FileCategory::video},       {"ml", FileCategory::code},
    {"mm", FileCategory::code},         {"mov", FileCategory::video},
    {"mp3", FileCategory::audio},       {"mp4", FileCategory::video},
    {"mpeg", FileCategory::video},      {"mpg", FileCategory::video},
    {"msi", FileCategory::archive},     {"mts", FileCategory::video},
    {"nef", FileCategory::image},       {"numbers", FileCategory::document},
    {"o", FileCategory::code},          {"odg", FileCategory::document},
    {"odp", FileCategory::document},    {"ods", FileCategory::document},
    {"odt", FileCategory::document},    {"ogg", FileCategory::audio},
    {"ogv", FileCategory::video},       {"opus", FileCategory::audio},
    {"org", FileCategory::document},    {"pages", FileCategory::document},
    {"pas", FileCategory::code},        {"patch", FileCategory::code},
    {"pdf", FileCategory::document},    {"php", FileCategory::code},
    {"pl", FileCategory::code},         {"pm", FileCategory::code},
    {"png", FileCategory::image},       {"pp", FileCategory::code},
    {"ppt", FileCategory::document},    {"pptx", FileCategory::document},
    {"ps1", FileCategory::code},        {"psd", FileCategory::image},
    {"py", FileCategory::code},         {"pyc", FileCategory::code},
    {"qcow2", FileCategory::archive},   {"r", FileCategory::code},
    {"rar", FileCategory::archive},     {"raw", FileCategory::image},
    {"rb", FileCategory::code},         {"rpm", FileCategory::archive},
    {"rs", FileCategory::code},         {"rst", FileCategory::document},
    {"rtf", FileCategory::document},    {"s", FileCategory::code},
    {"scala", FileCategory::code},      {"scss", FileCategory::code},
    {"sh", FileCategory::code},         {"snap", FileCategory::archive},
    {"so", FileCategory::code},         {"sql", FileCategory::code},
    {"svg", FileCategory::image},       {"swift", FileCategory::code},
    {"tar", FileCategory::archive},     {"tex", FileCategory::document},
    {"tgz", FileCategory::archive},     {"tif", FileCategory::image},
    {"tiff", FileCategory::image},      {"toml", FileCategory::code},
    {"ts", FileCategory::code},         {"tsx", FileCategory::code},
    {"txt", FileCategory::document},    {"vdi", FileCategory::archive},
    {"vim", FileCategory::code},        {"vmdk", FileCategory::archive},
    {"vob", FileCategory::video},       {"vue", FileCategory::code},
    {"wav", FileCategory::audio},       {"webm", FileCategory::video},
    {"webp", FileCategory::image},      {"whl", FileCategory::archive},
    {"wma", FileCategory::audio},       {"wmv", FileCategory::video},
    {"wv", FileCategory::audio},        {"xcf", FileCategory::image},
    {"xls", FileCategory::document},    {"xlsx", FileCategory::document},
    {"xml", FileCategory::code},        {"xpi", FileCategory::archive},
    {"xz", FileCategory::archive},      {"yaml", FileCategory::code},
    {"yml", FileCategory::code},        {"zip", FileCategory::archive},
    {"zst", FileCategory::archive},
};

static_assert(std::ranges::is_sorted(kExtensionCategories, {},
                                     &std::pair<std::string_view, FileCategory>::first));

constexpr std::string_view kNames[kFileCategoryCount] = {"Video", "Images",    "Audio", "Archives",
                                                         "Code",  "Documents", "Other"};
constexpr std::string_view kKeys[kFileCategoryCount] = {"video", "image",    "audio", "archive",
                                                        "code",  "document", "other"};

bool isAsciiAlphanumeric(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool startsWithIgnoringCase(std::string_view text, std::string_view lowerPrefix) {
    if (text.size() < lowerPrefix.size()) {
        return false;
    }
    for (std::size_t i = 0; i < lowerPrefix.size(); ++i) {
        const char c = text[i];
        const char lower = (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
        if (lower != lowerPrefix[i]) {
            return false;
        }
    }
    return true;
}

std::optional<FileCategory> categoryForMimeType(std::string_view mimeType) {
    if (startsWithIgnoringCase(mimeType, "video/")) {
        return FileCategory::video;
    }
    if (startsWithIgnoringCase(mimeType, "image/")) {
        return FileCategory::image;
    }
    if (startsWithIgnoringCase(mimeType, "audio/")) {
        return FileCategory::audio;
    }
    if (startsWithIgnoringCase(mimeType, "application/vnd.google-apps.") ||
        startsWithIgnoringCase(mimeType, "application/pdf")) {
        return FileCategory::document;
    }
    return std::nullopt;
}

} // namespace

std::string_view fileCategoryName(FileCategory category) {
    return kNames[static_cast<std::size_t>(category)];
}

std::string_view fileCategoryKey(FileCategory category) {
    return kKeys[static_cast<std::size_t>(category)];
}

std::optional<std::string_view> fileExtension(std::string_view name, std::array<char, 16>& buffer) {
    const std::size_t dot = name.rfind('.');
    if (dot == std::string_view::npos || dot == 0 || dot + 1 == name.size() ||
        name.size() - dot - 1 > buffer.size()) {
        return std::nullopt;
    }
    std::size_t length = 0;
    for (std::size_t i = dot + 1; i < name.size(); ++i) {
        const char c = name[i];
        if (!isAsciiAlphanumeric(c)) {
            return std::nullopt;
        }
        buffer[length++] = (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return std::string_view(buffer.data(), length);
}

FileCategory fileCategoryForExtension(std::string_view extension) {
    const auto found = std::ranges::lower_bound(kExtensionCategories, extension, {},
                                                &std::pair<std::string_view, FileCategory>::first);
    if (found != std::end(kExtensionCategories) && found->first == extension) {
        return found->second;
    }
    return FileCategory::other;
}

FileCategory fileCategoryOf(std::string_view name, std::optional<std::string_view> mimeType) {
    if (mimeType) {
        if (const auto category = categoryForMimeType(*mimeType)) {
            return *category;
        }
    }
    std::array<char, 16> buffer;
    const auto extension = fileExtension(name, buffer);
    return extension ? fileCategoryForExtension(*extension) : FileCategory::other;
}

} // namespace brimvale
