// H.264 syntax that libx264 never writes, from a small stream writer of the
// test's own: I_PCM macroblocks, picture order count types 1 and 0 with a
// bottom-field delta, long-term references and every memory management
// operation, reference list modification (short- and long-term), explicit
// weights for P and for bi-prediction, every P and B sub-macroblock type,
// temporal direct from long-term references, frame_num gaps, slices with
// deblocking modes 0, 1 and 2 and their offsets. The pictures are random
// (PCM samples, motion, partitions), within what the standard allows; each
// stream is decoded here and by ffmpeg and must match sample for sample.
// Interlaced streams must be refused with the tool named.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "codecs/codec_test.h"
#include "h264/cavlc.h"

namespace kplvc::codecs::test {
namespace {

class BitWriter {
public:
    void u(int n, uint32_t v) {
        for (int i = n - 1; i >= 0; --i) bit((v >> i) & 1);
    }
    void ue(uint32_t v) {
        const uint64_t x = uint64_t{v} + 1;
        int len = 0;
        while ((x >> len) > 1) ++len;
        u(len, 0);
        for (int i = len; i >= 0; --i) bit(static_cast<int>((x >> i) & 1));
    }
    void se(int v) { ue(v > 0 ? 2 * static_cast<uint32_t>(v) - 1 : 2 * static_cast<uint32_t>(-v)); }
    void te(int range, uint32_t v) {
        if (range == 1)
            bit(v == 0 ? 1 : 0);
        else
            ue(v);
    }
    void code(const char* bits) {
        for (const char* c = bits; *c; ++c) bit(*c - '0');
    }
    void align_zero() {
        while (n_ % 8) bit(0);
    }
    std::vector<uint8_t> finish() {  // rbsp_trailing_bits
        bit(1);
        align_zero();
        return bytes_;
    }

private:
    void bit(int b) {
        if (n_ % 8 == 0) bytes_.push_back(0);
        if (b) bytes_.back() |= static_cast<uint8_t>(0x80 >> (n_ % 8));
        ++n_;
    }
    std::vector<uint8_t> bytes_;
    size_t n_ = 0;
};

void put_nal(std::vector<uint8_t>& out, int ref_idc, int type, const std::vector<uint8_t>& rbsp) {
    const uint8_t head[] = {0, 0, 0, 1, static_cast<uint8_t>(ref_idc << 5 | type)};
    out.insert(out.end(), head, head + 5);
    int zeros = 0;
    for (uint8_t b : rbsp) {
        if (zeros >= 2 && b <= 3) {
            out.push_back(3);
            zeros = 0;
        }
        out.push_back(b);
        zeros = b == 0 ? zeros + 1 : 0;
    }
}

// The coeff_token of an empty block for a predicted count nc, from the
// decoder's code lists (the stream writer needs only this one code).
const char* empty_block_code(int nc) {
    int n = 0;
    const h264::CodeList* lists = h264::code_lists(&n);
    const int list = nc < 2 ? 0 : nc < 4 ? 1 : nc < 8 ? 2 : 3;
    for (int i = 0; i < lists[list].count; ++i)
        if (lists[list].codes[i].value == 0) return lists[list].codes[i].bits;
    return "";
}

struct Sequence {
    int mbw = 6, mbh = 4;
    int poc_type = 0;
    bool bottom_poc = false;  // bottom_field_pic_order_in_frame_present_flag
    bool weighted_p = false;
    int bipred_idc = 0;
    bool direct_8x8_inference = true;
    bool gaps_allowed = false;
    int max_refs = 4;
    bool interlaced = false, mbaff = false;  // only for the refusal test
};

struct Op {
    int a, b, c;  // modification: idc, value; marking: op, value, value
};

struct PicturePlan {
    explicit PicturePlan(char t) : type(t) {}
    char type;  // 'I', 'P', 'B'
    bool idr = false;
    int ref_idc = 1;
    int frame_num = 0;
    int poc_lsb = 0, delta_bottom = 0, delta0 = 0;
    int nref[2] = {1, 1};
    std::vector<Op> mods[2];
    std::vector<Op> mmco;  // adaptive marking when not empty (op 0 ends it)
    bool long_term_idr = false;
    bool spatial = true;
    int slices = 1;
};

class StreamWriter {
public:
    StreamWriter(const Sequence& s, uint32_t seed) : s_(s), rng_(seed) {}

    std::vector<uint8_t> out;

