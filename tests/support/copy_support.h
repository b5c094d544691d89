// Test support for the copy engine: a scripted user for dialogs, shell operation records taken apart,
// and the progress messages a progress bar receives.
#pragma once

#include <string>
#include <vector>

#include "../../frame/frame_internal.h"
#include "../../platform/api_patch.h"
#include "host_fixture.h"

namespace testing_support {

// The whole content of a host file, empty when it cannot be read.
inline std::string ReadHostFile(const std::string& hostPath) {
    std::ifstream in(hostPath, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// Installs a responder for the life of the scope and removes it afterwards, so that no other test meets it.
struct ScopedResponder {
    explicit ScopedResponder(vlx::DialogResponder responder) { vlx::SetDialogResponder(std::move(responder)); }
    ~ScopedResponder() { vlx::SetDialogResponder(nullptr); }
};

// The entries of a double-NUL-terminated list, in UTF-8.
inline std::vector<std::string> ListEntries(LPCWSTR list) {
    std::vector<std::string> entries;
    for (LPCWSTR at = list; at != nullptr && *at != 0; at += WStrLen(at) + 1) entries.push_back(U(at));
    return entries;
}

// What the library passed to SHFileOperationW, copied while the call lasted. The defaults of the last four
// fields are what every record the library builds carries: nothing aborted yet, no mappings, an empty
// title, and the call made in the library's module state.
struct ShellRecord {
    HWND owner = nullptr;
    UINT function = FO_COPY;
    std::vector<std::string> from = {}, to = {};
    FILEOP_FLAGS flags = 0;
    bool toIsEmptyString = false;  // a pointer to "" rather than a list or null
    BOOL aborted = FALSE;
    LPVOID mappings = nullptr;
    std::string title = "";
    bool inLibraryState = true;
    friend bool operator==(const ShellRecord&, const ShellRecord&) = default;
};

using ShellRecords = std::vector<ShellRecord>;

inline std::ostream& operator<<(std::ostream& out, const ShellRecord& r) {
    return out << "{owner " << r.owner << ", function " << r.function << ", from " << testing::PrintToString(r.from)
               << ", to " << testing::PrintToString(r.to) << ", flags 0x" << std::hex << r.flags << std::dec << ", to \"\" "
               << r.toIsEmptyString << ", aborted " << r.aborted << ", mappings " << r.mappings << ", title \"" << r.title
               << "\", library state " << r.inLibraryState << "}";
}

inline ShellRecord Capture(const SHFILEOPSTRUCTW& o) {
    return {o.hwnd, o.wFunc, ListEntries(o.pFrom), ListEntries(o.pTo), o.fFlags, o.pTo != nullptr && o.pTo[0] == 0,
            o.fAnyOperationsAborted, o.hNameMappings, o.lpszProgressTitle ? U(o.lpszProgressTitle) : "(null)",
            AfxGetModuleState() == VelmoraModuleState()};
}

// Records every shell operation, then answers it with a scripted result or, with run set, runs it.
class ShellRecorder {
public:
    explicit ShellRecorder(int result = 0, bool run = false)
        : patch_([this, result, run](LPSHFILEOPSTRUCTW operation) {
              records.push_back(Capture(*operation));
              return run ? patch_.Original()(operation) : result;
          }) {}
    ShellRecords records;

private:
    ApiPatch<&Win32Api::SHFileOperationW> patch_;
};

// A real progress bar, and a log of the messages that change it while the recorder lives: "R" for the
// range 0 to 100, a position as its number, "?" for anything else.
class ProgressRecorder {
public:
    ProgressRecorder()
        : patch_([this](HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
              if (window == control.GetSafeHwnd() && message != PBM_GETPOS && message != PBM_GETRANGE) {
                  const bool range100 = message == PBM_SETRANGE && wParam == 0 && lParam == MAKELPARAM(0, 100);
                  log += message == PBM_SETPOS ? std::to_string(wParam) + " " : range100 ? "R " : "? ";
              }
              return patch_.Original()(window, message, wParam, lParam);
          }) {
        control.Create(WS_CHILD, RECT{0, 0, 100, 10}, nullptr, 1);
    }
    CProgressCtrl control;
    std::string log;

private:
    ApiPatch<&Win32Api::SendMessageW> patch_;
};

}  // namespace testing_support
