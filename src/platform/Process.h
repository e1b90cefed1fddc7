#pragma once
// The process, its host and its user's folders.

#include <optional>
#include <string>

namespace vorlo::process {

std::optional<std::string> environmentValue(const char* name);
int currentProcessId();
std::string hostName();

// True only when the system says that no process with that id exists (ESRCH); a live process,
// one of another user and every other failure count as not gone.
bool processIsGone(int processId);

void sleepMilliseconds(int milliseconds);

// The processors this thread may run on: its affinity mask, which a container or `taskset` may
// narrow well below the machine's count; the machine's count where the system cannot tell.
unsigned usableProcessors();

// $HOME, else the password database's entry.
std::string homeDirectory();

// The per-user folder of the notes application: on macOS "~/Library/Application Support/Vorlo",
// elsewhere "$XDG_DATA_HOME/Vorlo" when that variable is absolute, else "~/.local/share/Vorlo".
std::string supportDirectory();

} // namespace vorlo::process
