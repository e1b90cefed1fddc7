// Strict UTF-8 validation and decoding, with ASCII skipped a word at a time.
#include "platform/Utf8.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace vorlo::text {

#if defined(__x86_64__)
namespace {

// Thirty-two bytes at a time, after Keiser and Lemire, "Validating UTF-8 in less than one
// instruction per byte" (2021). Each class of error a pair of bytes can make has a bit; three tables
// give, for a byte's high nibble and the previous byte's high and low nibbles, the classes they are
// compatible with, and the AND of the three is non-zero exactly where the pair is wrong. One class,
// two continuations in a row, is right only as the third or fourth byte of a sequence, which the
// bytes two and three back tell. Every file of a scan is validated, at a speed near memory's.
constexpr char kTooShort = 1 << 0, kTooLong = 1 << 1, kOverlong3 = 1 << 2, kTooLarge = 1 << 3,
               kSurrogate = 1 << 4, kOverlong2 = 1 << 5, kTooLarge1000 = 1 << 6, kOverlong4 = 1 << 6,
               kTwoContinuations = static_cast<char>(1 << 7),
               kCarry = kTooShort | kTooLong | kTwoContinuations;

#define VORLO_NIBBLE_TABLE(a, b, c, d, e, f, g, h, i, j, k, l, m, n, o, p)                                   \
    _mm256_setr_epi8(a, b, c, d, e, f, g, h, i, j, k, l, m, n, o, p, a, b, c, d, e, f, g, h, i, j, k, l, m,  \
                     n, o, p)

#define VORLO_AVX2 __attribute__((target("avx2"), always_inline)) inline

// The 32 bytes that end `shift` bytes before those of `input`, `previous` the block before it.
template <int shift> VORLO_AVX2 __m256i before(__m256i input, __m256i previous) {
    return _mm256_alignr_epi8(input, _mm256_permute2x128_si256(previous, input, 0x21), 16 - shift);
}

// Adds to `error` what is wrong in `input` given the block before it; returns the leads in its last
// three bytes whose sequences do not fit before its end, wrong unless the next block completes them.
VORLO_AVX2 __m256i checkBlock(__m256i input, __m256i previous, __m256i& error) {
    const __m256i lowNibble = _mm256_set1_epi8(0x0F);
    const __m256i previous1 = before<1>(input, previous);
    const __m256i firstHigh = _mm256_shuffle_epi8(
        VORLO_NIBBLE_TABLE(kTooLong, kTooLong, kTooLong, kTooLong, kTooLong, kTooLong, kTooLong, kTooLong,
                           kTwoContinuations, kTwoContinuations, kTwoContinuations, kTwoContinuations,
                           kTooShort | kOverlong2, kTooShort, kTooShort | kOverlong3 | kSurrogate,
                           kTooShort | kTooLarge | kTooLarge1000 | kOverlong4),
        _mm256_and_si256(_mm256_srli_epi16(previous1, 4), lowNibble));
    constexpr char kLarge = kCarry | kTooLarge | kTooLarge1000;
    const __m256i firstLow = _mm256_shuffle_epi8(
        VORLO_NIBBLE_TABLE(kCarry | kOverlong3 | kOverlong2 | kOverlong4, kCarry | kOverlong2, kCarry, kCarry,
                           kCarry | kTooLarge, kLarge, kLarge, kLarge, kLarge, kLarge, kLarge, kLarge, kLarge,
                           kLarge | kSurrogate, kLarge, kLarge),
        _mm256_and_si256(previous1, lowNibble));
    constexpr char kContinuation = kTooLong | kOverlong2 | kTwoContinuations;
    const __m256i secondHigh = _mm256_shuffle_epi8(
        VORLO_NIBBLE_TABLE(kTooShort, kTooShort, kTooShort, kTooShort, kTooShort, kTooShort, kTooShort,
                           kTooShort, kContinuation | kOverlong3 | kTooLarge1000 | kOverlong4,
                           kContinuation | kOverlong3 | kTooLarge, kContinuation | kSurrogate | kTooLarge,
                           kContinuation | kSurrogate | kTooLarge, kTooShort, kTooShort, kTooShort,
                           kTooShort),
        _mm256_and_si256(_mm256_srli_epi16(input, 4), lowNibble));
    const __m256i pairs = _mm256_and_si256(_mm256_and_si256(firstHigh, firstLow), secondHigh);
    // Only a byte two back at or above E0, or three back at or above F0, leaves 0x80 set here.
    const __m256i third =
        _mm256_subs_epu8(before<2>(input, previous), _mm256_set1_epi8(static_cast<char>(0xE0 - 0x80)));
    const __m256i fourth =
        _mm256_subs_epu8(before<3>(input, previous), _mm256_set1_epi8(static_cast<char>(0xF0 - 0x80)));
    const __m256i mustContinue =
        _mm256_and_si256(_mm256_or_si256(third, fourth), _mm256_set1_epi8(static_cast<char>(0x80)));
    error = _mm256_or_si256(error, _mm256_xor_si256(mustContinue, pairs));
    const char x = static_cast<char>(0xFF);
    return _mm256_subs_epu8(input,
                            _mm256_setr_epi8(x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x, x,
                                             x, x, x, x, x, x, x, static_cast<char>(0xF0 - 1),
                                             static_cast<char>(0xE0 - 1), static_cast<char>(0xC0 - 1)));
}

#undef VORLO_NIBBLE_TABLE

VORLO_AVX2 void nextBlock(__m256i input, __m256i& previous, __m256i& incomplete, __m256i& error) {
    if (_mm256_movemask_epi8(input) == 0) {
        // ASCII throughout: only a sequence cut off at the end of the block before is wrong, and once
        // taken into the error, it may stay where it is.
        error = _mm256_or_si256(error, incomplete);
    } else {
        incomplete = checkBlock(input, previous, error);
    }
    previous = input;
}

__attribute__((target("avx2"))) bool isValidUtf8Avx2(std::string_view bytes) {
    __m256i error = _mm256_setzero_si256(), previous = error, incomplete = error;
    std::size_t at = 0;
    for (; at + 32 <= bytes.size(); at += 32)
        nextBlock(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes.data() + at)), previous,
                  incomplete, error);
    if (at < bytes.size()) {
        // The rest, padded with NUL: ASCII, so a sequence cut off by the end is wrong as it should be.
        alignas(32) char last[32] = {};
        std::memcpy(last, bytes.data() + at, bytes.size() - at);
        nextBlock(_mm256_load_si256(reinterpret_cast<const __m256i*>(last)), previous, incomplete, error);
    }
    error = _mm256_or_si256(error, incomplete);
    return _mm256_testz_si256(error, error) != 0;
}

#undef VORLO_AVX2

} // namespace

bool isValidUtf8(std::string_view bytes) {
    return processorHasAvx2() ? isValidUtf8Avx2(bytes) : isValidUtf8Bytewise(bytes);
}
#else
bool isValidUtf8(std::string_view bytes) {
    return isValidUtf8Bytewise(bytes);
}
#endif

bool isValidUtf8Bytewise(std::string_view bytes) {
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
