// Windows, window classes and messages on the emulated desktop.
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <optional>
#include <deque>
#include <map>
#include <mutex>
#include <thread>

#include "desktop.h"
#include "../core/table.h"

namespace vlx {

namespace {

struct WindowClassEntry {
    WString name;
    WNDPROC procedure = nullptr;
    HINSTANCE instance = nullptr;
    bool builtin = false;
};

struct Window {
    HWND handle = nullptr;
    WString className;
    WNDPROC procedure = nullptr;
    WString text;
    DWORD style = 0;
    DWORD exStyle = 0;
    HWND parent = nullptr;
    HINSTANCE instance = nullptr;
    LONG_PTR id = 0;
    LONG_PTR userData = 0;
    bool visible = false;
    std::thread::id thread;
    uint64_t order = 0;  // creation order: the newest window is on top
    std::shared_ptr<ControlState> control;
};

struct ThreadQueue {
    std::deque<MSG> messages;
    std::condition_variable arrived;
};

// A timer of SetTimer. Its WM_TIMER is made when the owning thread looks for a message and finds none,
// once the period has passed; the next one is due a whole period after that, so they never pile up.
struct Timer {
    HWND window = nullptr;
    UINT_PTR id = 0;
    std::chrono::milliseconds period{USER_TIMER_MINIMUM};
    std::chrono::steady_clock::time_point due;
    TIMERPROC procedure = nullptr;
    std::thread::id thread;
};

std::mutex g_lock;  // guards everything below; never held while a window procedure runs
std::vector<WindowClassEntry>& Classes() {
    static std::vector<WindowClassEntry> classes;
    return classes;
}
std::map<uintptr_t, std::shared_ptr<Window>> g_windows;
std::map<std::thread::id, ThreadQueue> g_queues;
std::vector<Timer> g_timers;
UINT_PTR g_nextThreadTimer = 0x7FF0;  // ids of timers without a window, as Windows numbers them
uintptr_t g_nextWindow = 0x10010;
uint64_t g_nextOrder = 1;
ATOM g_nextAtom = 0xC000;

// The window while g_lock is held; the messages sent for every row of a report come through here, so a
// look at a window takes no reference of its own.
Window* FindWindowLocked(HWND handle) {
    auto it = g_windows.find(reinterpret_cast<uintptr_t>(handle));
    return it == g_windows.end() ? nullptr : it->second.get();
}

// The window beyond the lock: it stays valid even when it is destroyed meanwhile.
std::shared_ptr<Window> Lookup(HWND handle) {
    std::lock_guard guard(g_lock);
    auto it = g_windows.find(reinterpret_cast<uintptr_t>(handle));
    return it == g_windows.end() ? nullptr : it->second;
}

WindowClassEntry* FindClassLocked(LPCWSTR name) {
    for (WindowClassEntry& entry : Classes()) {
        if (NamesEqualNoCase(entry.name, name)) return &entry;
    }
    return nullptr;
}

bool MessageMatches(const MSG& msg, HWND window, UINT filterMin, UINT filterMax) {
    if (window != nullptr && msg.hwnd != window) return false;
    if (filterMin == 0 && filterMax == 0) return true;
    return msg.message >= filterMin && msg.message <= filterMax;
}

bool TakeMessageLocked(ThreadQueue& queue, LPMSG msg, HWND window, UINT filterMin, UINT filterMax, bool remove) {
    for (auto it = queue.messages.begin(); it != queue.messages.end(); ++it) {
        // WM_QUIT is seen whatever the filter, as on Windows.
        if (it->message == WM_QUIT || MessageMatches(*it, window, filterMin, filterMax)) {
            *msg = *it;
            if (remove) queue.messages.erase(it);
            return true;
        }
    }
    return false;
}

bool TakeTimerLocked(LPMSG msg, HWND window, UINT filterMin, UINT filterMax, bool remove) {
    if (!MessageMatches(MSG{window, WM_TIMER, 0, 0, 0, {0, 0}}, window, filterMin, filterMax)) return false;
    const auto now = std::chrono::steady_clock::now();
    for (Timer& timer : g_timers) {
        if (timer.thread != std::this_thread::get_id() || timer.due > now) continue;
        if (window != nullptr && timer.window != window) continue;
        *msg = MSG{timer.window, WM_TIMER, timer.id, reinterpret_cast<LPARAM>(timer.procedure), 0, {0, 0}};
        if (remove) timer.due = now + timer.period;
        return true;
    }
    return false;
}

std::optional<std::chrono::steady_clock::time_point> NextTimerLocked() {
    std::optional<std::chrono::steady_clock::time_point> next;
    for (const Timer& timer : g_timers) {
        if (timer.thread == std::this_thread::get_id() && (!next || timer.due < *next)) next = timer.due;
    }
    return next;
}

}  // namespace

bool RegisterBuiltinClass(LPCWSTR className, WNDPROC procedure) {
    std::lock_guard guard(g_lock);
    if (FindClassLocked(className) != nullptr) return false;
    Classes().push_back({className, procedure, nullptr, true});
    return true;
}

std::shared_ptr<ControlState> ControlStateOf(HWND window, std::shared_ptr<ControlState> (*make)()) {
    std::lock_guard guard(g_lock);
    auto found = FindWindowLocked(window);
    if (!found) return nullptr;
    if (!found->control) found->control = make();
    return found->control;
}

WString WindowClassName(HWND window) {
    auto found = Lookup(window);
    return found ? found->className : WString();
}

size_t WindowCount() {
    std::lock_guard guard(g_lock);
    return g_windows.size();
}

ATOM WINAPI RegisterClassW(const WNDCLASSW* windowClass) {
    if (windowClass == nullptr || windowClass->lpszClassName == nullptr || windowClass->lpfnWndProc == nullptr)
        return Fail(ERROR_INVALID_PARAMETER, static_cast<ATOM>(0));
    std::lock_guard guard(g_lock);
    if (FindClassLocked(windowClass->lpszClassName) != nullptr) return Fail(ERROR_CLASS_ALREADY_EXISTS, static_cast<ATOM>(0));
    Classes().push_back({windowClass->lpszClassName, windowClass->lpfnWndProc, windowClass->hInstance, false});
    return g_nextAtom++;
}

BOOL WINAPI UnregisterClassW(LPCWSTR className, HINSTANCE /*instance*/) {
    std::lock_guard guard(g_lock);
    auto& classes = Classes();
    auto it = std::find_if(classes.begin(), classes.end(),
                           [&](const WindowClassEntry& entry) { return !entry.builtin && NamesEqualNoCase(entry.name, className); });
    if (it == classes.end()) return Fail(ERROR_CLASS_DOES_NOT_EXIST, FALSE);
    classes.erase(it);
    return TRUE;
}

HWND WINAPI CreateWindowExW(DWORD exStyle, LPCWSTR className, LPCWSTR windowName, DWORD style, int x, int y, int width,
                            int height, HWND parent, HMENU menu, HINSTANCE instance, LPVOID param) {
    if (className == nullptr) return Fail(ERROR_INVALID_PARAMETER, static_cast<HWND>(nullptr));
    auto window = std::make_shared<Window>();
    {
        std::lock_guard guard(g_lock);
        WindowClassEntry* entry = FindClassLocked(className);
        if (entry == nullptr) return Fail(ERROR_CANNOT_FIND_WND_CLASS, static_cast<HWND>(nullptr));
        if (parent != nullptr && parent != HWND_MESSAGE && !FindWindowLocked(parent))
            return Fail(ERROR_INVALID_WINDOW_HANDLE, static_cast<HWND>(nullptr));
        window->handle = reinterpret_cast<HWND>(g_nextWindow);
        g_nextWindow += 2;
        window->className = entry->name;
        window->procedure = entry->procedure;
        window->text = windowName != nullptr ? windowName : _T("");
        window->style = style;
        window->exStyle = exStyle;
        window->parent = parent == HWND_MESSAGE ? nullptr : parent;
        window->instance = instance;
        window->id = (style & WS_CHILD) ? reinterpret_cast<LONG_PTR>(menu) : 0;
        window->visible = (style & WS_VISIBLE) != 0;
        window->thread = std::this_thread::get_id();
        window->order = g_nextOrder++;
        g_windows.emplace(reinterpret_cast<uintptr_t>(window->handle), window);
    }
    CREATESTRUCTW create{param, instance, menu, parent, height, width, y, x, static_cast<LONG>(style), windowName, className, exStyle};
    const LPARAM createParam = reinterpret_cast<LPARAM>(&create);
    if (!SendMessageW(window->handle, WM_NCCREATE, 0, createParam) || SendMessageW(window->handle, WM_CREATE, 0, createParam) == -1) {
        DestroyWindow(window->handle);
        return Fail(ERROR_CANNOT_FIND_WND_CLASS, static_cast<HWND>(nullptr));
    }
    SetLastErrorCode(ERROR_SUCCESS);
    return window->handle;
}

BOOL WINAPI DestroyWindow(HWND handle) {
    auto window = Lookup(handle);
    if (!window) return Fail(ERROR_INVALID_WINDOW_HANDLE, FALSE);
    // Children go first, newest first, as their owner takes them down with it.
    std::vector<HWND> children;
    {
        std::lock_guard guard(g_lock);
        for (const auto& [value, other] : g_windows) {
            if (other->parent == handle) children.push_back(other->handle);
        }
    }
    for (auto it = children.rbegin(); it != children.rend(); ++it) DestroyWindow(*it);
    SendMessageW(handle, WM_DESTROY, 0, 0);
    SendMessageW(handle, WM_NCDESTROY, 0, 0);
    std::lock_guard guard(g_lock);
    g_windows.erase(reinterpret_cast<uintptr_t>(handle));
    g_timers.erase(std::remove_if(g_timers.begin(), g_timers.end(), [&](const Timer& timer) { return timer.window == handle; }),
                   g_timers.end());
    // Messages still queued for the window are dropped with it.
    for (auto& [thread, queue] : g_queues) {
        auto& messages = queue.messages;
        messages.erase(std::remove_if(messages.begin(), messages.end(), [&](const MSG& msg) { return msg.hwnd == handle; }),
                       messages.end());
    }
    return TRUE;
}

LRESULT WINAPI DefWindowProcW(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
        case WM_NCCREATE:
            return TRUE;
        case WM_SETTEXT: {
            auto window = Lookup(handle);
            if (!window) return FALSE;
            std::lock_guard guard(g_lock);
            LPCWSTR text = reinterpret_cast<LPCWSTR>(lParam);
            window->text = text != nullptr ? text : _T("");
            return TRUE;
        }
        case WM_GETTEXTLENGTH: {
            auto window = Lookup(handle);
            if (!window) return 0;
            std::lock_guard guard(g_lock);
            return static_cast<LRESULT>(window->text.size());
        }
        case WM_GETTEXT: {
            auto window = Lookup(handle);
            LPWSTR buffer = reinterpret_cast<LPWSTR>(lParam);
            if (!window || buffer == nullptr || wParam == 0) return 0;
            std::lock_guard guard(g_lock);
            // The text is cut to fit the buffer with its NUL.
            const size_t count = std::min<size_t>(window->text.size(), static_cast<size_t>(wParam) - 1);
            window->text.copy(buffer, count);
            buffer[count] = 0;
            return static_cast<LRESULT>(count);
        }
        case WM_CLOSE:
            DestroyWindow(handle);
            return 0;
        default:
            return 0;
    }
}

