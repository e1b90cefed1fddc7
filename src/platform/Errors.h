#pragma once
// The two error types of the system. Everything that fails a tool call is one of them.

#include <stdexcept>
#include <string>
#include <string_view>

namespace vorlo {

// An error whose message is the final text the client or the user reads; no layer adds to it.
class ServerError : public std::runtime_error {
public:
    explicit ServerError(const std::string& message) : std::runtime_error(message) {}
};

// A failed operating-system call. Its message is one clear English sentence built in one place
// (`describeFileFailure`) from the operation, a library-relative path and strerror, and it reaches the
// client unchanged. It never holds an absolute path the client did not supply.
class PlatformError : public std::runtime_error {
public:
    PlatformError(const std::string& description, int errorNumber)
        : std::runtime_error(description), errorNumber_(errorNumber) {}
    int errorNumber() const { return errorNumber_; }

private:
    int errorNumber_;
};

// "The file “Notes/Plan.md” could not be read: Permission denied."
// `subject` is "file" or "folder"; `displayPath` may be empty ("The file could not be read: …").
std::string describeFileFailure(std::string_view subject, std::string_view displayPath, std::string_view action,
                                int errorNumber);

[[noreturn]] void throwFileFailure(std::string_view subject, std::string_view displayPath, std::string_view action,
                                   int errorNumber);

} // namespace vorlo
