#include "tbn/paired_thread.h"

#include <chrono>
#include <system_error>

#if defined(_WIN32)
#include <process.h>
#define MERIDIAN_PROCESS_ID _getpid
#else
#include <unistd.h>
#define MERIDIAN_PROCESS_ID getpid
#endif

#if defined(__x86_64__) || defined(_M_X64)
#include <immintrin.h>
#define MERIDIAN_SPIN_PAUSE() _mm_pause()
#else
#define MERIDIAN_SPIN_PAUSE() std::this_thread::yield()
#endif

namespace kestrel::meridian {

namespace {

// How long either side spins before it sleeps: long enough to span the gap
// between back-to-back calls, short enough not to hold a core for nothing
// when the calls stop.
constexpr std::chrono::microseconds kSpinTime{200};

// Spins until done() or kSpinTime has passed; true if done.
template <typename Done>
bool spinUntil(const Done& done) {
    const auto end = std::chrono::steady_clock::now() + kSpinTime;
    for (;;) {
        for (int k = 0; k < 64; ++k) {
            if (done()) return true;
            MERIDIAN_SPIN_PAUSE();
        }
        if (std::chrono::steady_clock::now() >= end) return done();
    }
}

}  // namespace

PairedThread::~PairedThread() {
    if (!thread_) return;
    if (ownerProcess_ != static_cast<long>(MERIDIAN_PROCESS_ID())) {
        (void)thread_.release();  // a fork's copy: the thread is not here to join
        return;
    }
    {
        std::lock_guard<std::mutex> lock(state_);
        stop_.store(true);
    }
    wake_.notify_all();
    thread_->join();
}

PairedThread& PairedThread::shared() {
    static PairedThread instance;
    return instance;
}

bool PairedThread::startIfNeeded() {
    const long process = static_cast<long>(MERIDIAN_PROCESS_ID());
    if (thread_ && ownerProcess_ == process) return true;
    // After a fork the child has the object but not the thread; the old
    // handle cannot be joined here, so it is let go.
    if (thread_) (void)thread_.release();
    posted_.store(0);
    done_.store(0);
    stop_.store(false);
    try {
        thread_ = std::make_unique<std::thread>([this] { serve(0); });
    } catch (const std::system_error&) {
        return false;
    } catch (const std::bad_alloc&) {
        return false;
    }
    ownerProcess_ = process;
    return true;
}

bool PairedThread::run(Call call, const void* job) {
    std::unique_lock<std::mutex> caller(caller_, std::try_to_lock);
    if (!caller.owns_lock() || !startIfNeeded()) return false;
    const uint64_t number = posted_.load(std::memory_order_relaxed) + 1;
    {
        std::lock_guard<std::mutex> lock(state_);
        call_ = call;
        job_ = job;
        posted_.store(number, std::memory_order_release);
    }
    wake_.notify_one();
    call(job, 0);
    const auto finished = [&] { return done_.load(std::memory_order_acquire) == number; };
    if (!spinUntil(finished)) {
        std::unique_lock<std::mutex> lock(state_);
        wake_.wait(lock, finished);
    }
    return true;
}

void PairedThread::serve(uint64_t seen) {
    for (;;) {
        const auto newJob = [&] {
            return posted_.load(std::memory_order_acquire) != seen ||
                   stop_.load(std::memory_order_acquire);
        };
        if (!spinUntil(newJob)) {
            std::unique_lock<std::mutex> lock(state_);
            wake_.wait(lock, newJob);
        }
        if (stop_.load(std::memory_order_acquire)) return;
        seen = posted_.load(std::memory_order_acquire);
        call_(job_, 1);
        {
            std::lock_guard<std::mutex> lock(state_);
            done_.store(seen, std::memory_order_release);
        }
        wake_.notify_all();
    }
}

}  // namespace kestrel::meridian
