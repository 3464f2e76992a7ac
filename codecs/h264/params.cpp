#include "params.h"

#include <cstdint>

namespace kplvc::codecs::h264 {

namespace {

// One scaling_list(): true when the list is present and flat (every entry
// 16). A list that asks for the default matrix is not flat.
bool scaling_list_is_flat(BitReader& br, int size) {
    int last = 8, next = 8;
    bool flat = true;
    for (int j = 0; j < size; ++j) {
        if (next != 0) {
            const int delta = br.se();  // delta_scale: -128..127 in a valid stream
            if (delta < -128 || delta > 127) {
                br.set_error();
                return false;
            }
            next = (last + delta + 256) & 255;
            if (j == 0 && next == 0) return false;  // useDefaultScalingMatrixFlag
        }
        const int v = next == 0 ? last : next;
        if (v != 16) flat = false;
        last = v;
    }
    return flat;
}

// The 4x4 lists of a seq/pic scaling matrix. `fallback` gives, for lists 0
// and 3, whether the list they fall back to is flat (the default matrices
// for a sequence, the sequence's lists for a picture). Lists 6.. (8x8) are
// read and ignored: this decoder has no 8x8 transform.
bool scaling_matrix_is_flat(BitReader& br, int lists, const bool fallback[6]) {
    bool flat[6] = {};
    for (int i = 0; i < lists; ++i) {
        const bool present = br.u1();
        const bool f = present ? scaling_list_is_flat(br, i < 6 ? 16 : 64) : false;
        if (i < 6) flat[i] = present ? f : (i == 0 || i == 3 ? fallback[i] : flat[i - 1]);
    }
    for (int i = 0; i < 6; ++i)
        if (!flat[i]) return false;
    return true;
}

void skip_hrd(BitReader& br) {
    const uint32_t cpb_cnt = br.ue() + 1;
    br.u(4);
    br.u(4);
    for (uint32_t i = 0; i < cpb_cnt && i < 32 && !br.error(); ++i) {
        br.ue();
        br.ue();
        br.u1();
    }
    br.u(20);
}

void parse_vui(BitReader& br, Sps* sps) {
    if (br.u1()) {  // aspect_ratio_info_present_flag
        if (br.u(8) == 255) br.u(32);
    }
    if (br.u1()) br.u1();  // overscan
    if (br.u1()) {         // video_signal_type
        br.u(4);
        if (br.u1()) br.u(24);
    }
    if (br.u1()) {  // chroma_loc_info
        br.ue();
        br.ue();
    }
    if (br.u1()) {  // timing_info
        br.u(32);
        br.u(32);
        br.u1();
    }
    const bool nal_hrd = br.u1();
    if (nal_hrd) skip_hrd(br);
    const bool vcl_hrd = br.u1();
    if (vcl_hrd) skip_hrd(br);
    if (nal_hrd || vcl_hrd) br.u1();  // low_delay_hrd_flag
    br.u1();                          // pic_struct_present_flag
    if (br.u1()) {                    // bitstream_restriction_flag
        br.u1();
        br.ue();
        br.ue();
        br.ue();
        br.ue();
        br.ue();  // max_num_reorder_frames
        const uint32_t max_dec = br.ue();
        if (!br.error() && max_dec <= 16) sps->max_dec_frame_buffering = static_cast<int>(max_dec);
    }
}

bool in_range(uint32_t v, uint32_t hi) { return v <= hi; }

}  // namespace

Parse parse_sps(BitReader& br, Sps* out, int* id_out) {
    Sps s;
    s.profile_idc = static_cast<int>(br.u(8));
    s.constraint_flags = static_cast<int>(br.u(8));
    s.level_idc = static_cast<int>(br.u(8));
    const uint32_t id = br.ue();
    if (!in_range(id, 31)) return Parse::kError;
    const int p = s.profile_idc;
    bool default_flat[6] = {false, false, false, false, false, false};  // the default matrices are not flat
    if (p == 100 || p == 110 || p == 122 || p == 244 || p == 44 || p == 83 || p == 86 || p == 118 ||
        p == 128 || p == 138 || p == 139 || p == 134 || p == 135) {
        const uint32_t chroma_format_idc = br.ue();
        if (chroma_format_idc == 3) br.u1();  // separate_colour_plane_flag
        const uint32_t depth_luma = br.ue(), depth_chroma = br.ue();
        const bool bypass = br.u1();
        if (br.u1()) {  // seq_scaling_matrix_present_flag
            if (!scaling_matrix_is_flat(br, chroma_format_idc != 3 ? 8 : 12, default_flat))
                s.unsupported = "scaling matrices";
        }
        if (chroma_format_idc != 1) s.unsupported = "chroma formats other than 4:2:0";
        if (depth_luma != 0 || depth_chroma != 0) s.unsupported = "bit depths above 8";
        if (bypass) s.unsupported = "lossless coding (transform bypass)";
    }
    const uint32_t log2_max_frame_num = br.ue() + 4;
    if (!in_range(log2_max_frame_num, 16)) return Parse::kError;
    s.log2_max_frame_num = static_cast<int>(log2_max_frame_num);
    s.poc_type = static_cast<int>(br.ue());
    if (s.poc_type == 0) {
        const uint32_t l = br.ue() + 4;
        if (!in_range(l, 16)) return Parse::kError;
        s.log2_max_poc_lsb = static_cast<int>(l);
    } else if (s.poc_type == 1) {
        s.delta_pic_order_always_zero = br.u1();
        s.offset_for_non_ref_pic = br.se();
        s.offset_for_top_to_bottom_field = br.se();
        const uint32_t n = br.ue();
        if (!in_range(n, 255)) return Parse::kError;
        s.num_ref_frames_in_poc_cycle = static_cast<int>(n);
        int64_t cycle_delta = 0;  // the sum of up to 255 32-bit offsets
        for (uint32_t i = 0; i < n; ++i) {
            s.offset_for_ref_frame[i] = br.se();
            cycle_delta += s.offset_for_ref_frame[i];
        }
        if (cycle_delta < INT32_MIN || cycle_delta > INT32_MAX) return Parse::kError;
        s.expected_delta_per_poc_cycle = static_cast<int>(cycle_delta);
    } else if (s.poc_type != 2) {
        return Parse::kError;
    }
    const uint32_t max_refs = br.ue();
    if (!in_range(max_refs, 16)) return Parse::kError;
    s.max_num_ref_frames = static_cast<int>(max_refs);
    s.gaps_in_frame_num_allowed = br.u1();
    const uint32_t w = br.ue() + 1, h = br.ue() + 1;
    s.frame_mbs_only = br.u1();
    if (!s.frame_mbs_only) s.mb_adaptive_frame_field = br.u1();
    const uint32_t frame_h = h * (s.frame_mbs_only ? 1 : 2);
    // At most 8192 samples a side and the largest level's frame size (139264
    // macroblocks): every derived size fits comfortably in int, and a damaged
    // set cannot ask for gigabytes.
    if (w > 512 || frame_h > 512 || w * frame_h > 139264) return Parse::kError;
    s.mb_width = static_cast<int>(w);
    s.mb_height = static_cast<int>(frame_h);
    s.direct_8x8_inference = br.u1();
    if (br.u1()) {  // frame_cropping_flag
        const uint32_t l = br.ue(), r = br.ue(), t = br.ue(), b = br.ue();
        const uint32_t unit_y = s.frame_mbs_only ? 2 : 4;
        if (2 * (l + r) >= 16 * w || unit_y * (t + b) >= 16 * frame_h) return Parse::kError;
        s.crop_left = static_cast<int>(2 * l);
        s.crop_right = static_cast<int>(2 * r);
        s.crop_top = static_cast<int>(unit_y * t);
        s.crop_bottom = static_cast<int>(unit_y * b);
    }
    if (br.u1()) {
        BitReader save = br;
        parse_vui(br, &s);
        if (br.error()) {  // a damaged or cut VUI: keep what is needed to decode
            br = save;
            s.max_dec_frame_buffering = -1;
        }
    }
    if (br.error()) return Parse::kError;
    s.valid = true;
    *out = s;
    *id_out = static_cast<int>(id);
    return s.unsupported ? Parse::kUnsupported : Parse::kOk;
}

Parse parse_pps(BitReader& br, Pps* out, int* id_out) {
    Pps p;
    const uint32_t id = br.ue(), sps_id = br.ue();
    if (!in_range(id, 255) || !in_range(sps_id, 31)) return Parse::kError;
    p.sps_id = static_cast<int>(sps_id);
    if (br.u1()) p.unsupported = "CABAC entropy coding";
    p.bottom_field_pic_order_in_frame_present = br.u1();
    if (br.ue() != 0) {
        p.unsupported = "slice groups (FMO)";
        p.valid = true;
        *out = p;
        *id_out = static_cast<int>(id);
        return Parse::kUnsupported;
    }
    const uint32_t l0 = br.ue() + 1, l1 = br.ue() + 1;
    if (!in_range(l0, 32) || !in_range(l1, 32)) return Parse::kError;
    p.num_ref_idx_default[0] = static_cast<int>(l0);
    p.num_ref_idx_default[1] = static_cast<int>(l1);
    p.weighted_pred = br.u1();
    p.weighted_bipred_idc = static_cast<int>(br.u(2));
    if (p.weighted_bipred_idc == 3) return Parse::kError;
    const int64_t qp = 26 + int64_t{br.se()};
    br.se();  // pic_init_qs_minus26
    const int cqp = br.se();
    if (qp < 0 || qp > 51 || cqp < -12 || cqp > 12) return Parse::kError;
    p.pic_init_qp = static_cast<int>(qp);
    p.chroma_qp_index_offset[0] = p.chroma_qp_index_offset[1] = cqp;
    p.deblocking_filter_control_present = br.u1();
    p.constrained_intra_pred = br.u1();
    p.redundant_pic_cnt_present = br.u1();
    if (br.more_data()) {
        const bool transform_8x8 = br.u1();
        if (transform_8x8 && !p.unsupported) p.unsupported = "the 8x8 transform";
        if (br.u1()) {  // pic_scaling_matrix_present_flag
            // Lists 0 and 3 fall back to the sequence's, which are flat in
            // every sequence this decoder accepts.
            const bool seq_flat[6] = {true, true, true, true, true, true};
            if (!scaling_matrix_is_flat(br, 6 + (transform_8x8 ? 2 : 0), seq_flat) && !p.unsupported)
                p.unsupported = "scaling matrices";
        }
        const int cr = br.se();
        if (cr < -12 || cr > 12) return Parse::kError;
        p.chroma_qp_index_offset[1] = cr;
    }
    if (br.error()) return Parse::kError;
    p.valid = true;
    *out = p;
    *id_out = static_cast<int>(id);
    return p.unsupported ? Parse::kUnsupported : Parse::kOk;
}

namespace {

bool parse_weights(BitReader& br, SliceHeader* sh) {
    const uint32_t ld = br.ue(), cd = br.ue();
    if (ld > 7 || cd > 7) return false;
    sh->luma_log2_denom = static_cast<int>(ld);
    sh->chroma_log2_denom = static_cast<int>(cd);
    const int lists = sh->type == kSliceB ? 2 : 1;
    for (int l = 0; l < lists; ++l) {
        for (int i = 0; i < sh->num_ref_idx[l]; ++i) {
            WeightEntry& lw = sh->luma_weight[l][i];
            lw = {static_cast<int16_t>(1 << ld), 0};
            sh->luma_weight_flag[l][i] = br.u1();
            if (sh->luma_weight_flag[l][i]) {
                const int w = br.se(), o = br.se();
                if (w < -128 || w > 127 || o < -128 || o > 127) return false;
                lw = {static_cast<int16_t>(w), static_cast<int16_t>(o)};
            }
            sh->chroma_weight_flag[l][i] = br.u1();
            for (int c = 0; c < 2; ++c) {
                WeightEntry& cw = sh->chroma_weight[l][i][c];
                cw = {static_cast<int16_t>(1 << cd), 0};
                if (sh->chroma_weight_flag[l][i]) {
                    const int w = br.se(), o = br.se();
                    if (w < -128 || w > 127 || o < -128 || o > 127) return false;
                    cw = {static_cast<int16_t>(w), static_cast<int16_t>(o)};
                }
            }
        }
    }
    return !br.error();
}

}  // namespace

Parse parse_slice_header(BitReader& br, int nal_type, int nal_ref_idc, const Sps* sps_table,
                         const Pps* pps_table, SliceHeader* sh, const char** why) {
    sh->nal_type = nal_type;
    sh->nal_ref_idc = nal_ref_idc;
    sh->idr = nal_type == 5;
    const uint32_t first_mb = br.ue(), type = br.ue(), pps_id = br.ue();
    if (type > 9 || pps_id > 255 || br.error()) return Parse::kError;
    sh->type = static_cast<int>(type % 5);
    sh->pps_id = static_cast<int>(pps_id);
    const Pps& pps = pps_table[pps_id];
    if (!pps.valid) return Parse::kError;
    const Sps& sps = sps_table[pps.sps_id];
    if (!sps.valid) return Parse::kError;
    if (pps.unsupported || sps.unsupported) {
        *why = pps.unsupported ? pps.unsupported : sps.unsupported;
        return Parse::kUnsupported;
    }
    if (sh->type == kSliceSP || sh->type == kSliceSI) {
        *why = "SP and SI slices";
        return Parse::kUnsupported;
    }
    if (first_mb >= static_cast<uint32_t>(sps.mb_width * sps.mb_height)) return Parse::kError;
    sh->first_mb = static_cast<int>(first_mb);
    sh->frame_num = static_cast<int>(br.u(sps.log2_max_frame_num));
    if (!sps.frame_mbs_only) {
        if (br.u1()) {
            *why = "field pictures (PAFF)";
            return Parse::kUnsupported;
        }
        if (sps.mb_adaptive_frame_field) {
            *why = "frame/field adaptive macroblocks (MBAFF)";
            return Parse::kUnsupported;
        }
    }
    if (sh->idr) sh->idr_pic_id = static_cast<int>(br.ue());
    if (sps.poc_type == 0) {
        sh->poc_lsb = static_cast<int>(br.u(sps.log2_max_poc_lsb));
        sh->delta_poc_bottom = pps.bottom_field_pic_order_in_frame_present ? br.se() : 0;
    } else if (sps.poc_type == 1 && !sps.delta_pic_order_always_zero) {
        sh->delta_poc[0] = br.se();
        sh->delta_poc[1] = pps.bottom_field_pic_order_in_frame_present ? br.se() : 0;
    }
    if (pps.redundant_pic_cnt_present) sh->redundant_pic_cnt = static_cast<int>(br.ue());
    if (sh->type == kSliceB) sh->direct_spatial = br.u1();
    sh->num_ref_idx[0] = sh->num_ref_idx[1] = 0;
    if (sh->type != kSliceI) {
        sh->num_ref_idx[0] = pps.num_ref_idx_default[0];
        if (sh->type == kSliceB) sh->num_ref_idx[1] = pps.num_ref_idx_default[1];
        if (br.u1()) {
            const uint32_t l0 = br.ue() + 1;
            const uint32_t l1 = sh->type == kSliceB ? br.ue() + 1 : 0;
            if (l0 > 32 || l1 > 32) return Parse::kError;
            sh->num_ref_idx[0] = static_cast<int>(l0);
            sh->num_ref_idx[1] = static_cast<int>(l1);
        }
    }
    for (int l = 0; l < 2; ++l) {
        sh->num_mods[l] = 0;
        if ((l == 0 && sh->type == kSliceI) || (l == 1 && sh->type != kSliceB)) continue;
        if (!br.u1()) continue;
        for (;;) {
            const uint32_t idc = br.ue();
            if (idc == 3) break;
            if (idc > 3 || sh->num_mods[l] > sh->num_ref_idx[l] || br.error()) return Parse::kError;
            sh->mods[l][sh->num_mods[l]++] = {static_cast<int>(idc), br.ue()};
        }
    }
    sh->has_weights =
        (pps.weighted_pred && sh->type == kSliceP) || (pps.weighted_bipred_idc == 1 && sh->type == kSliceB);
    if (sh->has_weights && !parse_weights(br, sh)) return Parse::kError;
    sh->no_output_of_prior_pics = sh->long_term_reference = sh->adaptive_marking = false;
    sh->num_mmco = 0;
    if (nal_ref_idc != 0) {
        if (sh->idr) {
            sh->no_output_of_prior_pics = br.u1();
            sh->long_term_reference = br.u1();
        } else if ((sh->adaptive_marking = br.u1())) {
            for (;;) {
                const uint32_t op = br.ue();
                if (op == 0) break;
                if (op > 6 || sh->num_mmco >= 66 || br.error()) return Parse::kError;
                Mmco& m = sh->mmco[sh->num_mmco++];
                m = {static_cast<int>(op), 0, 0};
                if (op == 1 || op == 3) m.a = br.ue();
                if (op == 2) m.a = br.ue();
                if (op == 3 || op == 6) m.b = br.ue();
                if (op == 4) m.a = br.ue();
            }
        }
    }
    const int64_t qp = pps.pic_init_qp + int64_t{br.se()};
    if (qp < 0 || qp > 51) return Parse::kError;
    sh->qp = static_cast<int>(qp);
    sh->disable_deblocking = 0;
    sh->alpha_offset = sh->beta_offset = 0;
    if (pps.deblocking_filter_control_present) {
        const uint32_t idc = br.ue();
        if (idc > 2) return Parse::kError;
        sh->disable_deblocking = static_cast<int>(idc);
        if (idc != 1) {
            const int a = br.se(), b = br.se();
            if (a < -6 || a > 6 || b < -6 || b > 6) return Parse::kError;
            sh->alpha_offset = 2 * a;
            sh->beta_offset = 2 * b;
        }
    }
    return br.error() ? Parse::kError : Parse::kOk;
}

}  // namespace kplvc::codecs::h264
