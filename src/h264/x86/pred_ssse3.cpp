// SSSE3 H.264 4x4 predictors. Every sample of a directional mode is either
// the 2-tap value f2[i] = (e[i] + e[i+1] + 1) >> 1 or the 3-tap value
// f3[i] = (e[i-1] + 2e[i] + e[i+1] + 2) >> 2 of the gathered edge run (layout
// in h264/pred.h), so a mode is two filtered vectors and two pshufb. The
// kernels gather that run from the frame straight into a register.
#include <tmmintrin.h>

#include <cstring>

#include "core/arith.h"
#include "h264/pred.h"

namespace kplvc::h264::x86::ssse3 {
namespace {

// Where each of the 16 output samples (raster order) comes from: the index
// into f2 or f3, with 0x80 (pshufb's zero) in the table that does not supply it.
// Plain arrays: a standard container's inline members would be vague-linkage
// symbols of this ISA file.
struct Pick {
    uint8_t f2[16], f3[16];
};

constexpr uint8_t kNone = 0x80;

// Builds the pick tables from a rule (x, y) -> (uses f3, index).
template <class Rule>
constexpr Pick make_pick(Rule rule) {
    Pick p{};
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x) {
            const auto [three, i] = rule(x, y);
            p.f2[4 * y + x] = three ? kNone : static_cast<uint8_t>(i);
            p.f3[4 * y + x] = three ? static_cast<uint8_t>(i) : kNone;
        }
    return p;
}

struct Src {
    bool three;
    int i;
};

// Edge positions: L(y) = e[4 - y], T(x) = e[6 + x], C = e[5]; the rules below
// are the directional equations rewritten as positions along that run.
constexpr Pick kDiagDownLeft = make_pick([](int x, int y) { return Src{true, 7 + x + y}; });
constexpr Pick kDiagDownRight = make_pick([](int x, int y) { return Src{true, 5 + x - y}; });
constexpr Pick kVerticalRight = make_pick([](int x, int y) {
    const int z = 2 * x - y, xo = x - (y >> 1);
    if (z >= 0 && (z & 1) == 0) return Src{false, 5 + xo};
    if (z > 0) return Src{true, 5 + xo};
    if (z == -1) return Src{true, 5};
    return Src{true, 6 - y};
});
constexpr Pick kHorizontalDown = make_pick([](int x, int y) {
    const int z = 2 * y - x, yo = y - (x >> 1);
    if (z >= 0 && (z & 1) == 0) return Src{false, 4 - yo};
    if (z > 0) return Src{true, 5 - yo};
    if (z == -1) return Src{true, 5};
    return Src{true, 4 + x};
});
constexpr Pick kVerticalLeft = make_pick([](int x, int y) {
    const int i = x + (y >> 1);
    return (y & 1) == 0 ? Src{false, 6 + i} : Src{true, 7 + i};
});
constexpr Pick kHorizontalUp = make_pick([](int x, int y) {
    const int z = x + 2 * y, i = y + (x >> 1);
    if (z > 5) return Src{false, 0};  // f2[0] = (L3 + L3 + 1) >> 1 = L3
    if (z == 5) return Src{true, 1};  // (L2 + 3 L3 + 2) >> 2
    return (z & 1) == 0 ? Src{false, 3 - i} : Src{true, 3 - i};
});

inline __m128i load_table(const uint8_t (&t)[16]) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(t));
}

inline void store4x4(uint8_t* d, int32_t step, __m128i v) {
    store32u(row_at(d, step, 0), static_cast<uint32_t>(_mm_cvtsi128_si32(v)));
    store32u(row_at(d, step, 1), static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_srli_si128(v, 4))));
    store32u(row_at(d, step, 2), static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_srli_si128(v, 8))));
    store32u(row_at(d, step, 3), static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_srli_si128(v, 12))));
}

inline void fill4(uint8_t* d, int32_t step, uint32_t w) {
    const intptr_t s = step;
    store32u(d, w);
    store32u(d + s, w);
    store32u(d + 2 * s, w);
    store32u(d + 3 * s, w);
}

constexpr uint32_t kFill128 = 0x80808080u;

// The left column as one little-endian word in edge order: L3, L2, L1, L0.
inline uint32_t left_word(const uint8_t* d, int32_t step) {
    return uint32_t{row_at(d, step, 3)[-1]} | uint32_t{row_at(d, step, 2)[-1]} << 8 |
           uint32_t{row_at(d, step, 1)[-1]} << 16 | uint32_t{row_at(d, step, 0)[-1]} << 24;
}

