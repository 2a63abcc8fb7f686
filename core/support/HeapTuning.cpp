#include "core/support/HeapTuning.h"

#include <cstdlib>
#include <string>
#include <string_view>
#include <unistd.h>

namespace brimvale {

void adoptHugePageHeap(char** argv) {
    constexpr std::string_view kTunable = "glibc.malloc.hugetlb";
    const char* tunables = std::getenv("GLIBC_TUNABLES");
    if (std::getenv("BRIMVALE_NO_HEAP_TUNING") != nullptr ||
        (tunables != nullptr &&
         std::string_view(tunables).find(kTunable) != std::string_view::npos)) {
        return;
    }
    std::string value =
        tunables != nullptr && tunables[0] != '\0' ? std::string(tunables) + ":" : std::string();
    value += std::string(kTunable) + "=1";
    if (::setenv("GLIBC_TUNABLES", value.c_str(), 1) != 0) {
        return;
    }
    ::execv("/proc/self/exe", argv);
    // Not run again: go on with the ordinary heap, and keep children from trying it.
    ::unsetenv("GLIBC_TUNABLES");
    if (tunables != nullptr) {
        ::setenv("GLIBC_TUNABLES", tunables, 1);
    }
}

} // namespace brimvale
