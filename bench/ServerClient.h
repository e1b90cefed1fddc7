#pragma once
// A lean MCP client for the benchmark: starts the server executable, writes one request line,
// reads one reply line, and nothing else that could cost time between the two.

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <sys/types.h>

namespace vorlo::bench {

class ServerClient {
public:
    // Starts `executable` with the environment an MCP client gives it: PATH, HOME and
    // VORLO_MCP_PREFERENCES=`preferencesPath`, no locale. Throws when it cannot be started.
    ServerClient(const std::string& executable, const std::string& preferencesPath);
    ~ServerClient(); // kills the server if it still runs
    ServerClient(const ServerClient&) = delete;
    ServerClient& operator=(const ServerClient&) = delete;

    // Writes `line` and a newline, and returns the next line of output without its newline. Throws
    // when the server ends its output or gives no line within `timeout`.
    std::string roundTrip(const std::string& line, std::chrono::seconds timeout = std::chrono::seconds(600));

    // A JSON-RPC request with a fresh id; returns the whole reply.
    nlohmann::json request(const std::string& method, const nlohmann::json& params);
    std::string requestLine(const std::string& method, const nlohmann::json& params);

    // The server's peak resident set (VmHWM) in KiB, where the system tells it.
    std::optional<std::uint64_t> peakResidentKiB() const;

    // Closes the server's input and waits for it to end; returns its exit status (128 + signal when
    // killed). Whatever it wrote to standard error is kept in standardError().
    int finish(std::chrono::seconds timeout = std::chrono::seconds(60));
    const std::string& standardError() const { return standardError_; }

private:
    pid_t pid_ = -1;
    int input_ = -1;
    int output_ = -1;
    int error_ = -1;
    std::string pending_;
    std::string standardError_;
    long long nextId_ = 1;
};

} // namespace vorlo::bench
