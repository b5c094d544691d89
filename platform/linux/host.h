// What a host program (the command-line host, a test) tells the Linux platform about its world, and what
// it may ask of it: drive letters for host folders, and the count of open handles.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

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
    ShellCopyError,    // the shell could not copy source to target for the reason error; the copy stops
                       // once the message is closed (not shown with FOF_NOERRORUI)
};

struct DialogRequest {
    DialogKind kind = DialogKind::TaskDialog;
    HWND owner = nullptr;
    const TASKDIALOGCONFIG* taskDialog = nullptr;
    WString source;
    WString target;
    size_t itemCount = 0;
    DWORD error = 0;
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

// ---- Libraries loaded at run time: the emulated system folder.
//
// GetSystemDirectoryW names a folder that holds the modules registered here, each a table of entry points
// by name; LoadLibraryW finds them there (by full path in that folder, or by bare name), GetProcAddress
// answers from the table. The platform registers its own modules (wimgapi.dll) at start-up. A test may
// register a module of its own under the same name: it hides the platform's until the registration ends,
// so the test can offer a module that lacks an entry point, that cannot be loaded, or whose entry points
// answer as the test says.
struct ModuleDefinition {
    std::map<std::string, FARPROC> entryPoints;  // by exact (case-sensitive) name, as GetProcAddress matches
    DWORD loadError = 0;                           // nonzero: LoadLibraryW fails with this code
    // Loaded from the start of the process and never unloaded, as ntdll.dll is: GetModuleHandleW finds it
    // without a LoadLibraryW, and its handle is no entry of the handle table.
    bool resident = false;
};

// Registers a module under its file name (wimgapi.dll) for the life of the object. A module loaded while
// registered stays usable until its last FreeLibrary, even when the registration ends first.
class SystemModule {
public:
    SystemModule(const WString& fileName, ModuleDefinition definition);
    ~SystemModule();
    SystemModule(const SystemModule&) = delete;
    SystemModule& operator=(const SystemModule&) = delete;

private:
    WString fileName_;
    std::shared_ptr<const ModuleDefinition> definition_;
};

// How many loads of the named module (a bare file name) have not been freed yet.
int ModuleLoadCount(const WString& fileName);

// An entry point of a table, from any function pointer.
template <class Function>
FARPROC EntryPoint(Function function) {
    return reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(function));
}

}  // namespace vlx

// ---- COM: what tests need to prove that every reference and apartment was given back.
namespace vlx {
// Objects of the platform's COM classes still alive (Shell.Application, its folders and items, shell links).
size_t LiveComObjectCount();
// How many CoInitialize calls of the calling thread are not yet balanced by CoUninitialize.
int ComApartmentDepth();
}  // namespace vlx

// ---- The process token, local memory, the mount manager and security descriptors.
namespace vlx {

// The token the process runs with: an elevated administrator's (backup, restore, security and
// take-ownership held, not yet enabled), a standard user's (none of them), or the one the process's own
// user gives (root is elevated). Resets every adjustment made since. Devices (\\.\X:, \\.\PhysicalDriveN)
// open, and drive letters change, only for an elevated token, as on Windows.
enum class TokenKind { Elevated, StandardUser, AsProcessRuns };
void SetProcessToken(TokenKind kind);

// The clock host-folder volumes read the present from when they decide which attribute words they may
// remember (entries changed before the present tick); a test sets one that runs ahead instead of waiting
// for entries to age. Null puts the real clock back.
using PresentClock = struct timespec (*)();
void SetPresentClock(PresentClock clock);

// Blocks from LocalAlloc not yet given back with LocalFree.
size_t LocalBlockCount();

// The volume name ("\\?\Volume{GUID}\") of the host-folder volume on a host folder: the same folder gets
// the same name in every run, wherever it is mapped.
WString HostFolderVolumeName(const std::string& hostFolder);

// A security descriptor (self-relative or absolute) in the string form Windows tools show
// ("O:...G:...D:(A;;FA;;;SY)"); empty when the descriptor is not valid.
WString SecurityDescriptorToSddl(const void* descriptor);

}  // namespace vlx

// ---- The shell's background copies (compression into zip folders).
namespace vlx {
// Waits until no compression started by a CopyHere is running; the result of the last one that ended
// (ERROR_SUCCESS, ERROR_CANCELLED when the user stopped it at a question, or the error that stopped it).
DWORD WaitForShellCopies();
}  // namespace vlx
// ---- Disk images: files attached as physical disks.
namespace vlx {
//
// An attached image is \\.\PhysicalDriveN. Each partition of its MBR or GPT table (or the whole image, when
// it holds a bare file system) becomes a volume named \\?\Volume{GUID}\ and, when the host gives one, a
// drive letter that takes precedence over a host folder mapped to the same letter. NTFS volumes are served
// by the NTFS engine, FAT12, FAT16 and FAT32 volumes by our own reader; exFAT volumes report their name only.
struct DiskAttachOptions {
    int diskNumber = -1;          // -1: the lowest number not in use; any other free number, 256 and more too
    DWORD sectorSize = 0;         // 512 or 4096; 0: 4096 when a GPT header lies at byte 4096, else 512
    WString letters;              // drive letters for the volumes in order; '-' leaves a volume without one
    bool readOnly = false;        // opens the image for reading only
    // Makes the change journal of every NTFS volume active (as `fsutil usn createjournal` does) where it
    // is not; the attach fails when that cannot be done (a read-only image). Other volumes ignore it.
    bool activateJournal = false;
};
struct AttachedVolumeInfo {
    WString volumeName;           // \\?\Volume{GUID}\ (with its trailing backslash)
    WCHAR letter = 0;             // 0 when it has none
    WString fileSystem;           // NTFS, FAT32, FAT, exFAT; empty when the volume holds none we know
    ULONGLONG offset = 0, length = 0;  // bytes on the disk
    DWORD partitionNumber = 0;    // 1-based; 0 for a bare file system
};
// The disk number, or -1 with *error (if given) saying why: the file cannot be opened, a letter is taken
// or not a letter, the number is taken, the sector size is not 512 or 4096.
int AttachDiskImage(const std::string& imagePath, const DiskAttachOptions& options, std::string* error = nullptr);
// Flushes every volume of the disk to the image and forgets it with its letters and names. Handles still
// open on it fail from then on with ERROR_DEVICE_NOT_CONNECTED. False when no such disk is attached.
bool DetachDisk(int diskNumber);
std::vector<AttachedVolumeInfo> DiskVolumes(int diskNumber);
// Gives an attached volume a drive letter, or takes it away with letter 0.
bool SetVolumeLetter(const WString& volumeName, WCHAR letter);

// ---- The shell's progress window, played by the host.
//
// While SHFileOperationW copies without FOF_SILENT, Windows shows a progress window; here the observer the
// host installs is told instead, from the copying thread, as each file starts and after each chunk of it.
// With none installed nothing is shown.
struct ShellCopyProgress {
    WString source;
    WString target;
    ULONGLONG fileBytes = 0;  // size of the file being copied
    ULONGLONG fileDone = 0;   // bytes of it copied so far
};
using ShellProgressObserver = std::function<void(const ShellCopyProgress& progress)>;
// Installs the observer for every thread; an empty function removes it.
void SetShellProgressObserver(ShellProgressObserver observer);

}  // namespace vlx

// ---- Shadow copies of image volumes (the built-in vssapi.dll makes them).
namespace vlx {
// Copies alive in the process, each reachable as \\?\GLOBALROOT\Device\HarddiskVolumeShadowCopyN.
size_t ShadowCopyCount();
}  // namespace vlx
