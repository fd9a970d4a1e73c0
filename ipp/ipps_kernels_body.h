// Bodies of the hot kernels, included once per instruction-set variant
// inside a variant namespace. Plain loops: the compiler vectorises them for
// the target of the including file. Locals are loaded before any store so
// that dst may equal a source.
// No include guard: included once per variant.

static void cvt16s32f(const Ipp16s* src, Ipp32f* dst, int len, float scale) {
    for (int i = 0; i < len; ++i) dst[i] = float(src[i]) * scale;
}

static void add32f(const Ipp32f* a, const Ipp32f* b, Ipp32f* d, int len) {
    for (int i = 0; i < len; ++i) d[i] = a[i] + b[i];
}

static void mul32f(const Ipp32f* a, const Ipp32f* b, Ipp32f* d, int len) {
    for (int i = 0; i < len; ++i) d[i] = a[i] * b[i];
}

static void mulc32f(const Ipp32f* a, float c, Ipp32f* d, int len) {
    for (int i = 0; i < len; ++i) d[i] = a[i] * c;
}

// Complex arrays as floats: the same loop shape as the real ones.
static void add32fc(const Ipp32fc* a, const Ipp32fc* b, Ipp32fc* d, int len) {
    const float* af = &a->re;
    const float* bf = &b->re;
    float* df = &d->re;
    for (int i = 0; i < 2 * len; ++i) df[i] = af[i] + bf[i];
}

static void mul32fc(const Ipp32fc* a, const Ipp32fc* b, Ipp32fc* d, int len) {
    const float* af = &a->re;
    const float* bf = &b->re;
    float* df = &d->re;
    for (int i = 0; i < len; ++i) {
        const float ar = af[2 * i], ai = af[2 * i + 1];
        const float br = bf[2 * i], bi = bf[2 * i + 1];
        df[2 * i] = ar * br - ai * bi;
        df[2 * i + 1] = ar * bi + ai * br;
    }
}

static void power32fc(const Ipp32fc* a, Ipp32f* d, int len) {
    const float* af = &a->re;
    for (int i = 0; i < len; ++i) {
        const float re = af[2 * i], im = af[2 * i + 1];
        d[i] = re * re + im * im;
    }
}

// The double forms of the same loops.
static void add64f(const Ipp64f* a, const Ipp64f* b, Ipp64f* d, int len) {
    for (int i = 0; i < len; ++i) d[i] = a[i] + b[i];
}

static void mul64f(const Ipp64f* a, const Ipp64f* b, Ipp64f* d, int len) {
    for (int i = 0; i < len; ++i) d[i] = a[i] * b[i];
}

static void mulc64f(const Ipp64f* a, double c, Ipp64f* d, int len) {
    for (int i = 0; i < len; ++i) d[i] = a[i] * c;
}

static void power64fc(const Ipp64fc* a, Ipp64f* d, int len) {
    const double* af = &a->re;
    for (int i = 0; i < len; ++i) {
        const double re = af[2 * i], im = af[2 * i + 1];
        d[i] = re * re + im * im;
    }
}

static void cvt16s64f(const Ipp16s* src, Ipp64f* dst, int len, double scale) {
    for (int i = 0; i < len; ++i) dst[i] = double(src[i]) * scale;
}

// The second operand where it is the smaller (larger), else the first: a
// NaN in a gives NaN, one in b gives a, as the compare falls.
template <typename T>
static inline void min_every(const T* a, const T* b, T* d, int len) {
    for (int i = 0; i < len; ++i) {
        const T x = a[i], y = b[i];
        d[i] = y < x ? y : x;
    }
}

template <typename T>
static inline void max_every(const T* a, const T* b, T* d, int len) {
    for (int i = 0; i < len; ++i) {
        const T x = a[i], y = b[i];
        d[i] = y > x ? y : x;
    }
}

