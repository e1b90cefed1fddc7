#pragma once
// Drives the built executable over its standard streams, the way an MCP client does.

#include "platform/Json.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vorlo::testing {

struct ExitResult {
    std::string standardOutput; // whatever was not yet read
    std::string standardError;
    int status = -1; // exit status, or 128 + signal
};

class ServerProcess {
  public:
    using Clock = std::chrono::steady_clock;

    // Starts build/vorlo-mcp with a clean environment, as MCP clients start servers: HOME, PATH,
    // VORLO_MCP_PREFERENCES (when `preferencesPath` is given) and `extraEnvironment` ("NAME=value").
    explicit ServerProcess(std::optional<std::string> preferencesPath,
                           std::vector<std::string> extraEnvironment = {}) {
        std::vector<std::string> environment = std::move(extraEnvironment);
        environment.push_back("PATH=/usr/bin:/bin");
        if (const char* home = std::getenv("HOME")) environment.push_back(std::string("HOME=") + home);
        if (preferencesPath) environment.push_back("VORLO_MCP_PREFERENCES=" + *preferencesPath);
        std::vector<char*> envp;
        for (auto& entry : environment)
            envp.push_back(entry.data());
        envp.push_back(nullptr);
        // Standard error goes to an anonymous file, read once at the end: nothing need drain it meanwhile.
        int in[2], out[2];
        error_ = ::memfd_create("stderr", MFD_CLOEXEC);
        if (error_ < 0 || ::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0)
            throw std::runtime_error("pipe");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, in[0], 0);
        posix_spawn_file_actions_adddup2(&actions, out[1], 1);
        posix_spawn_file_actions_adddup2(&actions, error_, 2);
        char executable[] = VORLO_EXECUTABLE, *argv[] = {executable, nullptr};
        const int spawned = ::posix_spawn(&pid_, executable, &actions, nullptr, argv, envp.data());
        posix_spawn_file_actions_destroy(&actions);
        ::close(in[0]);
        ::close(out[1]);
        input_ = in[1], output_ = out[0];
        if (spawned != 0) throw std::runtime_error("cannot start " VORLO_EXECUTABLE);
    }
    ~ServerProcess() { // kills the process if it still runs
        if (pid_ > 0 && ::kill(pid_, SIGKILL) == 0) ::waitpid(pid_, nullptr, 0);
        for (const int fd : {input_, output_, error_})
            ::close(fd);
    }
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    // Writes all of `bytes`, or stops quietly when the server has gone (the test binary ignores
    // SIGPIPE): the caller's next read tells.
    void send(std::string_view bytes) {
        for (ssize_t n = 0; !bytes.empty(); bytes.remove_prefix(std::max<ssize_t>(n, 0)))
            if ((n = ::write(input_, bytes.data(), bytes.size())) < 0 && errno != EINTR) return;
    }
    // One line of standard output without its newline; absent on timeout or end of output.
    std::optional<std::string> readLine(std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
        const auto deadline = Clock::now() + timeout;
        std::size_t newline;
        while ((newline = pending_.find('\n')) == std::string::npos)
            if (!fill(deadline)) return std::nullopt;
        std::string line = pending_.substr(0, newline);
        pending_.erase(0, newline + 1);
        return line;
    }
    // Sends one message as a line and parses the one reply line (fails the test on timeout).
    Json request(const Json& message) {
        send(message.dump() + "\n");
        const auto line = readLine();
        if (!line) ADD_FAILURE() << "no reply to " << message.dump().substr(0, 200);
        return line ? Json::parse(*line) : Json();
    }
    // tools/call with a fresh numeric id; returns the reply's `result` (or the whole reply if an error).
    Json call(std::string_view tool, const Json& arguments) {
        const Json params = {{"name", tool}, {"arguments", arguments}};
        const Json reply =
            request({{"jsonrpc", "2.0"}, {"id", nextId_++}, {"method", "tools/call"}, {"params", params}});
        return reply.contains("result") ? reply["result"] : reply;
    }
    void closeInput() { ::close(std::exchange(input_, -1)); }
    // Closes standard input and waits for the process to end. One still running at the timeout is
    // killed: a hung server fails its test instead of hanging the suite.
    ExitResult finish(std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
        closeInput();
        const auto deadline = Clock::now() + timeout;
        while (fill(deadline)) {
        }
        if (Clock::now() >= deadline) ::kill(pid_, SIGKILL);
        int status = 0;
        ::waitpid(std::exchange(pid_, -1), &status, 0);
        ExitResult result{std::exchange(pending_, {}), std::string(::lseek(error_, 0, SEEK_END), '\0'),
                          WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status)};
        if (::pread(error_, result.standardError.data(), result.standardError.size(), 0) < 0)
            result.standardError.clear();
        return result;
    }
    pid_t pid() const { return pid_; }

  private:
    // Appends what standard output holds once it is readable; false on timeout or end of output.
    bool fill(Clock::time_point deadline) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd out{output_, POLLIN, 0};
        char chunk[65536];
        const ssize_t n =
            ::poll(&out, 1, std::max<int>(left, 0)) > 0 ? ::read(output_, chunk, sizeof chunk) : 0;
        pending_.append(chunk, std::max<ssize_t>(n, 0));
        return n > 0;
    }

    pid_t pid_ = -1;
    int input_ = -1, output_ = -1, error_ = -1;
    std::string pending_;
    long long nextId_ = 1;
};

// Runs the server on `input` and returns everything it wrote, with its status.
inline ExitResult runServer(std::string_view input, std::optional<std::string> preferencesPath,
                            std::vector<std::string> extraEnvironment = {}) {
    ServerProcess server(std::move(preferencesPath), std::move(extraEnvironment));
    server.send(input);
    return server.finish();
}

// The text of the first content item of a tool result, parsed as JSON.
inline Json structuredText(const Json& result) {
    return Json::parse(result.at("content").at(0).at("text").get<std::string>());
}

} // namespace vorlo::testing
