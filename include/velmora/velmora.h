// Velmora: file, folder and volume operations for MFC desktop applications, as plain exported functions.
//
// Conventions shared by every export:
//  - Paths are CString objects passed by value; the export owns its copy.
//  - An option flag is on only when it equals 1; 0 and every other value count as off.
//  - Most exports return a success flag: 1 for success, 0 for failure. Nothing is thrown, logged or shown
//    but the overwrite prompt and the shell's own dialogs.
//  - An optional out-pointer may be null when its output is not wanted.
//  - Memory handed to the caller (FileListNode, security descriptors) comes from malloc; free it with free.
#pragma once

#include <afx.h>
#include <afxcmn.h>
#include <afxcoll.h>
#include <afxwin.h>
#include <afxdisp.h>

#include <cstdint>
#include <string>
#include <vector>

#ifdef _WIN32
#ifdef VELMORA_BUILDING_LIBRARY
#define VELMORA_API __declspec(dllexport)
#else
#define VELMORA_API __declspec(dllimport)
#endif
#else
#define VELMORA_API __attribute__((visibility("default")))
#endif

#define VELMORA_EXPORT extern "C" VELMORA_API

#pragma pack(push, 4)
// One entry of a folder walk or of a comparison's result chain. The library allocates every chained node
// with malloc and zeroes it; the caller frees each one with free.
struct FileListNode {
    WCHAR filePath[MAX_PATH];  // NUL-terminated, at most MAX_PATH - 1 units
    DWORD flags;               // 0 from the walks; difference bits from CompareFolder
    FileListNode* next;        // the following node, or null at the end of the chain
};
#pragma pack(pop)

static_assert(offsetof(FileListNode, filePath) == 0, "FileListNode layout is part of the interface");
static_assert(offsetof(FileListNode, flags) == 520, "FileListNode layout is part of the interface");
static_assert(offsetof(FileListNode, next) == 524, "FileListNode layout is part of the interface");
static_assert(sizeof(FileListNode) == 532, "FileListNode layout is part of the interface");

// One run of sectors on a physical disk.
struct SectorExtent {
    ULONGLONG startSector;  // absolute sector on the disk, from 0
    ULONGLONG sectorCount;  // length of the run in sectors
};
static_assert(sizeof(SectorExtent) == 16, "SectorExtent layout is part of the interface");

// An exported class with no data and no behaviour of its own.
class VELMORA_API CVelmora {
public:
    CVelmora();
    CVelmora& operator=(const CVelmora& other);
    CVelmora& operator=(CVelmora&& other);
};

// ---- File properties: attribute flags and NTFS compression.
//
// Flag outputs receive exactly 1 (the bit is set) or 0. A path that cannot be reached makes every one of
// these return 0 and leaves every output as it was.

// Reads the attribute word once and answers up to five questions from it, through optional pointers:
// read-only, NTFS-compressed, hidden, system, encrypted. 1 when the word could be read.
VELMORA_EXPORT int GetFileProperty(CString path, int* readOnly, int* compressed, int* hidden, int* system,
                                   int* encrypted);
// One flag each, through GetFileProperty. flag is required: null gives 0 without reading anything.
VELMORA_EXPORT int GetReadOnlyFlag(CString path, int* flag);
VELMORA_EXPORT int GetCompressNtfs(CString path, int* flag);
VELMORA_EXPORT int GetHiddenFlag(CString path, int* flag);
VELMORA_EXPORT int GetSystemFlag(CString path, int* flag);
// Sets the bit when set is 1 and clears it for any other value; every other bit of the word is written
// back as it was read. The result is the success of the attribute write.
VELMORA_EXPORT int SetReadOnlyFlag(CString path, int set);
VELMORA_EXPORT int SetHiddenFlag(CString path, int set);
VELMORA_EXPORT int SetSystemFlag(CString path, int set);
// Compresses the file or folder when compress is 1 and decompresses it otherwise (a folder's own state
// only; nothing inside it is visited). A read-only path is made writable for the change and read-only
// again afterwards, whether or not the change succeeded. 1 when the file system took the new state; 0
// also on volumes without compression (FAT, host folders).
VELMORA_EXPORT int SetCompressNtfs(CString path, int compress);

// ---- File properties: file facts.

