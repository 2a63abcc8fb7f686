#pragma once

#include "core/model/FileNode.h"
#include "core/model/SkippedFolder.h"

#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

namespace brimvale::cli {

// Writes a tree as one JSON object per node:
//   {"name":…,"path":…,"isDirectory":…,"size":…,"modifiedDate":"2024-05-01T12:34:56Z"|null,
//    "providerID":…|null,"mimeType":…|null,"children":[…]}
// with the children in the tree's order, on one line followed by a newline. The walk is
// iterative (any depth) and the text goes out through a buffer of its own, so millions of
// nodes stream without building the document. Texts are raw bytes in the tree; each byte that
// is not part of valid UTF-8 is written as the escape "\udcXX" (U+DC00 + the byte, see
// ByteNames.h), so the output is valid JSON and every name maps back to its exact bytes.
// Thread safety: one writer per thread; the tree must not change while it is written.
class TreeJsonWriter {
public:
    explicit TreeJsonWriter(std::ostream& out);
    ~TreeJsonWriter();

    TreeJsonWriter(const TreeJsonWriter&) = delete;
    TreeJsonWriter& operator=(const TreeJsonWriter&) = delete;

    void write(const FileNode& root);
    // The same, with the root object carrying
    //   "partial":false,"unreadableFolders":[{"path":"/b/c","reason":"…"},…]
    // before its children: whether the tree is the saved part of a scan that did not finish,
    // and the folders the scan could not read (paths below the scanned folder; "[]" when
    // every folder was read).
    void write(const FileNode& root, const std::vector<SkippedFolder>& unreadableFolders,
               bool partial = false);

    // `text` as a JSON string literal, quotes included, bytes outside valid UTF-8 as "\udcXX".
    static void appendJsonString(std::string& buffer, std::string_view text);
    // Seconds since the Unix epoch as 2024-05-01T12:34:56Z (whole seconds, rounded down).
    static void appendIso8601(std::string& buffer, double unixSeconds);

private:
    void write(const FileNode& root, const std::vector<SkippedFolder>* unreadableFolders,
               bool partial);
    void appendNodeOpening(const FileNode& node,
                           const std::vector<SkippedFolder>* unreadableFolders = nullptr,
                           bool partial = false);
    void flushIfFull();
    void flush();

    std::ostream& out_;
    std::string buffer_;
};

} // namespace brimvale::cli
