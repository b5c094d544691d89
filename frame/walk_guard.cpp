// The folders of the calling thread's walk and the test that keeps a walk out of a link back into them.
#include "walk_guard.h"

#include <vector>

#include "../platform/unique_handles.h"

namespace {

// A folder by what it is rather than by its name: two paths, through links or not, name the same folder
// when these are equal.
struct FolderIdentity {
    DWORD volume = 0;
    ULONGLONG index = 0;
    bool operator==(const FolderIdentity&) const = default;
};

// A level's folder, with its identity looked up only once a link asks for it: most walks meet no link.
struct WalkedFolder {
    CString path;
    bool looked = false;
    bool known = false;
    FolderIdentity identity;
};

thread_local std::vector<WalkedFolder> t_walked;

// What a path leads to, following links; false when it cannot be opened.
bool IdentityOf(const CString& path, FolderIdentity& identity) {
    UniqueHandle folder(sys().CreateFileW(path, 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                          OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (!folder) return false;
    BY_HANDLE_FILE_INFORMATION info{};
    if (!sys().GetFileInformationByHandle(folder.get(), &info)) return false;
    identity.volume = info.dwVolumeSerialNumber;
    identity.index = (static_cast<ULONGLONG>(info.nFileIndexHigh) << 32) | info.nFileIndexLow;
    return true;
}

}  // namespace

WalkLevel::WalkLevel(const CString& folder) {
    WalkedFolder walked;
    walked.path = folder;
    t_walked.push_back(walked);
}

WalkLevel::~WalkLevel() { t_walked.pop_back(); }

bool LeadsBackIntoWalk(const CString& link) {
    FolderIdentity target;
    if (!IdentityOf(link, target)) return true;
    for (WalkedFolder& folder : t_walked) {
        if (!folder.looked) {
            folder.known = IdentityOf(folder.path, folder.identity);
            folder.looked = true;
        }
        if (folder.known && folder.identity == target) return true;
    }
    return false;
}
