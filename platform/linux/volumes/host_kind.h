// The host-folder kind of volume: a Linux folder behind a drive letter.
#pragma once

#include "volume_kind.h"

namespace vlx {

class HostKind final : public VolumeKind {
public:
    HANDLE CreateFile(LPCWSTR path, DWORD access, DWORD share, DWORD disposition, DWORD flags) override;
    DWORD GetAttributes(LPCWSTR path) override;
    BOOL SetAttributes(LPCWSTR path, DWORD attributes) override;
    BOOL DeleteFile(LPCWSTR path) override;
    BOOL CreateFolder(LPCWSTR path) override;
    BOOL RemoveFolder(LPCWSTR path) override;
    BOOL CreateHardLink(LPCWSTR newName, LPCWSTR existing) override;
    BOOL SetCurrentFolder(LPCWSTR path) override;
    HANDLE FindFirst(LPCWSTR pattern, LPWIN32_FIND_DATAW data) override;
    HANDLE FindFirstLinkName(LPCWSTR path, LPDWORD length, PWSTR name) override;
    BOOL CopyFile(LPCWSTR existing, LPCWSTR newName, LPPROGRESS_ROUTINE progress, LPVOID data, LPBOOL cancel,
                  DWORD flags) override;
    bool GetSecurity(LPCWSTR path, SECURITY_INFORMATION selection, std::vector<BYTE>& block) override;
    bool SetSecurity(LPCWSTR path, SECURITY_INFORMATION selection, const Descriptor& descriptor) override;
    bool Facts(LPCWSTR root, VolumeFacts& facts) override;
};

}  // namespace vlx
