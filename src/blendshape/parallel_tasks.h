// Independent tasks spread over a few threads. Which thread runs a task
// never changes what it computes, so results do not depend on the number of
// threads.
#pragma once

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

namespace kestrel::meridian::blendshape {

/// Threads worth using for `tasks` tasks: the processor count, at most
/// `tasks`, at least 1.
inline int defaultThreadCount(int tasks) {
    const int cores = static_cast<int>(std::thread::hardware_concurrency());
    return std::max(1, std::min(cores, tasks));
}

/// Runs task(i) for every i in 0..count-1, each exactly once, on up to
/// `threads` threads including the caller's. Returns when all are done. If
/// a task throws, the remaining ones are skipped and the first exception is
/// rethrown here. A thread that cannot be started leaves its share to the
/// others.
template <typename Task>
void runTasks(int count, int threads, const Task& task) {
    std::atomic<int> next{0};
    std::atomic<bool> failed{false};
    std::exception_ptr error;
    std::mutex errorLock;
    auto work = [&] {
        for (int i = next++; i < count && !failed; i = next++) {
            try {
                task(i);
            } catch (...) {
                std::lock_guard<std::mutex> lock(errorLock);
                if (!error) error = std::current_exception();
                failed = true;
            }
        }
    };
    std::vector<std::thread> helpers;
    const int wanted = std::min(threads, count) - 1;
    for (int t = 0; t < wanted; ++t) {
        try {
            helpers.emplace_back(work);
        } catch (const std::system_error&) {
            break;
        }
    }
    work();
    for (std::thread& helper : helpers) helper.join();
    if (error) std::rethrow_exception(error);
}

}  // namespace kestrel::meridian::blendshape
