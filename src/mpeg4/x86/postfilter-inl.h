// postfilter-inl.h: the deblocking filter of ten lines of samples in 16-bit
// lanes, for any lane width of core/x86/lanes-inl.h (Lanes128) or
// lanes256-inl.h (Lanes256).
//
// Per-ISA body: include it only inside the anonymous namespace of an x86/
// file's own namespace, after the lanes header it uses. It includes nothing,
// so each including file compiles its own internal copy with its own flags.
#pragma once

template <class L>
struct DeblockLanes {
    using V = typename L::V;

    static V abs(V x) {
        const V s = L::template srai<15>(x);
        return L::sub(L::xor_(x, s), s);
    }
    // x // 8, halves away from zero; |x| + 4 stays below 2^15.
    static V div_round8(V x) {
        const V s = L::template srai<15>(x);
        const V m = L::template srai<3>(L::add(abs(x), L::set1(4)));
        return L::sub(L::xor_(m, s), s);
    }
    // [2 -5 5 -2] . (a, b, c, d) // 8; the sum lies within +-1785.
    static V a3(V a, V b, V c, V d) {
        const V ad = L::sub(a, d), cb = L::sub(c, b);
        const V cb2 = L::add(cb, cb);
        return div_round8(L::add(L::add(ad, ad), L::add(L::add(cb2, cb2), cb)));
    }

    // Ten lines v[0..9] (lanes 0..255) across an edge, q the QP per lane;
    // v[1..8] are replaced by their filtered values.
    static void filter(V (&v)[10], V q) {
        const V zero = L::zero();
        // Flat differences, counted as -1 each; six or more make the line smooth.
        V flat = zero;
        for (int i = 0; i < 9; ++i) flat = L::add(flat, L::lt(abs(L::sub(v[i], v[i + 1])), L::set1(3)));
        const V smooth = L::lt(flat, L::set1(-5));

        // DC offset mode.
        V mx = v[1], mn = v[1];
        for (int i = 2; i <= 8; ++i) {
            mx = L::max(mx, v[i]);
            mn = L::min(mn, v[i]);
        }
        const V dc = L::and_(smooth, L::lt(L::sub(mx, mn), L::add(q, q)));
        const V left = L::sel(L::lt(abs(L::sub(v[1], v[0])), q), v[0], v[1]);
        const V right = L::sel(L::lt(abs(L::sub(v[8], v[9])), q), v[9], v[8]);
        V e[16];
        for (int i = 0; i < 4; ++i) {
            e[i] = left;
            e[12 + i] = right;
        }
        for (int i = 1; i <= 8; ++i) e[i + 3] = v[i];
        V out[10];
        for (int n = 1; n <= 8; ++n) {
            // e[n-1..n+7] weighted 1 1 2 2 4 2 2 1 1, + 8: at most 16 * 255 + 8.
            const V ones = L::add(L::add(e[n - 1], e[n]), L::add(e[n + 6], e[n + 7]));
            const V twos = L::add(L::add(e[n + 1], e[n + 2]), L::add(e[n + 4], e[n + 5]));
            const V four = L::add(e[n + 3], e[n + 3]);
            const V sum = L::add(L::add(ones, L::set1(8)), L::add(L::add(twos, twos), L::add(four, four)));
            out[n] = L::sel(dc, L::template srai<4>(sum), v[n]);
        }

        // Default mode.
        const V a30 = a3(v[3], v[4], v[5], v[6]);
        const V a31 = a3(v[1], v[2], v[3], v[4]);
        const V a32 = a3(v[5], v[6], v[7], v[8]);
        const V s30 = L::template srai<15>(a30);
        const V m = L::min(abs(a30), L::min(abs(a31), abs(a32)));
        const V diff = L::sub(L::sub(L::xor_(m, s30), s30), a30);  // a3,0' - a3,0, within +-223
        const V diff2 = L::add(diff, diff);
        V d = div_round8(L::add(L::add(diff2, diff2), diff));
        const V x45 = L::sub(v[4], v[5]);
        const V half = L::template srai<1>(L::sub(x45, L::template srai<15>(x45)));  // truncated
        d = L::max(L::min(half, zero), L::min(L::max(half, zero), d));
        d = L::and_(L::andnot(smooth, L::lt(abs(a30), q)), d);
        out[4] = L::sub(out[4], d);  // v4 and v5 where the default mode applies
        out[5] = L::add(out[5], d);
        for (int n = 1; n <= 8; ++n) v[n] = out[n];
    }
};
