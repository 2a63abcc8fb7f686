#include "core/interchange/ExportTextSource.h"

#include "core/support/CorruptDataError.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>
#include <zlib.h>

namespace brimvale {

struct ExportTextSource::Inflater {
    z_stream stream{};
    bool memberEnded = false;

    Inflater() {
        // 15 + 32: the largest window, with a gzip or zlib header detected automatically.
        if (inflateInit2(&stream, 15 + 32) != Z_OK) {
            throw std::bad_alloc();
        }
    }
    ~Inflater() { inflateEnd(&stream); }
};

std::unique_ptr<ExportTextSource> ExportTextSource::open(const std::string& path) {
    std::unique_ptr<ExportTextSource> source;
    if (path == "-") {
        source.reset(new ExportTextSource(STDIN_FILENO, false, "standard input"));
    } else {
        const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (descriptor < 0) {
            throw std::system_error(errno, std::generic_category(), "cannot open " + path);
        }
        source.reset(new ExportTextSource(descriptor, true, path));
    }
    // The first bytes tell the kind; they stay in the input for whoever reads them.
    while (source->inputEnd_ < 4 && source->fillInput()) {
    }
    const unsigned char* start = source->input_.data();
    const std::size_t available = source->inputEnd_;
    if (available >= 2 && start[0] == 0x1F && start[1] == 0x8B) {
        source->inflater_ = std::make_unique<Inflater>();
    } else if (available >= 4 && start[0] == 0x28 && start[1] == 0xB5 && start[2] == 0x2F &&
               start[3] == 0xFD) {
        throw CorruptDataError(source->shownName_ +
                               " is compressed with zstd; decompress it first (zstd -dc FILE)");
    }
    return source;
}

ExportTextSource::ExportTextSource(int descriptor, bool ownsDescriptor, std::string shownName)
    : descriptor_(descriptor)
    , ownsDescriptor_(ownsDescriptor)
    , shownName_(std::move(shownName))
    , input_(256 * 1024) {}

ExportTextSource::~ExportTextSource() {
    if (ownsDescriptor_) {
        ::close(descriptor_);
    }
}

// Appends what the file gives to the input; false at its end.
bool ExportTextSource::fillInput() {
    if (inputEnded_) {
        return false;
    }
    if (inputStart_ == inputEnd_) {
        inputStart_ = inputEnd_ = 0;
    }
    for (;;) {
        const ssize_t count =
            ::read(descriptor_, input_.data() + inputEnd_, input_.size() - inputEnd_);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            throw std::system_error(errno, std::generic_category(), "cannot read " + shownName_);
        }
        if (count == 0) {
            inputEnded_ = true;
            return false;
        }
        inputEnd_ += static_cast<std::size_t>(count);
        return true;
    }
}

std::size_t ExportTextSource::readRaw(char* buffer, std::size_t capacity) {
    if (inputStart_ == inputEnd_ && !fillInput()) {
        return 0;
    }
    const std::size_t count = std::min(capacity, inputEnd_ - inputStart_);
    std::memcpy(buffer, input_.data() + inputStart_, count);
    inputStart_ += count;
    return count;
}

std::size_t ExportTextSource::read(char* buffer, std::size_t capacity) {
    if (!inflater_) {
        return readRaw(buffer, capacity);
    }
    z_stream& stream = inflater_->stream;
    stream.next_out = reinterpret_cast<Bytef*>(buffer);
    stream.avail_out = static_cast<uInt>(std::min<std::size_t>(capacity, 1U << 30));
    while (stream.next_out == reinterpret_cast<Bytef*>(buffer)) {
        if (inputStart_ == inputEnd_ && !fillInput()) {
            if (!inflater_->memberEnded) {
                throw CorruptDataError("the gzip data of " + shownName_ + " is cut short");
            }
            return 0;
        }
        if (inflater_->memberEnded) {
            // Concatenated gzip members make one text, as gzip -d reads them.
            inflateReset(&stream);
            inflater_->memberEnded = false;
        }
        stream.next_in = input_.data() + inputStart_;
        stream.avail_in = static_cast<uInt>(inputEnd_ - inputStart_);
        const int status = inflate(&stream, Z_NO_FLUSH);
        inputStart_ = inputEnd_ - stream.avail_in;
        if (status == Z_STREAM_END) {
            inflater_->memberEnded = true;
        } else if (status != Z_OK && status != Z_BUF_ERROR) {
            throw CorruptDataError("the gzip data of " + shownName_ + " is damaged" +
                                   (stream.msg != nullptr ? std::string(": ") + stream.msg : ""));
        }
    }
    return static_cast<std::size_t>(stream.next_out - reinterpret_cast<Bytef*>(buffer));
}

} // namespace brimvale
