// Throughput and ratio of the LZFSE codec. Prints one figure per line as "name: value unit":
//   lzfse.compress_mb_s, lzfse.decompress_mb_s   over listing-like vectors and a synthetic
//                                                 ~40 MB path list (MB of uncompressed data per
//                                                 second of the codec's CPU time, fastest run)
//   lzfse.<...>_mb_s.<input>, lzfse.ratio.<input> the same per input, and its compression ratio
//   lzfse.<...>_wall_mb_s                         the same by wall-clock time, which other
//                                                 programs running on the machine lower
//   lzfse.ratio_vs_reference                     our compressed size of all vector .bin files
//                                                 over the reference encoder's .lzfse sizes
// Usage: lzfse_bench [vectors-directory]

#include "core/persistence/lzfse/Lzfse.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;
using Clock = std::chrono::steady_clock;

Bytes readFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("cannot read " + path.string());
    }
    return Bytes(std::istreambuf_iterator<char>(file), {});
}

// A deterministic generator, so every run measures the same bytes.
class SplitMix64 {
public:
    explicit SplitMix64(std::uint64_t seed)
        : state_(seed) {}
    std::uint64_t next() {
        std::uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    std::size_t below(std::size_t bound) { return static_cast<std::size_t>(next() % bound); }

private:
    std::uint64_t state_;
};

// About `size` bytes of "path<TAB>size<TAB>mtime" lines walking a made-up tree, like the
// listing a scan cache stores for a large account.
Bytes makePathList(std::size_t size) {
    static const char* const kWords[] = {
        "Documents", "Photos",  "Projects",     "archive", "backup",  "src",    "include",
        "assets",    "2019",    "2020",         "2021",    "2022",    "2023",   "invoices",
        "music",     "Videos",  "node_modules", "build",   "reports", "drafts", "shared",
        "team",      "clients", "old",          "misc",    "raw"};
    static const char* const kExtensions[] = {".jpg",  ".png", ".pdf", ".txt",  ".cpp",  ".h",
                                              ".json", ".mp3", ".mov", ".docx", ".xlsx", ".zip"};
    SplitMix64 random(42);
    std::vector<std::string> stack = {"/home/alex"};
    Bytes out;
    out.reserve(size + 256);
    std::uint64_t mtime = 1600000000;
    while (out.size() < size) {
        const std::size_t action = random.below(20);
        if (action == 0 && stack.size() > 1) {
            stack.pop_back();
        } else if (action == 1 && stack.size() < 12) {
            stack.push_back(stack.back() + "/" + kWords[random.below(std::size(kWords))] +
                            (random.below(3) == 0 ? "_" + std::to_string(random.below(100)) : ""));
        }
        std::string line = stack.back() + "/" + kWords[random.below(std::size(kWords))] + "_" +
                           std::to_string(random.below(10000)) +
                           kExtensions[random.below(std::size(kExtensions))] + "\t" +
                           std::to_string(random.next() % (1ull << (10 + random.below(24)))) +
                           "\t" + std::to_string(mtime += random.below(5000)) + "\n";
        out.insert(out.end(), line.begin(), line.end());
    }
    return out;
}

struct Input {
    std::string name;
    Bytes bytes;
};

struct Seconds {
    double cpu = 1e30;
    double wall = 1e30;
};

double cpuSeconds() {
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Runs `work` at least 3 times and for at least `minSeconds`; returns the fastest run by
// each clock.
template <typename Work> Seconds fastestRun(Work work, double minSeconds) {
    Seconds best;
    double total = 0;
    for (int runs = 0; runs < 3 || total < minSeconds; ++runs) {
        const auto wallStart = Clock::now();
        const double cpuStart = cpuSeconds();
        work();
        const double cpu = cpuSeconds() - cpuStart;
        const double wall = std::chrono::duration<double>(Clock::now() - wallStart).count();
        best.cpu = std::min(best.cpu, cpu);
        best.wall = std::min(best.wall, wall);
        total += wall;
    }
    return best;
}

struct Measurement {
    Seconds compress;
    Seconds decompress;
    std::size_t compressedSize = 0;
};

Measurement measure(const Bytes& input) {
    Measurement result;
    Bytes compressed;
    result.compress = fastestRun([&] { compressed = brimvale::lzfseCompress(input); }, 1.0);
    Bytes decompressed;
    result.decompress = fastestRun(
        [&] { decompressed = brimvale::lzfseDecompress(compressed, input.size()); }, 1.0);
    if (decompressed != input) {
        throw std::runtime_error("round trip failed");
    }
    result.compressedSize = compressed.size();
    return result;
}

void printRate(const std::string& name, double bytes, double seconds) {
    std::printf("%s: %.1f MB/s\n", name.c_str(), bytes / 1e6 / seconds);
}

} // namespace

int main(int argc, char** argv) {
    try {
        const std::filesystem::path vectors =
            argc > 1 ? std::filesystem::path(argv[1])
                     : std::filesystem::path(BRIMVALE_SHARED_DIR "/vectors/lzfse");

        // Ratio against the reference encoder, over every vector.
        std::vector<std::filesystem::path> bins;
        for (const auto& entry : std::filesystem::directory_iterator(vectors)) {
            if (entry.path().extension() == ".bin") {
                bins.push_back(entry.path());
            }
        }
        std::sort(bins.begin(), bins.end());
        if (bins.empty()) {
            throw std::runtime_error("no .bin files in " + vectors.string());
        }
        std::size_t ours = 0;
        std::size_t reference = 0;
        for (const auto& bin : bins) {
            ours += brimvale::lzfseCompress(readFile(bin)).size();
            reference += readFile(std::filesystem::path(bin).replace_extension(".lzfse")).size();
        }

        // Throughput over listing-like data.
        std::vector<Input> inputs;
        for (const char* name : {"listing_json", "mid_text", "mixed"}) {
            const auto path = vectors / (std::string(name) + ".bin");
            if (std::filesystem::exists(path)) {
                inputs.push_back({name, readFile(path)});
            }
        }
        inputs.push_back({"paths_40mb", makePathList(40'000'000)});

        Seconds compressTotal{0, 0};
        Seconds decompressTotal{0, 0};
        double totalBytes = 0;
        for (const Input& input : inputs) {
            const Measurement m = measure(input.bytes);
            const auto bytes = static_cast<double>(input.bytes.size());
            printRate("lzfse.compress_mb_s." + input.name, bytes, m.compress.cpu);
            printRate("lzfse.decompress_mb_s." + input.name, bytes, m.decompress.cpu);
            std::printf("lzfse.ratio.%s: %.4f compressed/original\n", input.name.c_str(),
                        static_cast<double>(m.compressedSize) / bytes);
            compressTotal.cpu += m.compress.cpu;
            compressTotal.wall += m.compress.wall;
            decompressTotal.cpu += m.decompress.cpu;
            decompressTotal.wall += m.decompress.wall;
            totalBytes += bytes;
        }
        printRate("lzfse.compress_wall_mb_s", totalBytes, compressTotal.wall);
        printRate("lzfse.decompress_wall_mb_s", totalBytes, decompressTotal.wall);
        printRate("lzfse.compress_mb_s", totalBytes, compressTotal.cpu);
        printRate("lzfse.decompress_mb_s", totalBytes, decompressTotal.cpu);
        std::printf("lzfse.ratio_vs_reference: %.4f ratio\n",
                    static_cast<double>(ours) / static_cast<double>(reference));
        return 0;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "lzfse_bench: %s\n", e.what());
        return 1;
    }
}
