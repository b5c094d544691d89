// The library's module state and its MFC regular-DLL entry.
#include "frame_internal.h"

#include <new>

namespace {

// The state lives exactly from process attach to process detach. It is built and destroyed by the entry
// rather than as a static object, because the order of static destruction against the unload call is not
// the same on every platform, and detach still needs the state current.
union LibraryStateStorage {
    LibraryStateStorage() {}
    ~LibraryStateStorage() {}
    _AFX_DLL_MODULE_STATE state;
};
LibraryStateStorage g_storage;
bool g_stateLive = false;

AFX_EXTENSION_MODULE g_extension;

_AFX_DLL_MODULE_STATE& LibraryState() {
    if (!g_stateLive) {
        new (&g_storage.state) _AFX_DLL_MODULE_STATE();
        g_stateLive = true;
    }
    return g_storage.state;
}

void DestroyLibraryState() {
    if (!g_stateLive) return;
    g_storage.state.~_AFX_DLL_MODULE_STATE();
    g_stateLive = false;
}

}  // namespace

AFX_MODULE_STATE* VelmoraModuleState() { return &LibraryState(); }

AFX_MODULE_STATE* AfxGetStaticModuleState() { return VelmoraModuleState(); }

BOOL VelmoraLibraryEntry(HINSTANCE instance, DWORD reason) {
    switch (reason) {
        case DLL_PROCESS_ATTACH: {
            AFX_MANAGE_STATE(VelmoraModuleState());
            AfxCoreInitModule();
            TCHAR emptyCommandLine[] = _T("");
            if (!AfxWinInit(instance, nullptr, emptyCommandLine, 0)) {
                AfxWinTerm();
                return FALSE;
            }
            // The library has no application object, so no start-up of its own runs; it only joins the
            // chain of resource modules. The link belongs to the chain and is deleted at process detach.
            AfxInitExtensionModule(g_extension, instance);
            new CDynLinkLibrary(g_extension);
            return TRUE;
        }
        case DLL_THREAD_DETACH: {
            AFX_MANAGE_STATE(VelmoraModuleState());
            AfxTermThread(instance);
            return TRUE;
        }
        case DLL_PROCESS_DETACH: {
            {
                AFX_MANAGE_STATE(VelmoraModuleState());
                AfxWinTerm();
                AfxTermExtensionModule(g_extension);
            }
            DestroyLibraryState();
            return TRUE;
        }
        default:
            return TRUE;
    }
}
