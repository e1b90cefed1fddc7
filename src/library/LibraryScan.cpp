// The library scan: what counts as a note, and the one walk that finds the notes.
#include "library/LibraryScan.h"

#include "library/NoteParser.h"
#include "platform/BatchRead.h"
#include "platform/Collation.h"
#include "platform/Crypto.h"
#include "platform/Errors.h"
#include "platform/Files.h"
#include "platform/FilesAt.h"
#include "platform/Process.h"
#include "platform/Thread.h"
#include "platform/Utf8.h"
#include "protocol/VorloMCPServer.h"
#include "tools/Limits.h"
#include "tools/Validators.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace vorlo::library {
namespace {

// The folder in the library's root where the notes application keeps attachments and locks.
constexpr std::string_view kPrivateFolderName = "Vorlo Data";

// Only "M" and "D" lower-case to "m" and "d" in all of Unicode, so a byte comparison decides
// "the extension in lower case is md" for any name.
bool hasMarkdownExtension(std::string_view name) {
    const std::string_view extension = fs::pathExtension(name);
    return extension.size() == 2 && (extension[0] | 0x20) == 'm' && (extension[1] | 0x20) == 'd';
}

// The functions below are the one definition of what the walk enters and what it admits; the
// full walk and the lookup by path both judge every entry on their way with them, so that they
// cannot disagree. Hidden entries never reach them: the listing leaves them out with everything
// below them.

// Whether the walk goes into `entry` of a folder (`inRoot`: of the library's root).
bool entersFolder(const fs::DirectoryEntry& entry, bool inRoot) {
    // Only the root's private folder is the system's; one of that name further down is the user's.
    // A link to a folder is no Directory here, so the walk never leaves the library through one.
    return entry.kind == fs::EntryKind::Directory && !(inRoot && entry.name == kPrivateFolderName);
}

// Whether `entry` may be a note as far as its listing tells: the tests before the file is opened.
bool isNoteCandidate(const fs::DirectoryEntry& entry, const std::string& relativePath, const PathFilter& wanted) {
    if (!hasMarkdownExtension(entry.name)) return false;
    // A name that is not UTF-8 could never be written into a reply.
    if (!text::isValidUtf8(relativePath) || !tools::isSafeRelativePath(relativePath)) return false;
    if (wanted && !wanted(relativePath)) return false;
    return entry.kind == fs::EntryKind::RegularFile;
}

// The note that a candidate is, given what reading it gave. The read (readRegularFileAt, or a
// batch of the same) refuses a link, a FIFO or a device that took the file's place since the
// listing, without blocking, and judges the size of what it actually opened.
std::optional<NoteFile> noteFromContents(std::optional<fs::FileContents>&& contents, const std::string& relativePath) {
    if (!contents || !text::isValidUtf8(contents->bytes)) return std::nullopt;
    return NoteFile{relativePath, std::move(contents->bytes), contents->modified};
}

// The note file at `entry` of the open folder, read now; absent when the entry is no note or
// `wanted` turns its path down.
std::optional<NoteFile> admitNote(int folderFd, const fs::DirectoryEntry& entry, const std::string& relativePath,
                                  const PathFilter& wanted = {}) {
    if (!isNoteCandidate(entry, relativePath, wanted)) return std::nullopt;
    return noteFromContents(fs::readRegularFileAt(folderFd, entry.name.c_str(), kMaximumNoteBytes), relativePath);
}

// A folder on a walk's stack. Its path is not kept: it stands at the front of the one path the walk
// builds in place, `pathLength` bytes of it, so a chain of folders thousands deep holds its path
// once and not once a level.
struct OpenFolder {
    fs::UniqueFd fd;
    std::vector<fs::DirectoryEntry> entries;
    std::size_t next = 0;
    std::size_t pathLength = 0;
};

std::optional<OpenFolder> openFolder(fs::UniqueFd fd, std::size_t pathLength,
                                     const std::function<bool(std::string_view)>& keep = {}) {
    if (!fd) return std::nullopt;
    auto entries = fs::listDirectoryAt(fd.get(), keep);
    if (!entries) return std::nullopt;
    return OpenFolder{std::move(fd), std::move(*entries), 0, pathLength};
}

// Makes `path` the path of `name` in the folder whose own path is its first `folderLength` bytes.
void pathInFolder(std::string& path, std::size_t folderLength, std::string_view name) {
    path.resize(folderLength);
    if (!path.empty()) path += '/';
    path += name;
}

// A note file the walk has listed and will read: the folder's descriptor stays open while it waits.
struct Candidate {
    std::shared_ptr<const fs::UniqueFd> folder;
    std::string name;
    std::string relativePath;
};

// Reads one batch of candidates and collects the notes among them that `judge` (when there is one)
// accepts, in the batch's order.
void readBatch(fs::FileBatchReader& reader, std::vector<Candidate>& candidates,
               std::vector<fs::FileRequest>& requests, std::vector<NoteFile>& notes, const Judge& judge) {
    requests.clear();
    for (const Candidate& candidate : candidates)
        requests.push_back(fs::FileRequest{candidate.folder->get(), candidate.name.c_str()});
    std::size_t next = 0;
    reader.read(requests, [&](std::optional<fs::FileContents>&& contents) {
        auto note = noteFromContents(std::move(contents), candidates[next++].relativePath);
        if (!note) return;
        if (!judge || judge(*note))
            notes.push_back(std::move(*note));
        else
            reader.recycle(std::move(note->bytes));
    });
}

// Visits notes in order and gives the buffers they leave behind back to the reader, for later reads.
void visitAll(std::vector<NoteFile>& notes, fs::FileBatchReader& reader,
              const std::function<void(NoteFile&&)>& visit) {
    for (NoteFile& note : notes) {
        visit(std::move(note));
        if (note.bytes.capacity() > 0) reader.recycle(std::move(note.bytes));
    }
    notes.clear();
}

// Reads the walk's batches on several threads at once, each batch whole on one of them, while the
// walk lists the folders ahead: opening and reading files is most of a scan's cost, and it is
// kernel work that every core can do. Each thread reads its batch and judges its notes, which
// needs no order, and files what it kept. The notes are visited in walk order, one call after the
// other, by whichever thread files the batch next in that order, together with every filed batch
// after it; a thread that files a later batch goes on reading instead of waiting for its turn,
// which left its core idle whenever the thread ahead had been preempted. Nothing the visitor
// computes depends on timing, a failure included: it is raised when its batch's turn comes.
class SharedReading {
  public:
    SharedReading(unsigned threads, const std::function<void(NoteFile&&)>& visit, const JudgeMaker& judges)
        : visit_(visit), judges_(judges) {
        for (unsigned i = 0; i < threads; ++i)
            threads_.emplace_back([this] { run(); }, i + 1);
    }
    ~SharedReading() {
        {
            const std::lock_guard lock(mutex_);
            closed_ = true;
        }
        changed_.notify_all();
        for (process::Thread& thread : threads_)
            thread.join();
    }
    SharedReading(const SharedReading&) = delete;
    SharedReading& operator=(const SharedReading&) = delete;

