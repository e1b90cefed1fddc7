// Batched whole-file reads. Through the submission ring, a batch costs two kernel entries for all
// its opens, reads and closes, plus one fstat per file; one at a time, a file costs open, fstat,
// read, read and close.
#include "platform/BatchRead.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#ifdef VORLO_HAVE_URING
#include <liburing.h>
#endif

namespace vorlo::fs {
namespace {

// Bytes that may wait in read buffers for delivery at once; a larger file goes alone.
constexpr std::size_t kBytesInFlight = 4 << 20;
// Buffers kept for reuse: enough for a batch of typical notes, none of the rare large ones.
constexpr std::size_t kSpareBuffers = FileBatchReader::kBatchSize * 2;
constexpr std::size_t kLargestSpareBuffer = 1 << 20;

} // namespace

bool ringChosen() {
    const char* value = std::getenv("VORLO_MCP_IO");
    return value != nullptr && std::strcmp(value, "ring") == 0;
}

#ifdef VORLO_HAVE_URING

struct FileBatchReader::Ring {
    io_uring ring{};
    bool live = false;

    ~Ring() {
        if (live) io_uring_queue_exit(&ring);
    }

    static std::unique_ptr<Ring> open() {
        auto created = std::make_unique<Ring>();
        // Every submitted entry must come back as a completion, even one that fails to start, or a
        // wait for all of them would never end: hence SUBMIT_ALL, without which the ring is not used.
        // The task-run flags spare the kernel work that a single thread waiting for its own batch
        // does not need; kernels before 6.1 lack them.
        for (const unsigned flags :
             {IORING_SETUP_SUBMIT_ALL | IORING_SETUP_SINGLE_ISSUER | IORING_SETUP_DEFER_TASKRUN,
              unsigned{IORING_SETUP_SUBMIT_ALL}}) {
            if (io_uring_queue_init(static_cast<unsigned>(kBatchSize * 2), &created->ring, flags) == 0) {
                created->live = true;
                return created;
            }
        }
        return nullptr;
    }

    io_uring_sqe* entry(std::uint64_t data, unsigned char flags = 0) {
        io_uring_sqe* sqe = io_uring_get_sqe(&ring);
        io_uring_sqe_set_data64(sqe, data);
        io_uring_sqe_set_flags(sqe, flags);
        return sqe;
    }

