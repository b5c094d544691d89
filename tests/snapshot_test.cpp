// The snapshot exports against a scripted vssapi.dll registered in the system folder: the calls made, in
// order, with the values passed; the state each failing step leaves and what CloseVssBackUp then gives
// back; the path VssOpenFile opens; and the properties' strings freed once however the calls are ordered.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <set>

#include "../platform/api_patch.h"
#include "../snapshot/snapshot_internal.h"
#include "support/scripted_files.h"

namespace {

using namespace testing_support;

const VSS_ID kChosenId = {0x11223344, 0x5566, 0x7788, {1, 2, 3, 4, 5, 6, 7, 8}};
const VSS_ID kAddedId = {0xa0a0a0a0, 0xb1b1, 0xc2c2, {9, 9, 9, 9, 9, 9, 9, 9}};
constexpr char kDevice[] = "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy7";
constexpr char kVolume[] = "\\\\?\\Volume{6d2bd0a8-0f43-4c9f-9f4b-2a6c3e9d5a11}\\";

std::string IdText(const VSS_ID& id) {
    return std::memcmp(&id, &kChosenId, sizeof id) == 0  ? "chosen"
           : std::memcmp(&id, &kAddedId, sizeof id) == 0 ? "added"
           : id == VSS_ID{}                              ? "zero"
                                                         : "other";
}

WCHAR* Copy(const std::string& text) {
    const WString wide = WStrFromUtf8(text);
    auto* copy = static_cast<WCHAR*>(std::malloc((wide.size() + 1) * sizeof(WCHAR)));
    std::memcpy(copy, wide.c_str(), (wide.size() + 1) * sizeof(WCHAR));
    return copy;
}

// What the scripted library logs and answers. Each method answers answers[name], S_OK when unset.
struct Script {
    std::vector<std::string> log;
    std::map<std::string, HRESULT> answers;
    bool createGivesNull = false;
    int backupReferences = 0, asyncReferences = 0;
    int stringsHandedOut = 0, stringsFreed = 0;
    HRESULT Answer(const std::string& name) { return answers.count(name) ? answers[name] : S_OK; }
};
Script* g_script = nullptr;

class ScriptedAsync : public IVssAsync {
public:
    STDMETHOD(QueryInterface)(REFIID, void**) override { return E_NOINTERFACE; }
    STDMETHOD_(ULONG, AddRef)() override { return ++g_script->asyncReferences; }
    STDMETHOD_(ULONG, Release)() override {
        g_script->log.push_back("Async.Release");
        return --g_script->asyncReferences;
    }
    STDMETHOD(Cancel)() override { return E_NOTIMPL; }
    STDMETHOD(Wait)(DWORD milliseconds) override {
        g_script->log.push_back("Wait " + Hex(milliseconds));
        return g_script->Answer("Wait");
    }
    STDMETHOD(QueryStatus)(HRESULT*, INT*) override {
        g_script->log.push_back("QueryStatus");
        return E_NOTIMPL;
    }
};
ScriptedAsync g_async;

#define VLX_UNSERVED(name, ...) \
    STDMETHOD(name)(__VA_ARGS__) override { return Unserved(#name); }

class ScriptedBackup : public IVssBackupComponents {
public:
    STDMETHOD(QueryInterface)(REFIID, void**) override { return E_NOINTERFACE; }
    STDMETHOD_(ULONG, AddRef)() override { return ++g_script->backupReferences; }
    STDMETHOD_(ULONG, Release)() override {
        g_script->log.push_back("Release");
        return --g_script->backupReferences;
    }
    STDMETHOD(InitializeForBackup)(BSTR xml) override {
        g_script->log.push_back(std::string("InitializeForBackup ") + (xml == nullptr ? "null" : "document"));
        return g_script->Answer("InitializeForBackup");
    }
    STDMETHOD(SetBackupState)(bool select, bool bootable, VSS_BACKUP_TYPE type, bool partial) override {
        g_script->log.push_back("SetBackupState " + std::to_string(select) + " " + std::to_string(bootable) + " " +
                                std::to_string(type) + " " + std::to_string(partial));
        return g_script->Answer("SetBackupState");
    }
    STDMETHOD(SetContext)(LONG context) override {
        g_script->log.push_back("SetContext " + Hex(static_cast<ULONG>(context)));
        return g_script->Answer("SetContext");
    }
    STDMETHOD(StartSnapshotSet)(VSS_ID* setId) override {
        g_script->log.push_back(std::string("StartSnapshotSet ") + (setId == nullptr ? "null" : "set"));
        return g_script->Answer("StartSnapshotSet");
    }
    STDMETHOD(AddToSnapshotSet)(VSS_PWSZ volume, VSS_ID provider, VSS_ID* snapshotId) override {
        g_script->log.push_back("AddToSnapshotSet " + U(volume) + " " + IdText(provider));
        if (snapshotId != nullptr) *snapshotId = kAddedId;
        return g_script->Answer("AddToSnapshotSet");
    }
    STDMETHOD(DoSnapshotSet)(IVssAsync** async) override {
        g_script->log.push_back("DoSnapshotSet");
        const HRESULT answer = g_script->Answer("DoSnapshotSet");
        if (SUCCEEDED(answer)) {
            g_async.AddRef();
            *async = &g_async;
        }
        return answer;
    }
    STDMETHOD(GetSnapshotProperties)(VSS_ID id, VSS_SNAPSHOT_PROP* properties) override {
        g_script->log.push_back("GetSnapshotProperties " + IdText(id));
        const HRESULT answer = g_script->Answer("GetSnapshotProperties");
        if (FAILED(answer)) return answer;
        std::memset(properties, 0, sizeof *properties);
        properties->m_SnapshotId = id;
        properties->m_pwszSnapshotDeviceObject = Copy(kDevice);
        properties->m_pwszOriginalVolumeName = Copy(kVolume);
        g_script->stringsHandedOut += 2;
        return answer;
    }

    VLX_UNSERVED(GetWriterComponentsCount, UINT*)
    VLX_UNSERVED(GetWriterComponents, UINT, IVssWriterComponentsExt**)
    VLX_UNSERVED(InitializeForRestore, BSTR)
    VLX_UNSERVED(SetRestoreState, VSS_RESTORE_TYPE)
    VLX_UNSERVED(GatherWriterMetadata, IVssAsync**)
    VLX_UNSERVED(GetWriterMetadataCount, UINT*)
    VLX_UNSERVED(GetWriterMetadata, UINT, VSS_ID*, IVssExamineWriterMetadata**)
    VLX_UNSERVED(FreeWriterMetadata)
    VLX_UNSERVED(AddComponent, VSS_ID, VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR)
    VLX_UNSERVED(PrepareForBackup, IVssAsync**)
    VLX_UNSERVED(AbortBackup)
    VLX_UNSERVED(GatherWriterStatus, IVssAsync**)
    VLX_UNSERVED(GetWriterStatusCount, UINT*)
    VLX_UNSERVED(FreeWriterStatus)
    VLX_UNSERVED(GetWriterStatus, UINT, VSS_ID*, VSS_ID*, BSTR*, INT*, HRESULT*)
    VLX_UNSERVED(SetBackupSucceeded, VSS_ID, VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, bool)
    VLX_UNSERVED(SetBackupOptions, VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, LPCWSTR)
    VLX_UNSERVED(SetSelectedForRestore, VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, bool)
    VLX_UNSERVED(SetRestoreOptions, VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, LPCWSTR)
    VLX_UNSERVED(SetAdditionalRestores, VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, bool)
    VLX_UNSERVED(SetPreviousBackupStamp, VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, LPCWSTR)
    VLX_UNSERVED(SaveAsXML, BSTR*)
    VLX_UNSERVED(BackupComplete, IVssAsync**)
    VLX_UNSERVED(AddAlternativeLocationMapping, VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR, bool, LPCWSTR)
    VLX_UNSERVED(AddRestoreSubcomponent, VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR, bool)
    VLX_UNSERVED(SetFileRestoreStatus, VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, VSS_FILE_RESTORE_STATUS)
    VLX_UNSERVED(AddNewTarget, VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR, bool, LPCWSTR)
    VLX_UNSERVED(SetRangesFilePath, VSS_ID, VSS_COMPONENT_TYPE, LPCWSTR, LPCWSTR, UINT, LPCWSTR)
    VLX_UNSERVED(PreRestore, IVssAsync**)
    VLX_UNSERVED(PostRestore, IVssAsync**)
    VLX_UNSERVED(DeleteSnapshots, VSS_ID, VSS_OBJECT_TYPE, BOOL, LONG*, VSS_ID*)
    VLX_UNSERVED(ImportSnapshots, IVssAsync**)
    VLX_UNSERVED(BreakSnapshotSet, VSS_ID)
    VLX_UNSERVED(Query, VSS_ID, VSS_OBJECT_TYPE, VSS_OBJECT_TYPE, IVssEnumObject**)
    VLX_UNSERVED(IsVolumeSupported, VSS_ID, VSS_PWSZ, BOOL*)
    VLX_UNSERVED(DisableWriterClasses, const VSS_ID*, UINT)
    VLX_UNSERVED(EnableWriterClasses, const VSS_ID*, UINT)
    VLX_UNSERVED(DisableWriterInstances, const VSS_ID*, UINT)
    VLX_UNSERVED(ExposeSnapshot, VSS_ID, VSS_PWSZ, LONG, VSS_PWSZ, VSS_PWSZ*)
    VLX_UNSERVED(RevertToSnapshot, VSS_ID, BOOL)
    VLX_UNSERVED(QueryRevertStatus, VSS_PWSZ, IVssAsync**)

private:
    static HRESULT Unserved(const char* name) {
        g_script->log.push_back(std::string("unexpected ") + name);
        return E_NOTIMPL;
    }
};
ScriptedBackup g_backup;

HRESULT WINAPI ScriptCreate(IVssBackupComponents** backup) {
    g_script->log.push_back("Create");
    const HRESULT answer = g_script->Answer("Create");
    if (!g_script->createGivesNull) {
        g_backup.AddRef();
        *backup = &g_backup;
    }
    return answer;
}

void WINAPI ScriptFree(VSS_SNAPSHOT_PROP* properties) {
    g_script->log.push_back("Free");
    for (VSS_PWSZ text : {properties->m_pwszSnapshotDeviceObject, properties->m_pwszOriginalVolumeName}) {
        if (text != nullptr) ++g_script->stringsFreed;
        std::free(text);
    }
}

vlx::ModuleDefinition ScriptedLibrary(const std::set<std::string>& lacking, DWORD loadError = 0) {
    vlx::ModuleDefinition module;
    if (!lacking.count("CreateVssBackupComponentsInternal"))
        module.entryPoints["CreateVssBackupComponentsInternal"] = vlx::EntryPoint(ScriptCreate);
    if (!lacking.count("VssFreeSnapshotPropertiesInternal"))
        module.entryPoints["VssFreeSnapshotPropertiesInternal"] = vlx::EntryPoint(ScriptFree);
    module.loadError = loadError;
    return module;
}

const std::vector<std::string> kAllSteps = {"Create", "InitializeForBackup null", "SetBackupState 0 0 5 0",
                                            "SetContext 0x10", "StartSnapshotSet set",
                                            std::string("AddToSnapshotSet E:\\ zero"), "DoSnapshotSet",
                                            "Wait 0xffffffff", "Async.Release", "GetSnapshotProperties added"};

class VolumeSnapshot : public ::testing::Test {
protected:
    void SetUp() override {
        g_script = &script_;
        module_ = std::make_unique<vlx::SystemModule>(u"vssapi.dll", ScriptedLibrary({}));
    }
    void TearDown() override {
        CloseVssBackUp();
        EXPECT_EQ(script_.backupReferences, 0) << "the components object was not released";
        EXPECT_EQ(script_.asyncReferences, 0) << "the asynchronous operation was not released";
        EXPECT_EQ(script_.stringsFreed, script_.stringsHandedOut) << "properties' strings lost or freed twice";
        // The library keeps vssapi.dll loaded on purpose; the test gives its loads back.
        while (HMODULE module = sys().GetModuleHandleW(_T("vssapi.dll"))) sys().FreeLibrary(module);
        module_.reset();
        g_script = nullptr;
    }
    void Register(vlx::ModuleDefinition definition) {
        module_.reset();
        module_ = std::make_unique<vlx::SystemModule>(u"vssapi.dll", std::move(definition));
    }
    static BOOL Initialize(LPCWSTR volume = _T("E:"), LPWSTR device = nullptr, VSS_ID* id = nullptr) {
        return InitializeVssBackUp(volume, VSS_BT_COPY, device, id);
    }

    Script script_;
    std::unique_ptr<vlx::SystemModule> module_;
};

TEST_F(VolumeSnapshot, MakesTheCopyWithTheDocumentedCallsAndFillsTheCallersOutputs) {
    std::vector<std::string> loaded;
    const auto loadLibrary = sys().LoadLibraryW;
    ApiPatch<&Win32Api::LoadLibraryW> load([&](LPCWSTR path) {
        loaded.push_back(U(path));
        return loadLibrary(path);
    });
    WCHAR device[MAX_PATH];
    std::fill(std::begin(device), std::end(device), u'#');
    VSS_ID id{};
    ASSERT_EQ(Initialize(_T("E:"), device, &id), TRUE);
    EXPECT_EQ(loaded, std::vector<std::string>{"C:\\Windows\\System32\\vssapi.dll"});
    EXPECT_EQ(script_.log, kAllSteps);
    EXPECT_EQ(U(device), kDevice);
    EXPECT_EQ(IdText(id), "added");
    const VssSnapshotState& state = VelmoraSnapshotState();
    EXPECT_EQ(state.bReady, TRUE);
    EXPECT_NE(state.hVssApi, nullptr);
    EXPECT_EQ(state.pBackup, &g_backup);

    script_.log.clear();
    CloseVssBackUp();
    EXPECT_EQ(script_.log, (std::vector<std::string>{"Free", "Release"}));
    EXPECT_EQ(state.bReady, FALSE);
    EXPECT_EQ(state.pBackup, nullptr);
    EXPECT_EQ(state.pfnVssFreeSnapshotProperties, nullptr);
    EXPECT_EQ(vlx::ModuleLoadCount(u"vssapi.dll"), 1) << "vssapi.dll is not unloaded";

    script_.log.clear();
    CloseVssBackUp();  // nothing is left to give back
    EXPECT_TRUE(script_.log.empty());
}

TEST_F(VolumeSnapshot, EachFailingStepEndsTheCallAndLeavesWhatItHeldForClose) {
    struct Case {
        const char* failing;      // the answer made to fail
        HRESULT answer;
        size_t stepsCalled;       // how many of kAllSteps ran
        bool holdsObject;         // pBackup set, released by the close
    };
    const Case cases[] = {
        {"Create", E_ACCESSDENIED, 1, true},  // an object handed out with a failure is still released
        {"InitializeForBackup", E_FAIL, 2, true},
        {"SetBackupState", E_INVALIDARG, 3, true},
        {"SetContext", E_INVALIDARG, 4, true},
        {"StartSnapshotSet", VSS_E_BAD_STATE, 5, true},
        {"StartSnapshotSet", S_FALSE, 5, true},  // a success code other than S_OK is a failure here
        {"AddToSnapshotSet", VSS_E_VOLUME_NOT_SUPPORTED, 6, true},
        {"DoSnapshotSet", VSS_E_BAD_STATE, 7, true},
        {"Wait", VSS_E_UNEXPECTED_PROVIDER_ERROR, 9, true},  // the operation is released all the same
        {"GetSnapshotProperties", VSS_E_OBJECT_NOT_FOUND, 10, true},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(std::string(each.failing) + " " + Hex(static_cast<ULONG>(each.answer)));
        script_.log.clear();
        script_.answers = {{each.failing, each.answer}};
        EXPECT_EQ(Initialize(), FALSE);
        EXPECT_EQ(script_.log, std::vector<std::string>(kAllSteps.begin(), kAllSteps.begin() + each.stepsCalled));
        const VssSnapshotState& state = VelmoraSnapshotState();
        EXPECT_EQ(state.bReady, FALSE);
        EXPECT_NE(state.hVssApi, nullptr);
        EXPECT_EQ(state.pBackup != nullptr, each.holdsObject);
        EXPECT_EQ(VssOpenFile(WStrFromUtf8(std::string(kVolume) + "a.txt").c_str()), nullptr);
        script_.log.clear();
        CloseVssBackUp();
        EXPECT_EQ(script_.log, (std::vector<std::string>{"Free", "Release"}));
    }
}

TEST_F(VolumeSnapshot, FailuresBeforeAnyObjectLeaveNothingToRelease) {
    struct Case {
        const char* what;
        vlx::ModuleDefinition module;
        bool createResolved, freeResolved;
    };
    Case cases[] = {
        {"library missing", ScriptedLibrary({}, ERROR_MOD_NOT_FOUND), false, false},
        {"no create entry", ScriptedLibrary({"CreateVssBackupComponentsInternal"}), false, false},
        {"no free entry", ScriptedLibrary({"VssFreeSnapshotPropertiesInternal"}), true, false},
    };
    for (Case& each : cases) {
        SCOPED_TRACE(each.what);
        Register(std::move(each.module));
        sys().SetLastError(kJunkError);
        EXPECT_EQ(Initialize(), FALSE);
        if (std::string(each.what) != "library missing") {
            EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_PROC_NOT_FOUND)) << "the loader's code stands";
            EXPECT_NE(VelmoraSnapshotState().hVssApi, nullptr) << "the library stays loaded";
        }
        EXPECT_EQ(VelmoraSnapshotState().pfnCreateVssBackupComponents != nullptr, each.createResolved);
        EXPECT_EQ(VelmoraSnapshotState().pfnVssFreeSnapshotProperties != nullptr, each.freeResolved);
        EXPECT_TRUE(script_.log.empty());
        CloseVssBackUp();
        EXPECT_TRUE(script_.log.empty());
        EXPECT_EQ(VelmoraSnapshotState().hVssApi, nullptr);
    }
}

TEST_F(VolumeSnapshot, ANullObjectAfterSuccessFails) {
    script_.createGivesNull = true;
    EXPECT_EQ(Initialize(), FALSE);
    EXPECT_EQ(script_.log, std::vector<std::string>{"Create"});
}

TEST_F(VolumeSnapshot, ASetAlreadyInProgressCountsAsStarted) {
    script_.answers = {{"StartSnapshotSet", VSS_E_SNAPSHOT_SET_IN_PROGRESS}};
    EXPECT_EQ(Initialize(), TRUE);
    EXPECT_EQ(script_.log, kAllSteps);
}

TEST_F(VolumeSnapshot, VolumeArgumentReachesTheSetWithOneTrailingBackslash) {
    const std::string longName(258, 'v');
    struct Case {
        std::string volume;
        BOOL result;
        std::string added;  // empty: AddToSnapshotSet is not reached
    };
    const Case cases[] = {
        {"E:", TRUE, "E:\\"},
        {"E:\\", TRUE, "E:\\"},
        {kVolume, TRUE, kVolume},
        {"", FALSE, ""},                            // after the object was set up: Partial
        {longName, TRUE, longName + "\\"},          // 259 units with the backslash still fit
        {longName + "v", FALSE, ""},                // no room left for the backslash
        {longName + "\\", TRUE, longName + "\\"},    // 259 units as given
        {std::string(260, 'v'), FALSE, ""},         // does not fit at all
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.volume.size());
        script_.log.clear();
        EXPECT_EQ(Initialize(WStrFromUtf8(each.volume).c_str()), each.result);
        std::string added;
        for (const std::string& line : script_.log) {
            if (line.rfind("AddToSnapshotSet ", 0) == 0) added = line.substr(17, line.size() - 17 - 5);
        }
        EXPECT_EQ(added, each.added);
        if (!each.result) {
            EXPECT_EQ(script_.log.back(), "StartSnapshotSet set");
        }
        CloseVssBackUp();
    }
}

