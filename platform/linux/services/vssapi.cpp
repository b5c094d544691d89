// The shadow copy service's client library, vssapi.dll, built into the platform and registered in the
// system folder: CreateVssBackupComponentsInternal gives a backup-components object, and
// VssFreeSnapshotPropertiesInternal frees what GetSnapshotProperties hands out.
//
// The object serves the backup of whole volumes without writers: InitializeForBackup (without a document),
// SetBackupState, SetContext, StartSnapshotSet, AddToSnapshotSet, DoSnapshotSet with its IVssAsync, and
// GetSnapshotProperties. Every other method of the published interface has its slot and answers E_NOTIMPL.
// Copies are made of NTFS volumes of attached disk images (volumes/shadow_copy.h); host folders, FAT
// volumes and paths inside a volume are refused as a volume without shadow copy support is. Making the
// object needs COM initialised in the calling thread and an elevated process, as on Windows. A copy lives
// as long as the object that made it; while it lives, GetSnapshotProperties of any object of the process
// finds it by its id. A set with no volume added is accepted by DoSnapshotSet and makes nothing.
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <random>
#include <vector>

#include "../../vssapi.h"
#include "../core/table.h"
#include "../shell/com.h"
#include "../volumes/shadow_copy.h"
#include "token.h"

namespace vlx {

namespace {

const IID kBackupComponentsInterface = {0x665c1d5f, 0xc218, 0x414d, {0xa0, 0x5d, 0x7f, 0xef, 0x5f, 0x9d, 0x5c, 0x86}};
const IID kAsyncInterface = {0x507c37b4, 0xcf5b, 0x4e95, {0xb0, 0xaf, 0x14, 0xeb, 0x97, 0x67, 0x46, 0x7e}};
// The platform's one provider, named in every snapshot's properties.
const VSS_ID kProviderId = {0x6f1b9c3e, 0x52a4, 0x4d0e, {0x9b, 0x7c, 0x1e, 0x3d, 0x58, 0xa2, 0x40, 0x91}};
const VSS_ID kNoId = {};

// A random (version 4) GUID.
VSS_ID NewId() {
    static std::mutex lock;
    static std::random_device source;
    std::lock_guard guard(lock);
    VSS_ID id;
    BYTE bytes[sizeof id];
    for (size_t at = 0; at < sizeof bytes; at += sizeof(unsigned)) {
        const unsigned value = source();
        std::memcpy(bytes + at, &value, sizeof value);
    }
    std::memcpy(&id, bytes, sizeof id);
    id.Data3 = static_cast<WORD>((id.Data3 & 0x0FFF) | 0x4000);
    id.Data4[0] = static_cast<BYTE>((id.Data4[0] & 0x3F) | 0x80);
    return id;
}

VSS_TIMESTAMP Now() {
    struct timespec now {};
    clock_gettime(CLOCK_REALTIME, &now);
    const FILETIME time = FileTimeFromTimespec(now);
    return static_cast<VSS_TIMESTAMP>((static_cast<ULONGLONG>(time.dwHighDateTime) << 32) | time.dwLowDateTime);
}

WString MachineName() {
    char name[256] = {};
    if (gethostname(name, sizeof name - 1) != 0) return _T("localhost");
    return WStrFromUtf8(name);
}

// Strings handed out in VSS_SNAPSHOT_PROP, freed by VssFreeSnapshotPropertiesInternal.
VSS_PWSZ HandOut(const WString& text) {
    auto* copy = static_cast<VSS_PWSZ>(std::malloc((text.size() + 1) * sizeof(WCHAR)));
    if (copy == nullptr) return nullptr;
    text.copy(copy, text.size());
    copy[text.size()] = 0;
    return copy;
}

struct Snapshot {
    VSS_ID id{};
    VSS_ID setId{};
    LONG setCount = 0;
    LONG attributes = 0;
    VSS_TIMESTAMP created = 0;
    std::shared_ptr<ShadowCopy> copy;
};

std::mutex g_snapshotsLock;
std::vector<std::weak_ptr<Snapshot>> g_snapshots;  // every copy alive in the process, for GetSnapshotProperties

std::shared_ptr<Snapshot> FindSnapshot(const VSS_ID& id) {
    std::lock_guard guard(g_snapshotsLock);
    for (auto at = g_snapshots.begin(); at != g_snapshots.end();) {
        auto snapshot = at->lock();
        if (!snapshot) {
            at = g_snapshots.erase(at);
            continue;
        }
        if (snapshot->id == id) return snapshot;
        ++at;
    }
    return nullptr;
}

// The outcome of a DoSnapshotSet, finished by the time it is handed out.
class SnapshotAsync : public IVssAsync, public ComLifetime {
public:
    explicit SnapshotAsync(HRESULT result) : result_(result) {}
    STDMETHOD(QueryInterface)(REFIID riid, void** object) override {
        return AnswerQuery(this, static_cast<IVssAsync*>(this), riid, object, kAsyncInterface, false);
    }
    VLX_COM_LIFETIME
    STDMETHOD(Cancel)() override { return VSS_S_ASYNC_FINISHED; }
    STDMETHOD(Wait)(DWORD) override { return FAILED(result_) ? result_ : S_OK; }
    STDMETHOD(QueryStatus)(HRESULT* result, INT*) override {
        if (result == nullptr) return E_INVALIDARG;
        *result = FAILED(result_) ? result_ : VSS_S_ASYNC_FINISHED;
        return S_OK;
    }

private:
    HRESULT result_;
};

// The volume AddToSnapshotSet names: the root of an NTFS image volume, by drive letter or volume name, with
// its trailing backslash.
HRESULT FindVolume(VSS_PWSZ name, std::shared_ptr<ImageVolume>& out) {
    if (name == nullptr || *name == 0) return E_INVALIDARG;
    const WString text(name);
    if (text.back() != '\\') return VSS_E_OBJECT_NOT_FOUND;
    const ImagePath path = ResolveImagePath(name);
    if (!path.volume) {
        // A drive letter of a host folder is a volume, only not one that can be copied.
        const bool driveRoot = text.size() == 3 && text[1] == ':';
        return driveRoot && !DriveRoot(text[0]).empty() ? VSS_E_VOLUME_NOT_SUPPORTED : VSS_E_OBJECT_NOT_FOUND;
    }
    if (!path.valid || !path.components.empty() || path.volume->detached) return VSS_E_OBJECT_NOT_FOUND;
    if (!path.volume->engine || path.volume->facts.fileSystem != _T("NTFS")) return VSS_E_VOLUME_NOT_SUPPORTED;
    out = path.volume;
    return S_OK;
}

class BackupComponents : public IVssBackupComponents, public ComLifetime {
public:
    STDMETHOD(QueryInterface)(REFIID riid, void** object) override {
        return AnswerQuery(this, static_cast<IVssBackupComponents*>(this), riid, object, kBackupComponentsInterface, false);
    }
    VLX_COM_LIFETIME

