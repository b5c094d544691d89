// Dialogs: the host's responder, and TaskDialogIndirect answered by it.
#include <mutex>

#include "../core/internal.h"
#include "../core/table.h"

namespace vlx {

namespace {

std::mutex g_responderLock;
DialogResponder g_responder;

bool IsCommonButtonAnswer(const TASKDIALOGCONFIG& config, int answer) {
    const TASKDIALOG_COMMON_BUTTON_FLAGS buttons = config.dwCommonButtons;
    // A dialog that names no button at all shows OK.
    if (buttons == 0 && config.cButtons == 0) return answer == IDOK;
    return ((buttons & TDCBF_OK_BUTTON) && answer == IDOK) || ((buttons & TDCBF_YES_BUTTON) && answer == IDYES) ||
           ((buttons & TDCBF_NO_BUTTON) && answer == IDNO) || ((buttons & TDCBF_CANCEL_BUTTON) && answer == IDCANCEL) ||
           ((buttons & TDCBF_RETRY_BUTTON) && answer == IDRETRY) || ((buttons & TDCBF_CLOSE_BUTTON) && answer == IDCLOSE);
}

// Whether the dialog could have ended with this answer: one of its buttons, or IDCANCEL when it may be
// closed with Esc or the close box.
bool IsPossibleAnswer(const TASKDIALOGCONFIG& config, int answer) {
    for (UINT i = 0; i < config.cButtons; ++i) {
        if (config.pButtons[i].nButtonID == answer) return true;
    }
    if (IsCommonButtonAnswer(config, answer)) return true;
    return answer == IDCANCEL && (config.dwFlags & TDF_ALLOW_DIALOG_CANCELLATION) != 0;
}

}  // namespace

void SetDialogResponder(DialogResponder responder) {
    std::lock_guard lock(g_responderLock);
    g_responder = std::move(responder);
}

int AskDialog(const DialogRequest& request) {
    DialogResponder responder;
    {
        std::lock_guard lock(g_responderLock);
        responder = g_responder;
    }
    // Asked outside the lock: the responder may take its time, and dialogs of other threads must not wait.
    if (!responder) return kDialogCannotBeShown;
    return responder(request);
}

HRESULT WINAPI TaskDialogIndirect(const TASKDIALOGCONFIG* config, int* button, int* radioButton, BOOL* verificationChecked) {
    if (button != nullptr) *button = 0;
    if (radioButton != nullptr) *radioButton = 0;
    if (verificationChecked != nullptr) *verificationChecked = FALSE;
    if (config == nullptr || config->cbSize != sizeof(TASKDIALOGCONFIG)) return E_INVALIDARG;
    if ((config->cButtons > 0 && config->pButtons == nullptr) || (config->cRadioButtons > 0 && config->pRadioButtons == nullptr))
        return E_INVALIDARG;

    DialogRequest request;
    request.kind = DialogKind::TaskDialog;
    request.owner = config->hwndParent;
    request.taskDialog = config;
    const int answer = AskDialog(request);
    if (answer == kDialogCannotBeShown || !IsPossibleAnswer(*config, answer)) return E_FAIL;

    if (button != nullptr) *button = answer;
    if (radioButton != nullptr && config->cRadioButtons > 0)
        *radioButton = config->nDefaultRadioButton != 0 ? config->nDefaultRadioButton : config->pRadioButtons[0].nButtonID;
    return S_OK;
}

}  // namespace vlx
