// Common controls of the MFC subset, each a CWnd over its window class.
#pragma once

#include "afxwin.h"

// ---- CProgressCtrl: a progress bar (PROGRESS_CLASSW). Every member is one message to the control.
class CProgressCtrl : public CWnd {
public:
    CProgressCtrl() = default;

    using CWnd::Create;
    virtual BOOL Create(DWORD style, const RECT& rect, CWnd* parent, UINT id);

    void SetRange(short lower, short upper);
    void SetRange32(int lower, int upper);
    void GetRange(int& lower, int& upper) const;
    int SetPos(int position);
    int GetPos() const;
    int OffsetPos(int delta);
    int SetStep(int step);
    int StepIt();
};
// ---- end CProgressCtrl
