// Helpers of the vector-layer tests: seeded random data, a buffer that can
// hand out pointers off the 64-byte grid, and the kernel variants of this
// processor.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "ipp.h"

namespace ipptest {

// Storage with room to start the data `offset` bytes past a 64-byte
// boundary, so kernels see unaligned pointers.
template <typename T>
class Buf {
public:
    Buf(int n, int offsetElems) : raw_(size_t(n + offsetElems) * sizeof(T) + 64) {
        auto base = (reinterpret_cast<uintptr_t>(raw_.data()) + 63) & ~uintptr_t(63);
        ptr_ = reinterpret_cast<T*>(base) + offsetElems;
    }
    T* get() { return ptr_; }
    T& operator[](int i) { return ptr_[i]; }

private:
    std::vector<unsigned char> raw_;
    T* ptr_;
};

inline std::vector<float> randf(int n, unsigned seed, float lo = -1.0f, float hi = 1.0f) {
    std::mt19937 g(seed);
    std::uniform_real_distribution<float> d(lo, hi);
    std::vector<float> v(static_cast<size_t>(n));
    for (auto& x : v) x = d(g);
    return v;
}

inline std::vector<double> randd(int n, unsigned seed) {
    std::mt19937 g(seed);
    std::uniform_real_distribution<double> d(-1.0, 1.0);
    std::vector<double> v(static_cast<size_t>(n));
    for (auto& x : v) x = d(g);
    return v;
}

// Variants this processor runs: always the generic one.
inline std::vector<IppKernelVariant> variants() {
    std::vector<IppKernelVariant> v{ippKernelGeneric};
    const IppKernelVariant before = ippGetKernelVariant();
    if (ippSetKernelVariant(ippKernelAVX2) == ippStsNoErr) v.push_back(ippKernelAVX2);
    ippSetKernelVariant(before);
    return v;
}

// Restores the variant chosen by ippInit when a test ends.
struct VariantScope {
    explicit VariantScope(IppKernelVariant v) { ippSetKernelVariant(v); }
    ~VariantScope() { ippInit(); }
};

}  // namespace ipptest
