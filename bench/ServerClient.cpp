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
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vorlo::bench {
namespace {

using Clock = std::chrono::steady_clock;

int millisecondsUntil(Clock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left < 0 ? 0 : static_cast<int>(left);
}

} // namespace

ServerClient::ServerClient(const std::string& executable, std::optional<std::string> preferencesPath,
                           std::vector<std::string> environment) {
    std::signal(SIGPIPE, SIG_IGN); // a server that died must fail a check, not end the client
    int in[2], out[2];
    error_ = ::memfd_create("stderr", MFD_CLOEXEC);
    if (error_ < 0 || ::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0)
        throw std::runtime_error(std::string("pipe failed: ") + std::strerror(errno));
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, error_, 2);
    environment.push_back("PATH=/usr/bin:/bin");
    if (preferencesPath) environment.push_back("VORLO_MCP_PREFERENCES=" + *preferencesPath);
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
    input_ = in[1];
    output_ = out[0];
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

bool ServerClient::send(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t n = ::write(input_, bytes.data(), bytes.size());
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(n));
    }
    return true;
}

std::optional<std::string> ServerClient::readLine(std::chrono::milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    for (;;) {
        if (const auto newline = pending_.find('\n', searched_); newline != std::string::npos) {
            std::string line = pending_.substr(0, newline);
            pending_.erase(0, newline + 1);
            searched_ = 0;
            return line;
        }
        searched_ = pending_.size();
        if (!fill(deadline)) return std::nullopt;
    }
}

bool ServerClient::fill(std::chrono::steady_clock::time_point deadline) {
    pollfd descriptor{output_, POLLIN, 0};
    char chunk[1 << 16];
    ssize_t n = 0;
    if (closed_ || ::poll(&descriptor, 1, millisecondsUntil(deadline)) <= 0) return false;
    while ((n = ::read(output_, chunk, sizeof chunk)) < 0 && errno == EINTR) {
    }
    if (n <= 0) return !(closed_ = true);
    pending_.append(chunk, static_cast<std::size_t>(n));
    return true;
}

std::string ServerClient::roundTrip(const std::string& line, std::chrono::seconds timeout) {
    if (!send(line + "\n")) throw std::runtime_error("the server no longer reads its input");
    if (auto reply = readLine(timeout)) return *reply;
    throw std::runtime_error(closed_ ? "the server closed its output"
                                     : "no reply within " + std::to_string(timeout.count()) + " s");
}

std::string ServerClient::requestLine(const std::string& method, const nlohmann::json& params) {
    return nlohmann::json{{"jsonrpc", "2.0"}, {"id", nextId_++}, {"method", method}, {"params", params}}.dump();
}

nlohmann::json ServerClient::request(const std::string& method, const nlohmann::json& params) {
    return nlohmann::json::parse(roundTrip(requestLine(method, params)));
}

nlohmann::json ServerClient::call(std::string_view tool, const nlohmann::json& arguments) {
    send(requestLine("tools/call", {{"name", tool}, {"arguments", arguments}}) + "\n");
    const auto line = readLine();
    const nlohmann::json reply = line ? nlohmann::json::parse(*line) : nlohmann::json();
    return reply.contains("result") ? reply["result"] : reply;
}

std::optional<std::uint64_t> ServerClient::peakResidentKiB() const {
    std::ifstream status("/proc/" + std::to_string(pid_) + "/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmHWM:", 0) == 0) return std::strtoull(line.c_str() + 6, nullptr, 10);
    return std::nullopt;
}

void ServerClient::closeInput() {
    if (input_ >= 0) ::close(input_);
    input_ = -1;
}

int ServerClient::finish(std::chrono::seconds timeout) {
    closeInput();
    const auto deadline = Clock::now() + timeout;
    while (fill(deadline)) {
    }
    if (!closed_) ::kill(pid_, SIGKILL); // hung: reported as a failed check
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = -1;
    standardError_.resize(static_cast<std::size_t>(std::max<off_t>(::lseek(error_, 0, SEEK_END), 0)));
    if (::pread(error_, standardError_.data(), standardError_.size(), 0) < 0) standardError_.clear();
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace vorlo::bench
