// The reader against files written by an independent writer (Debian's libplist) and against
// hand-assembled files that use the format's rarer encodings.

#include "core/persistence/bplist/BinaryPlistReader.h"

#include "core/persistence/bplist/BinaryPlistColumns.h"
#include "core/persistence/bplist/BinaryPlistWriter.h"
#include "core/persistence/bplist/PlistValue.h"
#include "core/support/CorruptDataError.h"
#include "tests/persistence/bplist/PlistBytes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <plist/plist.h>

#include <bit>
#include <cstdlib>
#include <limits>
#include <string>
#include <vector>

namespace brimvale {
namespace {

using plisttest::asciiObject;
using plisttest::Bytes;
using plisttest::concat;
using plisttest::integerObject;
using plisttest::PlistAssembler;

const std::string kUnicode = "Gr\xC3\xBC\xC3\x9F Gott \xF0\x9F\x98\x80 \xE6\x97\xA5\xE6\x9C\xAC";

Bytes writeWithLibplist(plist_t root) {
    char* data = nullptr;
    std::uint32_t length = 0;
    plist_to_bin(root, &data, &length);
    Bytes file(data, data + length);
    plist_to_bin_free(data);
    plist_free(root);
    return file;
}

TEST(BinaryPlistReader, ReadsEveryTypeLibplistWrites) {
    plist_t root = plist_new_dict();
    plist_dict_set_item(root, "bool", plist_new_bool(1));
    plist_dict_set_item(root, "false", plist_new_bool(0));
    plist_dict_set_item(root, "small", plist_new_uint(42));
    plist_dict_set_item(root, "big", plist_new_uint(std::uint64_t{1} << 40));
    plist_dict_set_item(root, "negative", plist_new_uint(static_cast<std::uint64_t>(-5)));
    plist_dict_set_item(root, "real", plist_new_real(-1.25));
    plist_dict_set_item(root, "ascii", plist_new_string("hello"));
    plist_dict_set_item(root, "empty", plist_new_string(""));
    plist_dict_set_item(root, "unicode", plist_new_string(kUnicode.c_str()));
    std::string bytes;
    for (int i = 0; i < 300; ++i) {
        bytes.push_back(static_cast<char>(i));
    }
    plist_dict_set_item(root, "data", plist_new_data(bytes.data(), bytes.size()));
    plist_dict_set_item(root, "date", plist_new_date(700000000, 500000));
    plist_dict_set_item(root, "uid", plist_new_uid(300));
    plist_t array = plist_new_array();
    plist_array_append_item(array, plist_new_uint(1));
    plist_array_append_item(array, plist_new_string("two"));
    plist_t inner = plist_new_array();
    plist_array_append_item(inner, plist_new_real(3.0));
    plist_array_append_item(inner, plist_new_dict());
    plist_array_append_item(array, inner);
    plist_array_append_item(array, plist_new_array());
    plist_dict_set_item(root, "array", array);
    plist_t deeper = plist_new_dict();
    plist_dict_set_item(deeper, "deepest", plist_new_string("x"));
    plist_t nested = plist_new_dict();
    plist_dict_set_item(nested, "deeper", deeper);
    plist_dict_set_item(root, "\xD0\xBA\xD0\xBB\xD1\x8E\xD1\x87", nested);
    plist_t many = plist_new_array();
    for (int i = 0; i < 40; ++i) {
        plist_array_append_item(many, plist_new_string(std::to_string(i).c_str()));
    }
    plist_dict_set_item(root, "many", many);
    const Bytes file = writeWithLibplist(root);

    const PlistValue value = readPlistValue(file);
    ASSERT_TRUE(value.is<PlistDictionary>());
    const auto expectEntry = [&](const char* key, const PlistValue& expected) {
        const PlistValue* found = value.find(key);
        ASSERT_NE(found, nullptr) << key;
        EXPECT_EQ(*found, expected) << key;
    };
    expectEntry("bool", true);
    expectEntry("false", false);
    expectEntry("small", std::int64_t{42});
    expectEntry("big", std::int64_t{1} << 40);
    expectEntry("negative", std::int64_t{-5});
    expectEntry("real", -1.25);
    expectEntry("ascii", std::string("hello"));
    expectEntry("empty", std::string());
    expectEntry("unicode", kUnicode);
    expectEntry("data", PlistData(bytes.begin(), bytes.end()));
    expectEntry("date", PlistDate{700000000.5});
    expectEntry("uid", PlistUid{300});
    expectEntry("array", PlistArray{std::int64_t{1}, std::string("two"),
                                    PlistArray{3.0, PlistDictionary{}}, PlistArray{}});
    expectEntry("\xD0\xBA\xD0\xBB\xD1\x8E\xD1\x87",
                PlistDictionary{{"deeper", PlistDictionary{{"deepest", std::string("x")}}}});
    PlistArray numbers;
    for (int i = 0; i < 40; ++i) {
        numbers.push_back(std::to_string(i));
    }
    expectEntry("many", numbers);
    EXPECT_EQ(value.as<PlistDictionary>().size(), 15u);

    // The typed accessors agree with the tree.
    const BinaryPlistReader reader(file);
    const PlistRef top = reader.topObject();
    EXPECT_EQ(reader.kind(top), PlistKind::Dictionary);
    EXPECT_EQ(reader.kind(reader.at(top, "data")), PlistKind::Data);
    EXPECT_EQ(reader.kind(reader.at(top, "date")), PlistKind::Date);
    EXPECT_EQ(reader.kind(reader.at(top, "uid")), PlistKind::Uid);
    EXPECT_EQ(reader.unsignedInteger(reader.at(top, "big")), std::uint64_t{1} << 40);
    EXPECT_EQ(reader.find(top, "missing"), std::nullopt);
    EXPECT_TRUE(reader.stringEquals(reader.at(top, "unicode"), kUnicode));
    EXPECT_FALSE(reader.stringEquals(reader.at(top, "small"), "42"));
    EXPECT_EQ(readStringColumn(reader, reader.at(top, "many")).at(39), "39");
    try {
        reader.at(top, "missing");
        ADD_FAILURE() << "no exception";
    } catch (const CorruptDataError& error) {
        EXPECT_THAT(error.what(), ::testing::HasSubstr("\"missing\""));
    }
}

TEST(BinaryPlistReader, ReadsEveryRefAndOffsetWidth) {
    const PlistValue expected = PlistDictionary{
        {"k", PlistArray{std::int64_t{7}, std::string("shared"), std::string("shared")}}};
    for (unsigned refSize = 1; refSize <= 8; ++refSize) {
        for (unsigned offsetSize = 1; offsetSize <= 8; ++offsetSize) {
            SCOPED_TRACE(::testing::Message() << "refs " << refSize << " offsets " << offsetSize);
            PlistAssembler plist(refSize, offsetSize);
            plist.add({}); // 0: the dictionary, below
            const auto key = plist.add(asciiObject("k"));
            const auto seven = plist.add(integerObject(7, 1));
            const auto shared = plist.add(asciiObject("shared"));
            const auto array = plist.add(plist.array({seven, shared, shared}));
            plist.set(0, plist.dictionary({key, array}));
            EXPECT_EQ(readPlistValue(plist.build()), expected);
        }
    }
}

TEST(BinaryPlistReader, IntegersOfEveryWidthAndSignedness) {
    constexpr std::uint64_t ones = ~std::uint64_t{0};
    constexpr std::uint64_t top = std::uint64_t{1} << 63;
    struct Case {
        Bytes object;
        PlistValue expected;
    };
    const std::vector<Case> cases = {
        {integerObject(0xFF, 1), std::int64_t{255}}, // 1-, 2- and 4-byte integers are unsigned
        {integerObject(0xFFFF, 2), std::int64_t{65535}},
        {integerObject(0xFFFFFFFF, 4), std::int64_t{4294967295}},
        {integerObject(ones, 8), std::int64_t{-1}}, // 8-byte ones are signed
        {integerObject(top, 8), std::numeric_limits<std::int64_t>::min()},
        {integerObject(5, 16, 0), std::int64_t{5}},
        {integerObject(top, 16, 0), std::uint64_t{top}},
        {integerObject(ones, 16, 0), std::numeric_limits<std::uint64_t>::max()},
        {integerObject(static_cast<std::uint64_t>(-5), 16, ones), std::int64_t{-5}},
        {integerObject(top, 16, ones), std::numeric_limits<std::int64_t>::min()},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.object));
        PlistAssembler plist;
        plist.add(c.object);
        EXPECT_EQ(readPlistValue(plist.build()), c.expected);
    }

