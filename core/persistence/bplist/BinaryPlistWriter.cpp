#include "core/persistence/bplist/BinaryPlistWriter.h"

#include "core/persistence/bplist/BinaryPlistFormat.h"
#include "core/persistence/bplist/DistinctStrings.h"
#include "core/persistence/bplist/LargeAllocation.h"
#include "core/persistence/bplist/PlistText.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <stdexcept>

namespace brimvale {

using namespace bplist;

namespace {

// Width of an unsigned integer object holding `value`: 1, 2, 4 or 8 bytes.
unsigned unsignedWidth(std::uint64_t value) {
    if (value < (1u << 8)) {
        return 1;
    }
    if (value < (1u << 16)) {
        return 2;
    }
    if (value <= 0xFFFFFFFFu) {
        return 4;
    }
    return 8;
}

std::uint8_t integerMarker(unsigned width) {
    return static_cast<std::uint8_t>(kTypeInteger | std::countr_zero(width));
}

std::size_t integerObjectSize(std::int64_t value) {
    return value < 0 ? 9 : 1 + unsignedWidth(static_cast<std::uint64_t>(value));
}

// Marker plus, for counts of 15 and more, the integer object holding the count.
std::size_t countedHeaderSize(std::uint64_t count) {
    return count < kCountFollows ? 1 : 2 + unsignedWidth(count);
}

std::size_t stringObjectSize(std::string_view text) {
    if (isAscii(text)) {
        return countedHeaderSize(text.size()) + text.size();
    }
    const std::size_t units = utf16Length(text);
    return countedHeaderSize(units) + 2 * units;
}

// What one entry's value becomes: objects firstObject .. firstObject + objectCount - 1, the
// first being the value itself (the scalar, or the column's array).
struct EntryPlan {
    std::uint64_t firstObject = 0;
    std::uint64_t objectCount = 0;
    DistinctStrings distinct; // string columns with sharing on
    bool shared = false;
    std::uint64_t falseObject = 0; // boolean columns: 0 when the value does not occur
    std::uint64_t trueObject = 0;
};

// Writes objects in object order, recording each one's offset in the offset table, into
// pieces of the file that go to the sink as they fill up.
class Output {
public:
    Output(const BinaryPlistWriter::PieceSink& sink, std::size_t pieceBytes,
           std::uint64_t objectCount, unsigned offsetSize, unsigned refSize)
        : sink_(sink)
        , pieceBytes_(std::max<std::size_t>(pieceBytes, 64))
        , table_(objectCount * offsetSize)
        , offsetSize_(offsetSize)
        , refSize_(refSize) {
        startPiece(std::vector<std::uint8_t>(), 0);
    }

    std::uint64_t offset() const { return flushed_ + static_cast<std::uint64_t>(out_ - begin_); }
    std::uint64_t objectsWritten() const { return next_; }
    std::span<const std::uint8_t> offsetTable() const { return table_; }

