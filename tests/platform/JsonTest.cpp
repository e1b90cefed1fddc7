#include "platform/Json.h"

#include <gtest/gtest.h>

namespace vorlo {
namespace {

TEST(Json, DocumentParsingRefusesScalarsNulAndDeepNesting) {
    EXPECT_TRUE(parseJsonDocument("{\"a\":[1,2]}"));
    EXPECT_TRUE(parseJsonDocument("[]"));
    EXPECT_FALSE(parseJsonDocument("1"));
    EXPECT_FALSE(parseJsonDocument("\"s\""));
    EXPECT_FALSE(parseJsonDocument(std::string("{}\0garbage", 10)));
    EXPECT_FALSE(parseJsonDocument("{\"a\":\"\xc3\x28\"}")); // invalid UTF-8 in a string
    EXPECT_TRUE(parseJsonDocument(std::string(kMaximumJsonNesting, '[') + std::string(kMaximumJsonNesting, ']')));
    EXPECT_FALSE(parseJsonDocument(std::string(kMaximumJsonNesting + 1, '[') + std::string(kMaximumJsonNesting + 1, ']')));
    // Brackets inside strings do not count as nesting.
    EXPECT_TRUE(parseJsonDocument("{\"a\":\"" + std::string(100000, '[') + "\\\"\"}"));
}

TEST(Json, CompactWritingRefusesInvalidUtf8) {
    EXPECT_EQ(writeCompactJson(Json{{"a", "é/"}}), "{\"a\":\"é/\"}");
    EXPECT_EQ(writeCompactJson(Json{{"a", std::string("\xff")}}), std::nullopt);
    EXPECT_EQ(writePrettyJson(Json{{"a", std::string("\xff")}}), "{}");
    EXPECT_EQ(writePrettyJson(Json{{"b", 1}, {"a", 2}}), "{\n  \"a\": 2,\n  \"b\": 1\n}");
}

TEST(Json, HeaderEncodingEscapesSlashAndKeepsNonAscii) {
    EXPECT_EQ(encodeHeaderJsonString("a/b \"q\" \\ é\n\t\x01"), "\"a\\/b \\\"q\\\" \\\\ é\\n\\t\\u0001\"");
    EXPECT_EQ(encodeHeaderJsonStringArray({}), "[]");
    EXPECT_EQ(encodeHeaderJsonStringArray({"a/b", "Ü"}), "[\"a\\/b\",\"Ü\"]");
    EXPECT_EQ(decodeJsonString(encodeHeaderJsonString("a/b\u2028\x7f")), "a/b\u2028\x7f");
}

TEST(Json, DecodingOneStringOrOneArrayOfStrings) {
    EXPECT_EQ(decodeJsonString("\"\""), "");
    EXPECT_EQ(decodeJsonString("\"Plans: 2024\""), "Plans: 2024");
    for (const char* bad : {"Groceries", "1", "null", "[\"a\"]", "\"a\" x", "\"\\x\"", "\"a"})
        EXPECT_EQ(decodeJsonString(bad), std::nullopt) << bad;
    EXPECT_EQ(decodeJsonStringArray("[\"a\",\"\"]"), (std::vector<std::string>{"a", ""}));
    for (const char* bad : {"[a, b]", "[\"a\", 1]", "\"a\"", ""}) EXPECT_EQ(decodeJsonStringArray(bad), std::nullopt) << bad;
}

TEST(Json, IntegerValueTruncatesAndSaturates) {
    EXPECT_EQ(integerValue(Json(2.9)), 2);
    EXPECT_EQ(integerValue(Json(-2.9)), -2);
    EXPECT_EQ(integerValue(Json(true)), 1);
    EXPECT_EQ(integerValue(Json::parse("1e300")), std::numeric_limits<long long>::max());
    EXPECT_EQ(integerValue(Json::parse("18446744073709551615")), std::numeric_limits<long long>::max());
}

} // namespace
} // namespace vorlo
