#pragma once
// UTF-8 validation and decoding, and the ASCII scanning the other text services build on. All
// text is UTF-8 held in std::string / std::string_view.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace vorlo::text {

// Strict UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
bool isValidUtf8(std::string_view bytes);
// The same test a byte at a time: for processors without AVX2, and the reference the vector one is
// held against.
bool isValidUtf8Bytewise(std::string_view bytes);
bool isAscii(std::string_view bytes);

#if defined(__x86_64__)
// Whether the processor runs AVX2, which the scans of long texts use where it is there.
inline bool processorHasAvx2() {
    static const bool has = __builtin_cpu_supports("avx2");
    return has;
}
#endif

inline bool isContinuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }

inline char lowerAscii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// The offset of the first byte at or after `from` that is not ASCII, or the size. Sixteen bytes are
// tested at a time, then eight: most text is ASCII, and this runs ahead of every fast path.
inline std::size_t firstNonAscii(std::string_view text, std::size_t from) {
    constexpr std::uint64_t kHighBits = 0x8080808080808080ULL;
    const std::size_t size = text.size();
#if defined(__SSE2__)
    while (from + 16 <= size) {
        const int high =
            _mm_movemask_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(text.data() + from)));
        if (high != 0) return from + static_cast<std::size_t>(__builtin_ctz(static_cast<unsigned>(high)));
        from += 16;
    }
#endif
    while (from + 8 <= size) {
        std::uint64_t word;
        std::memcpy(&word, text.data() + from, 8);
        if (word & kHighBits) break;
        from += 8;
    }
    while (from < size && static_cast<unsigned char>(text[from]) < 0x80) ++from;
    return from;
}

// The offset of the first ASCII byte at or after `from`, or the size.
inline std::size_t firstAscii(std::string_view text, std::size_t from) {
    while (from < text.size() && static_cast<unsigned char>(text[from]) >= 0x80) ++from;
    return from;
}

// Decodes the code point at `offset` of valid UTF-8 and moves `offset` behind it.
inline char32_t nextCodePoint(std::string_view text, std::size_t& offset) {
    const auto lead = static_cast<unsigned char>(text[offset]);
    if (lead < 0x80) {
        ++offset;
        return lead;
    }
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (text.size() - offset < length) { // not valid UTF-8, against the contract: stay in bounds
        offset = text.size();
        return 0xFFFD;
    }
    char32_t c = lead & (0x3F >> (length - 1));
    for (std::size_t k = 1; k < length; ++k)
        c = c << 6 | (static_cast<unsigned char>(text[offset + k]) & 0x3F);
    offset += length;
    return c;
}

} // namespace vorlo::text
