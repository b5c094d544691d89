// NTFS image volumes: the volume interface over the NTFS engine. The engine answers in Win32 units
// already; what is left here is CreateFileW's dispositions, the file-system controls and the volume's facts.
#include <cstring>

#include "ntfs/ntfs_engine.h"
#include "shadow_copy.h"
#include "volume.h"

namespace vlx {

namespace {

WString EnginePath(const VolumePath& path) {
    if (path.empty()) return _T("\\");
    WString text;
    for (const WString& name : path) text += _T("\\") + name;
    return text;
}

VolumeEntry EntryFrom(const ntfs::EntryInfo& info) {
    VolumeEntry entry;
    entry.name = info.name;
    entry.attributes = info.attributes;
    entry.created = info.created;
    entry.accessed = info.accessed;
    entry.written = info.written;
    entry.size = info.size;
    entry.fileIndex = info.fileReference;
    entry.links = info.links == 0 ? 1 : info.links;
    return entry;
}

// The engine's result as a platform answer: true on ERROR_SUCCESS, else false with its code.
bool Done(DWORD code) { return code == ERROR_SUCCESS ? true : Fail(code, false); }

class NtfsFile : public VolumeFile {
public:
    explicit NtfsFile(std::shared_ptr<ntfs::File> file) : file_(std::move(file)) {}
    bool Read(ULONGLONG offset, void* buffer, DWORD size, DWORD& done) override {
        return Done(file_->Read(offset, buffer, size, done));
    }
    bool Write(ULONGLONG offset, const void* buffer, DWORD size, DWORD& done) override {
        return Done(file_->Write(offset, buffer, size, done));
    }
    bool SetSize(ULONGLONG size) override { return Done(file_->SetSize(size)); }
    bool Stat(VolumeEntry& out) override {
        ntfs::EntryInfo info;
        if (!Done(file_->Info(info))) return false;
        out = EntryFrom(info);
        return true;
    }
    bool SetTimes(const FILETIME* created, const FILETIME* accessed, const FILETIME* written) override {
        return Done(file_->SetTimes(created, accessed, written));
    }
    bool Control(DWORD code, const void* in, DWORD inSize, void* out, DWORD outSize, DWORD& returned) override {
        returned = 0;
        switch (code) {
            case FSCTL_GET_RETRIEVAL_POINTERS: {
                if (in == nullptr || inSize < sizeof(STARTING_VCN_INPUT_BUFFER)) return Fail(ERROR_INVALID_PARAMETER, false);
                STARTING_VCN_INPUT_BUFFER input;
                std::memcpy(&input, in, sizeof input);
                // ERROR_MORE_DATA comes back with the runs that fit and their byte count.
                return Done(file_->RetrievalPointers(input.StartingVcn.QuadPart, out, outSize, returned));
            }
            case FSCTL_SET_COMPRESSION: {
                if (in == nullptr || inSize < sizeof(USHORT)) return Fail(ERROR_INVALID_PARAMETER, false);
                USHORT format = 0;
                std::memcpy(&format, in, sizeof format);
                return Done(file_->SetCompression(format));
            }
            case FSCTL_GET_COMPRESSION: {
                if (out == nullptr || outSize < sizeof(USHORT)) return Fail(ERROR_INVALID_PARAMETER, false);
                USHORT format = 0;
                if (!Done(file_->GetCompression(format))) return false;
                std::memcpy(out, &format, sizeof format);
                returned = sizeof format;
                return true;
            }
        }
        return Fail(ERROR_INVALID_FUNCTION, false);
    }

private:
    std::shared_ptr<ntfs::File> file_;
};

class NtfsVolume : public Volume {
public:
    explicit NtfsVolume(std::unique_ptr<ntfs::Volume> engine, bool isShadowCopy = false)
        : engine_(std::move(engine)), isShadowCopy_(isShadowCopy) {}

