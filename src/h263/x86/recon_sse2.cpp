// SSE2 H.263 reconstruction and Annex J deblocking: eight 16-bit lanes.
#include <emmintrin.h>

#include <cstring>

#include "h263/recon.h"

namespace kplvc::h263::x86::sse2 {
namespace {

inline __m128i load8(const uint8_t* p) { return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)); }
inline void store8(uint8_t* p, __m128i v) { _mm_storel_epi64(reinterpret_cast<__m128i*>(p), v); }
inline __m128i loadu(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }

// paddw wraps exactly like the reference's 16-bit add; packuswb saturates.
void recon16(const uint8_t* pred, const int16_t* res, uint8_t* dst, int32_t step) {
    const __m128i z = _mm_setzero_si128();
    for (int y = 0; y < 16; ++y) {
        const __m128i p = loadu(pred + static_cast<intptr_t>(y) * step);
        const __m128i lo = _mm_add_epi16(_mm_unpacklo_epi8(p, z), loadu(res + 16 * y));
        const __m128i hi = _mm_add_epi16(_mm_unpackhi_epi8(p, z), loadu(res + 16 * y + 8));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + static_cast<intptr_t>(y) * step),
                         _mm_packus_epi16(lo, hi));
    }
}

void recon8(const uint8_t* pred, const int16_t* res, uint8_t* dst, int32_t step) {
    const __m128i z = _mm_setzero_si128();
    for (int y = 0; y < 8; ++y) {
        const __m128i p = _mm_unpacklo_epi8(load8(pred + static_cast<intptr_t>(y) * step), z);
        store8(dst + static_cast<intptr_t>(y) * step,
               _mm_packus_epi16(_mm_add_epi16(p, loadu(res + 8 * y)), z));
    }
}

// x / 2^k truncating toward zero, for 16-bit lanes.
template <int K>
inline __m128i div_trunc(__m128i x) {
    const __m128i neg = _mm_srai_epi16(x, 15);  // all ones where x < 0
    return _mm_srai_epi16(_mm_add_epi16(x, _mm_and_si128(neg, _mm_set1_epi16((1 << K) - 1))), K);
}

inline __m128i abs16(__m128i x) {
    const __m128i s = _mm_srai_epi16(x, 15);
    return _mm_sub_epi16(_mm_xor_si128(x, s), s);
}

// The filter on eight positions at once: a, b, c, d hold the samples as
// 16-bit lanes and are updated in place.
inline void filter(__m128i& a, __m128i& b, __m128i& c, __m128i& d, int strength) {
    const __m128i z = _mm_setzero_si128();
    // A - 4B + 4C - D lies within +-2040.
    const __m128i t = _mm_add_epi16(_mm_sub_epi16(a, d), _mm_slli_epi16(_mm_sub_epi16(c, b), 2));
    const __m128i dd = div_trunc<3>(t);
    const __m128i sign = _mm_srai_epi16(dd, 15);
    const __m128i ad = abs16(dd);
    const __m128i ramp =
        _mm_max_epi16(_mm_slli_epi16(_mm_sub_epi16(ad, _mm_set1_epi16(static_cast<short>(strength))), 1), z);
    const __m128i mag = _mm_max_epi16(_mm_sub_epi16(ad, ramp), z);
    const __m128i d1 = _mm_sub_epi16(_mm_xor_si128(mag, sign), sign);
    // B and C saturate to 0..255 through the final pack.
    b = _mm_add_epi16(b, d1);
    c = _mm_sub_epi16(c, d1);
    const __m128i lim = _mm_srai_epi16(mag, 1);  // |d1 / 2| = |d1| >> 1
    const __m128i d2 =
        _mm_max_epi16(_mm_sub_epi16(z, lim), _mm_min_epi16(lim, div_trunc<2>(_mm_sub_epi16(a, d))));
    a = _mm_sub_epi16(a, d2);
    d = _mm_add_epi16(d, d2);
}

void deblock_hor(uint8_t* p, int32_t step, int strength) {
    const __m128i z = _mm_setzero_si128();
    uint8_t* ra = p - 2 * static_cast<intptr_t>(step);
    uint8_t* rb = p - step;
    uint8_t* rd = p + step;
    __m128i a = _mm_unpacklo_epi8(load8(ra), z), b = _mm_unpacklo_epi8(load8(rb), z);
    __m128i c = _mm_unpacklo_epi8(load8(p), z), d = _mm_unpacklo_epi8(load8(rd), z);
    filter(a, b, c, d, strength);
    store8(ra, _mm_packus_epi16(a, z));
    store8(rb, _mm_packus_epi16(b, z));
    store8(p, _mm_packus_epi16(c, z));
    store8(rd, _mm_packus_epi16(d, z));
}

