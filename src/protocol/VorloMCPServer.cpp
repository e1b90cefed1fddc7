// Building the server: the preferences decide whether it may run, and where the library is.
#include "protocol/VorloMCPServer.h"

#include "platform/Errors.h"
#include "platform/Files.h"
#include "platform/Process.h"
#include "protocol/Preferences.h"

namespace vorlo {

VorloMCPServer::VorloMCPServer(std::string libraryPath, std::string preferencesPath)
    : libraryURL_(std::move(libraryPath)), preferencesURL_(std::move(preferencesPath)) {}

VorloMCPServer VorloMCPServer::start() {
    const std::string preferencesPath = preferencesPathFromEnvironment();
    const MCPPreferences preferences = loadPreferences(preferencesPath);
    if (!preferences.mcp.enabled)
        throw ServerError("MCP access is disabled. Enable it in Vorlo Settings > MCP before connecting.");

    // The library path is taken as written: no tilde expansion and no resolving of links, so that
    // a link in its place is seen below and refused.
    const std::string library = fs::absolutePath(preferences.libraryPath.empty()
                                                     ? fs::joinPath(process::supportDirectory(), "Library")
                                                     : preferences.libraryPath);
    int error = 0;
    const auto status = fs::linkStatus(library, &error);
    if (!status) throwFileFailure("Vorlo library folder", "", "opened", error);
    if (status->kind != fs::EntryKind::Directory) throw ServerError("The selected Vorlo library is unavailable.");
    return VorloMCPServer(library, preferencesPath);
}

} // namespace vorlo
