// MPEG-4 global motion compensation: the warp parameters from the sprite
// trajectory (ISO/IEC 14496-2 7.8.4), the prediction kernels and the
// macroblock vector of a GMC macroblock (7.8.7).
#include "mpeg4/gmc.h"

#include "core/arith.h"
#include "core/dispatch.h"
#include "kplvc.h"

namespace kplvc::mpeg4 {

namespace ref {

inline int32_t clampi(int32_t v, int32_t hi) { return v < 0 ? 0 : (v > hi ? hi : v); }

template <int N>
void affine(const uint8_t* ref, int32_t step, uint8_t* dst, int32_t dst_step, const WarpBlock& b,
            int32_t rc) {
    const int32_t s = 1 << b.log2s, mask = s - 1, round = (s * s >> 1) - rc;
    for (int j = 0; j < N; ++j) {
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
}

// Translation inside the plane: the block's top-left sample sits at
// (qx + (rx >> shift)) in 1/s units, every sample one s further.
template <int N>
void shift(const uint8_t* ref, int32_t step, uint8_t* dst, int32_t dst_step, const WarpBlock& b, int32_t rc) {
    const int32_t s = 1 << b.log2s, mask = s - 1, round = (s * s >> 1) - rc;
    const int32_t X = b.qx + (b.rx >> b.shift), Y = b.qy + (b.ry >> b.shift);
    const int32_t fx = X & mask, fy = Y & mask;
    const uint8_t* r = ref + static_cast<intptr_t>(Y >> b.log2s) * step + (X >> b.log2s);
    const int32_t a = (s - fx) * (s - fy), bb = fx * (s - fy), c = (s - fx) * fy, d = fx * fy;
    for (int j = 0; j < N; ++j) {
        const uint8_t* r0 = r + static_cast<intptr_t>(j) * step;
        const uint8_t* r1 = r0 + step;
        for (int i = 0; i < N; ++i)
            dst[static_cast<intptr_t>(j) * dst_step + i] = static_cast<uint8_t>(
                (a * r0[i] + bb * r0[i + 1] + c * r1[i] + d * r1[i + 1] + round) >> (2 * b.log2s));
    }
}

}  // namespace ref

namespace {
constexpr WarpKernels kScalar = {ref::affine<16>, ref::affine<8>, ref::shift<16>, ref::shift<8>};

constexpr Upgrade<WarpKernels> kCascade[] = {
    {cpu::Isa::c, [](WarpKernels& k) { k = kScalar; }},
    KPLVC_X86_UPGRADES({cpu::Isa::sse2, x86::sse2::upgrade_warp}, {cpu::Isa::avx2, x86::avx2::upgrade_warp})};
}  // namespace

WarpKernels warp_kernels_for(cpu::Isa isa) { return build_table(kCascade, isa); }

const WarpKernels& warp_kernels() { return active_table<WarpKernels, warp_kernels_for>(); }

namespace {

// Rounding division, half away from zero (the standard's "//").
int64_t div_round64(int64_t a, int64_t b) { return a >= 0 ? (a + b / 2) / b : -((-a + b / 2) / b); }

// The mapping of the n x n block whose top-left plane sample is (x, y).
WarpBlock block_of(const KplMPEG4Warp& w, int plane, int32_t x, int32_t y) {
    const int64_t* off = w.offset[plane];
    const int32_t* d = w.delta[plane];
    const int64_t nx = off[0] + int64_t{d[0]} * x + int64_t{d[1]} * y;
    const int64_t ny = off[1] + int64_t{d[2]} * x + int64_t{d[3]} * y;
    const int32_t sh = w.shift[plane];
    WarpBlock b;
    // Floor division by 2^shift: the whole part goes to q, the rest to r.
    b.qx = static_cast<int32_t>(nx >> sh);
    b.qy = static_cast<int32_t>(ny >> sh);
    b.rx = static_cast<int32_t>(nx - (int64_t{b.qx} << sh));
    b.ry = static_cast<int32_t>(ny - (int64_t{b.qy} << sh));
    b.dxx = d[0];
    b.dxy = d[1];
    b.dyx = d[2];
    b.dyy = d[3];
    b.shift = sh;
    b.log2s = w.accuracy + 1;
    b.width = plane == 0 ? w.width : (w.width + 1) >> 1;
    b.height = plane == 0 ? w.height : (w.height + 1) >> 1;
    return b;
}

void predict(const uint8_t* ref, int32_t step, uint8_t* dst, int32_t dst_step, const KplMPEG4Warp& w,
             int plane, int32_t x, int32_t y, int n, int32_t rc) {
    const WarpBlock b = block_of(w, plane, x, y);
    const WarpKernels& k = warp_kernels();
    const int32_t s = 1 << b.log2s;
    if (b.dxx == (s << b.shift) && b.dyy == (s << b.shift) && b.dxy == 0 && b.dyx == 0) {
        const int32_t X = b.qx + (b.rx >> b.shift), Y = b.qy + (b.ry >> b.shift);
        const int32_t ix = X >> b.log2s, iy = Y >> b.log2s;
        if (ix >= 0 && iy >= 0 && ix + n < b.width && iy + n < b.height) {
            (n == 16 ? k.shift16 : k.shift8)(ref, step, dst, dst_step, b, rc);
            return;
        }
    }
    (n == 16 ? k.affine16 : k.affine8)(ref, step, dst, dst_step, b, rc);
}

bool bad_rc(Kpl32s rc) { return rc != 0 && rc != 1; }

}  // namespace

}  // namespace kplvc::mpeg4

using namespace kplvc;
using namespace kplvc::mpeg4;

extern "C" {

KPLVC_API KplStatus kpliWarpInit_MPEG4(KplMPEG4Warp* pWarp, const Kpl32s* pDu, const Kpl32s* pDv,
                                       Kpl32s points, Kpl32s accuracy, KpliSize vopSize) {
    if (pWarp == nullptr || (points > 0 && (pDu == nullptr || pDv == nullptr))) return kplStsNullPtrErr;
    if (vopSize.width < 1 || vopSize.height < 1 || vopSize.width > 8192 || vopSize.height > 8192)
        return kplStsSizeErr;
    if (points < 0 || points > 3) return kplStsBadArgErr;
    if (accuracy < 0 || accuracy > 3) return kplStsBadArgErr;
    for (int n = 0; n < points; ++n)
        if (pDu[n] < -16384 || pDu[n] > 16383 || pDv[n] < -16384 || pDv[n] > 16383) return kplStsBadArgErr;

    KplMPEG4Warp w{};
    w.points = points;
    w.accuracy = accuracy;
    w.width = vopSize.width;
    w.height = vopSize.height;
    const int64_t s = 2 << accuracy, r = 16 / s, rho = 3 - accuracy;
    const int64_t W = vopSize.width, H = vopSize.height;
    int alpha = 0, beta = 0;
    while ((int64_t{1} << alpha) < W) ++alpha;
    while ((int64_t{1} << beta) < H) ++beta;
    const int64_t W2 = int64_t{1} << alpha, H2 = int64_t{1} << beta;
    auto du = [&](int n) { return n < points ? int64_t{pDu[n]} : 0; };
    auto dv = [&](int n) { return n < points ? int64_t{pDv[n]} : 0; };
    // Reference points (the VOP's corners, i0 = j0 = 0) and where the
    // trajectory moves them: (s / 2) (2 i + du) in 1/s samples, the warping
    // vectors being in half samples.
    const int64_t i0 = 0, j0 = 0, i1 = W, j1 = 0, i2 = 0, j2 = H, h = s / 2;
    const int64_t i0p = h * (2 * i0 + du(0)), j0p = h * (2 * j0 + dv(0));
    const int64_t i1p = h * (2 * i1 + du(0) + du(1)), j1p = h * (2 * j1 + dv(0) + dv(1));
    const int64_t i2p = h * (2 * i2 + du(0) + du(2)), j2p = h * (2 * j2 + dv(0) + dv(2));
    // Virtual points at the power-of-two distances W' and H', in 1/16
    // samples.
    const int64_t i1v =
        16 * (i0 + W2) + div_round64((W - W2) * (r * i0p - 16 * i0) + W2 * (r * i1p - 16 * i1), W);
    const int64_t j1v = 16 * j0 + div_round64((W - W2) * (r * j0p - 16 * j0) + W2 * (r * j1p - 16 * j1), W);
    const int64_t i2v = 16 * i0 + div_round64((H - H2) * (r * i0p - 16 * i0) + H2 * (r * i2p - 16 * i2), H);
    const int64_t j2v =
        16 * (j0 + H2) + div_round64((H - H2) * (r * j0p - 16 * j0) + H2 * (r * j2p - 16 * j2), H);

    if (points <= 1) {
        // Translation by (du0, dv0); chroma by half of it, a half-way
        // position rounded to the odd neighbour as for chroma vectors.
        w.shift[0] = w.shift[1] = 0;
        w.offset[0][0] = i0p - s * i0;
        w.offset[0][1] = j0p - s * j0;
        w.offset[1][0] = ((i0p >> 1) | (i0p & 1)) - s * (i0 / 2);
        w.offset[1][1] = ((j0p >> 1) | (j0p & 1)) - s * (j0 / 2);
        for (int p = 0; p < 2; ++p) {
            w.delta[p][0] = w.delta[p][3] = static_cast<Kpl32s>(s);
            w.delta[p][1] = w.delta[p][2] = 0;
        }
    } else {
        int64_t dxx, dxy, dyx, dyy, k, scale;
        if (points == 2) {
            // Rotation and zoom: one vector gives both rows of the matrix.
            dxx = -r * i0p + i1v;
            dxy = r * j0p - j1v;
            dyx = -r * j0p + j1v;
            dyy = -r * i0p + i1v;
            k = alpha + rho;
            scale = W2;
        } else {
            // Affine: W' and H' cancel down by their common power of two.
            const int m = alpha < beta ? alpha : beta;
            const int64_t w3 = W2 >> m, h3 = H2 >> m;
            dxx = (-r * i0p + i1v) * h3;
            dxy = (-r * i0p + i2v) * w3;
            dyx = (-r * j0p + j1v) * h3;
            dyy = (-r * j0p + j2v) * w3;
            k = alpha + beta + rho - m;
            scale = W2 * h3;
        }
        w.shift[0] = static_cast<Kpl32s>(k);
        w.shift[1] = static_cast<Kpl32s>(k + 2);
        const int64_t half = k > 0 ? int64_t{1} << (k - 1) : 0;
        w.offset[0][0] = i0p * (int64_t{1} << k) - dxx * i0 - dxy * j0 + half;
        w.offset[0][1] = j0p * (int64_t{1} << k) - dyx * i0 - dyy * j0 + half;
        // Chroma sample (ic, jc) sits at luma (2 ic + 1/2, 2 jc + 1/2).
        w.offset[1][0] = dxx * (1 - 2 * i0) + dxy * (1 - 2 * j0) + 2 * scale * r * i0p - 16 * scale +
                         (int64_t{1} << (k + 1));
        w.offset[1][1] = dyx * (1 - 2 * i0) + dyy * (1 - 2 * j0) + 2 * scale * r * j0p - 16 * scale +
                         (int64_t{1} << (k + 1));
        const int64_t d[4] = {dxx, dxy, dyx, dyy};
        for (int q = 0; q < 4; ++q) {
            // |d| <= 2^(max(alpha, beta) + 5) with the trajectory's range.
            w.delta[0][q] = static_cast<Kpl32s>(d[q]);
            w.delta[1][q] = static_cast<Kpl32s>(4 * d[q]);
        }
    }
    *pWarp = w;
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliWarpLuma_MPEG4_8u_C1R(const Kpl8u* pRef, Kpl32s refStep, Kpl8u* pDst, Kpl32s dstStep,
                                              Kpl32s x, Kpl32s y, const KplMPEG4Warp* pWarp,
                                              Kpl32s roundControl) {
    if (pRef == nullptr || pDst == nullptr || pWarp == nullptr) return kplStsNullPtrErr;
    if (refStep < pWarp->width || dstStep < 16) return kplStsStepErr;
    if (bad_rc(roundControl)) return kplStsModeErr;
    predict(pRef, refStep, pDst, dstStep, *pWarp, 0, x, y, 16, roundControl);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliWarpChroma_MPEG4_8u_C1R(const Kpl8u* pRef, Kpl32s refStep, Kpl8u* pDst,
                                                Kpl32s dstStep, Kpl32s x, Kpl32s y, const KplMPEG4Warp* pWarp,
                                                Kpl32s roundControl) {
    if (pRef == nullptr || pDst == nullptr || pWarp == nullptr) return kplStsNullPtrErr;
    if (refStep < (pWarp->width + 1) / 2 || dstStep < 8) return kplStsStepErr;
    if (bad_rc(roundControl)) return kplStsModeErr;
    predict(pRef, refStep, pDst, dstStep, *pWarp, 1, x, y, 8, roundControl);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliWarpMV_MPEG4(const KplMPEG4Warp* pWarp, Kpl32s mbX, Kpl32s mbY, Kpl32s fcode,
                                     Kpl32s quarterSample, KplMotionVector* pMV) {
    if (pWarp == nullptr || pMV == nullptr) return kplStsNullPtrErr;
    if (fcode < 1 || fcode > 7) return kplStsFcodeErr;
    if (quarterSample != 0 && quarterSample != 1) return kplStsModeErr;
    const int32_t a = pWarp->accuracy;
    // The mean of (X - s i, Y - s j) over the macroblock's 256 luma samples,
    // in half (quarter) samples: a sum in 1/s units divided by
    // 256 * 2^(a - quarterSample) with rounding half away from zero.
    int64_t sum[2] = {0, 0};
    const int32_t s = 2 << a;
    const WarpBlock b = block_of(*pWarp, 0, 16 * mbX, 16 * mbY);
    for (int j = 0; j < 16; ++j)
        for (int i = 0; i < 16; ++i) {
            sum[0] += b.qx + ((b.rx + b.dxx * i + b.dxy * j) >> b.shift) - s * (16 * mbX + i);
            sum[1] += b.qy + ((b.ry + b.dyx * i + b.dyy * j) >> b.shift) - s * (16 * mbY + j);
        }
    const int64_t range = int64_t{1} << (fcode + 4);
    KplMotionVector mv;
    int16_t* out[2] = {&mv.dx, &mv.dy};
    for (int c = 0; c < 2; ++c) {
        int64_t v = div_round64(sum[c], int64_t{1} << (a + 8 - quarterSample));
        if (v < -range) v = -range;
        if (v > range - 1) v = range - 1;
        *out[c] = static_cast<int16_t>(v);
    }
    *pMV = mv;
    return kplStsNoErr;
}

}  // extern "C"
