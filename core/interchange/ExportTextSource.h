#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace brimvale {

// The text of an export file, plain or gzip-compressed (ncdu's manual pipes its exports through
// gzip), read piece by piece: the file is never held whole. The kind is told by the first bytes,
// so a compressed file needs no particular name and standard input works too.
// Thread safety: one reader per thread.
class ExportTextSource {
public:
    // "-" reads standard input. Throws std::system_error naming the file when it cannot be
    // opened, and CorruptDataError for a zstd-compressed file (not read; the message says how
    // to decompress it first).
    static std::unique_ptr<ExportTextSource> open(const std::string& path);
    ~ExportTextSource();

    ExportTextSource(const ExportTextSource&) = delete;
    ExportTextSource& operator=(const ExportTextSource&) = delete;

    // Up to `capacity` bytes of text; 0 at its end. Throws std::system_error when reading fails
    // and CorruptDataError when the compressed data is damaged or cut short.
    std::size_t read(char* buffer, std::size_t capacity);

    bool compressed() const { return inflater_ != nullptr; }

private:
    struct Inflater;

    ExportTextSource(int descriptor, bool ownsDescriptor, std::string shownName);
    std::size_t readRaw(char* buffer, std::size_t capacity);
    bool fillInput();

    int descriptor_;
    bool ownsDescriptor_;
    std::string shownName_;
    std::vector<unsigned char> input_; // read from the file, not yet used
    std::size_t inputStart_ = 0;
    std::size_t inputEnd_ = 0;
    bool inputEnded_ = false;
    std::unique_ptr<Inflater> inflater_;
};

} // namespace brimvale
