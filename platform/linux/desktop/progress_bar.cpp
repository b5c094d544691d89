// The progress bar control (PROGRESS_CLASSW): a built-in window class that keeps its range, position and
// step, so that hosts and tests can read what the library drew.
#include <mutex>

#include "desktop.h"
#include "../core/table.h"

namespace vlx {

namespace {

class ProgressState : public ControlState {
public:
    std::mutex lock;
    int low = 0;
    int high = 100;
    int position = 0;
    int step = 10;

    int Clamp(int value) const { return value < low ? low : (value > high ? high : value); }
};

LRESULT CALLBACK ProgressProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message < PBM_SETRANGE || message > PBM_GETPOS) return DefWindowProcW(window, message, wParam, lParam);
    auto state = ControlStateAs<ProgressState>(window);
    if (!state) return 0;
    std::lock_guard guard(state->lock);
    const int previous = state->position;
    switch (message) {
        case PBM_SETRANGE:
        case PBM_SETRANGE32: {
            const LRESULT previousRange = MAKELONG(state->low, state->high);
            // PBM_SETRANGE carries two 16-bit values in lParam, PBM_SETRANGE32 two full ones.
            state->low = message == PBM_SETRANGE ? LOWORD(lParam) : static_cast<int>(wParam);
            state->high = message == PBM_SETRANGE ? HIWORD(lParam) : static_cast<int>(lParam);
            state->position = state->Clamp(state->position);
            return previousRange;
        }
        case PBM_SETPOS:
            state->position = state->Clamp(static_cast<int>(wParam));
            return previous;
        case PBM_DELTAPOS:
            state->position = state->Clamp(state->position + static_cast<int>(wParam));
            return previous;
        case PBM_SETSTEP: {
            const int previousStep = state->step;
            state->step = static_cast<int>(wParam);
            return previousStep;
        }
        case PBM_STEPIT: {
            // Past the top the bar starts again from the bottom, as the common control does.
            int next = state->position + state->step;
            const int span = state->high - state->low;
            if (next > state->high && span > 0) next = state->low + (next - state->low) % span;
            state->position = state->Clamp(next);
            return previous;
        }
        case PBM_GETRANGE: {
            if (lParam != 0) {
                auto* range = reinterpret_cast<PBRANGE*>(lParam);
                range->iLow = state->low;
                range->iHigh = state->high;
            }
            return wParam ? state->low : state->high;
        }
        case PBM_GETPOS:
            return state->position;
        default:
            return 0;
    }
}

const bool g_progressClassRegistered = RegisterBuiltinClass(PROGRESS_CLASSW, ProgressProc);

}  // namespace

}  // namespace vlx
