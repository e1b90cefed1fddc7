#pragma once
// Long inputs built from a piece, for the tests that need sizes past a limit or a window.
#include <string>
#include <string_view>

namespace vorlo {

inline std::string repeated(std::string_view piece, std::size_t count) {
    std::string out;
    out.reserve(piece.size() * count);
    while (count-- > 0) out += piece;
    return out;
}

} // namespace vorlo