BOOL WINAPI IsWindow(HWND handle) {
    std::lock_guard guard(g_lock);
    return FindWindowLocked(handle) != nullptr ? TRUE : FALSE;
}

LRESULT WINAPI SendMessageW(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    // The procedure is taken under the lock, since another thread may subclass the window meanwhile, and
    // called without it: it may send messages of its own or destroy its window.
    WNDPROC procedure = nullptr;
    {
        std::lock_guard guard(g_lock);
        const Window* window = FindWindowLocked(handle);
        if (window == nullptr) return Fail(ERROR_INVALID_WINDOW_HANDLE, static_cast<LRESULT>(0));
        procedure = window->procedure;
    }
    return procedure(handle, message, wParam, lParam);
}

BOOL WINAPI PostMessageW(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    std::thread::id target = std::this_thread::get_id();
    std::lock_guard guard(g_lock);
    if (handle != nullptr) {
        auto window = FindWindowLocked(handle);
        if (!window) return Fail(ERROR_INVALID_WINDOW_HANDLE, FALSE);
        target = window->thread;
    }
    ThreadQueue& queue = g_queues[target];
    queue.messages.push_back(MSG{handle, message, wParam, lParam, 0, {0, 0}});
    queue.arrived.notify_all();
    return TRUE;
}

