#pragma once
// Chooses how the walk reads for the life of the object: "" is the default, one call at a time;
// "ring" asks for the submission ring (the plain way where the system has none); "one core" is the
// default on a machine of one processor, where the walk reads on its own thread, made
// by pinning the calling thread, whose mask the scan consults, to one.

#include <cstdlib>
#include <optional>
#include <sched.h>
#include <string>

namespace vorlo::testing {

class IoMode {
  public:
    explicit IoMode(const std::string& mode) {
        if (const char* previous = std::getenv("VORLO_MCP_IO")) previous_ = previous;
        setVariable(mode.empty() || mode == "one core" ? std::nullopt : std::optional(mode));
        if (mode != "one core" || ::sched_getaffinity(0, sizeof mask_, &mask_) != 0) return;
        cpu_set_t one; // the processor it runs on now, which the mask allows
        CPU_ZERO(&one);
        CPU_SET(std::max(::sched_getcpu(), 0), &one);
        pinned_ = ::sched_setaffinity(0, sizeof one, &one) == 0;
    }
    ~IoMode() {
        if (pinned_) ::sched_setaffinity(0, sizeof mask_, &mask_);
        setVariable(previous_);
    }
    IoMode(const IoMode&) = delete;
    IoMode& operator=(const IoMode&) = delete;

  private:
    static void setVariable(const std::optional<std::string>& value) {
        value ? ::setenv("VORLO_MCP_IO", value->c_str(), 1) : ::unsetenv("VORLO_MCP_IO");
    }

    std::optional<std::string> previous_;
    cpu_set_t mask_{};
    bool pinned_ = false;
};

// The modes every test of reading runs under, and their names in test names.
inline const char* const kIoModes[] = {"", "ring", "one core"};
inline std::string ioModeName(const std::string& mode) {
    return mode.empty() ? "plain" : mode == "one core" ? "oneCore" : mode;
}

} // namespace vorlo::testing
