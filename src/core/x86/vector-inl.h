// vector-inl.h: the parts of the vector kernels that the SSE2 and AVX2 files
// share: short copies, and the 16-bit scaling and thresholds over a run.
//
// Per-ISA body: include it only inside the anonymous namespace of an x86/
// file's own namespace (kplvc::vector::x86::<isa>), after that file's
// intrinsics header and <cstring>. It includes nothing, so each including
// file compiles its own internal copy with its own flags. Needs: SSE2, and
// of the includer a lane ops struct O: vector type V of kLanes 16-bit lanes;
// set1 (16-bit), set1_32, zero, load, store, load_aligned, store_aligned,
// mullo, mulhi, unpacklo, unpackhi (16-bit), packs (32 to 16 bits, within
// 128-bit lanes, so unpack then pack keeps the order), srai32<n>, sll32 and
// sra32 by a count in a __m128i, add32, and_, or_, cmpgt, min, max.
#pragma once

// A copy of fewer than 16 bytes with at most two overlapping loads and
// stores of 8 or 4 bytes each.
inline void copy_below16(const uint8_t* src, uint8_t* dst, size_t len) {
    if (len >= 8) {
        uint64_t a, b;
        std::memcpy(&a, src, 8);
        std::memcpy(&b, src + len - 8, 8);
        std::memcpy(dst, &a, 8);
        std::memcpy(dst + len - 8, &b, 8);
    } else if (len >= 4) {
        uint32_t a, b;
        std::memcpy(&a, src, 4);
        std::memcpy(&b, src + len - 4, 4);
        std::memcpy(dst, &a, 4);
        std::memcpy(dst + len - 4, &b, 4);
    } else {
        for (size_t i = 0; i < len; ++i) dst[i] = src[i];
    }
}

// Runs op over len 16-bit cells, kLanes at a time; the tail goes through a
// zero-padded local vector, so nothing outside the run is read or written.
template <class O, class Op>
inline void map16(int16_t* p, size_t len, Op op) {
    using V = typename O::V;
    size_t i = 0;
    for (; i + O::kLanes <= len; i += O::kLanes) O::store(p + i, op(O::load(p + i)));
    if (i < len) {
        alignas(sizeof(V)) int16_t t[O::kLanes] = {};
        std::memcpy(t, p + i, (len - i) * 2);
        O::store_aligned(t, op(O::load_aligned(t)));
        std::memcpy(p + i, t, (len - i) * 2);
    }
}

// The signed products x * v of the lanes as two vectors of 32-bit lanes.
template <class O>
inline void mul32(typename O::V x, typename O::V v, typename O::V& lo, typename O::V& hi) {
    const typename O::V l = O::mullo(x, v), h = O::mulhi(x, v);
    lo = O::unpacklo(l, h);
    hi = O::unpackhi(l, h);
}

template <class O>
void mulc_sat(int16_t* p, size_t len, int16_t val) {
    using V = typename O::V;
    const V v = O::set1(val);
    map16<O>(p, len, [v](V x) {
        V lo, hi;
        mul32<O>(x, v, lo, hi);
        return O::packs(lo, hi);
    });
}

template <class O>
void mulc_up(int16_t* p, size_t len, int16_t val, int n) {
    using V = typename O::V;
    const V v = O::set1(val);
    const __m128i sh = _mm_cvtsi32_si128(n);
    map16<O>(p, len, [v, sh](V x) {
        V lo, hi;
        mul32<O>(x, v, lo, hi);
        const V q = O::packs(lo, hi);  // sat(x * val)
        // |q| << 15 <= 2^30: the shift fits 32-bit lanes, then saturate.
        lo = O::sll32(O::template srai32<16>(O::unpacklo(q, q)), sh);
        hi = O::sll32(O::template srai32<16>(O::unpackhi(q, q)), sh);
        return O::packs(lo, hi);
    });
}

template <class O>
void mulc_down(int16_t* p, size_t len, int16_t val, int s) {
    using V = typename O::V;
    const V v = O::set1(val);
    const __m128i sh = _mm_cvtsi32_si128(s);
    const V half = O::set1_32((1 << (s - 1)) - 1);
    const V one = O::set1_32(1);
    map16<O>(p, len, [=](V x) {
        V lo, hi;
        mul32<O>(x, v, lo, hi);
        lo = O::add32(O::add32(lo, half), O::and_(O::sra32(lo, sh), one));
        hi = O::add32(O::add32(hi, half), O::and_(O::sra32(hi, sh), one));
        return O::packs(O::sra32(lo, sh), O::sra32(hi, sh));
    });
}

// x > 0 -> +max, x < 0 -> -max (before the sign of val); zero stays zero.
template <class O>
void mulc_sign(int16_t* p, size_t len, int16_t val) {
    using V = typename O::V;
    const V pos = O::set1(val < 0 ? -32768 : 32767);
    const V neg = O::set1(val < 0 ? 32767 : -32768);
    const V zero = O::zero();
    map16<O>(p, len, [=](V x) {
        const V gt = O::cmpgt(x, zero), lt = O::cmpgt(zero, x);
        return O::or_(O::and_(gt, pos), O::and_(lt, neg));
    });
}

template <class O>
void threshold_gt(int16_t* p, size_t len, int16_t level) {
    using V = typename O::V;
    const V l = O::set1(level);
    map16<O>(p, len, [l](V x) { return O::min(x, l); });
}

template <class O>
void threshold_lt(int16_t* p, size_t len, int16_t level) {
    using V = typename O::V;
    const V l = O::set1(level);
    map16<O>(p, len, [l](V x) { return O::max(x, l); });
}

// The scaling and threshold entries of the table.
template <class O>
void install_scaling(VectorKernels& k) {
    k.mulc_sat = mulc_sat<O>;
    k.mulc_up = mulc_up<O>;
    k.mulc_down = mulc_down<O>;
    k.mulc_sign = mulc_sign<O>;
    k.threshold_gt = threshold_gt<O>;
    k.threshold_lt = threshold_lt<O>;
}
