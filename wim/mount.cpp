// Image mount and unmount: MountWim shows one image of an image file under an empty folder, UnMountWim
// takes it away again, keeping or discarding what was changed there. Each is one imaging call between
// loading the system's imaging library and releasing it; the mount itself is the system's to keep.
#include "wim_internal.h"

namespace {

// What mount and unmount share: the arguments checked, the library loaded, the one entry point resolved
// and both paths copied; then the call, and the library released before its result is returned.
template <class Function, class Call>
BOOL CallWithMountFolder(const CString& imageFile, const CString& mountFolder, LPCSTR entryName, Call call) {
    return VelmoraGuardedCall<BOOL>(FALSE, [&]() -> BOOL {
        if (imageFile.IsEmpty() || mountFolder.IsEmpty()) return FALSE;
        const HMODULE library = LoadSystemLibrary(_T("wimgapi.dll"));
        if (library == nullptr) return FALSE;  // the loader's last error stands
        WimOperation operation(library);
        Function entry = nullptr;
        if (!operation.Resolve(entry, entryName)) return FALSE;
        WCHAR imagePath[MAX_PATH];
        WCHAR mountPath[MAX_PATH];
        if (!CopyToPathBuffer(imageFile, imagePath) || !CopyToPathBuffer(mountFolder, mountPath)) return FALSE;
        const BOOL result = call(entry, mountPath, imagePath);
        operation.Finish();
        return result;
    });
}

}  // namespace

BOOL MountWim(CString imageFile, CString mountFolder, CString temporaryFolder, DWORD index) {
    return CallWithMountFolder<WIMMountImageFunction>(
        imageFile, mountFolder, "WIMMountImage", [&](WIMMountImageFunction mountImage, LPCWSTR mountPath, LPCWSTR imagePath) {
            // Without a temporary folder the imaging library mounts for reading only; the user's temporary
            // folder is deliberately not put in its place.
            WCHAR temporaryPath[MAX_PATH];
            LPCWSTR temporary = nullptr;
            if (!temporaryFolder.IsEmpty()) {
                if (!CopyToPathBuffer(temporaryFolder, temporaryPath)) return FALSE;
                temporary = temporaryPath;
            }
            // The imaging library takes the folder first and the image file second.
            return mountImage(mountPath, imagePath, index, temporary);
        });
}

BOOL UnMountWim(CString imageFile, CString mountFolder, DWORD index, BOOL commit) {
    return CallWithMountFolder<WIMUnmountImageFunction>(
        imageFile, mountFolder, "WIMUnmountImage",
        [&](WIMUnmountImageFunction unmountImage, LPCWSTR mountPath, LPCWSTR imagePath) {
            return unmountImage(mountPath, imagePath, index, commit);  // the flag passes as given
        });
}