    void headers() {
        BitWriter sps;
        sps.u(8, 77);  // Main
        sps.u(8, 0);
        sps.u(8, 21);
        sps.ue(0);
        sps.ue(4 - 4);  // log2_max_frame_num 4
        sps.ue(static_cast<uint32_t>(s_.poc_type));
        if (s_.poc_type == 0) sps.ue(6 - 4);
        if (s_.poc_type == 1) {
            sps.u(1, 0);  // delta_pic_order_always_zero_flag
            sps.se(-3);   // offset_for_non_ref_pic
            sps.se(0);    // offset_for_top_to_bottom_field
            sps.ue(2);    // two reference frames per cycle
            sps.se(4);
            sps.se(6);
        }
        sps.ue(static_cast<uint32_t>(s_.max_refs));
        sps.u(1, s_.gaps_allowed);
        sps.ue(static_cast<uint32_t>(s_.mbw - 1));
        sps.ue(static_cast<uint32_t>((s_.interlaced ? s_.mbh / 2 : s_.mbh) - 1));
        sps.u(1, !s_.interlaced);
        if (s_.interlaced) sps.u(1, s_.mbaff);
        sps.u(1, s_.direct_8x8_inference);
        sps.u(1, 0);  // no cropping
        sps.u(1, 0);  // no VUI
        put_nal(out, 3, 7, sps.finish());

        BitWriter pps;
        pps.ue(0);
        pps.ue(0);
        pps.u(1, 0);  // CAVLC
        pps.u(1, s_.bottom_poc);
        pps.ue(0);
        pps.ue(0);
        pps.ue(0);
        pps.u(1, s_.weighted_p);
        pps.u(2, static_cast<uint32_t>(s_.bipred_idc));
        pps.se(0);
        pps.se(0);
        pps.se(2);    // chroma_qp_index_offset
        pps.u(1, 1);  // deblocking_filter_control_present_flag
        pps.u(1, 0);
        pps.u(1, 0);
        put_nal(out, 3, 8, pps.finish());
    }

    void picture(const PicturePlan& p) {
        if (p.idr) ++idr_count_;
        const int total = s_.mbw * s_.mbh;
        slice_of_.assign(static_cast<size_t>(total), -1);
        pcm_.assign(static_cast<size_t>(total), false);
        // Slice boundaries at random macroblocks.
        std::vector<int> starts = {0};
        for (int i = 1; i < p.slices; ++i) starts.push_back(i * total / p.slices + rng_() % 3);
        starts.push_back(total);
        for (int i = 0; i < p.slices; ++i)
            slice(p, i, starts[static_cast<size_t>(i)], starts[static_cast<size_t>(i) + 1]);
    }

    // The start of an interlaced slice header, for the refusal test.
    void interlaced_slice(bool field) {
        BitWriter b;
        b.ue(0);
        b.ue(7);
        b.ue(0);
        b.u(4, 0);
        b.u(1, field);  // field_pic_flag
        if (field) b.u(1, 0);
        b.ue(0);
        b.u(6, 0);
        put_nal(out, 3, 5, b.finish());
    }

private:
    int rand(int lo, int hi) { return lo + static_cast<int>(rng_() % static_cast<uint32_t>(hi - lo + 1)); }

