// Several results round a double to float and widen it back on purpose. GCC
// 12 at -O2 miscompiles that round trip when it pairs neighbouring values,
// unless the build turns its SLP vectoriser off; this guards the build.
#include <gtest/gtest.h>

namespace {

struct Pair {
    double a, b;
};

__attribute__((noinline)) Pair roundPairToFloat(const Pair& p) {
    return {static_cast<double>(static_cast<float>(p.a)),
            static_cast<double>(static_cast<float>(p.b))};
}

TEST(FloatRounding, NeighbouringRoundTripsKeepTheirRounding) {
    const Pair rounded = roundPairToFloat({0.1, 0.2});
    EXPECT_EQ(rounded.a, static_cast<double>(0.1f));
    EXPECT_EQ(rounded.b, static_cast<double>(0.2f));
    EXPECT_NE(rounded.a, 0.1);
}

}  // namespace
