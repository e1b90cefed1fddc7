// JSON as the server reads and writes it: whatever the bytes, a decoded string is valid UTF-8 and
// written back in the notes' header form decodes to itself, a parsed document is written on one
// line and reads back the same, and strict UTF-8 validation agrees with the JSON parser's.
#include "fuzz/FuzzTargets.h"
#include "platform/Json.h"

namespace vorlo::fuzz {
namespace {

bool isPlain(std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) >= 0x20; });
}

void checkHeaderEncoding(std::string_view text) {
    const std::string encoded = encodeHeaderJsonString(text);
    VORLO_FUZZ_CHECK(isPlain(encoded) && decodeJsonString(encoded) == std::string(text));
    VORLO_FUZZ_CHECK(encoded.find('/') == std::string::npos || encoded.find("\\/") != std::string::npos);
}

} // namespace

int fuzzJsonString(const std::uint8_t* data, std::size_t size) {
    const std::string_view input = asText(data, size);
    const bool utf8 = text::isValidUtf8(input);

    if (const auto decoded = decodeJsonString(input)) {
        VORLO_FUZZ_CHECK(text::isValidUtf8(*decoded));
        checkHeaderEncoding(*decoded);
    }
    if (const auto strings = decodeJsonStringArray(input)) {
        for (const auto& string : *strings) VORLO_FUZZ_CHECK(text::isValidUtf8(string));
        VORLO_FUZZ_CHECK(decodeJsonStringArray(encodeHeaderJsonStringArray(*strings)) == strings);
    }

    const auto document = parseJsonDocument(input);
    const bool accepted = Json::accept(input.begin(), input.end()) && input.find('\0') == std::string_view::npos &&
                          nesting(input) <= kMaximumJsonNesting;
    if (document) {
        VORLO_FUZZ_CHECK(accepted && utf8 && (document->is_object() || document->is_array()));
        const auto line = writeCompactJson(*document);
        VORLO_FUZZ_CHECK(line && line->find('\n') == std::string::npos && text::isValidUtf8(*line));
        const auto again = parseJsonDocument(*line);
        VORLO_FUZZ_CHECK(again && writeCompactJson(*again) == line);
        VORLO_FUZZ_CHECK(text::isValidUtf8(writePrettyJson(*document)));
    } else if (accepted) {
        // Scalars are JSON but no document.
        const Json value = Json::parse(input.begin(), input.end());
        VORLO_FUZZ_CHECK(!value.is_object() && !value.is_array());
    }

    if (utf8) checkHeaderEncoding(input);
    // Strict UTF-8 is what the JSON parser takes inside a string, where nothing needs escaping.
    if (input.find_first_of("\"\\") == std::string_view::npos && isPlain(input))
        VORLO_FUZZ_CHECK(Json::accept("\"" + std::string(input) + "\"") == utf8);
    return 0;
}

} // namespace vorlo::fuzz
