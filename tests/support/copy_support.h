// Test support for the copy engine: a scripted user for dialogs, shell operation records taken apart,
// and the progress messages a window receives.
#pragma once

#include <string>
#include <vector>

#include "../../platform/api_patch.h"
#include "host_fixture.h"

namespace testing_support {

// The whole content of a host file, empty when it cannot be read.
inline std::string ReadHostFile(const std::string& hostPath) {
    std::ifstream in(hostPath, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// Installs a responder for the life of the scope and removes it afterwards, so that no other test meets it.
class ScopedResponder {
public:
    explicit ScopedResponder(vlx::DialogResponder responder) { vlx::SetDialogResponder(std::move(responder)); }
    ~ScopedResponder() { vlx::SetDialogResponder(nullptr); }
    ScopedResponder(const ScopedResponder&) = delete;
    ScopedResponder& operator=(const ScopedResponder&) = delete;
};

// The entries of a double-NUL-terminated list, in UTF-8.
inline std::vector<std::string> ListEntries(LPCWSTR list) {
    std::vector<std::string> entries;
    if (list == nullptr) return entries;
    for (LPCWSTR at = list; *at != 0; at += WStrLen(at) + 1) entries.push_back(U(at));
    return entries;
}

// What the library passed to SHFileOperationW, copied while the call lasted.
struct ShellRecord {
    HWND owner = nullptr;
    UINT function = 0;
    std::vector<std::string> from;
    std::vector<std::string> to;
    bool toIsEmptyString = false;  // a pointer to "" rather than null
    FILEOP_FLAGS flags = 0;
    BOOL aborted = -1;
    LPVOID mappings = reinterpret_cast<LPVOID>(1);
    std::string title = "(null)";
};

inline ShellRecord Capture(const SHFILEOPSTRUCTW& operation) {
    ShellRecord record;
    record.owner = operation.hwnd;
    record.function = operation.wFunc;
    record.from = ListEntries(operation.pFrom);
    record.to = ListEntries(operation.pTo);
    record.toIsEmptyString = operation.pTo != nullptr && operation.pTo[0] == 0;
    record.flags = operation.fFlags;
    record.aborted = operation.fAnyOperationsAborted;
    record.mappings = operation.hNameMappings;
    if (operation.lpszProgressTitle != nullptr) record.title = U(operation.lpszProgressTitle);
    return record;
}

// Records every shell operation and answers each with a scripted result instead of running it.
class ShellRecorder {
public:
    explicit ShellRecorder(int result = 0)
        : patch_([this, result](LPSHFILEOPSTRUCTW operation) {
              records.push_back(Capture(*operation));
              return result;
          }) {}
    std::vector<ShellRecord> records;

private:
    ApiPatch<&Win32Api::SHFileOperationW> patch_;
};

// One progress message as a window received it.
struct ProgressMessage {
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
    friend bool operator==(const ProgressMessage&, const ProgressMessage&) = default;
};

inline std::ostream& operator<<(std::ostream& out, const ProgressMessage& m) {
    return out << "{" << std::hex << m.message << ", " << std::dec << m.wParam << ", 0x" << std::hex << m.lParam << std::dec << "}";
}

// A real progress bar, and every message sent to it while the recorder lives.
class ProgressRecorder {
public:
    ProgressRecorder()
        : patch_([this](HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
              if (window == control.GetSafeHwnd() && message != PBM_GETPOS && message != PBM_GETRANGE)
                  messages.push_back({message, wParam, lParam});
              return patch_.Original()(window, message, wParam, lParam);
          }) {
        RECT rect{0, 0, 100, 10};
        control.Create(WS_CHILD, rect, nullptr, 1);
    }
    CProgressCtrl control;
    std::vector<ProgressMessage> messages;

    // Only the positions, in order.
    std::vector<int> Positions() const {
        std::vector<int> positions;
        for (const ProgressMessage& m : messages) {
            if (m.message == PBM_SETPOS) positions.push_back(static_cast<int>(m.wParam));
        }
        return positions;
    }

private:
    ApiPatch<&Win32Api::SendMessageW> patch_;
};

constexpr ProgressMessage Range100() { return {PBM_SETRANGE, 0, 0x00640000}; }
constexpr ProgressMessage Position(int percent) { return {PBM_SETPOS, static_cast<WPARAM>(percent), 0}; }

}  // namespace testing_support
