#include <atomic>
#include <cstdlib>

#include "ippcore.h"
#include "ipps.h"
#include "ipps_kernels.h"

namespace {

std::atomic<const ippk::KernelTable*> g_kernels{&ippk::kGeneric};

bool cpu_has_avx2() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
}

}  // namespace

const ippk::KernelTable& ippk::kernels() { return *g_kernels.load(std::memory_order_relaxed); }

IppStatus ippInit() {
    g_kernels.store(cpu_has_avx2() ? &ippk::kAVX2 : &ippk::kGeneric, std::memory_order_relaxed);
    return ippStsNoErr;
}

IppStatus ippSetKernelVariant(IppKernelVariant v) {
    switch (v) {
        case ippKernelGeneric:
            g_kernels.store(&ippk::kGeneric, std::memory_order_relaxed);
            return ippStsNoErr;
        case ippKernelAVX2:
            if (!cpu_has_avx2()) return ippStsCpuNotSupportedErr;
            g_kernels.store(&ippk::kAVX2, std::memory_order_relaxed);
            return ippStsNoErr;
    }
    return ippStsBadArgErr;
}

IppKernelVariant ippGetKernelVariant() {
    return g_kernels.load(std::memory_order_relaxed) == &ippk::kAVX2 ? ippKernelAVX2 : ippKernelGeneric;
}

// 64 bytes covers the widest vector registers and a cache line.
void* ippMalloc(int length) {
    if (length <= 0) return nullptr;
    const size_t bytes = (size_t(length) + 63) & ~size_t(63);
    return std::aligned_alloc(64, bytes);
}

void ippFree(void* ptr) { std::free(ptr); }

Ipp16s* ippsMalloc_16s(int len) {
    if (len <= 0 || size_t(len) > size_t(INT32_MAX) / sizeof(Ipp16s)) return nullptr;
    return static_cast<Ipp16s*>(ippMalloc(len * int(sizeof(Ipp16s))));
}

void ippsFree(void* ptr) { std::free(ptr); }
