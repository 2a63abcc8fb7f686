#pragma once

#include <string_view>

namespace brimvale {

// File-manager order of names: case-insensitive, runs of digits compared by their numeric
// value (file2 before file10), accented Latin letters next to their base letter (é between e
// and f). Returns a negative number when a comes first, 0 when the names rank equal (such as
// "Read.me" and "read.ME", or "a01" and "a1"), positive otherwise. A consistent total preorder,
// so it is safe in sorts. Names are UTF-8; invalid bytes rank after every valid character.
int compareNamesForFileManager(std::string_view a, std::string_view b);

} // namespace brimvale
