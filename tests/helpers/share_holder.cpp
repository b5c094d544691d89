// A second process for the share-mode tests: it maps T: to a host folder, opens one path there with the
// access, share mode and flags it is given, writes the open's error code (0 when it succeeded) as one
// line, and holds the handle until its input ends.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "platform/api.h"
#include "platform/linux/host.h"

int main(int argc, char** argv) {
    if (argc != 6) {
        std::fprintf(stderr, "usage: share_holder FOLDER WIN32PATH ACCESS SHARE FLAGS\n");
        return 2;
    }
    if (!vlx::MapDrive('T', argv[1])) return 2;
    const WString path = WStrFromUtf8(argv[2]);
    auto number = [](const char* text) { return static_cast<DWORD>(std::strtoul(text, nullptr, 0)); };
    HANDLE held = sys().CreateFileW(path.c_str(), number(argv[3]), number(argv[4]), nullptr, OPEN_EXISTING, number(argv[5]), nullptr);
    std::printf("%lu\n", static_cast<unsigned long>(held == INVALID_HANDLE_VALUE ? sys().GetLastError() : ERROR_SUCCESS));
    std::fflush(stdout);
    char ignored;
    while (read(STDIN_FILENO, &ignored, 1) > 0) {
    }
    if (held != INVALID_HANDLE_VALUE) sys().CloseHandle(held);
    return 0;
}
