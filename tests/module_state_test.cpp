// Which exports make the library's module state current: the copy exports that show the user something
// do so for the length of the call and give the caller's back when they return; the exports that only
// read or make files never switch it, so the platform sees the caller's state all along.
#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <thread>

#include "support/copy_support.h"

namespace {

using namespace testing_support;

class ModuleState : public HostFolderTest {};

TEST_F(ModuleState, OnlyTheCopyExportsSwitchToTheLibrarysStateAndEachGivesTheCallersBack) {
    WriteFile("src/a.txt", "a");
    WriteFile("src/sub/b.txt", "bb");
    WriteFile("other/a.txt", "A");
    const struct {
        const char* name;
        bool switches;
        std::function<void()> call;
    } exports[] = {
        {"CopyFiles", true, [&] { CopyFiles(Win("src"), Win("bk1"), 1, 0, nullptr); }},
        {"CopyFilesEx", true, [&] { CopyFilesEx(Win("src\\a.txt"), Win("bk2"), 1, 0, 0, 0, 0, nullptr, nullptr); }},
        {"CopyFilesMultiEx", true,
         [&] {
             CStringArray sources;
             sources.Add(Win("src\\a.txt"));
             sources.Add(Win("src\\sub"));
             CopyFilesMultiEx(&sources, Win("bk3"), 1, 0, 0, 0, nullptr, nullptr);
         }},
        {"GetFileCountInFolder", false,
         [&] {
             ULONGLONG files = 0, folders = 0, bytes = 0;
             FileListNode head{};
             GetFileCountInFolder(Win("src"), &files, &folders, &bytes, &head, _T(""), nullptr);
             for (FileListNode* node = head.next; node != nullptr;) {
                 FileListNode* next = node->next;
                 free(node);
                 node = next;
             }
         }},
        {"GetFileLength", false, [&] { ULONGLONG length = 0; GetFileLength(Win("src\\a.txt"), &length); }},
        {"GetFileDate", false, [&] { __time64_t written = 0; GetFileDate(Win("src\\a.txt"), nullptr, &written, nullptr); }},
        {"GetFileProperty", false,
         [&] {
             int readOnly = 0;
             GetFileProperty(Win("src\\a.txt"), &readOnly, nullptr, nullptr, nullptr, nullptr);
         }},
        {"GetFileHash", false, [&] { BYTE digest[16]; GetFileHash(Win("src\\a.txt"), digest, CALG_MD5); }},
        {"CompareFileHash", false, [&] { CompareFileHash(Win("src\\a.txt"), Win("other\\a.txt"), CALG_MD5); }},
        {"IsFileExistsInFolder", false, [&] { IsFileExistsInFolder(Win("src")); }},
        {"CreateFolders", false, [&] { CreateFolders(Win("made\\deep")); }},
        {"GetPathIsFileOrFolder", false, [&] { GetPathIsFileOrFolder(Win("src")); }},
    };
    for (const auto& e : exports) {
        // On a thread of its own, so that the caller's state set here goes nowhere else.
        std::thread([&] {
            AFX_MODULE_STATE callerState(FALSE);
            AFX_MANAGE_STATE(&callerState);
            std::set<AFX_MODULE_STATE*> seen;  // the states in which the export reached the platform
            auto see = [&] { seen.insert(AfxGetModuleState()); };
            ApiPatch<&Win32Api::GetFileAttributesW> attributes([&](LPCWSTR path) { return see(), attributes.Original()(path); });
            ApiPatch<&Win32Api::PathFileExistsW> exists([&](LPCWSTR path) { return see(), exists.Original()(path); });
            ApiPatch<&Win32Api::FindFirstFileW> find([&](LPCWSTR pattern, LPWIN32_FIND_DATAW data) {
                return see(), find.Original()(pattern, data);
            });
            ApiPatch<&Win32Api::CreateFileW> open([&](LPCWSTR p, DWORD a, DWORD s, LPSECURITY_ATTRIBUTES sa, DWORD d, DWORD f, HANDLE t) {
                return see(), open.Original()(p, a, s, sa, d, f, t);
            });
            ApiPatch<&Win32Api::CreateDirectoryW> make([&](LPCWSTR path, LPSECURITY_ATTRIBUTES sa) {
                return see(), make.Original()(path, sa);
            });
            ApiPatch<&Win32Api::SHFileOperationW> shell([&](LPSHFILEOPSTRUCTW operation) {
                return see(), shell.Original()(operation);
            });
            e.call();
            AFX_MODULE_STATE* const expected = e.switches ? VelmoraModuleState() : &callerState;
            EXPECT_EQ(seen, std::set<AFX_MODULE_STATE*>{expected}) << e.name;
            EXPECT_EQ(AfxGetModuleState(), &callerState) << e.name << " gave the caller's state back";
        }).join();
    }
}

}  // namespace
