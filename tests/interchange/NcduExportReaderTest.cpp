#include "core/interchange/NcduExportReader.h"

#include "core/interchange/ExportEntryMarks.h"
#include "core/support/CorruptDataError.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace brimvale {
namespace {

// Hands the text over `piece` bytes at a time, so every token also meets a buffer boundary.
ImportedScan readText(const std::string& text, std::size_t piece = 1 << 20) {
    std::size_t position = 0;
    return readNcduExport([&](char* buffer, std::size_t capacity) {
        const std::size_t count = std::min({piece, capacity, text.size() - position});
        std::memcpy(buffer, text.data() + position, count);
        position += count;
        return count;
    });
}

std::string errorOf(const std::string& text) {
    try {
        readText(text);
    } catch (const CorruptDataError& error) {
        return error.what();
    }
    return "(read without error)";
}

const FileNode* childNamed(const FileNode& folder, std::string_view name) {
    for (const auto& child : folder.children()) {
        if (child->name() == name) {
            return child.get();
        }
    }
    return nullptr;
}

TEST(NcduExportReader, SizesEscapesAndUnknownFieldsReadTheSameInAnyPieces) {
    // Unknown fields of every kind (nested, in the metadata and in entries), escapes including
    // a surrogate pair, a lone surrogate and a raw byte that is not UTF-8, a later minor version.
    const std::string text =
        "[1,7,{\"progname\":\"ncdu\",\"progver\":\"1.18\",\"timestamp\":1700000000,"
        "\"extra\":{\"a\":[1,{\"b\":null}],\"c\":-2.5e3}},\n"
        "[{\"name\":\"/srv/data\",\"asize\":4096,\"dsize\":4096,\"dev\":12,\"future\":[[],{}]},"
        "{\"name\":\"tab\\there \\\"q\\\" \\u00e9\\ud83d\\ude00\\ud800x\",\"asize\":10,"
        "\"dsize\":4096,\"mtime\":1600000000.5},"
        "{\"name\":\"raw\xff\",\"asize\":5,\"dsize\":8192,\"uid\":0},"
        "[{\"name\":\"docs\",\"dsize\":4096,\"read_error\":true},"
        "{\"name\":\"empty\"}],"
        "{\"name\":\"skipped\",\"excluded\":\"otherfs\"},"
        "{\"name\":\"fifo\",\"notreg\":true}"
        "]]\n";
    for (const std::size_t piece : {std::size_t{1}, std::size_t{3}, std::size_t{1} << 20}) {
        SCOPED_TRACE(piece);
        const ImportedScan scan = readText(text, piece);
        EXPECT_EQ(scan.program, "ncdu");
        EXPECT_EQ(scan.programVersion, "1.18");
        ASSERT_TRUE(scan.exportDate);
        EXPECT_EQ(scan.exportDate->unixSeconds(), 1700000000);
        EXPECT_EQ(scan.files, 5);
        EXPECT_EQ(scan.folders, 2);
        const FileNode& root = *scan.root;
        EXPECT_EQ(root.name(), "/srv/data");
        EXPECT_EQ(root.size(), 4096 + 4096 + 8192 + 4096);
        const FileNode* escaped =
            childNamed(root, "tab\there \"q\" \xc3\xa9\xf0\x9f\x98\x80\xef\xbf\xbdx");
        ASSERT_NE(escaped, nullptr);
        EXPECT_EQ(escaped->modifiedDate()->unixSeconds(), 1600000000.5);
        const FileNode* raw = childNamed(root, "raw\xff");
        ASSERT_NE(raw, nullptr);
        EXPECT_EQ(raw->path(), "/srv/data/raw\xff");
        EXPECT_EQ(root.children().front().get(), raw) << "largest first";
        const FileNode* docs = childNamed(root, "docs");
        ASSERT_NE(docs, nullptr);
        EXPECT_TRUE(docs->isDirectory());
        EXPECT_EQ(docs->mimeType(), kReadErrorMimeType);
        EXPECT_EQ(entryMarkNote(*docs), "read error");
        EXPECT_EQ(childNamed(*docs, "empty")->size(), 0);
        EXPECT_EQ(entryMarkNote(*childNamed(root, "skipped")), "excluded: otherfs");
        EXPECT_EQ(entryMarkNote(*childNamed(root, "fifo")), "special file");
        EXPECT_DOUBLE_EQ(raw->fractionOfParent(), 8192.0 / root.size());
        EXPECT_EQ(raw->parent(), &root);
    }
}

TEST(NcduExportReader, HardLinksCountOnceWhicheverToolMarkedThem) {
    // ncdu marks every name; the first one met counts, also across folders, and the same
    // inode on another device is another file.
    const std::string ncdu =
        "[1,2,{\"progname\":\"ncdu\"},[{\"name\":\"/r\",\"dsize\":0,\"dev\":1},"
        "{\"name\":\"a\",\"dsize\":4096,\"ino\":7,\"hlnkc\":true,\"nlink\":3},"
        "[{\"name\":\"sub\"},{\"name\":\"b\",\"dsize\":4096,\"ino\":7,\"hlnkc\":true,\"nlink\":3}],"
        "[{\"name\":\"mnt\",\"dev\":2},{\"name\":\"c\",\"dsize\":4096,\"ino\":7,\"hlnkc\":true}],"
        "{\"name\":\"d\",\"dsize\":100,\"ino\":7}]]";
    const ImportedScan fromNcdu = readText(ncdu);
    EXPECT_EQ(fromNcdu.root->size(), 4096 + 4096 + 100) << "a, mnt/c and the unmarked d";
    EXPECT_EQ(childNamed(*childNamed(*fromNcdu.root, "sub"), "b")->size(), 0);

    // gdu writes the counted name plain and marks the others, which may come before it.
    const std::string gdu =
        "[1,2,{\"progname\":\"gdu\",\"progver\":\"5.22.0\"},[{\"name\":\"/r\"},"
        "[{\"name\":\"sub\"},{\"name\":\"b\",\"asize\":6,\"dsize\":4096,\"ino\":7,"
        "\"hlnkc\":true}],"
        "{\"name\":\"a\",\"asize\":6,\"dsize\":4096},"
        "{\"name\":\"c\",\"asize\":6,\"dsize\":4096,\"ino\":7,\"hlnkc\":true}]]";
    const ImportedScan fromGdu = readText(gdu);
    EXPECT_EQ(fromGdu.root->size(), 4096);
    EXPECT_EQ(childNamed(*fromGdu.root, "a")->size(), 4096);
}

TEST(NcduExportReader, ApparentSizesOnlyWhenTheExportHasNoDiskSizes) {
    // A symbolic link has an apparent size but takes no blocks: with disk sizes elsewhere in
    // the export (even after it), a missing dsize is nothing.
    const auto withDiskSizes = readText("[1,0,{},[{\"name\":\"/r\"},{\"name\":\"link\","
                                        "\"asize\":9,\"notreg\":true},"
                                        "{\"name\":\"f\",\"asize\":5,\"dsize\":4096}]]");
    EXPECT_EQ(withDiskSizes.root->size(), 4096);
    const auto apparentOnly =
        readText("[1,0,{},[{\"name\":\"/r\",\"asize\":10},{\"name\":\"a\",\"asize\":9},"
                 "[{\"name\":\"d\"},{\"name\":\"b\",\"asize\":5}]]]");
    EXPECT_EQ(apparentOnly.root->size(), 24);
    EXPECT_EQ(childNamed(*apparentOnly.root, "d")->size(), 5);
}

TEST(NcduExportReader, DeepTreesAndBigSizesNeitherRecurseNorWrap) {
    const auto chain = [](int depth) {
        std::string text = "[1,2,{},[{\"name\":\"/r\"}";
        for (int i = 0; i < depth; ++i) {
            text += ",[{\"name\":\"d\"}";
        }
        return text + ",{\"name\":\"f\",\"dsize\":3}" + std::string(depth, ']') + "]]";
    };
    // Paths of up to 16 KiB, far deeper than a path Linux resolves at once; deeper is refused
    // rather than kept at a memory cost that grows as the square of the depth.
    const auto scan = readText(chain(8'000));
    EXPECT_EQ(scan.root->size(), 3);
    EXPECT_EQ(scan.folders, 8'001);
    EXPECT_NE(errorOf(chain(8'200)).find("nested too deeply"), std::string::npos);
    constexpr int kDepth = 100'000;

    // Unknown fields nested far deeper than any tree are skipped without recursion too.
    const std::string nested = "[1,2,{\"x\":" + std::string(kDepth, '[') +
                               std::string(kDepth, ']') + "},[{\"name\":\"/r\"}]]";
    EXPECT_EQ(readText(nested).root->size(), 0);

    const std::string biggest = "9223372036854775807";
    EXPECT_EQ(readText("[1,2,{},[{\"name\":\"/r\"},{\"name\":\"f\",\"dsize\":" + biggest + "}]]")
                  .root->size(),
              INT64_MAX);
    EXPECT_NE(errorOf("[1,2,{},[{\"name\":\"/r\"},{\"name\":\"f\",\"dsize\":" + biggest +
                      "},{\"name\":\"g\",\"dsize\":1}]]")
                  .find("add up to more than"),
              std::string::npos);
}

TEST(NcduExportReader, MalformedTextIsRefusedWithWhatAndWhere) {
    const std::string header = "[1,2,{},";
    const struct {
        std::string text;
        const char* message;
    } cases[] = {
        {"", "expected '[' in the export, but the text ends at byte 0"},
        {"{}", "expected '[' in the export at byte 0"},
        {"[2,0,{},[{\"name\":\"/r\"}]]", "format version 2; only version 1 is known at byte 2"},
        {"[1,2,[],[{\"name\":\"/r\"}]]", "expected the export's metadata ('{') at byte 5"},
        {header + "{\"name\":\"/r\"}]", "expected the scanned folder ('[') at byte 8"},
        {header + "[{\"name\":\"/r\"},{\"name\":\"a\"", "expected ',' or '}' in an entry, but "
                                                        "the text ends at byte 34"},
        {header + "[{\"name\":\"/r\"},{\"name\":\"a", "the text ends inside a string at byte 33"},
        {header + "[{\"name\":\"/r\"}", "expected ',' or ']' in a folder, but the text ends"},
        {header + "[{\"name\":\"/r\"}]", "expected ',' or ']' in the export, but the text ends"},
        {header + "[{\"name\":\"/r\"}]] x", "unexpected text after the end of the export at "
                                            "byte 25"},
        {header + "[{\"name\":\"/r\"},5]]", "expected an entry ('{') or a folder ('[') at byte 23"},
        {header + "[{\"name\":\"/r\"},{\"asize\":1}]]", "an entry has no name at byte 23"},
        {header + "[{\"name\":\"/r\"},{}]]", "an entry has no name at byte 23"},
        {header + "[{\"name\":\"/r\"},{\"name\":\"a/b\"}]]", "is not a file name"},
        {header + "[{\"name\":\"/r\"},{\"name\":\"..\"}]]", "is not a file name"},
        {header + "[{\"name\":\"/r\"},{\"name\":\"a\\u0000\"}]]", "is not a file name"},
        {header + "[{\"name\":\"\"}]]", "the scanned folder has no name at byte 9"},
        {header + "[{\"name\":\"/r\",\"dsize\":-1}]]", "dsize is not a byte count"},
        {header + "[{\"name\":\"/r\",\"asize\":1.5}]]", "asize is not a byte count"},
        {header + "[{\"name\":\"/r\",\"dsize\":9223372036854775808}]]", "dsize is not a byte "
                                                                        "count from 0 to 2^63-1 "
                                                                        "at byte 30"},
        {header + "[{\"name\":\"/r\",\"ino\":99999999999999999999}]]", "ino is not a whole "
                                                                       "number"},
        {header + "[{\"name\":\"/r\",\"dsize\":\"4096\"}]]", "dsize is not a byte count"},
        {header + "[{\"name\":\"/r\",\"x\":tru}]]", "expected true, false or null"},
        {header + "[{\"name\":\"/r\",\"x\":-}]]", "expected a value at byte 26"},
        {header + "[{\"name\":\"/r\",\"x\":\"\\q\"}]]", "unknown escape in a string"},
        {header + "[{\"name\":\"/r\",\"x\":\"\\u12G4\"}]]", "four hexadecimal digits"},
        {header + "[{\"name\":\"/r\",\"x\":[1,2}]]", "expected ',' or ']' in an array"},
        {header + "[{\"name\":\"/r\",\"x\":{\"a\" 1}}]]", "expected ':' in an object"},
        {header + "[{\"name\":\"/r\",\"x\":[[[", "the text ends inside a value"},
    };
    for (const auto& example : cases) {
        SCOPED_TRACE(example.text);
        const std::string message = errorOf(example.text);
        EXPECT_NE(message.find(example.message), std::string::npos) << message;
    }
}

} // namespace
} // namespace brimvale
