// What the image exports share: loading a system library, resolving its entry points, the message
// callback with its message pump, the fixed path buffers, and the one order in which an image operation
// lets go of what it holds.
#pragma once

#include "../frame/frame_internal.h"
#include "../frame/system_library.h"
#include "../platform/wimgapi.h"


// The callback data of one capture or apply: the caller's targets, either of which may be null.
struct WimCallbackParam {
    DWORD* pPercent;
    CWnd* pTextWnd;
};

// The imaging library's message callback: progress into *pPercent, each file's path into pTextWnd, the
// thread's messages pumped after every message; always 1, so nothing is skipped or cancelled from here.
DWORD CALLBACK WimMessageCallback(DWORD messageId, WPARAM wParam, LPARAM lParam, PVOID userData);
// Removes and dispatches every message waiting in the calling thread's queue, WM_QUIT included.
void PumpWaitingMessages();

// A path copied into a zero-filled buffer of MAX_PATH units; false, with the buffer left empty, when it
// does not fit with its terminator.
bool CopyToPathBuffer(const CString& path, WCHAR (&buffer)[MAX_PATH]);

// What one image operation holds from the moment the library is loaded. Every exit lets go of it in one
// order: unregister the message callback (once the registration step is behind the operation), close the
// image, close the image file, free the library and, when the exit is an entry point the library lacks,
// set ERROR_PROC_NOT_FOUND last, so that nothing released before it can overwrite the caller's code.
class WimOperation {
public:
    explicit WimOperation(HMODULE library) : library_(library) {}
    ~WimOperation() { Finish(); }
    WimOperation(const WimOperation&) = delete;
    WimOperation& operator=(const WimOperation&) = delete;

    // Looks one entry point up by its exported name; false when the library lacks it, which makes the
    // operation's exit report ERROR_PROC_NOT_FOUND.
    template <class Function>
    bool Resolve(Function& entry, LPCSTR name) {
        const FARPROC found = sys().GetProcAddress(library_, name);
        if (found == nullptr) {
            missingEntryPoint_ = true;
            return false;
        }
        entry = reinterpret_cast<Function>(reinterpret_cast<void (*)()>(found));
        return true;
    }

    // The image file and the image, once opened; closed through close.
    void HoldFile(HANDLE file, WIMCloseHandleFunction close) {
        file_ = file;
        close_ = close;
    }
    void HoldImage(HANDLE image) { image_ = image; }
    // From here on every exit unregisters WimMessageCallback from the image file, registered or not.
    void UnregisterOnExit(WIMUnregisterMessageCallbackFunction unregister) { unregister_ = unregister; }

    void Finish();

private:
    HMODULE library_;
    HANDLE file_ = nullptr;
    HANDLE image_ = nullptr;
    WIMCloseHandleFunction close_ = nullptr;
    WIMUnregisterMessageCallbackFunction unregister_ = nullptr;
    bool missingEntryPoint_ = false;
};

// Registers WimMessageCallback on the image file with the caller's targets, unless both are null. False
// only when the imaging library refused the registration.
bool RegisterProgressTargets(WIMRegisterMessageCallbackFunction registerCallback, HANDLE file, WimCallbackParam& param,
                             DWORD* percent, CWnd* textWindow);

// Hands the imaging library its scratch folder: the caller's, or the user's temporary folder when the
// caller gave none. False when the folder does not fit a path buffer or the library refuses it.
bool SetTemporaryFolder(WIMSetTemporaryPathFunction setTemporaryPath, HANDLE file, const CString& temporaryFolder);
