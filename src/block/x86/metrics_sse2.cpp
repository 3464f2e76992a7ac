// SSE2 block-matching metrics: byte SADs with psadbw, squares with pmaddwd on
// 16-bit differences, half-sample predictions with pavgb.
//
// pavgb computes (a + b + 1) >> 1 exactly, which is the metrics' half-sample
// rule. The centre of four, (a + b + c + d + 2) >> 2, is the average of the
// two row averages h0 = avg(a, b), h1 = avg(c, d) minus a correction bit:
// avg(h0, h1) rounds up once too often exactly when the bits lost by the
// first averages ((a ^ b) | (c ^ d)) are set and h0 + h1 is odd, so
//   hh = avg(h0, h1) - (((a ^ b) | (c ^ d)) & (h0 ^ h1) & 1),
// all in bytes, no widening.
#include <emmintrin.h>

#include <cstring>
#include <utility>

#include "block/metrics.h"
#include "core/arith.h"

namespace kplvc::block::x86::sse2 {
namespace {

inline __m128i ld16(const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
inline __m128i ld8(const uint8_t* p) { return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)); }
inline __m128i ld4(const uint8_t* p) {
    int32_t v;
    std::memcpy(&v, p, 4);
    return _mm_cvtsi32_si128(v);
}
// Two 8-byte rows in one register: row p in the low half, row p + step high.
inline __m128i ld8x2(const uint8_t* p, int32_t step) {
    return _mm_unpacklo_epi64(ld8(p), ld8(row_at(p, step, 1)));
}
inline const uint8_t* next(const uint8_t* p, int32_t step) { return row_at(p, step, 1); }

inline __m128i hh_fix(__m128i h0, __m128i x0, __m128i h1, __m128i x1) {
    const __m128i one = _mm_set1_epi8(1);
    const __m128i err = _mm_and_si128(_mm_and_si128(_mm_or_si128(x0, x1), _mm_xor_si128(h0, h1)), one);
    return _mm_sub_epi8(_mm_avg_epu8(h0, h1), err);
}

// The prediction of one row (16 bytes, or 8 in the low half with Ld = ld8),
// computed from scratch.
template <int P, __m128i (*Ld)(const uint8_t*)>
inline __m128i pred_row(const uint8_t* r, int32_t rs) {
    if constexpr (P == kFF) {
        return Ld(r);
    } else if constexpr (P == kFH) {
        return _mm_avg_epu8(Ld(r), Ld(next(r, rs)));
    } else if constexpr (P == kHF) {
        return _mm_avg_epu8(Ld(r), Ld(r + 1));
    } else {
        const uint8_t* r1 = next(r, rs);
        const __m128i a = Ld(r), b = Ld(r + 1), c = Ld(r1), d = Ld(r1 + 1);
        return hh_fix(_mm_avg_epu8(a, b), _mm_xor_si128(a, b), _mm_avg_epu8(c, d), _mm_xor_si128(c, d));
    }
}

// The prediction of a block row by row, carrying the vertical neighbour
// (and for the centre of four its row average and lost bits) from one row
// to the next, so each reference row is loaded once.
template <int P, __m128i (*Ld)(const uint8_t*)>
struct RowPredictor {
    const uint8_t* r;
    int32_t rs;
    __m128i h, x;

