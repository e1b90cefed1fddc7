// Note fields rendered to a file and parsed back: whatever the fields, the header stays nine lines,
// the body follows it unchanged, and every field reads back as it was written.
#include "fuzz/FuzzTargets.h"
#include "library/NoteParser.h"
#include "mutation/NoteRenderer.h"

#include <utility>

namespace vorlo::fuzz {

int fuzzRenderParse(const std::uint8_t* data, std::size_t size) {
    // Takes the input apart: a byte gives half a length, then that many bytes; numbers take 8 bytes.
    std::string_view rest = asText(data, size);
    const auto byte = [&]() -> std::uint8_t {
        return rest.empty() ? 0 : static_cast<std::uint8_t>(std::exchange(rest, rest.substr(1)).front());
    };
    const auto piece = [&] {
        const std::size_t wanted = byte() * 2u; // taken before the size that it shrinks
        return std::string(std::exchange(rest, rest.substr(std::min(wanted, rest.size()))).substr(0, wanted));
    };
    // Dates from the year 1 to 9999, whole seconds.
    const auto date = [&] {
        constexpr std::int64_t kFirst = -62135596800, kSpan = 253402300799 - kFirst + 1;
        std::uint64_t number = 0;
        for (int i = 0; i < 8; ++i)
            number = number << 8 | byte();
        return Timestamp(std::chrono::seconds(kFirst + static_cast<std::int64_t>(number % kSpan)));
    };
    std::string uuid = "........-....-....-....-............";
    for (char& digit : uuid)
        if (digit == '.') digit = "0123456789abcdef"[byte() & 0xF];
    mutation::NoteFields fields;
    fields.id = *Uuid::parse(uuid);
    fields.created = date();
    fields.modified = date();
    const std::uint8_t flags = byte();
    fields.pinned = flags & 1;
    fields.archived = flags & 2;
    fields.title = piece();
    for (int count = byte() % 8; count > 0; --count)
        fields.tags.push_back(piece());
    fields.content = std::string(rest);
    // The validators hand on only valid UTF-8.
    const auto valid = [](const std::string& field) { return text::isValidUtf8(field); };
    if (!valid(fields.title) || !valid(fields.content) || !std::ranges::all_of(fields.tags, valid)) return -1;

    const std::string rendered = mutation::renderNote(fields);
    const std::string_view header =
        std::string_view(rendered).substr(0, rendered.size() - fields.content.size());
    VORLO_FUZZ_CHECK(text::isValidUtf8(rendered) && rendered.ends_with(fields.content) &&
                     std::ranges::count(header, '\n') == 9 && header.find('\r') == std::string::npos);

    const NoteRecord note = library::parseNote(rendered, "Folder/Name.md", std::nullopt, "revision");
    VORLO_FUZZ_CHECK(note.id == fields.id.text() && note.title == fields.title &&
                     note.pinned == fields.pinned && note.archived == fields.archived);
    VORLO_FUZZ_CHECK(
        note.created == formatIso8601(fields.created) && note.modified == formatIso8601(fields.modified) &&
        parseIso8601(*note.created) == std::chrono::time_point_cast<std::chrono::seconds>(fields.created));
    // The header's tags all come back; the body may add its inline tags to them.
    VORLO_FUZZ_CHECK(
        note.content == normalisedLineEnds(fields.content) &&
        std::ranges::all_of(fields.tags, [&](const auto& tag) { return listsTag(note.tags, tag); }) &&
        (note.content.find('#') != std::string::npos || note.tags.size() <= fields.tags.size()));
    return 0;
}

} // namespace vorlo::fuzz