    // 16-byte values beyond [INT64_MIN, UINT64_MAX].
    for (const Bytes& object : {integerObject(0, 16, 1), integerObject(5, 16, ones),
                                integerObject(0, 16, top), integerObject(ones, 16, top - 1)}) {
        PlistAssembler plist;
        plist.add(object);
        EXPECT_THROW(readPlistValue(plist.build()), CorruptDataError)
            << ::testing::PrintToString(object);
    }

    // The typed accessors refuse what does not fit them.
    PlistAssembler plist;
    const auto big = plist.add(integerObject(ones, 16, 0));
    const auto minusOne = plist.add(integerObject(ones, 8));
    const auto array = plist.add(plist.array({big, minusOne}));
    const Bytes file = plist.build(array);
    const BinaryPlistReader reader(file);
    EXPECT_FALSE(reader.integerFitsInt64(big));
    EXPECT_EQ(reader.unsignedInteger(big), ones);
    EXPECT_THROW(reader.integer(big), CorruptDataError);
    EXPECT_TRUE(reader.integerFitsInt64(minusOne));
    EXPECT_EQ(reader.integer(minusOne), -1);
    EXPECT_THROW(reader.unsignedInteger(minusOne), CorruptDataError);
    EXPECT_THROW(readInt64Column(reader, array), CorruptDataError);
}

