// The one kernel behind every width of unitColumns, over a lanes type from
// src/simd/ (load, store, add, mul, div, sqrt). Include only from a
// translation unit built for that width: like the lanes types, it sits in
// an anonymous namespace.
#pragma once

#include <cmath>

namespace {

template <typename Lanes>
void unitColumnsWide(double* x, double* y, double* z, double* length, int count) {
    int i = 0;
    for (; i + Lanes::kLanes <= count; i += Lanes::kLanes) {
        const auto vx = Lanes::load(x + i), vy = Lanes::load(y + i), vz = Lanes::load(z + i);
        const auto squares =
            Lanes::add(Lanes::add(Lanes::mul(vx, vx), Lanes::mul(vy, vy)), Lanes::mul(vz, vz));
        const auto norm = Lanes::sqrt(squares);
        Lanes::store(length + i, norm);
        Lanes::store(x + i, Lanes::div(vx, norm));
        Lanes::store(y + i, Lanes::div(vy, norm));
        Lanes::store(z + i, Lanes::div(vz, norm));
    }
    for (; i < count; ++i) {
        length[i] = std::sqrt((x[i] * x[i] + y[i] * y[i]) + z[i] * z[i]);
        x[i] /= length[i];
        y[i] /= length[i];
        z[i] /= length[i];
    }
}

}  // namespace