    VolumeFacts Facts() override {
        VolumeFacts facts;
        facts.fileSystem = _T("NTFS");
        ntfs::VolumeFacts own;
        if (engine_->Facts(own) == ERROR_SUCCESS) {
            facts.label = own.label;
            facts.serial = static_cast<DWORD>(own.serialNumber);  // Windows shows the low half
        }
        facts.maxComponentLength = 255;
        facts.flags = FILE_CASE_PRESERVED_NAMES | FILE_UNICODE_ON_DISK | FILE_PERSISTENT_ACLS | FILE_FILE_COMPRESSION |
                      FILE_SUPPORTS_HARD_LINKS;
        return facts;
    }

    bool Lookup(const VolumePath& path, VolumeEntry& out) override {
        ntfs::EntryInfo info;
        if (!Done(engine_->Query(EnginePath(path), info))) return false;
        out = EntryFrom(info);
        return true;
    }

    bool List(const VolumePath& folder, std::vector<VolumeEntry>& out) override {
        std::vector<ntfs::EntryInfo> entries;
        const DWORD code = engine_->List(EnginePath(folder), _T("*"), entries);
        // The engine reports an empty folder as one where nothing matched.
        if (code != ERROR_SUCCESS && code != ERROR_FILE_NOT_FOUND) return Fail(code, false);
        for (const ntfs::EntryInfo& info : entries) out.push_back(EntryFrom(info));
        return true;
    }

    std::unique_ptr<VolumeFile> Open(const VolumePath& path, DWORD access, DWORD share, DWORD disposition, DWORD flags) override {
        using Result = std::unique_ptr<VolumeFile>;
        const WString text = EnginePath(path);
        ntfs::EntryInfo info;
        std::shared_ptr<ntfs::File> file;
        // One walk of the path in the usual case: the entry is opened, then looked at. The file system's
        // own files can be looked at but not opened, and answer as any entry until the open.
        DWORD found = engine_->Open(text, file);
        if (found == ERROR_SUCCESS) {
            found = file->Info(info);
        } else if (found == ERROR_ACCESS_DENIED) {
            found = engine_->Query(text, info);
        }
        if (found == ERROR_SUCCESS) {
            const bool folder = (info.attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
            if (folder && (flags & FILE_FLAG_BACKUP_SEMANTICS) == 0) return Fail(ERROR_ACCESS_DENIED, Result());
            if (disposition == CREATE_NEW) return Fail(ERROR_FILE_EXISTS, Result());
            const bool truncates = disposition == CREATE_ALWAYS || disposition == TRUNCATE_EXISTING;
            // A read-only file opens for deletion (to be renamed, say) but is never deleted on close.
            constexpr DWORD kChanges = FILE_WRITE_DATA | FILE_APPEND_DATA;
            if ((info.attributes & FILE_ATTRIBUTE_READONLY) &&
                ((access & kChanges) || truncates || (flags & FILE_FLAG_DELETE_ON_CLOSE)))
                return Fail(ERROR_ACCESS_DENIED, Result());
            if (folder && truncates) return Fail(ERROR_ACCESS_DENIED, Result());
            if (!file && !Done(engine_->Open(text, file))) return Result();
            if (truncates && !Done(file->SetSize(0))) return Result();
        } else if (found == ERROR_FILE_NOT_FOUND) {
            if (disposition == OPEN_EXISTING || disposition == TRUNCATE_EXISTING) return Fail(found, Result());
            const DWORD attributes =
                (flags & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM)) | FILE_ATTRIBUTE_ARCHIVE;
            if (!Done(engine_->CreateFile(text, attributes, file))) return Result();
        } else {
            return Fail(found, Result());
        }
        return std::make_unique<NtfsFile>(std::move(file));
    }