    STDMETHOD(InitializeForBackup)(BSTR xml) override {
        std::lock_guard guard(lock_);
        if (initialized_) return VSS_E_BAD_STATE;
        if (xml != nullptr) return VSS_E_INVALID_XML_DOCUMENT;  // no writers, so no document to resume from
        initialized_ = true;
        return S_OK;
    }
    STDMETHOD(SetBackupState)(bool, bool, VSS_BACKUP_TYPE type, bool) override {
        std::lock_guard guard(lock_);
        if (!initialized_) return VSS_E_BAD_STATE;
        if (type <= VSS_BT_UNDEFINED || type > VSS_BT_OTHER) return E_INVALIDARG;
        return S_OK;
    }
    STDMETHOD(SetContext)(LONG context) override {
        std::lock_guard guard(lock_);
        if (!initialized_ || setStarted_ || !snapshots_.empty()) return VSS_E_BAD_STATE;
        if (context != VSS_CTX_BACKUP && context != VSS_CTX_FILE_SHARE_BACKUP) return E_INVALIDARG;
        context_ = context;
        return S_OK;
    }
    STDMETHOD(StartSnapshotSet)(VSS_ID* setId) override {
        std::lock_guard guard(lock_);
        if (setId == nullptr) return E_INVALIDARG;
        if (!initialized_) return VSS_E_BAD_STATE;
        if (setStarted_) return VSS_E_SNAPSHOT_SET_IN_PROGRESS;
        setStarted_ = true;
        setId_ = NewId();
        pending_.clear();
        *setId = setId_;
        return S_OK;
    }
    STDMETHOD(AddToSnapshotSet)(VSS_PWSZ volumeName, VSS_ID providerId, VSS_ID* snapshotId) override {
        std::lock_guard guard(lock_);
        if (snapshotId == nullptr) return E_INVALIDARG;
        if (!setStarted_) return VSS_E_BAD_STATE;
        if (providerId != kNoId && providerId != kProviderId) return VSS_E_PROVIDER_NOT_REGISTERED;
        std::shared_ptr<ImageVolume> volume;
        if (const HRESULT found = FindVolume(volumeName, volume); FAILED(found)) return found;
        for (const Pending& pending : pending_) {
            if (pending.volume == volume) return VSS_E_OBJECT_ALREADY_EXISTS;
        }
        pending_.push_back({NewId(), volume});
        *snapshotId = pending_.back().id;
        return S_OK;
    }
    STDMETHOD(DoSnapshotSet)(IVssAsync** async) override {
        std::lock_guard guard(lock_);
        if (async == nullptr) return E_INVALIDARG;
        *async = nullptr;
        if (!setStarted_) return VSS_E_BAD_STATE;
        std::vector<std::shared_ptr<Snapshot>> made;
        HRESULT result = S_OK;
        const VSS_TIMESTAMP created = Now();
        for (const Pending& pending : pending_) {
            auto snapshot = std::make_shared<Snapshot>();
            snapshot->copy = ShadowCopy::Create(pending.volume);
            if (!snapshot->copy) {
                result = LastError() == ERROR_NOT_SUPPORTED ? VSS_E_VOLUME_NOT_SUPPORTED : VSS_E_UNEXPECTED_PROVIDER_ERROR;
                made.clear();  // a set is made whole or not at all
                break;
            }
            snapshot->id = pending.id;
            snapshot->setId = setId_;
            snapshot->setCount = static_cast<LONG>(pending_.size());
            snapshot->attributes = context_;
            snapshot->created = created;
            made.push_back(std::move(snapshot));
        }
        {
            std::lock_guard registry(g_snapshotsLock);
            for (const auto& snapshot : made) g_snapshots.push_back(snapshot);
        }
        snapshots_.insert(snapshots_.end(), made.begin(), made.end());
        setStarted_ = false;
        pending_.clear();
        *async = new SnapshotAsync(result);
        return S_OK;
    }
    STDMETHOD(GetSnapshotProperties)(VSS_ID snapshotId, VSS_SNAPSHOT_PROP* properties) override {
        if (properties == nullptr) return E_INVALIDARG;
        const auto snapshot = FindSnapshot(snapshotId);
        if (!snapshot) return VSS_E_OBJECT_NOT_FOUND;
        const WString machine = MachineName();
        VSS_SNAPSHOT_PROP filled{};
        filled.m_SnapshotId = snapshot->id;
        filled.m_SnapshotSetId = snapshot->setId;
        filled.m_lSnapshotsCount = snapshot->setCount;
        filled.m_pwszSnapshotDeviceObject = HandOut(snapshot->copy->DeviceName());
        filled.m_pwszOriginalVolumeName = HandOut(snapshot->copy->OriginalVolumeName());
        filled.m_pwszOriginatingMachine = HandOut(machine);
        filled.m_pwszServiceMachine = HandOut(machine);
        filled.m_ProviderId = kProviderId;
        filled.m_lSnapshotAttributes = snapshot->attributes;
        filled.m_tsCreationTimestamp = snapshot->created;
        filled.m_eStatus = VSS_SS_CREATED;
        if (!filled.m_pwszSnapshotDeviceObject || !filled.m_pwszOriginalVolumeName || !filled.m_pwszOriginatingMachine ||
            !filled.m_pwszServiceMachine) {
            for (VSS_PWSZ text : {filled.m_pwszSnapshotDeviceObject, filled.m_pwszOriginalVolumeName,
                                  filled.m_pwszOriginatingMachine, filled.m_pwszServiceMachine})
                std::free(text);
            return E_OUTOFMEMORY;
        }
        *properties = filled;
        return S_OK;
    }

