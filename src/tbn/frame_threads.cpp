#include "tbn/frame_threads.h"

#include <thread>

namespace kestrel::meridian {

namespace {

// run(1) on a new thread and run(0) on this one. False, with nothing run,
// when the thread cannot be started.
template <typename Run>
bool runOnTwoThreads(const Run& run) {
    std::thread helper;
    try {
        helper = std::thread(run, 1);
    } catch (...) {
        return false;
    }
    run(0);
    helper.join();
    return true;
}

}  // namespace

int frameThreadCount(size_t faceCount) {
    const bool twoCores = std::thread::hardware_concurrency() >= 2;
    return twoCores && faceCount >= kTwoThreadFaceCount ? 2 : 1;
}

void computeFramesOnThreads(const FrameTopology& topology, const double* positions,
                            double* normalSums, const int32_t* pick, Eigen::Index count, float* out,
                            int threads, simd::Level level) {
    const auto onOneThread = [&] {
        accumulateNormalSums(topology, positions, normalSums, level);
        writeVertexFrames(normalSums, pick, count, out, level);
    };
    if (threads < 2) {
        onOneThread();
        return;
    }
    // Unpicked outputs are the vertices themselves: each thread writes the
    // frames of its own half as soon as its sums are done. Picked outputs
    // read sums of either half, so both face passes end (a join, which waits
    // without spinning when the machine is busy) before the outputs, split
    // in two, get a second pair of threads.
    const auto sumHalf = [&](int half) {
        const FrameHalf& part = topology.halves[half];
        accumulateNormalSumsOf(topology, part, positions, normalSums, level);
        if (!pick)
            writeVertexFrameRange(normalSums, nullptr, count, part.firstVertex, part.endVertex, out,
                                  level);
    };
    const Eigen::Index middle = count / 2;
    const auto writeOutputHalf = [&](int half) {
        writeVertexFrameRange(normalSums, pick, count, half == 0 ? 0 : middle,
                              half == 0 ? middle : count, out, level);
    };
    if (!runOnTwoThreads(sumHalf)) {
        onOneThread();
        return;
    }
    if (pick && !runOnTwoThreads(writeOutputHalf))
        writeVertexFrames(normalSums, pick, count, out, level);
}

}  // namespace kestrel::meridian