TEST_F(VolumeSnapshot, ANamedSnapshotIsUsedWithoutAddingTheVolume) {
    VSS_ID id = kChosenId;
    ASSERT_EQ(Initialize(_T("E:"), nullptr, &id), TRUE);
    EXPECT_EQ(script_.log, (std::vector<std::string>{"Create", "InitializeForBackup null", "SetBackupState 0 0 5 0",
                                                     "SetContext 0x10", "StartSnapshotSet set", "DoSnapshotSet",
                                                     "Wait 0xffffffff", "Async.Release", "GetSnapshotProperties chosen"}));
    EXPECT_EQ(IdText(id), "chosen");

    // A failure leaves the caller's id as it was.
    CloseVssBackUp();
    id = VSS_ID{};
    script_.answers = {{"GetSnapshotProperties", VSS_E_OBJECT_NOT_FOUND}};
    EXPECT_EQ(Initialize(_T("E:"), nullptr, &id), FALSE);
    EXPECT_EQ(IdText(id), "zero");
}

TEST_F(VolumeSnapshot, PropertiesAreFreedOnceHoweverCloseAndInitializeAreOrdered) {
    ASSERT_EQ(Initialize(), TRUE);
    script_.answers = {{"InitializeForBackup", E_FAIL}};
    EXPECT_EQ(Initialize(), FALSE);  // holds the first call's properties still
    CloseVssBackUp();
    EXPECT_EQ(script_.stringsFreed, 2);
    EXPECT_EQ(Initialize(), FALSE);
    CloseVssBackUp();
    CloseVssBackUp();
    EXPECT_EQ(script_.stringsFreed, 2);
    // The first object was dropped by the second initialisation, not released: it lives on, as documented.
    EXPECT_EQ(script_.backupReferences, 1);
    g_backup.Release();
}

