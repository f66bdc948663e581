// Lifecycle soak: many init / run / AI_system_over cycles of every engine
// kind in one process. Heap in use and resident memory must not grow with
// the number of cycles, and handles of an earlier cycle must stay dead while
// the engines of later cycles live.
#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "fixtures.h"
#include "meridian/meridian.h"

namespace {

using meridian::testing::randomPlanarHead;
using meridian::testing::TempDir;

// MERIDIAN_SOAK_CYCLES overrides the count, e.g. for a quick run by hand.
int cycleCount() {
    const char* value = std::getenv("MERIDIAN_SOAK_CYCLES");
    return value ? std::atoi(value) : 10000;
}
constexpr int kWarmUpCycles = 200;
// Allowed growth between the end of the warm-up and the last cycle.
constexpr size_t kHeapBound = 16 * 1024;
constexpr size_t kResidentBound = 1024 * 1024;

constexpr int kHead = 20481;
constexpr int kEngineVertices = 5;
constexpr int kSplitVertices = 4;

// The smallest model every engine kind accepts: a 3-vertex head-swap chain,
// a one-face tangent-frame template, and index lists onto it.
void writeTinyModel(const TempDir& dir) {
    dir.write("idx_tavi2head.corresp",
              "# base 0\n# element count 3\n# a\n# b\n# end_header\n0 7\n1 300\n2 20480\n");
    dir.write("idx_head2ue4.corresp",
              "# base 0\n# element count 5\n# a\n# b\n# end_header\n0 0\n1 1\n2 2\n3 1\n4 0\n");
    const std::string face = "v 0 0 0\nv 1 0 0\nv 0 1 0\nvt 0 0\nvt 1 0\nvt 0 1\nf 1/1 2/2 3/3\n";
    dir.write("TBN/std_20481_with_UV_F_TF.obj", face);
    dir.write("TBN/split.obj", face);
    dir.write("TBN/tavi2head.txt", "0 1 2\n");
    dir.write("TBN/head2tavi.txt", "0 1 2 1\n");
}

// One engine kind: `cycle` creates an engine, runs it once, checks the
// result, and returns the handle (0 for a singleton kind).
struct EngineKind {
    const char* name;
    std::function<meridian_handle(const TempDir&, const std::vector<float>&)> cycle;
    // Runs a handle of this kind; true when the call was accepted.
    std::function<bool(meridian_handle, const std::vector<float>&)> accepts;
};

bool tbnGeneralAccepts(meridian_handle handle, const std::vector<float>& head) {
    std::vector<float> frames(9 * kSplitVertices, -5.0f);
    AI_get_TBN_g(handle, head.data(), frames.data());
    return frames[0] != -5.0f;
}

const std::vector<EngineKind>& engineKinds() {
    static const std::vector<EngineKind> kinds = {
        {"head swap",
         [](const TempDir& model, const std::vector<float>& head) -> meridian_handle {
             const meridian_handle handle = AI_system_init_swaphead(model.str().c_str());
             std::vector<float> out(3 * kEngineVertices);
             if (AI_swap_head(handle, head.data(), out.data(), 0) != kEngineVertices) return 0;
             return out[1] == head[300] ? handle : 0;
         },
         [](meridian_handle handle, const std::vector<float>& head) {
             std::vector<float> out(3 * kEngineVertices);
             return AI_swap_head(handle, head.data(), out.data(), 0) != 0;
         }},
        {"fixed tangent frames",
         [](const TempDir& model, const std::vector<float>& head) -> meridian_handle {
             static std::vector<float> frames(9 * kHead);
             if (AI_system_init_TBN(model.str().c_str()) != 1) return 0;
             return AI_get_TBN(head.data(), frames.data()) == 1 && frames[0] == 1.0f;
         },
         nullptr},
        {"general tangent frames",
         [](const TempDir& model, const std::vector<float>& head) -> meridian_handle {
             const int toHead[] = {0, 1, 2};
             const int toTemplate[] = {0, 1, 2, 1};
             const meridian_handle handle = AI_system_init_TBN_g(
                 model.file("TBN/split.obj").c_str(), toHead, 3, toTemplate, kSplitVertices);
             return tbnGeneralAccepts(handle, head) ? handle : 0;
         },
         tbnGeneralAccepts},
        {"general tangent frames from files",
         [](const TempDir& model, const std::vector<float>& head) -> meridian_handle {
             const meridian_handle handle = AI_system_init_TBN_g2(
                 model.file("TBN/split.obj").c_str(), model.file("TBN/tavi2head.txt").c_str(),
                 model.file("TBN/head2tavi.txt").c_str());
             return tbnGeneralAccepts(handle, head) ? handle : 0;
         },
         tbnGeneralAccepts},
    };
    return kinds;
}

size_t heapInUse() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

size_t residentBytes() {
    long pages = 0, resident = 0;
    if (std::FILE* statm = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(statm, "%ld %ld", &pages, &resident) != 2) resident = 0;
        std::fclose(statm);
    }
    return static_cast<size_t>(resident) * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

// The bounds hold for the C library's allocator; AddressSanitizer's
// quarantine and valgrind's shadow memory grow by design.
bool plainAllocator() {
#if defined(__SANITIZE_ADDRESS__)
    return false;
#else
    const char* preload = std::getenv("LD_PRELOAD");
    return preload == nullptr || std::strstr(preload, "vgpreload") == nullptr;
#endif
}

TEST(LifecycleSoak, TenThousandCyclesOfEveryEngineKind) {
    TempDir model;
    writeTinyModel(model);
    const std::vector<float> head = randomPlanarHead(3);
    const std::vector<EngineKind>& kinds = engineKinds();
    std::vector<meridian_handle> previous(kinds.size(), 0);
    size_t heapStart = 0, residentStart = 0;

    const int cycles = cycleCount();
    for (int cycle = 0; cycle < cycles; ++cycle) {
        if (cycle == kWarmUpCycles) {
            heapStart = heapInUse();
            residentStart = residentBytes();
        }
        for (size_t k = 0; k < kinds.size(); ++k) {
            const meridian_handle handle = kinds[k].cycle(model, head);
            ASSERT_NE(handle, 0u) << kinds[k].name << " failed in cycle " << cycle;
            // The engine of the last cycle is gone, even now that a new one
            // of its kind lives.
            if (kinds[k].accepts && previous[k] != 0) {
                ASSERT_FALSE(kinds[k].accepts(previous[k], head))
                    << kinds[k].name << ": a handle of cycle " << cycle - 1 << " still works";
            }
            previous[k] = handle;
        }
        ASSERT_EQ(AI_system_over(), 1);
    }

    const size_t heapEnd = heapInUse(), residentEnd = residentBytes();
    std::printf("heap in use: %zu -> %zu bytes; resident: %zu -> %zu KiB (cycles %d..%d)\n",
                heapStart, heapEnd, residentStart / 1024, residentEnd / 1024, kWarmUpCycles,
                cycles);
    if (!plainAllocator()) GTEST_SKIP() << "memory bounds need the plain allocator";
    EXPECT_LE(heapEnd, heapStart + kHeapBound);
    EXPECT_LE(residentEnd, residentStart + kResidentBound);
}

}  // namespace
