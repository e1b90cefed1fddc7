#pragma once
// A thread that starts at once on a processor of its own.

#include <functional>

namespace vorlo::process {

// Runs `work` on a new thread, joined by `join` or on destruction. Where the caller's affinity
// allows it, the thread starts on the `offset`-th allowed processor after the caller's (1: the
// next one), then takes back the caller's whole mask, so no processor is forced on it for longer
// than its start. `work` must not throw.
//
// Linux queues a new thread on its creator's processor and leaves it to a balancer to move; on a
// guest whose idle processors sleep, the move came only when the creator blocked, a millisecond
// later: a thread started to list one folder while its creator listed another began only once the
// creator was done.
class Thread {
public:
    explicit Thread(std::function<void()> work, unsigned offset = 1);
    Thread(Thread&& other) noexcept;
    Thread& operator=(Thread&&) = delete;
    ~Thread();
    void join();

private:
    unsigned long id_ = 0;
    bool joinable_ = false;
};

} // namespace vorlo::process
