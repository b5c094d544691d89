// Common controls of the MFC subset over the platform's window messages.
#include "afxcmn.h"

#include "../platform/api.h"

// ---- CProgressCtrl

BOOL CProgressCtrl::Create(DWORD style, const RECT& rect, CWnd* parent, UINT id) {
    return CWnd::Create(PROGRESS_CLASSW, nullptr, style, rect, parent, id);
}

void CProgressCtrl::SetRange(short lower, short upper) { SendMessage(PBM_SETRANGE, 0, MAKELPARAM(lower, upper)); }

void CProgressCtrl::SetRange32(int lower, int upper) {
    SendMessage(PBM_SETRANGE32, static_cast<WPARAM>(lower), static_cast<LPARAM>(upper));
}

void CProgressCtrl::GetRange(int& lower, int& upper) const {
    PBRANGE range{};
    SendMessage(PBM_GETRANGE, FALSE, reinterpret_cast<LPARAM>(&range));
    lower = range.iLow;
    upper = range.iHigh;
}

int CProgressCtrl::SetPos(int position) { return static_cast<int>(SendMessage(PBM_SETPOS, static_cast<WPARAM>(position), 0)); }

int CProgressCtrl::GetPos() const { return static_cast<int>(SendMessage(PBM_GETPOS, 0, 0)); }

int CProgressCtrl::OffsetPos(int delta) { return static_cast<int>(SendMessage(PBM_DELTAPOS, static_cast<WPARAM>(delta), 0)); }

int CProgressCtrl::SetStep(int step) { return static_cast<int>(SendMessage(PBM_SETSTEP, static_cast<WPARAM>(step), 0)); }

int CProgressCtrl::StepIt() { return static_cast<int>(SendMessage(PBM_STEPIT, 0, 0)); }

// ---- end CProgressCtrl
