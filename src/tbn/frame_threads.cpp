#include "tbn/frame_threads.h"

#include <thread>

#include "tbn/paired_thread.h"
#include "tbn/record_buffer.h"

namespace kestrel::meridian {

namespace {

// The records of `positions` for this thread: the caller's, or records
// [first, end) of all topology.vertexCount widened into a buffer the thread
// keeps between calls (the others are not read).
const double* recordsOf(const FramePositions& positions, Eigen::Index vertexCount,
                        Eigen::Index first, Eigen::Index end) {
    if (positions.records) return positions.records;
    thread_local RecordBuffer widened;
    double* records = widened.reserve(4 * static_cast<size_t>(vertexCount));
    if (positions.pick)
        widenToRecords(positions.planar, positions.stride, positions.pick + first, end - first,
                       records + 4 * first);
    else
        widenToRecords(positions.planar + first, positions.stride, nullptr, end - first,
                       records + 4 * first);
    return records;
}

}  // namespace

int frameThreadCount(size_t faceCount) {
    const bool twoCores = std::thread::hardware_concurrency() >= 2;
    return twoCores && faceCount >= kTwoThreadFaceCount ? 2 : 1;
}

void computeFramesOnThreads(const FrameTopology& topology, const FramePositions& positions,
                            double* normalSums, const int32_t* pick, Eigen::Index count, float* out,
                            int threads, simd::Level level) {
    const auto onOneThread = [&] {
        accumulateNormalSums(topology,
                             recordsOf(positions, topology.vertexCount, 0, topology.vertexCount),
                             normalSums, level);
        writeVertexFrames(normalSums, pick, count, out, level);
    };
#if defined(_WIN32)
    // A thread kept by a DLL cannot be joined safely while the DLL unloads.
    threads = 1;
#endif
    if (threads < 2) {
        onOneThread();
        return;
    }
    // Unpicked outputs are the vertices themselves: each thread writes the
    // frames of its own half as soon as its sums are done. Picked outputs
    // read sums of either half, so both face passes end before the outputs,
    // split in two, are written by the pair again.
    const auto sumHalf = [&](int half) {
        const FrameHalf& part = topology.halves[half];
        const double* records =
            recordsOf(positions, topology.vertexCount, part.firstCorner, part.endCorner);
        accumulateNormalSumsOf(topology, half, records, normalSums, level);
        if (!pick)
            writeVertexFrameRange(normalSums, nullptr, count, part.firstVertex, part.endVertex, out,
                                  level);
    };
    const Eigen::Index middle = count / 2;
    const auto writeOutputHalf = [&](int half) {
        writeVertexFrameRange(normalSums, pick, count, half == 0 ? 0 : middle,
                              half == 0 ? middle : count, out, level);
    };
    PairedThread& pair = PairedThread::shared();
    if (!pair.runHalves(sumHalf)) {
        onOneThread();
        return;
    }
    if (pick && !pair.runHalves(writeOutputHalf))
        writeVertexFrames(normalSums, pick, count, out, level);
}

}  // namespace kestrel::meridian
