#pragma once
// Tags written in a note's body: "#" not preceded by a backslash or a word character, then
// segments of letters, numbers, "_" and "-" joined by single "/", with at least one letter or "_"
// in the run behind the "#".

#include <string>
#include <string_view>
#include <vector>

namespace vorlo::library {

// The inline-tag pattern, as the regular-expression engine reads it. The matcher below is proven
// equal to it by a differential test.
inline constexpr std::string_view kInlineTagPattern =
    R"((?<![\\\w])#((?=[\p{L}\p{N}_/-]*[\p{L}_])[\p{L}\p{N}_-]+(?:/[\p{L}\p{N}_-]+)*))";

// Every inline tag of `body` (valid UTF-8), left to right, without the "#".
std::vector<std::string> inlineTags(std::string_view body);

} // namespace vorlo::library
