// H.264 decoder: Annex B byte streams, progressive 8-bit 4:2:0, CAVLC, 4x4
// transform (Baseline, and Main and High streams without CABAC and the 8x8
// transform). The NAL unit loop, picture boundaries, concealment and the
// entry points the codec registry calls.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "common/codec.h"
#include "decoder.h"
#include "nal.h"

namespace kplvc::codecs::h264 {

// ---------------------------------------------------------------------------
// Pictures

bool Decoder264::first_slice_of_new_picture(const SliceHeader& sh) const {
    const SliceHeader& f = first_sh_;
    if (sh.frame_num != f.frame_num || sh.pps_id != f.pps_id) return true;
    if ((sh.nal_ref_idc == 0) != (f.nal_ref_idc == 0)) return true;
    if (sh.idr != f.idr || (sh.idr && sh.idr_pic_id != f.idr_pic_id)) return true;
    if (sps_->poc_type == 0 && (sh.poc_lsb != f.poc_lsb || sh.delta_poc_bottom != f.delta_poc_bottom))
        return true;
    if (sps_->poc_type == 1 && (sh.delta_poc[0] != f.delta_poc[0] || sh.delta_poc[1] != f.delta_poc[1]))
        return true;
    // A slice over macroblocks already decoded can only start another picture
    // (or repeat a damaged one).
    return cur_->mb[static_cast<size_t>(sh.first_mb)].slice >= 0;
}

bool Decoder264::start_picture(const SliceHeader& sh) {
    const Pps& pps = pps_table_[sh.pps_id];
    const Sps& sps = sps_table_[pps.sps_id];
    const bool new_size = !sps_ || sps.mb_width != mbw_ || sps.mb_height != mbh_;
    if (new_size) {
        // A new sequence: what is waiting goes out, references go.
        if (sps_) {
            flush_output();
            for (Pic* q : dpb_) {
                q->mark = kUnused;
                q->in_dpb = false;
            }
            dpb_.clear();
        }
        if (!sh.idr) stats_->errors++;
    }
    sps_cur_ = sps;
    sps_ = &sps_cur_;
    pps_cur_ = pps;
    pps_ = &pps_cur_;
    mbw_ = sps.mb_width;
    mbh_ = sps.mb_height;
    if (!have_idr_ && !sh.idr) stats_->errors++;  // no IDR picture yet: references are made up
    have_idr_ = true;

    const int max_frame_num = 1 << sps_->log2_max_frame_num;
    if (sh.idr) {
        prev_ref_frame_num_ = 0;
    } else if (sh.frame_num != prev_ref_frame_num_ &&
               sh.frame_num != (prev_ref_frame_num_ + 1) % max_frame_num) {
        fill_frame_num_gap(sh);
    }

    cur_ = new_pic();
    cur_->id = next_id_++;
    cur_->frame_num = sh.frame_num;
    cur_->mark = kUnused;
    cur_->output_needed = true;
    compute_poc(sh, cur_);
    first_sh_ = sh;
    slice_filters_.clear();
    row_count_.assign(static_cast<size_t>(mbh_), 0);
    deblocked_rows_ = 0;
    decoded_mbs_ = 0;
    return true;
}

void Decoder264::deblock_ready() {
    while (deblocked_rows_ + 1 < mbh_ && row_count_[static_cast<size_t>(deblocked_rows_)] == mbw_ &&
           row_count_[static_cast<size_t>(deblocked_rows_) + 1] == mbw_)
        deblock_rows(deblocked_rows_ + 1);
}

// Macroblocks no slice delivered: the co-located samples of the latest
// reference picture (grey without one), no motion, not filtered.
void Decoder264::conceal_missing() {
    const size_t total = static_cast<size_t>(mbw_) * static_cast<size_t>(mbh_);
    if (decoded_mbs_ == static_cast<int>(total)) return;
    Pic* src = nullptr;
    for (Pic* q : dpb_)
        if (!q->non_existing && (!src || q->id > src->id)) src = q;
    if (!src) src = missing_ref();
    SliceFilter off;
    off.disable = 1;
    off.alpha = off.beta = 0;
    slice_filters_.push_back(off);
    const int16_t slice = static_cast<int16_t>(slice_filters_.size() - 1);
    for (size_t a = 0; a < total; ++a) {
        MbInfo& m = cur_->mb[a];
        if (m.slice >= 0) continue;
        const int mx = static_cast<int>(a % static_cast<size_t>(mbw_)),
                  my = static_cast<int>(a / static_cast<size_t>(mbw_));
        for (int c = 0; c < 3; ++c) {
            const int n = c ? 8 : 16;
            const int sd = cur_->frame.stride(c), ss = src->frame.stride(c);
            for (int y = 0; y < n; ++y)
                std::memcpy(cur_->frame.data(c) + static_cast<ptrdiff_t>(n * my + y) * sd + n * mx,
                            src->frame.data(c) + static_cast<ptrdiff_t>(n * my + y) * ss + n * mx,
                            static_cast<size_t>(n));
        }
        m.slice = slice;
        m.kind = kMbI16x16;  // later pictures take no motion from it
        m.qp = 0;
        std::memset(m.nz, 0, sizeof m.nz);
        std::memset(m.nzc, 0, sizeof m.nzc);
        for (int l = 0; l < 2; ++l) {
            std::fill_n(cur_->mv[l].begin() + static_cast<ptrdiff_t>(16 * a), 16, Mv{0, 0});
            std::fill_n(cur_->ref[l].begin() + static_cast<ptrdiff_t>(4 * a), 4, int8_t{-1});
            std::fill_n(cur_->ref_id[l].begin() + static_cast<ptrdiff_t>(4 * a), 4, -1);
        }
        stats_->concealed++;
        row_count_[static_cast<size_t>(my)]++;
    }
    decoded_mbs_ = static_cast<int>(total);
}

// Replicates the edge samples into the border, for motion vectors that point
// outside the picture.
void Decoder264::expand_borders(Pic* p) {
    Frame& f = p->frame;
    for (int c = 0; c < 3; ++c) {
        const int pad = f.pad(c), w = f.plane_width(c), h = f.plane_height(c), s = f.stride(c);
        uint8_t* base = f.data(c);
        for (int y = 0; y < h; ++y) {
            uint8_t* row = base + static_cast<ptrdiff_t>(y) * s;
            std::memset(row - pad, row[0], static_cast<size_t>(pad));
            std::memset(row + w, row[w - 1], static_cast<size_t>(pad));
        }
        const size_t len = static_cast<size_t>(w + 2 * pad);
        for (int y = 1; y <= pad; ++y) {
            std::memcpy(base - static_cast<ptrdiff_t>(y) * s - pad, base - pad, len);
            std::memcpy(base + static_cast<ptrdiff_t>(h - 1 + y) * s - pad,
                        base + static_cast<ptrdiff_t>(h - 1) * s - pad, len);
        }
    }
}

void Decoder264::finish_picture() {
    if (!cur_) return;
    conceal_missing();
    deblock_rows(mbh_);
    expand_borders(cur_);
    const SliceHeader& sh = first_sh_;
    mark_references(sh);

    // What the next picture's order count and frame numbering start from.
    const bool mmco5 = cur_->mmco5;
    if (sh.nal_ref_idc != 0) {
        prev_poc_msb_ = mmco5 ? 0 : poc_msb_;
        prev_poc_lsb_ = mmco5 ? top_poc_ : sh.poc_lsb;
        prev_ref_frame_num_ = mmco5 ? 0 : sh.frame_num;
    }
    prev_frame_num_offset_ = mmco5 ? 0 : frame_num_offset_;
    prev_frame_num_ = mmco5 ? 0 : sh.frame_num;

    Pic* p = cur_;
    cur_ = nullptr;
    store_and_output(p, sh.idr || mmco5, sh.idr && sh.no_output_of_prior_pics);
}

// ---------------------------------------------------------------------------
// NAL units

int Decoder264::on_slice(const uint8_t* nal, size_t len, int nal_type, int ref_idc) {
    BitReader br = unescape(nal, len, rbsp_);
    SliceHeader& sh = sh_;
    const char* why = nullptr;
    const Parse r = parse_slice_header(br, nal_type, ref_idc, sps_table_, pps_table_, &sh, &why);
    if (r == Parse::kUnsupported) {
        if (stats_->frames == 0 && !cur_ && dpb_.empty()) {
            std::snprintf(stats_->message, sizeof stats_->message, "unsupported H.264 feature: %s", why);
            return -1;
        }
        stats_->errors++;
        return 0;
    }
    if (r == Parse::kError) {
        stats_->errors++;
        return 0;
    }
    if (sh.redundant_pic_cnt > 0) return 0;  // primary pictures only
    if (cur_ && first_slice_of_new_picture(sh)) finish_picture();
    if (stop_) return 0;
    if (!cur_ && !start_picture(sh)) return 0;
    if (sh.pps_id != first_sh_.pps_id) {  // within a picture the set may not change
        stats_->errors++;
        return 0;
    }
    build_ref_lists(sh);
    decode_slice(br, sh);
    return 0;
}

int Decoder264::decode(const uint8_t* data, size_t size) {
    size_t pos = 0;
    const uint8_t* nal = nullptr;
    size_t len = 0;
    while (!stop_ && next_nal(data, size, &pos, &nal, &len)) {
        if (nal[0] & 0x80) {  // forbidden_zero_bit
            stats_->errors++;
            continue;
        }
        const int ref_idc = (nal[0] >> 5) & 3, type = nal[0] & 31;
        switch (type) {
            case kNalSlice:
            case kNalIdr:
                if (on_slice(nal, len, type, ref_idc) < 0) return -1;
                break;
            case kNalSps: {
                BitReader br = unescape(nal, len, rbsp_);
                Sps s;
                int id = 0;
                if (parse_sps(br, &s, &id) == Parse::kError)
                    stats_->errors++;
                else
                    sps_table_[id] = s;
                break;
            }
            case kNalPps: {
                BitReader br = unescape(nal, len, rbsp_);
                Pps p;
                int id = 0;
                if (parse_pps(br, &p, &id) == Parse::kError)
                    stats_->errors++;
                else
                    pps_table_[id] = p;
                break;
            }
            case kNalPartitionA:
            case kNalPartitionB:
            case kNalPartitionC:
                if (stats_->frames == 0 && !cur_ && dpb_.empty()) {
                    std::snprintf(stats_->message, sizeof stats_->message,
                                  "unsupported H.264 feature: data partitioning");
                    return -1;
                }
                stats_->errors++;
                break;
            case kNalEndSeq:
            case kNalEndStream:
                finish_picture();
                break;
            default:
                break;  // SEI, delimiters, filler, extensions
        }
    }
    finish_picture();
    flush_output();
    return 0;
}

namespace {

int probe(const uint8_t* data, size_t size) {
    // An Annex B stream starts with a start code (after zero bytes at most),
    // and its first NAL unit is one a stream starts with: SPS, PPS,
    // delimiter, SEI or a slice, with a sane header.
    size_t zeros = 0;
    while (zeros < size && zeros < 64 && data[zeros] == 0) ++zeros;
    if (zeros < 2 || zeros >= size || data[zeros] != 1 || zeros + 1 >= size) return 0;
    const uint8_t head = data[zeros + 1];
    if (head & 0x80) return 0;
    const int type = head & 31;
    if (type == kNalSps) return 90;
    if (type == kNalAud || type == kNalSei || type == kNalPps) return 60;
    if (type == kNalSlice || type == kNalIdr) return 30;
    return 0;
}

int decode(const uint8_t* data, size_t size, const DecodeOptions&, PictureSink sink, void* user,
           DecodeStats* stats) {
    auto dec = std::make_unique<Decoder264>(sink, user, stats);
    return dec->decode(data, size);
}

}  // namespace

extern const Decoder kH264Decoder;
const Decoder kH264Decoder = {"h264", ".264 .h264 .avc .26l", probe, decode};

}  // namespace kplvc::codecs::h264
