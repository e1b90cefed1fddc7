#pragma once

#include <string_view>

namespace vorlo::library {

// The MIME type of a file name's extension (any case, without the dot);
// "application/octet-stream" for one that is not known.
std::string_view mimeType(std::string_view extension);

} // namespace vorlo::library