    void bytes(const void* data, std::size_t size) {
        const auto* from = static_cast<const std::uint8_t*>(data);
        while (size > 0) {
            if (out_ == end_) {
                spill(1);
            }
            const std::size_t part = std::min(size, static_cast<std::size_t>(end_ - out_));
            std::memcpy(out_, from, part);
            out_ += part;
            from += part;
            size -= part;
        }
    }
    void beginObject() {
        storeBigEndian(table_.data() + next_ * offsetSize_, offset(), offsetSize_);
        ++next_;
    }
    void counted(std::uint8_t type, std::uint64_t count) {
        ensure(10);
        if (count < kCountFollows) {
            *out_++ = static_cast<std::uint8_t>(type | count);
            return;
        }
        *out_++ = static_cast<std::uint8_t>(type | kCountFollows);
        const unsigned width = unsignedWidth(count);
        *out_++ = integerMarker(width);
        storeBigEndian(out_, count, width);
        out_ += width;
    }
    void ref(std::uint64_t object) {
        ensure(8);
        storeBigEndian(out_, object, refSize_);
        out_ += refSize_;
    }
    void marker(std::uint8_t marker) {
        beginObject();
        ensure(1);
        *out_++ = marker;
    }
    void integer(std::int64_t value) {
        beginObject();
        ensure(9);
        const auto bits = static_cast<std::uint64_t>(value);
        const unsigned width = value < 0 ? 8 : unsignedWidth(bits);
        *out_++ = integerMarker(width);
        storeBigEndian(out_, bits, width);
        out_ += width;
    }
    void real(double value) {
        beginObject();
        ensure(9);
        *out_++ = kTypeReal | 3;
        storeBigEndian(out_, std::bit_cast<std::uint64_t>(value), 8);
        out_ += 8;
    }
    void string(std::string_view text) {
        beginObject();
        if (isAscii(text)) {
            counted(kTypeAscii, text.size());
            bytes(text.data(), text.size());
            return;
        }
        const std::size_t units = utf16Length(text);
        counted(kTypeUtf16, units);
        ensure(2 * units);
        writeUtf16BigEndian(text, out_);
        out_ += 2 * units;
    }
    // Hands the last piece to the sink.
    void finish() {
        piece_.resize(static_cast<std::size_t>(out_ - begin_));
        sink_(std::move(piece_));
    }

private:
    void ensure(std::size_t size) {
        if (static_cast<std::size_t>(end_ - out_) < size) {
            spill(size);
        }
    }
    // Hands the full piece on and continues in a fresh one of at least `size` bytes.
    void spill(std::size_t size) {
        const auto used = static_cast<std::size_t>(out_ - begin_);
        piece_.resize(used);
        startPiece(sink_(std::move(piece_)), used, size);
    }
    void startPiece(std::vector<std::uint8_t> piece, std::size_t previousBytes,
                    std::size_t size = 0) {
        flushed_ += previousBytes;
        piece_ = std::move(piece);
        const std::size_t bytes = std::max(pieceBytes_, size);
        if (piece_.capacity() < bytes) {
            reserveLarge(piece_, bytes);
        }
        piece_.resize(bytes);
        begin_ = piece_.data();
        out_ = begin_;
        end_ = begin_ + piece_.size();
    }

