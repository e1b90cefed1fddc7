#pragma once
// Chooses how the walk reads for the life of the object: "sync" forces the plain way, one call at a
// time on one thread; "" leaves the choice to the system (the submission ring where there is one,
// and a second thread on more than one core).

#include <cstdlib>
#include <optional>
#include <string>

namespace vorlo::testing {

class IoMode {
  public:
    explicit IoMode(const std::string& mode) {
        if (const char* previous = std::getenv("VORLO_MCP_IO")) previous_ = previous;
        if (mode.empty())
            ::unsetenv("VORLO_MCP_IO");
        else
            ::setenv("VORLO_MCP_IO", mode.c_str(), 1);
    }
    ~IoMode() {
        if (previous_)
            ::setenv("VORLO_MCP_IO", previous_->c_str(), 1);
        else
            ::unsetenv("VORLO_MCP_IO");
    }
    IoMode(const IoMode&) = delete;
    IoMode& operator=(const IoMode&) = delete;

  private:
    std::optional<std::string> previous_;
};

// The modes every test of reading runs under.
inline const char* const kIoModes[] = {"sync", ""};

} // namespace vorlo::testing
