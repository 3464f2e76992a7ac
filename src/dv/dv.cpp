// DV Huffman table construction and release, and the inverse quantisation.
#include "dv/dv.h"

#include <cstdlib>
#include <cstring>

#include "core/arith.h"
#include "core/dispatch.h"
#include "kplvc.h"

namespace kplvc::dv {

namespace {

// Scalar reference. |x * q| <= 2^30, so the product fits in int32; the shift
// is arithmetic, the low 16 bits are kept and then the two lowest cleared.
void quant_inv_c(int16_t* block, const int16_t* q) {
    for (int i = 0; i < 64; ++i) {
        const int32_t prod = int32_t{load16(block + i)} * int32_t{load16(q + i)};
        store16(block + i, static_cast<int16_t>(wrap16(prod >> 14) & ~3));
    }
}

constexpr DvKernels kScalar = {quant_inv_c};

}  // namespace

void dv_fill(uint32_t* words, const int32_t* input, int32_t base, uint32_t len_add) {
    const int32_t m = input[0];
    const int32_t* p = input + 3;
    for (int32_t len = 1; len <= m; ++len) {
        const int32_t n = *p++;
        // Each code fills 2^(M - L) consecutive words from base + (code << (M - L)).
        // Computed in 64 bits and clipped to the block, so a code table that
        // breaks the layout cannot write outside it.
        const int32_t s = m - len;
        for (int32_t r = 0; r < n; ++r, p += 3) {
            const uint32_t code = static_cast<uint32_t>(p[0]);
            const uint32_t entry = (static_cast<uint32_t>(p[2]) << 22) | (static_cast<uint32_t>(p[1]) << 8) |
                                   (static_cast<uint32_t>(len) + len_add);
            if (s >= 32) {
                if (code != 0) continue;  // starts beyond the block
            }
            const uint64_t first =
                uint64_t{static_cast<uint32_t>(base)} + (s >= 32 ? 0 : (uint64_t{code} << s));
            const uint64_t count = s >= 32 ? uint64_t{kTableWords} : (uint64_t{1} << s);
            const uint64_t end = first + count < kTableWords ? first + count : kTableWords;
            for (uint64_t w = first; w < end; ++w) std::memcpy(words + w, &entry, sizeof entry);
        }
    }
}

namespace {
constexpr Upgrade<DvKernels> kCascade[] = {
    {cpu::Isa::c, [](DvKernels& k) { k = kScalar; }},
    KPLVC_X86_UPGRADES({cpu::Isa::sse2, x86::sse2::upgrade_dv}, {cpu::Isa::avx2, x86::avx2::upgrade_dv})};
}  // namespace

DvKernels dv_kernels_for(cpu::Isa isa) { return build_table(kCascade, isa); }

const DvKernels& dv_kernels() { return active_table<DvKernels, dv_kernels_for>(); }

}  // namespace kplvc::dv

extern "C" {

KPLVC_API KplStatus kpliInitAllocHuffmanTable_DV_32u(const Kpl32s* pHuffTable1, const Kpl32s* pHuffTable2,
                                                     Kpl32u** ppHuffTable) {
    if (pHuffTable1 == nullptr || pHuffTable2 == nullptr || ppHuffTable == nullptr) return kplStsNullPtrErr;
    void* block = std::malloc(kplvc::dv::kTableBytes);
    if (block == nullptr) return kplStsMemAllocErr;
    auto* words = static_cast<Kpl32u*>(block);
    kplvc::dv::dv_fill(words, pHuffTable1, kplvc::dv::kFirstBase, 0);
    kplvc::dv::dv_fill(words, pHuffTable2, kplvc::dv::kSecondBase, 4);
    *ppHuffTable = words;
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliFreeHuffmanTable_DV_32u(Kpl32u* pHuffTable) {
    if (pHuffTable == nullptr) return kplStsNullPtrErr;
    std::free(pHuffTable);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliQuantInv_DV_16s_C1I(Kpl16s* pSrcDst, const Kpl16s* pDequantTable) {
    if (pSrcDst == nullptr || pDequantTable == nullptr) return kplStsNullPtrErr;
    kplvc::dv::dv_kernels().quant_inv(pSrcDst, pDequantTable);
    return kplStsNoErr;
}

}  // extern "C"
