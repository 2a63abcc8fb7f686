#include "core/persistence/bplist/BinaryPlistReader.h"

#include "core/persistence/bplist/PlistText.h"
#include "core/support/CorruptDataError.h"

#include <bit>
#include <cstdio>
#include <cstring>
#include <limits>

namespace brimvale {

using namespace bplist;

namespace {

[[noreturn]] void failFile(const std::string& what) {
    throw CorruptDataError("binary property list: " + what);
}

std::optional<PlistKind> kindOfMarker(std::uint8_t marker) {
    const std::uint8_t low = marker & 0x0F;
    switch (marker & 0xF0) {
    case 0x00:
        if (marker == kMarkerNull || marker == kMarkerFill) {
            return PlistKind::Null;
        }
        if (marker == kMarkerFalse || marker == kMarkerTrue) {
            return PlistKind::Boolean;
        }
        return std::nullopt;
    case kTypeInteger:
        return low <= 4 ? std::optional(PlistKind::Integer) : std::nullopt;
    case kTypeReal:
        return low == 2 || low == 3 ? std::optional(PlistKind::Real) : std::nullopt;
    case kMarkerDate & 0xF0:
        return marker == kMarkerDate ? std::optional(PlistKind::Date) : std::nullopt;
    case kTypeData:
        return PlistKind::Data;
    case kTypeAscii:
    case kTypeUtf16:
        return PlistKind::String;
    case kTypeUid:
        return low <= 7 ? std::optional(PlistKind::Uid) : std::nullopt;
    case kTypeArray:
        return PlistKind::Array;
    case kTypeSet:
        return PlistKind::Set;
    case kTypeDict:
        return PlistKind::Dictionary;
    default:
        return std::nullopt;
    }
}

} // namespace

std::string_view plistKindName(PlistKind kind) {
    switch (kind) {
    case PlistKind::Null:
        return "null";
    case PlistKind::Boolean:
        return "boolean";
    case PlistKind::Integer:
        return "integer";
    case PlistKind::Real:
        return "real";
    case PlistKind::Date:
        return "date";
    case PlistKind::Data:
        return "data";
    case PlistKind::String:
        return "string";
    case PlistKind::Uid:
        return "uid";
    case PlistKind::Array:
        return "array";
    case PlistKind::Set:
        return "set";
    case PlistKind::Dictionary:
        return "dictionary";
    }
    return "unknown";
}

BinaryPlistReader::BinaryPlistReader(std::span<const std::uint8_t> bytes, PlistReadLimits limits)
    : bytes_(bytes.data())
    , limits_(limits) {
    const std::size_t size = bytes.size();
    if (size < kHeaderSize + kTrailerSize + 2) {
        failFile("file of " + std::to_string(size) + " bytes is too short");
    }
    if (std::memcmp(bytes_, kMagic.data(), kHeaderSize) != 0) {
        failFile("no bplist00 header");
    }
    const std::size_t trailerStart = size - kTrailerSize;
    const std::uint8_t* trailer = bytes_ + trailerStart;
    offsetSize_ = trailer[6];
    refSize_ = trailer[7];
    objectCount_ = loadBigEndian(trailer + 8, 8);
    topObject_ = loadBigEndian(trailer + 16, 8);
    const std::uint64_t tableOffset = loadBigEndian(trailer + 24, 8);

    const auto trailerError = [&](const std::string& what) {
        failFile("bad trailer: " + what);
    };
    if (offsetSize_ < 1 || offsetSize_ > 8) {
        trailerError("offset size " + std::to_string(offsetSize_));
    }
    if (refSize_ < 1 || refSize_ > 8) {
        trailerError("object ref size " + std::to_string(refSize_));
    }
    if (objectCount_ == 0) {
        trailerError("no objects");
    }
    if (tableOffset <= kHeaderSize || tableOffset >= trailerStart) {
        trailerError("offset table at " + std::to_string(tableOffset) + " in a file of " +
                     std::to_string(size) + " bytes");
    }
    // The offset table fills the space between the objects and the trailer exactly.
    if ((trailerStart - tableOffset) / offsetSize_ != objectCount_ ||
        (trailerStart - tableOffset) % offsetSize_ != 0) {
        trailerError(std::to_string(objectCount_) + " objects of " + std::to_string(offsetSize_) +
                     "-byte offsets do not fit the " + std::to_string(trailerStart - tableOffset) +
                     " bytes of the offset table");
    }
    if (refSize_ < 8 && (objectCount_ >> (8 * refSize_)) != 0) {
        trailerError(std::to_string(refSize_) + "-byte refs cannot address " +
                     std::to_string(objectCount_) + " objects");
    }
    if (offsetSize_ < 8 && (tableOffset >> (8 * offsetSize_)) != 0) {
        trailerError(std::to_string(offsetSize_) + "-byte offsets cannot reach offset " +
                     std::to_string(tableOffset));
    }
    if (topObject_ >= objectCount_) {
        trailerError("top object " + std::to_string(topObject_) + " of " +
                     std::to_string(objectCount_) + " objects");
    }
    offsetTable_ = static_cast<std::size_t>(tableOffset);
    objectsEnd_ = offsetTable_;
}

void BinaryPlistReader::fail(PlistRef ref, std::string_view what) const {
    failFile("object " + std::to_string(ref) + ": " + std::string(what));
}

void BinaryPlistReader::wrongKind(PlistRef ref, std::string_view expected) const {
    fail(ref,
         "expected " + std::string(expected) + ", found " + std::string(plistKindName(kind(ref))));
}

std::size_t BinaryPlistReader::offsetOf(PlistRef ref) const {
    if (ref >= objectCount_) {
        failFile("ref " + std::to_string(ref) + " out of range (" + std::to_string(objectCount_) +
                 " objects)");
    }
    const std::uint64_t offset = loadBigEndian(
        bytes_ + offsetTable_ + static_cast<std::size_t>(ref) * offsetSize_, offsetSize_);
    if (offset < kHeaderSize || offset >= objectsEnd_) {
        fail(ref, "offset " + std::to_string(offset) + " outside the object area [8, " +
                      std::to_string(objectsEnd_) + ")");
    }
    return static_cast<std::size_t>(offset);
}

BinaryPlistReader::Payload BinaryPlistReader::counted(PlistRef ref, std::size_t offset,
                                                      unsigned unitSize) const {
    const std::uint8_t marker = bytes_[offset];
    std::size_t start = offset + 1;
    std::uint64_t count = marker & 0x0F;
    if (count == kCountFollows) {
        if (start >= objectsEnd_) {
            fail(ref, "count runs past the object area");
        }
        const std::uint8_t countMarker = bytes_[start];
        if ((countMarker & 0xF0) != kTypeInteger || (countMarker & 0x0F) > 3) {
            fail(ref, "count is not a 1-, 2-, 4- or 8-byte integer");
        }
        const unsigned width = 1u << (countMarker & 0x0F);
        if (objectsEnd_ - start - 1 < width) {
            fail(ref, "count runs past the object area");
        }
        count = loadBigEndian(bytes_ + start + 1, width);
        start += 1 + width;
    }
    const std::size_t available = objectsEnd_ - start;
    if (count > available / unitSize) {
        fail(ref, "declared count " + std::to_string(count) + " exceeds the " +
                      std::to_string(available) + " bytes left in the object area");
    }
    return {start, count};
}

std::size_t BinaryPlistReader::fixedPayload(PlistRef ref, std::size_t offset,
                                            std::size_t size) const {
    if (objectsEnd_ - offset - 1 < size) {
        fail(ref, "runs past the object area");
    }
    return offset + 1;
}

PlistKind BinaryPlistReader::kind(PlistRef ref) const {
    const std::uint8_t marker = bytes_[offsetOf(ref)];
    if (const auto kind = kindOfMarker(marker)) {
        return *kind;
    }
    char hex[8];
    std::snprintf(hex, sizeof hex, "0x%02X", marker);
    fail(ref, "unknown marker " + std::string(hex));
}

bool BinaryPlistReader::boolean(PlistRef ref) const {
    const std::uint8_t marker = bytes_[offsetOf(ref)];
    if (marker == kMarkerTrue) {
        return true;
    }
    if (marker != kMarkerFalse) {
        wrongKind(ref, "boolean");
    }
    return false;
}

BinaryPlistReader::IntegerBits BinaryPlistReader::integerBits(PlistRef ref) const {
    const std::size_t offset = offsetOf(ref);
    const std::uint8_t marker = bytes_[offset];
    if ((marker & 0xF0) != kTypeInteger || (marker & 0x0F) > 4) {
        wrongKind(ref, "integer");
    }
    const unsigned width = 1u << (marker & 0x0F);
    const std::size_t start = fixedPayload(ref, offset, width);
    if (width <= 8) {
        return {loadBigEndian(bytes_ + start, width), false};
    }
    const std::uint64_t high = loadBigEndian(bytes_ + start, 8);
    const std::uint64_t low = loadBigEndian(bytes_ + start + 8, 8);
    const bool lowNegative = (low >> 63) != 0;
    if (high == 0) {
        return {low, lowNegative};
    }
    if (high == ~std::uint64_t{0} && lowNegative) {
        return {low, false};
    }
    fail(ref, "16-byte integer outside the 64-bit range");
}

std::int64_t BinaryPlistReader::integer(PlistRef ref) const {
    const IntegerBits value = integerBits(ref);
    if (value.aboveInt64) {
        fail(ref, "integer " + std::to_string(value.bits) + " exceeds the signed 64-bit range");
    }
    return std::bit_cast<std::int64_t>(value.bits);
}

std::uint64_t BinaryPlistReader::unsignedInteger(PlistRef ref) const {
    const IntegerBits value = integerBits(ref);
    if (!value.aboveInt64 && std::bit_cast<std::int64_t>(value.bits) < 0) {
        fail(ref,
             "integer " + std::to_string(std::bit_cast<std::int64_t>(value.bits)) + " is negative");
    }
    return value.bits;
}

bool BinaryPlistReader::integerFitsInt64(PlistRef ref) const {
    return !integerBits(ref).aboveInt64;
}

double BinaryPlistReader::real(PlistRef ref) const {
    const std::size_t offset = offsetOf(ref);
    const std::uint8_t marker = bytes_[offset];
    if (marker == (kTypeReal | 3)) {
        return std::bit_cast<double>(loadBigEndian(bytes_ + fixedPayload(ref, offset, 8), 8));
    }
    if (marker == (kTypeReal | 2)) {
        const auto bits =
            static_cast<std::uint32_t>(loadBigEndian(bytes_ + fixedPayload(ref, offset, 4), 4));
        return std::bit_cast<float>(bits);
    }
    wrongKind(ref, "real");
}

double BinaryPlistReader::date(PlistRef ref) const {
    const std::size_t offset = offsetOf(ref);
    if (bytes_[offset] != kMarkerDate) {
        wrongKind(ref, "date");
    }
    return std::bit_cast<double>(loadBigEndian(bytes_ + fixedPayload(ref, offset, 8), 8));
}

std::span<const std::uint8_t> BinaryPlistReader::data(PlistRef ref) const {
    const std::size_t offset = offsetOf(ref);
    if ((bytes_[offset] & 0xF0) != kTypeData) {
        wrongKind(ref, "data");
    }
    const Payload payload = counted(ref, offset, 1);
    return {bytes_ + payload.start, static_cast<std::size_t>(payload.count)};
}

std::uint64_t BinaryPlistReader::uid(PlistRef ref) const {
    const std::size_t offset = offsetOf(ref);
    const std::uint8_t marker = bytes_[offset];
    if ((marker & 0xF0) != kTypeUid || (marker & 0x0F) > 7) {
        wrongKind(ref, "uid");
    }
    const unsigned width = (marker & 0x0Fu) + 1;
    return loadBigEndian(bytes_ + fixedPayload(ref, offset, width), width);
}

std::string BinaryPlistReader::string(PlistRef ref) const {
    const std::size_t offset = offsetOf(ref);
    if ((bytes_[offset] & 0xF0) == kTypeAscii) {
        const Payload payload = counted(ref, offset, 1);
        return {reinterpret_cast<const char*>(bytes_ + payload.start),
                static_cast<std::size_t>(payload.count)};
    }
    std::string out;
    appendString(ref, out);
    return out;
}

void BinaryPlistReader::appendString(PlistRef ref, std::string& out) const {
    const std::size_t offset = offsetOf(ref);
    const std::uint8_t type = bytes_[offset] & 0xF0;
    if (type == kTypeAscii) {
        const Payload payload = counted(ref, offset, 1);
        out.append(reinterpret_cast<const char*>(bytes_ + payload.start),
                   static_cast<std::size_t>(payload.count));
    } else if (type == kTypeUtf16) {
        const Payload payload = counted(ref, offset, 2);
        appendBytesFromUtf16BigEndian(bytes_ + payload.start,
                                      static_cast<std::size_t>(payload.count), out);
    } else {
        wrongKind(ref, "string");
    }
}

bool BinaryPlistReader::stringEquals(PlistRef ref, std::string_view utf8) const {
    const std::size_t offset = offsetOf(ref);
    const std::uint8_t type = bytes_[offset] & 0xF0;
    if (type == kTypeAscii) {
        const Payload payload = counted(ref, offset, 1);
        return std::string_view(reinterpret_cast<const char*>(bytes_ + payload.start),
                                static_cast<std::size_t>(payload.count)) == utf8;
    }
    if (type != kTypeUtf16) {
        return false;
    }
    return string(ref) == utf8;
}

PlistRefs BinaryPlistReader::elements(PlistRef ref) const {
    const std::size_t offset = offsetOf(ref);
    const std::uint8_t type = bytes_[offset] & 0xF0;
    if (type != kTypeArray && type != kTypeSet) {
        wrongKind(ref, "array");
    }
    const Payload payload = counted(ref, offset, refSize_);
    return {bytes_ + payload.start, static_cast<std::size_t>(payload.count), refSize_};
}

PlistDictionaryRefs BinaryPlistReader::dictionary(PlistRef ref) const {
    const std::size_t offset = offsetOf(ref);
    if ((bytes_[offset] & 0xF0) != kTypeDict) {
        wrongKind(ref, "dictionary");
    }
    const Payload payload = counted(ref, offset, 2 * refSize_);
    const auto count = static_cast<std::size_t>(payload.count);
    return {{bytes_ + payload.start, count, refSize_},
            {bytes_ + payload.start + count * refSize_, count, refSize_}};
}

std::optional<PlistRef> BinaryPlistReader::find(PlistRef dictionaryRef,
                                                std::string_view key) const {
    const PlistDictionaryRefs entries = dictionary(dictionaryRef);
    for (std::size_t i = 0; i < entries.keys.size(); ++i) {
        if (stringEquals(entries.keys[i], key)) {
            return entries.values[i];
        }
    }
    return std::nullopt;
}

PlistRef BinaryPlistReader::at(PlistRef dictionaryRef, std::string_view key) const {
    if (const auto value = find(dictionaryRef, key)) {
        return *value;
    }
    fail(dictionaryRef, "dictionary has no key \"" + std::string(key) + "\"");
}

} // namespace brimvale
