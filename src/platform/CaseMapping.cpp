// Lower-casing through ICU, with a fast path for ASCII names.
#include "platform/CaseMapping.h"

#include "platform/Utf8.h"

#include <unicode/locid.h>
#include <unicode/unistr.h>

namespace vorlo::text {
namespace {

std::string asciiLowercased(std::string_view text) {
    std::string out(text);
    for (char& c : out)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return out;
}

} // namespace

std::string lowercased(std::string_view text) {
    if (isAscii(text) || !isValidUtf8(text)) return asciiLowercased(text);
    // The root locale: an extension reads the same whatever language the user runs in.
    std::string out;
    icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())))
        .toLower(icu::Locale::getRoot())
        .toUTF8String(out);
    return out;
}

} // namespace vorlo::text
