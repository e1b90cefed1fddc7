// Safe placement of new notes: the target folder, a free file name, and a write that replaces nothing.
#include "mutation/SafePlacement.h"

#include "platform/CharacterSets.h"
#include "platform/Characters.h"
#include "platform/Collation.h"
#include "platform/Errors.h"
#include "platform/Folder.h"
#include "platform/Utf8.h"
#include "protocol/VorloMCPServer.h"
#include "tools/Validators.h"

#include <array>
#include <cerrno>

namespace vorlo::mutation {
namespace {

constexpr std::string_view kForbiddenCharacters = "\\/:*?\"<>|";
// Names a note file may not take: the private data folder's, and the two that are no names.
constexpr std::array<std::string_view, 3> kReservedNames = {"Vorlo Data", ".", ".."};
constexpr std::string_view kFallbackName = "Untitled";
constexpr std::size_t kLongestStemCharacters = 160;

bool isForbidden(char32_t c) {
    return text::isControlCharacter(c) ||
           (c < 0x80 && kForbiddenCharacters.find(static_cast<char>(c)) != std::string_view::npos);
}

std::string withoutForbiddenCharacters(std::string_view title) {
    std::string kept;
    kept.reserve(title.size());
    for (std::size_t offset = 0; offset < title.size();) {
        const std::size_t start = offset;
        const char32_t c = text::nextCodePoint(title, offset);
        if (!isForbidden(c)) kept.append(title.substr(start, offset - start));
    }
    return kept;
}

std::string_view trimDots(std::string_view name) {
    while (!name.empty() && name.front() == '.')
        name.remove_prefix(1);
    while (!name.empty() && name.back() == '.')
        name.remove_suffix(1);
    return name;
}

} // namespace

std::string safeFilename(std::string_view title) {
    const std::string kept = withoutForbiddenCharacters(title);
    // Dots go after the blanks, and blanks that the dots uncover stay: ". a ." becomes " a ".
    const std::string_view stem = trimDots(text::trimWhitespaceAndNewlines(kept));
    if (stem.empty()) return std::string(kFallbackName);
    for (const std::string_view reserved : kReservedNames)
        if (text::localizedCaseInsensitiveCompare(stem, reserved) == 0) return std::string(kFallbackName);
    return std::string(text::firstCharacters(stem, kLongestStemCharacters));
}

} // namespace vorlo::mutation

namespace vorlo {
namespace {

constexpr std::string_view kPrivateFolder = "Vorlo Data";

[[noreturn]] void refuseUnsafeFolder() {
    throw ServerError("folder must be a normal folder inside the Vorlo library.");
}

[[noreturn]] void refuseFolderOutside() {
    throw ServerError("folder must remain inside the selected Vorlo library.");
}

// Whether the path lies below the private data folder, in any case. Only ASCII letters can lower-case
// to the ASCII of "vorlo data/", so comparing the leading bytes ASCII-lower-cased is exact.
bool startsInsidePrivateFolder(std::string_view path) {
    constexpr std::string_view kPrefix = "vorlo data/";
    if (path.size() < kPrefix.size()) return false;
    for (std::size_t i = 0; i < kPrefix.size(); ++i) {
        char c = path[i];
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        if (c != kPrefix[i]) return false;
    }
    return true;
}

} // namespace

fs::Folder VorloMCPServer::writableFolderURL(std::string_view relativeFolder) const {
    int error = 0;
    std::optional<fs::Folder> library = fs::Folder::open(libraryURL_, &error);
    if (!library) throwFileFailure("folder", "", "opened", error);
    if (relativeFolder.empty()) return std::move(*library);
    const std::string normalized = tools::withForwardSlashes(relativeFolder);
    if (!tools::isSafeRelativePath(normalized) || text::caseInsensitiveEqual(normalized, kPrivateFolder) ||
        startsInsidePrivateFolder(normalized))
        refuseUnsafeFolder();

    // Each component is opened inside the one before without following a link, so no symbolic
    // link is ever walked through, not even one that points back into the library, and a folder
    // swapped for one after it was opened lends nothing: what is checked is what is used.
    fs::Folder current = std::move(*library);
    std::string shown; // the part of the client's path walked so far, for messages
    std::string_view rest = normalized;
    while (!rest.empty()) {
        const std::size_t slash = rest.find('/');
        const std::string_view component = rest.substr(0, slash);
        rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash + 1);
        shown += shown.empty() ? "" : "/";
        shown += component;

        std::optional<fs::Folder> next = current.child(component, &error);
        if (!next) {
            // A file, a link or anything else but a folder stands there.
            if (error == ENOTDIR) refuseFolderOutside();
            if (error != ENOENT) throwFileFailure("folder", shown, "examined", error);
            next = current.makeChild(component, &error);
            if (!next) throwFileFailure("folder", shown, "created", error);
        }
        current = std::move(*next);
    }
    return current;
}

std::string VorloMCPServer::uniqueNoteURL(const fs::Folder& folder, std::string_view title) const {
    // Existence is the file system's own test, so on a volume that ignores case "plan.md" is taken
    // by "Plan.md". The lock keeps other servers out of the gap between this test and the write.
    const std::string stem = mutation::safeFilename(title);
    std::string name = stem + ".md";
    for (unsigned long long number = 2; folder.contains(name); ++number)
        name = stem + " " + std::to_string(number) + ".md";
    return fs::joinPath(folder.path(), name);
}

void VorloMCPServer::writeNewDataAtomically(std::string_view bytes, const fs::Folder& folder,
                                            const std::string& target) const {
    // The final move refuses to replace anything, which is all that holds off a writer outside the
    // lock protocol; the temporary file is gone on every way out.
    if (const int error = folder.createFile(fs::lastComponent(target), bytes, 0600); error != 0)
        throwFileFailure("file", relativePath(target), "created", error);
}

} // namespace vorlo
