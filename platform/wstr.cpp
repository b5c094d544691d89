// Wide-string helpers shared by the MFC subset, the library and its hosts.
#include "wstr.h"

#include <cinttypes>

size_t WStrLen(LPCWSTR text) {
    if (text == nullptr) return 0;
    size_t length = 0;
    while (text[length] != 0) ++length;
    return length;
}

int WStrCmp(LPCWSTR text, LPCWSTR other) {
    for (;; ++text, ++other) {
        if (*text != *other) return *text < *other ? -1 : 1;
        if (*text == 0) return 0;
    }
}

WCHAR WCharToUpper(WCHAR unit) { return (unit >= 'a' && unit <= 'z') ? static_cast<WCHAR>(unit - 'a' + 'A') : unit; }
WCHAR WCharToLower(WCHAR unit) { return (unit >= 'A' && unit <= 'Z') ? static_cast<WCHAR>(unit - 'A' + 'a') : unit; }

int WStrICmp(LPCWSTR text, LPCWSTR other) {
    for (;; ++text, ++other) {
        // The CRT folds to lower case before comparing, which decides the order of '_' against letters.
        const WCHAR a = WCharToLower(*text);
        const WCHAR b = WCharToLower(*other);
        if (a != b) return a < b ? -1 : 1;
        if (a == 0) return 0;
    }
}

int WStrNICmp(LPCWSTR text, LPCWSTR other, size_t count) {
    for (; count > 0; --count, ++text, ++other) {
        const WCHAR a = WCharToLower(*text);
        const WCHAR b = WCharToLower(*other);
        if (a != b) return a < b ? -1 : 1;
        if (a == 0) return 0;
    }
    return 0;
}

namespace {

void AppendPadded(WString& out, const WString& body, size_t width, bool leftAlign, WCHAR pad) {
    if (body.size() >= width) {
        out += body;
        return;
    }
    const size_t fill = width - body.size();
    if (leftAlign) {
        out += body;
        out.append(fill, _T(' '));
        return;
    }
    if (pad == _T('0') && !body.empty() && body[0] == _T('-')) {
        out += _T('-');
        out.append(fill, _T('0'));
        out.append(body, 1, WString::npos);
        return;
    }
    out.append(fill, pad);
    out += body;
}

WString Digits(uint64_t value, unsigned base, bool upper) {
    const char* digits = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    WCHAR reversed[64];
    size_t count = 0;
    do {
        reversed[count++] = static_cast<WCHAR>(digits[value % base]);
        value /= base;
    } while (value != 0);
    WString text;
    while (count > 0) text += reversed[--count];
    return text;
}

WString Signed(int64_t value) {
    if (value >= 0) return Digits(static_cast<uint64_t>(value), 10, false);
    // Negate in unsigned arithmetic so that INT64_MIN does not overflow.
    WString text(1, _T('-'));
    text += Digits(0 - static_cast<uint64_t>(value), 10, false);
    return text;
}

}  // namespace

WString WStrFormatV(LPCWSTR format, va_list args) {
    WString out;
    if (format == nullptr) return out;
    for (LPCWSTR p = format; *p != 0; ++p) {
        if (*p != _T('%')) {
            out += *p;
            continue;
        }
        LPCWSTR start = p++;
        if (*p == _T('%')) {
            out += _T('%');
            continue;
        }
        bool leftAlign = false;
        WCHAR pad = _T(' ');
        for (;; ++p) {
            if (*p == _T('-')) leftAlign = true;
            else if (*p == _T('0')) pad = _T('0');
            else break;
        }
        size_t width = 0;
        while (*p >= _T('0') && *p <= _T('9')) width = width * 10 + static_cast<size_t>(*p++ - _T('0'));
        bool hasPrecision = false;
        size_t precision = 0;
        if (*p == _T('.')) {
            hasPrecision = true;
            ++p;
            while (*p >= _T('0') && *p <= _T('9')) precision = precision * 10 + static_cast<size_t>(*p++ - _T('0'));
        }
        enum { Int, Long, LongLong } size = Int;
        if (p[0] == _T('I') && p[1] == _T('6') && p[2] == _T('4')) {
            size = LongLong;
            p += 3;
        } else if (p[0] == _T('l') && p[1] == _T('l')) {
            size = LongLong;
            p += 2;
        } else if (p[0] == _T('l')) {
            size = Long;
            p += 1;
        }
        WString body;
        switch (*p) {
            case _T('s'): {
                LPCWSTR text = va_arg(args, LPCWSTR);
                body = text != nullptr ? WString(text) : WString(_T("(null)"));
                if (hasPrecision && body.size() > precision) body.resize(precision);
                AppendPadded(out, body, width, leftAlign, _T(' '));
                continue;
            }
            case _T('c'):
                body = WString(1, static_cast<WCHAR>(va_arg(args, int)));
                AppendPadded(out, body, width, leftAlign, _T(' '));
                continue;
            case _T('d'):
            case _T('i'): {
                const int64_t value = size == LongLong ? va_arg(args, long long)
                                      : size == Long   ? va_arg(args, long)
                                                       : va_arg(args, int);
                AppendPadded(out, Signed(value), width, leftAlign, leftAlign ? _T(' ') : pad);
                continue;
            }
            case _T('u'):
            case _T('x'):
            case _T('X'): {
                const uint64_t value = size == LongLong ? va_arg(args, unsigned long long)
                                       : size == Long   ? va_arg(args, unsigned long)
                                                        : va_arg(args, unsigned int);
                const unsigned base = *p == _T('u') ? 10 : 16;
                AppendPadded(out, Digits(value, base, *p == _T('X')), width, leftAlign, leftAlign ? _T(' ') : pad);
                continue;
            }
            default:
                // Unknown or truncated specifier: keep the text as written and stop interpreting it.
                out.append(start, static_cast<size_t>(p - start) + (*p != 0 ? 1 : 0));
                if (*p == 0) return out;
                continue;
        }
    }
    return out;
}

