// The MPEG-4 Visual decoder (Simple and Advanced Simple Profile, rectangular
// VOPs): headers and the macroblock loop here, the blocks in the library.
#pragma once

#include <cstdint>
#include <vector>

#include "bitreader.h"
#include "common/codec.h"
#include "common/picture.h"
#include "headers.h"
#include "kplvc.h"

namespace kplvc::codecs::mpeg4 {

// What a decoded reference VOP leaves for the B-VOPs that follow it.
struct MbInfo {
    uint8_t skipped = 0;  // not_coded
    uint8_t intra = 0;
    uint8_t field = 0;  // field prediction (interlaced)
    uint8_t field_sel[2] = {0, 0};
};

// The resync marker's number of zeros in a VOP (decoder.cpp).
int resync_zeros(const Vop& v);

class Mpeg4Decoder {
public:
    Mpeg4Decoder(PictureSink sink, void* user, DecodeStats* stats)
        : sink_(sink), user_(user), stats_(stats) {}

    // Decodes a whole elementary stream; false when it cannot be decoded at
    // all (stats->message says why).
    bool run(const uint8_t* data, size_t size);
    // Deblock and dering the pictures handed out (not the references).
    void set_postfilter(bool on) { postfilter_ = on; }

    // Data-partitioned streams with reversible VLCs: false reads a damaged
    // texture partition forward only (for comparison; the default reads it
    // backward too).
    void set_backward(bool on) { backward_ = on; }
    // Binary shape: called with the alpha plane (0 / 255, the VOP's bounding
    // box, row step `stride`) of each picture handed out, just before it.
    using AlphaSink = void (*)(const uint8_t* alpha, int stride, int width, int height, void* user);
    void set_alpha_sink(AlphaSink sink, void* user) { alpha_sink_ = sink, alpha_user_ = user; }
    // While decoding a data-partitioned stream without reversible VLCs, also
    // write the same stream with its texture partitions in reversible VLCs
    // into *out (filled by run(); left empty if a packet was damaged).
    void rewrite_rvlc(std::vector<uint8_t>* out) { rewrite_out_ = out; }

private:
    struct Plane {
        uint8_t* data;
        int stride;
        int width, height;  // samples that exist (the rest is padding)
        int pad;            // readable padding around them (0: none)
    };

    bool decode_vop(BitReader& br);
    bool decode_short_vop(BitReader& br);
    void start_vop();
    void finish_reference();
    void output(const Frame& f);
    const Frame& postfiltered(const Frame& f);
    bool allocate();

    // Macroblock layers; false on damage.
    bool decode_mb_ip(BitReader& br, int mbx, int mby);
    bool decode_mb_b(BitReader& br, int mbx, int mby);
    bool decode_mb_short(BitReader& br, int mbx, int mby);
    // blocks: the luminance blocks inside the shape (bit b for block b); the
    // others carry no texture.
    bool intra_blocks(BitReader& br, int mbx, int mby, int cbp, bool ac_pred, bool dc_vlc, bool field_dct,
                      int blocks = 15);

    // Binary shape (shape.cpp): the macroblock's BAB into the alpha plane;
    // *blocks gets its luminance blocks that are not transparent.
    bool decode_shape(BitReader& br, int mbx, int mby, int* blocks);
    // cbpy of a macroblock with n (1..3) blocks inside the shape, as the
    // inter meaning (a bit per block, first block first).
    static bool read_cbpy_shape(BitReader& br, int n, int* cbpy);
    // Macroblocks 0..mb_count_ of the VOP have their shape (transparent
    // ones skipped); pads the texture for use as a reference.
    void pad_shape_vop();
    uint8_t* alpha_at(int frame, int x, int y) {
        return alpha_[frame].data() + static_cast<intptr_t>(y + kAlphaMargin) * alpha_stride_ + x +
               kAlphaMargin;
    }
    bool inter_residual(BitReader& br, int cbp, int16_t (*res)[64], bool* coded);

    // Video packets.
    bool at_resync(BitReader& br) const;
    bool read_packet_header(BitReader& br, int* mb_number);
    int packet_number(const BitReader& br) const;
    bool find_resync(BitReader& br, int* mb_number);
    void conceal(int from, int to);

    // Data-partitioned packets (partition.cpp).
    struct DpMb {
        uint8_t not_coded, intra, type, ac_pred, dc_vlc, mcsel, qp, cbp;
        int16_t dc[6];
    };
    struct PacketEnd {
        size_t marker;        // byte of the next resync marker or start code (or the data's end)
        int64_t texture_end;  // bit position where the stuffing before it begins
        bool resync;          // a resync marker follows
    };
    void decode_dp_vop(BitReader& br);
    PacketEnd find_packet_end(const BitReader& br) const;
    int dp_packet(BitReader& br, int first, const PacketEnd& end);
    bool dp_partitions(BitReader& br, int first, const PacketEnd& end);
    bool dp_texture(int first, int k, BitReader* tex);
    int dp_backward(const uint8_t* data, int f, int64_t fail_block, int64_t tex_start, int64_t tex_end,
                    std::vector<int64_t>* start);
    bool dp_intra(int mb, const DpMb& m, BitReader* tex);
    bool dp_inter_residual(const DpMb& m, BitReader* tex, int16_t (*res)[64], bool* coded);
    void dp_rewrite_block(const int16_t* levels, bool intra, int dc_vlc, int scan);
    std::vector<uint8_t> assemble_rewrite(const uint8_t* data, size_t size) const;

