#include "core/interchange/NcduExportReader.h"

#include "core/interchange/ExportEntryMarks.h"
#include "core/support/CorruptDataError.h"

#include <cmath>
#include <limits>
#include <unordered_set>
#include <vector>

namespace brimvale {
namespace {

// One entry's fields as the export gives them; reused from entry to entry.
struct EntryFields {
    std::string name;
    bool hasName = false;
    std::optional<std::int64_t> apparentSize;
    std::optional<std::int64_t> allocatedSize;
    std::optional<std::uint64_t> device;
    std::optional<std::uint64_t> inode;
    bool hardLinked = false;
    bool readError = false;
    bool special = false;
    std::optional<std::string> excludedReason;
    std::optional<double> modifiedUnixSeconds;

    void clear() {
        hasName = false;
        apparentSize.reset();
        allocatedSize.reset();
        device.reset();
        inode.reset();
        hardLinked = readError = special = false;
        excludedReason.reset();
        modifiedUnixSeconds.reset();
    }
};

struct FileIdentity {
    std::uint64_t device;
    std::uint64_t inode;
    bool operator==(const FileIdentity&) const = default;
};

struct FileIdentityHash {
    std::size_t operator()(const FileIdentity& identity) const {
        return std::hash<std::uint64_t>()(identity.inode * 0x9E3779B97F4A7C15ULL ^ identity.device);
    }
};

// Far beyond what Linux resolves at once (4,096), well inside what trees made with relative
// paths reach in practice.
constexpr std::size_t kLongestFolderPath = 16 * 1024;

struct OpenFolder {
    FileNode* node;
    SharedTextRef path; // made once, shared by every child
    std::uint64_t device;
};

class ExportTreeBuilder {
public:
    explicit ExportTreeBuilder(JsonPullReader::Fill fill)
        : json_(std::move(fill)) {}

    ImportedScan read() {
        json_.expect('[', "the export");
        const auto major = json_.readNumber();
        if (!major.integral || major.negative || major.magnitude != 1) {
            json_.fail("this export has format version " + formatVersion(major) +
                       "; only version 1 is known");
        }
        json_.expect(',', "the export");
        if (!json_.readNumber().integral) {
            json_.fail("the minor format version is not a whole number");
        }
        json_.expect(',', "the export");
        readMetadata();
        json_.expect(',', "the export");
        if (json_.peek() != '[') {
            json_.fail("expected the scanned folder ('[')");
        }
        readTree();
        while (json_.nextOrClose(']', "the export")) {
            json_.skipValue();
        }
        if (!json_.atEnd()) {
            json_.fail("unexpected text after the end of the export");
        }
        finish();
        return std::move(scan_);
    }

private:
    static std::string formatVersion(const JsonPullReader::Number& number) {
        if (number.integral && number.fitsUnsigned) {
            return (number.negative ? "-" : "") + std::to_string(number.magnitude);
        }
        return std::to_string(number.value);
    }

    void readMetadata() {
        if (json_.peek() != '{') {
            json_.fail("expected the export's metadata ('{')");
        }
        json_.expect('{', "the metadata");
        if (json_.peek() == '}') {
            json_.expect('}', "the metadata");
        } else {
            do {
                json_.readString(key_);
                json_.expect(':', "the metadata");
                if (key_ == "progname" && json_.peek() == '"') {
                    json_.readString(scan_.program);
                } else if (key_ == "progver" && json_.peek() == '"') {
                    json_.readString(scan_.programVersion);
                } else if (key_ == "timestamp" && isNumberStart(json_.peek())) {
                    scan_.exportDate = Date::fromUnixSeconds(json_.readNumber().value);
                } else {
                    json_.skipValue();
                }
            } while (json_.nextOrClose('}', "the metadata"));
        }
        countsOnlyFirstLink_ = scan_.program == "gdu";
    }

    static bool isNumberStart(char c) { return c == '-' || (c >= '0' && c <= '9'); }

    std::int64_t readSize(std::string_view field) {
        const std::uint64_t at = json_.offset();
        if (!isNumberStart(json_.peek())) {
            json_.failAt(at, std::string(field) + " is not a byte count");
        }
        const auto number = json_.readNumber();
        if (!number.integral || number.negative || !number.fitsUnsigned ||
            number.magnitude >
                static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
            json_.failAt(at, std::string(field) + " is not a byte count from 0 to 2^63-1");
        }
        return static_cast<std::int64_t>(number.magnitude);
    }

