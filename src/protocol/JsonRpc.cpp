// JSON-RPC dispatch: which lines are requests, and the answers of the protocol's own methods.
#include "protocol/JsonRpc.h"

#include "platform/Stdio.h"
#include "protocol/VorloMCPServer.h"
#include "tools/Limits.h"

namespace vorlo {
namespace protocol {

std::optional<std::string> writeResult(const Json& id, Json result) {
    Json message = Json::object();
    message["jsonrpc"] = "2.0";
    message["id"] = id;
    message["result"] = std::move(result);
    return writeCompactJson(message);
}

std::optional<std::string> writeError(const Json& id, int code, std::string_view message) {
    Json reply = Json::object();
    reply["jsonrpc"] = "2.0";
    reply["id"] = id;
    reply["error"] = {{"code", code}, {"message", message}};
    return writeCompactJson(reply);
}

void writeMessage(int fd, std::string_view line) {
    stdio::writeLine(fd, line);
}

} // namespace protocol

namespace {

std::optional<std::string> reject() { return protocol::writeError(nullptr, -32700, "Invalid JSON-RPC request."); }

std::string_view negotiatedVersion(const Json* params) {
    if (params == nullptr) return protocol::kDefaultProtocolVersion;
    const auto requested = params->find("protocolVersion");
    if (requested == params->end() || !requested->is_string()) return protocol::kDefaultProtocolVersion;
    for (const auto version : protocol::kSupportedProtocolVersions)
        if (*requested == version) return version;
    return protocol::kDefaultProtocolVersion;
}

Json initializeResult(const Json* params) {
    return {{"protocolVersion", negotiatedVersion(params)},
            {"capabilities", {{"tools", {{"listChanged", false}}}}},
            {"serverInfo", {{"name", "Vorlo"}, {"title", "Vorlo Notes"}, {"version", "1.2.1"}}},
            {"instructions", "Access unlocked Markdown notes and their attachments in the selected Vorlo library. "
                             "Creating and updating notes requires the separate Allow Writing setting in Vorlo."}};
}

} // namespace

std::optional<std::string> VorloMCPServer::handle(std::string_view line) const {
    if (line.size() > kMaximumInputBufferBytes) return reject();
    const std::optional<Json> message = parseJsonDocument(line);
    if (!message || !message->is_object()) return reject();
    const auto jsonrpc = message->find("jsonrpc");
    if (jsonrpc == message->end() || !jsonrpc->is_string() || *jsonrpc != "2.0") return reject();
    const auto method = message->find("method");
    if (method == message->end() || !method->is_string()) return reject();
    // A message without an id is a notification, whatever its method: never answered, never run.
    const auto id = message->find("id");
    if (id == message->end()) return std::nullopt;

    const auto paramsFound = message->find("params");
    const Json* params = paramsFound != message->end() && paramsFound->is_object() ? &*paramsFound : nullptr;
    const std::string& name = method->get_ref<const std::string&>();
    if (name == "initialize") return protocol::writeResult(*id, initializeResult(params));
    if (name == "ping") return protocol::writeResult(*id, Json::object());
    if (name == "tools/list") return protocol::writeResult(*id, {{"tools", toolDefinitions()}});
    if (name == "tools/call") return handleToolCall(*id, params);
    return protocol::writeError(*id, -32601, "Method not found.");
}

} // namespace vorlo
