// Memory and vector functions: argument checks, the choice of kernel by
// length, and the scalar reference kernels.
#include "core/vector.h"

#include "core/arith.h"
#include "core/dispatch.h"
#include "kplvc.h"

namespace kplvc {

namespace {

// ---- Scalar reference kernels ------------------------------------------------
// Portable C has no streaming stores, so the plain kernels serve every length.

void set8_c(uint8_t* dst, uint8_t val, size_t len) {
    for (size_t i = 0; i < len; ++i) dst[i] = val;
}

void set16_c(int16_t* dst, int16_t val, size_t len) {
    for (size_t i = 0; i < len; ++i) dst[i] = val;
}

void copy8_c(const uint8_t* src, uint8_t* dst, size_t len) {
    for (size_t i = 0; i < len; ++i) dst[i] = src[i];
}

// |x * val| <= 2^30, so every product fits in int32.
void mulc_sat_c(int16_t* p, size_t len, int16_t val) {
    for (size_t i = 0; i < len; ++i) p[i] = sat16(int32_t{p[i]} * val);
}

// The product is clamped to 16 bits before the shift, so sat(x*val) << 15 is
// at most 2^30 and still fits in int32; then it is clamped again.
void mulc_up_c(int16_t* p, size_t len, int16_t val, int n) {
    for (size_t i = 0; i < len; ++i) {
        const int32_t q = sat16(int32_t{p[i]} * val);
        p[i] = sat16(q * (int32_t{1} << n));
    }
}

// Round to nearest, ties to even: adding 2^(s-1) - 1 plus the bit that will
// become the result's lowest bit turns the truncating shift into that
// rounding. |p| <= 2^30 and the addend < 2^29 + 1, so the sum fits in int32.
void mulc_down_c(int16_t* p, size_t len, int16_t val, int s) {
    const int32_t half = (int32_t{1} << (s - 1)) - 1;
    for (size_t i = 0; i < len; ++i) {
        const int32_t prod = int32_t{p[i]} * val;
        p[i] = sat16((prod + half + ((prod >> s) & 1)) >> s);
    }
}

// Any non-zero product scaled by 2^16 or more saturates: only its sign counts.
void mulc_sign_c(int16_t* p, size_t len, int16_t val) {
    for (size_t i = 0; i < len; ++i) {
        const int16_t x = p[i];
        if (x == 0) continue;
        p[i] = ((x < 0) != (val < 0)) ? int16_t{-32768} : int16_t{32767};
    }
}

void threshold_gt_c(int16_t* p, size_t len, int16_t level) {
    for (size_t i = 0; i < len; ++i)
        if (p[i] > level) p[i] = level;
}

void threshold_lt_c(int16_t* p, size_t len, int16_t level) {
    for (size_t i = 0; i < len; ++i)
        if (p[i] < level) p[i] = level;
}

constexpr VectorKernels kScalar = {
    set8_c,     set8_c,    set16_c,     set16_c,     copy8_c,        copy8_c,        copy8_c,
    mulc_sat_c, mulc_up_c, mulc_down_c, mulc_sign_c, threshold_gt_c, threshold_lt_c,
};

constexpr Upgrade<VectorKernels> kCascade[] = {
    {cpu::Isa::c, [](VectorKernels& k) { k = kScalar; }},
    KPLVC_X86_UPGRADES({cpu::Isa::sse2, vector::x86::sse2::upgrade_vector},
                       {cpu::Isa::avx2, vector::x86::avx2::upgrade_vector})};

}  // namespace

VectorKernels vector_kernels_for(cpu::Isa isa) { return build_table(kCascade, isa); }

const VectorKernels& vector_kernels() { return active_table<VectorKernels, vector_kernels_for>(); }

}  // namespace kplvc

using kplvc::vector_kernels;

