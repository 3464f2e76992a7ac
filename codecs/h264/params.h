// Sequence and picture parameter sets and slice headers: the syntax this
// decoder reads, and which features it turns away.
#pragma once

#include <cstdint>

#include "bits.h"

namespace kplvc::codecs::h264 {

// Parsing results. kUnsupported means the syntax was read correctly but asks
// for a tool this decoder does not implement (`why` names it).
enum class Parse { kOk, kError, kUnsupported };

struct Sps {
    bool valid = false;
    const char* unsupported = nullptr;  // set when the set needs a tool we lack
    int profile_idc = 0, level_idc = 0, constraint_flags = 0;
    int log2_max_frame_num = 4;
    int poc_type = 0;
    int log2_max_poc_lsb = 4;
    bool delta_pic_order_always_zero = false;
    int offset_for_non_ref_pic = 0, offset_for_top_to_bottom_field = 0;
    int num_ref_frames_in_poc_cycle = 0;
    int offset_for_ref_frame[255] = {};
    int expected_delta_per_poc_cycle = 0;
    int max_num_ref_frames = 0;
    bool gaps_in_frame_num_allowed = false;
    int mb_width = 0, mb_height = 0;  // in macroblocks (frames only)
    bool frame_mbs_only = true, mb_adaptive_frame_field = false;
    bool direct_8x8_inference = false;
    int crop_left = 0, crop_right = 0, crop_top = 0, crop_bottom = 0;  // in luma samples
    int max_dec_frame_buffering = -1;                                  // from the VUI, -1 when absent
};

struct Pps {
    bool valid = false;
    const char* unsupported = nullptr;
    int sps_id = 0;
    bool bottom_field_pic_order_in_frame_present = false;
    int num_ref_idx_default[2] = {1, 1};
    bool weighted_pred = false;
    int weighted_bipred_idc = 0;
    int pic_init_qp = 26;
    int chroma_qp_index_offset[2] = {0, 0};  // Cb, Cr
    bool deblocking_filter_control_present = false;
    bool constrained_intra_pred = false;
    bool redundant_pic_cnt_present = false;
};

enum SliceType : int { kSliceP = 0, kSliceB = 1, kSliceI = 2, kSliceSP = 3, kSliceSI = 4 };

struct RefModification {
    int idc;  // 0 subtract, 1 add, 2 long-term
    uint32_t value;
};

struct Mmco {
    int op;
    uint32_t a, b;  // difference_of_pic_nums_minus1 / long_term_pic_num / max idx plus1, long_term_frame_idx
};

struct WeightEntry {
    int16_t w, o;  // weight and offset
};

struct SliceHeader {
    int nal_type = 0, nal_ref_idc = 0;
    bool idr = false;
    int first_mb = 0;
    int type = kSliceI;
    int pps_id = 0;
    int frame_num = 0;
    int idr_pic_id = 0;
    int poc_lsb = 0, delta_poc_bottom = 0, delta_poc[2] = {0, 0};
    int redundant_pic_cnt = 0;
    bool direct_spatial = false;
    int num_ref_idx[2] = {0, 0};
    int num_mods[2] = {0, 0};
    RefModification mods[2][33];
    // Weighted prediction table (explicit); weights are per list and index.
    bool has_weights = false;
    int luma_log2_denom = 0, chroma_log2_denom = 0;
    WeightEntry luma_weight[2][32];
    WeightEntry chroma_weight[2][32][2];
    bool luma_weight_flag[2][32];
    bool chroma_weight_flag[2][32];
    bool no_output_of_prior_pics = false, long_term_reference = false;
    bool adaptive_marking = false;
    int num_mmco = 0;
    Mmco mmco[66];
    int qp = 26;
    int disable_deblocking = 0;
    int alpha_offset = 0, beta_offset = 0;  // FilterOffsetA, FilterOffsetB
};

Parse parse_sps(BitReader& br, Sps* sps, int* id);
Parse parse_pps(BitReader& br, Pps* pps, int* id);
// Reads the header up to slice_data(); sps_table and pps_table are indexed by id.
// `why` receives the name of an unsupported tool.
Parse parse_slice_header(BitReader& br, int nal_type, int nal_ref_idc, const Sps* sps_table,
                         const Pps* pps_table, SliceHeader* sh, const char** why);

}  // namespace kplvc::codecs::h264
