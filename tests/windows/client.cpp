// A small Windows client of Velmora.dll, built as an application would be: the header, the import library
// and its own copy of the MFC subset. Its window holds a progress bar, a list control and three buttons:
// a direct copy drawn into the bar, a count reported into the list, and a shell-way copy that asks before
// it replaces a file. Started with a work folder it drives itself through window messages, answers the
// replace question, checks what the controls hold, saves a picture of its window and exits 0 when all
// was as expected. Usage: velmora_client.exe WORK_FOLDER [SCREENSHOT.bmp]
#include <velmora/velmora.h>

#include <commctrl.h>

#include <cstdio>
#include <cwchar>
#include <string>
#include <thread>

namespace {

enum ControlId : UINT { kCopyButton = 101, kCountButton, kShellCopyButton, kProgressBar = 201, kListView };
// The library's replace question and its skip button.
constexpr const wchar_t* kReplaceTitle = L"\u30D5\u30A1\u30A4\u30EB\u306E\u7F6E\u63DB\u307E\u305F\u306F\u30B9\u30AD\u30C3\u30D7";
constexpr int kSkipButton = 101;

struct Client {
    std::wstring work;
    HWND window = nullptr;
    CProgressCtrl progress;
    CListCtrl list;
    BOOL cancel = FALSE;
    BOOL copied = FALSE;
    ULONGLONG files = 0, folders = 0, bytes = 0;
    BOOL shellCopied = TRUE;
    int shellCode = 0;
};
Client g_client;
int g_failures = 0;

void Check(bool ok, const char* what) {
    std::printf("%s %s\n", ok ? "ok  " : "FAIL", what);
    std::fflush(stdout);
    if (!ok) ++g_failures;
}

CString Path(const wchar_t* relative) { return CString((g_client.work + L"\\" + relative).c_str()); }

void OnCommand(UINT id) {
    Client& c = g_client;
    switch (id) {
        case kCopyButton:
            c.copied = CopyFilesNoneShell(Path(L"src"), Path(L"copy"), &c.cancel, &c.progress, CString());
            break;
        case kCountButton:
            c.files = c.folders = c.bytes = 0;
            c.list.DeleteAllItems();
            GetFileCountInFolderEx(Path(L"src"), &c.files, &c.folders, &c.bytes, nullptr, CString(), &c.cancel, COleDateTime(),
                                   COleDateTime(), 0, 0, 0, &c.list);
            break;
        case kShellCopyButton:
            // Small enough for the direct way, which asks before it replaces the copy made above.
            c.shellCopied = CopyFilesEx(Path(L"src\\a.txt"), Path(L"copy"), 0, 0, FALSE, FALSE, 1 << 20, &c.shellCode, c.window);
            break;
    }
}

LRESULT CALLBACK WindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
        case WM_COMMAND:
            if (HIWORD(wParam) == BN_CLICKED) OnCommand(LOWORD(wParam));
            return 0;
        case WM_DESTROY:
            PostQuitMessage(0);
            return 0;
        default:
            return DefWindowProcW(window, message, wParam, lParam);
    }
}

void MakeWindow(HINSTANCE instance) {
    WNDCLASSW windowClass{};
    windowClass.lpfnWndProc = WindowProc;
    windowClass.hInstance = instance;
    windowClass.hCursor = LoadCursorW(nullptr, reinterpret_cast<LPCWSTR>(IDC_ARROW));
    windowClass.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_BTNFACE + 1);
    windowClass.lpszClassName = L"VelmoraClient";
    RegisterClassW(&windowClass);
    HWND window = CreateWindowExW(0, L"VelmoraClient", L"Velmora client", WS_OVERLAPPEDWINDOW, 20, 20, 560, 360, nullptr, nullptr,
                                  instance, nullptr);
    g_client.window = window;
    const struct {
        UINT id;
        const wchar_t* text;
        int x;
    } buttons[] = {{kCopyButton, L"Copy", 10}, {kCountButton, L"Count", 140}, {kShellCopyButton, L"Copy (ask)", 270}};
    for (const auto& button : buttons)
        CreateWindowExW(0, L"BUTTON", button.text, WS_CHILD | WS_VISIBLE | BS_PUSHBUTTON, button.x, 10, 120, 28, window,
                        reinterpret_cast<HMENU>(static_cast<UINT_PTR>(button.id)), instance, nullptr);
    g_client.progress.Attach(CreateWindowExW(0, PROGRESS_CLASSW, L"", WS_CHILD | WS_VISIBLE, 10, 48, 520, 22, window,
                                             reinterpret_cast<HMENU>(static_cast<UINT_PTR>(kProgressBar)), instance, nullptr));
    g_client.list.Attach(CreateWindowExW(WS_EX_CLIENTEDGE, WC_LISTVIEWW, L"", WS_CHILD | WS_VISIBLE | LVS_REPORT, 10, 80, 520, 230,
                                         window, reinterpret_cast<HMENU>(static_cast<UINT_PTR>(kListView)), instance, nullptr));
    g_client.list.InsertColumn(0, L"Path", LVCFMT_LEFT, 300);
    g_client.list.InsertColumn(1, L"Written", LVCFMT_LEFT, 120);
    g_client.list.InsertColumn(2, L"Size", LVCFMT_RIGHT, 90);
    ShowWindow(window, SW_SHOW);
    UpdateWindow(window);
}

void PumpMessages() {
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
}

