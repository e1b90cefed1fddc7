// The locks folder and the change marker written after every completed write.
#include "mutation/MutationMarker.h"

#include "mutation/MutationLock.h"
#include "platform/Errors.h"
#include "platform/Folder.h"
#include "platform/Json.h"
#include "protocol/VorloMCPServer.h"

namespace vorlo {
namespace {

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

std::optional<std::string> VorloMCPServer::recordCompletedMutation() const {
    // The note is on disk by now, so nothing here may fail the tool: a failure becomes a warning.
    // Reached from the library as the lock is, so that a link swapped in cannot lead it outside.
    int error = 0;
    const auto folder = fs::Folder::openBelow(libraryURL_, kLocksFolder, fs::Folder::Missing::Make, &error);
    if (!folder) return markerWarning(describeFileFailure("folder", kLocksFolder, "created", error));

    // Not flushed: a marker lost to a power cut only delays the application's refresh.
    const MCPMutationMarker marker{Uuid::random(), currentTime()};
    const std::string displayPath = std::string(kLocksFolder) + "/" + std::string(kMarkerName);
    if (const int writeError = folder->replaceFile(kMarkerName, marker.encode(), 0600, fs::Folder::Flush::No);
        writeError != 0)
        return markerWarning(describeFileFailure("file", displayPath, "written", writeError));
    return std::nullopt;
}

} // namespace vorlo
