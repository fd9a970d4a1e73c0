// Transforms at a streaming size (2^14) and a sweep size (2^21): set-up
// (sizes, memory, plans, release) and one forward transform. Arg is the
// order.
#include <benchmark/benchmark.h>

#include <fftw3.h>

#include <vector>

#include "dsp/ipps_states.h"

namespace {

template <typename Fft>
void Plan(benchmark::State& state) {
    const int order = int(state.range(0));
    for (auto _ : state) {
        Fft f(order, IPP_FFT_DIV_FWD_BY_N, ippAlgHintFast);
        benchmark::DoNotOptimize(f.fftSpec);
    }
}

// Four transforms of one size alive at once, as a sweep with four workers
// builds them.
template <typename Fft>
void Plan4(benchmark::State& state) {
    const int order = int(state.range(0));
    for (auto _ : state) {
        Fft a(order, IPP_FFT_DIV_FWD_BY_N, ippAlgHintFast), b(order, IPP_FFT_DIV_FWD_BY_N, ippAlgHintFast);
        Fft c(order, IPP_FFT_DIV_FWD_BY_N, ippAlgHintFast), d(order, IPP_FFT_DIV_FWD_BY_N, ippAlgHintFast);
        benchmark::DoNotOptimize(d.fftSpec);
    }
}

template <typename Fft, typename In, typename Out>
void Exec(benchmark::State& state) {
    const int order = int(state.range(0));
    const int n = 1 << order;
    Fft f(order, IPP_FFT_DIV_FWD_BY_N, ippAlgHintFast);
    smart_ptr<In> src(n);
    smart_ptr<Out> dst(n);
    for (int i = 0; i < n; ++i) src[i] = In{};
    for (auto _ : state) {
        f.FwdFFT(src.ptr, dst.ptr);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * n);
}

// The forward real transform through this layer against a bare FFTW r2c
// plan of the same size and planner flags on aligned out-of-place arrays,
// like for like: unscaled on both sides (the engines fold 1/N into their
// windows). Form 0 is the Perm packing (r2c plus one copy into the packed
// layout), form 1 the n + 2 layout (r2c straight into the caller's array).
void FwdR32f(benchmark::State& state) {
    const int order = int(state.range(0));
    const bool ccs = state.range(1) != 0;
    const int n = 1 << order;
    fft_R_32f f(order, IPP_FFT_NODIV_BY_ANY, ippAlgHintFast);
    smart_ptr<Ipp32f> src(n), dst(n + 2);
    for (int i = 0; i < n; ++i) src[i] = float(i % 17) - 8.0f;
    for (auto _ : state) {
        if (ccs)
            ippsFFTFwd_RToCCS_32f(src.ptr, dst.ptr, f.fftSpec, f.work.ptr);
        else
            f.FwdFFT(src.ptr, dst.ptr);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * n);
}

void FwdR32fBareFftw(benchmark::State& state) {
    const int n = 1 << int(state.range(0));
    float* in = fftwf_alloc_real(size_t(n));
    fftwf_complex* out = fftwf_alloc_complex(size_t(n / 2 + 1));
    fftwf_plan plan = fftwf_plan_dft_r2c_1d(n, in, out, FFTW_ESTIMATE);
    for (int i = 0; i < n; ++i) in[i] = float(i % 17) - 8.0f;
    for (auto _ : state) {
        fftwf_execute(plan);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * n);
    fftwf_destroy_plan(plan);
    fftwf_free(out);
    fftwf_free(in);
}

}  // namespace

BENCHMARK(FwdR32f)->ArgsProduct({benchmark::CreateDenseRange(7, 20, 1), {0, 1}})->Unit(benchmark::kMicrosecond);
BENCHMARK(FwdR32fBareFftw)->DenseRange(7, 20)->Unit(benchmark::kMicrosecond);
BENCHMARK(Plan<fft_R_32f>)->Arg(14)->Arg(21)->Unit(benchmark::kMillisecond);
BENCHMARK(Plan<fft_R_64f>)->Arg(14)->Arg(21)->Unit(benchmark::kMillisecond);
BENCHMARK(Plan<fft_C_32fc>)->Arg(14)->Arg(21)->Unit(benchmark::kMillisecond);
BENCHMARK(Plan<fft_C_64fc>)->Arg(14)->Arg(21)->Unit(benchmark::kMillisecond);
BENCHMARK(Plan4<fft_R_64f>)->Arg(21)->Unit(benchmark::kMillisecond);
BENCHMARK(Exec<fft_R_32f, Ipp32f, Ipp32f>)->Arg(12)->Arg(14)->Arg(21)->Unit(benchmark::kMicrosecond);
BENCHMARK(Exec<fft_R_64f, Ipp64f, Ipp64f>)->Arg(14)->Arg(21)->Unit(benchmark::kMicrosecond);
BENCHMARK(Exec<fft_C_32fc, Ipp32fc, Ipp32fc>)->Arg(11)->Arg(14)->Arg(21)->Unit(benchmark::kMicrosecond);
BENCHMARK(Exec<fft_C_64fc, Ipp64fc, Ipp64fc>)->Arg(14)->Arg(21)->Unit(benchmark::kMicrosecond);

BENCHMARK_MAIN();
