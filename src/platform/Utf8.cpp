// Strict UTF-8 validation and decoding, with ASCII skipped a word at a time.
#include "platform/Utf8.h"

namespace vorlo::text {

bool isValidUtf8(std::string_view bytes) {
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
    const std::size_t size = bytes.size();
    std::size_t i = 0;
    while (i < size) {
        const unsigned char lead = p[i];
        if (lead < 0x80) {
            i = firstNonAscii(bytes, i + 1);
            continue;
        }
        // Second-byte ranges exclude overlong forms (E0, F0), surrogates (ED) and code points
        // above U+10FFFF (F4); C0, C1 and F5 to FF never lead.
        unsigned char low = 0x80, high = 0xBF;
        std::size_t length;
        if (lead >= 0xC2 && lead <= 0xDF) {
            length = 2;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            length = 3;
            if (lead == 0xE0) low = 0xA0;
            if (lead == 0xED) high = 0x9F;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            length = 4;
            if (lead == 0xF0) low = 0x90;
            if (lead == 0xF4) high = 0x8F;
        } else {
            return false;
        }
        if (size - i < length) return false;
        if (p[i + 1] < low || p[i + 1] > high) return false;
        for (std::size_t k = 2; k < length; ++k)
            if (!isContinuation(p[i + k])) return false;
        i += length;
    }
    return true;
}

bool isAscii(std::string_view bytes) { return firstNonAscii(bytes, 0) == bytes.size(); }

} // namespace vorlo::text