    // Hands a batch over, waiting while each thread has one still waiting; throws what the visitor threw.
    void hand(std::vector<Candidate>&& batch) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return waiting_.size() < threads_.size() || failure_; });
        if (failure_) std::rethrow_exception(failure_);
        waiting_.push_back(std::move(batch));
        lock.unlock();
        changed_.notify_all();
    }

    // Waits until every batch is visited; throws what the visitor threw.
    void finish() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return visited_ == handed_ + waiting_.size() || failure_; });
        if (failure_) std::rethrow_exception(failure_);
    }

private:
  struct Filed {
      std::vector<NoteFile> notes;
      std::exception_ptr failure;
  };

    void run() {
        fs::FileBatchReader reader(kMaximumNoteBytes);
        std::vector<fs::FileRequest> requests;
        Judge judge;
        for (;;) {
            std::vector<Candidate> batch;
            std::size_t number = 0;
            {
                std::unique_lock lock(mutex_);
                // At most one batch per thread and one more ahead of the visits: a thread held up on
                // its batch holds the others up no later than that, and what waits in memory is bounded.
                changed_.wait(lock, [&] {
                    return (!waiting_.empty() && handed_ - visited_ <= threads_.size()) || closed_ ||
                           failure_;
                });
                // Closed with batches still waiting only when the walk failed: they are not needed.
                if (closed_ || failure_) return;
                batch = std::move(waiting_.front());
                waiting_.pop_front();
                number = handed_++;
            }
            Filed filed;
            try {
                if (judges_ && !judge) judge = judges_();
                readBatch(reader, batch, requests, filed.notes, judge);
            } catch (...) {
                filed.failure = std::current_exception();
            }
            batch.clear(); // the folders' descriptors go as soon as their files are read
            file(number, std::move(filed), reader);
        }
    }

    // Files batch `number`, then visits every filed batch whose turn has come. A batch leaves the
    // file when its visit begins, and the turn moves on only when that visit ends, under the lock that
    // looks for the next: so only one thread at a time finds a batch to visit.
    void file(std::size_t number, Filed&& filed, fs::FileBatchReader& reader) {
        std::unique_lock lock(mutex_);
        filed_.emplace(number, std::move(filed));
        while (!failure_) {
            const auto next = filed_.find(visited_);
            if (next == filed_.end()) break;
            Filed turn = std::move(next->second);
            filed_.erase(next);
            lock.unlock();
            if (!turn.failure) try {
                    visitAll(turn.notes, reader, visit_);
                } catch (...) {
                    turn.failure = std::current_exception();
                }
            lock.lock();
            ++visited_;
            if (turn.failure) failure_ = turn.failure;
            changed_.notify_all();
        }
    }

    const std::function<void(NoteFile&&)>& visit_;
    const JudgeMaker& judges_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::vector<Candidate>> waiting_;
    std::size_t handed_ = 0;  // batches taken by a thread, numbered in walk order
    std::size_t visited_ = 0; // batches whose notes are all visited
    std::map<std::size_t, Filed> filed_; // read, by number, till their turn to be visited
    bool closed_ = false;
    std::exception_ptr failure_;
    std::vector<process::Thread> threads_; // last, so that they start when everything above is ready
};

