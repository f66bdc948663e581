// Which corners of the head swap's blend can be read without a gather: the
// map is fixed at initialisation, so this is decided once, not per call.
#include "headswap/blend_kernels.h"

namespace kestrel::meridian::headswap {

namespace {

CornerRun runOf(const int32_t* sources) {
    bool contiguous = true;
    bool repeated = true;
    for (ptrdiff_t i = 1; i < kBlendBlock; ++i) {
        contiguous = contiguous && static_cast<int64_t>(sources[i]) == int64_t{sources[0]} + i;
        repeated = repeated && sources[i] == sources[0];
    }
    if (contiguous) return CornerRun::contiguous;
    if (repeated) return CornerRun::repeated;
    return CornerRun::scattered;
}

}  // namespace

std::vector<CornerRun> blockRuns(const int32_t* const corners[3], ptrdiff_t count) {
    const ptrdiff_t blocks = count / kBlendBlock;
    std::vector<CornerRun> runs(3 * static_cast<size_t>(blocks));
    for (ptrdiff_t b = 0; b < blocks; ++b)
        for (int k = 0; k < 3; ++k)
            runs[static_cast<size_t>(3 * b + k)] = runOf(corners[k] + b * kBlendBlock);
    return runs;
}

}  // namespace kestrel::meridian::headswap
