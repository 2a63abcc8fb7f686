#pragma once

namespace brimvale {

// Makes the C library's heap use transparent huge pages, by running the program again at once
// with the glibc tunable glibc.malloc.hugetlb=1 when it is not set yet. Trees of millions of
// nodes are millions of small allocations; on virtual machines every 4 KiB page fault is costly,
// and huge pages made building or loading a tree of a million nodes about twice as fast here.
// Call first thing in main(), before any thread starts. Does nothing when the tunable is set
// already, when BRIMVALE_NO_HEAP_TUNING is set, or when the program cannot be run again.
void adoptHugePageHeap(char** argv);

} // namespace brimvale
