// A scripted platform for logic tests of the file-property exports: the entries a test needs are
// patched, every call is logged with the values passed, in order, and each answer can be set or made to
// fail with a code of the test's choice. Also the reading of a result chain, shared by the walks' tests.
#pragma once

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "../../platform/api_patch.h"
#include "host_fixture.h"

namespace testing_support {

inline std::string Hex(ULONGLONG value) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
    return text;
}

// The (path, flags) of each node chained behind head, freeing every node as the caller does.
inline std::vector<std::pair<std::string, DWORD>> TakeChain(FileListNode& head) {
    std::vector<std::pair<std::string, DWORD>> chain;
    for (FileListNode* node = head.next; node != nullptr;) {
        FileListNode* next = node->next;
        chain.emplace_back(WStrToUtf8(node->filePath), node->flags);
        std::free(node);
        node = next;
    }
    head.next = nullptr;
    return chain;
}
// The paths of a walk's chain, whose nodes all carry flags 0.
inline std::vector<std::string> TakePaths(FileListNode& head) {
    std::vector<std::string> paths;
    for (const auto& [path, flags] : TakeChain(head)) paths.push_back(path + (flags == 0 ? "" : " flags " + Hex(flags)));
    return paths;
}

class ScriptedFiles {
public:
    DWORD word = FILE_ATTRIBUTE_ARCHIVE;  // INVALID_FILE_ATTRIBUTES: unreachable, ERROR_PATH_NOT_FOUND
    DWORD links = 1;
    std::vector<std::string> linkNames;  // given one by one, then ERROR_HANDLE_EOF
    std::vector<WIN32_FIND_DATAW> found;   // the matches of any search, then ERROR_NO_MORE_FILES
    // Codes of failure, 0 for success.
    DWORD setError = 0, openError = 0, informationError = 0, controlError = 0, firstNameError = 0, nextFoundError = 0;
    std::vector<std::string> log;

    static inline const HANDLE kFile = reinterpret_cast<HANDLE>(static_cast<uintptr_t>(0x4242));
    static inline const HANDLE kSearch = reinterpret_cast<HANDLE>(static_cast<uintptr_t>(0x5151));

private:
    template <class T>
    static std::string Ptr(T* pointer) { return pointer == nullptr ? "null" : "set"; }
    // A name buffer as the library must hand it over: its whole length offered, and nothing left in it.
    static std::string Buffer(LPDWORD length, PWSTR name) {
        bool clean = true;
        for (DWORD at = 0; at < *length; ++at) clean = clean && name[at] == 0;
        return std::to_string(*length) + (clean ? " clean" : " dirty");
    }
    template <class T>
    T Failed(DWORD error, T result) {
        sys().SetLastError(error);
        return result;
    }
    BOOL GiveName(LPDWORD length, PWSTR name) {
        if (nextName_ >= linkNames.size()) return Failed(ERROR_HANDLE_EOF, FALSE);
        const WString text = WStrFromUtf8(linkNames[nextName_++]);
        text.copy(name, text.size());
        name[text.size()] = 0;
        *length = static_cast<DWORD>(text.size() + 1);
        return TRUE;
    }

    size_t nextName_ = 0, nextFound_ = 0;

    ApiPatch<&Win32Api::GetFileAttributesW> get_{[this](LPCWSTR path) {
        log.push_back("GetFileAttributesW " + U(path));
        return word == INVALID_FILE_ATTRIBUTES ? Failed(ERROR_PATH_NOT_FOUND, word) : word;
    }};
    ApiPatch<&Win32Api::SetFileAttributesW> set_{[this](LPCWSTR path, DWORD value) {
        log.push_back("SetFileAttributesW " + U(path) + " " + Hex(value));
        if (setError != 0) return Failed(setError, FALSE);
        word = value;
        return TRUE;
    }};
    ApiPatch<&Win32Api::CreateFileW> open_{[this](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                                                  DWORD disposition, DWORD flags, HANDLE templateFile) {
        log.push_back("CreateFileW " + U(path) + " " + Hex(access) + " " + Hex(share) + " " + Ptr(security) + " " +
                      std::to_string(disposition) + " " + Hex(flags) + " " + Ptr(templateFile));
        return openError != 0 ? Failed(openError, INVALID_HANDLE_VALUE) : kFile;
    }};
    ApiPatch<&Win32Api::DeviceIoControl> control_{[this](HANDLE file, DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize,
                                                         LPDWORD returned, LPOVERLAPPED overlapped) {
        const std::string state = in != nullptr && inSize == sizeof(USHORT) ? std::to_string(*static_cast<USHORT*>(in)) : "?";
        log.push_back("DeviceIoControl " + std::string(file == kFile ? "" : "stray ") + Hex(code) + " state " + state + " in " +
                      std::to_string(inSize) + " out " + Ptr(out) + " " + std::to_string(outSize) + " counter " +
                      Ptr(returned) + " overlapped " + Ptr(overlapped));
        return controlError != 0 ? Failed(controlError, FALSE) : TRUE;
    }};
    ApiPatch<&Win32Api::CloseHandle> close_{
        [this](HANDLE handle) { return log.push_back(handle == kFile ? "CloseHandle" : "CloseHandle stray"), TRUE; }};
    ApiPatch<&Win32Api::GetFileInformationByHandle> information_{[this](HANDLE file, LPBY_HANDLE_FILE_INFORMATION info) {
        log.push_back(file == kFile ? "GetFileInformationByHandle" : "GetFileInformationByHandle stray");
        if (informationError != 0) return Failed(informationError, FALSE);
        *info = BY_HANDLE_FILE_INFORMATION{};
        info->nNumberOfLinks = links;
        return TRUE;
    }};
    ApiPatch<&Win32Api::FindFirstFileNameW> firstName_{[this](LPCWSTR path, DWORD flags, LPDWORD length, PWSTR name) {
        log.push_back("FindFirstFileNameW " + U(path) + " " + std::to_string(flags) + " " + Buffer(length, name));
        nextName_ = 0;
        if (firstNameError != 0) return Failed(firstNameError, INVALID_HANDLE_VALUE);
        return GiveName(length, name) ? kSearch : INVALID_HANDLE_VALUE;
    }};
    ApiPatch<&Win32Api::FindNextFileNameW> nextName_call_{[this](HANDLE search, LPDWORD length, PWSTR name) {
        log.push_back(std::string(search == kSearch ? "" : "stray ") + "FindNextFileNameW " + Buffer(length, name));
        return GiveName(length, name);
    }};
    ApiPatch<&Win32Api::FindFirstFileW> firstFound_{[this](LPCWSTR pattern, LPWIN32_FIND_DATAW data) {
        log.push_back("FindFirstFileW " + U(pattern));
        nextFound_ = 0;
        if (found.empty()) return Failed(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
        *data = found[nextFound_++];
        return kSearch;
    }};
    ApiPatch<&Win32Api::FindNextFileW> nextFound_call_{[this](HANDLE, LPWIN32_FIND_DATAW data) {
        log.push_back("FindNextFileW");
        if (nextFound_ >= found.size()) return Failed(nextFoundError != 0 ? nextFoundError : ERROR_NO_MORE_FILES, FALSE);
        *data = found[nextFound_++];
        return TRUE;
    }};
    ApiPatch<&Win32Api::FindClose> findClose_{
        [this](HANDLE search) { return log.push_back(search == kSearch ? "FindClose" : "FindClose stray"), TRUE; }};
};

}  // namespace testing_support
