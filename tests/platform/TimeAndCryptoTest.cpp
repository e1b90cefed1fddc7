#include "platform/Crypto.h"
#include "platform/Time.h"

#include <gtest/gtest.h>

#include <tuple>
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

} // namespace
} // namespace vorlo
