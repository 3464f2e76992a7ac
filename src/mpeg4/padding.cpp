// MPEG-4 padding for arbitrary shape (ISO/IEC 14496-2 7.6.1): repetitive
// padding of boundary blocks from their shape, extended padding of
// transparent blocks, and the padding of a whole reference VOP.
#include <cstddef>
#include <cstring>

#include "kplvc.h"

namespace kplvc::mpeg4 {

namespace {

// The block's shape as 0/1: luminance takes the alpha samples as they are;
// a chrominance sample is inside the shape when any of the four luminance
// alpha samples it stands for is (4:2:0). Returns the number inside.
int block_mask(const uint8_t* alpha, int32_t alpha_step, int size, bool chroma, uint8_t* m) {
    int n = 0;
    for (int y = 0; y < size; ++y)
        for (int x = 0; x < size; ++x) {
            bool in;
            if (chroma) {
                const uint8_t* a = alpha + 2 * y * alpha_step + 2 * x;
                in = (a[0] | a[1] | a[alpha_step] | a[alpha_step + 1]) != 0;
            } else {
                in = alpha[y * alpha_step + x] != 0;
            }
            m[y * size + x] = in ? 1 : 0;
            n += in ? 1 : 0;
        }
    return n;
}

// Repetitive padding of a block with at least one sample inside the shape.
// Horizontal pass: in each row, a run of outside samples between two inside
// ones takes their average rounded up, (a + b + 1) >> 1; a run at either end
// repeats its one inside neighbour. Vertical pass, over the rows that had an
// inside sample: each row with none takes, per column, the average of the
// nearest such rows above and below, or the one that exists.
void pad_block(uint8_t* p, int32_t step, const uint8_t* m, int size) {
    bool row_done[16];
    for (int y = 0; y < size; ++y) {
        uint8_t* r = p + y * step;
        const uint8_t* mr = m + y * size;
        int prev = -1;  // last inside sample seen
        for (int x = 0; x <= size; ++x) {
            if (x < size && !mr[x]) continue;
            // Outside samples prev+1 .. x-1.
            if (x - prev > 1 && (prev >= 0 || x < size)) {
                int v;
                if (prev < 0)
                    v = r[x];
                else if (x == size)
                    v = r[prev];
                else
                    v = (r[prev] + r[x] + 1) >> 1;
                for (int k = prev + 1; k < x; ++k) r[k] = static_cast<uint8_t>(v);
            }
            prev = x;
        }
        row_done[y] = false;
        for (int x = 0; x < size; ++x) row_done[y] = row_done[y] || mr[x] != 0;
    }
    int prev = -1;
    for (int y = 0; y <= size; ++y) {
        if (y < size && !row_done[y]) continue;
        if (y - prev > 1 && (prev >= 0 || y < size))
            for (int x = 0; x < size; ++x) {
                int v;
                if (prev < 0)
                    v = p[y * step + x];
                else if (y == size)
                    v = p[prev * step + x];
                else
                    v = (p[prev * step + x] + p[y * step + x] + 1) >> 1;
                for (int k = prev + 1; k < y; ++k) p[k * step + x] = static_cast<uint8_t>(v);
            }
        prev = y;
    }
}

// Extended padding: the block repeats the adjacent edge of its first padded
// neighbour in the order left, above, right, below (bits 1, 2, 4, 8 of
// `neighbours`); with none it is filled with 128.
void pad_extended(uint8_t* p, int32_t step, int size, int neighbours) {
    for (int y = 0; y < size; ++y) {
        uint8_t* r = p + y * step;
        for (int x = 0; x < size; ++x) {
            uint8_t v = 128;
            if (neighbours & 1)
                v = r[-1];
            else if (neighbours & 2)
                v = p[-step + x];
            else if (neighbours & 4)
                v = r[size];
            else if (neighbours & 8)
                v = p[size * step + x];
            r[x] = v;
        }
    }
}

}  // namespace

}  // namespace kplvc::mpeg4

