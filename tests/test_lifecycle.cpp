// Engine lifetime behind the C interface: handles, failed inits, tear-down
// and re-initialisation.
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "api/registry.h"
#include "fixtures.h"
#include "meridian/meridian.h"

namespace {

using meridian::testing::randomPlanarHead;
using meridian::testing::TempDir;

constexpr int kTemplate = 20481;

// The smallest valid head-swap model: identity template-to-head and an
// engine order that lists `engineCount` head vertices.
void writeIdentityModel(const TempDir& dir, int engineCount) {
    std::ostringstream head, engine;
    head << "# base 0\n# element count " << kTemplate << "\n# a\n# b\n# end_header\n";
    for (int k = 0; k < kTemplate; ++k) head << k << ' ' << k << '\n';
    engine << "# base 0\n# element count " << engineCount << "\n# a\n# b\n# end_header\n";
    for (int k = 0; k < engineCount; ++k) engine << k << ' ' << (k * 7) % kTemplate << '\n';
    dir.write("idx_tavi2head.corresp", head.str());
    dir.write("idx_head2ue4.corresp", engine.str());
}

class Lifecycle : public ::testing::Test {
  protected:
    void SetUp() override { writeIdentityModel(model_, 64); }
    void TearDown() override { AI_system_over(); }

    // True when the call succeeded; false when it returned 0 and left the
    // output untouched.
    bool swapWorks(meridian_handle handle) {
        std::vector<float> out(3 * 64, 123.0f);
        const int32_t n = AI_swap_head(handle, face_.data(), out.data(), 0);
        if (n == 0) {
            for (float v : out) EXPECT_EQ(v, 123.0f) << "a rejected call wrote output";
            return false;
        }
        EXPECT_EQ(n, 64);
        EXPECT_EQ(out[0], face_[0]);
        EXPECT_EQ(out[64 + 1], face_[kTemplate + 7]);
        return true;
    }

    TempDir model_;
    std::vector<float> face_ = randomPlanarHead(21);
};

TEST_F(Lifecycle, HandlesLiveUntilOverAndBadOnesAreRejectedSilently) {
    // Nothing initialised yet: tearing down is fine, twice.
    EXPECT_EQ(AI_system_over(), 1);
    EXPECT_EQ(AI_system_over(), 1);

    const meridian_handle first = AI_system_init_swaphead(model_.str().c_str());
    ASSERT_NE(first, 0u);
    TempDir empty;
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(AI_system_init_swaphead(empty.str().c_str()), 0u);
    EXPECT_EQ(AI_system_init_swaphead(nullptr), 0u);
    ::testing::internal::GetCapturedStdout();

    // A failed engine stays registered but has no handle: the numbers after
    // the good one name nothing. Zero, foreign and null arguments neither.
    ::testing::internal::CaptureStdout();
    for (meridian_handle next = first + 1; next < first + 4; ++next) EXPECT_FALSE(swapWorks(next));
    EXPECT_FALSE(swapWorks(0));
    int local = 0;
    EXPECT_FALSE(swapWorks(reinterpret_cast<meridian_handle>(&local)));
    EXPECT_EQ(AI_swap_head(first, nullptr, nullptr, 0), 0);

    // Handles stay valid while more engines are created.
    std::vector<meridian_handle> more;
    for (int i = 0; i < 40; ++i) more.push_back(AI_system_init_swaphead(model_.str().c_str()));
    EXPECT_TRUE(swapWorks(first));
    for (meridian_handle h : more) EXPECT_TRUE(swapWorks(h));

    // Tear-down kills them all; a new engine works, the old handles stay dead.
    AI_system_over();
    EXPECT_FALSE(swapWorks(first));
    EXPECT_FALSE(swapWorks(more.back()));
    const meridian_handle again = AI_system_init_swaphead(model_.str().c_str());
    ASSERT_NE(again, 0u);
    EXPECT_TRUE(swapWorks(again));
    EXPECT_FALSE(swapWorks(first));
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
}

// Registry behaviour that the C interface cannot show directly.
struct Probe {
    int value = 0;
};

TEST(Registry, FailedEnginesStayRegisteredUntilCleared) {
    kestrel::meridian::api::Registry<Probe> registry;
    const auto ok = registry.registerAndInit([](Probe& p) { return (p.value = 1) == 1; });
    const auto failed = registry.registerAndInit([](Probe&) { return false; });
    EXPECT_NE(ok, 0u);
    EXPECT_EQ(failed, 0u);
    EXPECT_EQ(registry.size(), 2u);

    auto held = registry.find(ok);
    ASSERT_TRUE(held);
    registry.clear();
    EXPECT_EQ(registry.size(), 0u);
    EXPECT_FALSE(registry.find(ok));
    // A run call's copy keeps its engine alive through a tear-down.
    EXPECT_EQ(held->value, 1);
    EXPECT_EQ(held.use_count(), 1);
}

TEST(Registry, GuardedTurnsExceptionsIntoTheFailureValue) {
    using kestrel::meridian::api::guarded;
    EXPECT_EQ(guarded(-1, []() -> int { throw std::bad_alloc(); }), -1);
    EXPECT_EQ(guarded(0, []() -> int { throw 42; }), 0);
    EXPECT_EQ(guarded(0, [] { return 7; }), 7);
}

}  // namespace
