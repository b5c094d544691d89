// velmora mft count|list X:: the whole of an NTFS volume from its master file table.
#include <cinttypes>
#include <cstdio>

#include "../platform/unique_handles.h"
#include "command.h"

namespace cli {

namespace {

int RunMft(const std::vector<std::string>& args);

const Command kMft = {
    "mft",
    "count or list every entry of an NTFS volume from its master file table",
    "mft count|list X: [--no-journal]\n"
    "  count prints the files, folders and bytes of the whole volume X:, list every path on it in the order\n"
    "  of the table. Only the drive letter of the path counts. The volume's change journal is made active\n"
    "  first, as fsutil usn createjournal does (this writes the journal into the volume); --no-journal\n"
    "  leaves the volume as it is, so a volume without an active journal shows nothing. NTFS volumes of\n"
    "  attached disk images (--disk), as root. Exit 1 when nothing is found.",
    RunMft,
};

// The sizes Windows picks for a journal made by hand on a small volume.
constexpr DWORDLONG kJournalMaximumSize = 32ULL << 20;
constexpr DWORDLONG kJournalAllocationDelta = 4ULL << 20;

// Makes the change journal of the volume behind letter active, when it is an NTFS volume that has none.
void ActivateJournal(WCHAR letter) {
    const WString device = WStrFormat(_T("\\\\.\\%c:"), letter);
    UniqueHandle volume(sys().CreateFileW(device.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                          nullptr, OPEN_EXISTING, 0, nullptr));
    if (!volume) return;
    CREATE_USN_JOURNAL_DATA journal{kJournalMaximumSize, kJournalAllocationDelta};
    DWORD returned = 0;
    // Other volumes refuse the request; the walk then finds nothing, as it would on Windows.
    sys().DeviceIoControl(volume.get(), FSCTL_CREATE_USN_JOURNAL, &journal, sizeof journal, nullptr, 0, &returned, nullptr);
}

int RunMft(const std::vector<std::string>& args) {
    std::vector<std::string> rest;
    bool journal = true;
    for (const std::string& arg : args) {
        if (arg == "--no-journal") journal = false;
        else rest.push_back(arg);
    }
    if (rest.size() != 2 || (rest[0] != "count" && rest[0] != "list")) return UsageError(kMft, "count or list and a volume are needed");
    const CString path = LibraryPath(rest[1]);
    if (path.IsEmpty()) return UsageError(kMft, "a volume such as E: is needed");
    if (journal) ActivateJournal(path[0]);

    const std::string nothing = "nothing found on " + rest[1] + " (not an NTFS volume with an active change journal, or not root)";
    if (rest[0] == "count") {
        ULONGLONG files = 0, folders = 0, bytes = 0;
        GetFileCountInFolderFromMFT(path, &files, &folders, &bytes, nullptr, CString());
        if (files == 0 && folders == 0) return Fail(kMft, nothing);
        std::printf("files: %" PRIu64 "\nfolders: %" PRIu64 "\nbytes: %" PRIu64 "\n", static_cast<uint64_t>(files),
                    static_cast<uint64_t>(folders), static_cast<uint64_t>(bytes));
        return kExitOk;
    }
    std::vector<std::basic_string<WCHAR>> list;
    GetFileListFromMFT(path, &list);
    if (list.empty()) return Fail(kMft, nothing);
    for (const auto& entry : list) std::printf("%s\n", Printable(entry.c_str()).c_str());
    return kExitOk;
}

const CommandRegistration kRegistration(kMft);

}  // namespace

}  // namespace cli