TEST(BinaryPlistReader, RareEncodingsOfOtherTypes) {
    PlistAssembler plist;
    std::vector<std::uint64_t> refs;
    std::vector<PlistValue> expected;
    const auto add = [&](Bytes object, PlistValue value) {
        refs.push_back(plist.add(std::move(object)));
        expected.push_back(std::move(value));
    };
    add({0x00}, PlistValue{});                        // null
    add({0x0F}, PlistValue{});                        // fill
    add({0x22, 0x3F, 0xC0, 0x00, 0x00}, 1.5);         // 4-byte real
    add({0x23, 0xC0, 0x24, 0, 0, 0, 0, 0, 0}, -10.0); // 8-byte real
    add({0x33, 0x41, 0xD4, 0xDC, 0x93, 0x80, 0, 0, 0}, PlistDate{1400000000.0});
    add({0x40}, PlistData{});
    add({0x43, 1, 2, 3}, PlistData{1, 2, 3});
    add({0x80, 0x07}, PlistUid{7});
    add({0x81, 0x01, 0x00}, PlistUid{256});
    add({0x83, 0x00, 0x01, 0x00, 0x00}, PlistUid{65536});
    add({0x87, 0, 0, 0, 1, 0, 0, 0, 0}, PlistUid{4294967296});
    const std::string twenty = "twenty characters..!";
    add(asciiObject(twenty), twenty); // count in a 1-byte integer
    add(concat({{0x5F, 0x11, 0x00, 0x14}, Bytes(twenty.begin(), twenty.end())}), twenty);
    add(concat({{0x5F, 0x12, 0, 0, 0, 0x14}, Bytes(twenty.begin(), twenty.end())}), twenty);
    add(concat({{0x5F, 0x13, 0, 0, 0, 0, 0, 0, 0, 0x14}, Bytes(twenty.begin(), twenty.end())}),
        twenty);
    add({0x50}, std::string());
    add({0x62, 0x00, 0xE9, 0x00, 0x41}, std::string("\xC3\xA9"
                                                    "A"));
    add({0x62, 0xD8, 0x3D, 0xDE, 0x00}, std::string("\xF0\x9F\x98\x80"));
    add({0x62, 0xDE, 0x00, 0x00, 0x41}, std::string("\xEF\xBF\xBD"
                                                    "A")); // lone low surrogate
    add({0x61, 0xD8, 0x3D}, std::string("\xEF\xBF\xBD"));  // lone high surrogate
    add({0x62, 0xDC, 0xE9, 0x00, 0x41}, std::string("\xE9"
                                                    "A")); // an escaped byte of a name
    // Some writers put UTF-8 (or other bytes) in ASCII strings: read byte for byte.
    add({0x54, 'c', 'a', 0xC3, 0xA9}, std::string("ca\xC3\xA9"));
    add({0x53, 'c', 'a', 0xFF}, std::string("ca\xFF"));
    const auto shared = plist.add(asciiObject("shared"));
    refs.push_back(shared);
    expected.push_back(std::string("shared"));
    const auto set = plist.add(plist.container(0xC0, {shared, shared}, 2));
    refs.push_back(set);
    expected.push_back(PlistSet{{std::string("shared"), std::string("shared")}});
    // A dictionary whose key object also serves as its value and as an array element.
    const auto dict = plist.add(plist.dictionary({shared, shared}));
    refs.push_back(dict);
    expected.push_back(PlistDictionary{{"shared", std::string("shared")}});

    Bytes array{0xAF, 0x10, static_cast<std::uint8_t>(refs.size())};
    for (const std::uint64_t ref : refs) {
        array.push_back(static_cast<std::uint8_t>(ref));
    }
    const auto top = plist.add(array);
    const Bytes file = plist.build(top);
    const PlistValue value = readPlistValue(file);
    ASSERT_TRUE(value.is<PlistArray>());
    const PlistArray& elements = value.as<PlistArray>();
    ASSERT_EQ(elements.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(elements[i], expected[i]) << "element " << i;
    }

    const BinaryPlistReader reader(file);
    EXPECT_EQ(reader.kind(refs[1]), PlistKind::Null);
    EXPECT_EQ(reader.kind(set), PlistKind::Set);
    EXPECT_EQ(reader.elements(set).size(), 2u);
    PlistAssembler reals;
    const auto r4 = reals.add({0x22, 0x3F, 0xC0, 0x00, 0x00});
    const auto r8 = reals.add({0x23, 0xC0, 0x24, 0, 0, 0, 0, 0, 0});
    const Bytes realFile = reals.build(reals.add(reals.array({r4, r8})));
    const BinaryPlistReader realReader(realFile);
    EXPECT_EQ(readRealColumn(realReader, realReader.topObject()),
              (std::vector<double>{1.5, -10.0}));
}