static void min32f(const Ipp32f* a, const Ipp32f* b, Ipp32f* d, int len) { min_every(a, b, d, len); }
static void max32f(const Ipp32f* a, const Ipp32f* b, Ipp32f* d, int len) { max_every(a, b, d, len); }
static void min64f(const Ipp64f* a, const Ipp64f* b, Ipp64f* d, int len) { min_every(a, b, d, len); }
static void max64f(const Ipp64f* a, const Ipp64f* b, Ipp64f* d, int len) { max_every(a, b, d, len); }

// The kernel files build with -fno-math-errno: sqrt is then the vector
// instruction instead of a call kept for errno, which a sum of squares
// never sets anyway. Correctly rounded either way.
static void mag32fc(const Ipp32fc* a, Ipp32f* d, int len) {
    const float* af = &a->re;
    for (int i = 0; i < len; ++i) {
        const float re = af[2 * i], im = af[2 * i + 1];
        d[i] = __builtin_sqrtf(re * re + im * im);
    }
}

static void mag64fc(const Ipp64fc* a, Ipp64f* d, int len) {
    const double* af = &a->re;
    for (int i = 0; i < len; ++i) {
        const double re = af[2 * i], im = af[2 * i + 1];
        d[i] = __builtin_sqrt(re * re + im * im);
    }
}

// Natural logarithms through glibc's vector logarithm of the variant's
// width (VecF/VecD and vlogf/vlog come from the including file). The tail
// goes through the same call on a copy padded with ones, so an element's
// result does not hang on where it sits in the array.
template <typename T, typename V, V (*F)(V)>
static inline void ln_vec(const T* a, T* d, int len) {
    constexpr int W = int(sizeof(V) / sizeof(T));
    int i = 0;
    for (; i + W <= len; i += W) {
        V v;
        __builtin_memcpy(&v, a + i, sizeof v);
        v = F(v);
        __builtin_memcpy(d + i, &v, sizeof v);
    }
    if (i < len) {
        T t[W];
        for (int k = 0; k < W; ++k) t[k] = i + k < len ? a[i + k] : T(1);
        V v;
        __builtin_memcpy(&v, t, sizeof v);
        v = F(v);
        __builtin_memcpy(t, &v, sizeof v);
        for (int k = 0; i + k < len; ++k) d[i + k] = t[k];
    }
}

static void ln32f(const Ipp32f* a, Ipp32f* d, int len) { ln_vec<float, VecF, vlogf>(a, d, len); }

static void ln64f(const Ipp64f* a, Ipp64f* d, int len) { ln_vec<double, VecD, vlog>(a, d, len); }

// Output rows in register-sized groups; the tap loop runs inside so that
// the group's sums stay in registers.
// The step is a template argument, so that each form compiles to the same
// code whether a sample falls in a group or in the tail.
template <typename T, int B, int step>
static inline void fir_rows(const T* hr, int L, const T* x, T* y, int n) {
    int i = 0;
    for (; i + B <= n; i += B) {
        T acc[B] = {};
        for (int j = 0; j < L; ++j) {
            const T h = hr[j];
            const T* xp = x + i + j * step;
            for (int b = 0; b < B; ++b) acc[b] += h * xp[b];
        }
        for (int b = 0; b < B; ++b) y[i + b] = acc[b];
    }
    for (; i < n; ++i) {
        T acc = 0;
        for (int j = 0; j < L; ++j) acc += hr[j] * x[i + j * step];
        y[i] = acc;
    }
}

static void fir32f(const Ipp32f* hr, int L, int step, const Ipp32f* x, Ipp32f* y, int n) {
    if (step == 2)
        fir_rows<float, 16, 2>(hr, L, x, y, n);
    else
        fir_rows<float, 16, 1>(hr, L, x, y, n);
}

static void fir64f(const Ipp64f* hr, int L, int step, const Ipp64f* x, Ipp64f* y, int n) {
    if (step == 2)
        fir_rows<double, 8, 2>(hr, L, x, y, n);
    else
        fir_rows<double, 8, 1>(hr, L, x, y, n);
}

