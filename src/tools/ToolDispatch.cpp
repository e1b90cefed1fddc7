// "tools/call": the switches, the choice of tool, and the one place where a tool's failure
// becomes a result the client reads.
#include "platform/Errors.h"
#include "protocol/JsonRpc.h"
#include "protocol/Preferences.h"
#include "protocol/VorloMCPServer.h"
#include "tools/ToolTable.h"

namespace vorlo {
namespace tools {

Json textContent(std::string text) { return {{"type", "text"}, {"text", std::move(text)}}; }

Json runAttachment(const VorloMCPServer& server, const Json& arguments) {
    AttachmentReadResult result = server.readAttachment(arguments);
    Json envelope = Json::object();
    envelope["content"] = std::move(result.content);
    envelope["structuredContent"] = std::move(result.structuredContent);
    envelope["isError"] = false;
    return envelope;
}

} // namespace tools

namespace {

const tools::ToolEntry* findTool(std::string_view name) {
    for (const auto& tool : tools::kTools)
        if (tool.name == name) return &tool;
    return nullptr;
}

Json failureEnvelope(std::string description) {
    return {{"content", Json::array({tools::textContent(std::move(description))})}, {"isError", true}};
}

} // namespace

std::optional<std::string> VorloMCPServer::handleToolCall(const Json& id, const Json* params) const {
    if (params == nullptr || !params->is_object() || !params->contains("name") || !(*params)["name"].is_string())
        return protocol::writeError(id, -32602, "A tool name is required.");
    const std::string& name = (*params)["name"].get_ref<const std::string&>();
    const auto argumentsFound = params->find("arguments");
    const Json arguments =
        argumentsFound != params->end() && argumentsFound->is_object() ? *argumentsFound : Json::object();

    const tools::ToolEntry* tool = nullptr;
    try {
        const MCPPreferences preferences = loadPreferences(preferencesURL_);
        // The switches come before the name, so that with access off every name, known or not,
        // gets the same answer.
        if (!preferences.mcp.enabled) throw ServerError("MCP access was disabled in Vorlo Settings.");
        tool = findTool(name);
        if (tool != nullptr && tool->needsWriting && !preferences.mcp.allowWriting)
            throw ServerError("MCP writing is disabled. Enable Allow creating and editing notes in Vorlo Settings > MCP.");
        if (tool != nullptr) return protocol::writeResult(id, tool->run(*this, arguments));
    } catch (const std::exception& error) {
        // Every failure of a tool, of whatever kind, reaches the client as a result with isError.
        return protocol::writeResult(id, failureEnvelope(error.what()));
    }
    return protocol::writeError(id, -32602, "Unknown tool: " + name);
}

} // namespace vorlo
