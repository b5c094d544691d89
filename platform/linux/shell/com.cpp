// COM for the library's shell exports: apartments per thread, classes by CLSID, reference-counted objects,
// BSTR and VARIANT.
//
// A thread enters an apartment with CoInitialize (S_OK the first time, S_FALSE for each nested call, every
// success balanced by CoUninitialize) and may create objects only while it is in one. Objects live until
// their last Release, whichever thread that comes from; the count of live objects lets tests prove that
// every reference was given back.
#include "com.h"

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <vector>

#include "../host.h"

namespace vlx {

const IID kUnknownInterface = {0x00000000, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
const IID kDispatchInterface = {0x00020400, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

namespace {

thread_local int t_apartmentEntries = 0;
std::atomic<size_t> g_liveObjects{0};

struct ClassEntry {
    CLSID classId;
    ComFactory factory;
};
std::mutex& RegistryLock() {
    static std::mutex lock;
    return lock;
}
std::vector<ClassEntry>& Registry() {
    static std::vector<ClassEntry> classes;
    return classes;
}

// A BSTR is preceded by its length in bytes and followed by a NUL that the length does not count.
using BstrLength = uint32_t;

}  // namespace

ComLifetime::ComLifetime() { ++g_liveObjects; }
ComLifetime::~ComLifetime() { --g_liveObjects; }

ULONG ComLifetime::DropReference() {
    const ULONG left = --references_;
    if (left == 0) delete this;
    return left;
}

bool RegisterComClass(const CLSID& classId, ComFactory factory) {
    std::lock_guard guard(RegistryLock());
    Registry().push_back({classId, factory});
    return true;
}

size_t LiveComObjectCount() { return g_liveObjects; }
int ComApartmentDepth() { return t_apartmentEntries; }

HRESULT WINAPI CoInitialize(LPVOID reserved) {
    if (reserved != nullptr) return E_INVALIDARG;
    return t_apartmentEntries++ == 0 ? S_OK : S_FALSE;
}

void WINAPI CoUninitialize() {
    if (t_apartmentEntries > 0) --t_apartmentEntries;
}

HRESULT WINAPI CoCreateInstance(REFCLSID classId, LPUNKNOWN outer, DWORD context, REFIID riid, LPVOID* object) {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    if (t_apartmentEntries == 0) return CO_E_NOTINITIALIZED;
    if (outer != nullptr) return CLASS_E_NOAGGREGATION;
    if ((context & CLSCTX_INPROC_SERVER) == 0) return REGDB_E_CLASSNOTREG;
    ComFactory factory = nullptr;
    {
        std::lock_guard guard(RegistryLock());
        for (const ClassEntry& entry : Registry()) {
            if (entry.classId == classId) factory = entry.factory;
        }
    }
    if (factory == nullptr) return REGDB_E_CLASSNOTREG;
    return factory(riid, object);
}

BSTR WINAPI SysAllocString(const OLECHAR* text) {
    if (text == nullptr) return nullptr;
    return NewBstr(WString(text));
}

void WINAPI SysFreeString(BSTR text) {
    if (text != nullptr) std::free(reinterpret_cast<BYTE*>(text) - sizeof(BstrLength));
}

void WINAPI VariantInit(VARIANTARG* variant) {
    if (variant == nullptr) return;
    variant->vt = VT_EMPTY;
    variant->wReserved1 = variant->wReserved2 = variant->wReserved3 = 0;
    variant->llVal = 0;
}

HRESULT WINAPI VariantClear(VARIANTARG* variant) {
    if (variant == nullptr) return E_INVALIDARG;
    switch (variant->vt) {
        case VT_BSTR: SysFreeString(variant->bstrVal); break;
        case VT_DISPATCH:
            if (variant->pdispVal != nullptr) variant->pdispVal->Release();
            break;
        case VT_UNKNOWN:
            if (variant->punkVal != nullptr) variant->punkVal->Release();
            break;
        default: break;
    }
    VariantInit(variant);
    return S_OK;
}

WString BstrText(BSTR text) { return text == nullptr ? WString() : WString(text); }

BSTR NewBstr(const WString& text) {
    const BstrLength bytes = static_cast<BstrLength>(text.size() * sizeof(OLECHAR));
    auto* block = static_cast<BYTE*>(std::malloc(sizeof(BstrLength) + bytes + sizeof(OLECHAR)));
    if (block == nullptr) return nullptr;
    std::memcpy(block, &bytes, sizeof bytes);
    auto* characters = reinterpret_cast<OLECHAR*>(block + sizeof(BstrLength));
    std::memcpy(characters, text.data(), bytes);
    characters[text.size()] = 0;
    return characters;
}

}  // namespace vlx
