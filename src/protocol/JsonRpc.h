#pragma once
// The JSON-RPC envelope: the two kinds of reply and the one way they leave the process.

#include "platform/Json.h"

#include <optional>
#include <string>
#include <string_view>

namespace vorlo::protocol {

inline constexpr std::string_view kDefaultProtocolVersion = "2025-06-18";
inline constexpr std::string_view kSupportedProtocolVersions[] = {"2025-06-18", "2025-03-26", "2024-11-05"};

// The reply line for a result or an error; absent when it cannot be serialised, in which case no
// reply is sent at all.
std::optional<std::string> writeResult(const Json& id, Json result);
std::optional<std::string> writeError(const Json& id, int code, std::string_view message);

// Sends one reply: its bytes in one write, then the line feed in a second.
void writeMessage(int fd, std::string_view line);

} // namespace vorlo::protocol
