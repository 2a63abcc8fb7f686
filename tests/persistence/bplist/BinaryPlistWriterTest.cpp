// The writer's output is checked against an independent parser (Debian's libplist) and against
// our reader, and byte by byte where the format leaves no choice.

#include "core/persistence/bplist/BinaryPlistWriter.h"

#include "core/persistence/bplist/BinaryPlistColumns.h"
#include "core/persistence/bplist/BinaryPlistReader.h"
#include "tests/persistence/bplist/PlistBytes.h"

#include <gtest/gtest.h>
#include <plist/plist.h>

#include <bit>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace brimvale {
namespace {

using plisttest::Bytes;

// --- libplist access ---------------------------------------------------------------------------

struct PlistFree {
    void operator()(void* node) const { plist_free(static_cast<plist_t>(node)); }
};
using PlistPtr = std::unique_ptr<void, PlistFree>;

PlistPtr parseWithLibplist(const Bytes& file) {
    plist_t root = nullptr;
    plist_from_bin(reinterpret_cast<const char*>(file.data()),
                   static_cast<std::uint32_t>(file.size()), &root);
    return PlistPtr(root);
}

std::vector<plist_t> arrayItems(plist_t array) {
    std::vector<plist_t> items;
    plist_array_iter iter = nullptr;
    plist_array_new_iter(array, &iter);
    for (plist_t item = nullptr;;) {
        plist_array_next_item(array, iter, &item);
        if (item == nullptr) {
            break;
        }
        items.push_back(item);
    }
    std::free(iter);
    return items;
}

std::vector<std::pair<std::string, plist_t>> dictItems(plist_t dict) {
    std::vector<std::pair<std::string, plist_t>> items;
    plist_dict_iter iter = nullptr;
    plist_dict_new_iter(dict, &iter);
    for (;;) {
        char* key = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(dict, iter, &key, &value);
        if (key == nullptr) {
            break;
        }
        items.emplace_back(key, value);
        std::free(key);
    }
    std::free(iter);
    return items;
}

std::string stringOf(plist_t node) {
    EXPECT_EQ(plist_get_node_type(node), PLIST_STRING);
    char* text = nullptr;
    plist_get_string_val(node, &text);
    std::string result = text != nullptr ? text : "<null>";
    std::free(text);
    return result;
}

std::int64_t integerOf(plist_t node) {
    EXPECT_EQ(plist_get_node_type(node), PLIST_UINT);
    std::uint64_t value = 0;
    plist_get_uint_val(node, &value);
    return std::bit_cast<std::int64_t>(value);
}

std::vector<std::string> stringsOf(plist_t array) {
    std::vector<std::string> values;
    for (plist_t item : arrayItems(array)) {
        values.push_back(stringOf(item));
    }
    return values;
}

std::vector<std::int64_t> integersOf(plist_t array) {
    std::vector<std::int64_t> values;
    for (plist_t item : arrayItems(array)) {
        values.push_back(integerOf(item));
    }
    return values;
}

std::vector<std::uint8_t> booleansOf(plist_t array) {
    std::vector<std::uint8_t> values;
    for (plist_t item : arrayItems(array)) {
        EXPECT_EQ(plist_get_node_type(item), PLIST_BOOLEAN);
        std::uint8_t value = 0;
        plist_get_bool_val(item, &value);
        values.push_back(value != 0 ? 1 : 0);
    }
    return values;
}

// Reals as bit patterns, so NaN and -0.0 compare exactly.
std::vector<std::uint64_t> realBitsOf(plist_t array) {
    std::vector<std::uint64_t> values;
    for (plist_t item : arrayItems(array)) {
        EXPECT_EQ(plist_get_node_type(item), PLIST_REAL);
        double value = 0;
        plist_get_real_val(item, &value);
        values.push_back(std::bit_cast<std::uint64_t>(value));
    }
    return values;
}

std::vector<std::uint64_t> bitsOf(const std::vector<double>& values) {
    std::vector<std::uint64_t> bits;
    for (const double value : values) {
        bits.push_back(std::bit_cast<std::uint64_t>(value));
    }
    return bits;
}

std::vector<std::string> keysOf(plist_t dict) {
    std::vector<std::string> keys;
    for (const auto& [key, value] : dictItems(dict)) {
        keys.push_back(key);
    }
    return keys;
}

plist_t item(plist_t dict, const char* key) {
    plist_t node = plist_dict_get_item(dict, key);
    EXPECT_NE(node, nullptr) << key;
    return node;
}

// --- a cache record ----------------------------------------------------------------------------

struct Record {
    std::int64_t version = 2;
    std::string rootPath;
    std::string rootName;
    std::vector<std::string> names;
    std::vector<std::int32_t> parents;
    std::vector<std::uint8_t> isDirectory;
    std::vector<std::int64_t> sizes;
    std::vector<double> modified;
    std::vector<std::string> pathInfo;
    std::vector<std::string> mountInfo;

