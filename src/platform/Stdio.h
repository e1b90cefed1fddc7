#pragma once
// The process's standard streams, unbuffered.

#include <cstddef>
#include <string>
#include <string_view>

namespace vorlo::stdio {

inline constexpr int kInput = 0;
inline constexpr int kOutput = 1;
inline constexpr int kError = 2;

// Appends what can be read now (at least one byte, blocking until then) to `buffer`. Returns the
// number of bytes read; 0 at end of input, and also when reading fails, which ends the input too.
std::size_t readAvailable(int fd, std::string& buffer);

// Writes `line` and a line feed, as one write where the pipe takes it all: the reader of a
// line-delimited stream wakes once per message, not once for the text and again for its end.
// Short writes are retried. A reader that has gone away is not an error here: the output is lost,
// and the process ends when its input ends.
void writeLine(int fd, std::string_view line);

// A closed pipe must not kill the process with SIGPIPE in the middle of a write.
void ignoreBrokenPipes();

} // namespace vorlo::stdio
