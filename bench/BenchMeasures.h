#pragma once

// Timing and memory readings every benchmark program uses.

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <string>

namespace brimvale::bench {

inline double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

inline double millisecondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
}

// A field of /proc/self/status in kB, such as VmRSS or VmHWM (the peak); 0 when absent.
inline long statusKilobytes(const char* field) {
    std::ifstream status("/proc/self/status");
    std::string line;
    const std::string prefix = std::string(field) + ":";
    while (std::getline(status, line)) {
        if (line.rfind(prefix, 0) == 0) {
            return std::atol(line.c_str() + prefix.size());
        }
    }
    return 0;
}

} // namespace brimvale::bench
