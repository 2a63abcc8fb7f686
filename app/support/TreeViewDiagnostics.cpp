#include "app/support/TreeViewDiagnostics.h"

#include <cstdio>
#include <cstdlib>
#include <string>

namespace brimvale::TreeViewDiagnostics {
namespace {

void writeLine(std::string_view prefix, std::string_view message) {
    std::string line;
    line.reserve(prefix.size() + message.size() + 2);
    line.append(prefix).append(" ").append(message).append("\n");
    std::fputs(line.c_str(), stderr);
}

} // namespace

bool debugEnabled() {
    static const bool enabled = std::getenv("BRIMVALE_TREE_DEBUG") != nullptr;
    return enabled;
}

bool traceEnabled() {
    static const bool enabled = std::getenv("BRIMVALE_TREE_TRACE") != nullptr;
    return enabled;
}

void debug(std::string_view message) {
    if (debugEnabled()) {
        writeLine("[TreeView]", message);
    }
}

void trace(std::string_view message) {
    if (traceEnabled()) {
        writeLine("[TreeView trace]", message);
    }
}

} // namespace brimvale::TreeViewDiagnostics
