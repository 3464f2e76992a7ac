// MPEG-1/MPEG-2 block decoders: DC size and differential, run-level codes
// with escapes, inverse quantisation as each coefficient arrives, mismatch
// control, the transposed block and its count. Everything is built in a
// local block and written out only once the whole block has decoded.
#include <bit>
#include <cstdint>
#include <cstring>

#include "core/arith.h"
#include "core/dispatch.h"
#include "core/vlc.h"
#include "kplvc.h"
#include "mpeg2/block.h"

namespace kplvc::mpeg2 {

namespace {

// Reference: one look-up per scan index, exactly as the count is defined.
uint64_t scan_mask_c(uint64_t nz, const int32_t* scan) {
    uint64_t m = 0;
    for (int i = 0; i < 64; ++i) {
        const uint32_t p = static_cast<uint32_t>(scan[i]) & 63u;
        m |= ((nz >> p) & 1u) << i;
    }
    return m;
}

constexpr Upgrade<BlockKernels> kCascade[] = {
    {cpu::Isa::c, [](BlockKernels& k) { k.scan_mask = scan_mask_c; }},
    KPLVC_X86_UPGRADES({cpu::Isa::avx2, x86::avx2::upgrade_block})};

}  // namespace

BlockKernels block_kernels_for(cpu::Isa isa) { return build_table(kCascade, isa); }

const BlockKernels& block_kernels() { return active_table<BlockKernels, block_kernels_for>(); }

namespace {

enum class Std { mpeg1, mpeg2 };

KPLVC_INLINE int32_t clamp2048(int64_t r) {
    return static_cast<int32_t>(r < -2048 ? -2048 : (r > 2047 ? 2047 : r));
}

// Reconstruction of one AC (or non-intra) level L with weight w and scale q.
// |L| <= 32767 (a caller's table may carry any 16-bit level), q <= 112 and
// |w| <= 32768: |2L + 1| * q * |w| < 2^38, so the products are formed in 64
// bits. "/" truncates toward zero, as the reconstruction rules require.
template <Std S, bool Intra>
KPLVC_INLINE int32_t dequant(int32_t level, int32_t q, int32_t w) {
    const int64_t sgn = level > 0 ? 1 : -1;  // level is never 0 here
    const int64_t twice = Intra ? int64_t{2} * level : int64_t{2} * level + sgn;
    const int64_t prod = twice * q * w;
    if constexpr (S == Std::mpeg1) {
        int64_t r = prod / 16;
        // Oddification toward zero comes before the clamp: an even r moves
        // by sgn(r) toward zero, and sgn(0) = 0 keeps 0 as it is.
        const int64_t sr = (r > 0) - (r < 0);
        r -= (~r & 1) * sr;
        return clamp2048(r);
    } else {
        return clamp2048(prod / 32);
    }
}

// Finds the entry of the next code word with a caller's table: the walk of
// the generic decoder on the shared reader, stopping at the entry (leaf or
// invalid marker) without giving back its look-up bits, which are left in
// *looked (the bits taken at the last level) for the caller to use.
KPLVC_INLINE uint32_t walk(const uint32_t*& p, int32_t& off, const int32_t* table, uint32_t* looked) {
    const int32_t* sub = table;
    uint32_t bits = vlc_get_bits(p, off, sub[0]);
    uint32_t entry = static_cast<uint32_t>(sub[1 + bits]);
    while ((entry & kVlcLinkFlag) != 0) {
        sub = table + (entry >> 8);
        bits = vlc_get_bits(p, off, sub[0]);
        entry = static_cast<uint32_t>(sub[1 + bits]);
    }
    *looked = bits;
    return entry;
}

struct Args {
    Kpl32u** ppBitStream;
    Kpl32s* pOffset;
    Kpl16s* pDstBlock;
    Kpl32s* pDstCount;
    Kpl16s* pDCPred;
    const Kpl32s* pDCSizeTable;
    const Kpl32s* pCoefTable;
    const Kpl32s* pScanTable;
    int32_t qp;
    const Kpl16s* pQMatrix;
    int32_t dc_shift;  // DC multiplier 8 >> dc_shift
    const BlockKernels* k;
};

template <Std S, bool Intra>
KplStatus decode_block(const Args& a) {
    const uint32_t* p = *a.ppBitStream;
    int32_t off = *a.pOffset;
    // Cleared with eight 16-byte stores: the compiler would otherwise use a
    // string instruction whose start-up cost is a good part of a sparse block.
    alignas(32) int16_t blk[64];
    {
        typedef int16_t Zero8 __attribute__((vector_size(16)));
        Zero8 z = {};
        __asm__("" : "+m"(z));  // an opaque zero: the stores are not merged into one fill
        for (int k = 0; k < 8; ++k) __builtin_memcpy(blk + 8 * k, &z, sizeof z);
    }
    uint64_t nz = 0;      // raster positions holding a non-zero value
    uint32_t parity = 0;  // low bit of the sum of the 64 values
    int32_t qf = 0;
    int32_t i;
    bool first;

    if constexpr (Intra) {
        int32_t size;
        if (vlc_decode_one(p, off, a.pDCSizeTable, &size) != 0) return kplStsVLCErr;
        if (size < 0 || size > (S == Std::mpeg1 ? 8 : 11)) return kplStsVLCErr;
        int32_t diff = 0;
        if (size > 0) {
            const int32_t v = static_cast<int32_t>(vlc_get_bits(p, off, size));
            diff = v >= (1 << (size - 1)) ? v : v - ((1 << size) - 1);
        }
        // The predictor plus the difference, kept to 16 bits.
        qf = wrap16(int32_t{*a.pDCPred} + diff);
        const int32_t dc = clip3(-2048, 2047, qf * (8 >> a.dc_shift));
        blk[0] = static_cast<int16_t>(dc);
        nz = dc != 0 ? 1u : 0u;
        parity = static_cast<uint32_t>(dc) & 1u;
        i = 0;
        first = false;
    } else {
        i = -1;
        first = true;
    }

    const int32_t* scan = a.pScanTable;
    // A null non-intra matrix stands for 16 everywhere.
    static constexpr int16_t kFlat16[64] = {16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16,
                                            16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16,
                                            16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16,
                                            16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16};
    const int16_t* wm = a.pQMatrix != nullptr ? a.pQMatrix : kFlat16;
    const int32_t q = a.qp;
    for (;;) {
        int32_t run, level;
        if (!Intra && first && vlc_get_bits(p, off, 1) != 0) {
            // The first-coefficient code word 1s.
            run = 0;
            level = vlc_get_bits(p, off, 1) != 0 ? -1 : 1;
        } else {
            if (!Intra && first) vlc_unget_bits(p, off, 1);
            uint32_t looked;
            const uint32_t e = walk(p, off, a.pCoefTable, &looked);
            if ((static_cast<int32_t>(e) >> 8) == kVlcInvalidValue) return kplStsVLCErr;
            const int32_t u = static_cast<int32_t>(e & 0xFFu);           // look-up bits not in the code
            const int32_t mag = static_cast<int32_t>(e) >> 16;           // value2, arithmetic
            const int32_t sym = static_cast<int32_t>((e >> 8) & 0xFFu);  // value1
            if (mag >= 1) {
                run = sym;
                // The sign bit follows the code word: when the look-up went
                // past the code it is the first of those u bits, and only
                // u - 1 go back; otherwise it is read.
                uint32_t sign;
                if (u >= 1) {
                    sign = (looked >> ((u - 1) & 31)) & 1u;
                    vlc_unget_bits(p, off, u - 1);
                } else {
                    sign = vlc_get_bits(p, off, 1);
                }
                level = sign != 0 ? -mag : mag;
            } else if (mag == 0 && sym == KPLVC_RL_EOB) {
                vlc_unget_bits(p, off, u);
                if (!Intra && first) return kplStsVLCErr;
                break;
            } else if (mag == 0 && sym == KPLVC_RL_ESCAPE) {
                vlc_unget_bits(p, off, u);
                run = static_cast<int32_t>(vlc_get_bits(p, off, 6));
                if constexpr (S == Std::mpeg2) {
                    const int32_t f = static_cast<int32_t>(vlc_get_bits(p, off, 12));
                    level = f >= 2048 ? f - 4096 : f;
                    if (level == 0 || level == -2048) return kplStsVLCErr;
                } else {
                    const int32_t f = static_cast<int32_t>(vlc_get_bits(p, off, 8));
                    if (f == 0) {
                        level = static_cast<int32_t>(vlc_get_bits(p, off, 8));
                    } else if (f == 128) {
                        level = static_cast<int32_t>(vlc_get_bits(p, off, 8)) - 256;
                    } else {
                        level = f >= 128 ? f - 256 : f;
                    }
                    if (level == 0 || level == -256) return kplStsVLCErr;
                }
            } else {
                return kplStsVLCErr;
            }
        }
        i += run + 1;
        if (i > 63) return kplStsCoefCountErr;
        const uint32_t pos = static_cast<uint32_t>(scan[i]) & 63u;
        const int32_t w = wm[pos];
        const int32_t r = dequant<S, Intra>(level, q, w);
        const uint32_t t = ((pos & 7u) << 3) | (pos >> 3);
        parity ^= static_cast<uint32_t>(blk[t] ^ r) & 1u;
        blk[t] = static_cast<int16_t>(r);
        nz = (nz & ~(uint64_t{1} << pos)) | (uint64_t{r != 0} << pos);
        first = false;
    }

    if constexpr (S == Std::mpeg2) {
        // Mismatch control: an even sum toggles the low bit of (7, 7), which
        // moves it by one toward the other parity (values stay in range).
        if (parity == 0) {
            blk[63] = static_cast<int16_t>(blk[63] ^ 1);
            nz = (nz & ~(uint64_t{1} << 63)) | (uint64_t{blk[63] != 0} << 63);
        }
    }

    uint64_t m = a.k->scan_mask(nz, scan);
    // Scan index 0 of an intra block is always the DC position.
    if constexpr (Intra) m = (m & ~uint64_t{1}) | (nz & 1u);

    std::memcpy(a.pDstBlock, blk, sizeof blk);
    *a.pDstCount = static_cast<int32_t>(std::bit_width(m));
    if constexpr (Intra) *a.pDCPred = static_cast<int16_t>(qf);
    *a.ppBitStream = const_cast<Kpl32u*>(p);
    *a.pOffset = off;
    return kplStsNoErr;
}

template <Std S>
KplStatus inter_entry(Kpl32u** ppBitStream, Kpl32s* pOffset, Kpl16s* pDstBlock, Kpl32s* pDstCount,
                      const Kpl32s* pCoefTable, const Kpl32s* pScanTable, Kpl32s QP, const Kpl16s* pQMatrix) {
    if (ppBitStream == nullptr || pOffset == nullptr || *ppBitStream == nullptr) return kplStsNullPtrErr;
    if (pDstBlock == nullptr || pDstCount == nullptr || pCoefTable == nullptr || pScanTable == nullptr)
        return kplStsNullPtrErr;
    if (*pOffset < 0 || *pOffset > 31) return kplStsBadArgErr;
    if (QP < 1 || QP > (S == Std::mpeg1 ? 31 : 112)) return kplStsBadArgErr;
    const Args a{ppBitStream, pOffset,    pDstBlock, pDstCount, nullptr, nullptr,
                 pCoefTable,  pScanTable, QP,        pQMatrix,  0,       &block_kernels()};
    return decode_block<S, false>(a);
}

template <Std S>
KplStatus intra_entry(Kpl32u** ppBitStream, Kpl32s* pOffset, Kpl16s* pDstBlock, Kpl32s* pDstCount,
                      Kpl16s* pDCPred, const Kpl32s* pDCSizeTable, const Kpl32s* pCoefTable,
                      const Kpl32s* pScanTable, Kpl32s QP, const Kpl16s* pQMatrix, Kpl32s intraDCPrecision) {
    if (ppBitStream == nullptr || pOffset == nullptr || *ppBitStream == nullptr) return kplStsNullPtrErr;
    if (pDstBlock == nullptr || pDstCount == nullptr || pDCPred == nullptr || pDCSizeTable == nullptr ||
        pCoefTable == nullptr || pScanTable == nullptr || pQMatrix == nullptr)
        return kplStsNullPtrErr;
    if (*pOffset < 0 || *pOffset > 31) return kplStsBadArgErr;
    if (QP < 1 || QP > (S == Std::mpeg1 ? 31 : 112)) return kplStsBadArgErr;
    if (intraDCPrecision < 0 || intraDCPrecision > 3) return kplStsBadArgErr;
    const Args a{ppBitStream, pOffset,    pDstBlock, pDstCount, pDCPred,          pDCSizeTable,
                 pCoefTable,  pScanTable, QP,        pQMatrix,  intraDCPrecision, &block_kernels()};
    return decode_block<S, true>(a);
}

}  // namespace

int32_t reconstruct_with(const BlockKernels& k, int32_t version, bool intra, uint32_t** pp, int32_t* off,
                         int16_t* dst, int32_t* count, int16_t* pred, const int32_t* dc_table,
                         const int32_t* coef, const int32_t* scan, int32_t qp, const int16_t* w,
                         int32_t prec) {
    const Args a{pp, off, dst, count, pred, dc_table, coef, scan, qp, w, prec, &k};
    if (version == 1) return intra ? decode_block<Std::mpeg1, true>(a) : decode_block<Std::mpeg1, false>(a);
    return intra ? decode_block<Std::mpeg2, true>(a) : decode_block<Std::mpeg2, false>(a);
}

}  // namespace kplvc::mpeg2

