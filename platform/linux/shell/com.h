// The COM runtime of the Linux platform as its objects see it: a reference count shared by every object,
// the registry of classes that CoCreateInstance serves, and BSTR helpers.
//
// An object derives from its published interface first (so that the interface's vtable is the object's
// primary one and its slots are where a Windows caller finds them) and from ComLifetime second; it answers
// QueryInterface itself and forwards AddRef and Release with VLX_COM_LIFETIME.
#pragma once

#include <atomic>

#include "../../wstr.h"
#include "../core/table.h"

namespace vlx {

class ComLifetime {
public:
    ComLifetime();
    virtual ~ComLifetime();
    ComLifetime(const ComLifetime&) = delete;
    ComLifetime& operator=(const ComLifetime&) = delete;

    ULONG AddReference() { return ++references_; }
    // Deletes the object when the last reference goes.
    ULONG DropReference();

private:
    std::atomic<ULONG> references_{1};
};

#define VLX_COM_LIFETIME                                                    \
    STDMETHOD_(ULONG, AddRef)() override { return AddReference(); }   \
    STDMETHOD_(ULONG, Release)() override { return DropReference(); }

// Makes a new object of a class for an interface it has; the factory answers as QueryInterface does.
using ComFactory = HRESULT (*)(REFIID riid, void** object);
// Call from a static initialiser: static const bool registered = RegisterComClass(kClass, Factory);
bool RegisterComClass(const CLSID& classId, ComFactory factory);

extern const IID kUnknownInterface;
extern const IID kDispatchInterface;

// QueryInterface for an object with one interface of its own: IUnknown, IDispatch (unless told not) and that one.
template <class Object, class Interface>
HRESULT AnswerQuery(Object* self, Interface* as, REFIID riid, void** object, const IID& own, bool dispatch = true) {
    if (object == nullptr) return E_POINTER;
    if (riid == kUnknownInterface || riid == own || (dispatch && riid == kDispatchInterface)) {
        *object = as;
        self->AddReference();
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

// The text of a BSTR (empty for null) and a new BSTR of a text.
WString BstrText(BSTR text);
BSTR NewBstr(const WString& text);

// The IDispatch members our shell objects do not serve: they are called through their vtables.
#define VLX_NO_AUTOMATION                                                                                      \
    STDMETHOD(GetTypeInfoCount)(UINT* count) override {                                                        \
        if (count != nullptr) *count = 0;                                                                      \
        return S_OK;                                                                                           \
    }                                                                                                          \
    STDMETHOD(GetTypeInfo)(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }                            \
    STDMETHOD(GetIDsOfNames)(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }           \
    STDMETHOD(Invoke)(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override { return E_NOTIMPL; }

}  // namespace vlx
