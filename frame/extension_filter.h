// The extension filter that the direct copy and the folder walks share: a list of extensions, each
// introduced by a dot, tested against the end of a path.
#pragma once

#include "../platform/win32.h"

// True when path ends, without regard to case, in one of the extensions of filter. Each dot of the
// filter starts an extension that runs to the next dot or to the end; text before the first dot is
// ignored (so "*.txt" means ".txt"), and every other character, spaces, semicolons and asterisks
// included, belongs to the extension it follows. A filter without a dot, or a null argument, matches
// nothing. A dot with nothing after it (".a." or "..") stands for a lone dot.
bool MatchesExtensionFilter(LPCWSTR path, LPCWSTR filter);
