#pragma once

// Inputs for the LZFSE tests: the reference vectors, and generated data of known character.

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <span>
#include <string>
#include <vector>

namespace brimvale::lzfsetest {

using Bytes = std::vector<std::uint8_t>;

inline const std::filesystem::path kVectorsDir =
    std::filesystem::path(BRIMVALE_SHARED_DIR) / "vectors" / "lzfse";

inline Bytes readFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(file), {});
}

// Names (without extension) of the reference vectors: X.bin is an input, X.lzfse the reference
// encoder's stream of it.
inline std::vector<std::string> vectorNames() {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(kVectorsDir)) {
        if (entry.path().extension() == ".bin") {
            names.push_back(entry.path().stem().string());
        }
    }
    return names;
}

// Deterministic pseudo-random bytes; they do not compress.
inline Bytes randomBytes(std::size_t size, std::uint64_t seed = 1) {
    Bytes out(size);
    std::uint64_t state = seed * 0x9E3779B97F4A7C15ull + 1;
    for (auto& byte : out) {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        byte = static_cast<std::uint8_t>(state >> 24);
    }
    return out;
}

// Text-like bytes: words from a small vocabulary with random numbers, so they compress well
// but need many short matches and literals (which fills LZFSE blocks quickly).
inline Bytes wordSoup(std::size_t size, std::uint64_t seed = 7) {
    static const char* const kWords[] = {
        "photos/",    "2023-",      "backup", ".jpg", " size ", "name",
        "documents/", "\"path\": ", "{",      "}, ",  "alpha",  "\n"};
    const Bytes noise = randomBytes(size, seed);
    Bytes out;
    out.reserve(size + 16);
    for (std::size_t i = 0; out.size() < size; ++i) {
        const std::string word = kWords[noise[i % size] % std::size(kWords)];
        out.insert(out.end(), word.begin(), word.end());
        if (noise[(i + 1) % size] < 80) {
            out.push_back(static_cast<std::uint8_t>('0' + noise[(i + 2) % size] % 10));
        }
    }
    out.resize(size);
    return out;
}

inline Bytes concat(std::initializer_list<std::span<const std::uint8_t>> parts) {
    Bytes out;
    for (const auto part : parts) {
        out.insert(out.end(), part.begin(), part.end());
    }
    return out;
}

// The magic of the first block, as its four characters ("bvx2", "bvxn", ...).
inline std::string firstMagic(std::span<const std::uint8_t> stream) {
    return stream.size() < 4 ? std::string() : std::string(stream.begin(), stream.begin() + 4);
}

} // namespace brimvale::lzfsetest
