// The locks folder and the change marker written after every completed write.
#include "mutation/MutationMarker.h"

#include "platform/Errors.h"
#include "platform/Files.h"
#include "platform/Json.h"
#include "protocol/VorloMCPServer.h"

namespace vorlo {
namespace {

constexpr std::string_view kLocksFolder = "Vorlo Data/Locks";
constexpr std::string_view kMarkerName = "Last Mutation.json";

std::string markerWarning(const std::string& description) {
    return "The note was saved, but Vorlo could not update its shared-library change marker: " + description;
}

} // namespace

std::string MCPMutationMarker::encode() const {
    Json marker = Json::object();
    marker["createdAt"] = formatIso8601(createdAt);
    marker["token"] = token.text();
    return writePrettyJson(marker);
}

std::string VorloMCPServer::locksDirectory() const {
    return fs::joinPath(libraryURL_, kLocksFolder);
}

std::optional<std::string> VorloMCPServer::recordCompletedMutation() const {
    // The note is on disk by now, so nothing here may fail the tool: a failure becomes a warning.
    const std::string folder = locksDirectory();
    if (const int error = fs::makeDirectories(folder); error != 0)
        return markerWarning(describeFileFailure("folder", kLocksFolder, "created", error));

    const MCPMutationMarker marker{Uuid::random(), currentTime()};
    const std::string displayPath = std::string(kLocksFolder) + "/" + std::string(kMarkerName);
    if (const int error = fs::replaceFileAtomically(fs::joinPath(folder, kMarkerName), marker.encode(), 0600);
        error != 0)
        return markerWarning(describeFileFailure("file", displayPath, "written", error));
    return std::nullopt;
}

} // namespace vorlo
