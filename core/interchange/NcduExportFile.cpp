#include "core/interchange/NcduExportFile.h"

#include "core/interchange/ExportTextSource.h"
#include "core/interchange/NcduExportWriter.h"

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <system_error>

namespace brimvale {

ImportedScan readNcduExportFile(const std::string& path) {
    const auto source = ExportTextSource::open(path);
    return readNcduExport(
        [&source](char* buffer, std::size_t capacity) { return source->read(buffer, capacity); });
}

void writeNcduExportFile(const std::string& path, const FileNode& root, std::string_view rootName,
                         Date exportDate) {
    const std::string temporary = path + ".partial";
    {
        std::ofstream file(temporary, std::ios::binary | std::ios::trunc);
        if (!file) {
            throw std::system_error(errno, std::generic_category(), "cannot write " + path);
        }
        try {
            NcduExportWriter(file).write(root, rootName, exportDate);
            file.close();
            if (!file) {
                throw std::runtime_error("cannot write " + path + " (is the disk full?)");
            }
        } catch (...) {
            std::remove(temporary.c_str());
            throw;
        }
    }
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        const int error = errno;
        std::remove(temporary.c_str());
        throw std::system_error(error, std::generic_category(), "cannot write " + path);
    }
}

} // namespace brimvale