// The creation, last-write and last-access times of the path's own directory entry (a folder's own
// times; a pattern with wildcards gives its first match's), through optional pointers. 1 on success; 0
// with the outputs untouched when nothing is found.
//
// A time stamp counts whole seconds since 1970-01-01 00:00:00 UTC, the value of CTime. The fraction of a
// second is dropped toward the earlier second, so 1969-12-31 23:59:59.5 gives -1. Every time the file
// system can hold converts exactly, with nothing refused or clamped: times before 1970 as negative counts
// (1601-01-01, the earliest, gives -11644473600), times after the year 3000, which MFC's own CTime
// refuses with an exception, as their exact counts. Comparisons and sorting therefore stay correct at
// both ends.
VELMORA_EXPORT int GetFileDate(CString path, __time64_t* created, __time64_t* written, __time64_t* accessed);
// The size in bytes of the path's own directory entry (0 for a folder; a pattern gives its first match's
// size). length is required: null gives 0 at once. 1 on success; 0 with length untouched otherwise.
VELMORA_EXPORT int GetFileLength(CString path, ULONGLONG* length);
// -1 when the path does not exist or cannot be read, 1 for an existing path that is not a folder, 2 for
// a folder (a drive root included).
VELMORA_EXPORT int GetPathIsFileOrFolder(CString path);
// The number of names (hard links) of a file when it has 2 or more, 0 when it has one, -1 when it cannot
// be opened without sharing (in use elsewhere, a folder, missing) or asked. With several names and names
// not null, the names are appended after the entries already there, each from the volume root without
// the drive letter ("\dir\file.txt"), the given name among them; a name the platform cannot give ends
// the list early. A file with one name leaves names untouched.
VELMORA_EXPORT int GetFileIsHardlink(CString path, CStringArray* names);

// ---- File properties: security descriptors and drive letters.
//
// Security descriptors are the platform's self-relative ones: owner, group, access list (DACL) and audit
// list (SACL). Each export acts on the one path given; nothing below a folder is visited.

// Reads the whole descriptor of path (owner, group, access list, audit list, label, attributes) into a
// block allocated with malloc and stores it in *descriptor; the caller frees it with free. reserved is
// required but never written. Reading the audit list needs the security privilege enabled in the process
// token (CopySecurityInfo leaves it enabled); without it the result is 0. 1 on success; on failure 0, and
// *descriptor holds nothing to free: null once a block was allocated, else as it was.
VELMORA_EXPORT int GetAccessInfo(CString path, PSECURITY_DESCRIPTOR* descriptor, DWORD* reserved);
// Writes every part of descriptor (such as one from GetAccessInfo) to path: the platform's success flag.
VELMORA_EXPORT int SetAccessInfo(CString path, PSECURITY_DESCRIPTOR descriptor);
// Enables the security and take-ownership privileges in the process token, where they stay enabled, then
// copies the owner, group, access list and audit list of source to target, each when its flag is 1. 0 when
// every flag is 0 (then the token is not touched), when the process does not hold both privileges, or when
// the descriptor cannot be read or written.
VELMORA_EXPORT int CopySecurityInfo(CString source, CString target, int copyOwner, int copyGroup, int copyDacl,
                                    int copySacl);
// Moves the volume at oldLetter to newLetter (letters used as given), pausing a second after each change so
// that the system catches up. When newLetter cannot be taken the volume goes back to oldLetter and the
// result is 0. Blocks the caller for about two seconds on success.
VELMORA_EXPORT int ChangeDriveLetter(WCHAR oldLetter, WCHAR newLetter);

// ---- Enumeration and comparison: folder walks, hashing, comparison, content test.
// Walks path and every folder below it, in the order the file system lists them, a folder before its
// contents. Counters are only added to: files, folders and the bytes of the files counted (a size that
// cannot be read adds nothing). Each counted entry's full path is chained behind pListTail (a node whose
// next is null), files as folder\name and folders with a backslash at the end; pListTail null makes no
// list. A non-empty extFilter (".jpg.png", text before the first dot ignored, case ignored) counts and
// lists only the files it matches, and no folders, though every folder is still walked. The walk stops
// before its next entry once *pCancel equals 1, which another thread may set meanwhile.
//
// A path that does not fit a node's 259 units is counted but makes no node. A subfolder that is a
// reparse point (junction or folder link) is counted and listed but not entered, so a link back into
// its own tree cannot make the walk endless.
VELMORA_EXPORT void GetFileCountInFolder(CString path, ULONGLONG* pFileCount, ULONGLONG* pFolderCount,
                                         ULONGLONG* pTotalSize, FileListNode* pListTail, CString extFilter,
                                         BOOL* pCancel);