TEST(BinaryPlistReader, ColumnReadersRejectElementsTheyCannotHold) {
    const std::vector<std::int64_t> wide = {1, std::int64_t{1} << 31};
    const std::vector<std::int32_t> small = {1, 2};
    const std::vector<std::string> names = {"a", "b"};
    const std::vector<std::uint8_t> flags = {1, 0};
    const std::vector<double> reals = {1.0, 2.0};
    BinaryPlistWriter writer;
    writer.addInt64Column("wide", wide);
    writer.addInt32Column("small", small);
    writer.addStringColumn("names", names);
    writer.addBooleanColumn("flags", flags);
    writer.addRealColumn("reals", reals);
    writer.addInteger("scalar", 1);
    const Bytes file = writer.write();
    const BinaryPlistReader reader(file);
    const auto column = [&](const char* key) {
        return reader.at(reader.topObject(), key);
    };

    EXPECT_THROW(readInt32Column(reader, column("wide")), CorruptDataError);
    EXPECT_EQ(readInt64Column(reader, column("wide")), wide);
    EXPECT_THROW(readStringColumn(reader, column("small")), CorruptDataError);
    EXPECT_THROW(readRealColumn(reader, column("small")), CorruptDataError);
    EXPECT_THROW(readBooleanColumn(reader, column("small")), CorruptDataError);
    EXPECT_THROW(readInt64Column(reader, column("names")), CorruptDataError);
    EXPECT_THROW(readInt64Column(reader, column("flags")), CorruptDataError);
    EXPECT_THROW(readInt64Column(reader, column("reals")), CorruptDataError);
    EXPECT_THROW(readStringColumn(reader, column("scalar")), CorruptDataError);
    EXPECT_THROW(readStringColumn(reader, reader.topObject()), CorruptDataError);
    EXPECT_THROW(reader.boolean(column("scalar")), CorruptDataError);
    EXPECT_THROW(reader.data(column("scalar")), CorruptDataError);
    EXPECT_THROW(reader.dictionary(column("names")), CorruptDataError);
    EXPECT_THROW(reader.uid(column("scalar")), CorruptDataError);
    EXPECT_THROW(reader.date(column("scalar")), CorruptDataError);
    try {
        readStringColumn(reader, column("small"));
    } catch (const CorruptDataError& error) {
        EXPECT_THAT(error.what(), ::testing::HasSubstr("expected string, found integer"));
    }
}

} // namespace
} // namespace brimvale
