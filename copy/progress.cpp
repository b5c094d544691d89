// Progress and prompts: the copy progress routine that drives the caller's progress bar, and the
// replace/skip/cancel prompt for a file that already exists at the destination.
#include "copy_internal.h"

int CopyPercentage(LONGLONG totalFileSize, LONGLONG totalBytesTransferred) {
    if (totalFileSize <= 0) return 0;
    // Transferred × 100 needs 64 bits: a 50 GiB file would overflow 32. Multiplied as unsigned so that a
    // nonsensical count wraps as the hardware does instead of being undefined.
    const LONGLONG scaled = static_cast<LONGLONG>(static_cast<ULONGLONG>(totalBytesTransferred) * 100u);
    return static_cast<int>(scaled / totalFileSize);
}

DWORD CALLBACK CopyProgressRoutine(LARGE_INTEGER totalFileSize, LARGE_INTEGER totalBytesTransferred,
                                   LARGE_INTEGER /*streamSize*/, LARGE_INTEGER /*streamBytesTransferred*/,
                                   DWORD /*streamNumber*/, DWORD callbackReason, HANDLE /*sourceFile*/,
                                   HANDLE /*destinationFile*/, LPVOID data) {
    auto* progress = static_cast<CProgressCtrl*>(data);
    if (progress == nullptr) return PROGRESS_CONTINUE;
    if (callbackReason != CALLBACK_CHUNK_FINISHED && callbackReason != CALLBACK_STREAM_SWITCH) return PROGRESS_CONTINUE;
    const int percentage = CopyPercentage(totalFileSize.QuadPart, totalBytesTransferred.QuadPart);
    // The range goes again before every position: the caller may have used the bar for something else
    // between two files.
    progress->SetRange(0, 100);
    progress->SetPos(percentage);
    return PROGRESS_CONTINUE;
}

int AskReplaceOrSkip(CString fileName, HWND owner) {
    CString content;
    content.Format(_T("宛先には既に \"%s\" という名前のファイルが存在します"), fileName.GetString());
    const TASKDIALOG_BUTTON buttons[] = {
        {kReplaceButton, _T("ファイルを置き換える(&R)")},
        {kSkipButton, _T("ファイルは置き換えずスキップする(&S)")},
        {kCancelCopyButton, _T("コピーをキャンセルする(&C)")},
    };
    TASKDIALOGCONFIG config{};
    config.cbSize = sizeof config;
    config.hwndParent = owner;
    config.dwFlags = TDF_ALLOW_DIALOG_CANCELLATION | TDF_USE_COMMAND_LINKS;
    config.pszWindowTitle = _T("ファイルの置換またはスキップ");
    config.pszMainInstruction = _T("");
    config.pszContent = content.GetString();
    config.cButtons = static_cast<UINT>(sizeof buttons / sizeof buttons[0]);
    config.pButtons = buttons;
    config.nDefaultButton = 0;  // the first button, replace
    int answer = 0;
    // The dialog's own result is not needed: when it could not be shown the answer stays 0.
    sys().TaskDialogIndirect(&config, &answer, nullptr, nullptr);
    return answer;
}
