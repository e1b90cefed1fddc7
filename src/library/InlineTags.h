#pragma once
// Tags written in a note's body: "#" not preceded by a backslash or a word character, then
// segments of letters, numbers, "_" and "-" joined by single "/", with at least one letter or "_"
// in the run behind the "#".

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace vorlo::library {

// The inline-tag pattern, as the regular-expression engine reads it. The matcher below is proven
// equal to it by a differential test.
inline constexpr std::string_view kInlineTagPattern =
    R"((?<![\\\w])#((?=[\p{L}\p{N}_/-]*[\p{L}_])[\p{L}\p{N}_-]+(?:/[\p{L}\p{N}_-]+)*))";

// Calls `visit` with every inline tag of `body` (valid UTF-8), left to right, without the "#",
// until it returns false.
void forEachInlineTag(std::string_view body, const std::function<bool(std::string_view tag)>& visit);

// Every inline tag of `body`, left to right, repeats included.
std::vector<std::string> inlineTags(std::string_view body);

// The inline tags of `body` without exact repeats, in the order of their first occurrence, as
// views into `body`. A note may repeat one tag millions of times; this holds each only once.
std::vector<std::string_view> distinctInlineTags(std::string_view body);

} // namespace vorlo::library
