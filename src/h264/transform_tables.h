// Constant tables of the H.264 4x4 transforms and quantisers, and the 16-bit
// copies derived from them at compile time for the SIMD kernels.
//
// Positions in a 4x4 block are raster order (4 * row + column). The tables
// that QP indexes directly carry trailing zero words, so an index a little past
// the 0..51 range reads zero instead of running off the end; lookups with a
// caller-supplied QP go through the guarded accessors at the bottom.
#pragma once

#include <array>
#include <cstdint>

namespace kplvc::h264 {

// Position class: 0 row and column even, 1 both odd, 2 mixed.
inline constexpr int32_t QuantIndex[16] = {0, 2, 0, 2, 2, 1, 2, 1, 0, 2, 0, 2, 2, 1, 2, 1};

// Dequantisation scale v(QP mod 6, class) per class, before the 2^(QP div 6) factor.
inline constexpr int32_t kDequantV[6][3] = {{10, 16, 13}, {11, 18, 14}, {13, 20, 16},
                                            {14, 23, 18}, {16, 25, 20}, {18, 29, 23}};

// Forward multipliers per class (0, 1, 2) for QP mod 6.
inline constexpr int32_t kQuantMF[6][3] = {{13107, 5243, 8066}, {11916, 4660, 7490}, {10082, 4194, 6554},
                                           {9362, 3647, 5825},  {8192, 3355, 5243},  {7282, 2893, 4559}};

// InvQuantTable[3 * QP + class] = v(QP mod 6, class) << (QP div 6), QP 0..51,
// then four zero words. The largest entry is 23 << 8 = 5888 (QP 51, class 1).
inline constexpr std::array<int32_t, 160> InvQuantTable = [] {
    std::array<int32_t, 160> t{};
    for (int qp = 0; qp < 52; ++qp)
        for (int k = 0; k < 3; ++k) t[3 * qp + k] = kDequantV[qp % 6][k] << (qp / 6);
    return t;
}();

// Luma DC scale: v(QP mod 6, 0) << max(0, QP div 6 - 2); the shift that the
// rounding right shift of the low QPs undoes is applied by the caller.
inline constexpr std::array<int32_t, 52> InvQuantLuma16x16DCTable = [] {
    std::array<int32_t, 52> t{};
    for (int qp = 0; qp < 52; ++qp) {
        const int s = qp / 6 - 2;
        t[qp] = kDequantV[qp % 6][0] << (s > 0 ? s : 0);
    }
    return t;
}();

// QuantCoef[16 * (QP mod 6) + pos]: the forward multiplier of each position.
inline constexpr std::array<int32_t, 96> QuantCoef = [] {
    std::array<int32_t, 96> t{};
    for (int r = 0; r < 6; ++r)
        for (int p = 0; p < 16; ++p) t[16 * r + p] = kQuantMF[r][QuantIndex[p]];
    return t;
}();

// The same multipliers as (multiplier, 0) 16-bit pairs for a multiply-add
// unit. A little-endian 32-bit word holding a value below 2^15 is exactly the
// pair (value, 0), so this is QuantCoef itself, not a second copy.
inline constexpr const std::array<int32_t, 96>& mmx_FwdQuantTable = QuantCoef;

// FwdQuantTable[3 * (QP mod 6) + class], then six zero words.
inline constexpr std::array<int32_t, 24> FwdQuantTable = [] {
    std::array<int32_t, 24> t{};
    for (int r = 0; r < 6; ++r)
        for (int k = 0; k < 3; ++k) t[3 * r + k] = kQuantMF[r][k];
    return t;
}();

// Norm of the SP requantisation per position: 16, 25 and 20 by class.
inline constexpr int32_t MATR[16] = {16, 20, 16, 20, 20, 25, 20, 25, 16, 20, 16, 20, 20, 25, 20, 25};

// QP div 6 and QP mod 6 for QP 0..53, then two zero words.
inline constexpr std::array<int32_t, 56> dc_q = [] {
    std::array<int32_t, 56> t{};
    for (int qp = 0; qp < 54; ++qp) t[qp] = qp / 6;
    return t;
}();
inline constexpr std::array<int32_t, 56> dc_rems = [] {
    std::array<int32_t, 56> t{};
    for (int qp = 0; qp < 54; ++qp) t[qp] = qp % 6;
    return t;
}();

// DC rounding offsets: row 0 (inter) floor(2^(16+q) / 6), row 1 (intra)
// floor(2^(16+q) / 3), q = QP div 6 = 0..8; then six zero words.
inline constexpr std::array<int32_t, 24> dc_rounds = [] {
    std::array<int32_t, 24> t{};
    for (int q = 0; q < 9; ++q) {
        t[q] = static_cast<int32_t>((int64_t{1} << (16 + q)) / 6);
        t[9 + q] = static_cast<int32_t>((int64_t{1} << (16 + q)) / 3);
    }
    return t;
}();

// ClampTbl[256 + x] = x clamped to 0..255 for x in -256..511.
inline constexpr std::array<uint8_t, 768> ClampTbl = [] {
    std::array<uint8_t, 768> t{};
    for (int i = 0; i < 768; ++i) t[i] = static_cast<uint8_t>(i < 256 ? 0 : (i < 512 ? i - 256 : 255));
    return t;
}();

// ---- Derived 16-bit tables for the kernels -------------------------------------

// Dequantisation multiplier of every position for each QP 0..51 (all below
// 2^13, so they are exact in 16 bits).
inline constexpr auto kDequant16 = [] {
    std::array<std::array<int16_t, 16>, 52> t{};
    for (int qp = 0; qp < 52; ++qp)
        for (int p = 0; p < 16; ++p) t[qp][p] = static_cast<int16_t>(InvQuantTable[3 * qp + QuantIndex[p]]);
    return t;
}();

// Forward multiplier of every position for QP mod 6 (all below 2^14).
inline constexpr auto kQuant16 = [] {
    std::array<std::array<int16_t, 16>, 6> t{};
    for (int r = 0; r < 6; ++r)
        for (int p = 0; p < 16; ++p) t[r][p] = static_cast<int16_t>(QuantCoef[16 * r + p]);
    return t;
}();

// ---- Guarded lookups for unchecked QP / QS ---------------------------------------
// The SP/SI functions accept any QP and QS. Inside 0..51 these return the
// table entries; past the end they read the trailing zero words, and any index
// outside the table reads zero too, so no caller value can leave the tables.

template <class T, std::size_t N>
constexpr int32_t entry_or_zero(const std::array<T, N>& t, int64_t i) {
    return (i >= 0 && i < static_cast<int64_t>(N)) ? static_cast<int32_t>(t[static_cast<std::size_t>(i)]) : 0;
}
constexpr int32_t inv_quant_at(int32_t qp, int32_t cls) {
    return entry_or_zero(InvQuantTable, int64_t{3} * qp + cls);
}
constexpr int32_t qp_div6(int32_t qp) { return entry_or_zero(dc_q, qp); }
constexpr int32_t qp_mod6(int32_t qp) { return entry_or_zero(dc_rems, qp); }

}  // namespace kplvc::h264
