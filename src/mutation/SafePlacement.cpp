// Safe placement of new notes: the target folder, a free file name, and a write that replaces nothing.
#include "mutation/SafePlacement.h"

#include "platform/Errors.h"
#include "platform/Files.h"
#include "platform/Text.h"
#include "protocol/VorloMCPServer.h"
#include "tools/Validators.h"

#include <array>

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

std::string VorloMCPServer::writableFolderURL(std::string_view relativeFolder) const {
    if (relativeFolder.empty()) return libraryURL_;
    const std::string normalized = tools::withForwardSlashes(relativeFolder);
    if (!tools::isSafeRelativePath(normalized) || text::caseInsensitiveEqual(normalized, kPrivateFolder) ||
        startsInsidePrivateFolder(normalized))
        refuseUnsafeFolder();

    // Each component is examined before the next is touched, so no symbolic link is ever walked
    // through, not even one that points back into the library: what is checked is what is used.
    const std::string root = fs::resolvedPath(libraryURL_);
    std::string current = libraryURL_;
    std::string shown; // the part of the client's path walked so far, for messages
    std::string_view rest = normalized;
    while (!rest.empty()) {
        const std::size_t slash = rest.find('/');
        const std::string_view component = rest.substr(0, slash);
        rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash + 1);
        current = fs::joinPath(current, component);
        shown += shown.empty() ? "" : "/";
        shown += component;

        if (fs::exists(current)) {
            int error = 0;
            const auto status = fs::linkStatus(current, &error);
            if (!status) throwFileFailure("folder", shown, "examined", error);
            if (status->kind != fs::EntryKind::Directory ||
                !fs::isDescendantPath(fs::resolvedPath(current), root))
                refuseFolderOutside();
        } else if (const int error = fs::makeDirectory(current); error != 0) {
            throwFileFailure("folder", shown, "created", error);
        }
    }
    return current;
}

std::string VorloMCPServer::uniqueNoteURL(const std::string& folder, std::string_view title) const {
    // Existence is the file system's own test, so on a volume that ignores case "plan.md" is taken
    // by "Plan.md". The lock keeps other servers out of the gap between this test and the write.
    const std::string stem = mutation::safeFilename(title);
    std::string candidate = fs::joinPath(folder, stem + ".md");
    for (unsigned long long number = 2; fs::exists(candidate); ++number)
        candidate = fs::joinPath(folder, stem + " " + std::to_string(number) + ".md");
    return candidate;
}

void VorloMCPServer::writeNewDataAtomically(std::string_view bytes, const std::string& target) const {
    // The final move refuses to replace anything, which is all that holds off a writer outside the
    // lock protocol; the temporary file is gone on every way out.
    if (const int error = fs::createFileAtomically(target, bytes, 0600); error != 0)
        throwFileFailure("file", relativePath(target), "created", error);
}

} // namespace vorlo
