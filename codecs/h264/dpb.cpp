// Picture order counts, reference picture lists and marking, and the decoded
// picture buffer with its output ("bumping") process. Frames only: field
// pictures are turned away before they get here.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "decoder.h"

namespace kplvc::codecs::h264 {

namespace {

// MaxDpbMbs by level_idc (ITU-T H.264 Table A-1); level 1b (11 with
// constraint_set3) shares level 1.1's row, which only makes the buffer larger.
int max_dpb_mbs(int level) {
    switch (level) {
        case 9:
        case 10:
            return 396;
        case 11:
            return 900;
        case 12:
        case 13:
        case 20:
            return 2376;
        case 21:
            return 4752;
        case 22:
        case 30:
            return 8100;
        case 31:
            return 18000;
        case 32:
            return 20480;
        case 40:
        case 41:
            return 32768;
        case 42:
            return 34816;
        case 50:
            return 110400;
        case 51:
        case 52:
            return 184320;
        default:
            return 696320;
    }
}

}  // namespace

int Decoder264::dpb_capacity() const {
    int n = sps_->max_dec_frame_buffering;
    if (n < 0) n = std::min(16, max_dpb_mbs(sps_->level_idc) / (mbw_ * mbh_));
    return std::max({n, sps_->max_num_ref_frames, 1});
}

// ---------------------------------------------------------------------------
// Picture order count (ITU-T H.264 8.2.1), frames only.

// A valid stream keeps every order count within 32 bits; a damaged one can
// send offsets near the limits, so the sums are formed in 64 bits and
// clamped rather than left to overflow.
namespace {
int clamp32(int64_t v) { return static_cast<int>(std::clamp<int64_t>(v, INT32_MIN, INT32_MAX)); }
}  // namespace

void Decoder264::compute_poc(const SliceHeader& sh, Pic* p) {
    const Sps& s = *sps_;
    const int max_frame_num = 1 << s.log2_max_frame_num;
    if (s.poc_type == 0) {
        if (sh.idr) prev_poc_msb_ = prev_poc_lsb_ = 0;
        const int max_lsb = 1 << s.log2_max_poc_lsb;
        const int lsb = sh.poc_lsb;
        int64_t msb = prev_poc_msb_;
        if (lsb < prev_poc_lsb_ && prev_poc_lsb_ - lsb >= max_lsb / 2)
            msb += max_lsb;
        else if (lsb > prev_poc_lsb_ && lsb - prev_poc_lsb_ > max_lsb / 2)
            msb -= max_lsb;
        poc_msb_ = clamp32(msb);
        top_poc_ = clamp32(msb + lsb);
        bottom_poc_ = clamp32(int64_t{top_poc_} + sh.delta_poc_bottom);
    } else {
        if (sh.idr)
            frame_num_offset_ = 0;
        else if (prev_frame_num_ > sh.frame_num)
            frame_num_offset_ = clamp32(int64_t{prev_frame_num_offset_} + max_frame_num);
        else
            frame_num_offset_ = prev_frame_num_offset_;
        if (s.poc_type == 1) {
            int64_t abs_frame_num =
                s.num_ref_frames_in_poc_cycle != 0 ? int64_t{frame_num_offset_} + sh.frame_num : 0;
            if (sh.nal_ref_idc == 0 && abs_frame_num > 0) --abs_frame_num;
            int64_t expected = 0;
            if (abs_frame_num > 0) {
                const int64_t cycle = (abs_frame_num - 1) / s.num_ref_frames_in_poc_cycle;
                const int in_cycle = static_cast<int>((abs_frame_num - 1) % s.num_ref_frames_in_poc_cycle);
                expected = cycle * s.expected_delta_per_poc_cycle;
                for (int i = 0; i <= in_cycle; ++i) expected += s.offset_for_ref_frame[i];
            }
            if (sh.nal_ref_idc == 0) expected += s.offset_for_non_ref_pic;
            top_poc_ = clamp32(expected + sh.delta_poc[0]);
            bottom_poc_ = clamp32(int64_t{top_poc_} + s.offset_for_top_to_bottom_field + sh.delta_poc[1]);
        } else {
            int64_t t = 0;
            if (!sh.idr) t = 2 * (int64_t{frame_num_offset_} + sh.frame_num) - (sh.nal_ref_idc == 0 ? 1 : 0);
            top_poc_ = bottom_poc_ = clamp32(t);
        }
    }
    p->poc = std::min(top_poc_, bottom_poc_);
}

// ---------------------------------------------------------------------------
// Gaps in frame_num (8.2.5.2): "non-existing" short-term frames fill them, so
// that the sliding window and the list numbering stay as the encoder had them.
// Their samples are those of the latest reference, which conceals a loss.

void Decoder264::fill_frame_num_gap(const SliceHeader& sh) {
    const int max_frame_num = 1 << sps_->log2_max_frame_num;
    if (!sps_->gaps_in_frame_num_allowed) stats_->errors++;
    int missing = (sh.frame_num - prev_ref_frame_num_ - 1 + max_frame_num) % max_frame_num;
    int fn = (prev_ref_frame_num_ + 1) % max_frame_num;
    // Only the last max_num_ref_frames of them can stay in the buffer.
    const int keep = std::max(1, sps_->max_num_ref_frames);
    if (missing > keep) {
        fn = (fn + missing - keep) % max_frame_num;
        missing = keep;
    }
    Pic* latest = nullptr;
    for (Pic* q : dpb_)
        if (q->is_ref() && (!latest || q->id > latest->id)) latest = q;
    for (int i = 0; i < missing; ++i, fn = (fn + 1) % max_frame_num) {
        Pic* p = new_pic();
        p->id = next_id_++;
        p->frame_num = fn;
        p->non_existing = true;
        p->output_needed = false;
        p->poc = latest ? latest->poc : 0;
        p->mmco5 = false;
        for (MbInfo& m : p->mb) m.kind = kMbI16x16;  // no motion to take from it
        for (int l = 0; l < 2; ++l) {
            std::fill(p->ref[l].begin(), p->ref[l].end(), int8_t{-1});
            std::fill(p->ref_id[l].begin(), p->ref_id[l].end(), -1);
            std::fill(p->mv[l].begin(), p->mv[l].end(), Mv{0, 0});
        }
        const Frame& src = latest ? latest->frame : missing_ref()->frame;
        for (int c = 0; c < 3; ++c)
            for (int y = -src.pad(c); y < src.plane_height(c) + src.pad(c); ++y)
                std::memcpy(p->frame.data(c) + static_cast<ptrdiff_t>(y) * p->frame.stride(c) - src.pad(c),
                            src.data(c) + static_cast<ptrdiff_t>(y) * src.stride(c) - src.pad(c),
                            static_cast<size_t>(src.plane_width(c) + 2 * src.pad(c)));
        // Sliding window, then the frame joins the short-term references.
        int num_short = 0, num_long = 0;
        for (Pic* q : dpb_) {
            num_short += q->mark == kShortTerm;
            num_long += q->mark == kLongTerm;
        }
        if (num_short > 0 && num_short + num_long >= std::max(sps_->max_num_ref_frames, 1)) {
            Pic* oldest = nullptr;
            for (Pic* q : dpb_) {
                if (q->mark != kShortTerm) continue;
                const int wrap = q->frame_num > fn ? q->frame_num - max_frame_num : q->frame_num;
                if (!oldest ||
                    wrap < (oldest->frame_num > fn ? oldest->frame_num - max_frame_num : oldest->frame_num))
                    oldest = q;
            }
            if (oldest) oldest->mark = kUnused;
        }
        p->mark = kShortTerm;
        store_and_output(p, false, false);
        prev_ref_frame_num_ = fn;
        prev_frame_num_ = fn;
        latest = p;
    }
}

// ---------------------------------------------------------------------------
// Reference picture lists (8.2.4), frames only.

void Decoder264::build_ref_lists(const SliceHeader& sh) {
    num_ref_[0] = num_ref_[1] = 0;
    if (sh.type == kSliceI) return;
    const int max_frame_num = 1 << sps_->log2_max_frame_num;
    const int cur_num = sh.frame_num;
    for (Pic* q : dpb_)
        if (q->mark == kShortTerm)
            q->frame_num_wrap = q->frame_num > cur_num ? q->frame_num - max_frame_num : q->frame_num;

    std::vector<Pic*> st, lt;
    for (Pic* q : dpb_) {
        if (q == cur_) continue;
        if (q->mark == kShortTerm) st.push_back(q);
        if (q->mark == kLongTerm) lt.push_back(q);
    }
    std::sort(lt.begin(), lt.end(), [](Pic* a, Pic* b) { return a->long_term_idx < b->long_term_idx; });

    Pic* init[2][48] = {};
    int n_init[2] = {0, 0};
    if (sh.type == kSliceP) {
        std::sort(st.begin(), st.end(), [](Pic* a, Pic* b) { return a->frame_num_wrap > b->frame_num_wrap; });
        for (Pic* q : st) init[0][n_init[0]++] = q;
        for (Pic* q : lt) init[0][n_init[0]++] = q;
    } else {
        std::vector<Pic*> before, after;
        for (Pic* q : st) (q->poc < cur_->poc ? before : after).push_back(q);
        std::sort(before.begin(), before.end(), [](Pic* a, Pic* b) { return a->poc > b->poc; });
        std::sort(after.begin(), after.end(), [](Pic* a, Pic* b) { return a->poc < b->poc; });
        for (Pic* q : before) init[0][n_init[0]++] = q;
        for (Pic* q : after) init[0][n_init[0]++] = q;
        for (Pic* q : lt) init[0][n_init[0]++] = q;
        for (Pic* q : after) init[1][n_init[1]++] = q;
        for (Pic* q : before) init[1][n_init[1]++] = q;
        for (Pic* q : lt) init[1][n_init[1]++] = q;
        if (n_init[1] > 1 && n_init[0] == n_init[1] && std::equal(init[0], init[0] + n_init[0], init[1]))
            std::swap(init[1][0], init[1][1]);
    }

    const int lists = sh.type == kSliceB ? 2 : 1;
    for (int l = 0; l < lists; ++l) {
        const int n = sh.num_ref_idx[l];
        Pic* lst[33] = {};
        for (int i = 0; i < n && i < n_init[l]; ++i) lst[i] = init[l][i];
        // Modification (8.2.4.3): each operation puts one picture at the
        // next index and drops its later duplicate.
        int pred = cur_num, idx = 0;
        for (int m = 0; m < sh.num_mods[l] && idx < n; ++m) {
            const RefModification& op = sh.mods[l][m];
            Pic* pic = nullptr;
            bool long_term = false;
            int pic_num = 0;
            if (op.idc < 2) {
                const int64_t diff = int64_t{op.value} + 1;
                if (diff > max_frame_num) {
                    stats_->errors++;
                    break;
                }
                int no_wrap = op.idc == 0 ? pred - static_cast<int>(diff) : pred + static_cast<int>(diff);
                if (no_wrap < 0) no_wrap += max_frame_num;
                if (no_wrap >= max_frame_num) no_wrap -= max_frame_num;
                pred = no_wrap;
                pic_num = no_wrap > cur_num ? no_wrap - max_frame_num : no_wrap;
                for (Pic* q : st)
                    if (q->frame_num_wrap == pic_num) pic = q;
            } else {
                long_term = true;
                pic_num = static_cast<int>(std::min<uint32_t>(op.value, 1u << 30));
                for (Pic* q : lt)
                    if (q->long_term_idx == pic_num) pic = q;
            }
            if (!pic) stats_->errors++;
            for (int c = n; c > idx; --c) lst[c] = lst[c - 1];
            lst[idx++] = pic;
            int k = idx;
            for (int c = idx; c <= n; ++c) {
                Pic* q = lst[c];
                const bool same = q && (long_term ? (q->mark == kLongTerm && q->long_term_idx == pic_num)
                                                  : (q->mark == kShortTerm && q->frame_num_wrap == pic_num));
                if (!same) lst[k++] = q;
            }
        }
        for (int i = 0; i < n; ++i) ref_list_[l][i] = lst[i];
        num_ref_[l] = n;
    }
}

// ---------------------------------------------------------------------------
// Reference marking (8.2.5), after the picture is decoded.

void Decoder264::mark_references(const SliceHeader& sh) {
    Pic* p = cur_;
    p->mmco5 = false;
    if (sh.nal_ref_idc == 0) {
        p->mark = kUnused;
        return;
    }
    const int max_frame_num = 1 << sps_->log2_max_frame_num;
    if (sh.idr) {
        for (Pic* q : dpb_) q->mark = kUnused;
        if (sh.long_term_reference) {
            p->mark = kLongTerm;
            p->long_term_idx = 0;
            max_long_term_idx_ = 0;
        } else {
            p->mark = kShortTerm;
            max_long_term_idx_ = -1;
        }
        return;
    }
    for (Pic* q : dpb_)
        if (q->mark == kShortTerm)
            q->frame_num_wrap = q->frame_num > p->frame_num ? q->frame_num - max_frame_num : q->frame_num;
    bool current_long = false;
    if (sh.adaptive_marking) {
        for (int i = 0; i < sh.num_mmco; ++i) {
            const Mmco& m = sh.mmco[i];
            const int pic_num_x = p->frame_num - static_cast<int>(std::min<uint32_t>(m.a, 1u << 20)) - 1;
            switch (m.op) {
                case 1:
                    for (Pic* q : dpb_)
                        if (q->mark == kShortTerm && q->frame_num_wrap == pic_num_x) q->mark = kUnused;
                    break;
                case 2:
                    for (Pic* q : dpb_)
                        if (q->mark == kLongTerm && q->long_term_idx == static_cast<int>(m.a))
                            q->mark = kUnused;
                    break;
                case 3: {
                    Pic* target = nullptr;
                    for (Pic* q : dpb_)
                        if (q->mark == kShortTerm && q->frame_num_wrap == pic_num_x) target = q;
                    for (Pic* q : dpb_)
                        if (q->mark == kLongTerm && q->long_term_idx == static_cast<int>(m.b) && q != target)
                            q->mark = kUnused;
                    if (target) {
                        target->mark = kLongTerm;
                        target->long_term_idx = static_cast<int>(m.b);
                    } else {
                        stats_->errors++;
                    }
                    break;
                }
                case 4:
                    max_long_term_idx_ = static_cast<int>(std::min<uint32_t>(m.a, 17)) - 1;
                    for (Pic* q : dpb_)
                        if (q->mark == kLongTerm && q->long_term_idx > max_long_term_idx_) q->mark = kUnused;
                    break;
                case 5:
                    for (Pic* q : dpb_) q->mark = kUnused;
                    max_long_term_idx_ = -1;
                    p->mmco5 = true;
                    break;
                case 6:
                    for (Pic* q : dpb_)
                        if (q->mark == kLongTerm && q->long_term_idx == static_cast<int>(m.b) && q != p)
                            q->mark = kUnused;
                    p->mark = kLongTerm;
                    p->long_term_idx = static_cast<int>(m.b);
                    current_long = true;
                    break;
                default:
                    break;
            }
        }
    } else {
        int num_short = 0, num_long = 0;
        for (Pic* q : dpb_) {
            num_short += q->mark == kShortTerm;
            num_long += q->mark == kLongTerm;
        }
        if (num_short > 0 && num_short + num_long >= std::max(sps_->max_num_ref_frames, 1)) {
            Pic* oldest = nullptr;
            for (Pic* q : dpb_)
                if (q->mark == kShortTerm && (!oldest || q->frame_num_wrap < oldest->frame_num_wrap))
                    oldest = q;
            oldest->mark = kUnused;
        }
    }
    if (!current_long) p->mark = kShortTerm;
    // A damaged stream may leave more references than the sequence allows:
    // drop the oldest short-term ones.
    for (;;) {
        int n = 0;
        Pic* oldest = nullptr;
        for (Pic* q : dpb_)
            if (q->is_ref() && q != p) {
                ++n;
                if (q->mark == kShortTerm && (!oldest || q->frame_num_wrap < oldest->frame_num_wrap))
                    oldest = q;
            }
        if (n < std::max(sps_->max_num_ref_frames, 1) || !oldest) break;
        oldest->mark = kUnused;
        stats_->errors++;
    }
    if (p->mmco5) {
        // The picture now counts as frame_num 0 at order count 0 (min of its
        // two field counts subtracted).
        const int t = std::min(top_poc_, bottom_poc_);
        top_poc_ -= t;
        bottom_poc_ -= t;
        p->poc = 0;
        p->frame_num = 0;
    }
}

// ---------------------------------------------------------------------------
// The decoded picture buffer and output in order count order (C.4).

Pic* Decoder264::new_pic() {
    for (auto& q : pool_)
        if (!q->in_dpb && q.get() != cur_ && q->frame.width() == 16 * mbw_ &&
            q->frame.height() == 16 * mbh_) {
            q->mark = kUnused;
            q->output_needed = false;
            q->non_existing = false;
            q->mmco5 = false;
            for (MbInfo& m : q->mb) m.slice = -1;
            return q.get();
        }
    // Drop buffers of another size, then make a new one.
    pool_.erase(std::remove_if(pool_.begin(), pool_.end(),
                               [&](const std::unique_ptr<Pic>& q) {
                                   return !q->in_dpb && q.get() != cur_ &&
                                          (q->frame.width() != 16 * mbw_ || q->frame.height() != 16 * mbh_);
                               }),
                pool_.end());
    auto p = std::make_unique<Pic>();
    p->frame = Frame(16 * mbw_, 16 * mbh_, Chroma::c420, 32);
    const size_t n = static_cast<size_t>(mbw_) * static_cast<size_t>(mbh_);
    p->mb.assign(n, MbInfo{});
    for (MbInfo& m : p->mb) m.slice = -1;
    for (int l = 0; l < 2; ++l) {
        p->mv[l].assign(16 * n, Mv{0, 0});
        p->ref[l].assign(4 * n, -1);
        p->ref_id[l].assign(4 * n, -1);
    }
    pool_.push_back(std::move(p));
    return pool_.back().get();
}

Pic* Decoder264::missing_ref() {
    if (!missing_ || missing_->frame.width() != 16 * mbw_ || missing_->frame.height() != 16 * mbh_) {
        missing_ = std::make_unique<Pic>();
        Pic& p = *missing_;
        p.frame = Frame(16 * mbw_, 16 * mbh_, Chroma::c420, 32);
        for (int c = 0; c < 3; ++c)
            for (int y = -p.frame.pad(c); y < p.frame.plane_height(c) + p.frame.pad(c); ++y)
                std::memset(p.frame.data(c) + static_cast<ptrdiff_t>(y) * p.frame.stride(c) - p.frame.pad(c),
                            128, static_cast<size_t>(p.frame.plane_width(c) + 2 * p.frame.pad(c)));
        const size_t n = static_cast<size_t>(mbw_) * static_cast<size_t>(mbh_);
        p.mb.assign(n, MbInfo{});
        for (MbInfo& m : p.mb) m.kind = kMbI16x16;
        for (int l = 0; l < 2; ++l) {
            p.mv[l].assign(16 * n, Mv{0, 0});
            p.ref[l].assign(4 * n, -1);
            p.ref_id[l].assign(4 * n, -1);
        }
        p.id = -2;
    }
    return missing_.get();
}

void Decoder264::output(Pic* p) {
    p->output_needed = false;
    if (stop_) return;
    Picture pic;
    const Sps& s = *sps_;
    pic.width = p->frame.width() - s.crop_left - s.crop_right;
    pic.height = p->frame.height() - s.crop_top - s.crop_bottom;
    pic.chroma = Chroma::c420;
    for (int c = 0; c < 3; ++c) {
        const int sh = c ? 1 : 0;
        pic.stride[c] = p->frame.stride(c);
        pic.plane[c] =
            p->frame.data(c) + static_cast<ptrdiff_t>(s.crop_top >> sh) * pic.stride[c] + (s.crop_left >> sh);
    }
    stats_->frames++;
    if (!sink_(pic, user_)) stop_ = true;
}

void Decoder264::release_unused() {
    dpb_.erase(std::remove_if(dpb_.begin(), dpb_.end(),
                              [](Pic* q) {
                                  if (q->is_ref() || q->output_needed) return false;
                                  q->in_dpb = false;
                                  return true;
                              }),
               dpb_.end());
}

// Outputs the waiting picture with the smallest order count.
void Decoder264::bump() {
    Pic* first = nullptr;
    for (Pic* q : dpb_)
        if (q->output_needed && (!first || q->poc < first->poc)) first = q;
    if (first) output(first);
    release_unused();
}

void Decoder264::flush_output() {
    for (;;) {
        bool any = false;
        for (Pic* q : dpb_) any |= q->output_needed;
        if (!any) break;
        bump();
    }
}

void Decoder264::store_and_output(Pic* p, bool flush_first, bool no_output) {
    if (flush_first) {
        if (no_output)
            for (Pic* q : dpb_) q->output_needed = false;
        flush_output();
        for (Pic* q : dpb_)
            if (q != p) q->mark = kUnused;
    }
    release_unused();
    const size_t cap = static_cast<size_t>(dpb_capacity());
    while (dpb_.size() >= cap) {
        Pic* first = nullptr;
        for (Pic* q : dpb_)
            if (q->output_needed && (!first || q->poc < first->poc)) first = q;
        if (!p->is_ref() && p->output_needed && (!first || p->poc < first->poc)) {
            output(p);  // a non-reference picture that comes first goes straight out
            return;
        }
        if (!first) break;  // only references left: a damaged stream; let the buffer grow
        bump();
    }
    if (!p->is_ref() && !p->output_needed) return;
    p->in_dpb = true;
    dpb_.push_back(p);
}

}  // namespace kplvc::codecs::h264
