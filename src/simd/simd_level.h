// The vector instruction sets the wide kernels are built for, and the choice
// among them at run time. Every kernel does, lane by lane, the scalar code's
// operations in the scalar code's order, so the choice changes speed only.
#pragma once

namespace kestrel::meridian::simd {

/// Instruction sets, narrowest first. Lanes of double: 1, 2, 4, 4, 8.
enum class Level { scalar, sse2, avx, avx2, avx512 };

/// Every level, narrowest first.
inline constexpr Level kLevels[] = {Level::scalar, Level::sse2, Level::avx, Level::avx2,
                                    Level::avx512};

/// "scalar", "sse2", "avx", "avx2" or "avx512".
const char* levelName(Level level);

/// Whether this build has kernels for `level` and this processor and its
/// operating system run them.
bool levelAvailable(Level level);

/// The widest available level; what the kernels use unless told otherwise.
Level widestLevel();

}  // namespace kestrel::meridian::simd
