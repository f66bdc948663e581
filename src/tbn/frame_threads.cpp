#include "tbn/frame_threads.h"

#include <atomic>
#include <thread>

namespace kestrel::meridian {

int frameThreadCount(size_t faceCount) {
    const bool twoCores = std::thread::hardware_concurrency() >= 2;
    return twoCores && faceCount >= kTwoThreadFaceCount ? 2 : 1;
}

void computeFramesOnThreads(const FrameTopology& topology, const double* positions,
                            double* normalSums, const int32_t* pick, Eigen::Index count,
                            float* out, int threads, simd::Level level) {
    const auto onOneThread = [&] {
        accumulateNormalSums(topology, positions, normalSums, level);
        writeVertexFrames(normalSums, pick, count, out, level);
    };
    if (threads < 2) {
        onOneThread();
        return;
    }
    // Picked outputs read sums of either half: both face passes must be done
    // before the frames, so the threads meet once (a few microseconds of
    // spinning at most, as the halves take about as long). Unpicked outputs
    // are the vertices themselves, and each thread writes its own.
    std::atomic<int> halvesSummed{0};
    const auto runHalf = [&](int half) {
        const FrameHalf& part = topology.halves[half];
        accumulateNormalSumsOf(topology, part, positions, normalSums, level);
        if (!pick) {
            writeVertexFrameRange(normalSums, nullptr, count, part.firstVertex, part.endVertex,
                                  out, level);
            return;
        }
        halvesSummed.fetch_add(1, std::memory_order_acq_rel);
        while (halvesSummed.load(std::memory_order_acquire) < 2) std::this_thread::yield();
        const Eigen::Index middle = count / 2;
        writeVertexFrameRange(normalSums, pick, count, half == 0 ? 0 : middle,
                              half == 0 ? middle : count, out, level);
    };
    std::thread helper;
    try {
        helper = std::thread(runHalf, 1);
    } catch (...) {
        onOneThread();
        return;
    }
    runHalf(0);
    helper.join();
}

}  // namespace kestrel::meridian
