// Failures told in words: the platform calls that failed under an export, and copies that
// would land inside their own source.
#include "report.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "../platform/api_patch.h"
#include "../platform/linux/host.h"

namespace cli {

struct FailureWatch::Patches {
    std::vector<Failure> failures;
    // Only what is watched is patched; the rest of the table stays as it is.
    std::unique_ptr<ApiPatch<&Win32Api::FindFirstFileW>> find;
    std::unique_ptr<ApiPatch<&Win32Api::CreateFileW>> open;
    std::unique_ptr<ApiPatch<&Win32Api::CopyFileExW>> copy;
};

namespace {

// A listing pattern's folder: the pattern without its last part.
std::string FolderOfPattern(LPCWSTR pattern) {
    WString text = pattern;
    const size_t slash = text.find_last_of(_T('\\'));
    if (slash != WString::npos) text.resize(slash + 1);
    return Printable(text.c_str());
}

}  // namespace

bool ListsFolder(LPCWSTR pattern) {
    bool wildcard = false;
    for (LPCWSTR unit = pattern; unit != nullptr && *unit != 0; ++unit) {
        if (*unit == _T('\\') || *unit == _T('/')) wildcard = false;
        else if (*unit == _T('*') || *unit == _T('?')) wildcard = true;
    }
    return wildcard;
}

FailureWatch::FailureWatch(unsigned watched) : patches_(new Patches) {
    Patches& p = *patches_;
    if (watched & kListing) {
        p.find = std::make_unique<ApiPatch<&Win32Api::FindFirstFileW>>([&p](LPCWSTR pattern, LPWIN32_FIND_DATAW data) {
            HANDLE find = p.find->Original()(pattern, data);
            // Nothing matching is an answer, not a failure.
            const DWORD code = sys().GetLastError();
            if (find == INVALID_HANDLE_VALUE && code != ERROR_FILE_NOT_FOUND) {
                // A pattern lists a folder; a plain path looks one entry up (a folder about to be made).
                const bool listing = ListsFolder(pattern);
                p.failures.push_back({listing ? "cannot list" : "cannot reach", listing ? FolderOfPattern(pattern) : Printable(pattern), code});
                sys().SetLastError(code);
            }
            return find;
        });
    }
    if (watched & kReading) {
        p.open = std::make_unique<ApiPatch<&Win32Api::CreateFileW>>(
            [&p](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD disposition, DWORD flags,
                 HANDLE templateFile) {
                HANDLE file = p.open->Original()(path, access, share, security, disposition, flags, templateFile);
                const DWORD code = sys().GetLastError();
                if (file == INVALID_HANDLE_VALUE && (access & GENERIC_READ) != 0) {
                    p.failures.push_back({"cannot read", Printable(path), code});
                    sys().SetLastError(code);
                }
                return file;
            });
    }
    if (watched & kCopying) {
        p.copy = std::make_unique<ApiPatch<&Win32Api::CopyFileExW>>(
            [&p](LPCWSTR existing, LPCWSTR newName, LPPROGRESS_ROUTINE progress, LPVOID data, LPBOOL cancel, DWORD flags) {
                const BOOL copied = p.copy->Original()(existing, newName, progress, data, cancel, flags);
                const DWORD code = sys().GetLastError();
                if (!copied) {
                    p.failures.push_back({"cannot copy", Printable(existing) + " to " + Printable(newName), code});
                    sys().SetLastError(code);
                }
                return copied;
            });
    }
}

FailureWatch::~FailureWatch() { delete patches_; }

const std::vector<FailureWatch::Failure>& FailureWatch::failures() const { return patches_->failures; }

bool FailureWatch::Report(const Command& command) const {
    for (const Failure& failure : failures()) Fail(command, failure.what + " " + failure.path + ": " + ErrorWords(failure.code));
    return failures().empty();
}

void FailureWatch::WriteJson(JsonWriter& json) const {
    json.BeginArray();
    for (const Failure& failure : failures()) {
        json.BeginObject().Key("what").String(failure.what).Key("path").String(failure.path);
        json.Key("code").Number(failure.code).Key("reason").String(ErrorWords(failure.code)).EndObject();
    }
    json.EndArray();
}

namespace {

// The host path a Win32 path leads to, links resolved; for a path that does not exist yet, that of the
// nearest folder above it that does.
std::string RealHostPath(CString path) {
    for (;;) {
        const std::string host = vlx::Win32ToHostPath(path);
        if (!host.empty()) {
            if (char* real = realpath(host.c_str(), nullptr)) {
                std::string result = real;
                std::free(real);
                return result;
            }
        }
        path.TrimRight(_T('\\'));
        const int slash = path.ReverseFind(_T('\\'));
        if (slash < 0) return {};
        path = path.Left(slash + 1);
    }
}

}  // namespace

bool InsideSource(const CString& source, const CString& destination) {
    const std::string from = RealHostPath(source);
    const std::string to = RealHostPath(destination);
    if (from.empty() || to.empty()) return false;
    if (from == "/" || to == from) return true;
    return to.compare(0, from.size(), from) == 0 && to.size() > from.size() && to[from.size()] == '/';
}

}  // namespace cli
