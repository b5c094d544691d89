// COM of the Linux platform: apartments per thread, classes by CLSID and IID, real reference counts,
// vtable slots where a Windows-built caller looks for them, BSTR and VARIANT, and the environment-string
// expansion and bounded append that the shortcut export uses.
#include <thread>

#include "../support/host_fixture.h"

namespace {

using namespace testing_support;

const CLSID kShell = {0x13709620, 0xC279, 0x11CE, {0xA4, 0x9E, 0x44, 0x45, 0x53, 0x54, 0x00, 0x00}};
const IID kShellDispatch = {0xD8F015C0, 0xC278, 0x11CE, {0xA4, 0x9E, 0x44, 0x45, 0x53, 0x54, 0x00, 0x00}};
const CLSID kLink = {0x00021401, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
const IID kLinkW = {0x000214F9, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
const IID kPersistFile = {0x0000010B, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

// The function in slot `slot` of an interface's vtable, as a caller built elsewhere would reach it.
template <class Function, class Interface>
Function Slot(Interface* object, size_t slot) {
    return reinterpret_cast<Function>((*reinterpret_cast<void***>(object))[slot]);
}

class Com : public HostFolderTest {
protected:
    void SetUp() override {
        HostFolderTest::SetUp();
        live_ = vlx::LiveComObjectCount();
    }
    void TearDown() override {
        EXPECT_EQ(vlx::LiveComObjectCount(), live_);
        EXPECT_EQ(vlx::ComApartmentDepth(), 0);
        HostFolderTest::TearDown();
    }
    size_t live_ = 0;
};

TEST_F(Com, ObjectsNeedTheThreadsApartmentAndAKnownClassAndInterface) {
    void* object = reinterpret_cast<void*>(1);
    EXPECT_EQ(sys().CoCreateInstance(kShell, nullptr, CLSCTX_INPROC_SERVER, kShellDispatch, &object), CO_E_NOTINITIALIZED);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(sys().CoInitialize(nullptr), S_OK);
    EXPECT_EQ(sys().CoInitialize(nullptr), S_FALSE);
    std::thread([] {
        EXPECT_EQ(vlx::ComApartmentDepth(), 0);  // apartments belong to threads
        EXPECT_EQ(sys().CoInitialize(nullptr), S_OK);
        sys().CoUninitialize();
    }).join();
    EXPECT_EQ(sys().CoCreateInstance(kShellDispatch, nullptr, CLSCTX_INPROC_SERVER, kShellDispatch, &object), REGDB_E_CLASSNOTREG);
    EXPECT_EQ(sys().CoCreateInstance(kShell, nullptr, CLSCTX_INPROC_SERVER, kLinkW, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);

    ASSERT_EQ(sys().CoCreateInstance(kLink, nullptr, CLSCTX_INPROC_SERVER, kLinkW, &object), S_OK);
    auto* link = static_cast<IShellLinkW*>(object);
    EXPECT_EQ(vlx::LiveComObjectCount(), live_ + 1);
    IPersistFile* file = nullptr;
    ASSERT_EQ(link->QueryInterface(kPersistFile, reinterpret_cast<void**>(&file)), S_OK);
    EXPECT_EQ(link->AddRef(), 3u);
    EXPECT_EQ(link->Release(), 2u);
    EXPECT_EQ(file->Release(), 1u);
    EXPECT_EQ(link->Release(), 0u);
    EXPECT_EQ(vlx::LiveComObjectCount(), live_);
    sys().CoUninitialize();
    sys().CoUninitialize();
    sys().CoUninitialize();  // one too many changes nothing
}

TEST_F(Com, MethodsSitInThePublishedSlots) {
    WriteFile("a.txt", "a");
    ASSERT_EQ(sys().CoInitialize(nullptr), S_OK);
    void* object = nullptr;
    ASSERT_EQ(sys().CoCreateInstance(kLink, nullptr, CLSCTX_INPROC_SERVER, kLinkW, &object), S_OK);
    auto* link = static_cast<IShellLinkW*>(object);
    IPersistFile* file = nullptr;
    ASSERT_EQ(link->QueryInterface(kPersistFile, reinterpret_cast<void**>(&file)), S_OK);
    // IPersistFile::Load is slot 5 (IUnknown 0-2, GetClassID 3, IsDirty 4); a text file is no link.
    using Load = HRESULT (*)(IPersistFile*, LPCOLESTR, DWORD);
    EXPECT_EQ(Slot<Load>(file, 5)(file, Win("a.txt"), STGM_READ), HRESULT_FROM_WIN32(ERROR_FILE_CORRUPT));
    // IShellLinkW: SetArguments is slot 11 and GetArguments slot 10.
    using SetArguments = HRESULT (*)(IShellLinkW*, LPCWSTR);
    using GetArguments = HRESULT (*)(IShellLinkW*, LPWSTR, int);
    EXPECT_EQ(Slot<SetArguments>(link, 11)(link, u"/x"), S_OK);
    WCHAR arguments[8] = {};
    EXPECT_EQ(Slot<GetArguments>(link, 10)(link, arguments, 8), S_OK);
    EXPECT_EQ(U(arguments), "/x");
    file->Release();
    link->Release();

    // IShellDispatch::NameSpace is slot 9 (IDispatch ends at 6, then get_Application, get_Parent); a
    // Folder's Items is slot 11.
    ASSERT_EQ(sys().CoCreateInstance(kShell, nullptr, CLSCTX_INPROC_SERVER, kShellDispatch, &object), S_OK);
    auto* shell = static_cast<IShellDispatch*>(object);
    VARIANT where;
    sys().VariantInit(&where);
    where.vt = VT_BSTR;
    where.bstrVal = sys().SysAllocString(Win(""));
    using NameSpace = HRESULT (*)(IShellDispatch*, VARIANT, Folder**);
    Folder* folder = nullptr;
    ASSERT_EQ(Slot<NameSpace>(shell, 9)(shell, where, &folder), S_OK);
    using Items = HRESULT (*)(Folder*, FolderItems**);
    FolderItems* items = nullptr;
    ASSERT_EQ(Slot<Items>(folder, 11)(folder, &items), S_OK);
    LONG count = 0;
    EXPECT_EQ(items->get_Count(&count), S_OK);
    EXPECT_EQ(count, 1);
    items->Release();
    folder->Release();
    shell->Release();
    sys().VariantClear(&where);
    sys().CoUninitialize();
}

TEST_F(Com, StringsAndVariantsOwnWhatTheyHold) {
    BSTR text = sys().SysAllocString(u"日本");
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(*reinterpret_cast<uint32_t*>(reinterpret_cast<BYTE*>(text) - 4), 4u);  // the length in bytes, before the text
    EXPECT_EQ(U(text), "日本");
    EXPECT_EQ(sys().SysAllocString(nullptr), nullptr);
    sys().SysFreeString(nullptr);
    VARIANT value;
    sys().VariantInit(&value);
    value.vt = VT_BSTR;
    value.bstrVal = text;
    EXPECT_EQ(sys().VariantClear(&value), S_OK);  // frees the string (the sanitizer would see a leak)
    EXPECT_EQ(value.vt, VT_EMPTY);

    ASSERT_EQ(sys().CoInitialize(nullptr), S_OK);
    void* object = nullptr;
    ASSERT_EQ(sys().CoCreateInstance(kShell, nullptr, CLSCTX_INPROC_SERVER, kShellDispatch, &object), S_OK);
    value.vt = VT_DISPATCH;
    value.pdispVal = static_cast<IShellDispatch*>(object);
    EXPECT_EQ(sys().VariantClear(&value), S_OK);  // releases the reference it held
    EXPECT_EQ(vlx::LiveComObjectCount(), live_);
    sys().CoUninitialize();
}

TEST_F(Com, EnvironmentStringsExpandKnownNamesAndAppendStaysInItsBuffer) {
    setenv("VELMORA_A", "alpha", 1);
    const struct Case {
        const char *text, *expanded;
    } cases[] = {
        {"%VELMORA_A%\\x", "alpha\\x"}, {"%velmora_a%", "alpha"}, {"%NOT_SET_HERE%\\x", "%NOT_SET_HERE%\\x"},
        {"%NOT_SET_HERE%VELMORA_A%", "%NOT_SET_HEREalpha"} /* the closing % of an unknown name may open the next */, {"100%", "100%"}, {"%%", "%%"}, {"", ""},
    };
    for (const Case& c : cases) {
        WCHAR out[64];
        const DWORD needed = sys().ExpandEnvironmentStringsW(W(c.text), out, 64);
        EXPECT_EQ(U(out), c.expanded) << c.text;
        EXPECT_EQ(needed, WStrLen(out) + 1) << c.text;
    }
    WCHAR small[4];
    EXPECT_EQ(sys().ExpandEnvironmentStringsW(u"%VELMORA_A%", small, 4), 6u);  // the length needed
    unsetenv("VELMORA_A");

    WCHAR buffer[6] = u"ab";
    EXPECT_EQ(sys().wcscat_s(buffer, 6, u"cde"), 0);
    EXPECT_EQ(U(buffer), "abcde");
    EXPECT_EQ(sys().wcscat_s(buffer, 6, u"f"), ERANGE);
    EXPECT_EQ(buffer[0], 0);
}

}  // namespace
