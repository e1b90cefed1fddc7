#pragma once
// A lean MCP client, for the benchmark and the end-to-end tests: starts the server executable,
// writes request lines, reads reply lines, and nothing else that could cost time between the two.

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace vorlo::bench {

class ServerClient {
public:
    // Starts `executable` with the environment an MCP client gives it: PATH, HOME,
    // VORLO_MCP_PREFERENCES=`preferencesPath` when given and `extraEnvironment` ("NAME=value"), no
    // locale. Throws when it cannot be started.
    ServerClient(const std::string& executable, std::optional<std::string> preferencesPath,
                 std::vector<std::string> extraEnvironment = {});
    ~ServerClient(); // kills the server if it still runs
    ServerClient(const ServerClient&) = delete;
    ServerClient& operator=(const ServerClient&) = delete;

    // Writes all of `bytes`; false when the server no longer reads its input.
    bool send(std::string_view bytes);
    // The next line of output without its newline; absent at the end of output or after `timeout`.
    std::optional<std::string> readLine(std::chrono::milliseconds timeout = std::chrono::seconds(20));
    // Writes `line` and a newline, and returns the next line of output. Throws when the server ends
    // its output or gives no line within `timeout`.
    std::string roundTrip(const std::string& line, std::chrono::seconds timeout = std::chrono::seconds(600));

    // A JSON-RPC request with a fresh id; returns the whole reply.
    nlohmann::json request(const std::string& method, const nlohmann::json& params);
    std::string requestLine(const std::string& method, const nlohmann::json& params);
    // tools/call with a fresh id: the reply's result, else the whole reply; null when none came.
    nlohmann::json call(std::string_view tool, const nlohmann::json& arguments);

    // The server's peak resident set (VmHWM) in KiB, where the system tells it.
    std::optional<std::uint64_t> peakResidentKiB() const;

    void closeInput();
    // Closes the server's input, reads its output to the end and waits for it to end; returns its
    // exit status (128 + signal; one still running at the timeout is killed). Whatever it wrote to
    // standard error is kept in standardError(), output never read as a line in unread().
    int finish(std::chrono::seconds timeout = std::chrono::seconds(60));
    const std::string& standardError() const { return standardError_; }
    const std::string& unread() const { return pending_; }
    pid_t pid() const { return pid_; }

private:
    // Appends what the output holds once it is readable; false at its end or after `deadline`.
    bool fill(std::chrono::steady_clock::time_point deadline);

    pid_t pid_ = -1;
    int input_ = -1;
    int output_ = -1;
    int error_ = -1; // an anonymous file, read once at the end: nothing need drain it meanwhile
    bool closed_ = false;
    std::string pending_;
    std::size_t searched_ = 0; // how much of pending_ holds no newline
    std::string standardError_;
    long long nextId_ = 1;
};

} // namespace vorlo::bench
