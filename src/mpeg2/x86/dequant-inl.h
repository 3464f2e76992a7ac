// dequant-inl.h: inverse quantisation of a 64-coefficient block in 16-bit
// lanes, the method shared by the MPEG-2 and MPEG-4 inverse quantisers (the
// kernels of both sit in the MPEG-2 quantiser table).
//
// Per-ISA body: include it only inside the anonymous namespace of an x86/
// file's own namespace (kplvc::mpeg2::x86::<isa>), after that file's
// intrinsics header. It includes nothing, so each including file compiles
// its own internal copy with its own flags. Needs: SSE2, and of the includer
// a lane ops struct O: vector type V of kLanes 16-bit lanes; set1, zero,
// load (the block), load_weights, store, add, sub, mullo, cmpgt, and_, xor_,
// min, max, srai<n>; clear_lane0(v) (lane 0 set to 0) and parity(v) (bit 0
// of the xor of all lanes).
//
// Intra: p = low16(c·q)·W, offset when c <= 0, the DC taking part as 0 and
// put back afterwards. Otherwise: t = 2c + sgn c, p = t·q (·W when
// Weighted), offset when c < 0. Then p = (p + (2^Shift - 1 if offset)) >>
// Shift, clamped to -2048..2047. All products and sums wrap at 16 bits, as
// pmullw / paddw do. Mismatch control flips the low bit of block[63] when the
// sum of the block (the intra DC included as given) is even; the parity of a
// sum is the xor of the low bits, so the lanes are xor-ed.
#pragma once

template <class O, bool Intra, bool Weighted, int Shift>
void dequant_block(int16_t* block, int32_t qp, const int16_t* w) {
    static_assert(!Intra || Weighted, "the intra forms always have weights");
    using V = typename O::V;
    const V q = O::set1(static_cast<int16_t>(qp));
    const V zero = O::zero();
    const V one = O::set1(1);
    const V off = O::set1(static_cast<int16_t>((1 << Shift) - 1));
    const V lo = O::set1(-2048), hi = O::set1(2047);
    const int16_t c0 = block[0];
    V parity = zero;
    for (int i = 0; i < 64; i += O::kLanes) {
        V c = O::load(block + i);
        V p, cond;
        if constexpr (Intra) {
            if (i == 0) c = O::clear_lane0(c);
            p = O::mullo(c, q);
            cond = O::cmpgt(one, c);  // c <= 0
        } else {
            const V neg = O::cmpgt(zero, c), pos = O::cmpgt(c, zero);
            const V t = O::add(O::add(c, c), O::sub(neg, pos));
            p = O::mullo(t, q);
            cond = neg;
        }
        if constexpr (Weighted) p = O::mullo(p, O::load_weights(w + i));
        if constexpr (Shift > 0) p = O::template srai<Shift>(O::add(p, O::and_(cond, off)));
        p = O::min(O::max(p, lo), hi);
        O::store(block + i, p);
        parity = O::xor_(parity, p);
    }
    int32_t odd = O::parity(parity);
    if constexpr (Intra) {
        block[0] = c0;  // its lane stored 0, so the sum gains c0 itself
        odd ^= c0 & 1;
    }
    if (odd == 0) block[63] = static_cast<int16_t>(block[63] ^ 1);
}

// The six entries of the table: MPEG-2 shifts 4 (intra), 5 (inter), 1 (flat)
// and MPEG-4 shifts 3, 4 and none.
template <class O>
void install_dequant(QuantKernels& k) {
    k.dequant_intra = dequant_block<O, true, true, 4>;
    k.dequant_inter = dequant_block<O, false, true, 5>;
    k.dequant_flat = dequant_block<O, false, false, 1>;
    k.mpeg4_intra = dequant_block<O, true, true, 3>;
    k.mpeg4_inter = dequant_block<O, false, true, 4>;
    k.mpeg4_flat = dequant_block<O, false, false, 0>;
}
