#include "platform/Json.h"

#include <gtest/gtest.h>

namespace vorlo {
namespace {

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

} // namespace
} // namespace vorlo
