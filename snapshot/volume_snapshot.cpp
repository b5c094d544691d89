// Volume snapshots: InitializeVssBackUp makes a shadow copy of one volume through the system's shadow copy
// service (vssapi.dll, loaded at run time) and keeps what is needed in library-wide state, VssOpenFile
// opens a file of that volume for reading from the copy, and CloseVssBackUp lets the state and the copy go.
// The state is unguarded: callers serialise the three calls, as they do one shadow copy at a time.
#include <cstring>

#include "../frame/system_library.h"
#include "snapshot_internal.h"

namespace {

VssSnapshotState g_state = {};

// GUID_NULL: no snapshot named by the caller, and as provider, the platform's choice.
const VSS_ID kNullGuid = {};

// The one asynchronous step: wait for it to end, let it go whatever the wait said, and report the wait.
HRESULT WaitAndRelease(IVssAsync* async) {
    const HRESULT waited = async->Wait(INFINITE);
    async->Release();
    return waited;
}

// Steps 2 to 14 of InitializeVssBackUp, each failure leaving the state as far as it got.
BOOL InitializeFromCleanReferences(LPCWSTR volume, DWORD backupType, LPWSTR devicePath, VSS_ID* snapshotId) {
    g_state.hVssApi = LoadSystemLibrary(_T("vssapi.dll"));
    if (g_state.hVssApi == nullptr) return FALSE;
    // Both entry points are looked up before either is used, and the library stays loaded when one is
    // missing: only CloseVssBackUp lets go of anything.
    g_state.pfnCreateVssBackupComponents = reinterpret_cast<CreateVssBackupComponentsFunction>(
        reinterpret_cast<void (*)()>(sys().GetProcAddress(g_state.hVssApi, "CreateVssBackupComponentsInternal")));
    if (g_state.pfnCreateVssBackupComponents == nullptr) return FALSE;
    g_state.pfnVssFreeSnapshotProperties = reinterpret_cast<VssFreeSnapshotPropertiesFunction>(
        reinterpret_cast<void (*)()>(sys().GetProcAddress(g_state.hVssApi, "VssFreeSnapshotPropertiesInternal")));
    if (g_state.pfnVssFreeSnapshotProperties == nullptr) return FALSE;

    if (FAILED(g_state.pfnCreateVssBackupComponents(&g_state.pBackup)) || g_state.pBackup == nullptr) return FALSE;
    IVssBackupComponents* backup = g_state.pBackup;
    if (FAILED(backup->InitializeForBackup(nullptr))) return FALSE;
    if (FAILED(backup->SetBackupState(false, false, static_cast<VSS_BACKUP_TYPE>(backupType), false))) return FALSE;
    if (FAILED(backup->SetContext(VSS_CTX_FILE_SHARE_BACKUP))) return FALSE;
    VSS_ID snapshotSetId;
    const HRESULT started = backup->StartSnapshotSet(&snapshotSetId);
    // A set already in progress is as good as a new one; any other answer, a success code included, is not.
    if (started != S_OK && started != VSS_E_SNAPSHOT_SET_IN_PROGRESS) return FALSE;

    WCHAR volumeName[MAX_PATH];
    std::memset(volumeName, 0, sizeof volumeName);
    if (volume == nullptr || WStrFormatBuffer(volumeName, MAX_PATH, _T("%s"), volume) < 0) return FALSE;
    const size_t length = WStrLen(volumeName);
    if (length == 0) return FALSE;
    if (volumeName[length - 1] != '\\') {
        if (length + 1 >= MAX_PATH) return FALSE;  // no room for the backslash and the terminator
        volumeName[length] = '\\';
        volumeName[length + 1] = 0;
    }

    VSS_ID localSnapshotId = kNullGuid;
    if (snapshotId == nullptr || std::memcmp(snapshotId, &kNullGuid, sizeof kNullGuid) == 0) {
        if (FAILED(backup->AddToSnapshotSet(volumeName, kNullGuid, &localSnapshotId))) return FALSE;
    } else {
        std::memcpy(&localSnapshotId, snapshotId, sizeof localSnapshotId);
    }

    IVssAsync* async = nullptr;
    if (FAILED(backup->DoSnapshotSet(&async))) return FALSE;
    if (FAILED(WaitAndRelease(async))) return FALSE;
    if (FAILED(backup->GetSnapshotProperties(localSnapshotId, &g_state.snapshotProp))) return FALSE;

    // The copy is made; a device path that the caller's buffer cannot take is left out rather than cut.
    if (devicePath != nullptr) WStrFormatBuffer(devicePath, MAX_PATH, _T("%s"), g_state.snapshotProp.m_pwszSnapshotDeviceObject);
    if (snapshotId != nullptr) std::memcpy(snapshotId, &localSnapshotId, sizeof localSnapshotId);
    g_state.bReady = TRUE;
    return TRUE;
}

}  // namespace

