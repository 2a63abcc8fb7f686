#pragma once

// Large buffers that are filled right after allocation (a file being written, a column being
// read) are faulted in by the kernel page by page. Where page faults are slow, as in virtual
// machines, faulting in tens of megabytes 4 KiB at a time costs more than writing them, so these
// buffers ask for transparent huge pages first. The advice is only a hint: nothing changes where
// the kernel ignores it or on other systems.

#include <cstddef>
#include <vector>

namespace brimvale::bplist {

// Hints that [data, data + bytes) will be used in full soon. Cheap; does nothing for small
// ranges.
void adviseWholeUse(const void* data, std::size_t bytes);

// v.reserve(capacity), with the hint for the new storage.
template <class T> void reserveLarge(std::vector<T>& v, std::size_t capacity) {
    v.reserve(capacity);
    adviseWholeUse(v.data(), capacity * sizeof(T));
}

} // namespace brimvale::bplist
