// The kept second thread of the tangent-frame passes: each half of a job
// runs exactly once, the halves on two threads, job after job; a caller
// that finds the thread busy is refused at once and runs nothing.
#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tbn/paired_thread.h"

namespace km = kestrel::meridian;

TEST(PairedThread, RunsEachHalfOnceOnItsOwnThreadJobAfterJob) {
    km::PairedThread pair;
    const std::thread::id caller = std::this_thread::get_id();
    std::thread::id helper;
    constexpr int kJobs = 2000;
    std::vector<int> runs(2 * kJobs, 0);
    for (int job = 0; job < kJobs; ++job) {
        const bool ran = pair.runHalves([&](int half) {
            ++runs[2 * job + half];
            if (half == 1) {
                EXPECT_NE(std::this_thread::get_id(), caller);
                if (job == 0) helper = std::this_thread::get_id();
                EXPECT_EQ(std::this_thread::get_id(), helper);  // the thread is kept
            } else {
                EXPECT_EQ(std::this_thread::get_id(), caller);
            }
        });
        ASSERT_TRUE(ran);
        // Both halves are done when the call returns.
        ASSERT_EQ(runs[2 * job], 1) << job;
        ASSERT_EQ(runs[2 * job + 1], 1) << job;
    }
}

TEST(PairedThread, ASecondCallerIsRefusedWhileTheThreadIsInUse) {
    km::PairedThread pair;
    std::atomic<int> otherRuns{0};
    bool otherRan = true;
    const bool ran = pair.runHalves([&](int half) {
        if (half != 0) return;
        // Another caller, started and finished inside this job.
        std::thread other([&] { otherRan = pair.runHalves([&](int) { ++otherRuns; }); });
        other.join();
    });
    EXPECT_TRUE(ran);
    EXPECT_FALSE(otherRan);
    EXPECT_EQ(otherRuns.load(), 0);
    // Free again afterwards.
    EXPECT_TRUE(pair.runHalves([&](int) { ++otherRuns; }));
    EXPECT_EQ(otherRuns.load(), 2);
}

TEST(PairedThread, CallersOnManyThreadsEachGetTheirJobDoneOnce) {
    // Whether a caller gets the pair or runs alone, every job is done once:
    // the callers count their own halves.
    km::PairedThread pair;
    constexpr int kCallers = 4, kJobs = 300;
    std::atomic<int> halves{0}, alone{0};
    std::vector<std::thread> callers;
    for (int c = 0; c < kCallers; ++c)
        callers.emplace_back([&] {
            for (int job = 0; job < kJobs; ++job) {
                std::atomic<int> mine{0};
                if (!pair.runHalves([&](int) { ++mine; })) {
                    ++alone;
                    mine += 2;  // as the caller would run both halves itself
                }
                EXPECT_EQ(mine.load(), 2);
                halves += mine.load();
            }
        });
    for (std::thread& t : callers) t.join();
    EXPECT_EQ(halves.load(), 2 * kCallers * kJobs);
    EXPECT_LT(alone.load(), kCallers * kJobs);  // some got the pair
}

#if !defined(_WIN32)
#include <unistd.h>

TEST(PairedThread, AForkedChildStartsAThreadOfItsOwn) {
    // The child has the started object but not the thread: a job there must
    // still get both halves done, not wait for a thread that is not there.
    km::PairedThread pair;
    ASSERT_TRUE(pair.runHalves([](int) {}));
    EXPECT_EXIT(
        {
            std::atomic<int> halves{0};
            const bool ran = pair.runHalves([&](int) { ++halves; });
            // _exit: the child also holds what the parent's threads own
            // (their thread_local buffers), which a leak check at exit
            // would count as its own.
            _exit(ran && halves.load() == 2 ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}
#endif
