// MPEG-4 global motion compensation, AVX2: the 16-wide translation with a
// whole row in 16-bit lanes, and the affine warp with per-sample positions in
// 32-bit lanes and gathered samples.
//
// The affine kernel gathers the four bytes at each sample's integer
// position, so it runs only when every position of the block, with its right
// neighbour and three more bytes, and the row below lie inside the plane;
// the positions of an affine map are extreme at the block's corners, which
// is what it checks. Blocks near the edges go to the scalar kernel, whose
// clamping they need.
#include <immintrin.h>

#include "mpeg4/gmc.h"

namespace kplvc::mpeg4::x86::avx2 {

namespace {

void shift16(const uint8_t* ref, int32_t step, uint8_t* dst, int32_t dst_step, const WarpBlock& b,
             int32_t rc) {
    const int32_t s = 1 << b.log2s, mask = s - 1;
    const int32_t X = b.qx + (b.rx >> b.shift), Y = b.qy + (b.ry >> b.shift);
    const int32_t fx = X & mask, fy = Y & mask;
    const uint8_t* r = ref + static_cast<intptr_t>(Y >> b.log2s) * step + (X >> b.log2s);
    const __m256i wa = _mm256_set1_epi16(static_cast<int16_t>((s - fx) * (s - fy)));
    const __m256i wb = _mm256_set1_epi16(static_cast<int16_t>(fx * (s - fy)));
    const __m256i wc = _mm256_set1_epi16(static_cast<int16_t>((s - fx) * fy));
    const __m256i wd = _mm256_set1_epi16(static_cast<int16_t>(fx * fy));
    const __m256i round = _mm256_set1_epi16(static_cast<int16_t>((s * s >> 1) - rc));
    const __m128i sh = _mm_cvtsi32_si128(2 * b.log2s);
    auto ld = [](const uint8_t* p) {
        return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
    };
    __m256i top0 = ld(r), top1 = ld(r + 1);
    for (int j = 0; j < 16; ++j) {
        const uint8_t* r1 = r + static_cast<intptr_t>(j + 1) * step;
        const __m256i bot0 = ld(r1), bot1 = ld(r1 + 1);
        __m256i t = _mm256_add_epi16(_mm256_mullo_epi16(top0, wa), _mm256_mullo_epi16(top1, wb));
        t = _mm256_add_epi16(t, _mm256_add_epi16(_mm256_mullo_epi16(bot0, wc), _mm256_mullo_epi16(bot1, wd)));
        t = _mm256_srl_epi16(_mm256_add_epi16(t, round), sh);
        const __m128i out = _mm_packus_epi16(_mm256_castsi256_si128(t), _mm256_extracti128_si256(t, 1));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + static_cast<intptr_t>(j) * dst_step), out);
        top0 = bot0;
        top1 = bot1;
    }
}

// The scalar kernel, for blocks that touch the plane's edges (a copy of the
// reference's arithmetic: this file may not call into another ISA level's
// inline code).
template <int N>
void affine_edge(const uint8_t* ref, int32_t step, uint8_t* dst, int32_t dst_step, const WarpBlock& b,
                 int32_t rc) {
    const int32_t s = 1 << b.log2s, mask = s - 1, round = (s * s >> 1) - rc;
    auto clampi = [](int32_t v, int32_t hi) { return v < 0 ? 0 : (v > hi ? hi : v); };
    for (int j = 0; j < N; ++j)
        for (int i = 0; i < N; ++i) {
            const int32_t X = b.qx + ((b.rx + b.dxx * i + b.dxy * j) >> b.shift);
            const int32_t Y = b.qy + ((b.ry + b.dyx * i + b.dyy * j) >> b.shift);
            const int32_t fx = X & mask, fy = Y & mask, ix = X >> b.log2s, iy = Y >> b.log2s;
            const int32_t x0 = clampi(ix, b.width - 1), x1 = clampi(ix + 1, b.width - 1);
            const uint8_t* r0 = ref + static_cast<intptr_t>(clampi(iy, b.height - 1)) * step;
            const uint8_t* r1 = ref + static_cast<intptr_t>(clampi(iy + 1, b.height - 1)) * step;
            const int32_t top = (s - fx) * r0[x0] + fx * r0[x1], bot = (s - fx) * r1[x0] + fx * r1[x1];
            dst[static_cast<intptr_t>(j) * dst_step + i] =
                static_cast<uint8_t>(((s - fy) * top + fy * bot + round) >> (2 * b.log2s));
        }
}

