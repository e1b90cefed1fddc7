#pragma once
// Drives the built executable over its standard streams, the way an MCP client does.

#include "platform/Json.h"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace vorlo::testing {

struct ExitResult {
    std::string standardOutput; // whatever was not yet read
    std::string standardError;
    int status = -1; // exit status, or 128 + signal
};

class ServerProcess {
public:
    // Starts build/vorlo-mcp with a clean environment: HOME, PATH, VORLO_MCP_PREFERENCES (when
    // `preferencesPath` is given) and `extraEnvironment` ("NAME=value").
    explicit ServerProcess(std::optional<std::string> preferencesPath,
                           std::vector<std::string> extraEnvironment = {});
    ~ServerProcess(); // kills the process if it still runs
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    void send(std::string_view bytes);
    // One line of standard output without its newline; absent on timeout or end of output.
    std::optional<std::string> readLine(std::chrono::milliseconds timeout = std::chrono::seconds(20));
    // Sends one message as a line and parses the one reply line (fails the test on timeout).
    Json request(const Json& message);
    // tools/call with a fresh numeric id; returns the reply's `result` (or the whole reply if an error).
    Json call(std::string_view tool, const Json& arguments);
    // Closes standard input and waits for the process to end.
    ExitResult finish(std::chrono::milliseconds timeout = std::chrono::seconds(20));
    void closeInput();
    pid_t pid() const { return pid_; }

private:
    pid_t pid_ = -1;
    int input_ = -1;
    int output_ = -1;
    int error_ = -1;
    std::string pendingOutput_;
    long long nextId_ = 1;
};

// Runs the server on `input` and returns everything it wrote, with its status.
ExitResult runServer(std::string_view input, std::optional<std::string> preferencesPath,
                     std::vector<std::string> extraEnvironment = {});

// The text of the first content item of a tool result, parsed as JSON.
Json structuredText(const Json& result);

} // namespace vorlo::testing