    RowPredictor(const uint8_t* ref, int32_t step) : r(ref), rs(step), h(_mm_setzero_si128()), x(h) {
        if constexpr (P == kFH) {
            h = Ld(r);
        } else if constexpr (P == kHH) {
            const __m128i a = Ld(r), b = Ld(r + 1);
            h = _mm_avg_epu8(a, b);
            x = _mm_xor_si128(a, b);
        }
    }
    // The current row's prediction; then moves to the next row.
    inline __attribute__((always_inline)) __m128i row() {
        if constexpr (P == kFF || P == kHF) {
            const __m128i v = pred_row<P, Ld>(r, rs);
            r = next(r, rs);
            return v;
        } else if constexpr (P == kFH) {
            r = next(r, rs);
            const __m128i bot = Ld(r);
            const __m128i v = _mm_avg_epu8(h, bot);
            h = bot;
            return v;
        } else {
            r = next(r, rs);
            const __m128i a = Ld(r), b = Ld(r + 1);
            const __m128i h1 = _mm_avg_epu8(a, b), x1 = _mm_xor_si128(a, b);
            const __m128i v = hh_fix(h, x, h1, x1);
            h = h1;
            x = x1;
            return v;
        }
    }
};

// Hands each pair (current row, predicted row) of an H-row block to acc.
template <int P, int H, __m128i (*Ld)(const uint8_t*), class Acc>
inline __attribute__((always_inline)) void walk(const uint8_t* s, int32_t ss, const uint8_t* r, int32_t rs,
                                                Acc&& acc) {
    RowPredictor<P, Ld> pr(r, rs);
    for (int y = 0; y < H; ++y, s = next(s, ss)) acc(Ld(s), pr.row());
}

inline int32_t hsum64(__m128i v) { return _mm_cvtsi128_si32(_mm_add_epi32(v, _mm_unpackhi_epi64(v, v))); }
inline int32_t hsum32(__m128i v) {
    v = _mm_add_epi32(v, _mm_unpackhi_epi64(v, v));
    v = _mm_add_epi32(v, _mm_shuffle_epi32(v, 0x55));
    return _mm_cvtsi128_si32(v);
}

// Sum of squares of the differences of 16 byte pairs, as four int32 lanes.
// Each lane gets two squares of at most 255^2, so 130050 per row.
inline __m128i sqr_bytes(__m128i s, __m128i p) {
    const __m128i z = _mm_setzero_si128();
    const __m128i dl = _mm_sub_epi16(_mm_unpacklo_epi8(s, z), _mm_unpacklo_epi8(p, z));
    const __m128i dh = _mm_sub_epi16(_mm_unpackhi_epi8(s, z), _mm_unpackhi_epi8(p, z));
    return _mm_add_epi32(_mm_madd_epi16(dl, dl), _mm_madd_epi16(dh, dh));
}

template <int P>
int32_t sad16x16(const uint8_t* s, int32_t ss, const uint8_t* r, int32_t rs) {
    __m128i acc = _mm_setzero_si128();
    walk<P, 16, ld16>(s, ss, r, rs,
                      [&](__m128i a, __m128i b) { acc = _mm_add_epi64(acc, _mm_sad_epu8(a, b)); });
    return hsum64(acc);
}

// Half positions: one 8-byte row in the low half (the high halves are zero
// in both operands and add nothing).
template <int P>
int32_t sad8x8(const uint8_t* s, int32_t ss, const uint8_t* r, int32_t rs) {
    __m128i acc = _mm_setzero_si128();
    walk<P, 8, ld8>(s, ss, r, rs,
                    [&](__m128i a, __m128i b) { acc = _mm_add_epi64(acc, _mm_sad_epu8(a, b)); });
    return _mm_cvtsi128_si32(acc);
}

int32_t sad4x4(const uint8_t* s, int32_t ss, const uint8_t* r, int32_t rs) {
    auto rows = [](const uint8_t* p, int32_t st) {
        const __m128i lo = _mm_unpacklo_epi32(ld4(p), ld4(row_at(p, st, 1)));
        const __m128i hi = _mm_unpacklo_epi32(ld4(row_at(p, st, 2)), ld4(row_at(p, st, 3)));
        return _mm_unpacklo_epi64(lo, hi);
    };
    return hsum64(_mm_sad_epu8(rows(s, ss), rows(r, rs)));
}

// psadbw sums each 8-byte half: rows 0..7 give quarters 0 and 1, rows 8..15
// quarters 2 and 3.
void sad_blocks8x8(const uint8_t* s, int32_t ss, const uint8_t* r, int32_t rs, uint16_t* out) {
    for (int half = 0; half < 2; ++half) {
        __m128i acc = _mm_setzero_si128();
        for (int y = 0; y < 8; ++y, s = next(s, ss), r = next(r, rs))
            acc = _mm_add_epi64(acc, _mm_sad_epu8(ld16(s), ld16(r)));
        out[2 * half] = static_cast<uint16_t>(_mm_cvtsi128_si32(acc));
        out[2 * half + 1] = static_cast<uint16_t>(_mm_cvtsi128_si32(_mm_unpackhi_epi64(acc, acc)));
    }
}

// Absolute differences masked to bytes 0-3 / 8-11 (sub-blocks 0 and 2 of
// the row) and 4-7 / 12-15 (sub-blocks 1 and 3), each summed by psadbw.
void sad_blocks4x4(const uint8_t* s, int32_t ss, const uint8_t* r, int32_t rs, uint16_t* out) {
    const __m128i even = _mm_set_epi32(0, -1, 0, -1), z = _mm_setzero_si128();
    for (int band = 0; band < 4; ++band) {
        __m128i e = z, o = z;
        for (int y = 0; y < 4; ++y, s = next(s, ss), r = next(r, rs)) {
            const __m128i a = ld16(s), b = ld16(r);
            const __m128i ad = _mm_or_si128(_mm_subs_epu8(a, b), _mm_subs_epu8(b, a));
            e = _mm_add_epi64(e, _mm_sad_epu8(_mm_and_si128(ad, even), z));
            o = _mm_add_epi64(o, _mm_sad_epu8(_mm_andnot_si128(even, ad), z));
        }
        uint16_t* q = out + 4 * band;
        q[0] = static_cast<uint16_t>(_mm_cvtsi128_si32(e));
        q[1] = static_cast<uint16_t>(_mm_cvtsi128_si32(o));
        q[2] = static_cast<uint16_t>(_mm_cvtsi128_si32(_mm_unpackhi_epi64(e, e)));
        q[3] = static_cast<uint16_t>(_mm_cvtsi128_si32(_mm_unpackhi_epi64(o, o)));
    }
}

template <int P>
int32_t sqr16x16(const uint8_t* s, int32_t ss, const uint8_t* r, int32_t rs) {
    __m128i acc = _mm_setzero_si128();
    walk<P, 16, ld16>(s, ss, r, rs, [&](__m128i a, __m128i b) { acc = _mm_add_epi32(acc, sqr_bytes(a, b)); });
    return hsum32(acc);
}

// pred = (pF + pB + 1) >> 1 is pavgb of the two predictions.
template <int PF, int PB>
int32_t sqr16x16_bi(const uint8_t* s, int32_t ss, const uint8_t* f, int32_t fs, const uint8_t* b,
                    int32_t bs) {
    __m128i acc = _mm_setzero_si128();
    RowPredictor<PF, ld16> pf(f, fs);
    RowPredictor<PB, ld16> pb(b, bs);
    for (int y = 0; y < 16; ++y, s = next(s, ss)) {
        const __m128i p = _mm_avg_epu8(pf.row(), pb.row());
        acc = _mm_add_epi32(acc, sqr_bytes(ld16(s), p));
    }
    return hsum32(acc);
}

template <int PF, int... PB>
void fill_bi(BiMetricFn* t, std::integer_sequence<int, PB...>) {
    ((t[PF | (PB << 2)] = sqr16x16_bi<PF, PB>), ...);
}

// ---- Variances and means --------------------------------------------------------

// S by psadbw against zero, Q by pmaddwd of the widened samples (each lane
// at most 2 * 255^2 per row).
inline void sum_sq16(__m128i v, __m128i& s, __m128i& q) {
    const __m128i z = _mm_setzero_si128();
    const __m128i lo = _mm_unpacklo_epi8(v, z), hi = _mm_unpackhi_epi8(v, z);
    s = _mm_add_epi64(s, _mm_sad_epu8(v, z));
    q = _mm_add_epi32(q, _mm_add_epi32(_mm_madd_epi16(lo, lo), _mm_madd_epi16(hi, hi)));
}

int32_t variance16x16(const uint8_t* p, int32_t ps) {
    __m128i s = _mm_setzero_si128(), q = s;
    for (int y = 0; y < 16; ++y, p = next(p, ps)) sum_sq16(ld16(p), s, q);
    const int32_t S = hsum64(s), Q = hsum32(q);
    return Q - mul32w(S, S) / 256;
}

void varmean8x8_8u(const uint8_t* p, int32_t ps, int32_t* var, int32_t* mean) {
    __m128i s = _mm_setzero_si128(), q = s;
    for (int y = 0; y < 8; y += 2) sum_sq16(ld8x2(row_at(p, ps, y), ps), s, q);
    const int32_t S = hsum64(s), Q = hsum32(q);
    *var = static_cast<int32_t>((int64_t{64} * Q - int64_t{S} * S) / 4096);
    *mean = S;
}

// pmaddwd of x with itself wraps only when both products are 2^30, giving
// 2^31 mod 2^32: the same residue as the exact sum, so Q stays the sum
// modulo 2^32. S: pmaddwd with ones, at most 2^16 per lane per row.
void varmean8x8_16s(const int16_t* p, int32_t ps, int32_t* var, int32_t* mean) {
    const __m128i ones = _mm_set1_epi16(1);
    __m128i s = _mm_setzero_si128(), q = s;
    for (int y = 0; y < 8; ++y, p = row_at(p, ps, 1)) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        s = _mm_add_epi32(s, _mm_madd_epi16(v, ones));
        q = _mm_add_epi32(q, _mm_madd_epi16(v, v));
    }
    const int32_t S = hsum32(s);
    const int64_t Q = hsum32(q);
    *var = static_cast<int32_t>((64 * Q - int64_t{S} * S) / 4096);
    *mean = S;
}

