#pragma once
// The preferences file that the notes application writes and this server only reads.

#include <string>

namespace vorlo {

struct MCPPreferences {
    struct Configuration {
        bool enabled = false;
        bool allowWriting = false;
    };
    std::string libraryPath;
    Configuration mcp;
};

// A missing, non-regular, linked or oversized file reads as the default (access off). A file that
// exists but cannot be read or decoded throws, with a description of what is wrong.
MCPPreferences loadPreferences(const std::string& path);

// Where the preferences file is: $VORLO_MCP_PREFERENCES when set (even empty), else the default.
std::string preferencesPathFromEnvironment();

} // namespace vorlo