// Gathers the edge run of mode M straight into a register, substituting as
// the scalar gather does. Only neighbours the mode reads and avail marks
// present are loaded. The pieces meet in one register as
// [left word, C, 0, 0, 0, T0..T7] and one pshufb lays out the run.
template <int M>
inline __m128i gather(const uint8_t* d, int32_t step, int32_t avail) {
    const uint8_t* above = row_at(d, step, -1);
    uint32_t left = 0, corner = 0;
    __m128i top = _mm_setzero_si128();
    if constexpr (kUsesTop[M]) {
        const uint32_t t = (avail & kAvailTop) ? load32u(above) : kFill128;
        uint32_t tr = 0;
        if constexpr (kUsesTopRight[M])
            tr = (avail & kAvailTopRight) ? load32u(above + 4) : (t >> 24) * 0x01010101u;
        top = _mm_unpacklo_epi32(_mm_cvtsi32_si128(static_cast<int>(t)),
                                 _mm_cvtsi32_si128(static_cast<int>(tr)));
    }
    if constexpr (kUsesLeft[M]) left = (avail & kAvailLeft) ? left_word(d, step) : kFill128;
    if constexpr (kUsesCorner[M]) corner = (avail & kAvailCorner) ? above[-1] : 128u;
    const __m128i lc = _mm_unpacklo_epi32(_mm_cvtsi32_si128(static_cast<int>(left)),
                                          _mm_cvtsi32_si128(static_cast<int>(corner)));
    return _mm_shuffle_epi8(_mm_unpacklo_epi64(lc, top),
                            _mm_setr_epi8(0, 0, 1, 2, 3, 4, 8, 9, 10, 11, 12, 13, 14, 15, 15, -128));
}

template <int M, const Pick& P>
int32_t directional(uint8_t* d, int32_t step, int32_t avail) {
    const __m128i e = gather<M>(d, step, avail);
    const __m128i el = _mm_slli_si128(e, 1), er = _mm_srli_si128(e, 1);
    const __m128i f2 = _mm_avg_epu8(e, er);
    // floor((a + c) / 2) = pavgb(a, c) - ((a ^ c) & 1), and
    // (a + 2b + c + 2) >> 2 = pavgb(b, floor((a + c) / 2)) exactly.
    const __m128i half =
        _mm_sub_epi8(_mm_avg_epu8(el, er), _mm_and_si128(_mm_xor_si128(el, er), _mm_set1_epi8(1)));
    const __m128i f3 = _mm_avg_epu8(e, half);
    store4x4(d, step,
             _mm_or_si128(_mm_shuffle_epi8(f2, load_table(P.f2)), _mm_shuffle_epi8(f3, load_table(P.f3))));
    return status4x4(M, avail);
}

int32_t vertical(uint8_t* d, int32_t step, int32_t avail) {
    fill4(d, step, (avail & kAvailTop) ? load32u(row_at(d, step, -1)) : kFill128);
    return status4x4(0, avail);
}

int32_t horizontal(uint8_t* d, int32_t step, int32_t avail) {
    if (!(avail & kAvailLeft)) {
        fill4(d, step, kFill128);
        return kNoNeighbourWarning;
    }
    const intptr_t s = step;
    store32u(d, 0x01010101u * d[-1]);
    store32u(d + s, 0x01010101u * d[s - 1]);
    store32u(d + 2 * s, 0x01010101u * d[2 * s - 1]);
    store32u(d + 3 * s, 0x01010101u * d[3 * s - 1]);
    return 0;
}

// Sum of the four bytes of w, in two halving steps.
inline uint32_t sum4(uint32_t w) {
    const uint32_t pairs = (w & 0x00FF00FFu) + ((w >> 8) & 0x00FF00FFu);
    return (pairs & 0xFFFFu) + (pairs >> 16);
}

// DC with a side missing, out of line so that the usual case (both present)
// is one predicted branch and a short straight run.
[[gnu::noinline]] int32_t dc_partial(uint8_t* d, int32_t step, int32_t avail) {
    const intptr_t s = step;
    uint32_t v = 128;
    if (avail & kAvailTop)
        v = (sum4(load32u(d - s)) + 2) >> 2;
    else if (avail & kAvailLeft)
        v = (uint32_t{d[-1]} + d[s - 1] + d[2 * s - 1] + d[3 * s - 1] + 2) >> 2;
    fill4(d, step, 0x01010101u * v);
    return 0;
}

int32_t dc(uint8_t* d, int32_t step, int32_t avail) {
    if ((avail & (kAvailTop | kAvailLeft)) != (kAvailTop | kAvailLeft)) [[unlikely]]
        return dc_partial(d, step, avail);
    const intptr_t s = step;
    const uint32_t left = (uint32_t{d[-1]} + d[s - 1]) + (uint32_t{d[2 * s - 1]} + d[3 * s - 1]);
    fill4(d, step, 0x01010101u * ((sum4(load32u(d - s)) + left + 4) >> 3));
    return 0;
}

}  // namespace

void upgrade_pred(PredKernels& k) {
    k.pred4x4[0] = vertical;
    k.pred4x4[1] = horizontal;
    k.pred4x4[2] = dc;
    k.pred4x4[3] = directional<3, kDiagDownLeft>;
    k.pred4x4[4] = directional<4, kDiagDownRight>;
    k.pred4x4[5] = directional<5, kVerticalRight>;
    k.pred4x4[6] = directional<6, kHorizontalDown>;
    k.pred4x4[7] = directional<7, kVerticalLeft>;
    k.pred4x4[8] = directional<8, kHorizontalUp>;
}

}  // namespace kplvc::h264::x86::ssse3