// Per row: the left and right halves belong to quarters 2k and 2k + 1.
// sq per half-row lane pair via pmaddwd; the prediction sum via psadbw.
template <int H, int P>
void varmeandiff(const uint8_t* s, int32_t ss, const uint8_t* r, int32_t rs, const int32_t* src_sum,
                 int32_t* var, int32_t* mean) {
    const __m128i z = _mm_setzero_si128();
    for (int band = 0; band < H / 8; ++band) {
        __m128i sql = z, sqh = z, ps = z;
        walk<P, 8, ld16>(row_at(s, ss, 8 * band), ss, row_at(r, rs, 8 * band), rs, [&](__m128i a, __m128i p) {
            const __m128i dl = _mm_sub_epi16(_mm_unpacklo_epi8(a, z), _mm_unpacklo_epi8(p, z));
            const __m128i dh = _mm_sub_epi16(_mm_unpackhi_epi8(a, z), _mm_unpackhi_epi8(p, z));
            sql = _mm_add_epi32(sql, _mm_madd_epi16(dl, dl));
            sqh = _mm_add_epi32(sqh, _mm_madd_epi16(dh, dh));
            ps = _mm_add_epi64(ps, _mm_sad_epu8(p, z));
        });
        const int32_t sq[2] = {hsum32(sql), hsum32(sqh)};
        const int32_t pss[2] = {_mm_cvtsi128_si32(ps), _mm_cvtsi128_si32(_mm_unpackhi_epi64(ps, ps))};
        for (int h = 0; h < 2; ++h) {
            const int k = 2 * band + h;
            const int64_t m = (int64_t{src_sum[k]} - pss[h]) / 8;
            const int64_t m2 = m * m;
            mean[k] = static_cast<int32_t>(m);
            var[k] = sq[h] > m2 ? static_cast<int32_t>((sq[h] - m2) / 64) : 0;
        }
    }
}

