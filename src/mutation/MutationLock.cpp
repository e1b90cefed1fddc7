// The library mutation lock: its owner record, acquisition, release and the abandonment rule.
#include "mutation/MutationLock.h"

#include "platform/Collation.h"
#include "platform/Errors.h"
#include "platform/Json.h"
#include "platform/Process.h"
#include "tools/Limits.h"

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <limits>

namespace vorlo {
namespace {

constexpr std::string_view kLockName = "Library Mutation.lock";
constexpr std::string_view kOwnerName = "Owner.json";
constexpr int kAttempts = 101; // 100 sleeps of 10 ms: about one second of waiting
constexpr int kPollMilliseconds = 10;
// A holder can count on the lock for this long; after it any waiter may take the lock over.
constexpr double kLongestHoldSeconds = 300.0;
// A lock folder stays without a record only between its creation and the record's rename into it.
constexpr double kLongestRecordlessSeconds = 2.0;

// What a waiter saw of a lock when it judged it. The same view taken again just before the lock is
// moved aside tells whether the lock changed hands in between.
struct LockView {
    std::optional<std::string> recordBytes;
    std::optional<Timestamp> recordDate;
    std::optional<Timestamp> lockDate;
    bool operator==(const LockView&) const = default;
};

// The record is read inside the lock folder as opened: a link standing at the lock's name leads
// nowhere, and the lock then counts as one without a record.
std::optional<std::string> recordBytes(const fs::Folder& locks) {
    const auto lock = locks.child(kLockName, nullptr);
    if (!lock) return std::nullopt;
    auto contents = lock->readFile(kOwnerName, kMaximumLockRecordBytes);
    if (!contents) return std::nullopt;
    return std::move(contents->bytes);
}

LockView viewLock(const fs::Folder& locks) {
    LockView view;
    if (const auto lock = locks.child(kLockName, nullptr)) {
        if (auto contents = lock->readFile(kOwnerName, kMaximumLockRecordBytes))
            view.recordBytes = std::move(contents->bytes);
        if (const auto status = lock->status(kOwnerName)) view.recordDate = status->modified;
    }
    if (const auto status = locks.status(kLockName)) view.lockDate = status->modified;
    return view;
}

} // namespace

std::string MCPMutationLockOwner::encode() const {
    Json record = Json::object(); // keys come out sorted: createdAt, hostID, hostName, processID, token
    record["createdAt"] = formatIso8601(createdAt);
    if (hostID) record["hostID"] = *hostID;
    record["hostName"] = hostName;
    record["processID"] = processID;
    record["token"] = token.text();
    return writePrettyJson(record);
}

std::optional<MCPMutationLockOwner> MCPMutationLockOwner::decode(std::string_view bytes) {
    if (bytes.size() > kMaximumLockRecordBytes) return std::nullopt;
    const auto document = parseJsonDocument(bytes);
    if (!document || !document->is_object()) return std::nullopt;
    const Json& record = *document;

    const auto token = record.find("token");
    const auto processID = record.find("processID");
    const auto hostName = record.find("hostName");
    const auto createdAt = record.find("createdAt");
    if (token == record.end() || !token->is_string() || processID == record.end() ||
        !processID->is_number_integer() || hostName == record.end() || !hostName->is_string() ||
        createdAt == record.end() || !createdAt->is_string())
        return std::nullopt;

    MCPMutationLockOwner owner;
    const auto uuid = Uuid::parse(token->get_ref<const std::string&>());
    if (!uuid) return std::nullopt;
    owner.token = *uuid;

    if (processID->is_number_unsigned()) {
        if (processID->get<std::uint64_t>() >
            static_cast<std::uint64_t>(std::numeric_limits<std::int32_t>::max()))
            return std::nullopt;
        owner.processID = static_cast<int>(processID->get<std::uint64_t>());
    } else {
        const auto value = processID->get<std::int64_t>();
        if (value < std::numeric_limits<std::int32_t>::min() ||
            value > std::numeric_limits<std::int32_t>::max())
            return std::nullopt;
        owner.processID = static_cast<int>(value);
    }

    owner.hostName = hostName->get<std::string>();

    const auto date = parseIso8601(createdAt->get_ref<const std::string&>());
    if (!date) return std::nullopt;
    owner.createdAt = *date;

    // An optional key that is present but null counts as absent; any other type spoils the record.
    if (const auto hostID = record.find("hostID"); hostID != record.end() && !hostID->is_null()) {
        if (!hostID->is_string()) return std::nullopt;
        owner.hostID = hostID->get<std::string>();
    }
    return owner;
}

MCPMutationLock::MCPMutationLock(std::string libraryURL, std::string locksFolder)
    : libraryURL_(std::move(libraryURL)), locksFolder_(std::move(locksFolder)),
      lockPath_(fs::joinPath(fs::joinPath(libraryURL_, locksFolder_), kLockName)),
      owner_{Uuid::random(), process::currentProcessId(), process::hostName(), std::nullopt, currentTime()} {}

void MCPMutationLock::acquire() {
    int error = 0;
    locks_ = fs::Folder::openBelow(libraryURL_, locksFolder_, fs::Folder::Missing::Make, &error);
    if (!locks_) throwFileFailure("folder", locksFolder_, "created", error);

    const std::string record = owner_.encode();
    for (int attempt = 1; attempt <= kAttempts; ++attempt) {
        // Creating the folder is the atomic step: of any number of processes, exactly one succeeds.
        if (const auto lock = locks_->makeChild(kLockName, nullptr)) {
            // The record arrives by rename, so a waiter finds a whole record or none. It is not
            // flushed: after a power cut no owner lives, and an undated lock is judged by its
            // folder's age.
            if (lock->replaceFile(kOwnerName, record, 0600, fs::Folder::Flush::No) == 0) {
                // A waiter that judged the lock before the record arrived may have moved the folder
                // aside meanwhile, and the record then went with it: the lock is ours only if the
                // folder at the lock's name is still the one made here. (Its inode cannot have gone
                // to another folder while it is held open.)
                if (locks_->holds(kLockName, *lock)) {
                    acquired_ = true;
                    return;
                }
            } else if (locks_->holds(kLockName, *lock)) {
                // A lock without a record would stall everyone for two seconds; take it away again,
                // but only if it is still the folder made here and not one that someone else made since.
                locks_->removeTree(kLockName);
            }
        }
        // Every failed attempt is treated alike, whatever its cause: only the state on disk counts.
        if (recoverAbandonedLockIfNeeded()) continue;
        if (attempt < kAttempts) process::sleepMilliseconds(kPollMilliseconds);
    }
    locks_.reset();
    throw ServerError("The Vorlo library is busy. Wait a moment and try again.");
}

bool MCPMutationLock::recoverAbandonedLockIfNeeded() noexcept {
    if (!locks_) return false;
    const fs::Folder& locks = *locks_;
    try {
        if (!locks.contains(kLockName)) return true;

        const LockView judged = viewLock(locks);
        // Released between the look above and this one: the lock is gone, whatever takes its name
        // next is young, and judging a name without a date as old would move a fresh lock aside.
        if (!judged.lockDate) return true;
        const auto record =
            judged.recordBytes ? MCPMutationLockOwner::decode(*judged.recordBytes) : std::nullopt;
        // The record's file date outranks the date written inside it: the file system tells when
        // the record reached the disk, while createdAt is only what its writer claims.
        Timestamp reference = kDistantPast;
        if (judged.recordDate)
            reference = *judged.recordDate;
        else if (record)
            reference = record->createdAt;
        else if (judged.lockDate)
            reference = *judged.lockDate;
        // In floating point: a record may claim a date in the year 1, so far back that the
        // difference of the two integer times would overflow.
        const double age = std::chrono::duration<double>(currentTime().time_since_epoch()).count() -
                           std::chrono::duration<double>(reference.time_since_epoch()).count();

        bool abandoned = false;
        if (!record)
            abandoned = age > kLongestRecordlessSeconds;
        else if (text::caseInsensitiveEqual(record->hostName, owner_.hostName))
            abandoned = process::processIsGone(record->processID) || age > kLongestHoldSeconds;
        else
            abandoned = age > kLongestHoldSeconds; // another machine's process cannot be examined
        if (!abandoned) return false;

        // Between the judgement and the move another waiter may have cleared this lock and a new
        // owner taken the name. Looking once more right before the move narrows that window to
        // almost nothing; if anything changed, the next attempt judges the new lock afresh.
        if (!(viewLock(locks) == judged)) return !locks.contains(kLockName);

        const std::string aside = "Abandoned " + Uuid::random().text();
        if (locks.rename(kLockName, aside) == 0 && locks.removeTree(aside) == 0) return true;
        return !locks.contains(kLockName);
    } catch (...) {
        // Recovery is advisory: whatever went wrong, what stands at the lock's name decides.
        return !locks.contains(kLockName);
    }
}

void MCPMutationLock::release() noexcept {
    if (!acquired_) return;
    acquired_ = false;
    const std::optional<fs::Folder> locks = std::move(locks_);
    locks_.reset();
    if (!locks) return;
    try {
        // A record with another token means this process was judged abandoned and someone else
        // holds the lock now. A missing or unreadable record leaves the lock to us: nobody else
        // could have written it without taking the lock first.
        const auto bytes = recordBytes(*locks);
        if (const auto record = bytes ? MCPMutationLockOwner::decode(*bytes) : std::nullopt;
            record && !(record->token == owner_.token))
            return;
        // The rename frees the name in one step; the slower removal runs after others may acquire.
        const std::string aside = "Released " + owner_.token.text();
        const int error = locks->rename(kLockName, aside);
        if (error == 0) locks->removeTree(aside);
        if (error == 0 || error == ENOENT) return; // with nothing at the name, nothing is ours
        // Our own live process would keep a lock left standing for the full 300 seconds, since a
        // waiter sees it answer: take the lock down where it stands. A waiter that looks in between
        // finds a folder without a record and a fresh date, and waits the moment it takes.
        locks->removeTree(kLockName);
    } catch (...) {
        // Release never fails the work it guards; a lock left behind falls to the abandonment rule.
    }
}

} // namespace vorlo