WString WStrFormat(LPCWSTR format, ...) {
    va_list args;
    va_start(args, format);
    WString text = WStrFormatV(format, args);
    va_end(args);
    return text;
}

int WStrFormatBuffer(LPWSTR buffer, size_t capacity, LPCWSTR format, ...) {
    if (buffer == nullptr || capacity == 0) return -1;
    va_list args;
    va_start(args, format);
    const WString text = WStrFormatV(format, args);
    va_end(args);
    if (text.size() + 1 > capacity) {
        buffer[0] = 0;
        return -1;
    }
    text.copy(buffer, text.size());
    buffer[text.size()] = 0;
    return static_cast<int>(text.size());
}

bool WStrCopy(LPWSTR buffer, size_t capacity, LPCWSTR text) {
    if (buffer == nullptr || capacity == 0) return false;
    const size_t length = WStrLen(text);
    if (length + 1 > capacity) {
        buffer[0] = 0;
        return false;
    }
    for (size_t i = 0; i < length; ++i) buffer[i] = text[i];
    buffer[length] = 0;
    return true;
}

bool DecodeUtf8At(const std::string& text, size_t at, uint32_t& code, size_t& length) {
    if (at >= text.size()) return false;
    const unsigned char lead = static_cast<unsigned char>(text[at]);
    if (lead < 0x80) {
        code = lead;
        length = 1;
        return true;
    }
    // The lead byte fixes the length and the smallest value that length may carry (no overlong forms).
    uint32_t minimum = 0;
    if (lead >= 0xC2 && lead <= 0xDF) {
        code = lead & 0x1F;
        length = 2;
        minimum = 0x80;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        code = lead & 0x0F;
        length = 3;
        minimum = 0x800;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        code = lead & 0x07;
        length = 4;
        minimum = 0x10000;
    } else {
        return false;
    }
    if (text.size() - at < length) return false;
    for (size_t k = 1; k < length; ++k) {
        const unsigned char next = static_cast<unsigned char>(text[at + k]);
        if ((next & 0xC0) != 0x80) return false;
        code = (code << 6) | (next & 0x3F);
    }
    return code >= minimum && code <= 0x10FFFF && !(code >= 0xD800 && code < 0xE000);
}

void AppendUtf16(WString& out, uint32_t code) {
    if (code >= 0x10000) {
        code -= 0x10000;
        out += static_cast<WCHAR>(0xD800 + (code >> 10));
        out += static_cast<WCHAR>(0xDC00 + (code & 0x3FF));
    } else {
        out += static_cast<WCHAR>(code);
    }
}

WString WStrFromUtf8(const std::string& text) {
    WString out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size();) {
        uint32_t code = 0;
        size_t length = 0;
        if (DecodeUtf8At(text, i, code, length)) {
            AppendUtf16(out, code);
            i += length;
        } else {
            out += static_cast<WCHAR>(0xFFFD);
            ++i;
        }
    }
    return out;
}

void WStrAppendUtf8(std::string& out, LPCWSTR text, size_t length) {
    for (size_t i = 0; i < length; ++i) {
        uint32_t code = text[i];
        if (code >= 0xD800 && code < 0xE000) {
            if (code < 0xDC00 && i + 1 < length && text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000) {
                code = 0x10000 + ((code - 0xD800) << 10) + (text[i + 1] - 0xDC00);
                ++i;
            } else {
                code = 0xFFFD;
            }
        }
        if (code < 0x80) {
            out += static_cast<char>(code);
        } else if (code < 0x800) {
            out += static_cast<char>(0xC0 | (code >> 6));
            out += static_cast<char>(0x80 | (code & 0x3F));
        } else if (code < 0x10000) {
            out += static_cast<char>(0xE0 | (code >> 12));
            out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (code & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (code >> 18));
            out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (code & 0x3F));
        }
    }
}

std::string WStrToUtf8(const WString& text) {
    std::string out;
    out.reserve(text.size());
    WStrAppendUtf8(out, text.data(), text.size());
    return out;
}

std::string WStrToUtf8(LPCWSTR text) { return WStrToUtf8(WString(text != nullptr ? text : _T(""))); }