// Depth-first, each folder's entries in listing order and a folder's contents right after the
// folder, so the order is a function of the listings alone. The stack holds one open folder per
// level, not the call stack, so no depth of nesting can overflow it; a level that cannot be opened
// (out of descriptors, no permission, swapped for a link) is passed over like any unreadable folder.
//
// The candidates are read a batch at a time and visited in walk order; a folder's descriptor stays
// open while a candidate in it waits for its batch.
void walk(const std::string& libraryPath, const PathFilter& wanted,
          const std::function<void(NoteFile&&)>& visit, const JudgeMaker& judges) {
    struct Level {
        std::shared_ptr<const fs::UniqueFd> fd;
        std::vector<fs::DirectoryEntry> entries;
        std::size_t next = 0;
        std::size_t pathLength = 0;
    };
    const auto level = [](std::optional<OpenFolder> folder) {
        return Level{std::make_shared<const fs::UniqueFd>(std::move(folder->fd)), std::move(folder->entries),
                     0, folder->pathLength};
    };

    std::vector<Level> stack;
    std::string path;
    auto root = openFolder(fs::openDirectory(libraryPath), 0);
    if (!root) throw ServerError("The selected Vorlo library could not be read.");

    // One core has nothing to share the work with: the walk reads and visits each batch itself.
    const unsigned threads = std::min(process::usableProcessors(), 2u);
    std::optional<SharedReading> shared;
    std::optional<fs::FileBatchReader> reader;
    Judge judge;
    if (threads > 1) {
        shared.emplace(threads, visit, judges);
    } else {
        reader.emplace(kMaximumNoteBytes);
        if (judges) judge = judges();
    }
    std::vector<Candidate> candidates;
    std::vector<fs::FileRequest> requests;
    std::vector<NoteFile> notes;
    const auto readCandidates = [&] {
        if (candidates.empty()) return;
        if (shared) return shared->hand(std::exchange(candidates, {}));
        readBatch(*reader, candidates, requests, notes, judge);
        candidates.clear();
        visitAll(notes, *reader, visit);
    };
    stack.push_back(level(std::move(root)));
    while (!stack.empty()) {
        Level& folder = stack.back();
        if (folder.next == folder.entries.size()) {
            stack.pop_back();
            continue;
        }
        const fs::DirectoryEntry& entry = folder.entries[folder.next++];
        pathInFolder(path, folder.pathLength, entry.name);
        if (entry.kind == fs::EntryKind::Directory) {
            if (!entersFolder(entry, stack.size() == 1)) continue;
            auto inner = openFolder(fs::openDirectoryAt(folder.fd->get(), entry.name.c_str()), path.size());
            if (inner) stack.push_back(level(std::move(inner))); // `folder` and `entry` are stale from here on
        } else if (isNoteCandidate(entry, path, wanted)) {
            candidates.push_back(Candidate{folder.fd, entry.name, path});
            if (candidates.size() == fs::FileBatchReader::kBatchSize) readCandidates();
        }
    }
    readCandidates();
    if (shared) shared->finish();
}

} // namespace

