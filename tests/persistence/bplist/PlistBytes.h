#pragma once

// Hand-assembled binary property lists for tests: objects are raw bytes (marker included), and
// the ref and offset widths are whatever the test asks for, so odd but valid layouts and
// malformed ones can be made byte by byte.

#include <cstdint>
#include <initializer_list>
#include <string_view>
#include <vector>

namespace brimvale::plisttest {

using Bytes = std::vector<std::uint8_t>;

inline void appendBigEndian(Bytes& out, std::uint64_t value, unsigned width) {
    for (unsigned i = width; i-- > 0;) {
        out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
    }
}

inline Bytes concat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& part : parts) {
        out.insert(out.end(), part.begin(), part.end());
    }
    return out;
}

inline Bytes asciiObject(std::string_view text) {
    Bytes out;
    if (text.size() < 15) {
        out.push_back(static_cast<std::uint8_t>(0x50 | text.size()));
    } else {
        out = {0x5F, 0x10, static_cast<std::uint8_t>(text.size())};
    }
    out.insert(out.end(), text.begin(), text.end());
    return out;
}

// Integer object of `width` bytes (1, 2, 4, 8 or 16); 16-byte integers take `high` too.
inline Bytes integerObject(std::uint64_t value, unsigned width, std::uint64_t high = 0) {
    unsigned log2 = 0;
    while ((1u << log2) < width) {
        ++log2;
    }
    Bytes out{static_cast<std::uint8_t>(0x10 | log2)};
    if (width == 16) {
        appendBigEndian(out, high, 8);
        appendBigEndian(out, value, 8);
    } else {
        appendBigEndian(out, value, width);
    }
    return out;
}

class PlistAssembler {
public:
    explicit PlistAssembler(unsigned refSize = 1, unsigned offsetSize = 1)
        : refSize_(refSize)
        , offsetSize_(offsetSize) {}

    // Adds an object, returns its ref.
    std::uint64_t add(Bytes object) {
        objects_.push_back(std::move(object));
        return objects_.size() - 1;
    }
    // Replaces an object added before (to make cycles).
    void set(std::uint64_t ref, Bytes object) { objects_[ref] = std::move(object); }

    // A container object: `marker` (0xA0 array, 0xC0 set, 0xD0 dictionary) with the count in
    // its low nibble, then the refs in this assembler's ref width. Dictionaries take their keys
    // then their values in `refs`, and `count` is the number of entries.
    Bytes container(std::uint8_t marker, std::initializer_list<std::uint64_t> refs,
                    std::size_t count) const {
        Bytes out{static_cast<std::uint8_t>(marker | count)};
        for (const std::uint64_t ref : refs) {
            appendBigEndian(out, ref, refSize_);
        }
        return out;
    }
    Bytes array(std::initializer_list<std::uint64_t> refs) const {
        return container(0xA0, refs, refs.size());
    }
    Bytes dictionary(std::initializer_list<std::uint64_t> keysThenValues) const {
        return container(0xD0, keysThenValues, keysThenValues.size() / 2);
    }

    // Header, objects in order, offset table, trailer with the top object `top`.
    Bytes build(std::uint64_t top = 0) const {
        Bytes out{'b', 'p', 'l', 'i', 's', 't', '0', '0'};
        std::vector<std::uint64_t> offsets;
        for (const Bytes& object : objects_) {
            offsets.push_back(out.size());
            out.insert(out.end(), object.begin(), object.end());
        }
        const std::uint64_t tableOffset = out.size();
        for (const std::uint64_t offset : offsets) {
            appendBigEndian(out, offset, offsetSize_);
        }
        out.insert(out.end(), 6, 0);
        out.push_back(static_cast<std::uint8_t>(offsetSize_));
        out.push_back(static_cast<std::uint8_t>(refSize_));
        appendBigEndian(out, objects_.size(), 8);
        appendBigEndian(out, top, 8);
        appendBigEndian(out, tableOffset, 8);
        return out;
    }

private:
    unsigned refSize_;
    unsigned offsetSize_;
    std::vector<Bytes> objects_;
};

// Trailer fields of a built file, for tests that corrupt them.
struct TrailerField {
    static constexpr std::size_t offsetSize = 6;
    static constexpr std::size_t refSize = 7;
    static constexpr std::size_t objectCount = 8;
    static constexpr std::size_t topObject = 16;
    static constexpr std::size_t tableOffset = 24;
};

inline std::uint64_t readTrailer(const Bytes& file, std::size_t field, unsigned width = 8) {
    std::uint64_t value = 0;
    for (unsigned i = 0; i < width; ++i) {
        value = (value << 8) | file[file.size() - 32 + field + i];
    }
    return value;
}

inline void writeTrailer(Bytes& file, std::size_t field, std::uint64_t value, unsigned width = 8) {
    for (unsigned i = width; i-- > 0;) {
        file[file.size() - 32 + field + i] = static_cast<std::uint8_t>(value);
        value >>= 8;
    }
}

// The bytes of object `ref` onward, found through the file's own offset table.
inline const std::uint8_t* objectAt(const Bytes& file, std::uint64_t ref) {
    const unsigned offsetSize =
        static_cast<unsigned>(readTrailer(file, TrailerField::offsetSize, 1));
    const std::uint64_t table = readTrailer(file, TrailerField::tableOffset);
    std::uint64_t offset = 0;
    for (unsigned i = 0; i < offsetSize; ++i) {
        offset = (offset << 8) | file[table + ref * offsetSize + i];
    }
    return file.data() + offset;
}

} // namespace brimvale::plisttest
