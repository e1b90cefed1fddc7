#pragma once
// Small checks shared by the end-to-end tests of the writing tools.

#include "platform/Json.h"
#include "support/TempLibrary.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace vorlo::testing {

// VORLO_LONG_TESTS=1 runs the stress tests longer than `make test` does, to search further for rare
// interleavings.
inline bool longTests() {
    const char* value = std::getenv("VORLO_LONG_TESTS");
    return value != nullptr && std::string_view(value) == "1";
}

// The text of a failed tool result; records a failure when the call succeeded.
inline std::string errorText(const Json& result) {
    EXPECT_EQ(result.value("isError", false), true) << result.dump();
    const Json& content = result.contains("content") ? result["content"] : Json::array();
    return content.is_array() && !content.empty() ? content[0].value("text", "") : "";
}

// The structured result of a successful tool call; records a failure otherwise.
inline Json succeeded(const Json& result) {
    EXPECT_EQ(result.value("isError", true), false) << result.dump();
    return result.value("structuredContent", Json::object());
}

// The permission bits of an entry itself, as an octal number such as 0600.
inline unsigned modeOf(const std::string& path) {
    return static_cast<unsigned>(std::filesystem::symlink_status(path).permissions() &
                                 std::filesystem::perms::mask);
}

// Everything a writer must never leave behind: a held lock, a lock moved aside, a temporary file.
inline std::vector<std::string> leftovers(const TempLibrary& library) {
    std::vector<std::string> found;
    std::error_code error;
    for (auto it = std::filesystem::recursive_directory_iterator(library.library(), error);
         it != std::filesystem::recursive_directory_iterator(); it.increment(error)) {
        const std::string name = it->path().filename().string();
        if (name == "Library Mutation.lock" || name.starts_with("Abandoned ") ||
            name.starts_with("Released ") || name.starts_with(".Vorlo MCP "))
            found.push_back(it->path().string().substr(library.library().size() + 1));
    }
    return found;
}

} // namespace vorlo::testing