// Rounded mean m fits a byte, so sum |x - m| is psadbw against m broadcast.
int32_t meanabsdev16x16(const uint8_t* p, int32_t ps) {
    const __m128i z = _mm_setzero_si128();
    __m128i s = z;
    const uint8_t* q = p;
    for (int y = 0; y < 16; ++y, q = next(q, ps)) s = _mm_add_epi64(s, _mm_sad_epu8(ld16(q), z));
    const int32_t m = (hsum64(s) + 128) >> 8;
    const __m128i mv = _mm_set1_epi8(static_cast<char>(m));
    __m128i d = z;
    for (int y = 0; y < 16; ++y, p = next(p, ps)) d = _mm_add_epi64(d, _mm_sad_epu8(ld16(p), mv));
    return hsum64(d);
}

// ---- Edge detection ------------------------------------------------------------

// One row at a time, as the reference: byte absolute differences with the
// right neighbour (the row shifted by one byte, so nothing past column 15 is
// read) and with the row below, clamped to 127 so that the signed byte
// compare against the threshold matches; column 15 is masked off. The
// decision after each row is the reference's byte arithmetic on the count.
uint8_t edges16x16(const uint8_t* p, int32_t ps, uint8_t pel_diff, uint8_t pel_count) {
    const __m128i thr = _mm_set1_epi8(static_cast<char>(pel_diff));
    const __m128i cap = _mm_set1_epi8(127);
    const uint8_t c = static_cast<uint8_t>(0u - pel_count);
    uint32_t n = 0;
    __m128i a = ld16(p);
    for (int y = 0; y < 15; ++y) {
        p = next(p, ps);
        const __m128i below = ld16(p);
        const __m128i right = _mm_srli_si128(a, 1);
        const __m128i dh = _mm_min_epu8(_mm_or_si128(_mm_subs_epu8(a, right), _mm_subs_epu8(right, a)), cap);
        const __m128i dv = _mm_min_epu8(_mm_or_si128(_mm_subs_epu8(a, below), _mm_subs_epu8(below, a)), cap);
        const __m128i edge = _mm_or_si128(_mm_cmpgt_epi8(dh, thr), _mm_cmpgt_epi8(dv, thr));
        n += static_cast<uint32_t>(
            __builtin_popcount(static_cast<unsigned>(_mm_movemask_epi8(edge)) & 0x7FFFu));
        if (static_cast<uint8_t>(255u * n) < c) return 1;
        a = below;
    }
    return 0;
}

