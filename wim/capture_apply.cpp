// Image capture and apply: CompressToWim adds an image of a folder tree to an image file, ExtractFromWim
// writes one image of a file out to a folder, both through the system's imaging library with progress
// reported to the caller's percentage and text window.
#include "wim_internal.h"

namespace {

constexpr LPCWSTR kImagingLibrary = _T("wimgapi.dll");

// The entry points capture and apply share, looked up in this order before anything is opened.
struct ImageFileEntryPoints {
    WIMCreateFileFunction createFile = nullptr;
    WIMRegisterMessageCallbackFunction registerCallback = nullptr;
    WIMUnregisterMessageCallbackFunction unregisterCallback = nullptr;
    WIMCloseHandleFunction closeHandle = nullptr;
    WIMSetTemporaryPathFunction setTemporaryPath = nullptr;

    bool Resolve(WimOperation& operation) {
        return operation.Resolve(createFile, "WIMCreateFile") &&
               operation.Resolve(registerCallback, "WIMRegisterMessageCallback") &&
               operation.Resolve(unregisterCallback, "WIMUnregisterMessageCallback") &&
               operation.Resolve(closeHandle, "WIMCloseHandle") &&
               operation.Resolve(setTemporaryPath, "WIMSetTemporaryPath");
    }
};

// Opens the image file, registers the caller's progress targets and hands over the temporary folder: the
// steps capture and apply share after their paths are copied. False when a step failed; the operation
// then holds exactly what that step's exit must release.
bool OpenImageFile(WimOperation& operation, const ImageFileEntryPoints& entry, LPCWSTR imagePath, DWORD access,
                   DWORD disposition, DWORD flags, DWORD compression, const CString& temporaryFolder, DWORD* percent,
                   CWnd* textWindow, WimCallbackParam& param, HANDLE& file) {
    file = entry.createFile(imagePath, access, disposition, flags, compression, nullptr);
    if (file == nullptr) return false;
    operation.HoldFile(file, entry.closeHandle);
    if (!RegisterProgressTargets(entry.registerCallback, file, param, percent, textWindow)) return false;
    operation.UnregisterOnExit(entry.unregisterCallback);
    return SetTemporaryFolder(entry.setTemporaryPath, file, temporaryFolder);
}

}  // namespace

BOOL CompressToWim(CString imageFile, CString sourceFolder, CString temporaryFolder, DWORD compression, DWORD* percent,
                   CWnd* textWindow) {
    return VelmoraGuardedCall<BOOL>(FALSE, [&]() -> BOOL {
        if (imageFile.IsEmpty() || sourceFolder.IsEmpty()) return FALSE;
        const HMODULE library = LoadSystemLibrary(kImagingLibrary);
        if (library == nullptr) return FALSE;  // the loader's last error stands
        WimCallbackParam param{};              // declared first: it outlives the registration
        WimOperation operation(library);
        ImageFileEntryPoints entry;
        WIMCaptureImageFunction captureImage = nullptr;
        if (!entry.Resolve(operation) || !operation.Resolve(captureImage, "WIMCaptureImage")) return FALSE;

        WCHAR imagePath[MAX_PATH];
        WCHAR sourcePath[MAX_PATH];
        if (!CopyToPathBuffer(imageFile, imagePath) || !CopyToPathBuffer(sourceFolder, sourcePath)) return FALSE;
        HANDLE file = nullptr;
        if (!OpenImageFile(operation, entry, imagePath, WIM_GENERIC_READ | WIM_GENERIC_WRITE, WIM_OPEN_ALWAYS,
                           WIM_FLAG_SHARE_WRITE, compression, temporaryFolder, percent, textWindow, param, file))
            return FALSE;
        const HANDLE image = captureImage(file, sourcePath, 0);
        if (image == nullptr) return FALSE;
        operation.HoldImage(image);
        return TRUE;
    });
}

BOOL ExtractFromWim(CString imageFile, CString targetFolder, CString temporaryFolder, DWORD index, DWORD* percent,
                    CWnd* textWindow) {
    return VelmoraGuardedCall<BOOL>(FALSE, [&]() -> BOOL {
        if (imageFile.IsEmpty() || targetFolder.IsEmpty()) return FALSE;
        const HMODULE library = LoadSystemLibrary(kImagingLibrary);
        if (library == nullptr) return FALSE;
        WimCallbackParam param{};
        WimOperation operation(library);
        ImageFileEntryPoints entry;
        WIMLoadImageFunction loadImage = nullptr;
        WIMApplyImageFunction applyImage = nullptr;
        if (!entry.Resolve(operation) || !operation.Resolve(loadImage, "WIMLoadImage") ||
            !operation.Resolve(applyImage, "WIMApplyImage"))
            return FALSE;

        WCHAR imagePath[MAX_PATH];
        WCHAR targetPath[MAX_PATH];
        if (!CopyToPathBuffer(imageFile, imagePath) || !CopyToPathBuffer(targetFolder, targetPath)) return FALSE;
        HANDLE file = nullptr;
        if (!OpenImageFile(operation, entry, imagePath, WIM_GENERIC_READ, WIM_OPEN_EXISTING, 0, WIM_COMPRESS_NONE,
                           temporaryFolder, percent, textWindow, param, file))
            return FALSE;
        const HANDLE image = loadImage(file, index);
        if (image == nullptr) return FALSE;
        operation.HoldImage(image);
        // FILEINFO makes the imaging library name each file it writes, for the caller's text window. A failed
        // apply leaves through the same release as a successful one, with its own result.
        const BOOL applied = applyImage(image, targetPath, WIM_FLAG_FILEINFO);
        operation.Finish();
        return applied;
    });
}
