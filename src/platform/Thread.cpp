// Threads placed on a processor of their own, over POSIX threads.
#include "platform/Thread.h"

#include <cerrno>
#include <memory>
#include <pthread.h>
#include <sched.h>
#include <system_error>
#include <utility>

namespace vorlo::process {

namespace {

struct Start {
    std::function<void()> work;
#ifdef __linux__
    cpu_set_t mask; // the creator's, taken back once the thread runs
    bool placed = false;
#endif
};

void* run(void* argument) {
    const std::unique_ptr<Start> start(static_cast<Start*>(argument));
#ifdef __linux__
    if (start->placed) sched_setaffinity(0, sizeof start->mask, &start->mask);
#endif
    start->work();
    return nullptr;
}

} // namespace

Thread::Thread(std::function<void()> work, unsigned offset) {
    auto start = std::make_unique<Start>();
    start->work = std::move(work);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
#ifdef __linux__
    const int current = sched_getcpu();
    if (offset > 0 && current >= 0 && sched_getaffinity(0, sizeof start->mask, &start->mask) == 0 &&
        CPU_ISSET(current, &start->mask)) {
        // The allowed processors in order, starting after the current one and wrapping around.
        int chosen = current;
        for (unsigned step = 0; step < offset;) {
            chosen = (chosen + 1) % CPU_SETSIZE;
            if (CPU_ISSET(chosen, &start->mask)) ++step;
        }
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(chosen, &one);
        start->placed = pthread_attr_setaffinity_np(&attributes, sizeof one, &one) == 0;
    }
#endif
    pthread_t id;
    int error = pthread_create(&id, &attributes, run, start.get());
    pthread_attr_destroy(&attributes);
#ifdef __linux__
    // The chosen processor may have left the set allowed since the mask was read: start anywhere.
    if (error == EINVAL && start->placed) {
        start->placed = false;
        error = pthread_create(&id, nullptr, run, start.get());
    }
#endif
    if (error != 0) throw std::system_error(error, std::generic_category(), "A thread could not be started");
    start.release(); // now the thread's
    id_ = id;
    joinable_ = true;
}

Thread::Thread(Thread&& other) noexcept
    : id_(other.id_), joinable_(std::exchange(other.joinable_, false)) {}

Thread::~Thread() { join(); }

void Thread::join() {
    if (std::exchange(joinable_, false)) pthread_join(static_cast<pthread_t>(id_), nullptr);
}

} // namespace vorlo::process
