// GetShortCutTargetPath: the command line a shell link stands for, read through the shell-link object.
#include "shell_internal.h"

namespace {

// Writes the expanded target, one space and the arguments into the caller's buffer. A command line cut
// short would name another program or other arguments, so one that does not fit is not delivered: the
// buffer is left empty and false comes back. The lengths are checked before wcscat_s, whose overflow ends
// the process on Windows.
bool WriteCommandLine(LPWSTR buffer, LPCWSTR target, LPCWSTR arguments) {
    const DWORD needed = sys().ExpandEnvironmentStringsW(target, buffer, MAX_PATH);
    if (needed == 0 || needed > MAX_PATH || WStrLen(buffer) + 1 + WStrLen(arguments) + 1 > MAX_PATH) {
        buffer[0] = 0;
        return false;
    }
    sys().wcscat_s(buffer, MAX_PATH, _T(" "));
    sys().wcscat_s(buffer, MAX_PATH, arguments);
    return true;
}

}  // namespace

BOOL GetShortCutTargetPath(CString linkPath, LPWSTR buffer, WIN32_FIND_DATAW* pFindData) {
    return VelmoraGuardedCall<BOOL>(FALSE, [&]() -> BOOL {
        if (buffer == nullptr) return FALSE;
        UniqueApartment apartment;
        UniqueComPtr<IShellLinkW> link;
        if (FAILED(sys().CoCreateInstance(kShellLinkClass, nullptr, CLSCTX_INPROC_SERVER, kShellLinkInterface, link.put_void())) ||
            !link) {
            apartment.Leave();
            return FALSE;
        }
        UniqueComPtr<IPersistFile> file;
        if (FAILED(link->QueryInterface(kPersistFileInterface, file.put_void())) || !file) {
            link.reset();
            apartment.Leave();
            return FALSE;
        }
        if (FAILED(file->Load(linkPath, STGM_READ))) {
            file.reset();
            link.reset();
            apartment.Leave();
            return FALSE;
        }

        // A failed read of the path leaves it empty; only the arguments decide the result.
        WCHAR target[MAX_PATH] = {};
        link->GetPath(target, MAX_PATH, pFindData, 0);
        target[MAX_PATH - 1] = 0;
        WCHAR arguments[MAX_PATH] = {};
        const bool argumentsRead = SUCCEEDED(link->GetArguments(arguments, MAX_PATH));
        arguments[MAX_PATH - 1] = 0;

        file.reset();
        link.reset();
        apartment.Leave();
        const bool written = WriteCommandLine(buffer, target, arguments);
        return written && argumentsRead ? TRUE : FALSE;
    });
}