// The same walk with two more filters on files and a report. dateMode 1 keeps files whose last-write day
// (UTC, at midnight) lies between dateFrom and dateTo, 2 those not before dateFrom, 3 those not after
// dateTo; an invalid date never excludes. sizeMode 1 keeps files with the same size in KB (rounded down)
// as sizeLimit, 2 those of at least sizeLimit bytes, 3 those of at most sizeLimit bytes. Other modes do
// not filter. A file left out by the size filter still adds its size to *pTotalSize. Each counted file
// becomes a row of pListCtrl (path; with pTotalSize given also "YYYY/MM/DD hh:mm" UTC and the size as
// "N KB" from 1024 bytes up, "N バイト" below).
VELMORA_EXPORT void GetFileCountInFolderEx(CString path, ULONGLONG* pFileCount, ULONGLONG* pFolderCount,
                                           ULONGLONG* pTotalSize, FileListNode* pListTail, CString extFilter,
                                           BOOL* pCancel, COleDateTime dateFrom, COleDateTime dateTo, int dateMode,
                                           ULONGLONG sizeLimit, int sizeMode, CListCtrl* pListCtrl);

// The raw digest of a file's bytes into the 16-byte buffer pHash (zeroed first), through CryptoAPI with
// algId (CALG_MD5). The file is opened without sharing. 1 on success; 0 with the buffer all zeros when the
// file cannot be opened or read to its end, the algorithm is unknown, or its digest is longer than 16
// bytes (SHA-1 and up are refused rather than reported as all zeros).
VELMORA_EXPORT int GetFileHash(CString path, BYTE* pHash, ALG_ID algId);
// 0 when the two files have equal digests, 1 when they differ, -1 when either cannot be hashed (pathB is
// not looked at when pathA fails).
VELMORA_EXPORT int CompareFileHash(CString pathA, CString pathB, ALG_ID algId);

// Difference bits of CompareFolder's result nodes. OnlyInA and OnlyInB stand alone; the others combine.
constexpr DWORD OnlyInA = 0x1;
constexpr DWORD OnlyInB = 0x2;
constexpr DWORD NewerInA = 0x10;
constexpr DWORD NewerInB = 0x20;
constexpr DWORD SizeDiffers = 0x100;
constexpr DWORD ContentDiffers = 0x1000;

// Compares two folder trees entry by entry by their paths relative to each folder, and chains one node
// per entry that differs behind pResultTail: filePath the relative path (the text after folderA as given,
// so give both folders in the same form, both with or both without a trailing backslash), flags the
// difference bits. Time stamps are compared in whole seconds. bothWays 1 also reports entries found only
// below folderB (after all others); useHash 1 also compares the contents of files by MD5.
VELMORA_EXPORT void CompareFolder(CString folderA, CString folderB, FileListNode* pResultTail, int bothWays,
                                  int useHash);

// 1 when the folder holds any entry at all besides "." and "..", hidden and system ones included; 0 when it
// holds none or cannot be listed (missing, a file).
VELMORA_EXPORT int IsFileExistsInFolder(CString path);

// ---- Copy engine: shell copy, multi-source copy, direct copy, folder creation and deletion.

// Copies a file, or the contents of a folder, to a destination folder through the shell's file operation.
VELMORA_EXPORT BOOL CopyFiles(CString source, CString destination, BOOL silent, WORD extraFlags, HWND owner);
// As CopyFiles, rebuilding the source's folder name or whole path under the destination when asked, copying
// single files up to directCopyLimit bytes directly with a replace/skip/cancel prompt when silent is 0, and
// writing why the call ended through detailCode.
VELMORA_EXPORT BOOL CopyFilesEx(CString source, CString destination, int silent, WORD extraFlags, BOOL withFolderName,
                                BOOL withFullPath, ULONGLONG directCopyLimit, int* detailCode, HWND owner);
