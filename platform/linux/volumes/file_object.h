// An open file or folder in the handle table.
#pragma once

#include "../core/internal.h"

namespace vlx {

class FileObject : public KernelObject {
public:
    FileObject(int fd, std::string hostPath, WString win32Path, DWORD access, DWORD share, bool isFolder,
               bool deleteOnClose, const struct stat& status);
    ~FileObject() override;
    FileObject(const FileObject&) = delete;
    FileObject& operator=(const FileObject&) = delete;

    // False with ERROR_SHARING_VIOLATION when another open forbids this one.
    bool Register();

    int fd;
    std::string hostPath;
    WString win32Path;  // as resolved, "X:\a\b"
    DWORD access;       // expanded rights
    bool isFolder;
    bool deleteOnClose;
    OpenRecord record;

private:
    bool registered_ = false;
};

}  // namespace vlx