extern "C" {

KPLVC_API KplStatus kplsSet_8u(Kpl8u val, Kpl8u* pDst, Kpl32s len) {
    if (pDst == nullptr) return kplStsNullPtrErr;
    if (len < 1) return kplStsSizeErr;
    const auto& k = vector_kernels();
    (len >= kplvc::kSet8StreamLen ? k.set8_stream : k.set8)(pDst, val, static_cast<size_t>(len));
    return kplStsNoErr;
}

KPLVC_API KplStatus kplsSet_16s(Kpl16s val, Kpl16s* pDst, Kpl32s len) {
    if (pDst == nullptr) return kplStsNullPtrErr;
    if (len < 1) return kplStsSizeErr;
    const auto& k = vector_kernels();
    (len >= kplvc::kSet16StreamLen ? k.set16_stream : k.set16)(pDst, val, static_cast<size_t>(len));
    return kplStsNoErr;
}

KPLVC_API KplStatus kplsZero_16s(Kpl16s* pDst, Kpl32s len) {
    if (pDst == nullptr) return kplStsNullPtrErr;
    if (len < 1) return kplStsSizeErr;
    // Zeroed as 2*len bytes; the byte kernels' threshold in bytes matches the
    // 16-bit one (10240 elements = 20480 bytes).
    const auto& k = vector_kernels();
    auto* bytes = reinterpret_cast<uint8_t*>(pDst);
    const size_t n = 2 * static_cast<size_t>(len);
    (len >= kplvc::kSet16StreamLen ? k.set8_stream : k.set8)(bytes, 0, n);
    return kplStsNoErr;
}

KPLVC_API KplStatus kplsCopy_8u(const Kpl8u* pSrc, Kpl8u* pDst, Kpl32s len) {
    if (pSrc == nullptr || pDst == nullptr) return kplStsNullPtrErr;
    if (len < 1) return kplStsSizeErr;
    const auto& k = vector_kernels();
    const size_t n = static_cast<size_t>(len);
    if (len < kplvc::kCopyStreamLen)
        k.copy8(pSrc, pDst, n);
    else if (len < kplvc::kCopyPrefetchLen)
        k.copy8_stream(pSrc, pDst, n);
    else
        k.copy8_stream_prefetch(pSrc, pDst, n);
    return kplStsNoErr;
}

KPLVC_API KplStatus kplsMulC_16s_ISfs(Kpl16s val, Kpl16s* pSrcDst, Kpl32s len, Kpl32s scaleFactor) {
    if (pSrcDst == nullptr) return kplStsNullPtrErr;
    if (len < 1) return kplStsSizeErr;
    if (val == 0) return kplsZero_16s(pSrcDst, len);
    const auto& k = vector_kernels();
    const size_t n = static_cast<size_t>(len);
    if (scaleFactor == 0) {
        if (val != 1) k.mulc_sat(pSrcDst, n, val);
    } else if (scaleFactor < -15) {
        k.mulc_sign(pSrcDst, n, val);
    } else if (scaleFactor < 0) {
        k.mulc_up(pSrcDst, n, val, -scaleFactor);
    } else if (scaleFactor <= 30) {
        k.mulc_down(pSrcDst, n, val, scaleFactor);
    } else {
        return kplsZero_16s(pSrcDst, len);
    }
    return kplStsNoErr;
}

KPLVC_API KplStatus kplsThreshold_16s_I(Kpl16s* pSrcDst, Kpl32s len, Kpl16s level, Kpl32s relOp) {
    if (pSrcDst == nullptr) return kplStsNullPtrErr;
    if (len < 1) return kplStsSizeErr;
    const auto& k = vector_kernels();
    (relOp == 4 ? k.threshold_gt : k.threshold_lt)(pSrcDst, static_cast<size_t>(len), level);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliSet_8u_C1R(Kpl8u val, Kpl8u* pDst, Kpl32s dstStep, KpliSize roiSize) {
    if (pDst == nullptr) return kplStsNullPtrErr;
    if (roiSize.width < 1 || roiSize.height < 1) return kplStsSizeErr;
    if (dstStep < 1) return kplStsStepErr;
    if (dstStep == roiSize.width) {
        // One contiguous run; goes through the public fill so that long
        // regions take the streaming kernel. width * height must fit Kpl32s.
        const int64_t total = int64_t{roiSize.width} * roiSize.height;
        if (total <= INT32_MAX) return kplsSet_8u(val, pDst, static_cast<Kpl32s>(total));
    }
    const auto& k = vector_kernels();
    for (Kpl32s y = 0; y < roiSize.height; ++y)
        (roiSize.width >= kplvc::kSet8StreamLen ? k.set8_stream : k.set8)(
            pDst + static_cast<intptr_t>(y) * dstStep, val, static_cast<size_t>(roiSize.width));
    return kplStsNoErr;
}

}  // extern "C"