BOOL WINAPI PeekMessageW(LPMSG msg, HWND window, UINT filterMin, UINT filterMax, UINT remove) {
    if (msg == nullptr) return FALSE;
    std::lock_guard guard(g_lock);
    auto it = g_queues.find(std::this_thread::get_id());
    const bool removing = (remove & PM_REMOVE) != 0;
    if (it != g_queues.end() && TakeMessageLocked(it->second, msg, window, filterMin, filterMax, removing)) return TRUE;
    return TakeTimerLocked(msg, window, filterMin, filterMax, removing) ? TRUE : FALSE;
}

BOOL WINAPI GetMessageW(LPMSG msg, HWND window, UINT filterMin, UINT filterMax) {
    if (msg == nullptr) return Fail(ERROR_INVALID_PARAMETER, -1);
    std::unique_lock guard(g_lock);
    ThreadQueue& queue = g_queues[std::this_thread::get_id()];
    while (!TakeMessageLocked(queue, msg, window, filterMin, filterMax, true) &&
           !TakeTimerLocked(msg, window, filterMin, filterMax, true)) {
        if (auto next = NextTimerLocked()) {
            queue.arrived.wait_until(guard, *next);
        } else {
            queue.arrived.wait(guard);
        }
    }
    return msg->message == WM_QUIT ? FALSE : TRUE;
}

