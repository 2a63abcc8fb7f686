// Reads arbitrary bytes as a binary property list: the header and trailer, then, when they
// parse, the whole value tree and every array of the top-level dictionary as each kind of
// column. Anything but CorruptDataError (a crash, a sanitizer report, another exception, a
// time-out or an allocation past libFuzzer's limit) is a bug.

#include "core/persistence/bplist/BinaryPlistColumns.h"
#include "core/persistence/bplist/BinaryPlistReader.h"
#include "core/persistence/bplist/PlistValue.h"
#include "core/support/CorruptDataError.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace {

using namespace brimvale;

template <class Read> void tryRead(Read&& read) {
    try {
        read();
    } catch (const CorruptDataError&) {
    }
}

void readColumns(const BinaryPlistReader& reader) {
    if (reader.kind(reader.topObject()) != PlistKind::Dictionary) {
        return;
    }
    const PlistDictionaryRefs entries = reader.dictionary(reader.topObject());
    for (std::size_t i = 0; i < entries.values.size(); ++i) {
        const PlistRef value = entries.values[i];
        tryRead([&] { reader.string(entries.keys[i]); });
        tryRead([&] { readStringColumn(reader, value); });
        tryRead([&] { readInt64Column(reader, value); });
        tryRead([&] { readInt32Column(reader, value); });
        tryRead([&] { readBooleanColumn(reader, value); });
        tryRead([&] { readRealColumn(reader, value); });
    }
    tryRead([&] { reader.at(reader.topObject(), "nm"); });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Limits well inside libFuzzer's default memory limit of 2 GB.
    const PlistReadLimits limits{.maxDepth = 128, .maxDecodedBytes = 64 << 20};
    try {
        const BinaryPlistReader reader(std::span(data, size), limits);
        tryRead([&] { decodePlistValue(reader, reader.topObject()); });
        tryRead([&] { readColumns(reader); });
    } catch (const CorruptDataError&) {
    }
    return 0;
}
