#pragma once

#include <string_view>

namespace brimvale::TreeViewDiagnostics {

// The column browser's two switches, read once from the environment: BRIMVALE_TREE_DEBUG
// (set to anything) writes what the browser does and how long it takes, prefixed "[TreeView]";
// BRIMVALE_TREE_TRACE writes every selection, key and root change, prefixed
// "[TreeView trace]". Both go to standard error. GUI thread only.
bool debugEnabled();
bool traceEnabled();
void debug(std::string_view message);
void trace(std::string_view message);

} // namespace brimvale::TreeViewDiagnostics