    // Prediction into dst (w x h) from a plane at (x, y) + mv.
    void predict(uint8_t* dst, int dst_step, const Plane& ref, int x, int y, int w, int h, int mvx, int mvy,
                 bool qpel, int rc);
    Plane make_plane(Frame& f, int p, int field);
    const Plane& plane(int frame, int p, int field = -1) const { return planes_[frame][p][field + 1]; }
    // Where a macroblock's prediction goes: the frame, or scratch blocks.
    struct Dest {
        uint8_t *y, *cb, *cr;
        int ys, cs;
    };
    Dest frame_dest(int mbx, int mby);
    void predict_mb(const Dest& d, int ref, int mbx, int mby, const KplMotionVector* mv, bool four, int rc);
    void predict_field_mb(const Dest& d, int ref, int mbx, int mby, const KplMotionVector* mv,
                          const uint8_t* sel, int rc);
    void predict_gmc(const Dest& d, int mbx, int mby);
    void add_residual(int mbx, int mby, int16_t (*res)[64], const bool* coded, bool field_dct);

    PictureSink sink_;
    void* user_;
    DecodeStats* stats_;
    bool stop_ = false;

    Vol vol_;
    Vop vop_;
    int mb_w_ = 0, mb_h_ = 0, mb_count_ = 0, mb_bits_ = 1;

    // Frames: cur_ is decoded into; fwd_/bwd_ are the past and future
    // references of B-VOPs; held_ waits for output (display order).
    std::vector<Frame> pool_;
    Plane planes_[3][3][3];  // [frame][plane][frame, top field, bottom field]
    int cur_ = -1, fwd_ = -1, bwd_ = -1;
    bool held_ = false;

    // Per macroblock of the VOP being decoded and of the last reference VOP.
    std::vector<KplMotionVector> mv_, ref_mv_;              // 4 per macroblock
    std::vector<KplMotionVector> field_mv_, ref_field_mv_;  // 2 per macroblock
    std::vector<MbInfo> info_, ref_info_;
    std::vector<KplMPEG4IntraPred> pred_;  // 6 per macroblock
    std::vector<int> packet_;              // video packet of each macroblock (-1 not decoded)
    int packet_id_ = 0, packet_start_ = 0;
    int qp_ = 1, running_qp_ = 1;
    bool first_in_packet_ = true;
    KplMotionVector pmv_[2][2];  // B-VOP predictors [forward/backward][frame or top/bottom]

    // Timing for B-VOPs.
    int64_t time_base_ = 0, last_time_base_ = 0;
    int64_t last_ref_time_ = 0, ref_distance_ = 1;
    int64_t b_time_ = 0;
    int64_t frame_time_ = 0, pp_field_ = 2, pb_field_ = 1;

    KplMPEG4Warp warp_{};

    // Display post-filters: the QP of each macroblock of every frame of the
    // pool, and the two frames the filters work in (deblocked, deringed).
    bool postfilter_ = false;
    std::vector<uint8_t> qp_map_[3];
    Frame post_[2];

    // Binary shape: per pool frame the alpha plane (with a margin of zeros),
    // the bab_type of each macroblock and the VOP's position; for the VOP
    // being decoded the shape vectors and the luminance blocks inside the
    // shape. Texture prediction reads the reference at the current VOP's
    // position less the reference's (ref_dx_, ref_dy_).
    static constexpr int kAlphaMargin = 32;
    std::vector<uint8_t> alpha_[3];
    int alpha_stride_ = 0;
    std::vector<uint8_t> bab_[3];
    int vop_pos_[3][2] = {};
    std::vector<KplMotionVector> smv_;
    std::vector<uint8_t> blk_;
    int ref_dx_ = 0, ref_dy_ = 0;
    AlphaSink alpha_sink_ = nullptr;
    void* alpha_user_ = nullptr;

    // Data partitioning.
    std::vector<DpMb> dp_;
    bool backward_ = true;
    std::vector<uint8_t>* rewrite_out_ = nullptr;
    bool rewrite_ok_ = true;
    std::vector<uint8_t> rw_bits_;  // the packet's texture being rewritten, one byte per bit
    // Replacements of the rewrite: [begin, end) bit ranges of the input and the bits put there.
    std::vector<std::pair<std::pair<int64_t, int64_t>, std::vector<uint8_t>>> rw_;
};

}  // namespace kplvc::codecs::mpeg4
