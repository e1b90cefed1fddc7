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

namespace vorlo::fuzz {
namespace {

constexpr std::string_view kRoot = "/fuzz/Library";

bool hasParentComponent(std::string_view path) {
    return ("/" + std::string(path) + "/").find("/../") != std::string::npos;
}

// Whether the path ends in ".md", the letters in either case.
bool endsInMd(std::string_view path) {
    const std::size_t n = path.size();
    return n >= 3 && path[n - 3] == '.' && (path[n - 2] | 0x20) == 'm' && (path[n - 1] | 0x20) == 'd';
}

void checkPath(std::string_view path) {
    const std::string forward = tools::withForwardSlashes(path);
    VORLO_FUZZ_CHECK(forward.size() == path.size() && forward.find('\\') == std::string::npos);

    const std::string joined = std::string(kRoot) + "/" + std::string(path);
    // Lexically, only a ".." component can lead above the folder a path is joined to.
    VORLO_FUZZ_CHECK(hasParentComponent(path) || fs::isDescendantPath(joined, kRoot));
    VORLO_FUZZ_CHECK(hasParentComponent(path) ||
                     !fs::isDescendantPath(std::string(kRoot) + "-evil/" + std::string(path), kRoot));

    if (tools::isSafeRelativePath(path)) {
        VORLO_FUZZ_CHECK(!path.empty() && path.front() != '/' && path.front() != '~');
        VORLO_FUZZ_CHECK(path.find('\0') == std::string_view::npos && !hasParentComponent(path));
        // Nothing in a safe path is changed by standardising it, so the text is the location.
        VORLO_FUZZ_CHECK(fs::standardizedPath(joined) == joined);
        VORLO_FUZZ_CHECK(fs::isDescendantPath(joined, kRoot) && joined != kRoot);
        const VorloMCPServer server{std::string(kRoot), "/fuzz/Preferences.json"};
        VORLO_FUZZ_CHECK(server.relativePath(joined) == path);
        VORLO_FUZZ_CHECK(library::folderOf(path).size() < path.size());
    }

    if (text::isValidUtf8(path)) {
        try {
            const std::string note = tools::notePathArgument(Json{{"path", std::string(path)}});
            VORLO_FUZZ_CHECK(note == forward && tools::isSafeRelativePath(note) && endsInMd(note));
        } catch (const ServerError&) {
            VORLO_FUZZ_CHECK(!tools::isSafeRelativePath(forward) || !endsInMd(forward));
        }
    }
}

void checkFilename(std::string_view title) {
    const std::string stem = mutation::safeFilename(title);
    VORLO_FUZZ_CHECK(!stem.empty() && text::isValidUtf8(stem) && text::characterCount(stem) <= 160);
    VORLO_FUZZ_CHECK(stem.front() != '.' && stem != "." && stem != "..");
    VORLO_FUZZ_CHECK(stem.find_first_of(std::string_view("\\/:*?\"<>|\0", 10)) == std::string::npos);
    for (std::size_t offset = 0; offset < stem.size();)
        VORLO_FUZZ_CHECK(!text::isControlCharacter(text::nextCodePoint(stem, offset)));
    VORLO_FUZZ_CHECK(!text::caseInsensitiveEqual(stem, "Vorlo Data"));
    // The name is one safe component of a path, with or without its extension and number (a
    // leading "~" is kept, and only the library's root refuses it).
    VORLO_FUZZ_CHECK(tools::isSafeRelativePath("Folder/" + stem + ".md") &&
                     tools::isSafeRelativePath("Folder/" + stem + " 2.md"));
}

// Each line of the input is one tag.
void checkTags(std::string_view input) {
    Json tags = Json::array();
    for (std::size_t at = 0, end = 0; at <= input.size(); at = end + 1) {
        end = std::min(input.find('\n', at), input.size());
        tags.push_back(std::string(input.substr(at, end - at)));
    }
    std::vector<std::string> valid;
    try {
        valid = tools::noteTags(&tags);
    } catch (const ServerError&) {
        return;
    }
    VORLO_FUZZ_CHECK(!valid.empty() && valid.size() <= tags.size());
    for (std::size_t i = 0; i < valid.size(); ++i) {
        const std::string& tag = valid[i];
        VORLO_FUZZ_CHECK(text::characterCount(tag) >= 1 &&
                         text::characterCount(tag) <= kMaximumTagCharacters);
        VORLO_FUZZ_CHECK(tag.find('\\') == std::string::npos && tag.find('\0') == std::string::npos);
        VORLO_FUZZ_CHECK(tools::isSafeRelativePath(tag) || tag.front() == '~');
        VORLO_FUZZ_CHECK(tag.front() != '#' && tag.back() != '#');
        for (std::size_t j = 0; j < i; ++j) VORLO_FUZZ_CHECK(text::fold(valid[j]) != text::fold(tag));
        if (i > 0) VORLO_FUZZ_CHECK(text::localizedCaseInsensitiveCompare(valid[i - 1], tag) <= 0);
    }
}

} // namespace

int fuzzPaths(const std::uint8_t* data, std::size_t size) {
    const std::string_view input = asText(data, size);
    checkPath(input);
    if (!text::isValidUtf8(input)) return 0;
    checkFilename(input);
    checkTags(input);
    return 0;
}

} // namespace vorlo::fuzz
