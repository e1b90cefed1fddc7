// Any text as a note file: the parser never fails and its record is consistent with the text, and
// the hand-written matchers for inline tags and the preview agree with the regular-expression
// engine running the patterns they stand for.
#include "fuzz/FuzzTargets.h"
#include "library/InlineTags.h"
#include "library/NoteParser.h"
#include "library/Summaries.h"
#include "platform/RegexReference.h"

namespace vorlo::fuzz {

int fuzzNoteParser(const std::uint8_t* data, std::size_t size) {
    const std::string_view input = asText(data, size);
    // The scan admits only valid UTF-8; the first line names the file, the rest is its text.
    if (!text::isValidUtf8(input)) return -1;
    const std::size_t split = std::min(input.find('\n'), input.size());
    const std::string relativePath = std::string(input.substr(0, split)) + ".md";
    const std::string_view fileText = input.substr(std::min(split + 1, input.size()));

    const NoteRecord note = library::parseNote(std::string(fileText), relativePath, std::nullopt, "revision");
    const std::string normalised = normalisedLineEnds(fileText);
    VORLO_FUZZ_CHECK(normalised.ends_with(note.content) && text::isValidUtf8(note.content) &&
                     text::isValidUtf8(note.title));
    VORLO_FUZZ_CHECK(note.relativePath == relativePath && note.revision == "revision" &&
                     relativePath.starts_with(note.relativeFolder));
    // An id is a canonical UUID: upper-case hexadecimal digits in groups of 8-4-4-4-12.
    static text::RegexReference uuid(R"(\A([0-9A-F]{8}(?:-[0-9A-F]{4}){3}-[0-9A-F]{12})\z)");
    VORLO_FUZZ_CHECK(!note.id || uuid.allGroupOneMatches(*note.id) == std::vector{*note.id});
    if (note.content.size() == normalised.size()) // no front matter: every header field at its default
        VORLO_FUZZ_CHECK(!note.id && !note.created && !note.modified && !note.pinned && !note.archived &&
                         note.title == library::defaultTitle(relativePath));
    else
        VORLO_FUZZ_CHECK(normalised.starts_with("---\n") &&
                         normalised.substr(0, normalised.size() - note.content.size()).ends_with("\n---\n"));
    VORLO_FUZZ_CHECK(std::ranges::all_of(note.tags, text::isValidUtf8) &&
                     std::ranges::adjacent_find(note.tags, [](const auto& a, const auto& b) {
                         return text::canonicalComposition(a) >= text::canonicalComposition(b);
                     }) == note.tags.end());

    static text::RegexReference tagPattern(library::kInlineTagPattern);
    const std::vector<std::string> inlineTags = library::inlineTags(note.content);
    VORLO_FUZZ_CHECK(
        inlineTags == tagPattern.allGroupOneMatches(note.content) &&
        std::ranges::all_of(inlineTags, [&](const auto& tag) { return listsTag(note.tags, tag); }));

    static text::RegexReference headingMarks(R"((?m)^#{1,6}\s+)"), whitespace(R"(\s+)");
    const std::string collapsed =
        whitespace.replaceAllMatches(headingMarks.replaceAllMatches(note.content, ""), " ");
    VORLO_FUZZ_CHECK(library::compactPreview(note.content) ==
                     text::firstCharacters(text::trimWhitespaceAndNewlines(collapsed), kPreviewCharacters));

    // A snippet is a bounded piece of valid text whatever the query.
    const std::string snippet =
        library::snippet(note.content, std::string(text::firstCharacters(note.title, 20)));
    VORLO_FUZZ_CHECK(text::isValidUtf8(snippet) && text::characterCount(snippet) <= kSnippetCharacters + 2);
    return 0;
}

} // namespace vorlo::fuzz
