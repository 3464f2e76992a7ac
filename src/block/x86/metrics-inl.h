// metrics-inl.h: loads, horizontal sums and the row walk shared by the x86
// files of the block-matching metrics (sad_*, var_*, metrics_*).
//
// Per-ISA body: include it only inside the anonymous namespace of an x86/
// file's own namespace (kplvc::block::x86::<isa>), after that file's
// intrinsics header, core/arith.h and core/x86/halfpel-inl.h. It includes
// nothing, so each including file compiles its own internal copy with its
// own flags. Needs: SSE2.
#pragma once

inline __m128i ld16(const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
inline __m128i ld8(const uint8_t* p) { return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)); }
inline __m128i ld4(const uint8_t* p) {
    int32_t v;
    __builtin_memcpy(&v, p, 4);
    return _mm_cvtsi32_si128(v);
}
// Two 8-byte rows in one register: row p in the low half, row p + step high.
inline __m128i ld8x2(const uint8_t* p, int32_t step) {
    return _mm_unpacklo_epi64(ld8(p), ld8(row_at(p, step, 1)));
}
inline const uint8_t* next(const uint8_t* p, int32_t step) { return row_at(p, step, 1); }

// Hands each pair (current row, predicted row) of an H-row block of width W
// (16, or 8 in the low half) to acc.
template <int P, int H, int W, class Acc>
inline __attribute__((always_inline)) void walk(const uint8_t* s, int32_t ss, const uint8_t* r, int32_t rs,
                                                Acc&& acc) {
    RowPredictor<P, W> pr(r, rs);
    for (int y = 0; y < H; ++y, s = next(s, ss)) acc(load_bytes<W>(s), pr.row());
}

inline int32_t hsum64(__m128i v) { return _mm_cvtsi128_si32(_mm_add_epi32(v, _mm_unpackhi_epi64(v, v))); }
inline int32_t hsum32(__m128i v) {
    v = _mm_add_epi32(v, _mm_unpackhi_epi64(v, v));
    v = _mm_add_epi32(v, _mm_shuffle_epi32(v, 0x55));
    return _mm_cvtsi128_si32(v);
}
