// JSON as the server reads and writes it: whatever the bytes, a decoded string is valid UTF-8 and
// written back in the notes' header form decodes to itself, a parsed document is written on one
// line and reads back the same, and strict UTF-8 validation agrees with the JSON parser's, a
// byte at a time as with vectors.
#include "fuzz/FuzzTargets.h"

namespace vorlo::fuzz {
namespace {

bool isPlain(std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) >= 0x20; });
}

void checkHeaderEncoding(std::string_view text) {
    const std::string encoded = encodeHeaderJsonString(text);
    VORLO_FUZZ_CHECK(text::isValidUtf8(text) && isPlain(encoded) &&
                     decodeJsonString(encoded) == std::string(text));
    VORLO_FUZZ_CHECK(encoded.find('/') == std::string::npos || encoded.find("\\/") != std::string::npos);
}

} // namespace

int fuzzJsonString(const std::uint8_t* data, std::size_t size) {
    const std::string_view input = asText(data, size);
    const bool utf8 = text::isValidUtf8(input);
    VORLO_FUZZ_CHECK(utf8 == text::isValidUtf8Bytewise(input));

    if (const auto decoded = decodeJsonString(input)) checkHeaderEncoding(*decoded);
    if (const auto strings = decodeJsonStringArray(input)) {
        for (const auto& string : *strings)
            checkHeaderEncoding(string);
        VORLO_FUZZ_CHECK(decodeJsonStringArray(encodeHeaderJsonStringArray(*strings)) == strings);
    }

    // Scalars are JSON but no document.
    const auto document = parseJsonDocument(input), reference = referenceJson(input);
    VORLO_FUZZ_CHECK(document.has_value() == (reference && reference->is_structured()));
    if (document) {
        const auto line = writeCompactJson(*document);
        VORLO_FUZZ_CHECK(utf8 && document->is_structured() && line && line->find('\n') == std::string::npos &&
                         text::isValidUtf8(*line) && text::isValidUtf8(writePrettyJson(*document)));
        const auto again = parseJsonDocument(*line);
        VORLO_FUZZ_CHECK(again && writeCompactJson(*again) == line);
    }

    if (utf8) checkHeaderEncoding(input);
    // Strict UTF-8 is what the JSON parser takes inside a string, where nothing needs escaping.
    if (input.find_first_of("\"\\") == std::string_view::npos && isPlain(input))
        VORLO_FUZZ_CHECK(Json::accept("\"" + std::string(input) + "\"") == utf8);
    return 0;
}

} // namespace vorlo::fuzz