void walkNoteFiles(const std::string& libraryPath, const std::function<void(NoteFile&&)>& visit,
                   const PathFilter& wanted, const JudgeMaker& judges) {
    walk(libraryPath, wanted, visit, judges);
}

// The walk restricted to the entries whose names match the path's components, level by level.
// Matching names component by component is matching the whole path: the comparison's folding and
// canonical decomposition work character by character, nothing folds or decomposes to or into "/",
// and "/" is a starter that no mark is reordered across, so a path's key is its components' keys
// joined by "/". A level may hold several matches (names that differ in case or in their Unicode
// spelling); they are tried in listing order, each one's folder depth-first before the next, which
// is the order in which the full walk meets them.
std::optional<NoteFile> findNoteFile(const std::string& libraryPath, std::string_view relativePath) {
    std::vector<std::string_view> names;
    std::vector<text::CaselessMatch> components;
    for (std::size_t at = 0;;) {
        const std::size_t slash = relativePath.find('/', at);
        names.push_back(relativePath.substr(at, slash == std::string_view::npos ? slash : slash - at));
        components.emplace_back(names.back());
        if (slash == std::string_view::npos) break;
        at = slash + 1;
    }
    // As in the walk, one open folder per level on a stack of our own: the path has no length limit.
    std::vector<OpenFolder> stack;
    std::string path;
    // A level keeps only the entries that match its component: a folder of thousands holds one or two.
    const auto matching = [&](std::size_t level) {
        return [&components, level](std::string_view name) { return components[level].matches(name); };
    };
    fs::UniqueFd rootFd = fs::openDirectory(libraryPath);
    // Listing a large folder is most of a lookup's time, and every folder on the path must be listed
    // whole, since an earlier entry may match its component too. The note's own folder, reached by
    // the names as written (the usual case), is listed on a second core while this thread lists the
    // ones above; the walk takes that listing only for the very folder it opens itself. Whichever
    // thread comes to that folder first lists it, so a second core that is slow to start costs no
    // more than having none. Only along names that the walk itself would enter, so that no folder is
    // opened that the rules of the walk keep out (above the library, hidden, the private folder).
    const std::size_t leaf = names.size() - 1;
    bool enterable = rootFd && leaf > 0 && tools::isSafeRelativePath(relativePath);
    for (std::size_t level = 0; level < leaf && enterable; ++level)
        enterable =
            !fs::isHiddenName(names[level]) &&
            entersFolder(fs::DirectoryEntry{std::string(names[level]), fs::EntryKind::Directory}, level == 0);
    std::atomic<bool> leafTaken = false;
    std::optional<OpenFolder> listedAhead;
    const bool ahead = enterable && process::usableProcessors() > 1;
    const fs::UniqueFd aheadRoot = ahead ? fs::duplicate(rootFd.get()) : fs::UniqueFd();
    std::optional<process::Thread> lister;
    if (aheadRoot)
        lister.emplace([&] {
            if (leafTaken.exchange(true)) return;
            try {
                fs::UniqueFd fd = fs::openDirectoryAt(aheadRoot.get(), std::string(names[0]).c_str());
                for (std::size_t level = 1; level < leaf && fd; ++level)
                    fd = fs::openDirectoryAt(fd.get(), std::string(names[level]).c_str());
                listedAhead = openFolder(std::move(fd), 0, matching(leaf));
            } catch (...) {
                listedAhead.reset(); // the walk lists the folder itself
            }
        });
    auto root = openFolder(std::move(rootFd), 0, matching(0));
    if (!root) throw ServerError("The selected Vorlo library could not be read.");
    stack.push_back(std::move(*root));
    while (!stack.empty()) {
        OpenFolder& folder = stack.back();
        const std::size_t level = stack.size() - 1;
        if (folder.next == folder.entries.size()) {
            stack.pop_back();
            continue;
        }
        const fs::DirectoryEntry& entry = folder.entries[folder.next++];
        pathInFolder(path, folder.pathLength, entry.name);
        if (level + 1 == components.size()) {
            if (auto note = admitNote(folder.fd.get(), entry, path)) return note;
        } else if (entersFolder(entry, level == 0)) {
            fs::UniqueFd innerFd = fs::openDirectoryAt(folder.fd.get(), entry.name.c_str());
            std::optional<OpenFolder> inner;
            if (innerFd && level + 1 == leaf && lister && leafTaken.exchange(true)) {
                lister->join();
                lister.reset();
                if (listedAhead && fs::sameFile(listedAhead->fd.get(), innerFd.get())) {
                    inner = std::move(listedAhead);
                    inner->fd = std::move(innerFd);
                    inner->pathLength = path.size();
                }
            }
            if (!inner) inner = openFolder(std::move(innerFd), path.size(), matching(level + 1));
            if (inner) stack.push_back(std::move(*inner)); // `folder` and `entry` are stale from here on
        }
    }
    return std::nullopt;
}

NoteRecord makeRecord(NoteFile&& file) {
    // The revision is taken over the raw bytes, before the parser normalises line ends.
    std::string revision = sha256Hex(file.bytes);
    return parseNote(std::move(file.bytes), std::move(file.relativePath), file.modified, std::move(revision));
}

} // namespace vorlo::library

namespace vorlo {

std::vector<NoteRecord> VorloMCPServer::scanNotes() const {
    std::vector<NoteRecord> notes;
    library::walkNoteFiles(libraryURL_, [&](library::NoteFile&& file) {
        notes.push_back(library::makeRecord(std::move(file)));
    });
    return notes;
}

std::optional<NoteRecord> VorloMCPServer::findNote(std::string_view relativePath) const {
    auto file = library::findNoteFile(libraryURL_, relativePath);
    if (!file) return std::nullopt;
    return library::makeRecord(std::move(*file));
}

std::string VorloMCPServer::relativePath(std::string_view path) const {
    const std::string standardized = fs::standardizedPath(path);
    const std::string root = fs::standardizedPath(libraryURL_) + "/";
    if (standardized.size() <= root.size() || standardized.compare(0, root.size(), root) != 0) return {};
    return standardized.substr(root.size());
}

} // namespace vorlo