// Copies a list of files and folders to one destination in a single shell file operation.
VELMORA_EXPORT BOOL CopyFilesMultiEx(CStringArray* sources, CString destination, BOOL silent, WORD extraFlags,
                                     BOOL withFolderName, BOOL withFullPath, int* detailCode, HWND owner);
// Copies a file or a folder tree file by file, drawing each file's progress into progress (may be null) and
// stopping a running file copy when *cancel becomes non-zero; extensionFilter (".jpg.png") limits the files.
VELMORA_EXPORT BOOL CopyFilesNoneShell(CString source, CString destination, BOOL* cancel, CProgressCtrl* progress,
                                       CString extensionFilter);
// Makes a folder and every missing folder above it.
VELMORA_EXPORT BOOL CreateFolders(CString path);
// Deletes a folder with everything in it for good, through the shell; quietly when silent is 1.
VELMORA_EXPORT BOOL DeleteFolders(CString path, BOOL silent, HWND owner);

// ---- Shell archives and shortcuts: zip compression and extraction through the shell, shortcut targets.

// Puts a file or a folder (under its own name) into a zip archive through the shell's compressed folders,
// creating the archive as an empty one when it does not exist (".zip" is appended to zipPath when it does
// not end in it, case ignored) and adding to it when it does. Waits for the shell's progress window (6
// seconds unless silent is 1 and the window could be hidden), then until the shell has released the
// archive, at most one hour. silent 1: no questions, no error boxes, the progress window hidden.
// detailCode (optional): 0 done (result 1); -1 source missing; -2 source is an empty folder; -3 zipPath
// empty; -4 archive could not be created; -5 the empty archive could not be written; -6 no shell; -7 the
// archive is not a shell folder; -8 the shell refused the copy; -9 the shell accepted the copy but the
// archive was not released: still held after an hour, or it cannot be opened for writing at all (the
// archive may be incomplete).
VELMORA_EXPORT BOOL CompressToZip(CString source, CString zipPath, int silent, int* detailCode);
// The same for plain wide strings; a null or empty string gives 0 without writing the detail code.
VELMORA_EXPORT BOOL CompressToZipT(LPCWSTR source, LPCWSTR zipPath, int silent, int* detailCode);
// Unpacks every entry of the archive (its path used unchanged) into destination, made when missing, through
// the shell; returns when the shell's copy has returned. silent 1: no questions, no error boxes. 1 when the
// shell accepted the copy.
VELMORA_EXPORT BOOL ExtractFromZip(CString zipPath, CString destination, int silent);
// Writes into buffer (260 units, required) the command line a shell link stands for: the target path with
// environment variables expanded, one space, the arguments as stored (so a link without arguments gives
// its path and a space). pFindData (optional) receives the target's find data as the link holds it. 1 when
// the link's arguments could be read. A link that cannot be loaded leaves buffer untouched; a command line
// that does not fit 260 units with its terminator is not cut: buffer is left empty and the result is 0.
VELMORA_EXPORT BOOL GetShortCutTargetPath(CString linkPath, LPWSTR buffer, WIN32_FIND_DATAW* pFindData);
// ---- WIM images, through the system's imaging library (wimgapi.dll), loaded for each call and released
// before it returns. An entry point missing from that library gives 0 with last error ERROR_PROC_NOT_FOUND;
// every other failure leaves the loader's or the imaging library's last error. Paths of MAX_PATH units or
// more are refused with 0.

// Adds one image of sourceFolder's tree to imageFile, creating the file (with the compression type given:
// WIM_COMPRESS_NONE, _XPRESS, _LZX or _LZMS) when it does not exist; an existing file keeps its own.
// temporaryFolder empty: the user's temporary folder. While it runs, *percent receives the progress and
// textWindow's text each file's path; with either given, the calling thread's messages are pumped.
VELMORA_EXPORT BOOL CompressToWim(CString imageFile, CString sourceFolder, CString temporaryFolder, DWORD compression,
                                  DWORD* percent, CWnd* textWindow);
// Writes image number index (from 1) of imageFile into targetFolder; progress as for CompressToWim. The
// result is the imaging library's own once the image could be loaded.
VELMORA_EXPORT BOOL ExtractFromWim(CString imageFile, CString targetFolder, CString temporaryFolder, DWORD index,
                                   DWORD* percent, CWnd* textWindow);