BOOL WINAPI TranslateMessage(const MSG* /*msg*/) {
    // No keyboard reaches the emulated desktop, so there is never a character message to make.
    return FALSE;
}

LRESULT WINAPI DispatchMessageW(const MSG* msg) {
    if (msg == nullptr) return 0;
    // A timer with a procedure of its own calls it instead of the window's.
    if (msg->message == WM_TIMER && msg->lParam != 0) {
        const auto ticks = std::chrono::duration_cast<std::chrono::milliseconds>(
            std::chrono::steady_clock::now().time_since_epoch());
        reinterpret_cast<TIMERPROC>(msg->lParam)(msg->hwnd, WM_TIMER, msg->wParam, static_cast<DWORD>(ticks.count()));
        return 0;
    }
    if (msg->hwnd == nullptr) return 0;
    return SendMessageW(msg->hwnd, msg->message, msg->wParam, msg->lParam);
}

void WINAPI PostQuitMessage(int exitCode) {
    std::lock_guard guard(g_lock);
    ThreadQueue& queue = g_queues[std::this_thread::get_id()];
    queue.messages.push_back(MSG{nullptr, WM_QUIT, static_cast<WPARAM>(exitCode), 0, 0, {0, 0}});
    queue.arrived.notify_all();
}

UINT_PTR WINAPI SetTimer(HWND window, UINT_PTR id, UINT elapse, TIMERPROC procedure) {
    std::lock_guard guard(g_lock);
    if (window != nullptr && !FindWindowLocked(window)) return Fail(ERROR_INVALID_WINDOW_HANDLE, static_cast<UINT_PTR>(0));
    const std::chrono::milliseconds period(std::max<UINT>(elapse, USER_TIMER_MINIMUM));
    if (window == nullptr) id = g_nextThreadTimer++;
    auto same = std::find_if(g_timers.begin(), g_timers.end(),
                             [&](const Timer& timer) { return window != nullptr && timer.window == window && timer.id == id; });
    if (same == g_timers.end()) same = g_timers.insert(g_timers.end(), Timer{});
    *same = Timer{window, id, period, std::chrono::steady_clock::now() + period, procedure, std::this_thread::get_id()};
    return id == 0 ? 1 : id;
}

BOOL WINAPI KillTimer(HWND window, UINT_PTR id) {
    std::lock_guard guard(g_lock);
    auto found = std::find_if(g_timers.begin(), g_timers.end(),
                              [&](const Timer& timer) { return timer.window == window && timer.id == id; });
    if (found == g_timers.end()) return Fail(ERROR_INVALID_PARAMETER, FALSE);
    g_timers.erase(found);
    return TRUE;
}

