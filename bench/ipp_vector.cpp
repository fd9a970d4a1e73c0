// Element-wise kernels per variant, at a streaming block size (L1/L2
// resident) and at a full block (memory bound). Arg 0 is the variant.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <type_traits>
#include <vector>

#include "dsp/ipps_states.h"
#include "ipp.h"

namespace {

bool use_variant(benchmark::State& state) {
    if (ippSetKernelVariant(IppKernelVariant(state.range(0))) != ippStsNoErr) {
        state.SkipWithError("variant not supported here");
        return false;
    }
    state.SetLabel(state.range(0) ? "avx2" : "generic");
    return true;
}

template <typename T>
struct Arrays {
    explicit Arrays(int n) : a(static_cast<size_t>(n)), b(static_cast<size_t>(n)), d(static_cast<size_t>(n)) {
        for (int i = 0; i < n; ++i) {
            a.ptr[i] = T{};
            b.ptr[i] = T{};
        }
    }
    struct Block {
        explicit Block(size_t n) { ptr = static_cast<T*>(ippMalloc(int(n * sizeof(T)))); }
        ~Block() { ippFree(ptr); }
        T* ptr;
    } a, b, d;
};

void Convert16s32f(benchmark::State& state) {
    if (!use_variant(state)) return;
    const int n = int(state.range(1));
    std::vector<Ipp16s> s(size_t(n), 1234);
    Arrays<float> x(n);
    for (auto _ : state) {
        ippsConvert_16s32f_Sfs(s.data(), x.d.ptr, n, 15);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * n);
}

void Convert32f16s(benchmark::State& state) {
    const int n = int(state.range(1));
    Arrays<float> x(n);
    std::vector<Ipp16s> d(static_cast<size_t>(n));
    for (auto _ : state) {
        ippsConvert_32f16s_Sfs(x.a.ptr, d.data(), n, ippRndNear, -15);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * n);
}

// Functions of one value against memcpy of the same source bytes, at the
// same size: Copy<T> is the reference a kernel's time is held against.
template <typename S, typename D, IppStatus (*Fn)(const S*, D*, int)>
void Unary(benchmark::State& state) {
    if (!use_variant(state)) return;
    const int n = int(state.range(1));
    Arrays<S> x(n);
    Arrays<D> y(n);
    // Powers and magnitudes of a spectrum: positive, over many decades.
    typename Arrays<S>::Block& a = x.a;
    for (int i = 0; i < n; ++i) {
        const double v = std::ldexp(1.0 + double(i % 1000) / 1000.0, (i % 61) - 40);
        if constexpr (sizeof(S) == 2 * sizeof(D)) {
            a.ptr[i] = S{D(v), D(-0.5 * v)};
        } else {
            a.ptr[i] = S(v);
        }
    }
    for (auto _ : state) {
        Fn(a.ptr, y.d.ptr, n);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * n);
    state.SetBytesProcessed(state.iterations() * int64_t(n) * int64_t(sizeof(S)));
}

template <typename S>
void Copy(benchmark::State& state) {
    const int n = int(state.range(1));
    Arrays<S> x(n);
    for (auto _ : state) {
        std::memcpy(static_cast<void*>(x.d.ptr), static_cast<const void*>(x.a.ptr), size_t(n) * sizeof(S));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * n);
    state.SetBytesProcessed(state.iterations() * int64_t(n) * int64_t(sizeof(S)));
}

void Mul32f(benchmark::State& state) {
    if (!use_variant(state)) return;
    const int n = int(state.range(1));
    Arrays<float> x(n);
    for (auto _ : state) {
        ippsMul_32f(x.a.ptr, x.b.ptr, x.d.ptr, n);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * n);
}

void Mul32fc(benchmark::State& state) {
    if (!use_variant(state)) return;
    const int n = int(state.range(1));
    Arrays<Ipp32fc> x(n);
    for (auto _ : state) {
        ippsMul_32fc(x.a.ptr, x.b.ptr, x.d.ptr, n);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * n);
}

void Mul32fcInPlace(benchmark::State& state) {
    if (!use_variant(state)) return;
    const int n = int(state.range(1));
    Arrays<Ipp32fc> x(n);
    for (auto _ : state) {
        ippsMul_32fc(x.a.ptr, x.b.ptr, x.a.ptr, n);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * n);
}

void Add32fc(benchmark::State& state) {
    if (!use_variant(state)) return;
    const int n = int(state.range(1));
    Arrays<Ipp32fc> x(n);
    for (auto _ : state) {
        ippsAdd_32fc(x.a.ptr, x.b.ptr, x.d.ptr, n);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * n);
}

void PowerSpectr32fc(benchmark::State& state) {
    if (!use_variant(state)) return;
    const int n = int(state.range(1));
    Arrays<Ipp32fc> x(n);
    std::vector<float> p(static_cast<size_t>(n));
    for (auto _ : state) {
        ippsPowerSpectr_32fc(x.a.ptr, p.data(), n);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * n);
}

void Copy32f(benchmark::State& state) {
    const int n = int(state.range(1));
    Arrays<float> x(n);
    for (auto _ : state) {
        ippsCopy_32f(x.a.ptr, x.d.ptr, n);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * n);
}

// FIR filters at the audio chain's sizes: taps x samples per call.
template <typename Filter, typename T>
void RunFir(benchmark::State& state, int taps, int n) {
    Filter f;
    // Taps all non-zero: a filter with every other tap zero would run on
    // half of them.
    std::vector<T> h(size_t(taps), T{}), x(size_t(n), T{});
    for (int j = 0; j < taps; ++j) {
        if constexpr (std::is_same_v<T, Ipp32fc>)
            h[size_t(j)] = T{1.0f / float(j + 1), 0.5f / float(j + 1)};
        else
            h[size_t(j)] = T(1.0 / double(j + 1));
    }
    f.SetTaps(h.data(), taps);
    for (auto _ : state) {
        f.Filter(x.data(), x.data(), n);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * n);
}

void Fir32f256(benchmark::State& state) {
    if (use_variant(state)) RunFir<FIR_32f, Ipp32f>(state, 256, 40000);
}
void Fir64f2047(benchmark::State& state) {
    if (use_variant(state)) RunFir<FIR_64f, Ipp64f>(state, 2047, 40000);
}
void Fir32fc(benchmark::State& state) {
    if (use_variant(state)) RunFir<FIR_32fc, Ipp32fc>(state, int(state.range(1)), 24576);
}

void Sizes(benchmark::internal::Benchmark* b) {
    for (int v : {0, 1})
        for (int n : {4096, 393216}) b->Args({v, n});
}

}  // namespace

