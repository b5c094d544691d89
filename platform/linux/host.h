// What a host program (the command-line host, a test) tells the Linux platform about its world, and what
// it may ask of it: drive letters for host folders, and the count of open handles.
#pragma once

#include <functional>
#include <string>

#include "../wstr.h"

namespace vlx {

// Maps a drive letter to a host folder, which becomes a host-folder volume. C: is the host root "/" unless
// remapped. False when the letter is not A-Z or the folder does not exist.
bool MapDrive(WCHAR letter, const std::string& hostFolder);
// Forgets a mapping; C: goes back to "/".
void UnmapDrive(WCHAR letter);
// The host folder behind a letter, empty when the letter is not mapped.
std::string DriveRoot(WCHAR letter);

// The Win32 path that names a host path: under the mapped folder with the longest match, else under C:.
WString HostToWin32Path(const std::string& hostPath);
// The host path a Win32 path stands for, matching existing components without regard to case; empty when
// the path cannot be resolved (bad drive, invalid name).
std::string Win32ToHostPath(LPCWSTR path);

// Every object open in the handle table: files, searches, devices, modules and the rest.
size_t OpenHandleCount();

// ---- Dialogs: the desktop's user, played by the host.
//
// Every dialog the platform would show (TaskDialogIndirect, the shell's questions while it copies or
// deletes) goes to the responder the host installs: tests script the answers, the command-line host asks
// on the terminal. With no responder installed a dialog cannot be shown, and the call that needed it
// fails as it does on Windows without a desktop.
enum class DialogKind {
    TaskDialog,        // taskDialog holds the whole configuration
    ShellReplaceFile,  // the shell found target in the way of source: replace it?
    ShellDelete,       // the shell is about to delete target (and itemCount - 1 more entries) for good
};

struct DialogRequest {
    DialogKind kind = DialogKind::TaskDialog;
    HWND owner = nullptr;
    const TASKDIALOGCONFIG* taskDialog = nullptr;
    WString source;
    WString target;
    size_t itemCount = 0;
};

// The answer: for a task dialog the identifier of the button pressed (IDCANCEL when it was closed without
// a choice); for the shell's questions IDYES, IDNO (skip this one) or IDCANCEL (stop the operation); or
// kDialogCannotBeShown.
constexpr int kDialogCannotBeShown = -1;
using DialogResponder = std::function<int(const DialogRequest& request)>;

// Installs the responder for the dialogs of every thread; an empty function removes it.
void SetDialogResponder(DialogResponder responder);
// Shows a dialog to the responder: its answer, or kDialogCannotBeShown when there is none.
int AskDialog(const DialogRequest& request);

}  // namespace vlx

// ---- COM: what tests need to prove that every reference and apartment was given back.
namespace vlx {
// Objects of the platform's COM classes still alive (Shell.Application, its folders and items, shell links).
size_t LiveComObjectCount();
// How many CoInitialize calls of the calling thread are not yet balanced by CoUninitialize.
int ComApartmentDepth();
}  // namespace vlx

// ---- The shell's background copies (compression into zip folders).
namespace vlx {
// Waits until no compression started by a CopyHere is running; the result of the last one that ended
// (ERROR_SUCCESS, ERROR_CANCELLED when the user stopped it at a question, or the error that stopped it).
DWORD WaitForShellCopies();
}  // namespace vlx
