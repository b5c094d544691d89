// Module state: the per-thread current state and the regular-DLL initialisation steps.
#include <algorithm>

#include "afxstat_.h"

namespace {

AFX_MODULE_STATE& AppState() {
    static AFX_MODULE_STATE state(FALSE);
    return state;
}

// Each thread starts in the executable's state until something switches it.
thread_local AFX_MODULE_STATE* t_current = nullptr;

}  // namespace

AFX_MODULE_STATE* AfxGetAppModuleState() { return &AppState(); }

AFX_MODULE_STATE* AfxGetModuleState() { return t_current != nullptr ? t_current : &AppState(); }

AFX_MODULE_STATE* AfxSetModuleState(AFX_MODULE_STATE* state) {
    AFX_MODULE_STATE* previous = AfxGetModuleState();
    t_current = state;
    return previous;
}

AFX_MAINTAIN_STATE2::AFX_MAINTAIN_STATE2(AFX_MODULE_STATE* newState) : m_pPrevModuleState(AfxSetModuleState(newState)) {}

AFX_MAINTAIN_STATE2::~AFX_MAINTAIN_STATE2() { AfxSetModuleState(m_pPrevModuleState); }

CDynLinkLibrary::CDynLinkLibrary(AFX_EXTENSION_MODULE& module, BOOL system)
    : m_hModule(module.hModule), m_hResource(module.hResource), m_bSystem(system), m_pModuleState(AfxGetModuleState()) {
    m_pModuleState->m_libraryList.push_back(this);
}

CDynLinkLibrary::~CDynLinkLibrary() {
    auto& list = m_pModuleState->m_libraryList;
    list.erase(std::remove(list.begin(), list.end(), this), list.end());
}

void AfxCoreInitModule() { AfxGetModuleState()->m_bCoreInitialized = true; }

BOOL AfxWinInit(HINSTANCE instance, HINSTANCE /*previous*/, LPTSTR /*commandLine*/, int /*show*/) {
    AFX_MODULE_STATE* state = AfxGetModuleState();
    state->m_hCurrentInstanceHandle = instance;
    state->m_hCurrentResourceHandle = instance;
    state->m_bInitialized = true;
    return TRUE;
}

void AfxWinTerm() {
    AFX_MODULE_STATE* state = AfxGetModuleState();
    state->m_bInitialized = false;
}

BOOL AfxInitExtensionModule(AFX_EXTENSION_MODULE& module, HMODULE instance) {
    if (module.bInitialized) return TRUE;
    module.hModule = instance;
    module.hResource = instance;
    module.bInitialized = TRUE;
    return TRUE;
}

void AfxTermExtensionModule(AFX_EXTENSION_MODULE& module, BOOL all) {
    AFX_MODULE_STATE* state = AfxGetModuleState();
    // Delete the links this module added (or all of them), newest first, as MFC does.
    auto& list = state->m_libraryList;
    for (size_t i = list.size(); i-- > 0;) {
        CDynLinkLibrary* link = list[i];
        if (all || link->m_hModule == module.hModule) delete link;  // the destructor unchains it
    }
    module.bInitialized = FALSE;
}

void AfxTermThread(HINSTANCE /*instance*/) {
    // The thread's switch of module state ends with it; the state objects themselves live on.
    t_current = nullptr;
}
