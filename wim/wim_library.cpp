// The machinery every image export shares: the message callback and its pump, the fixed path buffers,
// the temporary folder and the order of release.
#include <cstring>

#include "wim_internal.h"

void PumpWaitingMessages() {
    MSG msg;
    while (sys().PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
        sys().TranslateMessage(&msg);
        sys().DispatchMessageW(&msg);
    }
}

DWORD CALLBACK WimMessageCallback(DWORD messageId, WPARAM wParam, LPARAM /*lParam*/, PVOID userData) {
    const auto* param = static_cast<const WimCallbackParam*>(userData);
    switch (messageId) {
        case WIM_MSG_PROGRESS:
            if (param != nullptr && param->pPercent != nullptr) *param->pPercent = static_cast<DWORD>(wParam);
            break;
        case WIM_MSG_PROCESS:  // the skip flag behind lParam stays as the imaging library set it
        case WIM_MSG_FILEINFO:
            if (param != nullptr && param->pTextWnd != nullptr)
                param->pTextWnd->SetWindowText(reinterpret_cast<LPCWSTR>(wParam));
            break;
        default:
            break;
    }
    // The caller's window stays alive between the imaging library's messages, whatever they were.
    PumpWaitingMessages();
    return 1;
}

bool CopyToPathBuffer(const CString& path, WCHAR (&buffer)[MAX_PATH]) {
    std::memset(buffer, 0, sizeof buffer);
    if (path.GetLength() >= MAX_PATH) return false;
    std::memcpy(buffer, path.GetString(), sizeof(WCHAR) * static_cast<size_t>(path.GetLength()));
    return true;
}

void WimOperation::Finish() {
    if (unregister_ != nullptr) unregister_(file_, reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(WimMessageCallback)));
    if (image_ != nullptr) close_(image_);
    if (file_ != nullptr) close_(file_);
    if (library_ != nullptr) sys().FreeLibrary(library_);
    if (missingEntryPoint_) sys().SetLastError(ERROR_PROC_NOT_FOUND);
    unregister_ = nullptr;
    image_ = file_ = nullptr;
    library_ = nullptr;
    missingEntryPoint_ = false;
}

bool RegisterProgressTargets(WIMRegisterMessageCallbackFunction registerCallback, HANDLE file, WimCallbackParam& param,
                             DWORD* percent, CWnd* textWindow) {
    if (percent == nullptr && textWindow == nullptr) return true;
    std::memset(&param, 0, sizeof param);
    param.pPercent = percent;
    param.pTextWnd = textWindow;
    return registerCallback(file, reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(WimMessageCallback)), &param) !=
           INVALID_CALLBACK_VALUE;
}

bool SetTemporaryFolder(WIMSetTemporaryPathFunction setTemporaryPath, HANDLE file, const CString& temporaryFolder) {
    WCHAR folder[MAX_PATH];
    if (temporaryFolder.IsEmpty()) {
        std::memset(folder, 0, sizeof folder);
        sys().GetTempPathW(MAX_PATH, folder);
    } else if (!CopyToPathBuffer(temporaryFolder, folder)) {
        return false;
    }
    return setTemporaryPath(file, folder) != FALSE;
}
