#pragma once
// Many small regular files read in batches, for walks that read every file of a large folder tree:
// one system call per file and batch instead of five per file.

#include "platform/Files.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace vorlo::fs {

// True when VORLO_MCP_IO=ring asks for the kernel's submission ring. The plain way, one system call
// at a time, is the default: with the walk's two reading threads it was as fast or faster on every
// machine we measured (bench/RESULTS.md). Tests run every reading path both ways and compare.
bool ringChosen();

// `name` in the open folder `directoryFd`; both must stay valid while the batch is read.
struct FileRequest {
    int directoryFd = -1;
    const char* name = nullptr;
};

// Reads each file with the checks and the outcome of readRegularFileAt: never through a final
// link, never blocking on a FIFO, only a regular file of at most `maximumBytes`, judged on what was
// actually opened. One call at a time, or through the kernel's submission ring when ringChosen() and
// the system has one. Both give the same results.
class FileBatchReader {
  public:
    // The most requests that one call of read() takes.
    static constexpr std::size_t kBatchSize = 64;

    explicit FileBatchReader(std::uint64_t maximumBytes);
    ~FileBatchReader();
    FileBatchReader(const FileBatchReader&) = delete;
    FileBatchReader& operator=(const FileBatchReader&) = delete;

    bool usesRing() const { return ring_ != nullptr; }

    // Reads the files and hands `deliver` each one's contents, absent when it cannot be read, in the
    // order of `requests`. Only a few MiB of bytes wait for delivery at any time.
    void read(std::span<const FileRequest> requests,
              const std::function<void(std::optional<FileContents>&&)>& deliver);

    // A buffer whose bytes are no longer needed, for a later read to fill.
    void recycle(std::string&& buffer);

  private:
    struct Ring;
    std::unique_ptr<Ring> ring_;
    std::uint64_t maximumBytes_;
    std::vector<std::string> spare_;

    std::string takeBuffer();
    void readThroughRing(std::span<const FileRequest> requests,
                         const std::function<void(std::optional<FileContents>&&)>& deliver);
};

} // namespace vorlo::fs
