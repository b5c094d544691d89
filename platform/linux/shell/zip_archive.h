// Zip archives on libzip for the shell's compressed folders: the entries of an archive, compression into an
// archive held open by a handle (changed in place through it), and extraction that writes nothing unless
// every entry could be read whole.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "../../wstr.h"
#include "../../win32.h"

namespace vlx {

// The names in a host folder but "." and "..", sorted; false when it cannot be listed (errno set).
bool HostFolderNames(const std::string& folder, std::vector<std::string>& names);

// A file or folder of the host to put into an archive under its own name.
struct ZipSource {
    std::string hostPath;
    WString name;
};

// The names at the top of an archive (a file's name, or the first folder of a deeper entry), each once, in
// the order of the archive, and whether each is a folder. False when the file is not a readable archive.
struct ZipTopItem {
    WString name;
    bool folder = false;
};
bool ListZipTop(const std::string& archiveHostPath, std::vector<ZipTopItem>& items);

// How a copy into a place that holds an entry of the same name is settled: IDYES replace, IDNO skip this
// one, IDCANCEL stop the whole copy.
using ReplaceQuestion = std::function<int(const WString& name)>;

// Adds every source, folders with all they hold, to the archive in the file fd, which the caller holds
// open without sharing. The new archive is written beside and copied over the old one through fd only
// when it is complete, so a failure leaves the archive as it was. progress gets 0 to 100. ERROR_SUCCESS,
// or the Win32 code of the failure.
DWORD CompressIntoZip(int fd, const std::string& archiveHostPath, const std::vector<ZipSource>& sources,
                      const ReplaceQuestion& askReplace, const std::function<void(int percent)>& progress);

// Extracts the entries under the given top names (every entry when names is empty) into the host folder.
// Entries are first written into a hidden folder beside them and moved into place only once all of them
// were read whole with their checksums right; names that would land outside the folder (absolute, "..",
// a drive letter) refuse the whole archive. ERROR_SUCCESS, or the Win32 code of the failure.
DWORD ExtractFromZipArchive(const std::string& archiveHostPath, const std::vector<WString>& names,
                            const std::string& destinationHost, const ReplaceQuestion& askReplace);

}  // namespace vlx