TEST_F(VolumeSnapshot, OpenFileRedirectsPathsOnTheCopiedVolumeIntoTheCopy) {
    std::vector<std::string> opened;
    DWORD openError = 0;
    ApiPatch<&Win32Api::CreateFileW> open([&](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                                              DWORD disposition, DWORD flags, HANDLE templateFile) {
        opened.push_back(U(path) + " " + Hex(access) + " " + Hex(share) + (security ? " sa" : " null") + " " +
                         std::to_string(disposition) + " " + Hex(flags) + (templateFile ? " template" : " null"));
        if (openError != 0) {
            sys().SetLastError(openError);
            return INVALID_HANDLE_VALUE;
        }
        return ScriptedFiles::kFile;
    });
    EXPECT_EQ(VssOpenFile(WStrFromUtf8(std::string(kVolume) + "a.txt").c_str()), nullptr) << "before any copy";
    ASSERT_EQ(Initialize(), TRUE);

    // The redirected path is the device, one backslash and what follows the volume name: 259 units fit.
    const size_t room = MAX_PATH - 1 - (std::strlen(kDevice) + 1);
    const std::string volumeUpper = "\\\\?\\VOLUME{6D2BD0A8-0F43-4C9F-9F4B-2A6C3E9D5A11}\\";
    struct Case {
        std::string path;
        std::string expected;  // empty: refused before any open
    };
    const Case cases[] = {
        {std::string(kVolume) + "dir\\file.txt", std::string(kDevice) + "\\dir\\file.txt"},
        {volumeUpper + "Dir\\File.txt", std::string(kDevice) + "\\Dir\\File.txt"},  // the prefix ignores case
        {kVolume, std::string(kDevice) + "\\"},                                     // the copy's root
        {"E:\\dir\\file.txt", ""},                                                   // drive letters are not the name
        {std::string(kVolume).substr(0, 20), ""},                                    // shorter than the name
        {std::string(kVolume) + std::string(room, 'x'), std::string(kDevice) + "\\" + std::string(room, 'x')},
        {std::string(kVolume) + std::string(room + 1, 'x'), ""},  // the redirected path would not fit
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.path);
        opened.clear();
        const HANDLE file = VssOpenFile(WStrFromUtf8(each.path).c_str());
        if (each.expected.empty()) {
            EXPECT_EQ(file, nullptr);
            EXPECT_TRUE(opened.empty());
        } else {
            EXPECT_EQ(file, ScriptedFiles::kFile);
            EXPECT_EQ(opened, std::vector<std::string>{each.expected + " 0x80000000 0x0 null 3 0x80 null"});
        }
    }

    openError = ERROR_SHARING_VIOLATION;
    sys().SetLastError(kJunkError);
    EXPECT_EQ(VssOpenFile(WStrFromUtf8(std::string(kVolume) + "a.txt").c_str()), nullptr) << "null, not INVALID_HANDLE_VALUE";
    EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));

    CloseVssBackUp();
    opened.clear();
    EXPECT_EQ(VssOpenFile(WStrFromUtf8(std::string(kVolume) + "a.txt").c_str()), nullptr) << "after the close";
    EXPECT_TRUE(opened.empty());
}

}  // namespace
