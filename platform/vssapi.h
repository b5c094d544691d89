// The shadow copy service's published interface (vssapi.dll) as its callers see it: the snapshot
// properties record, the codes, and the two COM interfaces with every method in its vtable slot, so that
// an object made by either side is called where the other expects. vssapi.dll is only ever loaded at run
// time, and the SDK's own headers are not part of every tool chain, so both the library and the Linux
// platform's built-in vssapi.dll take the declarations from here.
#pragma once

#include "win32.h"

typedef GUID VSS_ID;
typedef WCHAR* VSS_PWSZ;
typedef LONGLONG VSS_TIMESTAMP;

enum VSS_BACKUP_TYPE {
    VSS_BT_UNDEFINED = 0,
    VSS_BT_FULL = 1,
    VSS_BT_INCREMENTAL = 2,
    VSS_BT_DIFFERENTIAL = 3,
    VSS_BT_LOG = 4,
    VSS_BT_COPY = 5,
    VSS_BT_OTHER = 6,
};

enum VSS_SNAPSHOT_STATE { VSS_SS_UNKNOWN = 0, VSS_SS_CREATED = 12 };
enum VSS_OBJECT_TYPE { VSS_OBJECT_UNKNOWN = 0, VSS_OBJECT_NONE = 1, VSS_OBJECT_SNAPSHOT_SET = 2, VSS_OBJECT_SNAPSHOT = 3 };
enum VSS_RESTORE_TYPE { VSS_RTYPE_UNDEFINED = 0 };
enum VSS_COMPONENT_TYPE { VSS_CT_UNDEFINED = 0 };
enum VSS_FILE_RESTORE_STATUS { VSS_RS_UNDEFINED = 0 };

// Contexts of SetContext; a file-share backup has no writers, does not persist and ends with its object.
#define VSS_CTX_BACKUP 0x00000000L
#define VSS_CTX_FILE_SHARE_BACKUP 0x00000010L

#define VSS_S_ASYNC_PENDING (static_cast<HRESULT>(0x00042309L))
#define VSS_S_ASYNC_FINISHED (static_cast<HRESULT>(0x0004230AL))
#define VSS_E_BAD_STATE (static_cast<HRESULT>(0x80042301L))
#define VSS_E_PROVIDER_NOT_REGISTERED (static_cast<HRESULT>(0x80042304L))
#define VSS_E_OBJECT_NOT_FOUND (static_cast<HRESULT>(0x80042308L))
#define VSS_E_VOLUME_NOT_SUPPORTED (static_cast<HRESULT>(0x8004230CL))
#define VSS_E_OBJECT_ALREADY_EXISTS (static_cast<HRESULT>(0x8004230DL))
#define VSS_E_INVALID_XML_DOCUMENT (static_cast<HRESULT>(0x80042311L))
#define VSS_E_SNAPSHOT_SET_IN_PROGRESS (static_cast<HRESULT>(0x80042316L))
#define VSS_E_UNEXPECTED_PROVIDER_ERROR (static_cast<HRESULT>(0x8004230FL))

typedef struct _VSS_SNAPSHOT_PROP {
    VSS_ID m_SnapshotId;
    VSS_ID m_SnapshotSetId;
    LONG m_lSnapshotsCount;
    VSS_PWSZ m_pwszSnapshotDeviceObject;  // the copy's device, without a trailing backslash
    VSS_PWSZ m_pwszOriginalVolumeName;    // \\?\Volume{GUID}\ of the volume copied
    VSS_PWSZ m_pwszOriginatingMachine;
    VSS_PWSZ m_pwszServiceMachine;
    VSS_PWSZ m_pwszExposedName;
    VSS_PWSZ m_pwszExposedPath;
    VSS_ID m_ProviderId;
    LONG m_lSnapshotAttributes;
    VSS_TIMESTAMP m_tsCreationTimestamp;
    VSS_SNAPSHOT_STATE m_eStatus;
} VSS_SNAPSHOT_PROP;

struct IVssWriterComponentsExt;
struct IVssExamineWriterMetadata;
struct IVssEnumObject;

// The asynchronous operation a snapshot set's creation hands back. Slots 3 to 5.
struct IVssAsync : IUnknown {
    STDMETHOD(Cancel)() PURE;
    STDMETHOD(Wait)(DWORD milliseconds) PURE;
    STDMETHOD(QueryStatus)(HRESULT* result, INT* reserved) PURE;
};

