// vorlo-mcp: an MCP server over standard input and output for a library of Markdown notes.
#include "platform/Collation.h"
#include "platform/Stdio.h"
#include "protocol/LineReader.h"
#include "protocol/VorloMCPServer.h"

#include <exception>
#include <string>

int main() {
    using namespace vorlo;
    stdio::ignoreBrokenPipes();
    text::adoptLocaleFromEnvironment();
    try {
        const VorloMCPServer server = VorloMCPServer::start();
        protocol::serveLines(server, stdio::kInput, stdio::kOutput);
    } catch (const std::exception& error) {
        // Start-up failures and the input limit end the process; every other failure was
        // answered on standard output.
        stdio::writeLine(stdio::kError, std::string("Vorlo MCP: ") + error.what());
        return 2;
    }
    return 0;
}
