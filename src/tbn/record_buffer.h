// Growable storage for records of four doubles, aligned to a cache line so
// that no 32-byte record straddles two lines.
#pragma once

#include <cstddef>
#include <memory>
#include <new>

namespace kestrel::meridian {

/// Doubles on a 64-byte boundary; the contents are unspecified after a
/// growth (callers overwrite what they read).
class RecordBuffer {
  public:
    /// At least `count` doubles from data(); keeps the storage when it is
    /// already large enough.
    double* reserve(size_t count) {
        if (count > capacity_) {
            storage_.reset(static_cast<double*>(
                ::operator new (count * sizeof(double), std::align_val_t{kAlignment})));
            capacity_ = count;
        }
        return storage_.get();
    }

  private:
    static constexpr size_t kAlignment = 64;
    struct Release {
        void operator()(double* p) const { ::operator delete (p, std::align_val_t{kAlignment}); }
    };
    std::unique_ptr<double, Release> storage_;
    size_t capacity_ = 0;
};

}  // namespace kestrel::meridian
