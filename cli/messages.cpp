// The table of words for codes, and its lookup: a code the export itself defines first, then the shell's
// results where the code may be one, then the Win32 error codes.
#include "messages.h"

namespace cli {

namespace {

// Not declared by every SDK subset, but reported by the platform for a failing disk.
constexpr long long kErrorIoDevice = 1117;

struct CodeText {
    CodeSource source;
    long long code;
    const char* words;
};

const CodeText kCodeTexts[] = {
    {CodeSource::CopyFilesEx, -1, "cancelled at the replace question"},
    {CodeSource::CopyFilesEx, -2, "the source or the destination is empty"},
    {CodeSource::CopyFilesEx, -3, "the source was not found"},
    {CodeSource::CopyFilesEx, -4, "the source is no full path"},
    {CodeSource::CopyFilesMultiEx, -1, "no list of sources"},
    {CodeSource::CopyFilesMultiEx, -2, "no sources, or the destination is empty"},
    {CodeSource::CopyFilesMultiEx, -3, "there is not enough memory for the list of sources"},
    {CodeSource::CopyFilesMultiEx, -4, "there is not enough memory for the list of targets"},
    {CodeSource::CopyFilesMultiEx, -7, "none of the sources was found"},
    {CodeSource::CompressToZip, -1, "the source was not found"},
    {CodeSource::CompressToZip, -2, "the source is an empty folder"},
    {CodeSource::CompressToZip, -3, "no archive path"},
    {CodeSource::CompressToZip, -4, "the archive could not be created"},
    {CodeSource::CompressToZip, -5, "the empty archive could not be written"},
    {CodeSource::CompressToZip, -6, "the shell is not available"},
    {CodeSource::CompressToZip, -7, "the archive is not a zip folder"},
    {CodeSource::CompressToZip, -8, "the shell refused the copy"},
    {CodeSource::CompressToZip, -9, "the shell did not release the archive (it may be incomplete)"},

    {CodeSource::Shell, DE_SAMEFILE, "source and target are the same file"},
    {CodeSource::Shell, DE_MANYSRC1DEST, "several sources for one target"},
    {CodeSource::Shell, DE_ROOTDIR, "a drive's root cannot be moved or deleted"},
    {CodeSource::Shell, DE_DESTSUBTREE, "the target folder lies inside the source folder"},
    {CodeSource::Shell, DE_MANYDEST, "more targets than sources"},
    {CodeSource::Shell, DE_INVALIDFILES, "a source is no valid path"},
    {CodeSource::Shell, DE_FLDDESTISFILE, "the destination is a file, where a folder is needed"},
    {CodeSource::Shell, DE_FILEDESTISFLD, "a file would replace a folder"},

    {CodeSource::Win32, ERROR_SUCCESS, "done"},
    {CodeSource::Win32, ERROR_INVALID_FUNCTION, "the volume cannot do that"},
    {CodeSource::Win32, ERROR_FILE_NOT_FOUND, "it was not found"},
    {CodeSource::Win32, ERROR_PATH_NOT_FOUND, "the path was not found"},
    {CodeSource::Win32, ERROR_TOO_MANY_OPEN_FILES, "too many files are open"},
    {CodeSource::Win32, ERROR_ACCESS_DENIED, "access is denied"},
    {CodeSource::Win32, ERROR_INVALID_HANDLE, "the handle is not valid"},
    {CodeSource::Win32, ERROR_NOT_ENOUGH_MEMORY, "there is not enough memory"},
    {CodeSource::Win32, ERROR_OUTOFMEMORY, "there is not enough memory"},
    {CodeSource::Win32, ERROR_INVALID_DRIVE, "there is no such drive"},
    {CodeSource::Win32, ERROR_NOT_SAME_DEVICE, "source and target are on different volumes"},
    {CodeSource::Win32, ERROR_WRITE_PROTECT, "the volume is read-only"},
    {CodeSource::Win32, ERROR_NOT_READY, "the device is not ready"},
    {CodeSource::Win32, ERROR_CRC, "the data is damaged (CRC error)"},
    {CodeSource::Win32, ERROR_WRITE_FAULT, "the device could not write"},
    {CodeSource::Win32, ERROR_READ_FAULT, "the device could not read"},
    {CodeSource::Win32, ERROR_GEN_FAILURE, "the device reported an input/output error"},
    {CodeSource::Win32, kErrorIoDevice, "the device reported an input/output error"},
    {CodeSource::Win32, ERROR_SHARING_VIOLATION, "another program is using it"},
    {CodeSource::Win32, ERROR_LOCK_VIOLATION, "another program has locked part of it"},
    {CodeSource::Win32, ERROR_HANDLE_DISK_FULL, "the disk is full"},
    {CodeSource::Win32, ERROR_DISK_FULL, "the disk is full"},
    {CodeSource::Win32, ERROR_NOT_SUPPORTED, "the volume does not support it"},
    {CodeSource::Win32, ERROR_FILE_EXISTS, "the target exists"},
    {CodeSource::Win32, ERROR_ALREADY_EXISTS, "the target exists"},
    {CodeSource::Win32, ERROR_CANNOT_MAKE, "it cannot be made"},
    {CodeSource::Win32, ERROR_INVALID_PARAMETER, "a parameter is not valid"},
    {CodeSource::Win32, ERROR_BROKEN_PIPE, "the pipe was closed"},
    {CodeSource::Win32, ERROR_INVALID_NAME, "the name is not valid"},
    {CodeSource::Win32, ERROR_MOD_NOT_FOUND, "a library it needs was not found"},
    {CodeSource::Win32, ERROR_PROC_NOT_FOUND, "a library it needs lacks an entry point"},
    {CodeSource::Win32, ERROR_DIR_NOT_EMPTY, "the folder is not empty"},
    {CodeSource::Win32, ERROR_BAD_PATHNAME, "the path is not valid"},
    {CodeSource::Win32, ERROR_BUSY, "the resource is busy"},
    {CodeSource::Win32, ERROR_FILENAME_EXCED_RANGE, "the path is too long"},
    {CodeSource::Win32, ERROR_DIRECTORY, "it is no folder"},
    {CodeSource::Win32, ERROR_OPERATION_ABORTED, "it was stopped"},
    {CodeSource::Win32, ERROR_CANT_ACCESS_FILE, "it is no file that can be read (a pipe, socket or device)"},
    {CodeSource::Win32, ERROR_CANT_RESOLVE_FILENAME, "a link on the way cannot be followed"},
    {CodeSource::Win32, ERROR_CANCELLED, "it was cancelled"},
    {CodeSource::Win32, ERROR_REQUEST_ABORTED, "it was cancelled"},
    {CodeSource::Win32, ERROR_PRIVILEGE_NOT_HELD, "it needs an administrator (root)"},
    {CodeSource::Win32, ERROR_NOT_ALL_ASSIGNED, "it needs an administrator (root)"},
    {CodeSource::Win32, ERROR_FILE_CORRUPT, "the file is damaged"},
    {CodeSource::Win32, ERROR_BAD_FORMAT, "the file is not in the expected format"},
    {CodeSource::Win32, ERROR_UNRECOGNIZED_VOLUME, "the volume's file system is not recognised"},
    {CodeSource::Win32, ERROR_DEVICE_NOT_CONNECTED, "the device is not connected"},
};

const char* Find(CodeSource source, long long code) {
    for (const CodeText& text : kCodeTexts) {
        if (text.source == source && text.code == code) return text.words;
    }
    return nullptr;
}

}  // namespace

std::string CodeWords(CodeSource source, long long code) {
    if (const char* words = Find(source, code)) return words;
    // The exports' detail codes that are not their own are the shell's results.
    const bool mayBeShell = source != CodeSource::Win32 && !(source == CodeSource::CompressToZip);
    if (mayBeShell) {
        if (const char* words = Find(CodeSource::Shell, code)) return words;
    }
    if (source != CodeSource::CompressToZip && code >= 0) {
        if (const char* words = Find(CodeSource::Win32, code)) return words;
    }
    return (code < 0 ? "detail code " : "error ") + std::to_string(code);
}

size_t DisplayColumns(char32_t c) {
    if ((c >= 0x0300 && c <= 0x036F) || (c >= 0x200B && c <= 0x200F) || (c >= 0xFE00 && c <= 0xFE0F)) return 0;
    const bool wide = (c >= 0x1100 && c <= 0x115F) || (c >= 0x2E80 && c <= 0x303E) || (c >= 0x3041 && c <= 0x33FF) ||
                      (c >= 0x3400 && c <= 0x4DBF) || (c >= 0x4E00 && c <= 0x9FFF) || (c >= 0xA000 && c <= 0xA4CF) ||
                      (c >= 0xAC00 && c <= 0xD7A3) || (c >= 0xF900 && c <= 0xFAFF) || (c >= 0xFE30 && c <= 0xFE4F) ||
                      (c >= 0xFF00 && c <= 0xFF60) || (c >= 0xFFE0 && c <= 0xFFE6) || (c >= 0x1F300 && c <= 0x1F64F) ||
                      (c >= 0x1F900 && c <= 0x1F9FF) || (c >= 0x20000 && c <= 0x3FFFD);
    return wide ? 2 : 1;
}

size_t DisplayWidth(LPCWSTR text, size_t length) {
    size_t width = 0;
    for (size_t at = 0; at < length; ++at) {
        char32_t c = text[at];
        if (c >= 0xD800 && c <= 0xDBFF && at + 1 < length && text[at + 1] >= 0xDC00 && text[at + 1] <= 0xDFFF) {
            c = 0x10000 + ((c - 0xD800) << 10) + (text[at + 1] - 0xDC00);
            ++at;
        }
        width += DisplayColumns(c);
    }
    return width;
}

size_t DisplayWidth(const std::string& utf8) {
    const WString text = WStrFromUtf8(utf8);
    return DisplayWidth(text.data(), text.size());
}

std::string Pad(const std::string& text, size_t width, bool right) {
    const size_t used = DisplayWidth(text);
    const std::string fill(used < width ? width - used : 0, ' ');
    return right ? fill + text : text + fill;
}

}  // namespace cli
