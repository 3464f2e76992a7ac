#include "families.h"

#include <cstddef>

#include "block/copy.h"
#include "block/dct.h"
#include "block/metrics.h"
#include "core/dispatch.h"
#include "core/vector.h"
#include "dv/dv.h"
#include "h263/obmc.h"
#include "h263/quant.h"
#include "h263/recon.h"
#include "h264/deblock.h"
#include "h264/inter.h"
#include "h264/pred.h"
#include "h264/transform.h"
#include "mc/mc.h"
#include "me/me.h"
#include "mpeg2/block.h"
#include "mpeg2/quant.h"
#include "mpeg4/gmc.h"
#include "mpeg4/postfilter.h"
#include "mpeg4/qpel.h"
#include "mpeg4/quant.h"

namespace kplvc {

namespace {

// The level of entries [First, Last) (byte offsets) of the table in use.
template <class Table, Table (*For)(cpu::Isa), const Table& (*Active)(), std::size_t First = 0,
          std::size_t Last = sizeof(Table)>
cpu::Isa level() {
    return table_level(For, Active(), First, Last);
}

using h264::DeblockKernels;
constexpr std::size_t kChromaDeblock = offsetof(DeblockKernels, chroma_ver);
// The MPEG-2 table's MPEG-4 entries are reported on the mpeg4quant line.
constexpr std::size_t kMpeg4Dequant = offsetof(mpeg2::QuantKernels, mpeg4_intra);

// One line per kernel family; a new family adds its own line here.
const FamilyInfo kFamilies[] = {
    {"vector", level<VectorKernels, vector_kernels_for, vector_kernels>},
    {"mc", level<mc::McKernels, mc::mc_kernels_for, mc::mc_kernels>},
    {"blockcopy", level<block::BlockCopyKernels, block::blockcopy_kernels_for, block::blockcopy_kernels>},
    {"metrics", level<block::MetricsKernels, block::metrics_kernels_for, block::metrics_kernels>},
    {"dct", level<block::DctKernels, block::dct_kernels_for, block::dct_kernels>},
    {"dv", level<dv::DvKernels, dv::dv_kernels_for, dv::dv_kernels>},
    {"h263recon", level<h263::ReconKernels, h263::recon_kernels_for, h263::recon_kernels>},
    {"h263quant", level<h263::QuantKernels, h263::quant_kernels_for, h263::quant_kernels>},
    {"h263obmc", level<h263::ObmcKernels, h263::obmc_kernels_for, h263::obmc_kernels>},
    {"mpeg2quant",
     level<mpeg2::QuantKernels, mpeg2::quant_kernels_for, mpeg2::quant_kernels, 0, kMpeg4Dequant>},
    {"mpeg2block", level<mpeg2::BlockKernels, mpeg2::block_kernels_for, mpeg2::block_kernels>},
    {"mpeg4quant", level<mpeg4::QuantKernels, mpeg4::quant_kernels_for, mpeg4::quant_kernels>},
    {"mpeg4qpel", level<mpeg4::QpelKernels, mpeg4::qpel_kernels_for, mpeg4::qpel_kernels>},
    {"mpeg4warp", level<mpeg4::WarpKernels, mpeg4::warp_kernels_for, mpeg4::warp_kernels>},
    {"mpeg4post", level<mpeg4::PostKernels, mpeg4::post_kernels_for, mpeg4::post_kernels>},
    {"me", level<me::MeKernels, me::me_kernels_for, me::me_kernels>},
    {"h264xform", level<h264::XformKernels, h264::xform_kernels_for, h264::xform_kernels>},
    {"h264pred", level<h264::PredKernels, h264::pred_kernels_for, h264::pred_kernels>},
    // Luma deblocking gains from AVX-512's 32 registers, chroma does not.
    {"h264deblock luma",
     level<DeblockKernels, h264::deblock_kernels_for, h264::deblock_kernels, 0, kChromaDeblock>},
    {"h264deblock chroma",
     level<DeblockKernels, h264::deblock_kernels_for, h264::deblock_kernels, kChromaDeblock>},
    {"h264inter", level<h264::InterKernels, h264::inter_kernels_for, h264::inter_kernels>},
};

}  // namespace

const FamilyInfo* families(int* count) {
    *count = static_cast<int>(sizeof kFamilies / sizeof kFamilies[0]);
    return kFamilies;
}

}  // namespace kplvc
