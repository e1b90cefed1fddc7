#include "platform/Json.h"

#include <gtest/gtest.h>

namespace vorlo {
namespace {

TEST(Json, DocumentsAreObjectsOrArraysOfValidUtf8NestedNoDeeperThanTheLimit) {
    const std::string deepest = std::string(kMaximumJsonNesting, '[') + std::string(kMaximumJsonNesting, ']');
    // clang-format off
    for (const auto& [text, accepted] : {std::pair<std::string, bool>("{\"a\":[1,2]}", true), {"[]", true},
             {"1", false}, {"\"s\"", false}, {std::string("{}\0garbage", 10), false},
             {"{\"a\":\"\xc3\x28\"}", false}, {deepest, true}, {"[" + deepest + "]", false},
             {"{\"a\":\"" + std::string(100000, '[') + "\\\"\"}", true}})
        EXPECT_EQ(parseJsonDocument(text).has_value(), accepted) << text.substr(0, 40);
    // clang-format on
}

TEST(Json, WritingRefusesInvalidUtf8AndHeaderStringsEscapeSlashes) {
    EXPECT_EQ(writeCompactJson(Json{{"a", "é/"}}), "{\"a\":\"é/\"}");
    EXPECT_EQ(writeCompactJson(Json{{"a", std::string("\xff")}}), std::nullopt);
    EXPECT_EQ(writePrettyJson(Json{{"a", std::string("\xff")}}), "{}");
    EXPECT_EQ(writePrettyJson(Json{{"b", 1}, {"a", 2}}), "{\n  \"a\": 2,\n  \"b\": 1\n}");
    EXPECT_EQ(encodeHeaderJsonString("a/b \"q\" \\ é\n\t\x01"), "\"a\\/b \\\"q\\\" \\\\ é\\n\\t\\u0001\"");
    EXPECT_EQ(encodeHeaderJsonStringArray({}), "[]");
    EXPECT_EQ(encodeHeaderJsonStringArray({"a/b", "Ü"}), "[\"a\\/b\",\"Ü\"]");
    EXPECT_EQ(decodeJsonString(encodeHeaderJsonString("a/b\u2028\x7f")), "a/b\u2028\x7f");
}

TEST(Json, DecodesOneStringOrOneArrayOfStringsAndNumbersTruncateAndSaturate) {
    EXPECT_EQ(decodeJsonString("\"\""), "");
    EXPECT_EQ(decodeJsonString("\"Plans: 2024\""), "Plans: 2024");
    for (const char* bad : {"Groceries", "1", "null", "[\"a\"]", "\"a\" x", "\"\\x\"", "\"a"})
        EXPECT_EQ(decodeJsonString(bad), std::nullopt) << bad;
    EXPECT_EQ(decodeJsonStringArray("[\"a\",\"\"]"), (std::vector<std::string>{"a", ""}));
    for (const char* bad : {"[a, b]", "[\"a\", 1]", "\"a\"", ""})
        EXPECT_EQ(decodeJsonStringArray(bad), std::nullopt) << bad;
    const long long most = std::numeric_limits<long long>::max();
    // clang-format off
    for (const auto& [value, integer] : {std::pair(Json(2.9), 2LL), {Json(-2.9), -2}, {Json(true), 1},
             {Json::parse("1e300"), most}, {Json::parse("18446744073709551615"), most}})
        EXPECT_EQ(integerValue(value), integer) << value.dump();
    // clang-format on
}

} // namespace
} // namespace vorlo
