// MPEG-1 (ISO/IEC 11172-2) and MPEG-2 (ISO/IEC 13818-2) video decoding:
// the state shared by the stream layer (stream.cpp: start codes, headers,
// frames, output order, concealment) and the macroblock layer
// (macroblock.cpp: slices, macroblocks, motion compensation, blocks).
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "bits.h"
#include "common/codec.h"
#include "common/picture.h"
#include "tables.h"

namespace kplvc::codecs::mpeg2 {

enum PictureType { kPicI = 1, kPicP = 2, kPicB = 3, kPicD = 4 };
enum Structure { kTopField = 1, kBottomField = 2, kFramePicture = 3 };

struct Sequence {
    int width = 0, height = 0;  // display size
    Chroma chroma = Chroma::c420;
    bool mpeg2 = false;
    bool progressive = true;          // progressive_sequence
    int mb_width = 0, mb_height = 0;  // frame macroblocks
    // Quantiser matrices in raster order, as the headers set them: intra and
    // non-intra for luminance and for chrominance.
    uint8_t matrix[4][64];
    bool non_intra_default[2];  // the non-intra matrices are the flat default
};

struct PictureHeader {
    int type = 0;
    int f_code[2][2] = {{15, 15}, {15, 15}};  // [forward, backward][horizontal, vertical]
    bool full_pel[2] = {false, false};        // ISO/IEC 11172-2 only
    int dc_precision = 0;
    int structure = kFramePicture;
    bool top_field_first = true;
    bool frame_pred_frame_dct = true;
    bool concealment_mv = false;
    bool q_scale_type = false;
    bool intra_vlc = false;
    bool alternate_scan = false;
};

// A plane addressed as a whole frame or as one field of it (every other row
// from `base`), with the samples around it that the prediction may read.
struct PlaneView {
    uint8_t* base;
    int step;
    int width, height;  // in the rows this view addresses
    int pad_x, pad_y;
};

// What the macroblock layer needs to decode the slices of one picture.
struct PictureContext {
    const Sequence* seq;
    const PictureHeader* pic;
    Frame* target;
    int parity;  // field pictures: 0 top, 1 bottom
    // Reference planes by direction (0 forward, 1 backward), plane and field
    // parity (field views), and as frames; null where there is none.
    PlaneView field_ref[2][3][2];
    PlaneView frame_ref[2][3];
    PlaneView out[3];  // the target: frame view, or the field being decoded
    int mb_rows;       // macroblock rows of this picture
    // Scans and matrices as the block decoders take them (see macroblock.cpp).
    const Kpl32s* scan;
    const Kpl16s* intra_matrix[2];      // luma, chroma
    const Kpl16s* non_intra_matrix[2];  // null: the flat default
    std::vector<uint8_t>* done;         // per macroblock of this picture: decoded
};

// Decodes one slice whose data (after the 4-byte start code) starts at bit
// `pos` of `words` and ends at bit `end`. Returns false if the slice was cut
// short by an error (the macroblocks not marked done are concealed later).
bool decode_slice(const PictureContext& ctx, int slice_code, const uint32_t* words, size_t pos, size_t end);

// The decoder for kplvc's codec registry.
extern const Decoder kMpeg2Decoder;

}  // namespace kplvc::codecs::mpeg2
