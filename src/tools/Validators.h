#pragma once
// Turning one tool argument at a time into a typed value, or a ServerError with the exact message
// the client reads. An argument is a pointer into the arguments object: null means the key is absent;
// a JSON null is a present value of the wrong type.

#include "platform/Json.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorlo::tools {

// The value of `key` in `arguments`, or null when the key is absent.
const Json* argument(const Json& arguments, std::string_view key);

long long resultLimit(const Json* value, long long defaultValue);
std::optional<std::string> optionalString(const Json* value, std::string_view name);
std::string noteTitle(const Json* value);
std::string noteContent(const Json* value, const std::string& defaultValue);
std::vector<std::string> noteTags(const Json* value);
std::optional<bool> optionalBoolean(const Json* value, std::string_view name);

// The one textual safety test for library-relative paths: not empty, no leading "/" or "~", no
// NUL, and no empty, "." or ".." component.
bool isSafeRelativePath(std::string_view path);

// Every backslash replaced by "/": clients may use either separator.
std::string withForwardSlashes(std::string_view path);

// The `path` argument of the tools that name one note: present, a string, safe once backslashes
// are slashes, and ending in ".md" in any case. Returns the normalised path.
std::string notePathArgument(const Json& arguments);

} // namespace vorlo::tools
