// The quarter-sample kernels' body, shared by the SSSE3 and AVX2 files.
//
// Requires of the includer: <tmmintrin.h> (or wider), the QpelKernels types
// of mpeg4/qpel.h, and, declared before the inclusion in the includer's own
// ISA namespace (inside an unnamed namespace), the filter
//   __m128i filter_bytes(const __m128i* v, __m128i bias)
// returning the 16 byte lanes of clip((20 (v3 + v4) - 6 (v2 + v5) + 3 (v1 + v6)
// - (v0 + v7) + bias) >> 5), v[k] the taps k - 3 of each lane. Everything here
// lands in the includer's namespace, so each ISA level has its own copy.

constexpr int mirror(int i, int n) { return i < 0 ? -1 - i : (i > n ? 2 * n + 1 - i : i); }

// Byte-shuffle controls picking R[mirror(x + k, n)] for x = 0..15 from a
// register holding R[base .. base + 15]; lanes whose sample lies outside it
// get 0x80 (zero).
template <int N>
struct Taps {
    alignas(16) int8_t lo[8][16];  // from R[0..15], k = -3..4
    alignas(16) int8_t hi[8][16];  // from R[1..16] (only for N = 16)
    constexpr Taps() : lo{}, hi{} {
        for (int k = 0; k < 8; ++k)
            for (int x = 0; x < 16; ++x) {
                const int m = x < N ? mirror(x + k - 3, N) : 0;
                lo[k][x] = static_cast<int8_t>(m <= 15 ? m : -128);
                hi[k][x] = static_cast<int8_t>(m == 16 ? 15 : -128);
            }
    }
};
constexpr Taps<16> kTaps16{};
constexpr Taps<8> kTaps8{};

inline __m128i load(const int8_t* p) { return _mm_load_si128(reinterpret_cast<const __m128i*>(p)); }

// (a + b + 1 - rc) >> 1 on bytes: pavgb, minus the carried half when rc = 1.
inline __m128i avg(__m128i a, __m128i b, __m128i rc) {
    return _mm_sub_epi8(_mm_avg_epu8(a, b), _mm_and_si128(_mm_xor_si128(a, b), rc));
}

template <int W>
inline void store(uint8_t* p, __m128i v) {
    if constexpr (W == 16)
        _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v);
    else
        _mm_storel_epi64(reinterpret_cast<__m128i*>(p), v);
}

template <int W>
inline __m128i load_row(const uint8_t* p) {
    if constexpr (W == 16) return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
}

// One row at horizontal quarter position FX (W+1 samples read).
template <int W, int FX>
inline __m128i row_value(const uint8_t* s, __m128i bias, __m128i rc) {
    if constexpr (FX == 0) {
        return load_row<W>(s);
    } else {
        __m128i v[8];
        if constexpr (W == 16) {
            const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s));
            const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 1));
            for (int k = 0; k < 8; ++k)
                v[k] = _mm_or_si128(_mm_shuffle_epi8(a, load(kTaps16.lo[k])),
                                    _mm_shuffle_epi8(b, load(kTaps16.hi[k])));
        } else {
            // The row's nine samples in bytes 0..8.
            const __m128i a = _mm_or_si128(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(s)),
                                           _mm_slli_si128(_mm_cvtsi32_si128(s[8]), 8));
            for (int k = 0; k < 8; ++k) v[k] = _mm_shuffle_epi8(a, load(kTaps8.lo[k]));
        }
        const __m128i h = filter_bytes(v, bias);
        if constexpr (FX == 1) return avg(v[3], h, rc);
        if constexpr (FX == 2) return h;
        return avg(h, v[4], rc);
    }
}

template <int W, int H, int Pos>
void put(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step, int32_t rc) {
    constexpr int fx = Pos & 3, fy = Pos >> 2;
    const __m128i bias = _mm_set1_epi16(static_cast<int16_t>(16 - rc));
    const __m128i rcb = _mm_set1_epi8(static_cast<char>(rc));
    if constexpr (fy == 0) {
        for (int y = 0; y < H; ++y)
            store<W>(dst + static_cast<intptr_t>(y) * dst_step,
                     row_value<W, fx>(src + static_cast<intptr_t>(y) * src_step, bias, rcb));
        return;
    } else {
        __m128i t[H + 1];
        for (int r = 0; r <= H; ++r)
            t[r] = row_value<W, fx>(src + static_cast<intptr_t>(r) * src_step, bias, rcb);
        for (int y = 0; y < H; ++y) {
            __m128i v[8];
            for (int k = 0; k < 8; ++k) v[k] = t[mirror(y + k - 3, H)];
            const __m128i h = filter_bytes(v, bias);
            __m128i out;
            if constexpr (fy == 1)
                out = avg(t[y], h, rcb);
            else if constexpr (fy == 2)
                out = h;
            else
                out = avg(h, t[y + 1], rcb);
            store<W>(dst + static_cast<intptr_t>(y) * dst_step, out);
        }
    }
}

template <int W, int H, int... P>
void fill(QpelFn (&row)[16], std::integer_sequence<int, P...>) {
    ((row[P] = put<W, H, P>), ...);
}