    void slice(const PicturePlan& p, int index, int first, int end) {
        BitWriter b;
        const int type = p.type == 'P' ? 0 : p.type == 'B' ? 1 : 2;
        b.ue(static_cast<uint32_t>(first));
        b.ue(static_cast<uint32_t>(type + 5));
        b.ue(0);
        b.u(4, static_cast<uint32_t>(p.frame_num));
        if (p.idr) b.ue(static_cast<uint32_t>(idr_count_ & 1));
        if (s_.poc_type == 0) {
            b.u(6, static_cast<uint32_t>(p.poc_lsb));
            if (s_.bottom_poc) b.se(p.delta_bottom);
        } else if (s_.poc_type == 1) {
            b.se(p.delta0);
            if (s_.bottom_poc) b.se(0);
        }
        if (type == 1) b.u(1, p.spatial);
        if (type != 2) {
            b.u(1, 1);  // override the list sizes
            b.ue(static_cast<uint32_t>(p.nref[0] - 1));
            if (type == 1) b.ue(static_cast<uint32_t>(p.nref[1] - 1));
            for (int l = 0; l < (type == 1 ? 2 : 1); ++l) {
                b.u(1, !p.mods[l].empty());
                if (p.mods[l].empty()) continue;
                for (const Op& m : p.mods[l]) {
                    b.ue(static_cast<uint32_t>(m.a));
                    b.ue(static_cast<uint32_t>(m.b));
                }
                b.ue(3);
            }
        }
        if ((s_.weighted_p && type == 0) || (s_.bipred_idc == 1 && type == 1)) weights(b, p, type);
        if (p.ref_idc) {
            if (p.idr) {
                b.u(1, 0);
                b.u(1, p.long_term_idr);
            } else {
                b.u(1, !p.mmco.empty());
                for (const Op& m : p.mmco) {
                    b.ue(static_cast<uint32_t>(m.a));
                    if (m.a == 1 || m.a == 2 || m.a == 3 || m.a == 4) b.ue(static_cast<uint32_t>(m.b));
                    if (m.a == 3 || m.a == 6) b.ue(static_cast<uint32_t>(m.a == 3 ? m.c : m.b));
                }
                if (!p.mmco.empty()) b.ue(0);
            }
        }
        qp_ = rand(22, 44);
        b.se(qp_ - 26);
        const int idc = index == 0 ? 0 : rand(0, 2);
        b.ue(static_cast<uint32_t>(idc));
        if (idc != 1) {
            b.se(rand(-6, 6));
            b.se(rand(-6, 6));
        }
        int skips = 0;
        for (int a = first; a < end; ++a) {
            slice_of_[static_cast<size_t>(a)] = index;
            if (type != 2 && rand(0, 99) < 15) {
                ++skips;
                continue;
            }
            if (type != 2) {
                b.ue(static_cast<uint32_t>(skips));
                skips = 0;
            }
            macroblock(b, p, type, a, index);
        }
        if (skips) b.ue(static_cast<uint32_t>(skips));
        put_nal(out, p.ref_idc, p.idr ? 5 : 1, b.finish());
    }

    void weights(BitWriter& b, const PicturePlan& p, int type) {
        // Bi-predictive weights of a pair must sum to 128 at most (127 with a
        // denominator of 128): up to 2^6 a pair of default weights still does.
        const int ld = rand(0, 6), cd = rand(0, 6);
        b.ue(static_cast<uint32_t>(ld));
        b.ue(static_cast<uint32_t>(cd));
        for (int l = 0; l < (type == 1 ? 2 : 1); ++l)
            for (int i = 0; i < p.nref[l]; ++i) {
                const bool lf = rand(0, 3) != 0;
                b.u(1, lf);
                if (lf) {
                    b.se(rand(-20, 60));
                    b.se(rand(-20, 20));
                }
                const bool cf = rand(0, 1) != 0;
                b.u(1, cf);
                if (cf)
                    for (int c = 0; c < 2; ++c) {
                        b.se(rand(-20, 60));
                        b.se(rand(-20, 20));
                    }
            }
    }

    // TotalCoeff of the upper-left 4x4 block's neighbours, for the predicted
    // count of an Intra16x16 DC block: PCM blocks count 16, all others here 0.
    int dc_nc(int a, int slice) const {
        const int x = a % s_.mbw, y = a / s_.mbw;
        const bool left = x > 0 && slice_of_[static_cast<size_t>(a - 1)] == slice;
        const bool up = y > 0 && slice_of_[static_cast<size_t>(a - s_.mbw)] == slice;
        const int na = left && pcm_[static_cast<size_t>(a - 1)] ? 16 : 0;
        const int nb = up && pcm_[static_cast<size_t>(a - s_.mbw)] ? 16 : 0;
        if (left && up) return (na + nb + 1) >> 1;
        return left ? na : up ? nb : 0;
    }

    void intra(BitWriter& b, int type_base, int a, int slice) {
        if (rand(0, 1)) {  // I_PCM: a smooth ramp with noise, different per picture
            b.ue(static_cast<uint32_t>(type_base + 25));
            b.align_zero();
            const int x0 = 16 * (a % s_.mbw), y0 = 16 * (a / s_.mbw), k = rand(1, 5);
            for (int y = 0; y < 16; ++y)
                for (int x = 0; x < 16; ++x)
                    b.u(8, static_cast<uint32_t>((k * (x0 + x) + 2 * (y0 + y) + rand(0, 40)) & 255));
            for (int i = 0; i < 128; ++i) b.u(8, static_cast<uint32_t>(rand(60, 200)));
            pcm_[static_cast<size_t>(a)] = true;
            return;
        }
        // Intra16x16, DC prediction (valid whatever is missing), no residual
        // but the DC block, which is always coded.
        b.ue(static_cast<uint32_t>(type_base + 1 + 2));
        b.ue(0);  // chroma DC
        b.se(rand(-4, 4));
        b.code(empty_block_code(dc_nc(a, slice)));
    }

