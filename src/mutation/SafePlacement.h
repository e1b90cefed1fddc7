#pragma once
// File names for new notes.

#include <string>
#include <string_view>

namespace vorlo::mutation {

// A title turned into a legal file name stem: control characters and \/:*?"<>| removed, trimmed
// of whitespace and then of dots, "Untitled" for what is empty or reserved, cut to 160 characters.
std::string safeFilename(std::string_view title);

} // namespace vorlo::mutation
