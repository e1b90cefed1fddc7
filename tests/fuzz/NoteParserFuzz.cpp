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
    VORLO_FUZZ_CHECK(note.content.find('\r') == std::string::npos && normalised.ends_with(note.content));
    VORLO_FUZZ_CHECK(note.relativePath == relativePath && note.revision == "revision");
    VORLO_FUZZ_CHECK(relativePath.starts_with(note.relativeFolder));
    VORLO_FUZZ_CHECK(text::isValidUtf8(note.title) && text::isValidUtf8(note.content));
    // An id is a canonical UUID: upper-case hexadecimal digits in groups of 8-4-4-4-12.
    static text::RegexReference uuid(R"(\A([0-9A-F]{8}(?:-[0-9A-F]{4}){3}-[0-9A-F]{12})\z)");
    VORLO_FUZZ_CHECK(!note.id || uuid.allGroupOneMatches(*note.id) == std::vector{*note.id});
    if (note.content.size() == normalised.size()) {
        // No front matter: every header field at its default.
        VORLO_FUZZ_CHECK(!note.id && !note.created && !note.modified && !note.pinned && !note.archived);
        VORLO_FUZZ_CHECK(note.title == library::defaultTitle(relativePath));
    } else {
        VORLO_FUZZ_CHECK(normalised.starts_with("---\n") &&
                         normalised.substr(0, normalised.size() - note.content.size()).ends_with("\n---\n"));
    }
    for (std::size_t i = 0; i < note.tags.size(); ++i) {
        VORLO_FUZZ_CHECK(text::isValidUtf8(note.tags[i]));
        if (i > 0)
            VORLO_FUZZ_CHECK(text::canonicalComposition(note.tags[i - 1]) < text::canonicalComposition(note.tags[i]));
    }

    static text::RegexReference tagPattern(library::kInlineTagPattern);
    const std::vector<std::string> inlineTags = library::inlineTags(note.content);
    VORLO_FUZZ_CHECK(inlineTags == tagPattern.allGroupOneMatches(note.content));
    for (const auto& tag : inlineTags)
        VORLO_FUZZ_CHECK(listsTag(note.tags, tag));

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
