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
#include "mpeg2/block.h"
#include "mpeg2/quant.h"
#include "mpeg4/quant.h"

namespace kplvc {

// One line per kernel family; a new family adds its own line here.
static const FamilyInfo kFamilies[] = {
    {"vector", vector_level},
    {"mc", mc::mc_level},
    {"blockcopy", block::blockcopy_level},
    {"metrics", block::metrics_level},
    {"dct", block::dct_level},
    {"dv", dv::dv_level},
    {"h263recon", h263::recon_level},
    {"h263quant", h263::quant_level},
    {"h263obmc", h263::obmc_level},
    {"mpeg2quant", mpeg2::quant_level},
    {"mpeg2block", mpeg2::block_level},
    {"mpeg4quant", mpeg4::quant_level},
    {"h264xform", h264::xform_level},
    {"h264pred", h264::pred_level},
    {"h264deblock", h264::deblock_level},
    {"h264inter", h264::inter_level},
};

const FamilyInfo* families(int* count) {
    *count = static_cast<int>(sizeof kFamilies / sizeof kFamilies[0]);
    return kFamilies;
}

}  // namespace kplvc