    const BinaryPlistWriter::PieceSink& sink_;
    std::size_t pieceBytes_;
    std::vector<std::uint8_t> piece_;
    std::uint8_t* begin_ = nullptr;
    std::uint8_t* out_ = nullptr;
    std::uint8_t* end_ = nullptr;
    std::uint64_t flushed_ = 0;
    std::vector<std::uint8_t> table_;
    unsigned offsetSize_;
    unsigned refSize_;
    std::uint64_t next_ = 0;
};

template <class... Fs> struct Overloaded : Fs... { using Fs::operator()...; };
template <class... Fs> Overloaded(Fs...) -> Overloaded<Fs...>;

// Numbers the objects of one entry's value from plan.firstObject on.
void planObjects(const EntryValue& value, bool shareStrings, EntryPlan& plan) {
    std::visit(Overloaded{
                   [&](std::int64_t) { plan.objectCount = 1; },
                   [&](const std::string&) { plan.objectCount = 1; },
                   [&](const StringColumnView& column) {
                       if (shareStrings) {
                           plan.distinct = findDistinctStrings(column);
                           plan.shared = true;
                           plan.objectCount = 1 + plan.distinct.firstElement.size();
                       } else {
                           plan.objectCount = 1 + column.size();
                       }
                   },
                   [&](std::span<const std::uint8_t> column) {
                       bool hasFalse = false;
                       bool hasTrue = false;
                       for (const std::uint8_t b : column) {
                           (b != 0 ? hasTrue : hasFalse) = true;
                       }
                       plan.objectCount = 1;
                       if (hasFalse) {
                           plan.falseObject = plan.firstObject + plan.objectCount++;
                       }
                       if (hasTrue) {
                           plan.trueObject = plan.firstObject + plan.objectCount++;
                       }
                   },
                   [&](auto column) { plan.objectCount = 1 + column.size(); },
               },
               value);
}

template <class Integer> std::size_t integerColumnBytes(std::span<const Integer> column) {
    std::size_t bytes = 0;
    for (const Integer value : column) {
        bytes += integerObjectSize(value);
    }
    return bytes;
}

// Bytes of all the objects of one entry's value.
std::size_t objectBytes(const EntryValue& value, const EntryPlan& plan, unsigned refSize) {
    const auto arrayBytes = [&](std::size_t count) {
        return countedHeaderSize(count) + count * refSize;
    };
    return std::visit(
        Overloaded{
            [&](std::int64_t scalar) { return integerObjectSize(scalar); },
            [&](const std::string& scalar) { return stringObjectSize(scalar); },
            [&](const StringColumnView& column) {
                std::size_t bytes = arrayBytes(column.size());
                if (plan.shared) {
                    for (const std::uint32_t first : plan.distinct.firstElement) {
                        bytes += stringObjectSize(column[first]);
                    }
                } else {
                    for (std::size_t i = 0; i < column.size(); ++i) {
                        bytes += stringObjectSize(column[i]);
                    }
                }
                return bytes;
            },
            [&](std::span<const std::uint8_t> column) {
                return arrayBytes(column.size()) + plan.objectCount - 1; // 1 byte per boolean
            },
            [&](std::span<const double> column) {
                return arrayBytes(column.size()) + 9 * column.size();
            },
            [&](auto column) { return arrayBytes(column.size()) + integerColumnBytes(column); },
        },
        value);
}

// Writes the objects of one entry's value, in object order.
void writeObjects(const EntryValue& value, const EntryPlan& plan, Output& out) {
    const std::uint64_t elementBase = plan.firstObject + 1;
    const auto array = [&](std::size_t count) {
        out.beginObject();
        out.counted(kTypeArray, count);
    };
    const auto consecutiveRefs = [&](std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            out.ref(elementBase + i);
        }
    };
    std::visit(Overloaded{
                   [&](std::int64_t scalar) { out.integer(scalar); },
                   [&](const std::string& scalar) { out.string(scalar); },
                   [&](const StringColumnView& column) {
                       array(column.size());
                       if (plan.shared) {
                           for (const std::uint32_t id : plan.distinct.idOfElement) {
                               out.ref(elementBase + id);
                           }
                           for (const std::uint32_t first : plan.distinct.firstElement) {
                               out.string(column[first]);
                           }
                       } else {
                           consecutiveRefs(column.size());
                           for (std::size_t i = 0; i < column.size(); ++i) {
                               out.string(column[i]);
                           }
                       }
                   },
                   [&](std::span<const std::uint8_t> column) {
                       array(column.size());
                       for (const std::uint8_t element : column) {
                           out.ref(element != 0 ? plan.trueObject : plan.falseObject);
                       }
                       if (plan.falseObject != 0) {
                           out.marker(kMarkerFalse);
                       }
                       if (plan.trueObject != 0) {
                           out.marker(kMarkerTrue);
                       }
                   },
                   [&](std::span<const double> column) {
                       array(column.size());
                       consecutiveRefs(column.size());
                       for (const double element : column) {
                           out.real(element);
                       }
                   },
                   [&](auto column) { // 32- and 64-bit integers
                       array(column.size());
                       consecutiveRefs(column.size());
                       for (const auto element : column) {
                           out.integer(element);
                       }
                   },
               },
               value);
}

} // namespace

void BinaryPlistWriter::add(std::string_view key, EntryValue value) {
    for (const Entry& entry : entries_) {
        if (entry.key == key) {
            throw std::invalid_argument("binary property list: key \"" + std::string(key) +
                                        "\" added twice");
        }
    }
    entries_.push_back({std::string(key), std::move(value)});
}

