// Fuzzes the UTF-8 <-> UTF-16 conversions: decoding always yields units that encode to valid UTF-8 which
// decodes back to the same units, well-formed UTF-8 survives the round trip byte for byte, and UTF-16
// without lone surrogates survives the other round trip.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "../platform/wstr.h"

namespace {

// Well-formedness checked independently of the decoder under test (the table of the Unicode standard).
bool IsWellFormed(const std::string& text) {
    for (size_t i = 0; i < text.size();) {
        const auto byte = [&](size_t k) { return static_cast<unsigned char>(text[i + k]); };
        const unsigned char b0 = byte(0);
        size_t length = 0;
        unsigned char low = 0x80, high = 0xBF;
        if (b0 <= 0x7F) length = 1;
        else if (b0 >= 0xC2 && b0 <= 0xDF) length = 2;
        else if (b0 == 0xE0) length = 3, low = 0xA0;
        else if (b0 >= 0xE1 && b0 <= 0xEC) length = 3;
        else if (b0 == 0xED) length = 3, high = 0x9F;
        else if (b0 >= 0xEE && b0 <= 0xEF) length = 3;
        else if (b0 == 0xF0) length = 4, low = 0x90;
        else if (b0 >= 0xF1 && b0 <= 0xF3) length = 4;
        else if (b0 == 0xF4) length = 4, high = 0x8F;
        else return false;
        if (text.size() - i < length) return false;
        for (size_t k = 1; k < length; ++k) {
            const unsigned char lowest = k == 1 ? low : 0x80, highest = k == 1 ? high : 0xBF;
            if (byte(k) < lowest || byte(k) > highest) return false;
        }
        i += length;
    }
    return true;
}

bool HasLoneSurrogate(const WString& text) {
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] >= 0xD800 && text[i] < 0xDC00 && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000) ++i;
        else if (text[i] >= 0xD800 && text[i] < 0xE000) return true;
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const WString decoded = WStrFromUtf8(bytes);
    if (HasLoneSurrogate(decoded)) std::abort();
    const std::string encoded = WStrToUtf8(decoded);
    if (!IsWellFormed(encoded)) std::abort();
    if (WStrFromUtf8(encoded) != decoded) std::abort();
    if (IsWellFormed(bytes) != (encoded == bytes)) std::abort();

    WString units;
    for (size_t i = 0; i + 1 < size; i += 2) units += static_cast<WCHAR>(data[i] | (data[i + 1] << 8));
    const std::string utf8 = WStrToUtf8(units);
    if (!IsWellFormed(utf8)) std::abort();
    if (!HasLoneSurrogate(units) && WStrFromUtf8(utf8) != units) std::abort();
    return 0;
}
