// Argument validators: one typed value per argument, or the exact message the client reads.
#include "tools/Validators.h"

#include "platform/CharacterSets.h"
#include "platform/Characters.h"
#include "platform/Collation.h"
#include "platform/Errors.h"
#include "platform/Folding.h"
#include "tools/Limits.h"

#include <algorithm>
#include <unordered_set>

namespace vorlo::tools {
namespace {

// Split at "/" with empty pieces kept: any empty, "." or ".." piece fails.
bool hasOnlyNormalComponents(std::string_view path) {
    std::size_t at = 0;
    for (;;) {
        const auto slash = path.find('/', at);
        const std::string_view piece = path.substr(at, slash == std::string_view::npos ? slash : slash - at);
        if (piece.empty() || piece == "." || piece == "..") return false;
        if (slash == std::string_view::npos) return true;
        at = slash + 1;
    }
}

bool endsWithMarkdownExtension(std::string_view path) {
    if (path.size() < 3) return false;
    const std::string_view end = path.substr(path.size() - 3);
    return end[0] == '.' && (end[1] == 'm' || end[1] == 'M') && (end[2] == 'd' || end[2] == 'D');
}

} // namespace

const Json* argument(const Json& arguments, std::string_view key) {
    if (!arguments.is_object()) return nullptr;
    const auto found = arguments.find(key);
    return found == arguments.end() ? nullptr : &*found;
}

long long resultLimit(const Json* value, long long defaultValue) {
    if (value == nullptr) return defaultValue;
    if (!isNumberOrBoolean(*value)) throw ServerError("limit must be a number.");
    return std::clamp(integerValue(*value), kMinimumResultLimit, kMaximumResultLimit);
}

std::optional<std::string> optionalString(const Json* value, std::string_view name) {
    if (value == nullptr) return std::nullopt;
    if (!value->is_string() || text::hasMoreCharactersThan(value->get_ref<const std::string&>(),
                                                           kMaximumShortStringCharacters))
        throw ServerError(std::string(name) + " must be a short string.");
    const std::string_view trimmed = text::trimWhitespaceAndNewlines(value->get_ref<const std::string&>());
    if (trimmed.empty()) return std::nullopt;
    return std::string(trimmed);
}

std::string noteTitle(const Json* value) {
    if (value == nullptr || !value->is_string()) throw ServerError("title is required.");
    const std::string_view trimmed = text::trimWhitespaceAndNewlines(value->get_ref<const std::string&>());
    if (trimmed.empty() || text::hasMoreCharactersThan(trimmed, kMaximumTitleCharacters))
        throw ServerError("title must contain 1 to 1000 characters.");
    return std::string(trimmed);
}

std::string noteContent(const Json* value, const std::string& defaultValue) {
    if (value == nullptr) return defaultValue;
    if (!value->is_string()) throw ServerError("content must be text.");
    const auto& content = value->get_ref<const std::string&>();
    if (content.size() > kMaximumNoteBytes) throw ServerError("content exceeds Vorlo's 16777216-byte limit.");
    return content;
}

std::vector<std::string> noteTags(const Json* value) {
    if (value == nullptr) return {};
    if (!value->is_array() || value->size() > kMaximumTags)
        throw ServerError("tags must be an array containing no more than 256 items.");
    std::vector<std::string> tags;
    std::unordered_set<std::string> seen;
    for (const auto& element : *value) {
        if (!element.is_string()) throw ServerError("Every tag must be text.");
        std::string_view tag = text::trimWhitespaceAndNewlines(element.get_ref<const std::string&>());
        // Only "#" is stripped after the trim; blanks that stood inside the "#" signs stay.
        while (!tag.empty() && tag.front() == '#') tag.remove_prefix(1);
        while (!tag.empty() && tag.back() == '#') tag.remove_suffix(1);
        if (tag.empty() || text::hasMoreCharactersThan(tag, kMaximumTagCharacters) ||
            tag.find('\0') != std::string_view::npos || tag.find('\\') != std::string_view::npos ||
            tag.front() == '/' || tag.back() == '/' || !hasOnlyNormalComponents(tag))
            throw ServerError("A tag is invalid or too long.");
        if (seen.insert(text::fold(tag)).second) tags.emplace_back(tag);
    }
    std::stable_sort(tags.begin(), tags.end(), [](const std::string& a, const std::string& b) {
        return text::localizedCaseInsensitiveCompare(a, b) < 0;
    });
    return tags;
}

std::optional<bool> optionalBoolean(const Json* value, std::string_view name) {
    if (value == nullptr) return std::nullopt;
    if (value->is_boolean()) return value->get<bool>();
    if (value->is_number()) {
        const double number = value->get<double>();
        if (number == 1.0) return true;
        if (number == 0.0) return false;
    }
    throw ServerError(std::string(name) + " must be true or false.");
}

bool isSafeRelativePath(std::string_view path) {
    if (path.empty() || path.front() == '/' || path.front() == '~') return false;
    if (path.find('\0') != std::string_view::npos) return false;
    return hasOnlyNormalComponents(path);
}

std::string withForwardSlashes(std::string_view path) {
    std::string out(path);
    std::replace(out.begin(), out.end(), '\\', '/');
    return out;
}

std::string notePathArgument(const Json& arguments) {
    const Json* value = argument(arguments, "path");
    if (value == nullptr || !value->is_string()) throw ServerError("path is required.");
    std::string path = withForwardSlashes(value->get_ref<const std::string&>());
    if (!isSafeRelativePath(path) || !endsWithMarkdownExtension(path))
        throw ServerError("path must identify a Markdown note inside the Vorlo library.");
    return path;
}

} // namespace vorlo::tools