// Floats 2i, 2i+1 of y are output i; x and xs advance by two floats a tap.
static void fir32fc(const Ipp32fc* hr, int L, const float* x, const float* xs, float* y, int n) {
    constexpr int B = 16;  // floats, 8 complex outputs
    const int nf = 2 * n;
    int i = 0;
    for (; i + B <= nf; i += B) {
        float acc[B] = {};
        for (int j = 0; j < L; ++j) {
            const float hre = hr[j].re, him = hr[j].im;
            const float* xp = x + i + 2 * j;
            const float* sp = xs + i + 2 * j;
            for (int b = 0; b < B; ++b) acc[b] += hre * xp[b] + him * sp[b];
        }
        for (int b = 0; b < B; ++b) y[i + b] = acc[b];
    }
    for (; i < nf; ++i) {
        float acc = 0;
        for (int j = 0; j < L; ++j) acc += hr[j].re * x[i + 2 * j] + hr[j].im * xs[i + 2 * j];
        y[i] = acc;
    }
}

// The sweep's detection loop fused: the same operations in the same order
// as power64fc, mulc64f twice, add64f and min64f/max64f, one load and one
// store an element instead of five passes.
static void powerfilt64fc(const Ipp64fc* x, double a0, double b1, Ipp64f* f, Ipp64f* mn, Ipp64f* mx, int len) {
    const double* xf = &x->re;
    if (!mn) {
        for (int i = 0; i < len; ++i) {
            const double re = xf[2 * i], im = xf[2 * i + 1];
            f[i] = a0 * (re * re + im * im) + b1 * f[i];
        }
        return;
    }
    for (int i = 0; i < len; ++i) {
        const double re = xf[2 * i], im = xf[2 * i + 1];
        const double v = a0 * (re * re + im * im) + b1 * f[i];
        const double lo = mn[i], hi = mx[i];
        f[i] = v;
        mn[i] = lo < v ? lo : v;
        mx[i] = hi > v ? hi : v;
    }
}

// Two real frames through one complex transform: the windowed frames
// interleaved, then each frame's bins separated from bins k and n - k.
static void winpair64f(const Ipp64f* a, const Ipp64f* b, const Ipp64f* w, Ipp64fc* z, int len) {
    double* zf = &z->re;
    for (int i = 0; i < len; ++i) {
        const double wi = w[i];
        zf[2 * i] = a[i] * wi;
        zf[2 * i + 1] = b[i] * wi;
    }
}

static void splitpair64fc(const Ipp64fc* z, int n, int first, int len, Ipp64fc* x, Ipp64fc* y) {
    const double* zf = &z->re;
    double* xf = &x->re;
    double* yf = &y->re;
    int j = 0;
    if (first == 0 && len > 0) {
        // Bin 0 pairs with itself.
        xf[0] = zf[0], xf[1] = 0.0;
        yf[0] = zf[1], yf[1] = 0.0;
        j = 1;
    }
    // Bin k > 0 pairs with n - k, read backwards.
    const double* up = zf + 2 * first;
    const double* down = zf + 2 * (n - first);
    for (; j < len; ++j) {
        const double ar = up[2 * j], ai = up[2 * j + 1], br = down[-2 * j], bi = down[-2 * j + 1];
        xf[2 * j] = 0.5 * (ar + br);
        xf[2 * j + 1] = 0.5 * (ai - bi);
        yf[2 * j] = 0.5 * (ai + bi);
        yf[2 * j + 1] = 0.5 * (br - ar);
    }
}

static constexpr ippk::KernelTable table = {
    VARIANT_NAME, cvt16s32f, add32f, mul32f, mulc32f, add32fc, mul32fc, power32fc, add64f, mul64f, mulc64f,
    power64fc,    cvt16s64f, min32f, max32f, min64f,  max64f,  mag32fc, mag64fc,   ln32f,  ln64f,  fir32f,
    fir64f,       fir32fc, winpair64f, splitpair64fc, powerfilt64fc,
};
