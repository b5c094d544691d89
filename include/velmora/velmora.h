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

#include <cstdint>
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

// Declared here until the file-facts family brings it: the size in bytes of an existing file.
VELMORA_EXPORT BOOL GetFileLength(CString path, ULONGLONG* length);