// ---- Sums of differences, zero count, texture error ----------------------------

// Per band of four rows: the 16-bit differences of each row (columns 0-7 and
// 8-15) are stored four at a time into their sub-blocks' cells and summed
// over the band (at most 4 * 255 per lane); pmaddwd with ones then pairs the
// lanes, and one more pairing gives each sub-block's sum of 16.
template <int N>
void sumsdiff(const uint8_t* s, int32_t ss, const uint8_t* p, int32_t ps, int16_t* sums, int16_t* diff) {
    constexpr int per_row = N / 4;
    const __m128i z = _mm_setzero_si128(), ones = _mm_set1_epi16(1);
    for (int band = 0; band < per_row; ++band) {
        __m128i acc_lo = z, acc_hi = z;
        for (int r = 0; r < 4; ++r, s = next(s, ss), p = next(p, ps)) {
            const __m128i a = N == 16 ? ld16(s) : ld8(s);
            const __m128i b = N == 16 ? ld16(p) : ld8(p);
            const __m128i dlo = _mm_sub_epi16(_mm_unpacklo_epi8(a, z), _mm_unpacklo_epi8(b, z));
            acc_lo = _mm_add_epi16(acc_lo, dlo);
            __m128i dhi = z;
            if constexpr (N == 16) {
                dhi = _mm_sub_epi16(_mm_unpackhi_epi8(a, z), _mm_unpackhi_epi8(b, z));
                acc_hi = _mm_add_epi16(acc_hi, dhi);
            }
            if (diff != nullptr) {
                int16_t* d0 = diff + 16 * (band * per_row) + 4 * r;
                _mm_storel_epi64(reinterpret_cast<__m128i*>(d0), dlo);
                _mm_storel_epi64(reinterpret_cast<__m128i*>(d0 + 16), _mm_unpackhi_epi64(dlo, dlo));
                if constexpr (N == 16) {
                    _mm_storel_epi64(reinterpret_cast<__m128i*>(d0 + 32), dhi);
                    _mm_storel_epi64(reinterpret_cast<__m128i*>(d0 + 48), _mm_unpackhi_epi64(dhi, dhi));
                }
            }
        }
        // Pairs of lanes, then pairs of pairs: one int32 per sub-block.
        const __m128i plo = _mm_madd_epi16(acc_lo, ones), phi = _mm_madd_epi16(acc_hi, ones);
        const __m128i even =
            _mm_castps_si128(_mm_shuffle_ps(_mm_castsi128_ps(plo), _mm_castsi128_ps(phi), 0x88));
        const __m128i odd =
            _mm_castps_si128(_mm_shuffle_ps(_mm_castsi128_ps(plo), _mm_castsi128_ps(phi), 0xDD));
        const __m128i blk = _mm_packs_epi32(_mm_add_epi32(even, odd), z);  // |sum| <= 4080
        int16_t out[8];
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), blk);
        for (int j = 0; j < per_row; ++j) sums[band * per_row + j] = out[j];
    }
}

