// The snapshot family's library-wide state, shared by its three exports and read by tests: one shadow
// copy per process, from InitializeVssBackUp to CloseVssBackUp.
#pragma once

#include "../frame/frame_internal.h"
#include "../platform/vssapi.h"

// All zero at load. bReady is 1 only after an InitializeVssBackUp that went through to the end. The
// strings in snapshotProp belong to vssapi.dll and go back through pfnVssFreeSnapshotProperties alone.
struct VssSnapshotState {
    BOOL bReady;
    HMODULE hVssApi;
    IVssBackupComponents* pBackup;  // one reference; the shadow copy lives as long as the object
    VSS_SNAPSHOT_PROP snapshotProp;
    CreateVssBackupComponentsFunction pfnCreateVssBackupComponents;
    VssFreeSnapshotPropertiesFunction pfnVssFreeSnapshotProperties;
};

const VssSnapshotState& VelmoraSnapshotState();