    std::uint64_t readIdentityNumber(std::string_view field) {
        const std::uint64_t at = json_.offset();
        if (!isNumberStart(json_.peek())) {
            json_.failAt(at, std::string(field) + " is not a whole number");
        }
        const auto number = json_.readNumber();
        if (!number.integral || number.negative || !number.fitsUnsigned) {
            json_.failAt(at, std::string(field) + " is not a whole number from 0 to 2^64-1");
        }
        return number.magnitude;
    }

    // Reads one entry object into entry_; returns the offset where it began.
    std::uint64_t readEntry() {
        entry_.clear();
        const std::uint64_t start = json_.offset();
        json_.expect('{', "an entry");
        if (json_.peek() == '}') {
            json_.failAt(start, "an entry has no name");
        }
        do {
            json_.readString(key_);
            json_.expect(':', "an entry");
            readEntryField();
        } while (json_.nextOrClose('}', "an entry"));
        if (!entry_.hasName) {
            json_.failAt(start, "an entry has no name");
        }
        return start;
    }

    void readEntryField() {
        const char next = json_.peek();
        const std::string_view key = key_;
        if (key == "name") {
            json_.readString(entry_.name);
            entry_.hasName = true;
        } else if (key == "asize") {
            entry_.apparentSize = readSize("asize");
        } else if (key == "dsize") {
            entry_.allocatedSize = readSize("dsize");
        } else if (key == "dev") {
            entry_.device = readIdentityNumber("dev");
        } else if (key == "ino") {
            entry_.inode = readIdentityNumber("ino");
        } else if (key == "hlnkc" && (next == 't' || next == 'f')) {
            entry_.hardLinked = json_.readBool();
        } else if (key == "read_error" && (next == 't' || next == 'f')) {
            entry_.readError = json_.readBool();
        } else if (key == "notreg" && (next == 't' || next == 'f')) {
            entry_.special = json_.readBool();
        } else if (key == "excluded" && next == '"') {
            std::string reason;
            json_.readString(reason);
            entry_.excludedReason = std::move(reason);
        } else if (key == "excluded" && next == 't') {
            entry_.excludedReason =
                json_.readBool() ? std::optional<std::string>("") : std::nullopt;
        } else if (key == "mtime" && isNumberStart(next)) {
            entry_.modifiedUnixSeconds = json_.readNumber().value;
        } else {
            json_.skipValue();
        }
    }

    void checkChildName(std::uint64_t at) const {
        const std::string_view name = entry_.name;
        if (name.empty() || name == "." || name == ".." ||
            name.find('/') != std::string_view::npos || name.find('\0') != std::string_view::npos) {
            json_.failAt(at, "an entry's name is not a file name (empty, \".\", \"..\", or with "
                             "\"/\" or a NUL byte)");
        }
    }

    // The entry's own bytes, with hard links counted once.
    std::int64_t ownSize(FileNode* node, std::uint64_t device) {
        if (entry_.allocatedSize) {
            sawAllocatedSize_ = true;
            if (!linkAlreadyCounted(device)) {
                return *entry_.allocatedSize;
            }
            return 0;
        }
        if (!entry_.apparentSize || *entry_.apparentSize == 0 || linkAlreadyCounted(device)) {
            return 0;
        }
        // Used only if the export turns out to have no allocated sizes at all.
        apparentOnly_.push_back({node, *entry_.apparentSize});
        return 0;
    }

    bool linkAlreadyCounted(std::uint64_t device) {
        if (!entry_.hardLinked) {
            return false;
        }
        if (countsOnlyFirstLink_) {
            return true;
        }
        return entry_.inode && !countedLinks_.insert({device, *entry_.inode}).second;
    }

