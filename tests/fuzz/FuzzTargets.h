#pragma once
// The fuzz targets' entry functions. Each takes one input of arbitrary bytes, runs one part of the
// server on it and checks what must hold whatever the input; a broken property throws FuzzFailure.
// libFuzzer drives them through FuzzEntry.cpp, and the test binary replays the corpora through them.

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace vorlo::fuzz {

struct FuzzFailure : std::logic_error {
    using std::logic_error::logic_error;
};

#define VORLO_FUZZ_CHECK(condition)                                                                         \
    do {                                                                                                    \
        if (!(condition))                                                                                   \
            throw ::vorlo::fuzz::FuzzFailure(std::string(__FILE__) + ":" + std::to_string(__LINE__) + ": " + \
                                             #condition);                                                   \
    } while (false)

// One input line through the JSON-RPC dispatch and the tools, on a small temporary library.
int fuzzLineHandler(const std::uint8_t* data, std::size_t size);
// The note file parser, the inline tags and the preview against the regular-expression engine.
int fuzzNoteParser(const std::uint8_t* data, std::size_t size);
// Path tests, path normalisation, file names for titles and the tag validator.
int fuzzPaths(const std::uint8_t* data, std::size_t size);
// JSON documents, JSON strings and string arrays, strict UTF-8.
int fuzzJsonString(const std::uint8_t* data, std::size_t size);
// Note fields rendered to a file and parsed back.
int fuzzRenderParse(const std::uint8_t* data, std::size_t size);

struct FuzzTarget {
    std::string_view name; // the folder of its corpus under tests/fuzz/corpus
    int (*run)(const std::uint8_t*, std::size_t);
};

inline constexpr FuzzTarget kFuzzTargets[] = {
    {"line_handler", fuzzLineHandler}, {"note_parser", fuzzNoteParser}, {"paths", fuzzPaths},
    {"json_string", fuzzJsonString},   {"render_parse", fuzzRenderParse},
};

// The deepest nesting of brackets outside strings, counted without building a value (which would
// recurse): the oracle against which the parser's own depth bound is checked.
inline std::size_t nesting(std::string_view text) {
    std::size_t depth = 0, deepest = 0;
    bool inString = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            if (c == '\\') ++i;
            else if (c == '"') inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > deepest) deepest = depth;
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;
        }
    }
    return deepest;
}

// Reads the input as text.
inline std::string_view asText(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

// The text with every CRLF and lone CR turned into LF, one character at a time: what the parser's
// own line-end handling must agree with.
inline std::string normalisedLineEnds(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\r') {
            out += '\n';
            if (i + 1 < text.size() && text[i + 1] == '\n') ++i;
        } else {
            out += text[i];
        }
    }
    return out;
}

} // namespace vorlo::fuzz
