// Windows side of the MFC subset: module state and, with the issues that need them, CWnd and friends.
#pragma once

#include "afx.h"
#include "afxstat_.h"
