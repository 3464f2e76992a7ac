// SSSE3 H.264 4x4 predictors. Every sample of a directional mode is either
// the 2-tap value f2[i] = (e[i] + e[i+1] + 1) >> 1 or the 3-tap value
// f3[i] = (e[i-1] + 2e[i] + e[i+1] + 2) >> 2 of the gathered edge run (layout
// in h264/pred.h), so a mode is two filtered vectors and two pshufb.
#include <tmmintrin.h>

#include <array>
#include <cstring>

#include "core/arith.h"
#include "h264/pred.h"

namespace kplvc::h264::x86::ssse3 {
namespace {

// Where each of the 16 output samples (raster order) comes from: the index
// into f2 or f3, with 0x80 (pshufb's zero) in the table that does not supply it.
struct Pick {
    std::array<uint8_t, 16> f2, f3;
};

constexpr uint8_t kNone = 0x80;

// Builds the pick tables from a rule (x, y) -> (uses f3, index).
template <class Rule>
constexpr Pick make_pick(Rule rule) {
    Pick p{};
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x) {
            const auto [three, i] = rule(x, y);
            p.f2[static_cast<size_t>(4 * y + x)] = three ? kNone : static_cast<uint8_t>(i);
            p.f3[static_cast<size_t>(4 * y + x)] = three ? static_cast<uint8_t>(i) : kNone;
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

inline __m128i load_table(const std::array<uint8_t, 16>& t) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(t.data()));
}

inline void store4x4(uint8_t* d, int32_t step, __m128i v) {
    for (int y = 0; y < 4; ++y) {
        store32u(row_at(d, step, y), static_cast<uint32_t>(_mm_cvtsi128_si32(v)));
        v = _mm_srli_si128(v, 4);
    }
}

template <const Pick& P>
void directional(uint8_t* d, int32_t step, const uint8_t* edge, int32_t) {
    const __m128i e = _mm_load_si128(reinterpret_cast<const __m128i*>(edge));
    const __m128i el = _mm_slli_si128(e, 1), er = _mm_srli_si128(e, 1);
    const __m128i f2 = _mm_avg_epu8(e, er);
    // floor((a + c) / 2) = pavgb(a, c) - ((a ^ c) & 1), and
    // (a + 2b + c + 2) >> 2 = pavgb(b, floor((a + c) / 2)) exactly.
    const __m128i half = _mm_sub_epi8(_mm_avg_epu8(el, er), _mm_and_si128(_mm_xor_si128(el, er), _mm_set1_epi8(1)));
    const __m128i f3 = _mm_avg_epu8(e, half);
    store4x4(d, step, _mm_or_si128(_mm_shuffle_epi8(f2, load_table(P.f2)), _mm_shuffle_epi8(f3, load_table(P.f3))));
}

void vertical(uint8_t* d, int32_t step, const uint8_t* edge, int32_t) {
    const uint32_t t = load32u(edge + kEdge4C + 1);
    for (int y = 0; y < 4; ++y) store32u(row_at(d, step, y), t);
}

void horizontal(uint8_t* d, int32_t step, const uint8_t* edge, int32_t) {
    const __m128i e = _mm_load_si128(reinterpret_cast<const __m128i*>(edge));
    store4x4(d, step, _mm_shuffle_epi8(e, _mm_setr_epi8(4, 4, 4, 4, 3, 3, 3, 3, 2, 2, 2, 2, 1, 1, 1, 1)));
}

void dc(uint8_t* d, int32_t step, const uint8_t* edge, int32_t avail) {
    const bool t = (avail & kAvailTop) != 0, l = (avail & kAvailLeft) != 0;
    int v = 128;
    if (t || l) {
        const int st = t ? edge[6] + edge[7] + edge[8] + edge[9] : 0;
        const int sl = l ? edge[1] + edge[2] + edge[3] + edge[4] : 0;
        v = t && l ? (st + sl + 4) >> 3 : (st + sl + 2) >> 2;
    }
    const uint32_t w = 0x01010101u * static_cast<uint32_t>(v);
    for (int y = 0; y < 4; ++y) store32u(row_at(d, step, y), w);
}

}  // namespace

void upgrade_pred(PredKernels& k) {
    k.pred4x4[0] = vertical;
    k.pred4x4[1] = horizontal;
    k.pred4x4[2] = dc;
    k.pred4x4[3] = directional<kDiagDownLeft>;
    k.pred4x4[4] = directional<kDiagDownRight>;
    k.pred4x4[5] = directional<kVerticalRight>;
    k.pred4x4[6] = directional<kHorizontalDown>;
    k.pred4x4[7] = directional<kVerticalLeft>;
    k.pred4x4[8] = directional<kHorizontalUp>;
}

}  // namespace kplvc::h264::x86::ssse3