const VssSnapshotState& VelmoraSnapshotState() { return g_state; }

BOOL InitializeVssBackUp(LPCWSTR volume, DWORD backupType, LPWSTR devicePath, GUID* snapshotId) {
    return VelmoraGuardedCall<BOOL>(FALSE, [&]() -> BOOL {
        // What an earlier call holds is dropped, not released: its object and copy live on unseen.
        g_state.bReady = FALSE;
        g_state.hVssApi = nullptr;
        g_state.pBackup = nullptr;
        return InitializeFromCleanReferences(volume, backupType, devicePath, snapshotId);
    });
}

HANDLE VssOpenFile(LPCWSTR path) {
    return VelmoraGuardedCall<HANDLE>(nullptr, [&]() -> HANDLE {
        if (!g_state.bReady || path == nullptr) return nullptr;
        WCHAR prefix[MAX_PATH];
        std::memset(prefix, 0, sizeof prefix);
        if (WStrFormatBuffer(prefix, MAX_PATH, _T("%s"), g_state.snapshotProp.m_pwszOriginalVolumeName) < 0) return nullptr;
        const size_t prefixLength = WStrLen(prefix);
        if (WStrNICmp(prefix, path, prefixLength) != 0) return nullptr;

        WCHAR redirected[MAX_PATH];
        std::memset(redirected, 0, sizeof redirected);
        if (WStrFormatBuffer(redirected, MAX_PATH, _T("%s\\"), g_state.snapshotProp.m_pwszSnapshotDeviceObject) < 0)
            return nullptr;
        // The volume name ends in a backslash, so what is left starts below the copy's root.
        LPCWSTR below = path + prefixLength;
        if (WStrLen(redirected) + WStrLen(below) >= MAX_PATH) return nullptr;
        if (sys().wcscat_s(redirected, MAX_PATH, below) != 0) return nullptr;

        const HANDLE file =
            sys().CreateFileW(redirected, GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
        return file == INVALID_HANDLE_VALUE ? nullptr : file;  // the open's last error stands
    });
}

void CloseVssBackUp() {
    VelmoraGuardedVoidCall([] {
        g_state.pfnCreateVssBackupComponents = nullptr;
        if (g_state.pfnVssFreeSnapshotProperties != nullptr) {
            g_state.pfnVssFreeSnapshotProperties(&g_state.snapshotProp);
            // Cleared at once, so that a later close (after an initialisation that failed before reading
            // new properties) never hands the same strings back twice.
            std::memset(&g_state.snapshotProp, 0, sizeof g_state.snapshotProp);
        }
        g_state.pfnVssFreeSnapshotProperties = nullptr;
        if (g_state.pBackup != nullptr) g_state.pBackup->Release();  // ends the copy: its context is not persistent
        g_state.pBackup = nullptr;
        // vssapi.dll stays loaded; the next initialisation's load only counts up.
        g_state.bReady = FALSE;
        g_state.hVssApi = nullptr;
    });
}
