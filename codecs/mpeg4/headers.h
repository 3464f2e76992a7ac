// MPEG-4 Visual headers the decoder reads: the video object layer (VOL), the
// VOP header and the video packet header, and the short video header's
// picture header (ISO/IEC 14496-2 6.2 and 6.3).
#pragma once

#include <cstdint>

#include "bitreader.h"
#include "kplvc.h"

namespace kplvc::codecs::mpeg4 {

enum VopType { kI = 0, kP = 1, kB = 2, kS = 3 };

// sprite_enable values.
enum Sprite { kNoSprite = 0, kStatic = 1, kGmc = 2 };

struct Vol {
    bool valid = false;
    int verid = 1;
    int shape = 0;  // 0 rectangular, 1 binary (the only other one decoded)
    int time_res = 1;
    int time_bits = 1;
    int width = 0, height = 0;
    bool interlaced = false;
    int sprite = kNoSprite;
    int warp_points = 0, warp_accuracy = 0;
    bool quant_type = false;   // true: the first (MPEG) method with matrices
    int16_t intra_matrix[64];  // raster order
    int16_t inter_matrix[64];
    bool quarter_sample = false;
    bool resync_disable = true;
    bool data_partitioned = false, rvlc = false;
    size_t rvlc_bit = 0;  // reversible_vlc's bit position in the stream
    bool short_header = false;
    int quant_precision = 5;
};

struct Vop {
    int type = kI;
    bool coded = true;
    int64_t time = 0;  // in 1/time_res seconds
    int rounding = 0;
    int dc_thr = 0;  // intra_dc_vlc_thr
    bool top_field_first = false, alt_scan = false;
    int quant = 1;
    int fcode_f = 1, fcode_b = 1;
    int warp_du[4] = {0, 0, 0, 0}, warp_dv[4] = {0, 0, 0, 0};
    int modulo = 0;  // seconds of modulo_time_base
    int increment = 0;
    // Short video header only.
    int gob_count = 0;
    // Binary shape: the bounding box (position signed, in luma samples).
    int vop_width = 0, vop_height = 0, hor_ref = 0, ver_ref = 0;
    bool conv_ratio_disable = false;
    bool inter_shape = false;  // vop_shape_coding_type (P-VOPs)
};

// Each returns false, with why, on a stream it cannot decode (an
// unsupported feature is named; damage gives "damaged ...").
bool parse_vol(BitReader& br, Vol* vol, const char** why);
bool parse_vop(BitReader& br, const Vol& vol, Vop* vop, const char** why);
// The short video header picture (after the 22-bit start marker); fills the
// VOL with its size the first time.
bool parse_short_header(BitReader& br, Vol* vol, Vop* vop, const char** why);

// The classical zigzag scan: raster position of each scan position.
extern const uint8_t kZigzag[64];

// The default matrices of the first quantisation method, raster order.
extern const int16_t kDefaultIntraMatrix[64];
extern const int16_t kDefaultInterMatrix[64];

}  // namespace kplvc::codecs::mpeg4
