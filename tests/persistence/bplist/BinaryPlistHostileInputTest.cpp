// Malformed and malicious files: every one must end in CorruptDataError, never in a crash, an
// endless loop or a huge allocation (this suite also runs under ASan and UBSan).

#include "core/persistence/bplist/BinaryPlistColumns.h"
#include "core/persistence/bplist/BinaryPlistReader.h"
#include "core/persistence/bplist/BinaryPlistWriter.h"
#include "core/persistence/bplist/PlistValue.h"
#include "core/support/CorruptDataError.h"
#include "tests/persistence/bplist/PlistBytes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace brimvale {
namespace {

using plisttest::asciiObject;
using plisttest::Bytes;
using plisttest::concat;
using plisttest::integerObject;
using plisttest::PlistAssembler;
using plisttest::TrailerField;
using plisttest::writeTrailer;

constexpr PlistReadLimits kSmallLimits{.maxDepth = 64, .maxDecodedBytes = 1 << 20};

// Decodes everything reachable, both as a tree and as columns; returns normally or throws
// CorruptDataError.
void decodeEverything(const Bytes& file) {
    const BinaryPlistReader reader(file, kSmallLimits);
    decodePlistValue(reader, reader.topObject());
    if (reader.kind(reader.topObject()) == PlistKind::Dictionary) {
        const PlistDictionaryRefs entries = reader.dictionary(reader.topObject());
        for (std::size_t i = 0; i < entries.values.size(); ++i) {
            if (reader.kind(entries.values[i]) == PlistKind::Array) {
                const auto ignore = [](auto read) {
                    try {
                        read();
                    } catch (const CorruptDataError&) {
                    }
                };
                const PlistRef array = entries.values[i];
                ignore([&] { readStringColumn(reader, array); });
                ignore([&] { readPackedStringColumn(reader, array); });
                ignore([&] { readInt64Column(reader, array); });
                ignore([&] { readInt32Column(reader, array); });
                ignore([&] { readBooleanColumn(reader, array); });
                ignore([&] { readRealColumn(reader, array); });
            }
        }
    }
}

// A small file using every type, shared objects and both string encodings.
Bytes everyTypeFile() {
    PlistAssembler plist;
    plist.add({}); // 0: the dictionary
    const auto kInt = plist.add(asciiObject("int"));
    const auto kMixed = plist.add(asciiObject("mixed"));
    const auto kNames = plist.add(asciiObject("names"));
    const auto kNested = plist.add(asciiObject("nested"));
    const auto big = plist.add(integerObject(5, 16, 0));
    const auto name = plist.add({0x62, 0x00, 0xE9, 0xD8, 0x3D});
    const auto real = plist.add({0x23, 0x40, 0x09, 0x21, 0xFB, 0x54, 0x44, 0x2D, 0x18});
    const auto date = plist.add({0x33, 0x41, 0xD4, 0xDC, 0x93, 0x80, 0, 0, 0});
    const auto data = plist.add({0x42, 0xAB, 0xCD});
    const auto uid = plist.add({0x81, 0x01, 0x02});
    const auto yes = plist.add({0x09});
    const auto null = plist.add({0x00});
    const auto mixed = plist.add(plist.array({big, name, real, date, data, uid, yes, null, yes}));
    const auto names = plist.add(plist.array({name, kInt, name}));
    const auto set = plist.add(plist.container(0xC0, {big, big}, 2));
    const auto nested = plist.add(plist.dictionary({kInt, set}));
    plist.set(0, plist.dictionary({kInt, kMixed, kNames, kNested, big, mixed, names, nested}));
    return plist.build();
}

Bytes cacheShapedFile() {
    const std::vector<std::string> names = {"", "Documents", "\xC3\xA9t\xC3\xA9", "Documents"};
    const std::vector<std::int32_t> parents = {-1, 0, 0, 1};
    const std::vector<std::uint8_t> directories = {1, 1, 0, 0};
    const std::vector<std::int64_t> sizes = {100, 60, 40, -1};
    const std::vector<double> times = {1.0, 2.0, 3.0, 4.0};
    BinaryPlistWriter writer;
    writer.addInteger("v", 2);
    writer.addString("rp", "/home");
    writer.addStringColumn("nm", names);
    writer.addInt32Column("pr", parents);
    writer.addBooleanColumn("di", directories);
    writer.addInt64Column("sz", sizes);
    writer.addRealColumn("mt", times);
    return writer.write();
}

TEST(BinaryPlistHostileInput, EveryTruncationIsRejected) {
    for (const Bytes& file : {everyTypeFile(), cacheShapedFile()}) {
        ASSERT_NO_THROW(decodeEverything(file));
        for (std::size_t length = 0; length < file.size(); ++length) {
            // An exact-size copy, so that reading past the end is caught by ASan.
            const Bytes prefix(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(length));
            EXPECT_THROW(decodeEverything(prefix), CorruptDataError) << "length " << length;
        }
    }
}

TEST(BinaryPlistHostileInput, EveryCorruptedByteIsDecodedOrRejected) {
    for (const Bytes& file : {everyTypeFile(), cacheShapedFile()}) {
        for (std::size_t at = 0; at < file.size(); ++at) {
            std::vector<std::uint8_t> changes = {0x00, 0xFF, 0x0F, 0xAF, 0x5F, 0x1F};
            for (const std::uint8_t flip : {0x01, 0x10, 0x80}) {
                changes.push_back(static_cast<std::uint8_t>(file[at] ^ flip));
            }
            for (const std::uint8_t change : changes) {
                Bytes corrupt = file;
                corrupt[at] = change;
                try {
                    decodeEverything(corrupt);
                } catch (const CorruptDataError&) {
                }
            }
        }
    }
}

TEST(BinaryPlistHostileInput, BadHeaderOrTrailerIsRejected) {
    const Bytes good = cacheShapedFile();
    const std::uint64_t objects = plisttest::readTrailer(good, TrailerField::objectCount);
    const std::uint64_t table = plisttest::readTrailer(good, TrailerField::tableOffset);
    struct Mutation {
        const char* what;
        std::size_t field;
        std::uint64_t value;
        unsigned width;
    };
    const std::vector<Mutation> mutations = {
        {"offset size 0", TrailerField::offsetSize, 0, 1},
        {"offset size 9", TrailerField::offsetSize, 9, 1},
        {"offset size 2", TrailerField::offsetSize, 2, 1}, // table no longer fits
        {"ref size 0", TrailerField::refSize, 0, 1},
        {"ref size 9", TrailerField::refSize, 9, 1},
        {"no objects", TrailerField::objectCount, 0, 8},
        {"one object more", TrailerField::objectCount, objects + 1, 8},
        {"one object less", TrailerField::objectCount, objects - 1, 8},
        {"count overflowing the table size", TrailerField::objectCount, std::uint64_t{1} << 63, 8},
        {"count of 2^64 - 1", TrailerField::objectCount, ~std::uint64_t{0}, 8},
        {"top object out of range", TrailerField::topObject, objects, 8},
        {"top object 2^64 - 1", TrailerField::topObject, ~std::uint64_t{0}, 8},
        {"table at 0", TrailerField::tableOffset, 0, 8},
        {"table in the header", TrailerField::tableOffset, 7, 8},
        {"table before any object", TrailerField::tableOffset, 8, 8},
        {"table one byte later", TrailerField::tableOffset, table + 1, 8},
        {"table in the trailer", TrailerField::tableOffset, good.size() - 32, 8},
        {"table past the end", TrailerField::tableOffset, good.size() + 100, 8},
        {"table at 2^64 - 1", TrailerField::tableOffset, ~std::uint64_t{0}, 8},
    };
    for (const Mutation& m : mutations) {
        Bytes file = good;
        writeTrailer(file, m.field, m.value, m.width);
        EXPECT_THROW(BinaryPlistReader{file}, CorruptDataError) << m.what;
    }

    Bytes magic = good;
    magic[7] = '1';
    EXPECT_THROW(BinaryPlistReader{magic}, CorruptDataError);
    const Bytes tooShort(good.end() - 40, good.end());
    EXPECT_THROW(BinaryPlistReader{tooShort}, CorruptDataError);
    EXPECT_THROW(BinaryPlistReader{Bytes{}}, CorruptDataError);

    // Widths too small for what the trailer says they must address.
    PlistAssembler manyObjects(1, 2);
    for (int i = 0; i < 256; ++i) {
        manyObjects.add({0x09});
    }
    EXPECT_THROW(BinaryPlistReader{manyObjects.build()}, CorruptDataError);
    PlistAssembler farTable(1, 1);
    farTable.add(concat({{0x4F, 0x11, 0x01, 0x00}, Bytes(256, 0)}));
    EXPECT_THROW(BinaryPlistReader{farTable.build()}, CorruptDataError);
}

TEST(BinaryPlistHostileInput, OffsetsOutsideTheObjectAreaAreRejected) {
    PlistAssembler plist;
    const auto one = plist.add(integerObject(1, 1));
    const auto array = plist.add(plist.array({one}));
    const Bytes good = plist.build(array);
    const std::size_t table = plisttest::readTrailer(good, TrailerField::tableOffset);
    ASSERT_EQ(readPlistValue(good), PlistValue(PlistArray{std::int64_t{1}}));
    for (const std::uint64_t offset :
         {std::uint64_t{0}, std::uint64_t{7}, std::uint64_t{table}, std::uint64_t{table + 1},
          std::uint64_t{good.size() - 1}, std::uint64_t{255}}) {
        Bytes file = good;
        file[table + one] = static_cast<std::uint8_t>(offset);
        EXPECT_THROW(readPlistValue(file), CorruptDataError) << "offset " << offset;
        const BinaryPlistReader reader(file);
        EXPECT_THROW(readInt64Column(reader, array), CorruptDataError) << "offset " << offset;
    }
}

TEST(BinaryPlistHostileInput, ObjectsRunningIntoTheOffsetTableAreRejected) {
    // Each object is the last one before the offset table and lacks its final byte(s).
    const std::vector<Bytes> objects = {
        {0x13, 1, 2, 3},                                  // 8-byte integer with 3 bytes
        {0x14, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, // 16-byte integer with 15
        {0x22, 0x3F, 0xC0},                               // 4-byte real with 2
        {0x23, 0x3F, 0xC0},                               // 8-byte real
        {0x33, 0x41},                                     // date
        {0x87, 1},                                        // 8-byte uid
        {0x55, 'a', 'b'},                                 // 5-character string
        {0x63, 0x00, 0x41},                               // 3-unit UTF-16 string
        {0x5F},                                           // count marker without its count
        {0x5F, 0x13, 0, 0},                               // 8-byte count cut short
        {0x44, 1, 2, 3},                                  // 4 bytes of data
        {0xA3, 0, 0},                                     // array of 3 refs with 2
        {0xD2, 0, 0, 0},                                  // dictionary of 2 entries with 3 refs
    };
    for (const Bytes& object : objects) {
        SCOPED_TRACE(::testing::PrintToString(object));
        PlistAssembler plist;
        plist.add(object);
        EXPECT_THROW(decodeEverything(plist.build()), CorruptDataError);
    }
}

TEST(BinaryPlistHostileInput, CyclesAndDeepNestingAreRejected) {
    {
        PlistAssembler plist; // an array containing itself
        plist.add(plist.array({0}));
        const Bytes file = plist.build();
        try {
            readPlistValue(file);
            ADD_FAILURE() << "no exception";
        } catch (const CorruptDataError& error) {
            EXPECT_THAT(error.what(), ::testing::HasSubstr("contains itself"));
        }
        // Typed access does not recurse, so the cycle is harmless there.
        const BinaryPlistReader reader(file);
        EXPECT_EQ(reader.elements(0)[0], 0u);
    }
    {
        PlistAssembler plist; // a -> b -> a through a dictionary
        const auto key = plist.add(asciiObject("k"));
        plist.add({});
        const auto b = plist.add(plist.array({key, 1}));
        plist.set(1, plist.dictionary({key, b}));
        EXPECT_THROW(readPlistValue(plist.build(1)), CorruptDataError);
    }
    {
        PlistAssembler plist; // a set containing itself
        plist.add(plist.container(0xC0, {0}, 1));
        EXPECT_THROW(readPlistValue(plist.build()), CorruptDataError);
    }
    // An acyclic chain of 300 nested arrays: beyond the default depth, and exactly at a limit
    // of 300.
    PlistAssembler chain(2, 2);
    chain.add({0x50});
    for (std::uint64_t i = 0; i < 300; ++i) {
        chain.add(chain.array({i}));
    }
    const Bytes deep = chain.build(300);
    EXPECT_THROW(readPlistValue(deep), CorruptDataError);
    EXPECT_THROW(readPlistValue(deep, {.maxDepth = 299}), CorruptDataError);
    EXPECT_NO_THROW(readPlistValue(deep, {.maxDepth = 300}));
}

TEST(BinaryPlistHostileInput, SharedObjectsCannotInflateTheResultPastTheLimit) {
    // 64 levels of [previous, previous]: 2^64 leaves from a file of a few hundred bytes.
    PlistAssembler doubling;
    doubling.add(asciiObject("leaf"));
    for (std::uint64_t i = 0; i < 64; ++i) {
        doubling.add(doubling.array({i, i}));
    }
    EXPECT_THROW(readPlistValue(doubling.build(64), kSmallLimits), CorruptDataError);

    // One 1000-byte string referenced 1000 times: a megabyte of text from 3 kB.
    PlistAssembler repeated(2, 2);
    const auto text = repeated.add(concat({{0x5F, 0x11, 0x03, 0xE8}, Bytes(1000, 'x')}));
    Bytes array{0xAF, 0x11, 0x03, 0xE8};
    for (int i = 0; i < 1000; ++i) {
        array.insert(array.end(), {0, static_cast<std::uint8_t>(text)});
    }
    const auto column = repeated.add(array);
    const Bytes file = repeated.build(column);
    const BinaryPlistReader limited(file, {.maxDecodedBytes = 500'000});
    EXPECT_THROW(readStringColumn(limited, column), CorruptDataError);
    EXPECT_THROW(readPackedStringColumn(limited, column), CorruptDataError);
    EXPECT_THROW(decodePlistValue(limited, column), CorruptDataError);
    const BinaryPlistReader unlimited(file);
    EXPECT_EQ(readStringColumn(unlimited, column).size(), 1000u);
    EXPECT_EQ(readPackedStringColumn(unlimited, column).back(), std::string(1000, 'x'));
}

TEST(BinaryPlistHostileInput, HugeDeclaredCountsAreRejectedBeforeAllocating) {
    const std::vector<Bytes> objects = {
        {0xAF, 0x13, 0x40, 0, 0, 0, 0, 0, 0, 0}, // array of 2^62 refs
        {0xCF, 0x13, 0x40, 0, 0, 0, 0, 0, 0, 0}, // set
        {0xDF, 0x13, 0x40, 0, 0, 0, 0, 0, 0, 0}, // dictionary: 2^63 refs
        {0xDF, 0x13, 0x7F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF},
        {0x5F, 0x13, 0x7F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, // string
        {0x5F, 0x13, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, // negative count
        {0x6F, 0x13, 0x80, 0, 0, 0, 0, 0, 0, 1}, // UTF-16: count * 2 wraps around
        {0x4F, 0x12, 0xFF, 0xFF, 0xFF, 0xFF},    // data
        {0xAF, 0x11, 0x01, 0x00, 0x00},          // 256 refs, 1 present
        {0x5F, 0x14, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 'a'}, // 16-byte count
        {0x5F, 0x22, 0x3F, 0x80, 0x00, 0x00, 'a'}, // count that is not an integer
        {0x5F, 0x50, 'a'},                         // count that is a string
    };
    for (const Bytes& object : objects) {
        SCOPED_TRACE(::testing::PrintToString(object));
        PlistAssembler plist;
        plist.add(object);
        EXPECT_THROW(decodeEverything(plist.build()), CorruptDataError);
    }
}

TEST(BinaryPlistHostileInput, UnknownMarkersBadRefsAndNonStringKeysAreRejected) {
    for (const std::uint8_t marker : {0x01, 0x07, 0x0A, 0x0E, 0x15, 0x1F, 0x20, 0x21, 0x24, 0x30,
                                      0x34, 0x70, 0x7F, 0x88, 0x8F, 0x90, 0xB0, 0xE0, 0xF0, 0xFF}) {
        PlistAssembler plist;
        plist.add({marker, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
        const Bytes file = plist.build();
        EXPECT_THROW(readPlistValue(file), CorruptDataError) << int{marker};
        EXPECT_THROW(BinaryPlistReader(file).kind(0), CorruptDataError) << int{marker};
    }

    PlistAssembler outOfRange;
    const auto one = outOfRange.add(integerObject(1, 1));
    const auto array = outOfRange.add(outOfRange.array({one, 200}));
    const Bytes badRef = outOfRange.build(array);
    EXPECT_THROW(readPlistValue(badRef), CorruptDataError);
    const BinaryPlistReader badRefReader(badRef);
    EXPECT_THROW(readInt64Column(badRefReader, array), CorruptDataError);
    EXPECT_THROW(badRefReader.kind(200), CorruptDataError);

    PlistAssembler intKey;
    const auto key = intKey.add(integerObject(1, 1));
    const auto name = intKey.add(asciiObject("name"));
    const auto dict = intKey.add(intKey.dictionary({key, name, name, key}));
    const Bytes file = intKey.build(dict);
    EXPECT_THROW(readPlistValue(file), CorruptDataError);
    // Typed lookup skips keys of other kinds.
    const BinaryPlistReader reader(file);
    EXPECT_EQ(reader.find(dict, "name"), std::optional<PlistRef>(key));
}

} // namespace
} // namespace brimvale
