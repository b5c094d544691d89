// velmora snapshot: copy a file out of a fresh shadow copy of its volume, for a file that another program
// holds open without sharing or keeps changing. The copy is made, the one file read from it, and the copy
// let go again before the command ends.
#include <cctype>
#include <cstdio>
#include <vector>

#include "../platform/api.h"
#include "../platform/unique_handles.h"
#include "../platform/vssapi.h"
#include "command.h"

namespace cli {

namespace {

int RunSnapshot(const std::vector<std::string>& args);

const Command kSnapshot = {
    "snapshot",
    "copy a file out of a shadow copy of its volume, even while it is locked",
    "snapshot X: --copy PATH DEST [--hold]\n"
    "  Makes a shadow copy of volume X: (an NTFS volume of an attached disk image, --disk), copies PATH (on\n"
    "  X:, as X:\\dir\\file or \\dir\\file) out of it into DEST, and lets the copy go. --hold first opens\n"
    "  PATH without sharing and keeps it open throughout, as a program that has it locked would. Needs root.",
    RunSnapshot,
};

constexpr DWORD kChunk = 1 << 20;

std::string ErrorText(DWORD error) { return "error " + std::to_string(error); }

// The file's path below its volume root, from X:\dir\file, \dir\file or dir\file.
std::string BelowRoot(std::string path, char letter) {
    if (path.size() >= 2 && path[1] == ':' && std::toupper(static_cast<unsigned char>(path[0])) == letter) path.erase(0, 2);
    for (char& unit : path) {
        if (unit == '/') unit = '\\';
    }
    while (!path.empty() && path[0] == '\\') path.erase(0, 1);
    return path;
}

// Everything the file holds into DEST; false with the failing call's last error.
bool CopyOut(HANDLE source, LPCWSTR destination, ULONGLONG& copied, DWORD& error) {
    UniqueHandle target(sys().CreateFileW(destination, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!target) {
        error = sys().GetLastError();
        return false;
    }
    std::vector<char> buffer(kChunk);
    DWORD read = 0;
    while (true) {
        if (!sys().ReadFile(source, buffer.data(), kChunk, &read, nullptr)) {
            error = sys().GetLastError();
            return false;
        }
        if (read == 0) return true;
        DWORD written = 0;
        if (!sys().WriteFile(target.get(), buffer.data(), read, &written, nullptr) || written != read) {
            error = sys().GetLastError();
            return false;
        }
        copied += read;
    }
}

int RunSnapshot(const std::vector<std::string>& args) {
    std::string volume, path, destination;
    bool hold = false;
    for (size_t at = 0; at < args.size(); ++at) {
        if (args[at] == "--copy" && at + 2 < args.size()) {
            path = args[++at];
            destination = args[++at];
        } else if (args[at] == "--hold") {
            hold = true;
        } else if (volume.empty() && args[at].rfind("--", 0) != 0) {
            volume = args[at];
        } else {
            return UsageError(kSnapshot, "unexpected " + args[at]);
        }
    }
    if (volume.empty() || path.empty()) return UsageError(kSnapshot, "a volume and --copy PATH DEST are needed");
    if (volume.size() == 3 && volume[2] == '\\') volume.resize(2);
    if (volume.size() != 2 || volume[1] != ':' || !std::isalpha(static_cast<unsigned char>(volume[0])))
        return UsageError(kSnapshot, "the volume is a drive letter, as E:");
    const char letter = static_cast<char>(std::toupper(static_cast<unsigned char>(volume[0])));
    const std::string below = BelowRoot(path, letter);
    if (below.empty()) return UsageError(kSnapshot, "PATH names a file on " + volume);

    // VssOpenFile takes the path under the volume's name, as the copy's properties give it.
    const WString root = WStrFromUtf8(std::string(1, letter) + ":\\");
    WCHAR volumeName[MAX_PATH] = {};
    if (!sys().GetVolumeNameForVolumeMountPointW(root.c_str(), volumeName, MAX_PATH))
        return Fail(kSnapshot, "no volume at " + volume + " (" + ErrorText(sys().GetLastError()) + ")");
    const WString live = root + WStrFromUtf8(below);

    UniqueHandle holder;
    if (hold) {
        holder.reset(sys().CreateFileW(live.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                       FILE_ATTRIBUTE_NORMAL, nullptr));
        if (!holder) return Fail(kSnapshot, "cannot hold " + Printable(live.c_str()) + " (" + ErrorText(sys().GetLastError()) + ")");
        UniqueHandle again(sys().CreateFileW(live.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
        std::printf("live file %s: %s\n", Printable(live.c_str()).c_str(),
                    again ? "readable" : ("locked (" + ErrorText(sys().GetLastError()) + ")").c_str());
    }

    UniqueApartment apartment;  // the shadow copy service wants COM in the calling thread
    WCHAR device[MAX_PATH] = {};
    if (!InitializeVssBackUp(root.c_str(), VSS_BT_COPY, device, nullptr)) {
        CloseVssBackUp();
        return Fail(kSnapshot, "no shadow copy of " + volume + " (an NTFS volume of an attached disk image, and root, are needed)");
    }
    std::printf("shadow copy of %s: %s\n", Printable(volumeName).c_str(), Printable(device).c_str());
    const WString inCopy = WString(volumeName) + WStrFromUtf8(below);
    UniqueHandle source(VssOpenFile(inCopy.c_str()));
    if (!source) {
        const DWORD error = sys().GetLastError();
        CloseVssBackUp();
        return Fail(kSnapshot, "cannot open " + below + " in the copy (" + ErrorText(error) + ")");
    }
    ULONGLONG copied = 0;
    DWORD error = 0;
    const bool done = CopyOut(source.get(), LibraryPath(destination), copied, error);
    source.reset();  // the file first, then the copy it lies in
    CloseVssBackUp();
    if (!done) return Fail(kSnapshot, "cannot copy into " + destination + " (" + ErrorText(error) + ")");
    std::printf("copied %llu bytes of %s into %s\n", static_cast<unsigned long long>(copied), Printable(live.c_str()).c_str(),
                destination.c_str());
    return kExitOk;
}

const CommandRegistration kRegistration(kSnapshot);

}  // namespace

}  // namespace cli