    void mvd(BitWriter& b) {
        b.se(rand(-24, 24));
        b.se(rand(-16, 16));
    }

    void macroblock(BitWriter& b, const PicturePlan& p, int type, int a, int slice) {
        if (type == 2) {
            intra(b, 0, a, slice);
            return;
        }
        const int base = type == 0 ? 5 : 23;
        if (rand(0, 99) < 12) {
            intra(b, base, a, slice);
            return;
        }
        const int n0 = p.nref[0], n1 = p.nref[1];
        if (type == 0) {
            const int t = rand(0, 3);
            b.ue(static_cast<uint32_t>(t));
            if (t == 3) {
                int sub[4];
                for (int& s : sub) b.ue(static_cast<uint32_t>(s = rand(0, 3)));
                if (n0 > 1)
                    for (int q = 0; q < 4; ++q) b.te(n0 - 1, static_cast<uint32_t>(rand(0, n0 - 1)));
                for (int q = 0; q < 4; ++q)
                    for (int k = 0; k < (sub[q] == 0 ? 1 : sub[q] == 3 ? 4 : 2); ++k) mvd(b);
            } else {
                const int parts = t == 0 ? 1 : 2;
                if (n0 > 1)
                    for (int i = 0; i < parts; ++i) b.te(n0 - 1, static_cast<uint32_t>(rand(0, n0 - 1)));
                for (int i = 0; i < parts; ++i) mvd(b);
            }
            b.ue(0);  // coded_block_pattern 0
            return;
        }
        // B: prediction of each partition, 1 list 0, 2 list 1, 3 both.
        static const int kPred[22][2] = {{0, 0}, {1, 0}, {2, 0}, {3, 0}, {1, 1}, {1, 1}, {2, 2}, {2, 2},
                                         {1, 2}, {1, 2}, {2, 1}, {2, 1}, {1, 3}, {1, 3}, {2, 3}, {2, 3},
                                         {3, 1}, {3, 1}, {3, 2}, {3, 2}, {3, 3}, {3, 3}};
        const int t = rand(0, 22);
        b.ue(static_cast<uint32_t>(t));
        if (t == 22) {
            static const int kSubPred[13] = {0, 1, 2, 3, 1, 1, 2, 2, 3, 3, 1, 2, 3};
            static const int kSubParts[13] = {0, 1, 1, 1, 2, 2, 2, 2, 2, 2, 4, 4, 4};
            int sub[4];
            for (int& s : sub) b.ue(static_cast<uint32_t>(s = rand(0, 12)));
            for (int l = 0; l < 2; ++l) {
                const int n = l ? n1 : n0;
                if (n > 1)
                    for (int q = 0; q < 4; ++q)
                        if (kSubPred[sub[q]] & (1 << l)) b.te(n - 1, static_cast<uint32_t>(rand(0, n - 1)));
            }
            for (int l = 0; l < 2; ++l)
                for (int q = 0; q < 4; ++q)
                    if (kSubPred[sub[q]] & (1 << l))
                        for (int k = 0; k < kSubParts[sub[q]]; ++k) mvd(b);
        } else if (t > 0) {
            const int parts = t <= 3 ? 1 : 2;
            for (int l = 0; l < 2; ++l) {
                const int n = l ? n1 : n0;
                if (n > 1)
                    for (int i = 0; i < parts; ++i)
                        if (kPred[t][i] & (1 << l)) b.te(n - 1, static_cast<uint32_t>(rand(0, n - 1)));
            }
            for (int l = 0; l < 2; ++l)
                for (int i = 0; i < parts; ++i)
                    if (kPred[t][i] & (1 << l)) mvd(b);
        }
        b.ue(0);
    }