    Bytes write(BinaryPlistWriter::Options options = {}) const { return writer(options).write(); }

    // The file through the piece sink, each piece's buffer handed back to be filled again.
    Bytes writeInPieces(std::size_t pieceBytes, std::size_t& pieces) const {
        Bytes joined;
        pieces = 0;
        writer({}).write(
            [&](Bytes&& piece) {
                ++pieces;
                joined.insert(joined.end(), piece.begin(), piece.end());
                return std::move(piece);
            },
            pieceBytes);
        return joined;
    }

    BinaryPlistWriter writer(BinaryPlistWriter::Options options) const {
        BinaryPlistWriter writer(options);
        writer.addInteger("v", version);
        writer.addString("rp", rootPath);
        writer.addString("rn", rootName);
        writer.addStringColumn("nm", names);
        writer.addInt32Column("pr", parents);
        writer.addBooleanColumn("di", isDirectory);
        writer.addInt64Column("sz", sizes);
        writer.addRealColumn("mt", modified);
        writer.addStringColumn("pi", pathInfo);
        writer.addStringColumn("mi", mountInfo);
        return writer;
    }
};

const std::vector<std::string> kRecordKeys = {"v",  "rp", "rn", "nm", "pr",
                                              "di", "sz", "mt", "pi", "mi"};

Record sampleRecord() {
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    constexpr double inf = std::numeric_limits<double>::infinity();
    constexpr std::int64_t i64min = std::numeric_limits<std::int64_t>::min();
    constexpr std::int64_t i64max = std::numeric_limits<std::int64_t>::max();
    Record r;
    r.rootPath = "/home/anna/Bilder und Fotos \xE2\x80\x94 2024";
    r.rootName = "Bilder und Fotos \xE2\x80\x94 2024";
    r.names = {"",
               "Documents",
               "Gr\xC3\xBC\xC3\x9F Gott.txt",
               "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E.pdf",
               "\xF0\x9F\x98\x80 smile.png",
               "Documents",
               "fourteen_chars",
               "fifteen_chars__",
               "sixteen_chars___",
               "\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9"
               "\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9", // 14 UTF-16 units
               "\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9"
               "\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9", // 15 UTF-16 units
               "a",
               ""};
    r.parents = {-1,
                 0,
                 0,
                 1,
                 1,
                 0,
                 2,
                 2,
                 2,
                 0,
                 std::numeric_limits<std::int32_t>::max(),
                 std::numeric_limits<std::int32_t>::min(),
                 255};
    r.isDirectory = {1, 1, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 7};
    r.sizes = {0, i64max, i64min, -1, 255, 256, 65535, 65536, 4294967295LL, 4294967296LL, 1, 2, 3};
    r.modified = {0.0,
                  -0.0,
                  nan,
                  inf,
                  -inf,
                  1.7e9 + 0.25,
                  std::numeric_limits<double>::denorm_min(),
                  std::numeric_limits<double>::max(),
                  -1.0,
                  1e-300,
                  3.0,
                  4.0,
                  5.0};
    r.pathInfo = {"", "", "", "", "", "", "", "", "", "", "", "", "x"};
    r.mountInfo = {"", "", "", "", "", "", "", "", "", "", "", "", ""};
    return r;
}

void expectLibplistReads(const Bytes& file, const Record& r) {
    const PlistPtr root = parseWithLibplist(file);
    ASSERT_NE(root, nullptr);
    plist_t dict = root.get();
    ASSERT_EQ(plist_get_node_type(dict), PLIST_DICT);
    EXPECT_EQ(keysOf(dict), kRecordKeys);
    EXPECT_EQ(integerOf(item(dict, "v")), r.version);
    EXPECT_EQ(stringOf(item(dict, "rp")), r.rootPath);
    EXPECT_EQ(stringOf(item(dict, "rn")), r.rootName);
    EXPECT_EQ(stringsOf(item(dict, "nm")), r.names);
    EXPECT_EQ(integersOf(item(dict, "pr")),
              std::vector<std::int64_t>(r.parents.begin(), r.parents.end()));
    std::vector<std::uint8_t> directories;
    for (const std::uint8_t d : r.isDirectory) {
        directories.push_back(d != 0 ? 1 : 0);
    }
    EXPECT_EQ(booleansOf(item(dict, "di")), directories);
    EXPECT_EQ(integersOf(item(dict, "sz")), r.sizes);
    EXPECT_EQ(realBitsOf(item(dict, "mt")), bitsOf(r.modified));
    EXPECT_EQ(stringsOf(item(dict, "pi")), r.pathInfo);
    EXPECT_EQ(stringsOf(item(dict, "mi")), r.mountInfo);
}

void expectOurReaderReads(const Bytes& file, const Record& r) {
    const BinaryPlistReader reader(file);
    const PlistRef top = reader.topObject();
    EXPECT_EQ(reader.integer(reader.at(top, "v")), r.version);
    EXPECT_EQ(reader.string(reader.at(top, "rp")), r.rootPath);
    EXPECT_EQ(reader.string(reader.at(top, "rn")), r.rootName);
    EXPECT_EQ(readStringColumn(reader, reader.at(top, "nm")), r.names);
    EXPECT_EQ(readInt32Column(reader, reader.at(top, "pr")), r.parents);
    const auto directories = readBooleanColumn(reader, reader.at(top, "di"));
    ASSERT_EQ(directories.size(), r.isDirectory.size());
    for (std::size_t i = 0; i < directories.size(); ++i) {
        EXPECT_EQ(directories[i], r.isDirectory[i] != 0 ? 1 : 0) << i;
    }
    EXPECT_EQ(readInt64Column(reader, reader.at(top, "sz")), r.sizes);
    EXPECT_EQ(bitsOf(readRealColumn(reader, reader.at(top, "mt"))), bitsOf(r.modified));
    EXPECT_EQ(readStringColumn(reader, reader.at(top, "pi")), r.pathInfo);
    EXPECT_EQ(readStringColumn(reader, reader.at(top, "mi")), r.mountInfo);
}

TEST(BinaryPlistWriter, CacheRecordReadsBackIdenticallyInLibplistAndOurReader) {
    const Record record = sampleRecord();
    for (const bool share : {true, false}) {
        SCOPED_TRACE(share ? "shared strings" : "one object per string");
        const Bytes file = record.write({.shareEqualStrings = share});
        expectLibplistReads(file, record);
        expectOurReaderReads(file, record);
    }
}

// Written in pieces, with strings longer than a piece and buffers used again, the file is the one
// written whole.
TEST(BinaryPlistWriter, PiecesJoinToTheWholeFile) {
    Record record = sampleRecord();
    std::string longName;
    for (int i = 0; i < 300; ++i) {
        longName += "\xC3\xA9";
    }
    record.names.push_back(longName);
    record.names.push_back(std::string(5000, 'x'));
    for (auto* column : {&record.pathInfo, &record.mountInfo}) {
        column->resize(record.names.size());
    }
    record.parents.resize(record.names.size(), 0);
    record.isDirectory.resize(record.names.size(), 0);
    record.sizes.resize(record.names.size(), 7);
    record.modified.resize(record.names.size(), 1.5);
    const Bytes whole = record.write();
    for (const std::size_t pieceBytes :
         {std::size_t{1}, std::size_t{64}, std::size_t{1000}, whole.size(), std::size_t{0}}) {
        std::size_t pieces = 0;
        EXPECT_EQ(record.writeInPieces(pieceBytes, pieces), whole) << pieceBytes;
        if (pieceBytes == 64) {
            EXPECT_GT(pieces, whole.size() / 64 / 2);
        }
        if (pieceBytes == 0) {
            EXPECT_EQ(pieces, 1u);
        }
    }
    expectOurReaderReads(whole, record);
}

TEST(BinaryPlistWriter, NamesThatAreNotUtf8ReadBackByteForByte) {
    Record record;
    record.rootPath = "/mnt/\xFF\xFE";
    record.rootName = "\xE2\x82";
    record.names = {"caf\xE9.txt", "\xC3",        "caf\xC3\xA9\xC3", "\xED\xA0\x80",
                    "plain",       "caf\xE8.txt", "caf\xE9.txt"};
    record.parents.assign(record.names.size(), 0);
    record.isDirectory.assign(record.names.size(), 0);
    record.sizes.assign(record.names.size(), 0);
    record.modified.assign(record.names.size(), 0.0);
    record.pathInfo.assign(record.names.size(), "");
    record.mountInfo.assign(record.names.size(), "\x80");
    for (const bool share : {false, true}) {
        const Bytes file = record.write({.shareEqualStrings = share});
        expectOurReaderReads(file, record);
        // An independent reader takes the file; it drops lone surrogates, so names differ.
        const PlistPtr root = parseWithLibplist(file);
        ASSERT_NE(root, nullptr);
        EXPECT_EQ(stringsOf(item(root.get(), "nm"))[4], "plain");
    }
}

TEST(BinaryPlistWriter, SmallestFileIsExactlyTheFormatsEncoding) {
    BinaryPlistWriter writer;
    writer.addInteger("v", 2);
    // clang-format off
    const Bytes expected = {
        'b', 'p', 'l', 'i', 's', 't', '0', '0',
        0xD1, 0x01, 0x02,         // dictionary of one entry: key ref 1, value ref 2
        0x51, 'v',                // the key
        0x10, 0x02,               // 1-byte integer 2
        0x08, 0x0B, 0x0D,         // offsets of objects 0, 1, 2
        0, 0, 0, 0, 0, 0,         // trailer: unused, sort version
        0x01, 0x01,               // offset and ref sizes
        0, 0, 0, 0, 0, 0, 0, 3,   // objects
        0, 0, 0, 0, 0, 0, 0, 0,   // top object
        0, 0, 0, 0, 0, 0, 0, 15}; // offset table
    // clang-format on
    EXPECT_EQ(writer.write(), expected);

    BinaryPlistWriter empty;
    const Bytes emptyFile = empty.write();
    EXPECT_EQ(Bytes(emptyFile.begin(), emptyFile.begin() + 10),
              (Bytes{'b', 'p', 'l', 'i', 's', 't', '0', '0', 0xD0, 0x08}));
    ASSERT_NE(parseWithLibplist(emptyFile), nullptr);
    EXPECT_EQ(plist_dict_get_size(parseWithLibplist(emptyFile).get()), 0u);
}

TEST(BinaryPlistWriter, IntegersTakeTheSmallestValidWidth) {
    const std::vector<std::int64_t> values = {0,
                                              255,
                                              256,
                                              65535,
                                              65536,
                                              4294967295LL,
                                              4294967296LL,
                                              -1,
                                              std::numeric_limits<std::int64_t>::max(),
                                              std::numeric_limits<std::int64_t>::min()};
    const std::vector<Bytes> encodings = {{0x10, 0x00},
                                          {0x10, 0xFF},
                                          {0x11, 0x01, 0x00},
                                          {0x11, 0xFF, 0xFF},
                                          {0x12, 0x00, 0x01, 0x00, 0x00},
                                          {0x12, 0xFF, 0xFF, 0xFF, 0xFF},
                                          {0x13, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00},
                                          {0x13, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF},
                                          {0x13, 0x7F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF},
                                          {0x13, 0x80, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}};
    const std::vector<std::int32_t> values32 = {
        0, 255, 256, 65535, 65536, -1, std::numeric_limits<std::int32_t>::min()};
    const std::vector<Bytes> encodings32 = {{0x10, 0x00},
                                            {0x10, 0xFF},
                                            {0x11, 0x01, 0x00},
                                            {0x11, 0xFF, 0xFF},
                                            {0x12, 0x00, 0x01, 0x00, 0x00},
                                            {0x13, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF},
                                            {0x13, 0xFF, 0xFF, 0xFF, 0xFF, 0x80, 0x00, 0x00, 0x00}};
    BinaryPlistWriter writer;
    writer.addInt64Column("a", values);
    writer.addInt32Column("b", values32);
    const Bytes file = writer.write();
    const BinaryPlistReader reader(file);
    const auto expectEncodings = [&](const char* key, const std::vector<Bytes>& expected) {
        const PlistRefs refs = reader.elements(reader.at(reader.topObject(), key));
        ASSERT_EQ(refs.size(), expected.size());
        for (std::size_t i = 0; i < refs.size(); ++i) {
            const std::uint8_t* object = plisttest::objectAt(file, refs[i]);
            EXPECT_EQ(Bytes(object, object + expected[i].size()), expected[i]) << key << i;
        }
    };
    expectEncodings("a", encodings);
    expectEncodings("b", encodings32);
    EXPECT_EQ(readInt64Column(reader, reader.at(reader.topObject(), "a")), values);
    EXPECT_EQ(readInt32Column(reader, reader.at(reader.topObject(), "b")), values32);
}

TEST(BinaryPlistWriter, ColumnLengthsAcrossTheInlineCountLimit) {
    for (const std::size_t n : {0u, 1u, 14u, 15u, 16u, 255u, 256u, 300u}) {
        SCOPED_TRACE(n);
        Record r;
        for (std::size_t i = 0; i < n; ++i) {
            r.names.push_back(std::string(i % 40, static_cast<char>('a' + i % 26)));
            r.parents.push_back(static_cast<std::int32_t>(i) - 1);
            r.isDirectory.push_back(i % 3 == 0);
            r.sizes.push_back(static_cast<std::int64_t>(i) * 1000);
            r.modified.push_back(static_cast<double>(i) / 7);
            r.pathInfo.push_back(i % 2 ? std::string()
                                       : std::string("p").append(std::to_string(i)));
            r.mountInfo.push_back("");
        }
        const Bytes file = r.write();
        expectLibplistReads(file, r);
        expectOurReaderReads(file, r);
    }
}

TEST(BinaryPlistWriter, LargeRecordsUseThreeByteRefsAndOffsetsThatLibplistReads) {
    // Over 65,535 objects and 65,535 bytes: refs and offsets need 3 bytes.
    Record r;
    constexpr std::size_t n = 40000;
    for (std::size_t i = 0; i < n; ++i) {
        r.names.push_back("file-" + std::to_string(i) + (i % 100 == 0 ? "-\xC3\xA4" : ".dat"));
        r.parents.push_back(static_cast<std::int32_t>(i / 10) - 1);
        r.isDirectory.push_back(i % 10 == 0);
        r.sizes.push_back(static_cast<std::int64_t>(i) << 20);
        r.modified.push_back(1.6e9 + static_cast<double>(i));
        r.pathInfo.push_back("");
        r.mountInfo.push_back("");
    }
    const Bytes file = r.write();
    EXPECT_EQ(plisttest::readTrailer(file, plisttest::TrailerField::refSize, 1), 3u);
    EXPECT_EQ(plisttest::readTrailer(file, plisttest::TrailerField::offsetSize, 1), 3u);
    expectLibplistReads(file, r);
    expectOurReaderReads(file, r);
}

TEST(BinaryPlistWriter, EqualStringsAndBooleansShareObjects) {
    const std::vector<std::string> names = {"a", "b", "a", "", "", "a", "\xC3\xA9", "\xC3\xA9"};
    const std::vector<std::uint8_t> allTrue = {1, 1, 1};
    const std::vector<std::uint8_t> none;

    BinaryPlistWriter shared;
    shared.addStringColumn("nm", names);
    const Bytes sharedFile = shared.write();
    const BinaryPlistReader reader(sharedFile);
    const PlistRefs refs = reader.elements(reader.at(reader.topObject(), "nm"));
    EXPECT_EQ(refs[0], refs[2]);
    EXPECT_EQ(refs[0], refs[5]);
    EXPECT_EQ(refs[3], refs[4]);
    EXPECT_EQ(refs[6], refs[7]);
    EXPECT_NE(refs[0], refs[1]);
    EXPECT_NE(refs[0], refs[3]);
    EXPECT_EQ(reader.objectCount(), 3u + 4u); // dictionary, key, array, 4 distinct strings
    EXPECT_EQ(readStringColumn(reader, reader.at(reader.topObject(), "nm")), names);

    BinaryPlistWriter unshared({.shareEqualStrings = false});
    unshared.addStringColumn("nm", names);
    const Bytes unsharedFile = unshared.write();
    EXPECT_LT(sharedFile.size(), unsharedFile.size());
    const BinaryPlistReader unsharedReader(unsharedFile);
    EXPECT_EQ(unsharedReader.objectCount(), 3u + names.size());
    EXPECT_EQ(readStringColumn(unsharedReader, unsharedReader.at(unsharedReader.topObject(), "nm")),
              names);

    BinaryPlistWriter booleans;
    booleans.addBooleanColumn("t", allTrue);
    booleans.addBooleanColumn("none", none);
    const Bytes booleanFile = booleans.write();
    const BinaryPlistReader booleanReader(booleanFile);
    EXPECT_EQ(booleanReader.objectCount(), 1u + 2u + 2u + 1u); // no false object anywhere
    EXPECT_EQ(readBooleanColumn(booleanReader, booleanReader.at(booleanReader.topObject(), "t")),
              allTrue);
    EXPECT_TRUE(
        readBooleanColumn(booleanReader, booleanReader.at(booleanReader.topObject(), "none"))
            .empty());
    const PlistPtr parsed = parseWithLibplist(booleanFile);
    ASSERT_NE(parsed, nullptr);
    EXPECT_EQ(booleansOf(item(parsed.get(), "t")), allTrue);
}

TEST(BinaryPlistWriter, RejectsAKeyAddedTwice) {
    BinaryPlistWriter writer;
    writer.addInteger("v", 2);
    EXPECT_THROW(writer.addString("v", "again"), std::invalid_argument);
    EXPECT_THROW(writer.addStringColumn("v", std::vector<std::string>()), std::invalid_argument);
}

// A packed column holds what a column of strings holds: empty strings before, between and after
// text (a sparse column packs its text only from the first non-empty string on), non-ASCII
// names, and the same through a file and back.
TEST(StringColumnTest, PackedColumnsKeepEveryStringThroughAFile) {
    const std::vector<std::string> strings = {"",
                                              "",
                                              "a",
                                              "",
                                              "caf\xC3\xA9",
                                              "long name of more than "
                                              "sixteen bytes",
                                              "",
                                              "\xE6\x97\xA5\xE6\x9C\xAC"};
    StringColumn packed;
    for (const std::string& text : strings) {
        packed.push_back(text);
    }
    EXPECT_EQ(packed, strings);
    EXPECT_EQ(packed.strings(), strings);
    EXPECT_EQ(StringColumn(strings), packed);
    EXPECT_FALSE(packed == StringColumn({"", "", "a"}));

    StringColumn sparse;
    sparse.assign(4, "");
    EXPECT_EQ(sparse, std::vector<std::string>(4));
    sparse.push_back("x");
    EXPECT_EQ(sparse, (std::vector<std::string>{"", "", "", "", "x"}));
    sparse.assign(2, "yz");
    EXPECT_EQ(sparse, (std::vector<std::string>{"yz", "yz"}));

    BinaryPlistWriter writer;
    writer.addStringColumn("packed", packed);
    const StringColumn empties(std::vector<std::string>(3));
    writer.addStringColumn("sparse", empties);
    const auto file = writer.write();
    const BinaryPlistReader reader(file);
    const PlistRef top = reader.topObject();
    EXPECT_EQ(readPackedStringColumn(reader, reader.at(top, "packed")), strings);
    EXPECT_EQ(readStringColumn(reader, reader.at(top, "packed")), strings);
    EXPECT_EQ(readPackedStringColumn(reader, reader.at(top, "sparse")),
              std::vector<std::string>(3));
}

} // namespace
} // namespace brimvale
