// Head swap through the C interface, checked against a resampling computed
// here from the numbers the test itself wrote into the model directory.
#include <cstdio>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "fixtures.h"
#include "headswap/head_converter.h"
#include "meridian/meridian.h"

namespace {

using meridian::testing::randomPlanarHead;
using meridian::testing::TempDir;

constexpr int kTemplate = 20481;

struct WeightedEntry {
    int a, b, c;
    double w0, w1, w2;
};

// Head topology: every template vertex, then `extras` vertices blended from
// random template triangles. Written 1-based (the base shifts the first two
// fields only; triangle corners stay 0-based) with three extra header lines.
std::vector<WeightedEntry> writeTemplateToHead(const TempDir& dir, int extras, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> vertex(0, kTemplate - 1);
    std::uniform_real_distribution<double> weight(0.0, 1.0);
    std::vector<WeightedEntry> entries;
    for (int k = 0; k < kTemplate; ++k) entries.push_back({k, vertex(rng), vertex(rng), 1, 0, 0});
    for (int k = 0; k < extras; ++k) {
        const double u = weight(rng), v = weight(rng) * (1 - u);
        entries.push_back({vertex(rng), vertex(rng), vertex(rng), u, v, 1 - u - v});
    }
    std::ostringstream text;
    text.precision(17);
    text << "# base 1\n# element count " << entries.size()
         << "\n# source tavi\n# target head\n# weighted\n# end_header\n";
    for (size_t k = 0; k < entries.size(); ++k) {
        const auto& e = entries[k];
        text << k + 1 << ' ' << k + 1 << ' ' << e.a << ' ' << e.b << ' ' << e.c << ' ' << e.w0
             << ' ' << e.w1 << ' ' << e.w2 << '\n';
    }
    dir.write("idx_tavi2head.corresp", text.str());
    return entries;
}

// Engine order: every head vertex once, shuffled, plus `duplicates` repeats
// (seams). Pair form, base 0, exactly two extra header lines.
std::vector<int> writeHeadToEngine(const TempDir& dir, int headCount, int duplicates,
                                   unsigned seed) {
    std::mt19937 rng(seed);
    std::vector<int> sources(headCount);
    for (int k = 0; k < headCount; ++k) sources[k] = k;
    std::uniform_int_distribution<int> vertex(0, headCount - 1);
    for (int k = 0; k < duplicates; ++k) sources.push_back(vertex(rng));
    std::shuffle(sources.begin(), sources.end(), rng);
    std::ostringstream text;
    text << "# base 0\n# element count " << sources.size() << "\n# a\n# b\n# end_header\n";
    for (size_t k = 0; k < sources.size(); ++k) text << k << ' ' << sources[k] << '\n';
    dir.write("idx_head2ue4.corresp", text.str());
    return sources;
}

class HeadSwap : public ::testing::Test {
  protected:
    void TearDown() override { AI_system_over(); }
};

TEST_F(HeadSwap, MatchesIndependentResampling) {
    TempDir dir;
    const auto head = writeTemplateToHead(dir, 250, 1);
    const auto engine = writeHeadToEngine(dir, static_cast<int>(head.size()), 133, 2);
    const meridian_handle handle = AI_system_init_swaphead(dir.str().c_str());
    ASSERT_NE(handle, 0u);

    const auto face = randomPlanarHead(3);
    const int n = static_cast<int>(engine.size());
    std::vector<float> out(3 * n, -1.0f);
    ASSERT_EQ(AI_swap_head(handle, face.data(), out.data(), 61443), n);

    int mismatches = 0;
    for (int k = 0; k < n; ++k) {
        const WeightedEntry& e = head[engine[k]];
        for (int r = 0; r < 3; ++r) {
            const float* f = face.data() + r * kTemplate;
            const double blended = e.w0 * f[e.a] + e.w1 * f[e.b] + e.w2 * f[e.c];
            mismatches += out[r * n + k] != static_cast<float>(blended);
        }
    }
    EXPECT_EQ(mismatches, 0);
}

TEST_F(HeadSwap, PairOnlyCorrespondencesCopyInputExactly) {
    TempDir dir;
    std::ostringstream text;
    text << "# base 0\n# element count " << kTemplate << "\n# a\n# b\n# end_header\n";
    for (int k = 0; k < kTemplate; ++k) text << k << ' ' << kTemplate - 1 - k << '\n';
    dir.write("idx_tavi2head.corresp", text.str());
    const auto engine = writeHeadToEngine(dir, kTemplate, 40, 4);
    const meridian_handle handle = AI_system_init_swaphead(dir.str().c_str());
    ASSERT_NE(handle, 0u);

    const auto face = randomPlanarHead(5);
    const int n = static_cast<int>(engine.size());
    std::vector<float> out(3 * n);
    // The count argument is ignored: the input always has 20481 vertices.
    for (int64_t count : {int64_t{0}, int64_t{-7}, int64_t{1} << 40}) {
        ASSERT_EQ(AI_swap_head(handle, face.data(), out.data(), count), n);
        for (int k = 0; k < n; ++k)
            for (int r = 0; r < 3; ++r)
                ASSERT_EQ(out[r * n + k], face[r * kTemplate + (kTemplate - 1 - engine[k])]);
    }
}

TEST_F(HeadSwap, TrailingSeparatorLoadsTheSameFiles) {
    TempDir dir;
    writeTemplateToHead(dir, 10, 6);
    writeHeadToEngine(dir, kTemplate + 10, 5, 7);
    const meridian_handle plain = AI_system_init_swaphead(dir.str().c_str());
    const meridian_handle slashed = AI_system_init_swaphead((dir.str() + "/").c_str());
    ASSERT_NE(plain, 0u);
    ASSERT_NE(slashed, 0u);
    const auto face = randomPlanarHead(8);
    std::vector<float> a(3 * (kTemplate + 15)), b(a.size());
    EXPECT_EQ(AI_swap_head(plain, face.data(), a.data(), 0),
              AI_swap_head(slashed, face.data(), b.data(), 0));
    EXPECT_EQ(a, b);
}

TEST_F(HeadSwap, MissingSecondFileKeepsFirstLoaded) {
    TempDir dir;
    writeTemplateToHead(dir, 3, 9);
    kestrel::meridian::CHeadConverter converter;
    ::testing::internal::CaptureStdout();
    EXPECT_FALSE(converter.initialise(dir.str()));
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "Invalid correspondence file: " + dir.file("idx_head2ue4.corresp") + "\n");
    EXPECT_EQ(converter.templateToHead().size(), static_cast<size_t>(kTemplate + 3));
    EXPECT_EQ(converter.headToEngine().size(), 0u);

