#pragma once
// Lower-casing of names, for file extensions as the client is shown them.

#include <string>
#include <string_view>

namespace vorlo::text {

// The full Unicode lower-case mapping, the same in every locale ("PNG" gives "png", "ДОК" gives
// "док"). Bytes that are not valid UTF-8 have only their ASCII letters lowered.
std::string lowercased(std::string_view text);

} // namespace vorlo::text
