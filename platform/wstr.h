// The wide-string helpers the library needs, in one place: length, compare, case-insensitive compare and
// a bounded printf-style formatter over WCHAR (which is char16_t on Linux, where the CRT has none).
#pragma once

#include <cstdarg>
#include <cstdint>
#include <string>

#include "win32.h"

using WString = std::basic_string<WCHAR>;

size_t WStrLen(LPCWSTR text);

// Ordinal comparison: <0, 0 or >0 as text sorts before, equal to or after other.
int WStrCmp(LPCWSTR text, LPCWSTR other);

// Case-insensitive comparison as the CRT does it in the "C" locale that an MFC program runs in unless it
// sets another: only A-Z and a-z are folded, every other unit compares by value.
int WStrICmp(LPCWSTR text, LPCWSTR other);
// The same over at most the first count units (_wcsnicmp): a shorter string differs at its terminator.
int WStrNICmp(LPCWSTR text, LPCWSTR other, size_t count);
WCHAR WCharToUpper(WCHAR unit);
WCHAR WCharToLower(WCHAR unit);

// printf-style formatting with the specifiers the library uses: %s (WCHAR string), %c (WCHAR), %d, %i,
// %u, %x, %X, %ld, %lu, %lld, %llu, %I64d, %I64u, %I64x, %%, the flags '-' and '0', a width, and a
// precision for strings. An unknown specifier is copied as it stands.
WString WStrFormatV(LPCWSTR format, va_list args);
WString WStrFormat(LPCWSTR format, ...);

// Bounded form: writes at most capacity units including the terminating NUL and fails (returns -1,
// leaving an empty string) when the result does not fit, so a fixed buffer is never overrun.
int WStrFormatBuffer(LPWSTR buffer, size_t capacity, LPCWSTR format, ...);

// Copies text into a fixed buffer; false (buffer left empty) when it does not fit with its NUL.
bool WStrCopy(LPWSTR buffer, size_t capacity, LPCWSTR text);

// UTF-8 <-> UTF-16, for hosts and tests that meet byte strings (terminals, file names on Linux).
// Decoding is strict: overlong forms, encoded surrogates, code points past U+10FFFF and cut-off sequences
// are not UTF-8, and each of their bytes becomes U+FFFD. Encoding writes a lone surrogate as U+FFFD, so
// the bytes produced are always valid UTF-8 and decode back to the same units whenever the units held no
// lone surrogate.
WString WStrFromUtf8(const std::string& text);
std::string WStrToUtf8(const WString& text);
std::string WStrToUtf8(LPCWSTR text);
// The UTF-8 form of length units appended to out, so that a caller that writes many texts can keep one buffer.
void WStrAppendUtf8(std::string& out, LPCWSTR text, size_t length);
// The one well-formed UTF-8 sequence at text[at], if there is one: its code point and its length in bytes.
bool DecodeUtf8At(const std::string& text, size_t at, uint32_t& code, size_t& length);
// Appends a code point (at most U+10FFFF, not a surrogate) as UTF-16 units.
void AppendUtf16(WString& out, uint32_t code);
