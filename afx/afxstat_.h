// MFC module state: which module's resources and settings are current on a thread, and the regular-DLL
// initialisation that an MFC library's entry performs.
#pragma once

#include <vector>

#include "../platform/win32.h"

class CDynLinkLibrary;

class AFX_MODULE_STATE {
public:
    explicit AFX_MODULE_STATE(BOOL dll) : m_bDLL(dll) {}
    virtual ~AFX_MODULE_STATE() = default;
    AFX_MODULE_STATE(const AFX_MODULE_STATE&) = delete;
    AFX_MODULE_STATE& operator=(const AFX_MODULE_STATE&) = delete;

    BOOL m_bDLL;
    HINSTANCE m_hCurrentInstanceHandle = nullptr;
    HINSTANCE m_hCurrentResourceHandle = nullptr;
    LPCTSTR m_lpszCurrentAppName = nullptr;
    bool m_bInitialized = false;            // AfxWinInit has run for this module
    bool m_bCoreInitialized = false;        // AfxCoreInitModule has run for this module
    std::vector<CDynLinkLibrary*> m_libraryList;  // the chain of resource modules
};

// The state object a regular DLL keeps for itself.
class _AFX_DLL_MODULE_STATE : public AFX_MODULE_STATE {
public:
    _AFX_DLL_MODULE_STATE() : AFX_MODULE_STATE(TRUE) {}
};

// The calling thread's current module state; the process's own state when the thread has set none.
AFX_MODULE_STATE* AfxGetModuleState();
// Makes state current on the calling thread and returns the one it replaces.
AFX_MODULE_STATE* AfxSetModuleState(AFX_MODULE_STATE* state);
// The executable's state, current on every thread that has not switched.
AFX_MODULE_STATE* AfxGetAppModuleState();
// The state of the module this code is linked into; a regular DLL defines it for itself.
AFX_MODULE_STATE* AfxGetStaticModuleState();

// Makes a module state current for the life of the object and puts back the thread's previous one.
struct AFX_MAINTAIN_STATE2 {
    explicit AFX_MAINTAIN_STATE2(AFX_MODULE_STATE* newState);
    ~AFX_MAINTAIN_STATE2();
    AFX_MAINTAIN_STATE2(const AFX_MAINTAIN_STATE2&) = delete;
    AFX_MAINTAIN_STATE2& operator=(const AFX_MAINTAIN_STATE2&) = delete;

    AFX_MODULE_STATE* m_pPrevModuleState;
};

#define AFX_MANAGE_STATE(p) AFX_MAINTAIN_STATE2 _ctlState(p)

struct AFX_EXTENSION_MODULE {
    BOOL bInitialized = FALSE;
    HMODULE hModule = nullptr;
    HMODULE hResource = nullptr;
};

// One link in the current module's chain of resource modules.
class CDynLinkLibrary {
public:
    explicit CDynLinkLibrary(AFX_EXTENSION_MODULE& module, BOOL system = FALSE);
    virtual ~CDynLinkLibrary();
    CDynLinkLibrary(const CDynLinkLibrary&) = delete;
    CDynLinkLibrary& operator=(const CDynLinkLibrary&) = delete;

    HMODULE m_hModule;
    HMODULE m_hResource;
    BOOL m_bSystem;
    AFX_MODULE_STATE* m_pModuleState;
};

void AfxCoreInitModule();
BOOL AfxWinInit(HINSTANCE instance, HINSTANCE previous, LPTSTR commandLine, int show);
void AfxWinTerm();
BOOL AfxInitExtensionModule(AFX_EXTENSION_MODULE& module, HMODULE instance);
void AfxTermExtensionModule(AFX_EXTENSION_MODULE& module, BOOL all = FALSE);
// Releases the calling thread's MFC state (its current module state) for the current module.
void AfxTermThread(HINSTANCE instance = nullptr);
