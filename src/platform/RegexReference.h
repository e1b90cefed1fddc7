#pragma once
// ICU's regular-expression engine run on a pattern as written. Tests hold the hand-written matchers
// against it; the server itself never compiles a pattern at run time.

#include <string>
#include <string_view>
#include <vector>

struct URegularExpression;

namespace vorlo::text {

class RegexReference {
public:
    // Throws std::invalid_argument when the pattern does not compile.
    explicit RegexReference(std::string_view pattern);
    ~RegexReference();
    RegexReference(const RegexReference&) = delete;
    RegexReference& operator=(const RegexReference&) = delete;

    // The text of capture group 1 of every match in `text` (valid UTF-8), left to right, without overlap.
    std::vector<std::string> allGroupOneMatches(std::string_view text);
    // `text` with every match replaced by `replacement`, taken literally.
    std::string replaceAllMatches(std::string_view text, std::string_view replacement);

private:
    template <typename Visit> void forEachMatch(std::string_view text, int group, Visit visit);

    URegularExpression* expression_ = nullptr;
};

} // namespace vorlo::text
