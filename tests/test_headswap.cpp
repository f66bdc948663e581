// Head swap through the C interface, checked against a resampling computed
// here from the numbers the test itself wrote into the model directory.
#include <algorithm>
#include <cstring>
#include <filesystem>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "fixtures.h"
#include "headswap/head_converter.h"
#include "io/planar.h"
#include "meridian/meridian.h"

namespace {

using meridian::testing::randomPlanarHead;
using meridian::testing::TempDir;

constexpr int kTemplate = 20481;

struct WeightedEntry {
    int a, b, c;
    double w0, w1, w2;
};

void writeTemplateEntries(const TempDir& dir, const std::vector<WeightedEntry>& entries,
                          bool pairForm) {
    std::ostringstream text;
    text.precision(17);
    text << "# base " << !pairForm << "\n# element count " << entries.size()
         << (pairForm ? "\n# a\n# b\n" : "\n# source tavi\n# target head\n# weighted\n")
         << "# end_header\n";
    for (size_t k = 0; k < entries.size(); ++k) {
        const auto& e = entries[k];
        if (pairForm)
            text << k << ' ' << e.a << '\n';
        else
            text << k + 1 << ' ' << k + 1 << ' ' << e.a << ' ' << e.b << ' ' << e.c << ' ' << e.w0
                 << ' ' << e.w1 << ' ' << e.w2 << '\n';
    }
    dir.write("idx_tavi2head.corresp", text.str());
}

// Head topology. Weighted form: every template vertex, then `extras`
// vertices blended from random template triangles, written 1-based (the
// base shifts the first two fields only; triangle corners stay 0-based) with
// three extra header lines. Pair form: the template reversed, base 0, two
// extra header lines.
std::vector<WeightedEntry> writeTemplateToHead(const TempDir& dir, bool pairForm, int extras,
                                               unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> vertex(0, kTemplate - 1);
    std::uniform_real_distribution<double> weight(0.0, 1.0);
    std::vector<WeightedEntry> entries;
    for (int k = 0; k < kTemplate; ++k)
        entries.push_back(pairForm ? WeightedEntry{kTemplate - 1 - k, 0, 0, 1, 0, 0}
                                   : WeightedEntry{k, vertex(rng), vertex(rng), 1, 0, 0});
    for (int k = 0; k < extras; ++k) {
        const double u = weight(rng), v = weight(rng) * (1 - u);
        entries.push_back({vertex(rng), vertex(rng), vertex(rng), u, v, 1 - u - v});
    }
    writeTemplateEntries(dir, entries, pairForm);
    return entries;
}

void writeEngineOrder(const TempDir& dir, const std::vector<int>& sources) {
    std::ostringstream text;
    text << "# base 0\n# element count " << sources.size() << "\n# a\n# b\n# end_header\n";
    for (size_t k = 0; k < sources.size(); ++k) text << k << ' ' << sources[k] << '\n';
    dir.write("idx_head2ue4.corresp", text.str());
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
    writeEngineOrder(dir, sources);
    return sources;
}

class HeadSwap : public ::testing::Test {
  protected:
    void TearDown() override { AI_system_over(); }
};

TEST_F(HeadSwap, MatchesIndependentResampling) {
    for (const bool pairForm : {false, true}) {
        SCOPED_TRACE(pairForm ? "pair form" : "weighted form");
        TempDir dir;
        const auto head = writeTemplateToHead(dir, pairForm, pairForm ? 0 : 250, 1);
        const auto engine = writeHeadToEngine(dir, static_cast<int>(head.size()), 133, 2);
        const auto face = randomPlanarHead(3);
        const int n = static_cast<int>(engine.size());
        // A trailing separator names the same files. The count argument is
        // ignored: the input always has 20481 vertices.
        for (const std::string& model : {dir.str(), dir.str() + "/"}) {
            const meridian_handle handle = AI_system_init_swaphead(model.c_str());
            ASSERT_NE(handle, 0u);
            for (int64_t count : {int64_t{61443}, int64_t{0}, int64_t{-7}, int64_t{1} << 40}) {
                std::vector<float> out(3 * n, -1.0f);
                ASSERT_EQ(AI_swap_head(handle, face.data(), out.data(), count), n);
                int mismatches = 0;
                for (int k = 0; k < n; ++k) {
                    const WeightedEntry& e = head[engine[k]];
                    for (int r = 0; r < 3; ++r) {
                        const float* f = face.data() + r * kTemplate;
                        const double blended = e.w0 * f[e.a] + e.w1 * f[e.b] + e.w2 * f[e.c];
                        mismatches += out[r * n + k] != static_cast<float>(blended);
                    }
                }
                EXPECT_EQ(mismatches, 0) << model << ", count " << count;
            }
        }
    }
}

// The swap with every instruction set the machine runs, against the two
// resamplings done one after the other in double: bit for bit, on input
// values whose results depend on the order of the operations (and -0.0,
// infinity, NaN among them).
void expectEveryInstructionSetMatchesTwoStepResampling(const TempDir& dir, unsigned seed) {
    namespace km = kestrel::meridian;
    using Planar = km::CHeadConverter::PlanarVertices;
    std::vector<float> face = randomPlanarHead(seed);
    face[17] = -0.0f;
    face[kTemplate + 99] = std::numeric_limits<float>::infinity();
    face[2 * kTemplate + 5] = std::numeric_limits<float>::quiet_NaN();
    km::CHeadConverter converter;
    km::Error error;
    ASSERT_TRUE(converter.initialise(dir.str(), error)) << error.message;
    const Eigen::Index n = converter.engineVertexCount();
    ASSERT_EQ(n % 2, 1);  // every width leaves a remainder

    const Eigen::Matrix3Xd onHead = km::applyCorrespondence(
        converter.templateToHead(), km::planarToVertices(face.data(), kTemplate));
    std::vector<float> expected(3 * static_cast<size_t>(n));
    km::matrixToPlanar(km::applyCorrespondence(converter.headToEngine(), onHead), expected.data());
    for (const km::simd::Level level : km::simd::kLevels) {
        if (!km::simd::levelAvailable(level)) continue;
        std::vector<float> out(expected.size(), -1.0f);
        converter.swap(Eigen::Map<const Planar>(face.data(), 3, kTemplate),
                       Eigen::Map<Planar>(out.data(), 3, n), level);
        EXPECT_EQ(std::memcmp(out.data(), expected.data(), out.size() * sizeof(float)), 0)
            << km::simd::levelName(level);
    }
}

// Random triangles in a shuffled engine order: every corner gathered.
TEST_F(HeadSwap, EveryInstructionSetMatchesTheTwoStepResamplingBitForBit) {
    TempDir dir;
    const auto head = writeTemplateToHead(dir, false, 251, 4);
    writeHeadToEngine(dir, static_cast<int>(head.size()), 137, 5);
    expectEveryInstructionSetMatchesTwoStepResampling(dir, 6);
}

// Corners that run through consecutive face vertices or repeat one vertex
// are read with plain loads and broadcasts instead of gathers. The cases mix
// such runs with breaks inside a block and with scattered corners.
TEST_F(HeadSwap, ConsecutiveAndRepeatedCornersMatchTheTwoStepResamplingBitForBit) {
    struct Case {
        const char* name;
        int runLength;      // corner a ascends, corner b repeats, for this many vertices
        int engineSwapGap;  // every this many engine vertices, two trade places (0: never)
    };
    const Case cases[] = {
        {"long runs, engine in head order", 4000, 0},
        {"long runs, engine order broken now and then", 4000, 29},
        {"runs of 8, shifted off the blocks", 8, 0},
        {"runs of 5, shorter than a block", 5, 0},
        {"runs of 3, engine order broken often", 3, 7},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::mt19937 rng(11);
        std::uniform_int_distribution<int> vertex(0, kTemplate - 1);
        std::uniform_real_distribution<double> weight(0.0, 1.0);
        std::vector<WeightedEntry> entries;
        int start = 0, repeated = 0;
        // Three head vertices first, so the runs start off the block bounds.
        for (int k = 0; k < kTemplate + 3; ++k) {
            if (k % c.runLength == 0) {
                start = vertex(rng) % (kTemplate - c.runLength);
                repeated = vertex(rng);
            }
            const double u = weight(rng), v = weight(rng) * (1 - u);
            entries.push_back({start + k % c.runLength, repeated, vertex(rng), u, v, 1 - u - v});
        }
        TempDir dir;
        writeTemplateEntries(dir, entries, false);
        std::vector<int> engine(entries.size());
        for (size_t k = 0; k < engine.size(); ++k) engine[k] = static_cast<int>(k);
        if (c.engineSwapGap > 0)
            for (size_t k = 0; k + 1 < engine.size(); k += c.engineSwapGap)
                std::swap(engine[k], engine[k + 1]);
        engine.push_back(12);  // a seam copy, and an odd count
        if (engine.size() % 2 == 0) engine.push_back(5);
        writeEngineOrder(dir, engine);
        expectEveryInstructionSetMatchesTwoStepResampling(dir, 12);
    }
}

TEST_F(HeadSwap, FailedInitsNameTheFileAndTheEntry) {
    TempDir dir;
    const std::string toHeadPath = dir.file("idx_tavi2head.corresp"),
                      toEnginePath = dir.file("idx_head2ue4.corresp");
    // Two head vertices in pair form, and an engine order over them.
    const std::string toHead = "# base 0\n# element count 2\n# a\n# b\n# end_header\n0 5\n1 7\n",
                      toEngine = "# base 0\n# element count 2\n# a\n# b\n# end_header\n0 1\n1 0\n";
    const struct {
        std::string toHead, toEngine, says;  // an empty text: no such file
    } cases[] = {
        // The first file missing is the only message.
        {"", toEngine, "Invalid correspondence file: " + toHeadPath},
        {toHead, "", "Invalid correspondence file: " + toEnginePath},
        // A triangle corner past the last template vertex.
        {"# base 0\n# element count 3\n# w\n# end_header\n"
         "0 0 0 1 2 1 0 0\n1 1 5 20481 7 0.5 0.5 0\n2 2 1 2 3 1 0 0\n",
         toEngine, toHeadPath + ": entry 1 names source vertex 20481, outside 0..20480"},
        // A 1-based pair file whose source 0 becomes -1; its sources are
        // head vertices.
        {toHead, "# base 1\n# element count 2\n# a\n# b\n# end_header\n1 1\n2 0\n",
         toEnginePath + ": entry 1 names source vertex -1, outside 0..1"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.says);
        std::filesystem::remove(toHeadPath);
        std::filesystem::remove(toEnginePath);
        if (!c.toHead.empty()) dir.write("idx_tavi2head.corresp", c.toHead);
        if (!c.toEngine.empty()) dir.write("idx_head2ue4.corresp", c.toEngine);
        ::testing::internal::CaptureStdout();
        EXPECT_EQ(AI_system_init_swaphead(dir.str().c_str()), 0u);
        EXPECT_EQ(::testing::internal::GetCapturedStdout(), c.says + "\n");
    }
    // A missing second file leaves the first loaded.
    std::filesystem::remove(toEnginePath);
    kestrel::meridian::CHeadConverter converter;
    kestrel::meridian::Error error;
    EXPECT_FALSE(converter.initialise(dir.str(), error));
    EXPECT_EQ(error.code, kestrel::meridian::ErrorCode::cannotOpenCorrespondence);
    EXPECT_EQ(converter.templateToHead().size(), 2u);
    EXPECT_EQ(converter.headToEngine().size(), 0u);
}

}  // namespace

