// Matrix-engine inverse of a transposed 8x8 block, scalar reference, and the
// stores shared by its entry points.
#include "block/dct.h"
#include "block/dct_consts.h"
#include "block/dct_ref.h"
#include "core/arith.h"

namespace kplvc::block::ref {

namespace {

using dct::aan_c;

// One 8-point step. The inputs are 16-bit in both passes (pass-1 results are
// (r + 32768) >> 16 of a 32-bit r), but C[k] reaches 64276, so a product can
// be as large as 2.1e9 and a sum of four passes 2^31: all of it wraps in 32
// bits. (z0 + z4) * C4 alone can reach 3e9.
void step(const int32_t z[8], int32_t r[8]) {
    auto m = [](int32_t c, int32_t v) { return mul32w(c, v); };
    const int32_t c1 = aan_c[1], c2 = aan_c[2], c3 = aan_c[3], c4 = aan_c[4];
    const int32_t c5 = aan_c[5], c6 = aan_c[6], c7 = aan_c[7];
    const int32_t s04 = m(add32w(z[0], z[4]), c4), d04 = m(sub32w(z[0], z[4]), c4);
    const int32_t g = add32w(m(c2, z[2]), m(c6, z[6]));
    const int32_t h = sub32w(m(c6, z[2]), m(c2, z[6]));
    const int32_t e0 = add32w(s04, g), e3 = sub32w(s04, g);
    const int32_t e1 = add32w(d04, h), e2 = sub32w(d04, h);
    const int32_t o0 = add32w(add32w(m(c1, z[1]), m(c3, z[3])), add32w(m(c5, z[5]), m(c7, z[7])));
    const int32_t o1 = sub32w(sub32w(m(c3, z[1]), m(c7, z[3])), add32w(m(c1, z[5]), m(c5, z[7])));
    const int32_t o2 = add32w(sub32w(m(c5, z[1]), m(c1, z[3])), add32w(m(c7, z[5]), m(c3, z[7])));
    const int32_t o3 = sub32w(add32w(sub32w(m(c7, z[1]), m(c5, z[3])), m(c3, z[5])), m(c1, z[7]));
    r[0] = add32w(e0, o0);
    r[7] = sub32w(e0, o0);
    r[1] = add32w(e1, o1);
    r[6] = sub32w(e1, o1);
    r[2] = add32w(e2, o2);
    r[5] = sub32w(e2, o2);
    r[3] = add32w(e3, o3);
    r[4] = sub32w(e3, o3);
}

// Pass 1 over source columns m (z_k = source row k), pass 2 over j.
void two_passes(const int16_t* src, int16_t* out) {
    int32_t t[8][8];
    for (int m = 0; m < 8; ++m) {
        int32_t z[8], r[8];
        for (int k = 0; k < 8; ++k) z[k] = src[8 * k + m];
        step(z, r);
        for (int k = 0; k < 8; ++k) t[m][k] = add32w(r[k], dct::aan_round1) >> 16;
    }
    for (int j = 0; j < 8; ++j) {
        int32_t z[8], r[8];
        for (int m = 0; m < 8; ++m) z[m] = t[m][j];
        step(z, r);
        for (int i = 0; i < 8; ++i)
            out[8 * i + j] = static_cast<int16_t>(clip3(-256, 255, add32w(r[i], dct::aan_round2) >> 18));
    }
}

template <class T, int E, int Lo>
void put(const int16_t* v, T* dst, int32_t step) {
    for (int i = 0; i < 8; ++i) {
        T* row = row_at(dst, step, i);
        for (int j = 0; j < 8; ++j) {
            const int32_t x = clip3(Lo, 255, v[8 * i + j]);
            if constexpr (sizeof(T) == 2)
                store16(row + E * j, static_cast<int16_t>(x));
            else
                row[E * j] = static_cast<T>(x);
        }
    }
}

}  // namespace

void aan(const int16_t* src, int16_t* out) { two_passes(src, out); }

// Only source rows 0..3 of columns 0..3 are read; the rest counts as zero:
// the corner alone, then the full transform.
void aan_corner(const int16_t* src, int16_t* out) {
    int16_t corner[64] = {};
    for (int k = 0; k < 4; ++k)
        for (int m = 0; m < 4; ++m) corner[8 * k + m] = src[8 * k + m];
    two_passes(corner, out);
}

void put_16s(const int16_t* v, int16_t* dst, int32_t step) { put<int16_t, 1, -256>(v, dst, step); }
void put_u8(const int16_t* v, uint8_t* dst, int32_t step) { put<uint8_t, 1, 0>(v, dst, step); }
void put_16s_p2(const int16_t* u, const int16_t* v, int16_t* dst, int32_t step) {
    put<int16_t, 2, -256>(u, dst, step);
    put<int16_t, 2, -256>(v, dst + 1, step);
}
void put_u8_p2(const int16_t* u, const int16_t* v, uint8_t* dst, int32_t step) {
    put<uint8_t, 2, 0>(u, dst, step);
    put<uint8_t, 2, 0>(v, dst + 1, step);
}

int16_t aan_dc_value(int16_t dc) {
    return static_cast<int16_t>(clip3(-256, 255, int32_t{dc} / 8));  // division truncates
}

void aan_fill(int16_t value, int16_t* out) {
    for (int i = 0; i < 64; ++i) out[i] = value;
}

}  // namespace kplvc::block::ref
