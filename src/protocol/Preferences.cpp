// Reading the preferences file, which the notes application owns and this server never writes.
#include "protocol/Preferences.h"

#include "platform/Errors.h"
#include "platform/Files.h"
#include "platform/Json.h"
#include "platform/Process.h"
#include "tools/Limits.h"

namespace vorlo {
namespace {

constexpr std::string_view kPreferencesSubject = "preferences file";

[[noreturn]] void refuse(const std::string& problem) { throw ServerError("The preferences file " + problem); }

bool readSwitch(const Json& configuration, const char* key) {
    const auto value = configuration.find(key);
    if (value == configuration.end() || value->is_null()) return false;
    if (!value->is_boolean())
        refuse(std::string("is not valid: \u201Cmcp.") + key + "\u201D must be true or false.");
    return value->get<bool>();
}

MCPPreferences decodePreferences(std::string_view bytes) {
    const std::optional<Json> document = parseJsonDocument(bytes);
    if (!document) refuse("is not valid JSON.");
    if (!document->is_object()) refuse("is not valid: it must hold one JSON object.");
    MCPPreferences preferences;
    const auto library = document->find("libraryPath");
    if (library == document->end()) refuse("is not valid: \u201ClibraryPath\u201D is missing.");
    if (!library->is_string()) refuse("is not valid: \u201ClibraryPath\u201D must be text.");
    preferences.libraryPath = library->get<std::string>();
    const auto mcp = document->find("mcp");
    if (mcp == document->end()) refuse("is not valid: \u201Cmcp\u201D is missing.");
    if (!mcp->is_object()) refuse("is not valid: \u201Cmcp\u201D must be an object.");
    preferences.mcp.enabled = readSwitch(*mcp, "enabled");
    preferences.mcp.allowWriting = readSwitch(*mcp, "allowWriting");
    return preferences;
}

} // namespace

MCPPreferences loadPreferences(const std::string& path) {
    // A file that is not there, or is no plain file of a sensible size, means that access is off.
    const auto status = fs::linkStatus(path);
    if (!status || status->kind != fs::EntryKind::RegularFile || status->size > kMaximumPreferencesBytes) return {};
    int error = 0;
    const auto contents = fs::readRegularFile(path, kMaximumPreferencesBytes, &error);
    if (!contents) throwFileFailure(kPreferencesSubject, "", "read", error);
    return decodePreferences(contents->bytes);
}

std::string preferencesPathFromEnvironment() {
    if (auto path = process::environmentValue("VORLO_MCP_PREFERENCES")) return *path;
    return fs::joinPath(process::supportDirectory(), "Preferences.json");
}

} // namespace vorlo