BENCHMARK(Convert16s32f)->Apply(Sizes);
BENCHMARK(Convert32f16s)->Args({0, 4096})->Args({0, 393216});
BENCHMARK(Unary<Ipp32fc, Ipp32f, ippsMagnitude_32fc>)->Name("Magnitude_32fc")->Apply(Sizes);
BENCHMARK(Unary<Ipp64fc, Ipp64f, ippsMagnitude_64fc>)->Name("Magnitude_64fc")->Apply(Sizes);
BENCHMARK(Unary<Ipp32f, Ipp32f, ippsLn_32f_A11>)->Name("Ln_32f")->Apply(Sizes);
BENCHMARK(Unary<Ipp64f, Ipp64f, ippsLn_64f>)->Name("Ln_64f")->Apply(Sizes);
BENCHMARK(Copy<Ipp32fc>)->Name("Memcpy_32fc")->Args({0, 4096})->Args({0, 393216});
BENCHMARK(Copy<Ipp64fc>)->Name("Memcpy_64fc")->Args({0, 4096})->Args({0, 393216});
BENCHMARK(Copy<Ipp32f>)->Name("Memcpy_32f")->Args({0, 4096})->Args({0, 393216});
BENCHMARK(Copy<Ipp64f>)->Name("Memcpy_64f")->Args({0, 4096})->Args({0, 393216});
BENCHMARK(Mul32f)->Apply(Sizes);
BENCHMARK(Mul32fc)->Apply(Sizes);
BENCHMARK(Mul32fcInPlace)->Apply(Sizes);
BENCHMARK(Add32fc)->Apply(Sizes);
BENCHMARK(PowerSpectr32fc)->Apply(Sizes);
BENCHMARK(Copy32f)->Args({0, 4096})->Args({0, 393216});
BENCHMARK(Fir32f256)->Args({0, 0})->Args({1, 0});
BENCHMARK(Fir64f2047)->Args({0, 0})->Args({1, 0});
BENCHMARK(Fir32fc)->ArgsProduct({{0, 1}, {32, 64, 127, 128, 1024, 8192}});

BENCHMARK_MAIN();
