// A second thread kept between calls, for work split in two halves that is
// too short to pay for starting a thread each time (a thread start and the
// wake-up of an idle core cost a tenth of a tangent-frame call here).
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#if !defined(_WIN32)
#include <pthread.h>
#endif

namespace kestrel::meridian {

/// Runs job(1) on a kept thread while the caller runs job(0), and returns
/// when both are done. Between jobs the thread spins for a short while (so
/// that back-to-back calls find it awake), then sleeps until the next job.
/// One caller at a time: a caller that finds the thread in use, or cannot
/// start it, is told so and runs the whole job itself.
class PairedThread {
  public:
    PairedThread() = default;
    PairedThread(const PairedThread&) = delete;
    PairedThread& operator=(const PairedThread&) = delete;
    /// Stops and joins the thread.
    ~PairedThread();

    /// job(1) on the kept thread and job(0) on the caller's, both finished on
    /// return. False, with nothing run, when another caller has the thread or
    /// it cannot be started. The job must not throw.
    template <typename Job>
    bool runHalves(const Job& job) {
        return run([](const void* j, int half) { (*static_cast<const Job*>(j))(half); }, &job);
    }

    /// The process-wide instance the tangent-frame engines share.
    static PairedThread& shared();

  private:
    using Call = void (*)(const void*, int);
    /// What the two threads share. A forked child gets a copy whose mutex
    /// and condition variable may hold the state of threads it does not
    /// have, so it lets the copy go and makes its own.
    struct Link {
        std::mutex state;  // guards sleeping on `wake`
        std::condition_variable wake;
        std::atomic<uint64_t> posted{0}, done{0};
        std::atomic<bool> stop{false};
        Call call = nullptr;
        const void* job = nullptr;
#if defined(_WIN32)
        std::thread thread;
#else
        // A plain POSIX thread: std::thread keeps its start state on the heap,
        // owned by the new thread, which a forked child reports as leaked.
        pthread_t thread{};
#endif
    };

    static std::vector<void*>& abandonedLinks();
    bool run(Call call, const void* job);
    bool startIfNeeded();
    static void serve(Link& link);

    std::mutex caller_;  // held by the one caller using the thread
    std::unique_ptr<Link> link_;
    long ownerProcess_ = 0;  // the process that started link_'s thread
};

}  // namespace kestrel::meridian