BOOL WINAPI SetWindowTextW(HWND window, LPCWSTR text) {
    if (!Lookup(window)) return Fail(ERROR_INVALID_WINDOW_HANDLE, FALSE);
    return static_cast<BOOL>(SendMessageW(window, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text)));
}

int WINAPI GetWindowTextW(HWND window, LPWSTR buffer, int capacity) {
    if (buffer != nullptr && capacity > 0) buffer[0] = 0;
    if (!Lookup(window)) return Fail(ERROR_INVALID_WINDOW_HANDLE, 0);
    if (capacity <= 0) return 0;
    return static_cast<int>(SendMessageW(window, WM_GETTEXT, static_cast<WPARAM>(capacity), reinterpret_cast<LPARAM>(buffer)));
}

int WINAPI GetWindowTextLengthW(HWND window) {
    if (!Lookup(window)) return Fail(ERROR_INVALID_WINDOW_HANDLE, 0);
    return static_cast<int>(SendMessageW(window, WM_GETTEXTLENGTH, 0, 0));
}

HWND WINAPI FindWindowW(LPCWSTR className, LPCWSTR windowName) {
    std::lock_guard guard(g_lock);
    std::shared_ptr<Window> best;
    for (const auto& [value, window] : g_windows) {
        if (window->parent != nullptr) continue;  // top-level windows only
        if (className != nullptr && !NamesEqualNoCase(window->className, className)) continue;
        if (windowName != nullptr && window->text != windowName) continue;
        if (!best || window->order > best->order) best = window;
    }
    if (!best) return Fail(ERROR_FILE_NOT_FOUND, static_cast<HWND>(nullptr));
    return best->handle;
}

BOOL WINAPI ShowWindow(HWND handle, int command) {
    auto window = Lookup(handle);
    if (!window) return Fail(ERROR_INVALID_WINDOW_HANDLE, FALSE);
    bool wasVisible = false;
    {
        std::lock_guard guard(g_lock);
        wasVisible = window->visible;
        window->visible = command != SW_HIDE;
    }
    if (wasVisible != (command != SW_HIDE)) SendMessageW(handle, WM_SHOWWINDOW, command != SW_HIDE, 0);
    return wasVisible ? TRUE : FALSE;
}

BOOL WINAPI IsWindowVisible(HWND handle) {
    auto window = Lookup(handle);
    if (!window) return FALSE;
    std::lock_guard guard(g_lock);
    return window->visible ? TRUE : FALSE;
}

LONG_PTR WINAPI GetWindowLongPtrW(HWND handle, int index) {
    std::lock_guard guard(g_lock);
    const Window* window = FindWindowLocked(handle);
    if (window == nullptr) return Fail(ERROR_INVALID_WINDOW_HANDLE, static_cast<LONG_PTR>(0));
    switch (index) {
        case GWLP_USERDATA: return window->userData;
        case GWLP_WNDPROC: return reinterpret_cast<LONG_PTR>(window->procedure);
        case GWLP_ID: return window->id;
        case GWLP_HINSTANCE: return reinterpret_cast<LONG_PTR>(window->instance);
        default: return Fail(ERROR_INVALID_INDEX, static_cast<LONG_PTR>(0));
    }
}

LONG_PTR WINAPI SetWindowLongPtrW(HWND handle, int index, LONG_PTR value) {
    std::lock_guard guard(g_lock);
    Window* window = FindWindowLocked(handle);
    if (window == nullptr) return Fail(ERROR_INVALID_WINDOW_HANDLE, static_cast<LONG_PTR>(0));
    LONG_PTR previous = 0;
    switch (index) {
        case GWLP_USERDATA: previous = window->userData; window->userData = value; break;
        case GWLP_WNDPROC:
            previous = reinterpret_cast<LONG_PTR>(window->procedure);
            window->procedure = reinterpret_cast<WNDPROC>(value);
            break;
        case GWLP_ID: previous = window->id; window->id = value; break;
        default: return Fail(ERROR_INVALID_INDEX, static_cast<LONG_PTR>(0));
    }
    SetLastErrorCode(ERROR_SUCCESS);
    return previous;
}

}  // namespace vlx
