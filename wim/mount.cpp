// Image mount and unmount: MountWim shows one image of an image file under an empty folder, UnMountWim
// takes it away again, keeping or discarding what was changed there. Each is one imaging call between
// loading the system's imaging library and releasing it; the mount itself is the system's to keep.
#include "wim_internal.h"

BOOL MountWim(CString imageFile, CString mountFolder, CString temporaryFolder, DWORD index) {
    return VelmoraGuardedCall<BOOL>(FALSE, [&]() -> BOOL {
        if (imageFile.IsEmpty() || mountFolder.IsEmpty()) return FALSE;
        const HMODULE library = LoadSystemLibrary(_T("wimgapi.dll"));
        if (library == nullptr) return FALSE;
        WimOperation operation(library);
        WIMMountImageFunction mountImage = nullptr;
        if (!operation.Resolve(mountImage, "WIMMountImage")) return FALSE;

        WCHAR imagePath[MAX_PATH];
        WCHAR mountPath[MAX_PATH];
        if (!CopyToPathBuffer(imageFile, imagePath) || !CopyToPathBuffer(mountFolder, mountPath)) return FALSE;
        // Without a temporary folder the imaging library mounts for reading only; the user's temporary
        // folder is deliberately not put in its place.
        WCHAR temporaryPath[MAX_PATH];
        LPCWSTR temporary = nullptr;
        if (!temporaryFolder.IsEmpty()) {
            if (!CopyToPathBuffer(temporaryFolder, temporaryPath)) return FALSE;
            temporary = temporaryPath;
        }
        // The imaging library takes the folder first and the image file second.
        const BOOL mounted = mountImage(mountPath, imagePath, index, temporary);
        operation.Finish();
        return mounted;
    });
}

BOOL UnMountWim(CString imageFile, CString mountFolder, DWORD index, BOOL commit) {
    return VelmoraGuardedCall<BOOL>(FALSE, [&]() -> BOOL {
        if (imageFile.IsEmpty() || mountFolder.IsEmpty()) return FALSE;
        const HMODULE library = LoadSystemLibrary(_T("wimgapi.dll"));
        if (library == nullptr) return FALSE;
        WimOperation operation(library);
        WIMUnmountImageFunction unmountImage = nullptr;
        if (!operation.Resolve(unmountImage, "WIMUnmountImage")) return FALSE;

        WCHAR imagePath[MAX_PATH];
        WCHAR mountPath[MAX_PATH];
        if (!CopyToPathBuffer(imageFile, imagePath) || !CopyToPathBuffer(mountFolder, mountPath)) return FALSE;
        const BOOL unmounted = unmountImage(mountPath, imagePath, index, commit);  // the flag passes as given
        operation.Finish();
        return unmounted;
    });
}
