#include "protocol/LineReader.h"

#include "platform/Errors.h"
#include "platform/Stdio.h"
#include "protocol/JsonRpc.h"
#include "tools/Limits.h"

#include <cstring>

namespace vorlo::protocol {
namespace {

void handleLine(const VorloMCPServer& server, std::string_view line, int outputFd) {
    if (auto reply = server.handle(line)) writeMessage(outputFd, *reply);
}

} // namespace

void serveLines(const VorloMCPServer& server, int inputFd, int outputFd) {
    std::string buffer;
    std::size_t searched = 0; // the leading bytes of `buffer` known to hold no line feed
    while (stdio::readAvailable(inputFd, buffer) > 0) {
        // Tested once per chunk, after the append and before any line is cut: the limit bounds
        // what one burst may make the server hold, complete lines included.
        if (buffer.size() > kMaximumInputBufferBytes) throw ServerError("An MCP request exceeded Vorlo's safety limit.");
        // Only the new bytes are searched: a line that arrives a byte at a time then costs its
        // length, not its length squared.
        std::size_t start = 0;
        while (const void* found = std::memchr(buffer.data() + searched, '\n', buffer.size() - searched)) {
            const std::size_t end = static_cast<const char*>(found) - buffer.data();
            if (end > start) handleLine(server, std::string_view(buffer).substr(start, end - start), outputFd);
            start = searched = end + 1;
        }
        buffer.erase(0, start);
        searched = buffer.size();
    }
    if (!buffer.empty()) handleLine(server, buffer, outputFd);
}

} // namespace vorlo::protocol
