#pragma once
// Framing of standard input: one message per line, cut at 0x0A.

#include "protocol/VorloMCPServer.h"

namespace vorlo::protocol {

// Reads `inputFd` until it ends, hands every non-empty line (and a last unterminated one) to
// `server.handle`, and writes each reply to `outputFd`. Throws ServerError "An MCP request exceeded
// Vorlo's safety limit." when the unread input outgrows kMaximumInputBufferBytes.
void serveLines(const VorloMCPServer& server, int inputFd, int outputFd);

} // namespace vorlo::protocol
