#pragma once
// JSON values and the few ways the system reads and writes them.

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorlo {

// JSON values pass by value between the layers; an object plays the part of a JSONObject.
using Json = nlohmann::json;

// Deeper input is treated as no valid request: copying and destroying a value recurse, and a line
// nested tens of thousands of levels deep would otherwise overflow the stack.
inline constexpr std::size_t kMaximumJsonNesting = 512;

// Parses one JSON text whose top level is an object or an array. Absent for anything that is not
// JSON, holds a NUL byte, or nests deeper than kMaximumJsonNesting.
std::optional<Json> parseJsonDocument(std::string_view text);

// Compact one-line form; absent when the value holds a string that is not valid UTF-8.
std::optional<std::string> writeCompactJson(const Json& value);

// Multi-line form with sorted keys at every level; "{}" when the value cannot be written.
std::string writePrettyJson(const Json& value);

// The compact form of the notes' own header values: no spaces, "/" written as "\/", non-ASCII
// as is, control characters escaped. The input must be valid UTF-8.
std::string encodeHeaderJsonString(std::string_view text);
std::string encodeHeaderJsonStringArray(const std::vector<std::string>& strings);

// The one JSON string that `text` holds, or absent for anything else (bare words, other types,
// trailing text, a broken escape).
std::optional<std::string> decodeJsonString(std::string_view text);

// A JSON array whose every element is a string; absent for anything else.
std::optional<std::vector<std::string>> decodeJsonStringArray(std::string_view text);
// The same without exact repeats, in the order of first occurrence. Built without a JSON value, so
// that a header of millions of copies of one string holds that string once.
std::optional<std::vector<std::string>> decodeDistinctJsonStringArray(std::string_view text);

// Numbers and booleans count alike for numeric and boolean arguments.
bool isNumberOrBoolean(const Json& value);

// The signed 64-bit value of a number or boolean: fractions drop toward zero, true is 1, false 0,
// and values beyond the range saturate at its ends.
long long integerValue(const Json& value);

} // namespace vorlo
