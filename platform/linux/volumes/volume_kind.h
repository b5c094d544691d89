// How a Win32 file call reaches the volume behind it, as Windows' I/O manager hands a request to the driver
// of the file system that holds the file. A call that names a path goes to the kind of volume the path lies
// on (KindOfPath is the one place that chooses); a call on a handle goes to the object the handle holds,
// which the kind made when it opened the file. A new kind of volume implements both and changes no call.
//
// The kinds: host folders behind drive letters, and the volumes of attached disk images, whose file systems
// (NTFS, FAT, shadow copies of NTFS) are engines behind the Volume interface of volume.h.
#pragma once

#include <mutex>
#include <vector>

#include "../core/internal.h"
#include "volume.h"

namespace vlx {

struct Descriptor;

// An open file, folder or device in the handle table. Each operation a kind of object does not have fails
// as Windows fails it on such a handle.
class OpenObject : public KernelObject {
public:
    // The counts of bytes moved are set to 0 by the call before these run.
    virtual BOOL Read(LPVOID buffer, DWORD toRead, LPDWORD read, LPOVERLAPPED overlapped) = 0;
    virtual BOOL Write(LPCVOID buffer, DWORD toWrite, LPDWORD written, LPOVERLAPPED overlapped) = 0;
    virtual BOOL GetSize(PLARGE_INTEGER size) = 0;
    virtual BOOL SetPointer(LARGE_INTEGER distance, PLARGE_INTEGER newPosition, DWORD method) = 0;
    virtual BOOL SetEnd() { return Fail(ERROR_INVALID_FUNCTION, FALSE); }
    virtual BOOL GetTimes(LPFILETIME created, LPFILETIME accessed, LPFILETIME written) {
        return Fail(ERROR_INVALID_FUNCTION, FALSE);
    }
    // The times to write are already filtered by TimeToSet: null leaves a time as it is.
    virtual BOOL SetTimes(const FILETIME* created, const FILETIME* accessed, const FILETIME* written) {
        return Fail(ERROR_INVALID_FUNCTION, FALSE);
    }
    virtual BOOL GetInformation(LPBY_HANDLE_FILE_INFORMATION info) { return Fail(ERROR_INVALID_FUNCTION, FALSE); }
    // *returned is set to 0 by the call before this runs.
    virtual BOOL Control(DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize, LPDWORD returned) = 0;
    // The path of the open file from its volume's root ("\a\b", "\" for the root), for ntdll's name query.
    virtual bool VolumeRelativeName(WString& relative) { return Fail(ERROR_INVALID_HANDLE, false); }
};

// A search started by FindFirstFileW, continued by FindNextFileW.
class SearchObject : public KernelObject {
public:
    bool IsSearch() const override { return true; }
    // The next entry; false with ERROR_NO_MORE_FILES at the end.
    virtual bool Next(WIN32_FIND_DATAW& data) = 0;
};

// A search of a file's hard-link names (FindFirstFileNameW/FindNextFileNameW): every kind collects the
// names first, each from the volume root ("\dir\file.txt"), the name asked by first.
class LinkNameSearch : public KernelObject {
public:
    explicit LinkNameSearch(std::vector<WString> names) : names_(std::move(names)) {}
    bool IsSearch() const override { return true; }
    // Hands the next name out as FindNextFileNameW does: length goes in as the buffer's size and comes out
    // as the name's size with its terminator, with ERROR_MORE_DATA when it does not fit (the name is then
    // handed out by the next call); ERROR_HANDLE_EOF after the last.
    bool Next(LPDWORD length, PWSTR buffer);

private:
    std::mutex lock_;
    std::vector<WString> names_;
    size_t next_ = 0;
};
// Starts a link-name search over names and hands out the first; INVALID_HANDLE_VALUE with the last error
// set when there is none or it does not fit.
HANDLE StartLinkNameSearch(std::vector<WString> names, LPDWORD length, PWSTR buffer);

// What one kind of volume does for the calls that name a path. The paths are as the caller wrote them;
// the call has already checked what does not depend on the volume (null arguments, flags).
class VolumeKind {
public:
    virtual ~VolumeKind() = default;
    // disposition is one of CREATE_NEW..TRUNCATE_EXISTING; the path names no device.
    virtual HANDLE CreateFile(LPCWSTR path, DWORD access, DWORD share, DWORD disposition, DWORD flags) = 0;
    virtual DWORD GetAttributes(LPCWSTR path) = 0;
    virtual BOOL SetAttributes(LPCWSTR path, DWORD attributes) = 0;
    virtual BOOL DeleteFile(LPCWSTR path) = 0;
    virtual BOOL CreateFolder(LPCWSTR path) = 0;
    // The current folder is already refused by the call.
    virtual BOOL RemoveFolder(LPCWSTR path) = 0;
    // Both names lie on volumes of this kind.
    virtual BOOL CreateHardLink(LPCWSTR newName, LPCWSTR existing) = 0;
    virtual BOOL SetCurrentFolder(LPCWSTR path) = 0;
    // data is not null.
    virtual HANDLE FindFirst(LPCWSTR pattern, LPWIN32_FIND_DATAW data) = 0;
    // length is not null.
    virtual HANDLE FindFirstLinkName(LPCWSTR path, LPDWORD length, PWSTR name) = 0;
    // Both ends lie on volumes of this kind; a copy between kinds goes through CopyThroughHandles.
    virtual BOOL CopyFile(LPCWSTR existing, LPCWSTR newName, LPPROGRESS_ROUTINE progress, LPVOID data, LPBOOL cancel,
                          DWORD flags) = 0;
    // The parts of a descriptor that selection names, as one self-relative block; and their write.
    virtual bool GetSecurity(LPCWSTR path, SECURITY_INFORMATION selection, std::vector<BYTE>& block) = 0;
    virtual bool SetSecurity(LPCWSTR path, SECURITY_INFORMATION selection, const Descriptor& descriptor) = 0;
    // What GetVolumeInformationW gives for a root written with its backslash.
    virtual bool Facts(LPCWSTR root, VolumeFacts& facts) = 0;
};

VolumeKind& HostFolderKind();
VolumeKind& ImageVolumeKind();
// The kind of the volume a path lies on: an image volume's letter or name, or a host folder otherwise.
VolumeKind& KindOfPath(LPCWSTR path);

// A copy through the file calls, which reach every kind of volume: the same progress, cancel and clean-up
// as a copy within one.
BOOL CopyThroughHandles(LPCWSTR existing, LPCWSTR newName, LPPROGRESS_ROUTINE progress, LPVOID data, LPBOOL cancel,
                        DWORD flags);

// How both kinds of copy open their two ends, so that a copy is refused and let through by the same open
// handles on every volume: the source is read without letting others write, unless a writer holds it
// already and shares reading, as a log file's writer does; the target is written while others who share
// writing go on reading or writing it. Opening the target fails for the source itself, which no one may
// write while the copy reads it.
constexpr DWORD kCopyTargetShare = FILE_SHARE_READ | FILE_SHARE_WRITE;
HANDLE OpenCopySource(LPCWSTR existing);

}  // namespace vlx
