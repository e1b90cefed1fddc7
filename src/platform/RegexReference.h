#pragma once
// ICU's regular-expression engine run on a pattern as written. Tests hold the hand-written matchers
// against it; the server itself never compiles a pattern at run time.

#include <string>
#include <string_view>
#include <vector>

namespace vorlo::text {

// The text of capture group 1 of every match, left to right, without overlap. Throws
// std::invalid_argument when the pattern does not compile. `text` must be valid UTF-8.
std::vector<std::string> allGroupOneMatches(std::string_view pattern, std::string_view text);

// `text` with every match of `pattern` replaced by `replacement`, taken literally.
std::string replaceAllMatches(std::string_view pattern, std::string_view text, std::string_view replacement);

} // namespace vorlo::text