// The backup-components object, slots 3 to 50 in the published order. The bools are C++ bool, one byte,
// as the published interface has them.
struct IVssBackupComponents : IUnknown {
    STDMETHOD(GetWriterComponentsCount)(UINT* count) PURE;                                           // 3
    STDMETHOD(GetWriterComponents)(UINT index, IVssWriterComponentsExt** components) PURE;           // 4
    STDMETHOD(InitializeForBackup)(BSTR xml) PURE;                                                    // 5
    STDMETHOD(SetBackupState)(bool selectComponents, bool bootableSystemState, VSS_BACKUP_TYPE type,  // 6
                              bool partialFileSupport) PURE;
    STDMETHOD(InitializeForRestore)(BSTR xml) PURE;                                                   // 7
    STDMETHOD(SetRestoreState)(VSS_RESTORE_TYPE type) PURE;                                           // 8
    STDMETHOD(GatherWriterMetadata)(IVssAsync** async) PURE;                                          // 9
    STDMETHOD(GetWriterMetadataCount)(UINT* count) PURE;                                              // 10
    STDMETHOD(GetWriterMetadata)(UINT index, VSS_ID* instance, IVssExamineWriterMetadata** metadata) PURE;  // 11
    STDMETHOD(FreeWriterMetadata)() PURE;                                                             // 12
    STDMETHOD(AddComponent)(VSS_ID instance, VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR logicalPath,  // 13
                            LPCWSTR componentName) PURE;
    STDMETHOD(PrepareForBackup)(IVssAsync** async) PURE;                                              // 14
    STDMETHOD(AbortBackup)() PURE;                                                                    // 15
    STDMETHOD(GatherWriterStatus)(IVssAsync** async) PURE;                                            // 16
    STDMETHOD(GetWriterStatusCount)(UINT* count) PURE;                                                // 17
    STDMETHOD(FreeWriterStatus)() PURE;                                                               // 18
    STDMETHOD(GetWriterStatus)(UINT index, VSS_ID* instance, VSS_ID* writer, BSTR* name, INT* state,  // 19
                               HRESULT* failure) PURE;
    STDMETHOD(SetBackupSucceeded)(VSS_ID instance, VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR logicalPath,  // 20
                                  LPCWSTR componentName, bool succeeded) PURE;
    STDMETHOD(SetBackupOptions)(VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR logicalPath,  // 21
                                LPCWSTR componentName, LPCWSTR options) PURE;
    STDMETHOD(SetSelectedForRestore)(VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR logicalPath,  // 22
                                     LPCWSTR componentName, bool selected) PURE;
    STDMETHOD(SetRestoreOptions)(VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR logicalPath,  // 23
                                 LPCWSTR componentName, LPCWSTR options) PURE;
    STDMETHOD(SetAdditionalRestores)(VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR logicalPath,  // 24
                                     LPCWSTR componentName, bool additional) PURE;
    STDMETHOD(SetPreviousBackupStamp)(VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR logicalPath,  // 25
                                      LPCWSTR componentName, LPCWSTR stamp) PURE;
    STDMETHOD(SaveAsXML)(BSTR* xml) PURE;                                                             // 26
    STDMETHOD(BackupComplete)(IVssAsync** async) PURE;                                                // 27
    STDMETHOD(AddAlternativeLocationMapping)(VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR logicalPath,  // 28
                                             LPCWSTR componentName, LPCWSTR path, LPCWSTR filespec, bool recursive,
                                             LPCWSTR destination) PURE;
    STDMETHOD(AddRestoreSubcomponent)(VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR logicalPath,  // 29
                                      LPCWSTR componentName, LPCWSTR subLogicalPath, LPCWSTR subComponentName,
                                      bool repair) PURE;
    STDMETHOD(SetFileRestoreStatus)(VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR logicalPath,  // 30
                                    LPCWSTR componentName, VSS_FILE_RESTORE_STATUS status) PURE;
    STDMETHOD(AddNewTarget)(VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR logicalPath, LPCWSTR componentName,  // 31
                            LPCWSTR path, LPCWSTR fileName, bool recursive, LPCWSTR alternatePath) PURE;
    STDMETHOD(SetRangesFilePath)(VSS_ID writer, VSS_COMPONENT_TYPE type, LPCWSTR logicalPath,  // 32
                                 LPCWSTR componentName, UINT partialFileIndex, LPCWSTR rangesFile) PURE;
    STDMETHOD(PreRestore)(IVssAsync** async) PURE;                                                    // 33
    STDMETHOD(PostRestore)(IVssAsync** async) PURE;                                                   // 34
    STDMETHOD(SetContext)(LONG context) PURE;                                                         // 35
    STDMETHOD(StartSnapshotSet)(VSS_ID* snapshotSetId) PURE;                                          // 36
    STDMETHOD(AddToSnapshotSet)(VSS_PWSZ volumeName, VSS_ID providerId, VSS_ID* snapshotId) PURE;     // 37
    STDMETHOD(DoSnapshotSet)(IVssAsync** async) PURE;                                                 // 38
    STDMETHOD(DeleteSnapshots)(VSS_ID sourceObject, VSS_OBJECT_TYPE sourceType, BOOL force,  // 39
                               LONG* deletedCount, VSS_ID* notDeleted) PURE;
    STDMETHOD(ImportSnapshots)(IVssAsync** async) PURE;                                               // 40
    STDMETHOD(BreakSnapshotSet)(VSS_ID snapshotSetId) PURE;                                           // 41
    STDMETHOD(GetSnapshotProperties)(VSS_ID snapshotId, VSS_SNAPSHOT_PROP* properties) PURE;          // 42
    STDMETHOD(Query)(VSS_ID queriedObject, VSS_OBJECT_TYPE queriedType, VSS_OBJECT_TYPE returnedType,  // 43
                     IVssEnumObject** objects) PURE;
    STDMETHOD(IsVolumeSupported)(VSS_ID providerId, VSS_PWSZ volumeName, BOOL* supported) PURE;       // 44
    STDMETHOD(DisableWriterClasses)(const VSS_ID* classes, UINT count) PURE;                          // 45
    STDMETHOD(EnableWriterClasses)(const VSS_ID* classes, UINT count) PURE;                           // 46
    STDMETHOD(DisableWriterInstances)(const VSS_ID* instances, UINT count) PURE;                      // 47
    STDMETHOD(ExposeSnapshot)(VSS_ID snapshotId, VSS_PWSZ pathFromRoot, LONG attributes, VSS_PWSZ expose,  // 48
                              VSS_PWSZ* exposed) PURE;
    STDMETHOD(RevertToSnapshot)(VSS_ID snapshotId, BOOL forceDismount) PURE;                          // 49
    STDMETHOD(QueryRevertStatus)(VSS_PWSZ volume, IVssAsync** async) PURE;                            // 50
};

// The entry points, under the names callers pass to GetProcAddress.
using CreateVssBackupComponentsFunction = HRESULT(WINAPI*)(IVssBackupComponents** backup);
using VssFreeSnapshotPropertiesFunction = void(WINAPI*)(VSS_SNAPSHOT_PROP* properties);
