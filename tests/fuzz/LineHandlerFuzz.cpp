// One input line through the dispatch and the tools, in-process, on a small library with notes,
// attachments and a sibling folder whose name extends the library's. Whatever the line, a request
// gets exactly one reply line of valid UTF-8 JSON, a notification none, and nothing outside the
// library is ever shown or touched.
#include "fuzz/FuzzTargets.h"
#include "platform/Json.h"
#include "platform/Utf8.h"
#include "protocol/VorloMCPServer.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <unistd.h>

namespace vorlo::fuzz {
namespace {

namespace stdfs = std::filesystem;

constexpr std::string_view kOutsideMarker = "FUZZ-OUTSIDE-7f3a91";
constexpr const char* kNoteId = "12345678-90AB-CDEF-1234-567890ABCDEF";

// The notes as the library starts; restored whenever a line may have written.
const std::pair<const char*, const char*> kNotes[] = {
    {"Welcome.md", "---\nid: 12345678-90AB-CDEF-1234-567890ABCDEF\ntitle: \"Welcome\"\ncreated: "
                   "2024-01-01T00:00:00Z\nmodified: 2024-01-02T00:00:00Z\ntags: [\"start\"]\npinned: "
                   "true\narchived: false\n---\n# Welcome\nHello #world, see the photo.\n"},
    {"Projects/Plan.md", "No header, #plan/q1 body\r\nsecond line\r\n"},
    // Dates at the ends of what a header may name.
    {"Projects/Old.md", "---\ntitle: \"Old\"\ncreated: 9999-12-31T23:59:59+23:59\nmodified: 0001-01-01T00:00:00Z\n---\nold"},
};

void writeFile(const stdfs::path& path, std::string_view bytes) {
    stdfs::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

class FuzzLibrary {
public:
    FuzzLibrary() {
        const char* base = std::getenv("TMPDIR");
        std::string pattern = std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/vorlo-fuzz-XXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr) std::abort();
        root_ = pattern;
        library_ = root_ / "Library";
        const stdfs::path attachments = library_ / "Vorlo Data" / "Attachments" / kNoteId;
        writeFile(attachments / "photo.png", "\x89PNG\r\n\x1a\n");
        writeFile(attachments / "notes.txt", "plain text");
        writeFile(attachments / "data.bin", std::string("\xff\x00\x01", 3));
        writeFile(root_ / "Library-evil" / "secret.md", std::string("---\ntitle: \"x\"\n---\n") + std::string(kOutsideMarker));
        writeFile(root_ / "Preferences.json",
                  Json({{"libraryPath", library_.string()}, {"mcp", {{"enabled", true}, {"allowWriting", true}}}}).dump());
        restore();
        server_.emplace(library_.string(), (root_ / "Preferences.json").string());
    }
    ~FuzzLibrary() {
        std::error_code ignored;
        stdfs::remove_all(root_, ignored);
    }

    const VorloMCPServer& server() const { return *server_; }

    // Puts the notes back as they were and removes whatever a tool created, and checks that
    // nothing beside the library changed.
    void restore() {
        stdfs::create_directories(library_ / "Projects");
        std::set<stdfs::path> keep;
        for (const auto& [path, bytes] : kNotes) keep.insert(library_ / path);
        std::vector<stdfs::path> extra;
        for (const auto& entry : stdfs::directory_iterator(library_))
            if (entry.path().filename() != "Vorlo Data" && entry.path().filename() != "Projects") extra.push_back(entry.path());
        for (const auto& entry : stdfs::directory_iterator(library_ / "Projects"))
            if (!keep.contains(entry.path())) extra.push_back(entry.path());
        for (const auto& path : extra) stdfs::remove_all(path);
        for (const auto& [path, bytes] : kNotes) writeFile(library_ / path, bytes);

        std::size_t siblings = 0;
        for (const auto& entry : stdfs::directory_iterator(root_)) {
            (void)entry;
            ++siblings;
        }
        VORLO_FUZZ_CHECK(siblings == 3); // Library, Library-evil, Preferences.json
        std::size_t evil = 0;
        for (const auto& entry : stdfs::directory_iterator(root_ / "Library-evil")) {
            (void)entry;
            ++evil;
        }
        VORLO_FUZZ_CHECK(evil == 1);
    }

private:
    stdfs::path root_;
    stdfs::path library_;
    std::optional<VorloMCPServer> server_;
};

FuzzLibrary& fuzzLibrary() {
    static FuzzLibrary library;
    return library;
}

bool isToolName(const Json& name) {
    for (const char* tool :
         {"list_notes", "search_notes", "read_note", "read_attachment", "create_note", "update_note"})
        if (name == tool) return true;
    return false;
}

// The reply that a well-formed line must get, checked against what the server wrote.
void checkAgainstMessage(const Json& message, const std::optional<Json>& reply) {
    const auto invalid = [&] {
        VORLO_FUZZ_CHECK(reply && reply->contains("error") && (*reply)["error"]["code"] == -32700);
        VORLO_FUZZ_CHECK((*reply)["id"].is_null());
    };
    if (!message.is_object()) return invalid();
    const auto jsonrpc = message.find("jsonrpc");
    const auto method = message.find("method");
    if (jsonrpc == message.end() || *jsonrpc != "2.0" || method == message.end() || !method->is_string())
        return invalid();
    const auto id = message.find("id");
    if (id == message.end()) {
        VORLO_FUZZ_CHECK(!reply); // a notification is never answered
        return;
    }
    VORLO_FUZZ_CHECK(reply.has_value());
    VORLO_FUZZ_CHECK((*reply)["id"].dump() == id->dump());
    const Json* params = message.contains("params") && message["params"].is_object() ? &message["params"] : nullptr;
    if (*method == "initialize") {
        VORLO_FUZZ_CHECK((*reply)["result"]["protocolVersion"].is_string());
    } else if (*method == "ping") {
        VORLO_FUZZ_CHECK((*reply)["result"] == Json::object());
    } else if (*method == "tools/list") {
        VORLO_FUZZ_CHECK((*reply)["result"]["tools"].size() == 6);
    } else if (*method == "tools/call") {
        if (params != nullptr && params->contains("name") && isToolName((*params)["name"])) {
            const Json& result = (*reply)["result"];
            VORLO_FUZZ_CHECK(result["isError"].is_boolean());
            VORLO_FUZZ_CHECK(result["content"].is_array() && !result["content"].empty());
        } else {
            VORLO_FUZZ_CHECK((*reply)["error"]["code"] == -32602);
        }
    } else {
        VORLO_FUZZ_CHECK((*reply)["error"]["code"] == -32601);
    }
}

} // namespace

int fuzzLineHandler(const std::uint8_t* data, std::size_t size) {
    FuzzLibrary& library = fuzzLibrary();
    const std::string_view line = asText(data, size);
    const std::optional<std::string> replyLine = library.server().handle(line);

    std::optional<Json> reply;
    if (replyLine) {
        VORLO_FUZZ_CHECK(replyLine->find('\n') == std::string::npos);
        VORLO_FUZZ_CHECK(text::isValidUtf8(*replyLine));
        reply = Json::parse(*replyLine, nullptr, false);
        VORLO_FUZZ_CHECK(!reply->is_discarded() && reply->is_object() && reply->size() == 3);
        VORLO_FUZZ_CHECK((*reply)["jsonrpc"] == "2.0" && reply->contains("id"));
        VORLO_FUZZ_CHECK(reply->contains("result") != reply->contains("error"));
        if (reply->contains("error")) {
            const Json& error = (*reply)["error"];
            VORLO_FUZZ_CHECK(error.size() == 2 && error["code"].is_number_integer() && error["message"].is_string());
        }
    }

    // Only lines that are JSON, hold no NUL and nest moderately are understood; all others are
    // answered as invalid.
    // The JSON library takes a NUL for the end of its input, so "{...}\0junk" would pass it alone.
    if (line.size() > 1048576 || line.find('\0') != std::string_view::npos || !Json::accept(line.begin(), line.end()) ||
        nesting(line) > kMaximumJsonNesting) {
        VORLO_FUZZ_CHECK(reply && reply->contains("error") && (*reply)["error"]["code"] == -32700);
        VORLO_FUZZ_CHECK((*reply)["id"].is_null());
    } else {
        const Json message = Json::parse(line.begin(), line.end());
        checkAgainstMessage(message, reply);
        // The fuzzer learns the marker from this very comparison and may send it, escaped or not,
        // in an argument that the reply echoes; only a marker the line did not bring is a leak.
        if (replyLine && message.dump().find(kOutsideMarker) == std::string::npos)
            VORLO_FUZZ_CHECK(replyLine->find(kOutsideMarker) == std::string::npos);
    }

    // A line may have created or changed a note: start the next one from the same library.
    static unsigned calls = 0;
    if (++calls % 512 == 0 || line.find("create") != std::string_view::npos ||
        line.find("update") != std::string_view::npos || line.find('\\') != std::string_view::npos)
        library.restore();
    return 0;
}

} // namespace vorlo::fuzz
