#pragma once
// The one table of tools: catalogue order, dispatch and the writing check all read it, so no tool
// name is spelled twice.

#include "platform/Json.h"
#include "protocol/VorloMCPServer.h"

#include <array>
#include <string_view>

namespace vorlo::tools {

// The text form of a structured result: pretty-printed with sorted keys.
Json textContent(std::string text);

// Runs a tool and builds its success envelope; throws what the tool throws.
using ToolRunner = Json (*)(const VorloMCPServer&, const Json& arguments);

template <Json (VorloMCPServer::*operation)(const Json&) const>
Json runStructured(const VorloMCPServer& server, const Json& arguments) {
    Json result = (server.*operation)(arguments);
    Json envelope = Json::object();
    envelope["content"] = Json::array({textContent(writePrettyJson(result))});
    envelope["structuredContent"] = std::move(result);
    envelope["isError"] = false;
    return envelope;
}

// read_attachment builds its own content items.
Json runAttachment(const VorloMCPServer& server, const Json& arguments);

struct ToolEntry {
    std::string_view name;
    ToolRunner run;
    bool needsWriting;
};

inline constexpr std::array<ToolEntry, 6> kTools = {{
    {"list_notes", &runStructured<&VorloMCPServer::listNotes>, false},
    {"search_notes", &runStructured<&VorloMCPServer::searchNotes>, false},
    {"read_note", &runStructured<&VorloMCPServer::readNote>, false},
    {"read_attachment", &runAttachment, false},
    {"create_note", &runStructured<&VorloMCPServer::createNote>, true},
    {"update_note", &runStructured<&VorloMCPServer::updateNote>, true},
}};

} // namespace vorlo::tools