template <int N>
void affine(const uint8_t* ref, int32_t step, uint8_t* dst, int32_t dst_step, const WarpBlock& b,
            int32_t rc) {
    // Integer positions at the corners bound those of every sample.
    int32_t xmin = 1 << 30, xmax = -(1 << 30), ymin = 1 << 30, ymax = -(1 << 30);
    for (int c = 0; c < 4; ++c) {
        const int i = (c & 1) ? N - 1 : 0, j = (c & 2) ? N - 1 : 0;
        const int32_t ix = (b.qx + ((b.rx + b.dxx * i + b.dxy * j) >> b.shift)) >> b.log2s;
        const int32_t iy = (b.qy + ((b.ry + b.dyx * i + b.dyy * j) >> b.shift)) >> b.log2s;
        xmin = ix < xmin ? ix : xmin;
        xmax = ix > xmax ? ix : xmax;
        ymin = iy < ymin ? iy : ymin;
        ymax = iy > ymax ? iy : ymax;
    }
    if (xmin < 0 || ymin < 0 || xmax + 3 >= b.width || ymax + 1 >= b.height) {
        affine_edge<N>(ref, step, dst, dst_step, b, rc);
        return;
    }
    const int32_t s = 1 << b.log2s;
    const __m256i lane = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    const __m256i vs = _mm256_set1_epi32(s), mask = _mm256_set1_epi32(s - 1), byte = _mm256_set1_epi32(255);
    const __m256i vstep = _mm256_set1_epi32(step), round = _mm256_set1_epi32((s * s >> 1) - rc);
    const __m128i sh = _mm_cvtsi32_si128(b.shift), ls = _mm_cvtsi32_si128(b.log2s),
                  ls2 = _mm_cvtsi32_si128(2 * b.log2s);
    const __m256i dxx8 = _mm256_set1_epi32(b.dxx * 8), dyx8 = _mm256_set1_epi32(b.dyx * 8);
    const int* base = reinterpret_cast<const int*>(ref);
    for (int j = 0; j < N; ++j) {
        // Numerators of the first eight samples of the row.
        __m256i nx = _mm256_add_epi32(_mm256_set1_epi32(b.rx + b.dxy * j),
                                      _mm256_mullo_epi32(lane, _mm256_set1_epi32(b.dxx)));
        __m256i ny = _mm256_add_epi32(_mm256_set1_epi32(b.ry + b.dyy * j),
                                      _mm256_mullo_epi32(lane, _mm256_set1_epi32(b.dyx)));
        alignas(32) int32_t out[16];
        for (int h = 0; h < N / 8; ++h) {
            const __m256i X = _mm256_add_epi32(_mm256_set1_epi32(b.qx), _mm256_sra_epi32(nx, sh));
            const __m256i Y = _mm256_add_epi32(_mm256_set1_epi32(b.qy), _mm256_sra_epi32(ny, sh));
            const __m256i fx = _mm256_and_si256(X, mask), fy = _mm256_and_si256(Y, mask);
            const __m256i off =
                _mm256_add_epi32(_mm256_mullo_epi32(_mm256_sra_epi32(Y, ls), vstep), _mm256_sra_epi32(X, ls));
            // Bytes ix, ix + 1 of rows iy and iy + 1 (the gathers read four).
            const __m256i g0 = _mm256_i32gather_epi32(base, off, 1);
            const __m256i g1 = _mm256_i32gather_epi32(base, _mm256_add_epi32(off, vstep), 1);
            const __m256i a = _mm256_and_si256(g0, byte),
                          bb = _mm256_and_si256(_mm256_srli_epi32(g0, 8), byte);
            const __m256i c = _mm256_and_si256(g1, byte),
                          d = _mm256_and_si256(_mm256_srli_epi32(g1, 8), byte);
            const __m256i sfx = _mm256_sub_epi32(vs, fx), sfy = _mm256_sub_epi32(vs, fy);
            const __m256i top = _mm256_add_epi32(_mm256_mullo_epi32(sfx, a), _mm256_mullo_epi32(fx, bb));
            const __m256i bot = _mm256_add_epi32(_mm256_mullo_epi32(sfx, c), _mm256_mullo_epi32(fx, d));
            const __m256i v = _mm256_add_epi32(
                _mm256_add_epi32(_mm256_mullo_epi32(sfy, top), _mm256_mullo_epi32(fy, bot)), round);
            _mm256_store_si256(reinterpret_cast<__m256i*>(out + 8 * h), _mm256_srl_epi32(v, ls2));
            nx = _mm256_add_epi32(nx, dxx8);
            ny = _mm256_add_epi32(ny, dyx8);
        }
        // Values are 0..255: pack 32 -> 16 -> 8 bits.
        const __m256i lo = _mm256_load_si256(reinterpret_cast<const __m256i*>(out));
        uint8_t* d = dst + static_cast<intptr_t>(j) * dst_step;
        if constexpr (N == 16) {
            const __m256i hi = _mm256_load_si256(reinterpret_cast<const __m256i*>(out + 8));
            const __m256i p16 = _mm256_permute4x64_epi64(_mm256_packus_epi32(lo, hi), 0xD8);
            const __m128i p8 =
                _mm_packus_epi16(_mm256_castsi256_si128(p16), _mm256_extracti128_si256(p16, 1));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(d), p8);
        } else {
            const __m128i p16 = _mm_packus_epi32(_mm256_castsi256_si128(lo), _mm256_extracti128_si256(lo, 1));
            _mm_storel_epi64(reinterpret_cast<__m128i*>(d), _mm_packus_epi16(p16, p16));
        }
    }
}

}  // namespace

void upgrade_warp(WarpKernels& k) {
    k.shift16 = shift16;
    k.affine16 = affine<16>;
    k.affine8 = affine<8>;
}

}  // namespace kplvc::mpeg4::x86::avx2
