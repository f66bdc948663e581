// Normalising many 3-vectors given one array per coordinate: square roots
// and divisions are most of the work, so they run as wide as the processor
// allows. Every width does, lane by lane, the scalar code's operations in
// its order, so the width changes speed only.
#pragma once

#include "simd/simd_level.h"

namespace meridian::exporter {

/// For i in 0..count-1: length[i] = sqrt((x[i]^2 + y[i]^2) + z[i]^2), the
/// sum in the order a 3-vector's norm takes it, then x[i], y[i] and z[i]
/// divided by it (whatever the length: a zero or NaN length is the caller's
/// to handle). `x`, `y`, `z` and `length` each hold `count` doubles.
/// `level` picks the kernel (scalar when this build or processor lacks it).
void unitColumns(double* x, double* y, double* z, double* length, int count,
                 kestrel::meridian::simd::Level level);

/// unitColumns at the widest level this processor has.
void unitColumns(double* x, double* y, double* z, double* length, int count);

namespace kernels {
void unitColumnsSse2(double* x, double* y, double* z, double* length, int count);
void unitColumnsAvx(double* x, double* y, double* z, double* length, int count);
void unitColumnsAvx512(double* x, double* y, double* z, double* length, int count);
}  // namespace kernels

}  // namespace meridian::exporter
