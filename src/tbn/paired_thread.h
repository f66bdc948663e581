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
    bool run(Call call, const void* job);
    bool startIfNeeded();
    void serve(uint64_t posted);

    std::mutex caller_;  // held by the one caller using the thread
    std::mutex state_;   // guards sleeping on `wake_`
    std::condition_variable wake_;
    std::unique_ptr<std::thread> thread_;
    long ownerProcess_ = 0;  // the process that started thread_ (a fork has no thread)
    std::atomic<uint64_t> posted_{0}, done_{0};
    std::atomic<bool> stop_{false};
    Call call_ = nullptr;
    const void* job_ = nullptr;
};

}  // namespace kestrel::meridian
