// One input line through the dispatch and the tools, in-process, on a small library with notes,
// attachments and a sibling folder whose name extends the library's. Whatever the line, a request
// gets exactly one reply line of valid UTF-8 JSON, a notification none, and nothing outside the
// library is ever shown or touched.
#include "fuzz/FuzzTargets.h"
#include "support/TempLibrary.h"

namespace vorlo::fuzz {
namespace {

constexpr std::string_view kOutsideMarker = "FUZZ-OUTSIDE-7f3a91";

// The library as it starts, put back whenever a line may have written: notes, and the first one's
// attachments.
const std::pair<std::string, std::string> kFiles[] = {
    {"Welcome.md", "---\nid: 12345678-90AB-CDEF-1234-567890ABCDEF\ntitle: \"Welcome\"\ncreated: "
                   "2024-01-01T00:00:00Z\nmodified: 2024-01-02T00:00:00Z\ntags: [\"start\"]\npinned: "
                   "true\narchived: false\n---\n# Welcome\nHello #world, see the photo.\n"},
    {"Projects/Plan.md", "No header, #plan/q1 body\r\nsecond line\r\n"},
    // Dates at the ends of what a header may name.
    {"Projects/Old.md",
     "---\ntitle: \"Old\"\ncreated: 9999-12-31T23:59:59+23:59\nmodified: 0001-01-01T00:00:00Z\n---\nold"},
    {"Vorlo Data/Attachments/12345678-90AB-CDEF-1234-567890ABCDEF/photo.png", "\x89PNG\r\n\x1a\n"},
    {"Vorlo Data/Attachments/12345678-90AB-CDEF-1234-567890ABCDEF/notes.txt", "plain text"},
    {"Vorlo Data/Attachments/12345678-90AB-CDEF-1234-567890ABCDEF/data.bin", std::string("\xff\x00\x01", 3)},
};

// The library beside a sibling folder whose name extends the library's.
struct FuzzLibrary : testing::TempLibrary {
    FuzzLibrary() {
        write("../Library-evil/secret.md", "---\ntitle: \"x\"\n---\n" + std::string(kOutsideMarker));
        restore();
    }
    // Puts the library back as it was and checks that nothing beside it changed (the root holds
    // Library, Library-evil and Preferences.json).
    void restore() {
        using Listing = std::filesystem::directory_iterator;
        std::filesystem::remove_all(library());
        for (const auto& [path, bytes] : kFiles)
            write(path, bytes);
        VORLO_FUZZ_CHECK(std::distance(Listing(root()), Listing()) == 3 &&
                         std::distance(Listing(root() + "/Library-evil"), Listing()) == 1);
    }
    const VorloMCPServer handler = server();
};

const Json kTools = {"list_notes",      "search_notes", "read_note",
                     "read_attachment", "create_note",  "update_note"};

// The reply line that a message must get: none for a notification. A message that is not a
// well-formed request or notification, or no JSON at all (null), is invalid.
void checkReply(const Json& message, const std::optional<std::string>& line) {
    const Json request = message.is_object() ? message : Json::object();
    const Json method = request.value("method", Json()), params = request.value("params", Json());
    const bool invalid = request.value("jsonrpc", Json()) != "2.0" || !method.is_string();
    VORLO_FUZZ_CHECK(line.has_value() == (invalid || request.contains("id")));
    if (!line) return;
    VORLO_FUZZ_CHECK(line->find('\n') == std::string::npos && text::isValidUtf8(*line));
    Json reply = Json::parse(*line, nullptr, false);
    VORLO_FUZZ_CHECK(reply.is_object() && reply.size() == 3 && reply["jsonrpc"] == "2.0" &&
                     reply.contains("id") && reply.contains("result") != reply.contains("error"));
    Json& result = reply["result"];
    Json error = reply.value("error", Json{{"code", 0}, {"message", ""}}), code = error["code"];
    VORLO_FUZZ_CHECK(error.size() == 2 && code.is_number_integer() && error["message"].is_string());
    if (invalid) return VORLO_FUZZ_CHECK(code == -32700 && reply["id"].is_null());
    VORLO_FUZZ_CHECK(reply["id"].dump() == request["id"].dump());
    if (method == "initialize") return VORLO_FUZZ_CHECK(result["protocolVersion"].is_string());
    if (method == "ping") return VORLO_FUZZ_CHECK(result == Json::object());
    if (method == "tools/list") return VORLO_FUZZ_CHECK(result["tools"].size() == 6);
    if (method != "tools/call") return VORLO_FUZZ_CHECK(code == -32601);
    if (!params.is_object() ||
        std::find(kTools.begin(), kTools.end(), params.value("name", Json())) == kTools.end())
        return VORLO_FUZZ_CHECK(code == -32602);
    VORLO_FUZZ_CHECK(result["isError"].is_boolean() && result["content"].is_array() &&
                     !result["content"].empty());
}

} // namespace

int fuzzLineHandler(const std::uint8_t* data, std::size_t size) {
    static FuzzLibrary library;
    const std::string_view line = asText(data, size);
    const std::optional<std::string> replyLine = library.handler.handle(line);
    // Only lines that are JSON, hold no NUL and nest moderately are understood; all others are
    // answered as invalid.
    const auto message = line.size() <= kMaximumInputBufferBytes ? referenceJson(line) : std::nullopt;
    checkReply(message.value_or(Json()), replyLine);
    // The fuzzer learns the marker from this very comparison and may send it, escaped or not, in an
    // argument that the reply echoes; only a marker the line did not bring is a leak.
    if (message && replyLine && message->dump().find(kOutsideMarker) == std::string::npos)
        VORLO_FUZZ_CHECK(replyLine->find(kOutsideMarker) == std::string::npos);

    // A line may have created or changed a note: start the next one from the same library.
    static unsigned calls = 0;
    if (++calls % 512 == 0 || line.find("create") != std::string_view::npos ||
        line.find("update") != std::string_view::npos || line.find('\\') != std::string_view::npos)
        library.restore();
    return 0;
}

} // namespace vorlo::fuzz