void deblock_ver(uint8_t* p, int32_t step, int strength) {
    // Four bytes A B C D of each of the eight rows, transposed into four
    // column vectors (lane i = row i) with byte unpacks, filtered, and
    // transposed back.
    uint8_t* r[8];
    __m128i row[8];
    for (int i = 0; i < 8; ++i) {
        r[i] = p + static_cast<intptr_t>(i) * step - 2;
        uint32_t w;
        std::memcpy(&w, r[i], 4);
        row[i] = _mm_cvtsi32_si128(static_cast<int>(w));
    }
    const __m128i t01 = _mm_unpacklo_epi8(row[0], row[1]), t23 = _mm_unpacklo_epi8(row[2], row[3]);
    const __m128i t45 = _mm_unpacklo_epi8(row[4], row[5]), t67 = _mm_unpacklo_epi8(row[6], row[7]);
    const __m128i u0 = _mm_unpacklo_epi16(t01, t23), u1 = _mm_unpacklo_epi16(t45, t67);
    const __m128i ab = _mm_unpacklo_epi32(u0, u1), cd = _mm_unpackhi_epi32(u0, u1);
    const __m128i z = _mm_setzero_si128();
    __m128i a = _mm_unpacklo_epi8(ab, z), b = _mm_unpackhi_epi8(ab, z);
    __m128i c = _mm_unpacklo_epi8(cd, z), d = _mm_unpackhi_epi8(cd, z);
    filter(a, b, c, d, strength);
    const __m128i ab2 = _mm_packus_epi16(a, b), cd2 = _mm_packus_epi16(c, d);
    const __m128i w0 = _mm_unpacklo_epi8(ab2, cd2), w1 = _mm_unpackhi_epi8(ab2, cd2);
    __m128i x0 = _mm_unpacklo_epi8(w0, w1), x1 = _mm_unpackhi_epi8(w0, w1);
    for (int i = 0; i < 4; ++i) {
        const uint32_t lo = static_cast<uint32_t>(_mm_cvtsi128_si32(x0));
        const uint32_t hi = static_cast<uint32_t>(_mm_cvtsi128_si32(x1));
        std::memcpy(r[i], &lo, 4);
        std::memcpy(r[i + 4], &hi, 4);
        x0 = _mm_srli_si128(x0, 4);
        x1 = _mm_srli_si128(x1, 4);
    }
}

// ---- Overlapped block motion compensation --------------------------------------

inline __m128i load4(const uint8_t* p) {
    uint32_t w;
    std::memcpy(&w, p, 4);
    return _mm_cvtsi32_si128(static_cast<int>(w));
}

// The half-sample prediction of `n` (4 or 8) samples of row y for vector mv,
// as 16-bit lanes; it reads exactly the samples the prediction needs.
template <int N>
inline __m128i predict_row(const uint8_t* ref, int32_t step, const int16_t* mv, int x0, int y) {
    const int hx = mv[0] & 1, hy = mv[1] & 1;
    const uint8_t* s = ref + static_cast<intptr_t>(y + (mv[1] >> 1)) * step + x0 + (mv[0] >> 1);
    auto load = [](const uint8_t* p) {
        return _mm_unpacklo_epi8(N == 8 ? load8(p) : load4(p), _mm_setzero_si128());
    };
    const __m128i a = load(s);
    if (!hx && !hy) return a;
    if (hx && hy) {
        const __m128i sum =
            _mm_add_epi16(_mm_add_epi16(a, load(s + 1)), _mm_add_epi16(load(s + step), load(s + step + 1)));
        return _mm_srli_epi16(_mm_add_epi16(sum, _mm_set1_epi16(2)), 2);
    }
    const __m128i b = load(hx ? s + 1 : s + step);
    return _mm_srli_epi16(_mm_add_epi16(_mm_add_epi16(a, b), _mm_set1_epi16(1)), 1);
}

inline __m128i weights(const uint8_t (&w)[8]) { return _mm_unpacklo_epi8(load8(w), _mm_setzero_si128()); }

void obmc(const uint8_t* ref, uint8_t* dst, int32_t step, const ObmcVectors& mv) {
    const ObmcWeights& w = kObmcWeights;
    for (int y = 0; y < 8; ++y) {
        const __m128i q = predict_row<8>(ref, step, mv.cur, 0, y);
        const __m128i r = predict_row<8>(ref, step, y < 4 ? mv.above : mv.below, 0, y);
        // Columns 0-3 from the left vector, 4-7 from the right one.
        const __m128i s = _mm_unpacklo_epi64(predict_row<4>(ref, step, mv.left, 0, y),
                                             predict_row<4>(ref, step, mv.right, 4, y));
        __m128i acc = _mm_mullo_epi16(q, weights(w.h0[y]));
        acc = _mm_add_epi16(acc, _mm_mullo_epi16(r, weights(w.h1[y])));
        acc = _mm_add_epi16(acc, _mm_mullo_epi16(s, weights(w.h2[y])));
        acc = _mm_srli_epi16(_mm_add_epi16(acc, _mm_set1_epi16(4)), 3);
        store8(dst + static_cast<intptr_t>(y) * step, _mm_packus_epi16(acc, acc));
    }
}

}  // namespace

void upgrade_recon(ReconKernels& k) {
    k.obmc = obmc;
    k.recon16 = recon16;
    k.recon8 = recon8;
    k.deblock_hor = deblock_hor;
    k.deblock_ver = deblock_ver;
}

}  // namespace kplvc::h263::x86::sse2
