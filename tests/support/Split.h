#pragma once
// Text cut at every occurrence of a separator, for tables written as one string.
#include <string>
#include <string_view>
#include <vector>

namespace vorlo::testing {

inline std::vector<std::string> split(std::string_view text, std::string_view separator) {
    std::vector<std::string> parts;
    for (std::size_t start = 0, end = 0; end != std::string_view::npos; start = end + separator.size())
        parts.emplace_back(text.substr(start, (end = text.find(separator, start)) - start));
    return parts;
}

} // namespace vorlo::testing
