#pragma once
// The fuzz targets' entry functions. Each takes one input of arbitrary bytes, runs one part of the
// server on it and checks what must hold whatever the input; a broken property throws FuzzFailure.
// libFuzzer drives them through FuzzEntry.cpp, where the test binary also replays the corpora.

// The text primitives and limits that every target's checks use.
#include "platform/CharacterSets.h"
#include "platform/Characters.h"
#include "platform/Folding.h"
#include "platform/Json.h"
#include "platform/RegexReference.h"
#include "platform/Utf8.h"
#include "tools/Limits.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace vorlo::fuzz {

struct FuzzFailure : std::logic_error {
    using std::logic_error::logic_error;
};

// Throws FuzzFailure naming the file, the line and the condition; used inside namespace vorlo::fuzz.
#define VORLO_FUZZ_CHECK(condition)                                                                          \
    ((condition) ? void() : throw FuzzFailure(__FILE__ ":" + std::to_string(__LINE__) + ": " #condition))

using FuzzFunction = int(const std::uint8_t* data, std::size_t size);
// In turn: one input line through the JSON-RPC dispatch and the tools, on a small temporary library;
// the note file parser, the inline tags and the preview against the regular-expression engine; path
// tests, path normalisation, file names for titles and the tag validator; JSON documents, JSON
// strings and string arrays, strict UTF-8; note fields rendered to a file and parsed back.
FuzzFunction fuzzLineHandler, fuzzNoteParser, fuzzPaths, fuzzJsonString, fuzzRenderParse;

// The deepest nesting of brackets outside strings, counted without building a value (which would
// recurse): the oracle against which the parser's own depth bound is checked.
inline std::size_t nesting(std::string_view text) {
    std::size_t depth = 0, deepest = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '"') // past the string, escaped characters included
            for (++i; i < text.size() && text[i] != '"'; ++i)
                i += text[i] == '\\';
        else if (text[i] == '[' || text[i] == '{')
            deepest = std::max(deepest, ++depth);
        else if ((text[i] == ']' || text[i] == '}') && depth > 0)
            --depth;
    }
    return deepest;
}

// The value that a text holds by the JSON library's judgement, which takes a NUL for the end of its
// input (so "{...}\0junk" passes it alone), limited to the parser's depth bound: the reference that
// the server's own parsing must agree with.
inline std::optional<Json> referenceJson(std::string_view text) {
    if (text.find('\0') != std::string_view::npos || !Json::accept(text.begin(), text.end()) ||
        nesting(text) > kMaximumJsonNesting)
        return std::nullopt;
    return Json::parse(text.begin(), text.end());
}

// Reads the input as text.
inline std::string_view asText(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

// The text with every CRLF and lone CR turned into LF by the regular-expression engine: what the
// parser's own line-end handling must agree with.
inline std::string normalisedLineEnds(std::string_view text) {
    static text::RegexReference lineEnds("\\r\\n?");
    return lineEnds.replaceAllMatches(text, "\n");
}

// Whether the tag is among the listed ones, compared in canonical composition.
inline bool listsTag(const std::vector<std::string>& tags, std::string_view tag) {
    const std::string composed = text::canonicalComposition(tag);
    return std::ranges::any_of(
        tags, [&](const std::string& listed) { return text::canonicalComposition(listed) == composed; });
}

} // namespace vorlo::fuzz
