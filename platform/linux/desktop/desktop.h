// The emulated desktop: one registry of windows and window classes, and per-thread message queues.
// Controls (progress bars, list views, ...) are built-in window classes whose procedures keep their state
// in the window's ControlState; each control's source file registers its class with RegisterBuiltinClass.
#pragma once

#include <memory>

#include "../core/internal.h"

namespace vlx {

// State a control keeps per window, owned by the window and destroyed with it.
class ControlState {
public:
    virtual ~ControlState() = default;
};

// Adds a class that exists without RegisterClassW, as the common controls' classes do. Call it from a
// static initialiser: static const bool registered = RegisterBuiltinClass(PROGRESS_CLASSW, ProgressProc);
bool RegisterBuiltinClass(LPCWSTR className, WNDPROC procedure);

// The state of a control window, created on first use with make; null when the window does not exist.
std::shared_ptr<ControlState> ControlStateOf(HWND window, std::shared_ptr<ControlState> (*make)());
template <class T>
std::shared_ptr<T> ControlStateAs(HWND window) {
    return std::dynamic_pointer_cast<T>(
        ControlStateOf(window, []() -> std::shared_ptr<ControlState> { return std::make_shared<T>(); }));
}

// The class name a window was made with, empty when it does not exist.
WString WindowClassName(HWND window);

// How many windows exist, so that tests prove none is left behind.
size_t WindowCount();

}  // namespace vlx
