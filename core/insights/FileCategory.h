#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

namespace brimvale {

// The few kinds of file the overview views colour and total by. Fixed order: views index
// their palettes and tables by it.
enum class FileCategory : unsigned char {
    video,
    image,
    audio,
    archive,
    code,
    document,
    other,
};
inline constexpr std::size_t kFileCategoryCount = 7;

// "Video", "Images"…, as the views and brimvale-cli types name them.
std::string_view fileCategoryName(FileCategory category);
// "video", "image"…: the key of --json output.
std::string_view fileCategoryKey(FileCategory category);

// A name's extension as lower-case ASCII, without the dot: the text after the last dot when
// something comes before that dot and it is 1 to 16 letters and digits ("tar.gz" gives "gz";
// ".bashrc", "notes." and "a.b c" have none). Points into `buffer`.
std::optional<std::string_view> fileExtension(std::string_view name, std::array<char, 16>& buffer);

// The kind of an extension (lower case, as fileExtension gives it).
FileCategory fileCategoryForExtension(std::string_view extension);

// The kind of a file: from its MIME type when that says (video/, image/, audio/, documents of
// the cloud services), else from its extension; other when neither does.
FileCategory fileCategoryOf(std::string_view name, std::optional<std::string_view> mimeType);

} // namespace brimvale