    // Submits what is queued and hands `complete` each of the `expected` completions. False when
    // the ring itself fails, which no kernel that set it up has been seen to do.
    template <typename Complete> bool run(unsigned expected, Complete complete) {
        int submitted;
        do
            submitted = io_uring_submit_and_wait(&ring, expected);
        while (submitted == -EINTR);
        if (submitted < 0) return false;
        for (unsigned received = 0; received < expected;) {
            io_uring_cqe* cqe = nullptr;
            const int waited = io_uring_wait_cqe(&ring, &cqe);
            if (waited == -EINTR) continue;
            if (waited < 0) return false;
            complete(io_uring_cqe_get_data64(cqe), cqe->res);
            io_uring_cqe_seen(&ring, cqe);
            ++received;
        }
        return true;
    }
};

#else

struct FileBatchReader::Ring {
    static std::unique_ptr<Ring> open() { return nullptr; }
};

#endif

FileBatchReader::FileBatchReader(std::uint64_t maximumBytes) : maximumBytes_(maximumBytes) {
    if (ringChosen()) ring_ = Ring::open();
}

FileBatchReader::~FileBatchReader() = default;

void FileBatchReader::recycle(std::string&& buffer) {
    if (buffer.capacity() == 0 || buffer.capacity() > kLargestSpareBuffer || spare_.size() >= kSpareBuffers)
        return;
    spare_.push_back(std::move(buffer));
}

// A spare keeps its old length, and the bytes from its last file: growing it to a new file's size then
// fills only what lies beyond, where emptying it first would fill every byte with zeros to be read over.
std::string FileBatchReader::takeBuffer() {
    std::string buffer;
    if (!spare_.empty()) {
        buffer = std::move(spare_.back());
        spare_.pop_back();
    }
    return buffer;
}

void FileBatchReader::read(std::span<const FileRequest> requests,
                           const std::function<void(std::optional<FileContents>&&)>& deliver) {
    if (ring_) {
        readThroughRing(requests, deliver);
        return;
    }
    for (const FileRequest& request : requests)
        deliver(readRegularFileAt(request.directoryFd, request.name, maximumBytes_, nullptr, takeBuffer()));
}

#ifdef VORLO_HAVE_URING

// Three steps. The opens of the whole batch go through the ring at once. Each opened file is then
// judged by fstat, as readRegularFileAt judges it: what was opened, not what the listing said.
// Last, in groups of bounded size, the reads of the files that passed and the closes of all go
// through the ring, each close hard-linked behind its read so that it runs whatever the read gives.
// A read that is not plainly the file's whole content as fstat sized it (an error, a file that grew
// or shrank meanwhile) is done again the ordinary way, which then decides.
void FileBatchReader::readThroughRing(std::span<const FileRequest> requests,
                                      const std::function<void(std::optional<FileContents>&&)>& deliver) {
    enum class State { Failed, Opened, Readable, Read, Again };
    struct File {
        State state = State::Failed;
        int fd = -1;
        std::uint64_t size = 0;
        Timestamp modified;
        std::string bytes;
    };
    const std::size_t count = std::min(requests.size(), kBatchSize);
    std::vector<File> files(count);
    const auto readAgain = [&](std::size_t i) {
        deliver(readRegularFileAt(requests[i].directoryFd, requests[i].name, maximumBytes_));
    };
    const auto everyOneAgain = [&] {
        for (std::size_t i = 0; i < count; ++i)
            readAgain(i);
        read(requests.subspan(count), deliver);
    };

    for (std::size_t i = 0; i < count; ++i)
        io_uring_prep_openat(ring_->entry(i), requests[i].directoryFd, requests[i].name,
                             O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY, 0);
    const bool opened = ring_->run(static_cast<unsigned>(count), [&](std::uint64_t i, int result) {
        if (result >= 0) {
            files[i].fd = result;
            files[i].state = State::Opened;
        } else if (result == -EMFILE || result == -ENFILE || result == -EAGAIN || result == -EINTR) {
            // Out of descriptors with the whole batch open: one at a time may still succeed.
            files[i].state = State::Again;
        }
    });
    if (!opened) {
        for (File& file : files)
            if (file.fd >= 0) ::close(file.fd);
        ring_.reset(); // a ring that fails once is not trusted again
        everyOneAgain();
        return;
    }
    // The status of each opened file, through the ring too: it saves a system call per file, and the
    // kernel answers on a worker of its own, beside this thread. A file system that leaves a wanted
    // field out gets asked by fstat.
    std::vector<struct statx> statuses(count);
    unsigned asked = 0;
    for (std::size_t i = 0; i < count; ++i) {
        if (files[i].state != State::Opened) continue;
        io_uring_prep_statx(ring_->entry(i), files[i].fd, "", AT_EMPTY_PATH,
                            STATX_TYPE | STATX_SIZE | STATX_MTIME, &statuses[i]);
        ++asked;
    }
    std::vector<bool> answered(count, false);
    if (!ring_->run(asked, [&](std::uint64_t i, int result) { answered[i] = result == 0; })) {
        for (File& file : files)
            if (file.fd >= 0) ::close(file.fd);
        ring_.reset();
        everyOneAgain();
        return;
    }
    for (std::size_t i = 0; i < count; ++i) {
        File& file = files[i];
        if (file.state != State::Opened) continue;
        const struct statx& x = statuses[i];
        constexpr unsigned kWanted = STATX_TYPE | STATX_SIZE | STATX_MTIME;
        if (answered[i] && (x.stx_mask & kWanted) == kWanted) {
            if (!S_ISREG(x.stx_mode) || x.stx_size > maximumBytes_) continue;
            file.size = x.stx_size;
            file.modified = Timestamp(std::chrono::duration_cast<Timestamp::duration>(
                std::chrono::seconds(x.stx_mtime.tv_sec) + std::chrono::nanoseconds(x.stx_mtime.tv_nsec)));
        } else {
            struct stat status;
            if (::fstat(file.fd, &status) != 0 || !S_ISREG(status.st_mode) ||
                static_cast<std::uint64_t>(status.st_size) > maximumBytes_)
                continue;
            file.size = static_cast<std::uint64_t>(status.st_size);
            file.modified = timestampOf(status);
        }
        file.state = State::Readable;
    }

    for (std::size_t first = 0; first < count;) {
        // A group of files whose buffers together stay within the bytes in flight, at least one file.
        std::size_t end = first;
        std::size_t bytes = 0;
        unsigned expected = 0;
        while (end < count) {
            File& file = files[end];
            const std::size_t need =
                file.state == State::Readable ? static_cast<std::size_t>(file.size) + 1 : 0;
            if (end > first && bytes + need > kBytesInFlight) break;
            bytes += need;
            if (file.state == State::Readable) {
                // One byte more than fstat gave, so that a file that grew since is noticed.
                file.bytes = takeBuffer();
                file.bytes.resize(need);
                io_uring_prep_read(ring_->entry(end, IOSQE_IO_HARDLINK), file.fd, file.bytes.data(),
                                   static_cast<unsigned>(need), 0);
                ++expected;
            }
            if (file.fd >= 0) {
                io_uring_prep_close(ring_->entry(end | (std::uint64_t{1} << 63)), file.fd);
                file.fd = -1;
                ++expected;
            }
            ++end;
        }
        const bool ran = ring_->run(expected, [&](std::uint64_t data, int result) {
            if (data >> 63) return; // a close: nothing is left to do with the descriptor whatever it says
            File& file = files[data];
            if (result >= 0 && static_cast<std::uint64_t>(result) == file.size) {
                file.bytes.resize(file.size);
                file.state = State::Read;
            } else {
                file.state = State::Again;
            }
        });
        if (!ran) {
            // The closes may or may not have run; the descriptors are not touched again either way.
            ring_.reset();
            for (std::size_t i = first; i < count; ++i) {
                if (files[i].fd >= 0) ::close(files[i].fd);
                readAgain(i);
            }
            read(requests.subspan(count), deliver);
            return;
        }
        for (std::size_t i = first; i < end; ++i) {
            File& file = files[i];
            if (file.state == State::Read)
                deliver(FileContents{std::move(file.bytes), file.modified});
            else if (file.state == State::Again)
                readAgain(i);
            else
                deliver(std::nullopt);
            recycle(std::move(file.bytes));
        }
        first = end;
    }
    if (count < requests.size()) read(requests.subspan(count), deliver);
}

#else

void FileBatchReader::readThroughRing(std::span<const FileRequest>,
                                      const std::function<void(std::optional<FileContents>&&)>&) {}

#endif

} // namespace vorlo::fs
