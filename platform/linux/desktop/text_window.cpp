// The static text control: a window that only keeps its text, which callers set and read through
// WM_SETTEXT and WM_GETTEXT as the default procedure handles them.
#include "desktop.h"
#include "../core/table.h"

namespace vlx {

namespace {

const bool g_staticClassRegistered = RegisterBuiltinClass(WC_STATICW, DefWindowProcW);

}  // namespace

}  // namespace vlx
