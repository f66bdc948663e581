#include "tbn/paired_thread.h"

#include <chrono>
#include <system_error>
#include <vector>

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

std::vector<void*>& PairedThread::abandonedLinks() {
    static auto* links = new std::vector<void*>;  // never freed: see startIfNeeded
    return *links;
}

PairedThread::~PairedThread() {
    if (!link_) return;
    if (ownerProcess_ != static_cast<long>(MERIDIAN_PROCESS_ID())) {
        abandonedLinks().push_back(link_.release());  // a fork's copy (startIfNeeded)
        return;
    }
    {
        std::lock_guard<std::mutex> lock(link_->state);
        link_->stop.store(true);
    }
    link_->wake.notify_all();
#if defined(_WIN32)
    link_->thread.join();
#else
    pthread_join(link_->thread, nullptr);
#endif
}

PairedThread& PairedThread::shared() {
    static PairedThread instance;
    return instance;
}

bool PairedThread::startIfNeeded() {
    const long process = static_cast<long>(MERIDIAN_PROCESS_ID());
    if (link_ && ownerProcess_ == process) return true;
    // After a fork the child has the link but not the thread; neither the
    // copy's thread nor its condition variable can be used or destroyed, so
    // the copy is set aside for good (on a list, so that it is not a leak).
    if (link_) abandonedLinks().push_back(link_.release());
    try {
        auto link = std::make_unique<Link>();
#if defined(_WIN32)
        Link* shared = link.get();
        link->thread = std::thread([shared] { serve(*shared); });
#else
        const auto entry = [](void* shared) -> void* {
            serve(*static_cast<Link*>(shared));
            return nullptr;
        };
        if (pthread_create(&link->thread, nullptr, entry, link.get()) != 0) return false;
#endif
        link_ = std::move(link);
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
    Link& link = *link_;
    const uint64_t number = link.posted.load(std::memory_order_relaxed) + 1;
    {
        std::lock_guard<std::mutex> lock(link.state);
        link.call = call;
        link.job = job;
        link.posted.store(number, std::memory_order_release);
    }
    link.wake.notify_one();
    call(job, 0);
    const auto finished = [&] { return link.done.load(std::memory_order_acquire) == number; };
    if (!spinUntil(finished)) {
        std::unique_lock<std::mutex> lock(link.state);
        link.wake.wait(lock, finished);
    }
    return true;
}

void PairedThread::serve(Link& link) {
    uint64_t seen = 0;
    for (;;) {
        const auto newJob = [&] {
            return link.posted.load(std::memory_order_acquire) != seen ||
                   link.stop.load(std::memory_order_acquire);
        };
        if (!spinUntil(newJob)) {
            std::unique_lock<std::mutex> lock(link.state);
            link.wake.wait(lock, newJob);
        }
        if (link.stop.load(std::memory_order_acquire)) return;
        seen = link.posted.load(std::memory_order_acquire);
        link.call(link.job, 1);
        {
            std::lock_guard<std::mutex> lock(link.state);
            link.done.store(seen, std::memory_order_release);
        }
        link.wake.notify_all();
    }
}

}  // namespace kestrel::meridian