// Mounts image number index of imageFile at the empty mountFolder. With temporaryFolder empty the mount is
// for reading only. The mount outlives the call; the result is the imaging library's.
VELMORA_EXPORT BOOL MountWim(CString imageFile, CString mountFolder, CString temporaryFolder, DWORD index);
// Unmounts it again: commit nonzero writes the changes made under mountFolder back into the image, zero
// discards them. The same image file, folder and index as the mount; the result is the imaging library's.
VELMORA_EXPORT BOOL UnMountWim(CString imageFile, CString mountFolder, DWORD index, BOOL commit);
// ---- Raw volume access: where a file lies on its physical disk.

// Appends to *pExtents (required; its elements stay) one run of absolute disk sectors per cluster run of
// the file, in file order, up to the first run with no clusters on disk. pFirstSector gets the first run's
// first sector, pLastSector the last sector of the last cluster, pLastDataSector the last sector holding
// file data (written only when a run was found). Sector numbers add 32-bit offsets to the volume's start,
// so they are exact on volumes of fewer than 2^32 sectors. NTFS and FAT32 volumes only, and only for an
// elevated process. 0 when the path is empty, the volume cannot be measured or the file cannot be opened;
// 1 otherwise, also for a file whose data has no clusters of its own (no runs, sectors 0).
VELMORA_EXPORT int GetFileSectorPos(CString path, std::vector<SectorExtent>* pExtents, ULONGLONG* pFirstSector,
                                    ULONGLONG* pLastDataSector, ULONGLONG* pLastSector);

// ---- Raw volume access: the whole of an NTFS volume from its master file table. Only the path's first
// character, the drive letter, is read: the result covers the volume whatever folder the path names. The
// volume must be NTFS with an active change journal, and the process elevated; otherwise nothing changes.

// Adds to the counts (never resets them) one per entry found: folders to *pFolderCount, every other entry
// to *pFileCount and its size to *pTotalSize. An entry whose attributes cannot be read counts as a
// folder; a file whose size cannot be read adds nothing to the total. With pListTail, a node with the full
// path of each entry is chained behind it in the order of the walk (a path of 260 units or more gets
// none). extFilter is accepted and not used.
VELMORA_EXPORT void GetFileCountInFolderFromMFT(CString path, ULONGLONG* pFileCount, ULONGLONG* pFolderCount,
                                                ULONGLONG* pTotalSize, FileListNode* pListTail, CString extFilter);
// Appends the full path of every entry to *pList (required), in the order of the walk; an entry whose
// path from the root is longer than 259 characters is left out.
VELMORA_EXPORT void GetFileListFromMFT(CString path, std::vector<std::basic_string<WCHAR>>* pList);

// ---- Volume snapshots, through the system's shadow copy service (vssapi.dll). One shadow copy per
// process: InitializeVssBackUp, any number of VssOpenFile, then CloseVssBackUp (due after a failed
// initialisation too). The caller serialises the three, initialises COM in its thread and runs elevated.

// Makes a shadow copy of volume (a drive root such as "E:" or "E:\", or "\\?\Volume{GUID}\"; a missing
// trailing backslash is added) with backupType (VSS_BT_*). devicePath (260 units, may be null) receives
// the copy's device path. *snapshotId (may be null): in, zero asks for a new copy and any other id names
// the snapshot to use; out, on success, the id whose properties were read. 1 on success, 0 otherwise, with
// no last error of the library's own.
VELMORA_EXPORT BOOL InitializeVssBackUp(LPCWSTR volume, DWORD backupType, LPWSTR devicePath, GUID* snapshotId);
// Opens a file of the copied volume for reading, without sharing, from the copy: path is spelled with the
// volume name in the "\\?\Volume{GUID}\" form the copy's properties give (any letter case). Null when there
// is no copy, the path is not on that volume or the open fails (its last error stands). Close the handle
// with CloseHandle.
VELMORA_EXPORT HANDLE VssOpenFile(LPCWSTR path);
// Lets the copy and the state go; safe in every state, twice in a row too.
VELMORA_EXPORT void CloseVssBackUp();
