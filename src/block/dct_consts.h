// Constants of the three transform engines. Data only (constexpr arrays with
// internal linkage), so every ISA file may include it.
#pragma once

#include <cstdint>

namespace kplvc::block::dct {

// ---- Table-driven engine ------------------------------------------------------
// Tangents and cosines as 16-bit multipliers for the high-half product
// (values above 32767 are stored minus 65536; the code adds x back).
constexpr int16_t tg_1_16 = 13036;
constexpr int16_t tg_2_16 = 27146;
constexpr int16_t tg_3_16 = -21746;
constexpr int16_t cos_4_16 = -19195;
constexpr int16_t ocos_4_16 = 23170;
constexpr int16_t one_corr = 1;
constexpr int32_t round_frw_row = 1 << 19;
constexpr int32_t round_i[8] = {65536, 5802, 4520, 3408, 2048, 910, 1024, 746};

// Inverse row tables, in the order of the row step's multiply-accumulates:
// T0..T15 weigh the even inputs (x0, x2, x4, x6), T16..T31 the odd ones.
constexpr int16_t tab_i_04[32] = {16384, 21407,  16384, 8867,   16384,  8867,  -16384, -21407,
                                  16384, -8867,  16384, -21407, -16384, 21407, 16384,  -8867,
                                  22725, 19266,  19266, -4520,  12873,  4520,  -22725, -12873,
                                  12873, -22725, 4520,  -12873, 4520,   19266, 19266,  -22725};
constexpr int16_t tab_i_17[32] = {22725, 29692,  22725, 12299,  22725,  12299, -22725, -29692,
                                  22725, -12299, 22725, -29692, -22725, 29692, 22725,  -12299,
                                  31521, 26722,  26722, -6270,  17855,  6270,  -31521, -17855,
                                  17855, -31521, 6270,  -17855, 6270,   26722, 26722,  -31521};
constexpr int16_t tab_i_26[32] = {21407, 27969,  21407, 11585,  21407,  11585, -21407, -27969,
                                  21407, -11585, 21407, -27969, -21407, 27969, 21407,  -11585,
                                  29692, 25172,  25172, -5906,  16819,  5906,  -29692, -16819,
                                  16819, -29692, 5906,  -16819, 5906,   25172, 25172,  -29692};
constexpr int16_t tab_i_35[32] = {19266, 25172,  19266, 10426,  19266,  10426, -19266, -25172,
                                  19266, -10426, 19266, -25172, -19266, 25172, 19266,  -10426,
                                  26722, 22654,  22654, -5315,  15137,  5315,  -26722, -15137,
                                  15137, -26722, 5315,  -15137, 5315,   22654, 22654,  -26722};

// A row group's table is built from seven weights. In tab_i they sit at:
// W4 = T0, W2 = T1, W6 = T3, W1 = T16, W3 = T17, W5 = T20, W7 = T21.
// The forward table holds the same weights in the order of the forward row
// step (pairs of S and D inputs). Each entry: index into tab_i, then sign.
struct FwdPick {
    int8_t idx, sign;
};
constexpr FwdPick kFwdPattern[32] = {
    {0, 1}, {0, 1},  {16, 1}, {17, 1},  {0, 1},  {0, 1},  {20, 1},  {21, 1},   // W4 W4 W1 W3 W4 W4 W5 W7
    {1, 1}, {3, 1},  {17, 1}, {21, -1}, {3, -1}, {1, -1}, {16, -1}, {20, -1},  // W2 W6 W3 -W7 -W6 -W2 -W1 -W5
    {0, 1}, {0, -1}, {20, 1}, {16, -1}, {0, -1}, {0, 1},  {21, 1},  {17, 1},   // W4 -W4 W5 -W1 -W4 W4 W7 W3
    {3, 1}, {1, -1}, {21, 1}, {20, -1}, {1, 1},  {3, -1}, {17, 1},  {16, -1},  // W6 -W2 W7 -W5 W2 -W6 W3 -W1
};

struct Table32 {
    int16_t v[32];
};
static constexpr Table32 make_fwd(const int16_t (&inv)[32]) {
    Table32 t{};
    for (int n = 0; n < 32; ++n) t.v[n] = static_cast<int16_t>(inv[kFwdPattern[n].idx] * kFwdPattern[n].sign);
    return t;
}
constexpr Table32 tab_f_04 = make_fwd(tab_i_04);
constexpr Table32 tab_f_17 = make_fwd(tab_i_17);
constexpr Table32 tab_f_26 = make_fwd(tab_i_26);
constexpr Table32 tab_f_35 = make_fwd(tab_i_35);

// Row r of the block uses these tables (inverse and forward alike).
static constexpr const int16_t* inv_table(int r) {
    constexpr const int16_t* t[8] = {tab_i_04, tab_i_17, tab_i_26, tab_i_35,
                                     tab_i_04, tab_i_35, tab_i_26, tab_i_17};
    return t[r];
}
static constexpr const int16_t* fwd_table(int r) {
    constexpr const int16_t* t[8] = {tab_f_04.v, tab_f_17.v, tab_f_26.v, tab_f_35.v,
                                     tab_f_04.v, tab_f_35.v, tab_f_26.v, tab_f_17.v};
    return t[r];
}

// ---- Matrix engine ------------------------------------------------------------
// C[k] = round(65536 cos(k pi / 16)); C[0] is not used.
constexpr int32_t aan_c[8] = {65536, 64276, 60547, 54491, 46340, 36409, 25079, 12785};
constexpr int32_t aan_round1 = 32768;   // pass 1: (r + 32768) >> 16
constexpr int32_t aan_round2 = 163840;  // pass 2: (r + 163840) >> 18, 0.625 of a unit

// ---- 2-4-8 engine -------------------------------------------------------------
// Forward row pass weights: even rows (0, 2, 4, 6) and odd rows, the latter
// scaled by 10703/8192. Order: c0, a (10703), b (4433), c1, c3, c5, c7.
constexpr int32_t field_fwd_even[7] = {8192, 10703, 4433, 11363, 9633, 6436, 2260};
constexpr int32_t field_fwd_odd[7] = {10703, 13985, 5793, 14846, 12586, 8410, 2953};

// Inverse: the 8-point row pass weighs input k by field_inv_ck (about
// 2^14 sqrt(2) cos(k pi / 16); c4 is 2^14 exactly), the odd part's rotation
// multiplies by field_inv_r (about 2^14 / sqrt(2)), and the 4-point vertical
// passes reuse c2, c4 and c6.
constexpr int32_t field_inv_c1 = 22725;
constexpr int32_t field_inv_c2 = 21406;
constexpr int32_t field_inv_c3 = 19265;
constexpr int32_t field_inv_c4 = 16384;
constexpr int32_t field_inv_c5 = 12872;
constexpr int32_t field_inv_c6 = 8866;
constexpr int32_t field_inv_c7 = 4520;
constexpr int32_t field_inv_r = 11585;

}  // namespace kplvc::block::dct
