// Note fields rendered to a file and parsed back: whatever the fields, the header stays nine lines,
// the body follows it unchanged, and every field reads back as it was written.
#include "fuzz/FuzzTargets.h"
#include "library/NoteParser.h"
#include "mutation/NoteRenderer.h"
#include "platform/Folding.h"
#include "platform/Utf8.h"

#include <algorithm>

namespace vorlo::fuzz {
namespace {

// Takes the input apart: a byte gives a length, then that many bytes; numbers take 8 bytes.
class Fields {
public:
    explicit Fields(std::string_view input) : rest_(input) {}

    std::string text() {
        const std::size_t wanted = byte() * 2u; // taken before the size that it shrinks
        const std::size_t length = std::min(wanted, rest_.size());
        std::string taken(rest_.substr(0, length));
        rest_.remove_prefix(length);
        return taken;
    }
    std::string remainder() {
        std::string taken(rest_);
        rest_ = {};
        return taken;
    }
    std::uint8_t byte() {
        if (rest_.empty()) return 0;
        const auto value = static_cast<std::uint8_t>(rest_.front());
        rest_.remove_prefix(1);
        return value;
    }
    std::uint64_t number() {
        std::uint64_t value = 0;
        for (int i = 0; i < 8; ++i) value = value << 8 | byte();
        return value;
    }

private:
    std::string_view rest_;
};

} // namespace

int fuzzRenderParse(const std::uint8_t* data, std::size_t size) {
    Fields input(asText(data, size));
    mutation::NoteFields fields;
    static constexpr char kHex[] = "0123456789abcdef";
    std::string uuid;
    for (int i = 0; i < 32; ++i) {
        if (i == 8 || i == 12 || i == 16 || i == 20) uuid += '-';
        uuid += kHex[input.byte() & 0xF];
    }
    fields.id = *Uuid::parse(uuid);
    // Dates from the year 1 to 9999, whole seconds.
    constexpr std::int64_t kFirst = -62135596800, kSpan = 253402300799 - kFirst + 1;
    const auto date = [&] {
        const auto seconds = kFirst + static_cast<std::int64_t>(input.number() % static_cast<std::uint64_t>(kSpan));
        return Timestamp(std::chrono::seconds(seconds));
    };
    fields.created = date();
    fields.modified = date();
    const std::uint8_t flags = input.byte();
    fields.pinned = flags & 1;
    fields.archived = flags & 2;
    fields.title = input.text();
    for (int count = input.byte() % 8; count > 0; --count) fields.tags.push_back(input.text());
    fields.content = input.remainder();
    // The validators hand on only valid UTF-8.
    if (!text::isValidUtf8(fields.title) || !text::isValidUtf8(fields.content)) return -1;
    for (const auto& tag : fields.tags)
        if (!text::isValidUtf8(tag)) return -1;

    const std::string rendered = mutation::renderNote(fields);
    VORLO_FUZZ_CHECK(text::isValidUtf8(rendered));
    VORLO_FUZZ_CHECK(rendered.ends_with(fields.content));
    const std::string header = rendered.substr(0, rendered.size() - fields.content.size());
    VORLO_FUZZ_CHECK(std::count(header.begin(), header.end(), '\n') == 9);
    VORLO_FUZZ_CHECK(header.find('\r') == std::string::npos);

    const NoteRecord note = library::parseNote(rendered, "Folder/Name.md", std::nullopt, "revision");
    VORLO_FUZZ_CHECK(note.id == fields.id.text());
    VORLO_FUZZ_CHECK(note.title == fields.title);
    VORLO_FUZZ_CHECK(note.created == formatIso8601(fields.created));
    VORLO_FUZZ_CHECK(note.modified == formatIso8601(fields.modified));
    VORLO_FUZZ_CHECK(parseIso8601(*note.created) == std::chrono::time_point_cast<std::chrono::seconds>(fields.created));
    VORLO_FUZZ_CHECK(note.pinned == fields.pinned && note.archived == fields.archived);
    VORLO_FUZZ_CHECK(note.content == normalisedLineEnds(fields.content));
    // The header's tags all come back; the body may add its inline tags to them.
    for (const auto& tag : fields.tags) {
        const std::string composed = text::canonicalComposition(tag);
        VORLO_FUZZ_CHECK(std::any_of(note.tags.begin(), note.tags.end(), [&](const std::string& listed) {
            return text::canonicalComposition(listed) == composed;
        }));
    }
    if (note.content.find('#') == std::string::npos)
        VORLO_FUZZ_CHECK(note.tags.size() <= fields.tags.size());
    return 0;
}

} // namespace vorlo::fuzz