    bool SetAttributes(const VolumePath& path, DWORD attributes) override {
        std::shared_ptr<ntfs::File> file;
        return Done(engine_->Open(EnginePath(path), file)) && Done(file->SetAttributes(attributes));
    }
    bool Delete(const VolumePath& path) override { return Done(engine_->DeleteFile(EnginePath(path))); }
    bool CreateFolder(const VolumePath& path) override { return Done(engine_->CreateFolder(EnginePath(path))); }
    bool RemoveFolder(const VolumePath& path) override { return Done(engine_->RemoveFolder(EnginePath(path))); }
    bool CreateHardLink(const VolumePath& newName, const VolumePath& existing) override {
        return Done(engine_->CreateHardLink(EnginePath(newName), EnginePath(existing)));
    }
    bool LinkNames(const VolumePath& path, std::vector<WString>& names) override {
        std::shared_ptr<ntfs::File> file;
        return Done(engine_->Open(EnginePath(path), file)) && Done(file->LinkNames(names));
    }
    std::unique_ptr<VolumeFile> OpenByIndex(ULONGLONG fileIndex, DWORD access, DWORD share) override {
        std::shared_ptr<ntfs::File> file;
        if (!Done(engine_->OpenByReference(fileIndex, file))) return nullptr;
        return std::make_unique<NtfsFile>(std::move(file));
    }
    bool NameOfIndex(ULONGLONG fileIndex, WString& relative) override {
        return Done(engine_->PathOfReference(fileIndex, relative));
    }
    bool GetSecurity(const VolumePath& path, SECURITY_INFORMATION selection, std::vector<BYTE>& selfRelative) override {
        std::shared_ptr<ntfs::File> file;
        return Done(engine_->Open(EnginePath(path), file)) && Done(file->GetSecurity(selection, selfRelative));
    }
    bool SetSecurity(const VolumePath& path, SECURITY_INFORMATION selection, const std::vector<BYTE>& selfRelative) override {
        std::shared_ptr<ntfs::File> file;
        return Done(engine_->Open(EnginePath(path), file)) &&
               Done(file->SetSecurity(selection, selfRelative.data(), static_cast<DWORD>(selfRelative.size())));
    }
    // The master file table and change journal controls, answered in the layouts Windows gives.
    bool VolumeControl(DWORD code, const void* in, DWORD inSize, void* out, DWORD outSize, DWORD& returned) override {
        returned = 0;
        switch (code) {
            case FSCTL_GET_NTFS_VOLUME_DATA:
                return Done(engine_->NtfsVolumeData(out, outSize, returned));
            case FSCTL_QUERY_USN_JOURNAL:
                return Done(engine_->UsnJournalData(out, outSize, returned));
            case FSCTL_ENUM_USN_DATA:
                return Done(engine_->EnumUsnData(in, inSize, out, outSize, returned));
            case FSCTL_CREATE_USN_JOURNAL: {
                if (in == nullptr || inSize < sizeof(CREATE_USN_JOURNAL_DATA)) return Fail(ERROR_INVALID_PARAMETER, false);
                CREATE_USN_JOURNAL_DATA request;
                std::memcpy(&request, in, sizeof request);
                return Done(engine_->CreateUsnJournal(request.MaximumSize, request.AllocationDelta));
            }
        }
        return Fail(ERROR_INVALID_FUNCTION, false);
    }
    // Detach writes everything the engine holds back into the image.
    bool Flush() override { return Done(engine_->Detach()); }
    // The copy is consistent because the live records are written out first, and stays so because every
    // later write is announced to the store before it lands.
    std::unique_ptr<Volume> MakeShadowCopy(const std::shared_ptr<ShadowStore>& store) override {
        using Result = std::unique_ptr<Volume>;
        if (isShadowCopy_) return Fail(ERROR_NOT_SUPPORTED, Result());  // its bytes are not the image's
        if (!Done(engine_->Sync())) return Result();
        engine_->AddWriteObserver(store);
        std::unique_ptr<ntfs::Volume> copy;
        if (!Done(ntfs::Volume::AttachSource(store, copy))) return Result();
        return std::make_unique<NtfsVolume>(std::move(copy), true);
    }

private:
    std::unique_ptr<ntfs::Volume> engine_;
    bool isShadowCopy_;
};

}  // namespace

std::unique_ptr<Volume> OpenNtfsVolume(const std::string& imagePath, const VolumePlacement& placement, bool readOnly) {
    std::unique_ptr<ntfs::Volume> engine;
    const DWORD code = ntfs::Volume::Attach(imagePath, placement.startingOffset, placement.length, readOnly, engine);
    if (code != ERROR_SUCCESS) return Fail(code, std::unique_ptr<Volume>());
    return std::make_unique<NtfsVolume>(std::move(engine));
}

}  // namespace vlx
