// The words for every code a command meets: Win32 error codes, the shell's file-operation results and the
// detail codes of the copy and zip exports, in one table, as FormatMessage would give them.
#pragma once

#include <string>

#include <velmora/velmora.h>

namespace cli {

// Where a code came from: the same number means different things to each.
enum class CodeSource {
    Win32,             // GetLastError
    Shell,             // SHFileOperationW's result: the shell's own DE_ codes, else a Win32 code
    CopyFilesEx,       // its detail code: negative ones are its own, the rest as the shell's
    CopyFilesMultiEx,  // the same
    CompressToZip,     // its detail code
};

// A short reason, lower case, without a full stop: "access is denied". An unknown code gives its number.
std::string CodeWords(CodeSource source, long long code);

// The reason for a Win32 error code in words.
inline std::string ErrorWords(DWORD code) { return CodeWords(CodeSource::Win32, code); }

// Columns a character takes on a terminal: East Asian wide and full-width characters two, combining
// marks none, the rest one.
size_t DisplayColumns(char32_t character);
// Columns a UTF-8 text, or length UTF-16 units, take; and the text padded with spaces to width columns
// (on the left when right).
size_t DisplayWidth(const std::string& utf8);
size_t DisplayWidth(LPCWSTR text, size_t length);
std::string Pad(const std::string& text, size_t width, bool right = false);

}  // namespace cli
