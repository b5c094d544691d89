// The other names of a file on a host-folder volume: Linux keeps no list of a file's hard links, so they
// are found by searching the volume's host folder, nearest first.
#pragma once

#include <sys/stat.h>

#include <vector>

#include "../core/internal.h"

namespace vlx {

// Appends to names (volume-relative, "\a\b.txt") the names of the file that resolved names and status
// describes, skipping those already there. The search starts in the file's own folder, then takes each
// folder above it in turn up to the volume root, and stops as soon as status.st_nlink names are known, so
// that names which sit near each other are found without reading the rest of the volume. It stays on the
// file's host file system and follows no links.
void CollectHostLinkNames(const ResolvedPath& resolved, const struct stat& status, std::vector<WString>& names);

}  // namespace vlx
