// Scan orders of 8x8 coefficient blocks: entry i of a scan is the raster
// position (8 * row + column) of the i-th coefficient in scan order.
//
// Each scan exists in three constant forms with the same contents: bytes
// (ZigzagC/H/V), 16-bit entries for the inverse scans (ownZigZagC/H/V) and
// the encoders' byte tables. The encoders' names `_kplVerticalZigzag` and
// `_kplHorizontalZigzag` are swapped with respect to what they hold (the
// alternate-horizontal and the alternate-vertical scan); they are kept so.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace kplvc::block {

// Classical zigzag (MPEG-1, MPEG-2, H.263, MPEG-4).
inline constexpr uint8_t ZigzagC[64] = {
    0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,  12, 19, 26, 33, 40, 48,
    41, 34, 27, 20, 13, 6,  7,  14, 21, 28, 35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23,
    30, 37, 44, 51, 58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63,
};

// Alternate-horizontal scan.
inline constexpr uint8_t ZigzagH[64] = {
    0,  1,  2,  3,  8,  9,  16, 17, 10, 11, 4,  5,  6,  7,  15, 14, 13, 12, 19, 18, 24, 25,
    32, 33, 26, 27, 20, 21, 22, 23, 28, 29, 30, 31, 34, 35, 40, 41, 48, 49, 42, 43, 36, 37,
    38, 39, 44, 45, 46, 47, 50, 51, 56, 57, 58, 59, 52, 53, 54, 55, 60, 61, 62, 63,
};

// Alternate-vertical scan (the MPEG-2 alternate scan).
inline constexpr uint8_t ZigzagV[64] = {
    0,  8,  16, 24, 1,  9,  2,  10, 17, 25, 32, 40, 48, 56, 57, 49, 41, 33, 26, 18, 3,  11,
    4,  12, 19, 27, 34, 42, 50, 58, 35, 43, 51, 59, 20, 28, 5,  13, 6,  14, 21, 29, 36, 44,
    52, 60, 37, 45, 53, 61, 22, 30, 7,  15, 23, 31, 38, 46, 54, 62, 39, 47, 55, 63,
};

namespace detail {
constexpr std::array<int16_t, 64> widen(const uint8_t (&s)[64]) {
    std::array<int16_t, 64> w{};
    for (int i = 0; i < 64; ++i) w[static_cast<std::size_t>(i)] = s[i];
    return w;
}
}  // namespace detail

// 16-bit forms, read by the inverse scans.
inline constexpr std::array<int16_t, 64> ownZigZagC = detail::widen(ZigzagC);
inline constexpr std::array<int16_t, 64> ownZigZagH = detail::widen(ZigzagH);
inline constexpr std::array<int16_t, 64> ownZigZagV = detail::widen(ZigzagV);

// The encoders' byte tables: the same bytes as ZigzagC/H/V (one table each),
// under their historical names.
inline constexpr const uint8_t (&_kplClassicalZigzag)[64] = ZigzagC;
inline constexpr const uint8_t (&_kplVerticalZigzag)[64] = ZigzagH;    // alternate-horizontal
inline constexpr const uint8_t (&_kplHorizontalZigzag)[64] = ZigzagV;  // alternate-vertical

// pDst[scan[i]] = pSrc[i] for i < len. No aliasing between src and dst.
inline void inverse_scan(const int16_t* src, int16_t* dst, const std::array<int16_t, 64>& scan, int32_t len) {
    for (int32_t i = 0; i < len; ++i) dst[scan[static_cast<std::size_t>(i)]] = src[i];
}

}  // namespace kplvc::block