    Sequence s_;
    std::mt19937 rng_;
    std::vector<int> slice_of_;
    std::vector<bool> pcm_;
    int qp_ = 26;
    int idr_count_ = 0;
};

// Decoding order of the two streams. B pictures are not references.
std::vector<PicturePlan> poc_type1_plan() {
    // Order counts follow from frame_num: references advance by 4 and 6 in
    // turn, non-reference pictures sit 3 before their reference's count.
    std::vector<PicturePlan> v;
    PicturePlan i{'I'};
    i.idr = true;
    i.slices = 2;
    v.push_back(i);
    int fn = 0;
    for (int k = 0; k < 6; ++k) {
        PicturePlan p{'P'};
        p.frame_num = ++fn;
        p.nref[0] = std::min(fn, 3);
        p.slices = 1 + k % 3;
        v.push_back(p);
        PicturePlan b{'B'};
        b.ref_idc = 0;
        b.frame_num = fn + 1;
        b.nref[0] = std::min(fn, 2);
        b.nref[1] = 1;
        b.spatial = k % 2 == 0;
        b.slices = 1 + k % 2;
        v.push_back(b);
    }
    return v;
}

std::vector<PicturePlan> long_term_plan() {
    std::vector<PicturePlan> v;
    auto P = [&](int fn, int lsb, int nref) {
        PicturePlan p{'P'};
        p.frame_num = fn;
        p.poc_lsb = lsb;
        p.nref[0] = nref;
        return p;
    };
    PicturePlan i{'I'};
    i.idr = true;
    i.long_term_idr = true;  // long-term index 0
    v.push_back(i);
    PicturePlan p = P(1, 4, 1);
    p.mmco = {{4, 3, 0}, {6, 1, 0}};  // long-term indices up to 2; this picture long-term 1
    v.push_back(p);
    p = P(2, 8, 2);
    p.mods[0] = {{2, 1, 0}};  // long-term picture 1 first
    p.delta_bottom = -1;
    v.push_back(p);
    p = P(3, 12, 3);
    p.mmco = {{3, 0, 2}};  // frame 2 (the previous one) becomes long-term 2
    v.push_back(p);
    p = P(4, 16, 4);
    p.mods[0] = {{2, 2, 0}, {0, 0, 0}, {2, 0, 0}};
    p.mmco = {{2, 0, 0}, {1, 0, 0}};  // long-term 0 and frame 3 go
    v.push_back(p);
    p = P(5, 24, 3);
    p.mods[0] = {{1, 14, 0}};  // 5 + 15 wraps (modulo 16) to frame 4
    v.push_back(p);
    PicturePlan b{'B'};  // temporal direct between frame 5 and long-term ones
    b.ref_idc = 0;
    b.frame_num = 6;
    b.poc_lsb = 20;
    b.nref[0] = 4;  // every picture frame 5 refers to, for the co-located mapping
    b.nref[1] = 2;
    b.spatial = false;
    b.slices = 2;
    v.push_back(b);
    p = P(9, 36, 2);  // frames 6..8 are a gap, made-up frames nothing may use
    p.mods[0] = {{2, 1, 0}, {2, 2, 0}};
    v.push_back(p);
    p = P(10, 40, 1);
    p.mmco = {{5, 0, 0}};  // everything goes; this picture restarts at 0
    v.push_back(p);
    // After it, P pictures only: ffmpeg keeps the old order count of this
    // picture where the standard resets it to 0, so implicit weights or
    // temporal direct across it would differ between the two decoders.
    p = P(1, 4, 1);
    v.push_back(p);
    p = P(2, 8, 2);
    v.push_back(p);
    return v;
}

struct SyntaxCase {
    const char* name;
    Sequence seq;
    std::vector<PicturePlan> (*plan)();
};

std::vector<uint8_t> read_all(const std::string& path) {
    std::vector<uint8_t> v;
    if (std::FILE* f = std::fopen(path.c_str(), "rb")) {
        uint8_t buf[65536];
        size_t n;
        while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) v.insert(v.end(), buf, buf + n);
        std::fclose(f);
    }
    return v;
}

struct Collect {
    std::vector<uint8_t> yuv;
    long frames = 0;
};
bool collect(const Picture& pic, void* user) {
    Collect& c = *static_cast<Collect*>(user);
    for (int p = 0; p < 3; ++p) {
        const int w = p ? pic.width / 2 : pic.width, h = p ? pic.height / 2 : pic.height;
        for (int y = 0; y < h; ++y) {
            const uint8_t* row = pic.plane[p] + static_cast<size_t>(y) * pic.stride[p];
            c.yuv.insert(c.yuv.end(), row, row + w);
        }
    }
    ++c.frames;
    return true;
}

TEST(H264Syntax, WriterStreamsMatchFfmpeg) {
    if (!have_ffmpeg()) GTEST_SKIP() << "ffmpeg is not installed: H.264 syntax streams not checked";
    Sequence poc1;
    poc1.poc_type = 1;
    poc1.weighted_p = true;
    poc1.bipred_idc = 1;
    Sequence lt;
    lt.bottom_poc = true;
    lt.gaps_allowed = true;
    lt.direct_8x8_inference = false;
    lt.bipred_idc = 2;
    const SyntaxCase cases[] = {
        {"pcm, order count type 1, explicit weights, sub-partitions, slices", poc1, poc_type1_plan},
        {"long-term references, every marking operation, list modification, gap", lt, long_term_plan},
    };
    char dir[] = "/tmp/kplvc-h264syn-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    for (const SyntaxCase& c : cases)
        for (uint32_t seed = 1; seed <= 4; ++seed) {
            SCOPED_TRACE(std::string(c.name) + ", seed " + std::to_string(seed));
            StreamWriter w(c.seq, seed);
            w.headers();
            for (const PicturePlan& p : c.plan()) w.picture(p);
            const std::string in = std::string(dir) + "/s.264", ref = std::string(dir) + "/s.yuv";
            std::FILE* f = std::fopen(in.c_str(), "wb");
            ASSERT_NE(f, nullptr);
            std::fwrite(w.out.data(), 1, w.out.size(), f);
            std::fclose(f);
            const std::string cmd = "ffmpeg -nostdin -v error -y -threads 1 -i " + in +
                                    " -fps_mode passthrough -f rawvideo -pix_fmt yuv420p " + ref;
            ASSERT_EQ(std::system(cmd.c_str()), 0);
            const std::vector<uint8_t> expect = read_all(ref);

            Collect got;
            DecodeStats stats;
            const Decoder* d = find_decoder("h264");
            ASSERT_EQ(d->decode(w.out.data(), w.out.size(), DecodeOptions{}, collect, &got, &stats), 0)
                << stats.message;
            EXPECT_EQ(stats.errors, 0);
            EXPECT_EQ(stats.concealed, 0);
            const size_t frame = static_cast<size_t>(16 * c.seq.mbw * 16 * c.seq.mbh * 3 / 2);
            EXPECT_EQ(got.yuv.size() / frame, expect.size() / frame);
            bool same = true;
            for (size_t i = 0; i < std::min(got.yuv.size(), expect.size()) && same; ++i)
                if (got.yuv[i] != expect[i]) {
                    ADD_FAILURE() << "first difference in frame " << i / frame << " at byte " << i % frame
                                  << "; stream kept as " << in << "." << &c - cases << "." << seed;
                    same = false;
                }
            if (!same)
                std::rename(in.c_str(),
                            (in + "." + std::to_string(&c - cases) + "." + std::to_string(seed)).c_str());
            std::remove(in.c_str());
            std::remove(ref.c_str());
        }
    rmdir(dir);  // stays when a failing stream was kept
}

// Streams that need a tool the decoder lacks are refused, naming it.
TEST(H264Syntax, UnsupportedToolsAreNamed) {
    struct Refusal {
        const char* what;
        bool mbaff;
        const char* expect;
    };
    for (const Refusal& r : {Refusal{"field pictures", false, "PAFF"}, Refusal{"MBAFF", true, "MBAFF"}}) {
        Sequence s;
        s.interlaced = true;
        s.mbaff = r.mbaff;
        StreamWriter w(s, 1);
        w.headers();
        w.interlaced_slice(!r.mbaff);
        DecodeStats stats;
        Collect got;
        EXPECT_LT(
            find_decoder("h264")->decode(w.out.data(), w.out.size(), DecodeOptions{}, collect, &got, &stats),
            0)
            << r.what;
        EXPECT_NE(std::strstr(stats.message, r.expect), nullptr) << stats.message;
    }
    if (!have_ffmpeg())
        GTEST_SKIP() << "ffmpeg is not installed: CABAC and 8x8-transform refusals not checked";
    const struct {
        const char* encode;
        const char* expect;
    } made[] = {
        {"-c:v libx264 -pix_fmt yuv420p -coder 1", "CABAC"},
        {"-c:v libx264 -pix_fmt yuv420p -coder 0 -profile:v high -x264-params 8x8dct=1", "8x8 transform"},
    };
    for (const auto& m : made) {
        const std::vector<uint8_t> s = make_stream("testsrc2=size=176x144:rate=25", 3, m.encode, "264");
        ASSERT_FALSE(s.empty());
        const DecodeRun run = decode("h264", s);
        EXPECT_LT(run.status, 0) << m.expect;
        EXPECT_NE(std::strstr(run.stats.message, m.expect), nullptr) << run.stats.message;
    }
}

}  // namespace
}  // namespace kplvc::codecs::test
