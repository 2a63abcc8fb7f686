// Feeds arbitrary bytes to the reader of scan exports, in pieces of varying size; whatever it
// accepts must write out and read back with the same total.
#include "core/interchange/NcduExportReader.h"
#include "core/interchange/NcduExportWriter.h"
#include "core/support/CorruptDataError.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>

namespace {

brimvale::ImportedScan readPieces(const char* data, std::size_t size, std::size_t piece) {
    std::size_t position = 0;
    return brimvale::readNcduExport([&](char* buffer, std::size_t capacity) {
        const std::size_t count = std::min({piece, capacity, size - position});
        std::memcpy(buffer, data + position, count);
        position += count;
        return count;
    });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto* text = reinterpret_cast<const char*>(data);
    const std::size_t piece = size == 0 ? 1 : 1 + data[size - 1] % 23;
    brimvale::ImportedScan scan;
    try {
        scan = readPieces(text, size, piece);
    } catch (const brimvale::CorruptDataError&) {
        return 0;
    }
    std::ostringstream out;
    brimvale::NcduExportWriter(out).write(*scan.root, scan.root->name(), brimvale::Date{});
    const std::string written = out.str();
    const auto again = readPieces(written.data(), written.size(), written.size());
    if (again.root->size() != scan.root->size() || again.files != scan.files ||
        again.folders != scan.folders) {
        std::abort();
    }
    return 0;
}