void BinaryPlistWriter::addInteger(std::string_view key, std::int64_t value) {
    add(key, value);
}

void BinaryPlistWriter::addString(std::string_view key, std::string_view value) {
    add(key, std::string(value));
}

void BinaryPlistWriter::addStringColumn(std::string_view key, StringColumnView values) {
    add(key, values);
}

void BinaryPlistWriter::addBooleanColumn(std::string_view key,
                                         std::span<const std::uint8_t> values) {
    add(key, values);
}

void BinaryPlistWriter::addInt32Column(std::string_view key, std::span<const std::int32_t> values) {
    add(key, values);
}

void BinaryPlistWriter::addInt64Column(std::string_view key, std::span<const std::int64_t> values) {
    add(key, values);
}

void BinaryPlistWriter::addRealColumn(std::string_view key, std::span<const double> values) {
    add(key, values);
}

std::vector<std::uint8_t> BinaryPlistWriter::write() const {
    std::vector<std::uint8_t> file;
    // One piece of the file's exact size: the sink sees the whole file once, at the end.
    write(
        [&file](std::vector<std::uint8_t>&& piece) {
            file = std::move(piece);
            return std::vector<std::uint8_t>();
        },
        0);
    return file;
}

void BinaryPlistWriter::write(const PieceSink& sink, std::size_t pieceBytes) const {
    // Objects: the dictionary, its keys, then each entry's value objects.
    const std::uint64_t keyCount = entries_.size();
    std::uint64_t objectCount = 1 + keyCount;
    std::vector<EntryPlan> plans(entries_.size());
    for (std::size_t e = 0; e < entries_.size(); ++e) {
        plans[e].firstObject = objectCount;
        planObjects(entries_[e].value, options_.shareEqualStrings, plans[e]);
        objectCount += plans[e].objectCount;
    }
    const unsigned refSize = widthForCount(objectCount);

    std::size_t objectsSize = countedHeaderSize(keyCount) + 2 * keyCount * refSize;
    for (std::size_t e = 0; e < entries_.size(); ++e) {
        objectsSize += stringObjectSize(entries_[e].key);
        objectsSize += objectBytes(entries_[e].value, plans[e], refSize);
    }
    const std::size_t tableOffset = kHeaderSize + objectsSize;
    const unsigned offsetSize = widthForCount(tableOffset);
    const std::size_t fileSize = tableOffset + objectCount * offsetSize + kTrailerSize;

    Output out(sink, pieceBytes == 0 ? fileSize : pieceBytes, objectCount, offsetSize, refSize);
    out.bytes(kMagic.data(), kHeaderSize);

    out.beginObject();
    out.counted(kTypeDict, keyCount);
    for (std::uint64_t k = 0; k < keyCount; ++k) {
        out.ref(1 + k);
    }
    for (const EntryPlan& plan : plans) {
        out.ref(plan.firstObject);
    }
    for (const Entry& entry : entries_) {
        out.string(entry.key);
    }
    for (std::size_t e = 0; e < entries_.size(); ++e) {
        writeObjects(entries_[e].value, plans[e], out);
    }
    if (out.offset() != tableOffset || out.objectsWritten() != objectCount) {
        throw std::logic_error("binary property list writer: planned and written sizes differ");
    }
    out.bytes(out.offsetTable().data(), out.offsetTable().size());

    // Trailer: 5 unused bytes, sort version 0, then the sizes and positions.
    std::array<std::uint8_t, kTrailerSize> trailer{};
    trailer[6] = static_cast<std::uint8_t>(offsetSize);
    trailer[7] = static_cast<std::uint8_t>(refSize);
    storeBigEndian(trailer.data() + 8, objectCount, 8);
    storeBigEndian(trailer.data() + 16, 0, 8);
    storeBigEndian(trailer.data() + 24, tableOffset, 8);
    out.bytes(trailer.data(), trailer.size());
    out.finish();
}

} // namespace brimvale