// Each lane counts its zeros by subtracting the all-ones compare mask.
int32_t countzeros8x8(const int16_t* c) {
    const __m128i z = _mm_setzero_si128();
    __m128i n = z;
    for (int i = 0; i < 64; i += 8) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(c + i));
        n = _mm_sub_epi16(n, _mm_cmpeq_epi16(v, z));
    }
    return hsum32(_mm_madd_epi16(n, _mm_set1_epi16(1)));
}

// Two source rows against 16 packed reference bytes at a time; the SAD of
// the bytes is the sum of |differences|.
int32_t texture_error8x8(const uint8_t* s, int32_t ss, const uint8_t* ref, int16_t* dst) {
    const __m128i z = _mm_setzero_si128();
    __m128i sad = z;
    for (int y = 0; y < 8; y += 2, ref += 16, dst += 16) {
        const __m128i a = ld8x2(row_at(s, ss, y), ss), b = ld16(ref);
        sad = _mm_add_epi64(sad, _mm_sad_epu8(a, b));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst),
                         _mm_sub_epi16(_mm_unpacklo_epi8(a, z), _mm_unpacklo_epi8(b, z)));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 8),
                         _mm_sub_epi16(_mm_unpackhi_epi8(a, z), _mm_unpackhi_epi8(b, z)));
    }
    return hsum64(sad);
}

}  // namespace

void upgrade_metrics(MetricsKernels& k) {
    // The full and vertical-half 16x16 SADs, the full 8x8 SAD and the full and
    // vertical-half squared differences stay with the reference: GCC turns
    // those loops into the same psadbw / pavgb / pmaddwd code, and the
    // benchmark shows no gain from hand-written SSE2 (kplvc-bench,
    // metrics/sad16x16_ff, _fh, sad8x8_ff, sqrdiff16x16_ff, _fh).
    k.sad16x16[kHF] = sad16x16<kHF>;
    k.sad16x16[kHH] = sad16x16<kHH>;
    k.sad8x8[kFH] = sad8x8<kFH>;
    k.sad8x8[kHF] = sad8x8<kHF>;
    k.sad8x8[kHH] = sad8x8<kHH>;
    k.sad4x4 = sad4x4;
    k.sad16x16_blocks8x8 = sad_blocks8x8;
    k.sad16x16_blocks4x4 = sad_blocks4x4;
    k.sqr16x16[kHF] = sqr16x16<kHF>;
    k.sqr16x16[kHH] = sqr16x16<kHH>;
    constexpr std::integer_sequence<int, 0, 1, 2, 3> all{};
    fill_bi<kFF>(k.sqr16x16_bi, all);
    fill_bi<kFH>(k.sqr16x16_bi, all);
    fill_bi<kHF>(k.sqr16x16_bi, all);
    fill_bi<kHH>(k.sqr16x16_bi, all);
    k.variance16x16 = variance16x16;
    k.varmean8x8_8u = varmean8x8_8u;
    k.varmean8x8_16s = varmean8x8_16s;
    k.varmeandiff16x16[kFF] = varmeandiff<16, kFF>;
    k.varmeandiff16x16[kFH] = varmeandiff<16, kFH>;
    k.varmeandiff16x16[kHF] = varmeandiff<16, kHF>;
    k.varmeandiff16x16[kHH] = varmeandiff<16, kHH>;
    k.varmeandiff16x8[kFF] = varmeandiff<8, kFF>;
    k.varmeandiff16x8[kFH] = varmeandiff<8, kFH>;
    k.varmeandiff16x8[kHF] = varmeandiff<8, kHF>;
    k.varmeandiff16x8[kHH] = varmeandiff<8, kHH>;
    k.meanabsdev16x16 = meanabsdev16x16;
    k.edges16x16 = edges16x16;
    k.sumsdiff16x16 = sumsdiff<16>;
    k.sumsdiff8x8 = sumsdiff<8>;
    k.countzeros8x8 = countzeros8x8;
    k.texture_error8x8 = texture_error8x8;
}

}  // namespace kplvc::block::x86::sse2