// A button pressed as the user would: the click goes to the button, which tells its parent.
void Press(UINT id) {
    SendMessageW(GetDlgItem(g_client.window, static_cast<int>(id)), BM_CLICK, 0, 0);
    PumpMessages();
}

// The replace question, answered "skip" from another thread as a user would answer it.
void AnswerReplaceQuestion(bool& answered) {
    for (int tries = 0; tries < 200 && !answered; ++tries) {
        if (HWND dialog = FindWindowW(nullptr, kReplaceTitle)) {
            SendMessageW(dialog, TDM_CLICK_BUTTON, kSkipButton, 0);
            answered = true;
            return;
        }
        Sleep(50);
    }
}

std::wstring ItemText(HWND list, int item, int subItem) {
    wchar_t text[MAX_PATH] = {};
    LVITEMW query{};
    query.iSubItem = subItem;
    query.pszText = text;
    query.cchTextMax = MAX_PATH;
    SendMessageW(list, LVM_GETITEMTEXTW, static_cast<WPARAM>(item), reinterpret_cast<LPARAM>(&query));
    return text;
}

// The window as it is on the screen, as a 24-bit BMP file.
bool SaveWindowPicture(HWND window, const wchar_t* file) {
    RECT rect{};
    GetWindowRect(window, &rect);
    const int width = rect.right - rect.left, height = rect.bottom - rect.top;
    HDC screen = GetDC(nullptr);
    HDC memory = CreateCompatibleDC(screen);
    BITMAPINFO info{};
    info.bmiHeader.biSize = sizeof info.bmiHeader;
    info.bmiHeader.biWidth = width;
    info.bmiHeader.biHeight = height;
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 24;
    info.bmiHeader.biCompression = BI_RGB;
    void* bits = nullptr;
    HBITMAP bitmap = CreateDIBSection(memory, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
    HGDIOBJ previous = SelectObject(memory, bitmap);
    const bool copied = BitBlt(memory, 0, 0, width, height, screen, rect.left, rect.top, SRCCOPY) != FALSE;
    GdiFlush();
    const DWORD rowBytes = (static_cast<DWORD>(width) * 3 + 3) & ~3u;
    const DWORD imageBytes = rowBytes * static_cast<DWORD>(height);
    BITMAPFILEHEADER header{};
    header.bfType = 0x4D42;  // "BM"
    header.bfOffBits = sizeof header + sizeof info.bmiHeader;
    header.bfSize = header.bfOffBits + imageBytes;
    bool saved = false;
    if (copied) {
        if (FILE* out = _wfopen(file, L"wb")) {
            saved = std::fwrite(&header, sizeof header, 1, out) == 1 && std::fwrite(&info.bmiHeader, sizeof info.bmiHeader, 1, out) == 1 &&
                    std::fwrite(bits, 1, imageBytes, out) == imageBytes;
            saved = std::fclose(out) == 0 && saved;
        }
    }
    SelectObject(memory, previous);
    DeleteObject(bitmap);
    DeleteDC(memory);
    ReleaseDC(nullptr, screen);
    return saved;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    if (argc < 2) {
        std::printf("usage: velmora_client.exe WORK_FOLDER [SCREENSHOT.bmp]\n");
        return 2;
    }
    g_client.work = argv[1];
    INITCOMMONCONTROLSEX controls{sizeof controls, ICC_PROGRESS_CLASS | ICC_LISTVIEW_CLASSES};
    InitCommonControlsEx(&controls);
    MakeWindow(GetModuleHandleW(nullptr));
    PumpMessages();
    HWND bar = GetDlgItem(g_client.window, kProgressBar);
    HWND list = GetDlgItem(g_client.window, kListView);

    Press(kCopyButton);
    Check(g_client.copied == TRUE, "CopyFilesNoneShell copies the tree");
    Check(SendMessageW(bar, PBM_GETPOS, 0, 0) == 100, "the progress bar stands at 100 after the copy");
    Check(GetFileAttributesW(Path(L"copy\\sub\\b.txt")) != INVALID_FILE_ATTRIBUTES, "the copy holds the subfolder's file");

    Press(kCountButton);
    const LRESULT rows = SendMessageW(list, LVM_GETITEMCOUNT, 0, 0);
    Check(g_client.files == 2 && g_client.folders == 1, "GetFileCountInFolderEx counts two files and one folder");
    Check(rows == 2, "the list control holds one row per file");
    bool sawB = false;
    for (int row = 0; row < rows; ++row) sawB = sawB || ItemText(list, row, 0).find(L"b.txt") != std::wstring::npos;
    Check(sawB, "a row names the subfolder's file");
    Check(!ItemText(list, 0, 2).empty(), "a row has its size");

    bool answered = false;
    std::thread user(AnswerReplaceQuestion, std::ref(answered));
    Press(kShellCopyButton);
    user.join();
    Check(answered, "CopyFilesEx asks before replacing the file");
    Check(g_client.shellCopied == FALSE && g_client.shellCode == ERROR_ALREADY_EXISTS,
          "skipping at the question gives detail code ERROR_ALREADY_EXISTS");

    InvalidateRect(g_client.window, nullptr, TRUE);
    UpdateWindow(g_client.window);
    PumpMessages();
    if (argc > 2) Check(SaveWindowPicture(g_client.window, argv[2]), "the window's picture is saved");
    DestroyWindow(g_client.window);
    PumpMessages();
    std::printf("%d failure(s)\n", g_failures);
    return g_failures == 0 ? 0 : 1;
}
