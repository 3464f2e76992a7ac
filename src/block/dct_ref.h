// Scalar reference kernels of the transform family: the plain formulas, used
// as the portable path and as the oracle for every SIMD variant.
#pragma once

#include <cstdint>

namespace kplvc::block::ref {

// Table-driven engine (dct_table.cpp).
void inv(const int16_t* src, int16_t* dst);
void inv_4x4(int16_t* blk);
void inv_2x2(int16_t* blk);
void inv_u8(const int16_t* src, uint8_t* dst, int32_t step);
void fwd(const int16_t* src, int16_t* dst);
void fwd_u8(const uint8_t* src, int32_t step, int16_t* dst);

// Matrix engine (dct_aan.cpp).
void aan(const int16_t* src, int16_t* out);
void aan_corner(const int16_t* src, int16_t* out);
void put_16s(const int16_t* v, int16_t* dst, int32_t step);
void put_u8(const int16_t* v, uint8_t* dst, int32_t step);
void put_16s_p2(const int16_t* u, const int16_t* v, int16_t* dst, int32_t step);
void put_u8_p2(const int16_t* u, const int16_t* v, uint8_t* dst, int32_t step);

// 2-4-8 engine (dct_field.cpp).
void field_fwd(int16_t* blk);
void field_inv(int16_t* blk);

}  // namespace kplvc::block::ref