using namespace kplvc::mpeg4;

extern "C" {

KPLVC_API KplStatus kpliPadMB_MPEG4_8u_C1IR(Kpl8u* pSrcDst, Kpl32s step, const Kpl8u* pAlpha,
                                            Kpl32s alphaStep, Kpl32s chroma) {
    if (pSrcDst == nullptr || pAlpha == nullptr) return kplStsNullPtrErr;
    const int size = chroma == 1 ? 8 : 16;
    if (step < size || alphaStep < 16) return kplStsStepErr;
    if (chroma != 0 && chroma != 1) return kplStsModeErr;
    uint8_t m[256];
    if (block_mask(pAlpha, alphaStep, size, chroma == 1, m) == 0) return kplStsErr;
    pad_block(pSrcDst, step, m, size);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliPadMBExtended_MPEG4_8u_C1R(Kpl8u* pDst, Kpl32s step, Kpl32s size, Kpl32s neighbours) {
    if (pDst == nullptr) return kplStsNullPtrErr;
    if (size != 16 && size != 8) return kplStsBlockSizeErr;
    if (step < size) return kplStsStepErr;
    if (neighbours < 0 || neighbours > 15) return kplStsBadArgErr;
    pad_extended(pDst, step, size, neighbours);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliPadVOP_MPEG4_8u_C1IR(Kpl8u* pPlane, Kpl32s step, const Kpl8u* pAlpha,
                                             Kpl32s alphaStep, KpliSize roi, Kpl32s chroma) {
    if (pPlane == nullptr || pAlpha == nullptr) return kplStsNullPtrErr;
    const int size = chroma == 1 ? 8 : 16;
    if (roi.width < 1 || roi.height < 1 || roi.width % size != 0 || roi.height % size != 0)
        return kplStsSizeErr;
    if (step < roi.width || alphaStep < (chroma == 1 ? 2 : 1) * roi.width) return kplStsStepErr;
    if (chroma != 0 && chroma != 1) return kplStsModeErr;
    const int bw = roi.width / size, bh = roi.height / size;
    const int ascale = chroma == 1 ? 2 : 1;
    // Pass 1: classify every block and pad the boundary ones; pass 2: the
    // transparent blocks from their neighbours that hold shape samples
    // (boundary or opaque), as classified before any padding.
    constexpr uint8_t kTransparent = 0, kInside = 1;
    for (int pass = 0; pass < 2; ++pass)
        for (int by = 0; by < bh; ++by)
            for (int bx = 0; bx < bw; ++bx) {
                auto cls = [&](int x, int y) -> uint8_t {
                    uint8_t m[256];
                    const uint8_t* a = pAlpha + static_cast<std::ptrdiff_t>(y) * size * ascale * alphaStep +
                                       x * size * ascale;
                    return block_mask(a, alphaStep, size, chroma == 1, m) == 0 ? kTransparent : kInside;
                };
                uint8_t* p = pPlane + static_cast<std::ptrdiff_t>(by) * size * step + bx * size;
                const uint8_t* a =
                    pAlpha + static_cast<std::ptrdiff_t>(by) * size * ascale * alphaStep + bx * size * ascale;
                uint8_t m[256];
                const int n = block_mask(a, alphaStep, size, chroma == 1, m);
                if (pass == 0) {
                    if (n > 0 && n < size * size) pad_block(p, step, m, size);
                } else if (n == 0) {
                    int nb = 0;
                    if (bx > 0 && cls(bx - 1, by) == kInside) nb |= 1;
                    if (by > 0 && cls(bx, by - 1) == kInside) nb |= 2;
                    if (bx + 1 < bw && cls(bx + 1, by) == kInside) nb |= 4;
                    if (by + 1 < bh && cls(bx, by + 1) == kInside) nb |= 8;
                    pad_extended(p, step, size, nb);
                }
            }
    return kplStsNoErr;
}

}  // extern "C"
