// An open file or folder of a host-folder volume in the handle table.
#pragma once

#include "volume_kind.h"

namespace vlx {

class FileObject : public OpenObject {
public:
    FileObject(int fd, std::string hostPath, WString win32Path, DWORD access, DWORD share, bool isFolder,
               bool deleteOnClose, const struct stat& status);
    ~FileObject() override;
    FileObject(const FileObject&) = delete;
    FileObject& operator=(const FileObject&) = delete;

    // False with ERROR_SHARING_VIOLATION when another open forbids this one.
    bool Register();

    BOOL Read(LPVOID buffer, DWORD toRead, LPDWORD read, LPOVERLAPPED overlapped) override;
    BOOL Write(LPCVOID buffer, DWORD toWrite, LPDWORD written, LPOVERLAPPED overlapped) override;
    BOOL GetSize(PLARGE_INTEGER size) override;
    BOOL SetPointer(LARGE_INTEGER distance, PLARGE_INTEGER newPosition, DWORD method) override;
    BOOL SetEnd() override;
    BOOL GetTimes(LPFILETIME created, LPFILETIME accessed, LPFILETIME written) override;
    BOOL SetTimes(const FILETIME* created, const FILETIME* accessed, const FILETIME* written) override;
    BOOL GetInformation(LPBY_HANDLE_FILE_INFORMATION info) override;
    BOOL Control(DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize, LPDWORD returned) override;
    bool VolumeRelativeName(WString& relative) override;

    int fd;
    std::string hostPath;
    std::shared_ptr<const FolderAnchor> anchor;  // what hostPath starts from, for a deep path
    WString win32Path;  // as resolved, "X:\a\b"
    DWORD access;       // expanded rights
    bool isFolder;
    bool deleteOnClose;
    OpenRecord record;

private:
    bool registered_ = false;
    // A regular file that had a size when opened (not one of the host's generated files, which read
    // in pieces and report no size): a read that returns less than asked has reached the end.
    bool shortReadIsEnd_;
};

}  // namespace vlx