    // The rest of the interface: present in its slots, not served.
    STDMETHOD(GetWriterComponentsCount)(UINT*) override { return E_NOTIMPL; }
    STDMETHOD(GetWriterComponents)(UINT, IVssWriterComponentsExt**) override { return E_NOTIMPL; }
    STDMETHOD(InitializeForRestore)(BSTR) override { return E_NOTIMPL; }
    STDMETHOD(SetRestoreState)(VSS_RESTORE_TYPE) override { return E_NOTIMPL; }
    STDMETHOD(GatherWriterMetadata)(IVssAsync**) override { return E_NOTIMPL; }
    STDMETHOD(GetWriterMetadataCount)(UINT*) override { return E_NOTIMPL; }
    STDMETHOD(GetWriterMetadata)(UINT, VSS_ID*, IVssExamineWriterMetadata**) override { return E_NOTIMPL; }
    STDMETHOD(FreeWriterMetadata)() override { return E_NOTIMPL; }
    STDMETHOD(AddComponent)(VSS_ID, VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR) override { return E_NOTIMPL; }
    STDMETHOD(PrepareForBackup)(IVssAsync**) override { return E_NOTIMPL; }
    STDMETHOD(AbortBackup)() override { return E_NOTIMPL; }
    STDMETHOD(GatherWriterStatus)(IVssAsync**) override { return E_NOTIMPL; }
    STDMETHOD(GetWriterStatusCount)(UINT*) override { return E_NOTIMPL; }
    STDMETHOD(FreeWriterStatus)() override { return E_NOTIMPL; }
    STDMETHOD(GetWriterStatus)(UINT, VSS_ID*, VSS_ID*, BSTR*, INT*, HRESULT*) override { return E_NOTIMPL; }
    STDMETHOD(SetBackupSucceeded)(VSS_ID, VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, bool) override { return E_NOTIMPL; }
    STDMETHOD(SetBackupOptions)(VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, LPCWSTR) override { return E_NOTIMPL; }
    STDMETHOD(SetSelectedForRestore)(VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, bool) override { return E_NOTIMPL; }
    STDMETHOD(SetRestoreOptions)(VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, LPCWSTR) override { return E_NOTIMPL; }
    STDMETHOD(SetAdditionalRestores)(VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, bool) override { return E_NOTIMPL; }
    STDMETHOD(SetPreviousBackupStamp)(VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, LPCWSTR) override { return E_NOTIMPL; }
    STDMETHOD(SaveAsXML)(BSTR*) override { return E_NOTIMPL; }
    STDMETHOD(BackupComplete)(IVssAsync**) override { return E_NOTIMPL; }
    STDMETHOD(AddAlternativeLocationMapping)(VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR, bool,
                                             LPCWSTR) override {
        return E_NOTIMPL;
    }
    STDMETHOD(AddRestoreSubcomponent)(VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR, bool) override {
        return E_NOTIMPL;
    }
    STDMETHOD(SetFileRestoreStatus)(VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, VSS_FILE_RESTORE_STATUS) override {
        return E_NOTIMPL;
    }
    STDMETHOD(AddNewTarget)(VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR, bool, LPCWSTR) override {
        return E_NOTIMPL;
    }
    STDMETHOD(SetRangesFilePath)(VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, UINT, LPCWSTR) override { return E_NOTIMPL; }
    STDMETHOD(PreRestore)(IVssAsync**) override { return E_NOTIMPL; }
    STDMETHOD(PostRestore)(IVssAsync**) override { return E_NOTIMPL; }
    STDMETHOD(DeleteSnapshots)(VSS_ID, VSS_OBJECT_TYPE, BOOL, LONG*, VSS_ID*) override { return E_NOTIMPL; }
    STDMETHOD(ImportSnapshots)(IVssAsync**) override { return E_NOTIMPL; }
    STDMETHOD(BreakSnapshotSet)(VSS_ID) override { return E_NOTIMPL; }
    STDMETHOD(Query)(VSS_ID, VSS_OBJECT_TYPE, VSS_OBJECT_TYPE, IVssEnumObject**) override { return E_NOTIMPL; }
    STDMETHOD(IsVolumeSupported)(VSS_ID, VSS_PWSZ, BOOL*) override { return E_NOTIMPL; }
    STDMETHOD(DisableWriterClasses)(const VSS_ID*, UINT) override { return E_NOTIMPL; }
    STDMETHOD(EnableWriterClasses)(const VSS_ID*, UINT) override { return E_NOTIMPL; }
    STDMETHOD(DisableWriterInstances)(const VSS_ID*, UINT) override { return E_NOTIMPL; }
    STDMETHOD(ExposeSnapshot)(VSS_ID, VSS_PWSZ, LONG, VSS_PWSZ, VSS_PWSZ*) override { return E_NOTIMPL; }
    STDMETHOD(RevertToSnapshot)(VSS_ID, BOOL) override { return E_NOTIMPL; }
    STDMETHOD(QueryRevertStatus)(VSS_PWSZ, IVssAsync**) override { return E_NOTIMPL; }

private:
    struct Pending {
        VSS_ID id;
        std::shared_ptr<ImageVolume> volume;
    };
    std::mutex lock_;
    bool initialized_ = false;
    LONG context_ = VSS_CTX_BACKUP;
    bool setStarted_ = false;
    VSS_ID setId_{};
    std::vector<Pending> pending_;
    // The copies this object made: they end with it.
    std::vector<std::shared_ptr<Snapshot>> snapshots_;
};

HRESULT WINAPI CreateVssBackupComponentsInternal(IVssBackupComponents** backup) {
    if (backup == nullptr) return E_INVALIDARG;
    *backup = nullptr;
    if (ComApartmentDepth() == 0) return CO_E_NOTINITIALIZED;
    if (!ProcessIsElevated()) return E_ACCESSDENIED;
    *backup = new BackupComponents();
    return S_OK;
}

void WINAPI VssFreeSnapshotPropertiesInternal(VSS_SNAPSHOT_PROP* properties) {
    if (properties == nullptr) return;
    for (VSS_PWSZ text : {properties->m_pwszSnapshotDeviceObject, properties->m_pwszOriginalVolumeName,
                          properties->m_pwszOriginatingMachine, properties->m_pwszServiceMachine,
                          properties->m_pwszExposedName, properties->m_pwszExposedPath})
        std::free(text);
}

const SystemModule g_vssapi(u"vssapi.dll",
                            {{
                                 {"CreateVssBackupComponentsInternal", EntryPoint(CreateVssBackupComponentsInternal)},
                                 {"VssFreeSnapshotPropertiesInternal", EntryPoint(VssFreeSnapshotPropertiesInternal)},
                             },
                             0});

}  // namespace

}  // namespace vlx
