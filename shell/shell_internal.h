// What the shell family's exports share: the classes and interfaces they ask COM for, and a path as the
// string VARIANT that the shell's automation methods take.
#pragma once

#include "../frame/frame_internal.h"
#include "../platform/unique_handles.h"

// Shell.Application, as IShellDispatch.
inline constexpr CLSID kShellClass = {0x13709620, 0xC279, 0x11CE, {0xA4, 0x9E, 0x44, 0x45, 0x53, 0x54, 0x00, 0x00}};
inline constexpr IID kShellDispatchInterface = {0xD8F015C0, 0xC278, 0x11CE, {0xA4, 0x9E, 0x44, 0x45, 0x53, 0x54, 0x00, 0x00}};
// The shell-link object, as IShellLinkW and IPersistFile.
inline constexpr CLSID kShellLinkClass = {0x00021401, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
inline constexpr IID kShellLinkInterface = {0x000214F9, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
inline constexpr IID kPersistFileInterface = {0x0000010B, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

// Fills variant with a copy of text as VT_BSTR; false when the string could not be allocated.
inline bool SetBstr(UniqueVariant& variant, const CString& text) {
    BSTR copy = sys().SysAllocString(text);
    if (copy == nullptr) return false;
    variant.get().vt = VT_BSTR;
    variant.get().bstrVal = copy;
    return true;
}

// Asks the shell for a path as a folder: a folder of the file system, or a zip archive as a folder of its
// entries. Empty when the shell answers a failure or no folder.
inline bool OpenShellFolder(IShellDispatch* shell, const CString& path, UniqueComPtr<Folder>& folder) {
    UniqueVariant location;
    if (!SetBstr(location, path)) return false;
    return SUCCEEDED(shell->NameSpace(location.get(), folder.put())) && folder;
}