    ::testing::internal::CaptureStdout();
    EXPECT_EQ(AI_system_init_swaphead(dir.str().c_str()), 0u);
    ::testing::internal::GetCapturedStdout();
}

TEST_F(HeadSwap, MissingFirstFileIsTheOnlyMessage) {
    TempDir dir;
    writeHeadToEngine(dir, 10, 0, 10);
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(AI_system_init_swaphead(dir.str().c_str()), 0u);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "Invalid correspondence file: " + dir.file("idx_tavi2head.corresp") + "\n");
}

TEST_F(HeadSwap, SourceIndexOutsideItsMeshFailsInitNamingTheEntry) {
    {
        // A triangle corner past the last template vertex.
        TempDir dir;
        auto text = std::string("# base 0\n# element count 3\n# w\n# end_header\n") +
                    "0 0 0 1 2 1 0 0\n1 1 5 20481 7 0.5 0.5 0\n2 2 1 2 3 1 0 0\n";
        dir.write("idx_tavi2head.corresp", text);
        writeHeadToEngine(dir, 3, 0, 11);
        ::testing::internal::CaptureStdout();
        EXPECT_EQ(AI_system_init_swaphead(dir.str().c_str()), 0u);
        EXPECT_EQ(::testing::internal::GetCapturedStdout(),
                  dir.file("idx_tavi2head.corresp") +
                      ": entry 1 names source vertex 20481, outside 0..20480\n");
    }
    {
        // A 1-based pair file whose source 0 becomes -1.
        TempDir dir;
        writeTemplateToHead(dir, 0, 12);
        dir.write("idx_head2ue4.corresp",
                  "# base 1\n# element count 2\n# a\n# b\n# end_header\n1 1\n2 0\n");
        ::testing::internal::CaptureStdout();
        EXPECT_EQ(AI_system_init_swaphead(dir.str().c_str()), 0u);
        EXPECT_EQ(::testing::internal::GetCapturedStdout(),
                  dir.file("idx_head2ue4.corresp") +
                      ": entry 1 names source vertex -1, outside 0..20480\n");
    }
}

TEST_F(HeadSwap, CorruptElementCountFailsInitWithoutThrowing) {
    TempDir dir;
    dir.write("idx_tavi2head.corresp", "# base 0\n# element count 2000000000\n# end_header\n");
    writeHeadToEngine(dir, 3, 0, 13);
    EXPECT_EQ(AI_system_init_swaphead(dir.str().c_str()), 0u);
}

}  // namespace
