// Driving the server over its standard streams.
#include "ServerClient.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace vorlo::bench {
namespace {

using Clock = std::chrono::steady_clock;

int millisecondsUntil(Clock::time_point deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left < 0 ? 0 : static_cast<int>(left);
}

} // namespace

ServerClient::ServerClient(const std::string& executable, const std::string& preferencesPath) {
    std::signal(SIGPIPE, SIG_IGN); // a server that died must fail a check, not end the benchmark
    int in[2], out[2], err[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0)
        throw std::runtime_error(std::string("pipe failed: ") + std::strerror(errno));
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err[1], 2);
    std::vector<std::string> environment = {"PATH=/usr/bin:/bin", "VORLO_MCP_PREFERENCES=" + preferencesPath};
    if (const char* home = std::getenv("HOME")) environment.push_back(std::string("HOME=") + home);
    std::vector<char*> envp;
    for (auto& entry : environment) envp.push_back(entry.data());
    envp.push_back(nullptr);
    std::string program = executable;
    char* argv[] = {program.data(), nullptr};
    const int spawned = ::posix_spawn(&pid_, program.c_str(), &actions, nullptr, argv, envp.data());
    posix_spawn_file_actions_destroy(&actions);
    ::close(in[0]);
    ::close(out[1]);
    ::close(err[1]);
    input_ = in[1];
    output_ = out[0];
    error_ = err[0];
    if (spawned != 0) {
        pid_ = -1;
        throw std::runtime_error("cannot start " + executable + ": " + std::strerror(spawned));
    }
}

ServerClient::~ServerClient() {
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
    for (const int fd : {input_, output_, error_})
        if (fd >= 0) ::close(fd);
}

std::string ServerClient::roundTrip(const std::string& line, std::chrono::seconds timeout) {
    std::string message = line + "\n";
    std::string_view left = message;
    while (!left.empty()) {
        const ssize_t n = ::write(input_, left.data(), left.size());
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) throw std::runtime_error("the server no longer reads its input");
        left.remove_prefix(static_cast<std::size_t>(n));
    }
    const auto deadline = Clock::now() + timeout;
    std::size_t searched = 0;
    for (;;) {
        if (const auto newline = pending_.find('\n', searched); newline != std::string::npos) {
            std::string reply = pending_.substr(0, newline);
            pending_.erase(0, newline + 1);
            return reply;
        }
        searched = pending_.size();
        pollfd descriptor{output_, POLLIN, 0};
        if (::poll(&descriptor, 1, millisecondsUntil(deadline)) <= 0)
            throw std::runtime_error("no reply within " + std::to_string(timeout.count()) + " s");
        char chunk[1 << 16];
        const ssize_t n = ::read(output_, chunk, sizeof chunk);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) throw std::runtime_error("the server closed its output");
        pending_.append(chunk, static_cast<std::size_t>(n));
    }
}

std::string ServerClient::requestLine(const std::string& method, const nlohmann::json& params) {
    return nlohmann::json{{"jsonrpc", "2.0"}, {"id", nextId_++}, {"method", method}, {"params", params}}.dump();
}

nlohmann::json ServerClient::request(const std::string& method, const nlohmann::json& params) {
    return nlohmann::json::parse(roundTrip(requestLine(method, params)));
}

std::optional<std::uint64_t> ServerClient::peakResidentKiB() const {
    std::ifstream status("/proc/" + std::to_string(pid_) + "/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmHWM:", 0) == 0) return std::strtoull(line.c_str() + 6, nullptr, 10);
    return std::nullopt;
}

int ServerClient::finish(std::chrono::seconds timeout) {
    ::close(input_);
    input_ = -1;
    const auto deadline = Clock::now() + timeout;
    bool outputOpen = true, errorOpen = true;
    while (outputOpen || errorOpen) {
        pollfd descriptors[2] = {{outputOpen ? output_ : -1, POLLIN, 0}, {errorOpen ? error_ : -1, POLLIN, 0}};
        if (::poll(descriptors, 2, millisecondsUntil(deadline)) <= 0) break;
        char chunk[1 << 16];
        for (int i = 0; i < 2; ++i) {
            if (descriptors[i].revents == 0) continue;
            const ssize_t n = ::read(i == 0 ? output_ : error_, chunk, sizeof chunk);
            if (n <= 0) (i == 0 ? outputOpen : errorOpen) = false;
            else if (i == 1) standardError_.append(chunk, static_cast<std::size_t>(n));
        }
    }
    if (outputOpen || errorOpen) ::kill(pid_, SIGKILL); // hung: reported as a failed check
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace vorlo::bench