    FileNodeRef makeNode(FileNode* parent, const SharedTextRef& parentPath, bool folder) {
        std::optional<std::string> mark;
        if (entry_.readError) {
            mark = std::string(kReadErrorMimeType);
        } else if (entry_.excludedReason) {
            mark = excludedMimeType(*entry_.excludedReason);
        } else if (entry_.special) {
            mark = std::string(kSpecialFileMimeType);
        }
        std::optional<Date> modified;
        if (entry_.modifiedUnixSeconds) {
            modified = Date::fromUnixSeconds(*entry_.modifiedUnixSeconds);
        }
        FileNodeFields fields{.name = std::move(entry_.name),
                              .path = {},
                              .isDirectory = folder,
                              .size = 0,
                              .modifiedDate = modified,
                              .providerID = std::nullopt,
                              .mimeType = std::move(mark),
                              .children = {}};
        if (parent == nullptr) {
            fields.path = fields.name;
            return FileNode::make(std::move(fields));
        }
        FileNodeRef node = FileNode::makeChild(parentPath, PathJoin::slash, std::move(fields));
        node->setParent(parent);
        parent->mutableChildren().push_back(node);
        return node;
    }

    void readTree() {
        std::vector<OpenFolder> open;
        json_.expect('[', "a folder");
        const std::uint64_t rootStart = readEntry();
        if (entry_.name.empty()) {
            json_.failAt(rootStart, "the scanned folder has no name");
        }
        const std::uint64_t rootDevice = entry_.device.value_or(0);
        scan_.root = makeNode(nullptr, nullptr, true);
        scan_.root->setSize(ownSize(scan_.root.get(), rootDevice));
        ++scan_.folders;
        open.push_back({scan_.root.get(), scan_.root->sharedPath(), rootDevice});
        while (!open.empty()) {
            if (!json_.nextOrClose(']', "a folder")) {
                open.pop_back();
                continue;
            }
            const OpenFolder& folder = open.back();
            const bool isFolder = json_.peek() == '[';
            if (isFolder) {
                json_.expect('[', "a folder");
            } else if (json_.peek() != '{') {
                json_.fail("expected an entry ('{') or a folder ('[')");
            }
            const std::uint64_t start = readEntry();
            checkChildName(start);
            const std::uint64_t device = entry_.device.value_or(folder.device);
            FileNode* parent = folder.node;
            FileNodeRef node = makeNode(parent, folder.path, isFolder);
            node->setSize(ownSize(node.get(), device));
            if (isFolder) {
                // Every folder keeps its whole path, so depth costs memory as its square.
                if (folder.path &&
                    folder.path->view().size() + 1 + node->name().size() > kLongestFolderPath) {
                    json_.failAt(start, "folders are nested too deeply (a path longer than " +
                                            std::to_string(kLongestFolderPath) + " bytes)");
                }
                ++scan_.folders;
                open.push_back({node.get(), node->sharedPath(), device});
            } else {
                ++scan_.files;
            }
        }
    }

    // Folder sizes (own entry plus everything below), shares and order, deepest first.
    void finish() {
        if (!sawAllocatedSize_) {
            for (const auto& [node, bytes] : apparentOnly_) {
                node->setSize(bytes);
            }
        }
        apparentOnly_.clear();
        struct Pending {
            FileNode* folder;
            bool childrenDone;
        };
        std::vector<Pending> stack{{scan_.root.get(), false}};
        while (!stack.empty()) {
            Pending& top = stack.back();
            FileNode* folder = top.folder;
            if (!top.childrenDone) {
                top.childrenDone = true;
                for (const auto& child : folder->children()) {
                    if (child->isDirectory()) {
                        stack.push_back({child.get(), false});
                    }
                }
                continue;
            }
            stack.pop_back();
            std::int64_t total = folder->size();
            for (const auto& child : folder->children()) {
                if (__builtin_add_overflow(total, child->size(), &total)) {
                    throw CorruptDataError("the sizes in the export add up to more than "
                                           "2^63-1 bytes");
                }
            }
            folder->setSize(total);
            folder->rebalanceChildren();
        }
        scan_.root->setFractionOfParent(1.0);
        scan_.root->sortChildren();
    }

    JsonPullReader json_;
    ImportedScan scan_;
    EntryFields entry_;
    std::string key_;
    bool countsOnlyFirstLink_ = false;
    bool sawAllocatedSize_ = false;
    std::unordered_set<FileIdentity, FileIdentityHash> countedLinks_;
    std::vector<std::pair<FileNode*, std::int64_t>> apparentOnly_;
};

} // namespace

ImportedScan readNcduExport(JsonPullReader::Fill fill) {
    return ExportTreeBuilder(std::move(fill)).read();
}

} // namespace brimvale
