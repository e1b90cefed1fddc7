#pragma once
// Characters are extended grapheme clusters (a CR LF pair, a flag, a letter with its accents: one each).

#include <cstddef>
#include <string_view>

namespace vorlo::text {

std::size_t characterCount(std::string_view text);
// The first `count` characters of `text`, cut between characters.
std::string_view firstCharacters(std::string_view text, std::size_t count);
// True when `text` holds more than `count` characters; stops counting early.
bool hasMoreCharactersThan(std::string_view text, std::size_t count);

} // namespace vorlo::text