using kplvc::mpeg2::Std;

extern "C" {

KPLVC_API KplStatus kpliReconstructDCTBlock_MPEG1_32s(Kpl32u** ppBitStream, Kpl32s* pOffset,
                                                      Kpl16s* pDstBlock, Kpl32s* pDstCount,
                                                      const Kpl32s* pCoefTable, const Kpl32s* pScanTable,
                                                      Kpl32s QP, const Kpl16s* pQMatrix) {
    return kplvc::mpeg2::inter_entry<Std::mpeg1>(ppBitStream, pOffset, pDstBlock, pDstCount, pCoefTable,
                                                 pScanTable, QP, pQMatrix);
}

KPLVC_API KplStatus kpliReconstructDCTBlockIntra_MPEG1_32s(Kpl32u** ppBitStream, Kpl32s* pOffset,
                                                           Kpl16s* pDstBlock, Kpl32s* pDstCount,
                                                           Kpl16s* pDCPred, const Kpl32s* pDCSizeTable,
                                                           const Kpl32s* pCoefTable, const Kpl32s* pScanTable,
                                                           Kpl32s QP, const Kpl16s* pQMatrix) {
    return kplvc::mpeg2::intra_entry<Std::mpeg1>(ppBitStream, pOffset, pDstBlock, pDstCount, pDCPred,
                                                 pDCSizeTable, pCoefTable, pScanTable, QP, pQMatrix, 0);
}

KPLVC_API KplStatus kpliReconstructDCTBlock_MPEG2_32s(Kpl32u** ppBitStream, Kpl32s* pOffset,
                                                      Kpl16s* pDstBlock, Kpl32s* pDstCount,
                                                      const Kpl32s* pCoefTable, const Kpl32s* pScanTable,
                                                      Kpl32s QP, const Kpl16s* pQMatrix) {
    return kplvc::mpeg2::inter_entry<Std::mpeg2>(ppBitStream, pOffset, pDstBlock, pDstCount, pCoefTable,
                                                 pScanTable, QP, pQMatrix);
}

KPLVC_API KplStatus kpliReconstructDCTBlockIntra_MPEG2_32s(Kpl32u** ppBitStream, Kpl32s* pOffset,
                                                           Kpl16s* pDstBlock, Kpl32s* pDstCount,
                                                           Kpl16s* pDCPred, const Kpl32s* pDCSizeTable,
                                                           const Kpl32s* pCoefTable, const Kpl32s* pScanTable,
                                                           Kpl32s QP, const Kpl16s* pQMatrix,
                                                           Kpl32s intraDCPrecision) {
    return kplvc::mpeg2::intra_entry<Std::mpeg2>(ppBitStream, pOffset, pDstBlock, pDstCount, pDCPred,
                                                 pDCSizeTable, pCoefTable, pScanTable, QP, pQMatrix,
                                                 intraDCPrecision);
}

}  // extern "C"
