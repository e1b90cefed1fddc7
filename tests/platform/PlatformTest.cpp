#include "platform/CharacterSets.h"
#include "platform/Characters.h"
#include "platform/Crypto.h"
#include "platform/Json.h"
#include "platform/RegexReference.h"
#include "platform/Stdio.h"
#include "platform/Time.h"
#include "platform/Utf8.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <pthread.h>
#include <thread>
#include <tuple>
#include <unistd.h>
#include <vector>

namespace vorlo {
namespace {

// A header may name any four-digit year; an update writes such a date back unchanged and orders by it.
TEST(Time, FormatsUtcInWholeSecondsAndParsesZuluAndNumericOffsetsOnly) {
    EXPECT_EQ(formatIso8601(Timestamp(std::chrono::milliseconds(1714566896999))), "2024-05-01T12:34:56Z");
    EXPECT_EQ(formatIso8601(Timestamp{}), "1970-01-01T00:00:00Z");
    // clang-format off
    for (const char* text :
         {"2024-05-01T10:00:00+02:00", "2024-05-01T10:00:00+0200", "2024-05-01T07:30:00-00:30"})
        EXPECT_EQ(parseIso8601(text), parseIso8601("2024-05-01T08:00:00Z")) << text;
    for (const char* bad : {"2024-05-01T10:00:00.000Z", "2024-05-01", "2024-05-01T10:00:00", "yesterday",
                            " 2024-05-01T10:00:00Z", "2024-05-01T10:00:00Z ", "2024-02-30T10:00:00Z",
                            "2024-05-01T24:00:00Z", "\"2024-01-01T00:00:00Z\"", "2024-05-01t10:00:00Z",
                            "2024-05-01T10:00:00+2:00"})
        EXPECT_EQ(parseIso8601(bad), std::nullopt) << bad;
    for (const char* text :
         {"0001-01-01T00:00:00Z", "1600-02-29T12:00:00Z", "2300-01-01T00:00:00Z", "9999-12-31T23:59:59Z"})
        EXPECT_EQ(formatIso8601(parseIso8601(text).value_or(Timestamp{})), text);
    // clang-format on
    EXPECT_LT(parseIso8601("0001-01-01T00:00:00Z"), parseIso8601("1970-01-01T00:00:00Z"));
    EXPECT_GT(parseIso8601("9999-12-31T23:59:59Z"), parseIso8601("2262-04-12T00:00:00Z"));
}

// The digest is the library's; what is ours is the lower-case hex, every byte two digits.
TEST(Crypto, Sha256Base64AndCanonicalUpperCaseVersionFourUuids) {
    EXPECT_EQ(sha256Hex("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(base64Encode("") + base64Encode("f") + "," + base64Encode("foob"), "Zg==,Zm9vYg==");
    const std::string encoded = base64Encode(std::string(3 * (1 << 20) + 2, 'x')); // crosses the block size
    EXPECT_EQ(encoded.size(), 4u * (1 << 20) + 4);
    EXPECT_EQ(encoded.substr(encoded.size() - 8), "eHh4eHg=");

    const std::string text = Uuid::random().text();
    ASSERT_EQ(text.size(), 36u);
    EXPECT_EQ(text[14], '4');
    EXPECT_EQ(text, Uuid::parse(text)->text());
    EXPECT_NE(text, Uuid::random().text());
    // Upper case, a short text and braces are the note parser's rows.
    for (const char* bad : {"0a1b2c3d4e5f6a7b8c9d0e1f2a3b4c5d", "0a1b2c3d-4e5f-6a7b-8c9d-0e1f2a3b4c5g",
                            "0a1b2c3d-4e5f-6a7b-8c9d0-e1f2a3b4c5d"})
        EXPECT_EQ(Uuid::parse(bad), std::nullopt) << bad;
}

// What a document may be, nested to the limit and no deeper, is held against the JSON parser by the
// json_string fuzz target.
TEST(Json, WritingRefusesInvalidUtf8AndHeaderStringsEscapeSlashes) {
    EXPECT_EQ(writeCompactJson(Json{{"a", "é/"}}), "{\"a\":\"é/\"}");
    EXPECT_EQ(writeCompactJson(Json{{"a", std::string("\xff")}}), std::nullopt);
    EXPECT_EQ(writePrettyJson(Json{{"a", std::string("\xff")}}), "{}");
    EXPECT_EQ(writePrettyJson(Json{{"b", 1}, {"a", 2}}), "{\n  \"a\": 2,\n  \"b\": 1\n}");
    EXPECT_EQ(encodeHeaderJsonString("a/b \"q\" \\ é\n\t\x01"), "\"a\\/b \\\"q\\\" \\\\ é\\n\\t\\u0001\"");
    EXPECT_EQ(encodeHeaderJsonStringArray({"a/b", "Ü"}), "[\"a\\/b\",\"Ü\"]");
}

// The header values a note may hold (bare words, trailing text, arrays of other things) are the note
// parser's table; here, the rest.
TEST(Json, DecodesOneStringOrOneArrayOfStringsAndNumbersTruncateAndSaturate) {
    for (const char* bad : {"1", "null", "[\"a\"]", "\"\\x\"", "\"a"})
        EXPECT_EQ(decodeJsonString(bad), std::nullopt) << bad;
    EXPECT_EQ(decodeJsonStringArray("\"a\""), std::nullopt);
    EXPECT_EQ(decodeJsonStringArray(""), std::nullopt);
    const long long most = std::numeric_limits<long long>::max();
    // clang-format off
    for (const auto& [value, integer] : {std::pair(Json(2.9), 2LL), {Json(-2.9), -2}, {Json(true), 1},
             {Json::parse("1e300"), most}, {Json::parse("18446744073709551615"), most}})
        EXPECT_EQ(integerValue(value), integer) << value.dump();
    // clang-format on
}

// A line several times the pipe's capacity arrives whole and ends in exactly one line feed; so do an
// empty line and lines written one after another. A blocking pipe completes a write in full unless a
// signal arrives, so the writer is interrupted again and again (without restarting): a write blocked
// after some bytes returns short, one blocked before any fails with EINTR, and both must carry on.
TEST(Stdio, WriteLineSurvivesShortWritesAndInterruptionsAndKeepsLinesApart) {
    std::string large(1 << 20, 'x');
    for (std::size_t i = 0; i < large.size(); i += 4093)
        large[i] = static_cast<char>('a' + i % 26);
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    ::fcntl(fds[1], F_SETPIPE_SZ, 4096);
    static std::atomic<int> interruptions = 0;
    struct sigaction interrupt = {}, previous = {};
    interrupt.sa_handler = [](int) { ++interruptions; };
    ::sigaction(SIGUSR1, &interrupt, &previous);
    std::string received;
    const pthread_t writer = ::pthread_self();
    std::thread reader([&] {
        while (stdio::readAvailable(fds[0], received) > 0)
            ::pthread_kill(writer, SIGUSR1);
    });
    for (const std::string_view line :
         {std::string_view("first"), {}, std::string_view(large), {"{\"last\":true}"}})
        stdio::writeLine(fds[1], line);
    ::close(fds[1]);
    reader.join();
    ::close(fds[0]);
    ::sigaction(SIGUSR1, &previous, nullptr);
    EXPECT_EQ(received, "first\n\n" + large + "\n{\"last\":true}\n");
    EXPECT_GT(interruptions, 10);
}

using namespace text;

// A CR LF pair, a flag, a family of joined emoji, a keycap, Hangul jamo and a letter with its marks
// are one character each; a mark cannot attach to CR LF.
TEST(Characters, CountsAndCutsWholeExtendedGraphemeClusters) {
    // clang-format off
    const std::pair<std::string, std::size_t> counts[] = {
        {"", 0}, {"abc", 3}, {"\r\n", 1}, {"\n\r", 2}, {"a\r\nb\r\n", 4}, {"caf\u00E9", 4}, {"cafe\u0301", 4},
        {"e\u0301\u0323\u0308", 1}, {"\U0001F1E9\U0001F1EA", 1}, {"\U0001F1E9\U0001F1EA\U0001F1EB", 2},
        {"\U0001F468\u200D\U0001F469\u200D\U0001F467", 1}, {"\U0001F44D\U0001F3FD", 1}, {"1\uFE0F\u20E3", 1},
        {"\u1100\u1161\u11A8", 1}, {"x\r\n\u0301", 3}};
    const std::tuple<std::string, std::size_t, std::string> cuts[] = {
        {"abc", 2, "ab"}, {"a\r\nb", 2, "a\r\n"}, {"e\u0301\u0301x", 1, "e\u0301\u0301"}, {"abc", 10, "abc"},
        {"abc", 0, ""}, {"\U0001F1E9\U0001F1EA\U0001F1EB\U0001F1F7", 1, "\U0001F1E9\U0001F1EA"},
        {"ab\U0001F468\u200D\U0001F469z", 3, "ab\U0001F468\u200D\U0001F469"}};
    // clang-format on
    for (const auto& [text, count] : counts) {
        EXPECT_EQ(characterCount(text), count) << text;
        EXPECT_EQ(hasMoreCharactersThan(text, count - 1), count > 0) << text;
        EXPECT_FALSE(hasMoreCharactersThan(text, count)) << text;
        EXPECT_EQ(firstCharacters(text, count), text);
    }
    for (const auto& [text, count, prefix] : cuts)
        EXPECT_EQ(firstCharacters(text, count), prefix) << text;
}

std::string utf8(char32_t c) {
    if (c < 0x80) return std::string(1, static_cast<char>(c));
    const int length = c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
    std::string out(length, '\0');
    for (int i = length - 1; i > 0; --i, c >>= 6)
        out[i] = static_cast<char>(0x80 | (c & 0x3F));
    out[0] = static_cast<char>((0xF00 >> length) | c); // C0, E0 or F0 before the remaining bits
    return out;
}

// Each text, trimmed of whitespace and newlines, then of horizontal whitespace (tab and Zs) only. A
// zero-width space is a format character, not whitespace.
TEST(CharacterSets, TrimsUnicodeWhitespace) {
    // clang-format off
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {" \t a b \n", "a b", "a b \n"}, {"\u0085x\u0085", "x", "\u0085x\u0085"}, {"\u3000x\u3000", "x", "x"},
        {"\u00A0\u2028x\u2029", "x", "\u2028x\u2029"}, {"\u200Bx", "\u200Bx", "\u200Bx"},
        {"\u3000\u3000", "", ""}, {"", "", ""}};
    // clang-format on
    for (const auto& [text, both, horizontal] : cases)
        EXPECT_EQ(std::string(trimWhitespaceAndNewlines(text)) + "|" +
                      std::string(trimHorizontalWhitespace(text)),
                  both + "|" + horizontal);
}

// The regular expressions are ICU's, so ICU decides what \s, \w, \p{L} and \p{N} hold; ICU also
// checks the encoding here, by which every code point, NUL included, is valid UTF-8 and decodes to
// itself. Only the first 128 are ASCII, the first non-ASCII bytes filling whole words of the ASCII
// check. Strictness (overlong forms, surrogates, beyond U+10FFFF, stray and truncated sequences,
// also past a run of ASCII skipped a word at a time) is held against the JSON parser's by the
// json_string fuzz target's utf8_* inputs.
TEST(CharacterSets, EveryCodePointDecodesAndClassesAgreeWithTheRegularExpressionEngine) {
    std::string everyCodePoint;
    for (char32_t c = 0; c <= 0x10FFFF; ++c)
        if (c < 0xD800 || c > 0xDFFF) everyCodePoint += utf8(c);
    EXPECT_TRUE(isValidUtf8(everyCodePoint));
    EXPECT_TRUE(isAscii(everyCodePoint.substr(0, 128)) && !isAscii(everyCodePoint.substr(0, 144)));
    std::size_t offset = 0, wrong = 0;
    for (char32_t c = 0; c <= 0x10FFFF; ++c)
        if (c < 0xD800 || c > 0xDFFF) wrong += nextCodePoint(everyCodePoint, offset) != c;
    EXPECT_EQ(wrong, 0u);
    const std::pair<const char*, bool (*)(char32_t)> classes[] = {
        {"(\\s)", isRegexWhitespace},
        {"(\\w)", isRegexWordCharacter},
        {"(\\p{L})", isLetter},
        {"(\\p{N})", isNumber},
        {"([\\p{Z}\\t-\\r\\x{85}])", isWhitespaceOrNewline}};
    for (const auto& [pattern, predicate] : classes) {
        std::vector<std::string> expected;
        for (char32_t c = 1; c <= 0x10FFFF; ++c)
            if ((c < 0xD800 || c > 0xDFFF) && predicate(c)) expected.push_back(utf8(c));
        EXPECT_EQ(RegexReference(pattern).allGroupOneMatches(everyCodePoint), expected) << pattern;
    }
}

} // namespace
} // namespace vorlo
