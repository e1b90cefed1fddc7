#include "support/ServerProcess.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace vorlo::testing {
namespace {

using Clock = std::chrono::steady_clock;

int remainingMilliseconds(Clock::time_point deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left < 0 ? 0 : static_cast<int>(left);
}

} // namespace

ServerProcess::ServerProcess(std::optional<std::string> preferencesPath, std::vector<std::string> extraEnvironment) {
    std::signal(SIGPIPE, SIG_IGN); // a server that has exited must not take the test down with it
    int in[2], out[2], err[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe failed");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err[1], 2);

    // A clean environment, as MCP clients start servers: no locale unless a test asks for one.
    std::vector<std::string> environment = {"PATH=/usr/bin:/bin"};
    if (const char* home = std::getenv("HOME")) environment.push_back(std::string("HOME=") + home);
    if (preferencesPath) environment.push_back("VORLO_MCP_PREFERENCES=" + *preferencesPath);
    for (auto& entry : extraEnvironment) environment.push_back(std::move(entry));
    std::vector<char*> envp;
    for (auto& entry : environment) envp.push_back(entry.data());
    envp.push_back(nullptr);
    std::string executable = VORLO_EXECUTABLE;
    char* argv[] = {executable.data(), nullptr};
    const int spawned = ::posix_spawn(&pid_, executable.c_str(), &actions, nullptr, argv, envp.data());
    posix_spawn_file_actions_destroy(&actions);
    ::close(in[0]);
    ::close(out[1]);
    ::close(err[1]);
    if (spawned != 0) throw std::runtime_error("cannot start " + executable);
    input_ = in[1];
    output_ = out[0];
    error_ = err[0];
}

ServerProcess::~ServerProcess() {
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
    for (int fd : {input_, output_, error_})
        if (fd >= 0) ::close(fd);
}

void ServerProcess::send(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t n = ::write(input_, bytes.data(), bytes.size());
        if (n < 0) {
            if (errno == EINTR) continue;
            return; // the server has gone; the caller's next read tells
        }
        bytes.remove_prefix(static_cast<std::size_t>(n));
    }
}

std::optional<std::string> ServerProcess::readLine(std::chrono::milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    for (;;) {
        if (const auto newline = pendingOutput_.find('\n'); newline != std::string::npos) {
            std::string line = pendingOutput_.substr(0, newline);
            pendingOutput_.erase(0, newline + 1);
            return line;
        }
        pollfd descriptor{output_, POLLIN, 0};
        const int ready = ::poll(&descriptor, 1, remainingMilliseconds(deadline));
        if (ready <= 0) return std::nullopt;
        char chunk[65536];
        const ssize_t n = ::read(output_, chunk, sizeof chunk);
        if (n <= 0) return std::nullopt;
        pendingOutput_.append(chunk, static_cast<std::size_t>(n));
    }
}

Json ServerProcess::request(const Json& message) {
    send(message.dump() + "\n");
    const auto line = readLine();
    if (!line) {
        ADD_FAILURE() << "no reply to " << message.dump().substr(0, 200);
        return nullptr;
    }
    return Json::parse(*line);
}

Json ServerProcess::call(std::string_view tool, const Json& arguments) {
    const Json reply = request({{"jsonrpc", "2.0"}, {"id", nextId_++}, {"method", "tools/call"},
                                {"params", {{"name", tool}, {"arguments", arguments}}}});
    return reply.contains("result") ? reply["result"] : reply;
}

void ServerProcess::closeInput() {
    if (input_ >= 0) ::close(input_);
    input_ = -1;
}

ExitResult ServerProcess::finish(std::chrono::milliseconds timeout) {
    closeInput();
    ExitResult result;
    const auto deadline = Clock::now() + timeout;
    bool outputOpen = true, errorOpen = true;
    while (outputOpen || errorOpen) {
        pollfd descriptors[2] = {{outputOpen ? output_ : -1, POLLIN, 0}, {errorOpen ? error_ : -1, POLLIN, 0}};
        if (::poll(descriptors, 2, remainingMilliseconds(deadline)) <= 0) break;
        char chunk[65536];
        for (int i = 0; i < 2; ++i) {
            if (descriptors[i].revents == 0) continue;
            const ssize_t n = ::read(i == 0 ? output_ : error_, chunk, sizeof chunk);
            if (n <= 0) (i == 0 ? outputOpen : errorOpen) = false;
            else (i == 0 ? pendingOutput_ : result.standardError).append(chunk, static_cast<std::size_t>(n));
        }
    }
    result.standardOutput = std::move(pendingOutput_);
    pendingOutput_.clear();
    int status = 0;
    if (outputOpen || errorOpen) ::kill(pid_, SIGKILL); // hung: a test failure, not a hang of the suite
    ::waitpid(pid_, &status, 0);
    pid_ = -1;
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

ExitResult runServer(std::string_view input, std::optional<std::string> preferencesPath,
                     std::vector<std::string> extraEnvironment) {
    ServerProcess server(std::move(preferencesPath), std::move(extraEnvironment));
    server.send(input);
    return server.finish();
}

Json structuredText(const Json& result) {
    return Json::parse(result.at("content").at(0).at("text").get<std::string>());
}

} // namespace vorlo::testing
