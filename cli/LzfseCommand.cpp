#include "cli/LzfseCommand.h"

#include "core/persistence/lzfse/Lzfse.h"
#include "core/support/CorruptDataError.h"
#include "core/support/FileBytes.h"

#include <ostream>
#include <system_error>

namespace brimvale::cli {
namespace {

// Enough for any cache file; a stream that claims more is refused rather than filling memory.
constexpr std::size_t kDecompressLimit = std::size_t{8} << 30;

} // namespace

Command lzfseCommand() {
    return Command{
        .name = "lzfse",
        .summary = "Compress or decompress a file with LZFSE (the format of cache files)",
        .usage = "lzfse compress|decompress IN OUT",
        .details =
            "compress writes an LZFSE stream of IN to OUT; decompress writes the bytes of the\n"
            "LZFSE stream IN to OUT. OUT is replaced atomically and is readable by you only.",
        .run = [](std::span<const std::string> arguments, CommandStreams streams) {
            if (arguments.size() != 3) {
                throw UsageError(arguments.empty() ? "say compress or decompress, then IN and OUT"
                                                   : "expected 3 arguments, got " +
                                                         std::to_string(arguments.size()));
            }
            const std::string& mode = arguments[0];
            if (mode != "compress" && mode != "decompress") {
                throw UsageError("unknown mode '" + mode + "': use compress or decompress");
            }
            const std::string& inputPath = arguments[1];
            const std::string& outputPath = arguments[2];
            try {
                const auto input = readFileBytes(inputPath).bytes;
                const auto output = mode == "compress" ? lzfseCompress(input)
                                                       : lzfseDecompress(input, kDecompressLimit);
                writeFileAtomically(outputPath, output, 0600);
                streams.out << inputPath << ": " << input.size() << " bytes \u2192 " << outputPath
                            << ": " << output.size() << " bytes\n";
                return static_cast<int>(exitSuccess);
            } catch (const std::system_error& error) {
                streams.err << "brimvale-cli lzfse: " << error.what() << '\n';
            } catch (const CorruptDataError& error) {
                streams.err << "brimvale-cli lzfse: " << inputPath
                            << " is not a valid LZFSE stream: " << error.what() << '\n';
            }
            return static_cast<int>(exitFailure);
        }};
}

} // namespace brimvale::cli
