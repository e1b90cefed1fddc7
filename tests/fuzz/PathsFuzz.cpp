// Client paths, titles and tags: whatever the text, a path the safety test admits stays below the
// folder it is joined to, a file name made from a title is one legal name, and a tag that passes
// validation has the form that nested tags need.
#include "fuzz/FuzzTargets.h"
#include "library/NoteParser.h"
#include "mutation/SafePlacement.h"
#include "platform/Collation.h"
#include "platform/Errors.h"
#include "platform/Files.h"
#include "protocol/VorloMCPServer.h"
#include "tools/Validators.h"

#include <set>

namespace vorlo::fuzz {
namespace {

const std::string kRoot = "/fuzz/Library";

bool hasParentComponent(std::string_view path) {
    return ("/" + std::string(path) + "/").find("/../") != std::string::npos;
}

// Whether the path ends in ".md", the letters in either case.
bool endsInMd(std::string_view path) {
    const std::size_t n = path.size();
    return n >= 3 && path[n - 3] == '.' && (path[n - 2] | 0x20) == 'm' && (path[n - 1] | 0x20) == 'd';
}

} // namespace

int fuzzPaths(const std::uint8_t* data, std::size_t size) {
    const std::string_view path = asText(data, size); // first a client's path
    const std::string forward = tools::withForwardSlashes(path), joined = kRoot + "/" + std::string(path);
    VORLO_FUZZ_CHECK(forward.size() == path.size() && forward.find('\\') == std::string::npos);
    // Lexically, only a ".." component can lead above the folder a path is joined to.
    VORLO_FUZZ_CHECK(hasParentComponent(path) ||
                     (fs::isDescendantPath(joined, kRoot) &&
                      !fs::isDescendantPath(kRoot + "-evil/" + std::string(path), kRoot)));
    if (tools::isSafeRelativePath(path)) {
        VORLO_FUZZ_CHECK(!path.empty() && path.front() != '/' && path.front() != '~' &&
                         path.find('\0') == std::string_view::npos && !hasParentComponent(path));
        // Nothing in a safe path is changed by standardising it, so the text is the location.
        const VorloMCPServer server{kRoot, "/fuzz/Preferences.json"};
        VORLO_FUZZ_CHECK(fs::standardizedPath(joined) == joined && server.relativePath(joined) == path &&
                         library::folderOf(path).size() < path.size());
    }
    if (!text::isValidUtf8(path)) return 0;
    try {
        const std::string note = tools::notePathArgument(Json{{"path", std::string(path)}});
        VORLO_FUZZ_CHECK(note == forward && tools::isSafeRelativePath(note) && endsInMd(note));
    } catch (const ServerError&) {
        VORLO_FUZZ_CHECK(!tools::isSafeRelativePath(forward) || !endsInMd(forward));
    }

    // The text as a title: the file name made from it.
    const std::string stem = mutation::safeFilename(path);
    VORLO_FUZZ_CHECK(!stem.empty() && text::isValidUtf8(stem) && text::characterCount(stem) <= 160);
    VORLO_FUZZ_CHECK(stem.front() != '.' && !text::caseInsensitiveEqual(stem, "Vorlo Data") &&
                     stem.find_first_of(std::string_view("\\/:*?\"<>|\0", 10)) == std::string::npos);
    for (std::size_t offset = 0; offset < stem.size();)
        VORLO_FUZZ_CHECK(!text::isControlCharacter(text::nextCodePoint(stem, offset)));
    // The name is one safe component of a path, with or without its extension and number (a
    // leading "~" is kept, and only the library's root refuses it).
    VORLO_FUZZ_CHECK(tools::isSafeRelativePath("Folder/" + stem + ".md") &&
                     tools::isSafeRelativePath("Folder/" + stem + " 2.md"));

    // The text as tags, one a line.
    Json tags = Json::array();
    for (std::size_t at = 0, end = 0; at <= path.size(); at = end + 1) {
        end = std::min(path.find('\n', at), path.size());
        tags.push_back(std::string(path.substr(at, end - at)));
    }
    try {
        const std::vector<std::string> valid = tools::noteTags(&tags);
        VORLO_FUZZ_CHECK(!valid.empty() && valid.size() <= tags.size());
        std::set<std::string> folded;
        for (const std::string& tag : valid) {
            VORLO_FUZZ_CHECK(!tag.empty() && text::characterCount(tag) <= kMaximumTagCharacters &&
                             folded.insert(text::fold(tag)).second);
            VORLO_FUZZ_CHECK(tag.find('\\') == std::string::npos && tag.find('\0') == std::string::npos &&
                             tag.front() != '#' && tag.back() != '#');
            VORLO_FUZZ_CHECK(tools::isSafeRelativePath(tag) || tag.front() == '~');
        }
        VORLO_FUZZ_CHECK(std::ranges::adjacent_find(valid, [](const auto& a, const auto& b) {
                             return text::localizedCaseInsensitiveCompare(a, b) > 0;
                         }) == valid.end());
    } catch (const ServerError&) { // refused: nothing to hold it to
    }
    return 0;
}

} // namespace vorlo::fuzz