namespace {

// Which blocks the swap reads without gathers: a kind only where the whole
// block has it, and no kind for the vertices after the last whole block.
TEST(HeadSwapBlockRuns, NameAKindOnlyForWholeBlocks) {
    using kestrel::meridian::headswap::blockRuns;
    using Run = kestrel::meridian::headswap::CornerRun;
    struct Case {
        const char* name;
        std::vector<int32_t> sources;  // the same list for all three corners
        std::vector<Run> expected;     // per block
    };
    const Case cases[] = {
        {"ascending", {4, 5, 6, 7, 8, 9, 10, 11}, {Run::contiguous}},
        {"repeated", {9, 9, 9, 9, 9, 9, 9, 9}, {Run::repeated}},
        {"ascending with a gap", {4, 5, 6, 7, 9, 10, 11, 12}, {Run::scattered}},
        {"descending", {11, 10, 9, 8, 7, 6, 5, 4}, {Run::scattered}},
        {"repeated but the last", {9, 9, 9, 9, 9, 9, 9, 8}, {Run::scattered}},
        {"ascending across the int32 limit",
         {2147483641, 2147483642, 2147483643, 2147483644, 2147483645, 2147483646, 2147483647,
          -2147483647 - 1},
         {Run::scattered}},
        {"a block and a part", {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, {Run::contiguous}},
        {"part of a block", {0, 1, 2, 3, 4}, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const int32_t* const corners[3] = {c.sources.data(), c.sources.data(), c.sources.data()};
        const auto runs = blockRuns(corners, static_cast<ptrdiff_t>(c.sources.size()));
        ASSERT_EQ(runs.size(), 3 * c.expected.size());
        for (size_t b = 0; b < c.expected.size(); ++b)
            for (size_t k = 0; k < 3; ++k) EXPECT_EQ(runs[3 * b + k], c.expected[b]);
    }
}

}  // namespace
