#include "app/ApplicationEntry.h"
#include "core/support/HeapTuning.h"

int main(int argc, char** argv) {
    brimvale::adoptHugePageHeap(argv);
    return brimvale::runApplication(argc, argv);
}
