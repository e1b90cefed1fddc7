// The catalogue that "tools/list" serves: names, titles, descriptions, schemas and hints.
#include "protocol/VorloMCPServer.h"
#include "tools/Limits.h"
#include "tools/ToolTable.h"

namespace vorlo {
namespace {

Json stringProperty(std::string_view description = {}) {
    Json property = {{"type", "string"}};
    if (!description.empty()) property["description"] = description;
    return property;
}

Json integerProperty(long long minimum, long long maximum, long long defaultValue) {
    return {{"type", "integer"}, {"minimum", minimum}, {"maximum", maximum}, {"default", defaultValue}};
}

Json boundedStringProperty(std::size_t minimum, std::size_t maximum) {
    return {{"type", "string"}, {"minLength", minimum}, {"maxLength", maximum}};
}

Json tagsProperty() {
    return {{"type", "array"},
            {"maxItems", kMaximumTags},
            {"items", {{"type", "string"}, {"maxLength", kMaximumTagCharacters}}}};
}

Json objectSchema(Json properties, std::initializer_list<std::string_view> required) {
    Json schema = {{"type", "object"}, {"properties", std::move(properties)}, {"additionalProperties", false}};
    if (required.size() > 0) {
        Json names = Json::array();
        for (auto name : required) names.push_back(name);
        schema["required"] = std::move(names);
    }
    return schema;
}

struct Presentation {
    std::string_view title;
    std::string_view description;
    Json (*inputSchema)();
};

// In the order of the tool table.
const std::array<Presentation, tools::kTools.size()> kPresentations = {{
    {"List Vorlo Notes",
     "List unlocked Markdown notes from the selected Vorlo library, optionally filtered by folder or tag.",
     [] {
         return objectSchema({{"folder", stringProperty("Exact Vorlo folder path, such as Projects or Projects/Travel.")},
                              {"tag", stringProperty("Exact note tag without the leading #.")},
                              {"limit", integerProperty(kMinimumResultLimit, kMaximumResultLimit, kDefaultListLimit)}},
                             {});
     }},
    {"Search Vorlo Notes", "Search titles, text, and tags in unlocked Markdown notes from the selected Vorlo library.",
     [] {
         return objectSchema({{"query", boundedStringProperty(1, kMaximumQueryCharacters)},
                              {"limit", integerProperty(kMinimumResultLimit, kMaximumResultLimit, kDefaultSearchLimit)}},
                             {"query"});
     }},
    {"Read a Vorlo Note",
     "Read one unlocked Markdown note and list its attachments. Use read_attachment to inspect an attachment "
     "returned here.",
     [] {
         return objectSchema({{"path", stringProperty("Library-relative Markdown path returned by another Vorlo tool.")},
                              {"max_characters", integerProperty(1, kMaximumReadCharacters, kMaximumReadCharacters)}},
                             {"path"});
     }},
    {"Read a Vorlo Attachment",
     "Read an attachment belonging to an unlocked Vorlo note. Images are returned for visual inspection, text "
     "files as text, and other files as embedded resources.",
     [] {
         return objectSchema({{"path", stringProperty("Library-relative Markdown path returned by read_note.")},
                              {"attachment_name", stringProperty("Exact attachment filename returned by read_note.")}},
                             {"path", "attachment_name"});
     }},
    {"Create a Vorlo Note",
     "Create a new unlocked Markdown note. Requires Allow creating and editing notes in Vorlo Settings > MCP.",
     [] {
         return objectSchema(
             {{"title", boundedStringProperty(1, kMaximumTitleCharacters)},
              {"content", stringProperty("The note body in Markdown.")},
              {"folder",
               stringProperty("Optional Vorlo folder path. Missing folders are created inside the selected library.")},
              {"tags", tagsProperty()},
              {"pinned", {{"type", "boolean"}, {"default", false}}}},
             {"title"});
     }},
    {"Update a Vorlo Note",
     "Update the content or metadata of an unlocked Markdown note. Read the note first and pass its revision. "
     "Requires Allow creating and editing notes in Vorlo Settings > MCP.",
     [] {
         return objectSchema(
             {{"path", stringProperty("Library-relative Markdown path returned by another Vorlo tool.")},
              {"expected_revision",
               {{"type", "string"},
                {"pattern", "^[0-9a-f]{64}$"},
                {"description", "The revision returned by read_note. The update is rejected if the file changed."}}},
              {"title", boundedStringProperty(1, kMaximumTitleCharacters)},
              {"content", stringProperty("Replacement note body in Markdown.")},
              {"tags", tagsProperty()},
              {"pinned", {{"type", "boolean"}}}},
             {"path", "expected_revision"});
     }},
}};

Json buildDefinitions() {
    Json definitions = Json::array();
    for (std::size_t i = 0; i < tools::kTools.size(); ++i) {
        const auto& tool = tools::kTools[i];
        const auto& presentation = kPresentations[i];
        // Reading tools only read and may be repeated freely; the writing tools change the library
        // without destroying anything the client did not ask to replace.
        definitions.push_back({{"name", tool.name},
                               {"title", presentation.title},
                               {"description", presentation.description},
                               {"inputSchema", presentation.inputSchema()},
                               {"annotations",
                                {{"readOnlyHint", !tool.needsWriting},
                                 {"destructiveHint", false},
                                 {"idempotentHint", !tool.needsWriting},
                                 {"openWorldHint", false}}}});
    }
    return definitions;
}

} // namespace

const Json& VorloMCPServer::toolDefinitions() {
    static const Json definitions = buildDefinitions(); // built on the first "tools/list" only
    return definitions;
}

} // namespace vorlo
