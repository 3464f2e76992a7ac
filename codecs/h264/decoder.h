// The H.264 decoder's state: parameter sets, the decoded picture buffer, the
// picture being decoded and the per-slice context of the macroblock loop.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "bits.h"
#include "common/codec.h"
#include "common/picture.h"
#include "params.h"

namespace kplvc::codecs::h264 {

struct Mv {
    int16_t x, y;
};
inline bool operator==(Mv a, Mv b) { return a.x == b.x && a.y == b.y; }

// Macroblock kinds, as far as prediction of later macroblocks and the
// deblocking filter care.
enum MbKind : uint8_t {
    kMbI4x4,
    kMbI16x16,
    kMbPcm,
    kMbPSkip,
    kMbBSkip,  // B_Skip and B_Direct_16x16
    kMbInter,  // every other P or B type
};
inline bool is_intra(uint8_t kind) { return kind <= kMbPcm; }

// How finely the motion of a macroblock varies, which tells the deblocking
// filter which inner edges can have different motion on their two sides.
enum MotionShape : uint8_t {
    kMotion16x16,  // one motion for the whole macroblock
    kMotion16x8,   // top and bottom halves
    kMotion8x16,   // left and right halves
    kMotion8x8,    // each 8x8 quarter uniform
    kMotion4x4,    // anything finer
};

// Per macroblock of a picture. 4x4 blocks are indexed in raster order within
// the macroblock (4 * row + column); chroma blocks 2 * row + column.
struct MbInfo {
    int16_t slice;  // slice number within the picture, -1 while not decoded
    uint8_t kind;   // MbKind
    uint8_t qp;     // QP_Y as the deblocking filter sees it (0 for I_PCM)
    uint8_t shape;  // motion granularity, MotionShape
    // Luma blocks with coefficients, bit 4 * column + row (nz_edges[0]) and
    // bit 4 * row + column (nz_edges[1]): edge-major for either direction.
    uint16_t nz_edges[2];
    // For the deblocking filter, per direction (vertical edges, horizontal
    // edges): bit 4 * edge + segment set where the motion on the two sides
    // differs (bS 1 unless coefficients make it 2). Edge 0 is valid only when
    // the neighbour was known at decoding time (edge0_known bit 1 << dir).
    uint16_t motion_bits[2];
    uint8_t edge0_known;
    uint8_t nz[16];     // TotalCoeff per luma block (AC only for Intra16x16)
    uint8_t nzc[2][4];  // TotalCoeff per chroma AC block, Cb then Cr
    int8_t i4[16];      // Intra4x4PredMode per block (I4x4 macroblocks)
};

// Per slice, what the deblocking filter needs after the slice has gone.
struct SliceFilter {
    int8_t disable;      // disable_deblocking_filter_idc
    int8_t alpha, beta;  // FilterOffsetA, FilterOffsetB
};

enum RefMark : uint8_t { kUnused, kShortTerm, kLongTerm };

// A decoded (or being decoded) picture with what later pictures read: its
// samples, and the motion of every macroblock for direct prediction.
struct Pic {
    Frame frame;
    std::vector<MbInfo> mb;
    std::vector<Mv> mv[2];           // 16 per macroblock
    std::vector<int8_t> ref[2];      // 4 per macroblock (8x8 quarters), -1 unused
    std::vector<int32_t> ref_id[2];  // the id of the picture each quarter refers to, -1 none
    int32_t id = -1;                 // unique per decoded picture
    int poc = 0;
    int frame_num = 0, frame_num_wrap = 0;
    int long_term_idx = 0;
    RefMark mark = kUnused;
    bool output_needed = false;
    bool non_existing = false;  // made up for a gap in frame_num
    bool in_dpb = false;
    bool mmco5 = false;

    bool is_ref() const { return mark != kUnused; }
};

class Decoder264 {
public:
    Decoder264(PictureSink sink, void* user, DecodeStats* stats) : sink_(sink), user_(user), stats_(stats) {}
    // 0, or negative with stats->message set when the stream needs a tool
    // this decoder lacks.
    int decode(const uint8_t* data, size_t size);

private:
    friend struct SliceDecoder;
    friend struct Deblocker;

    // NAL units
    int on_slice(const uint8_t* nal, size_t len, int nal_type, int ref_idc);
    bool first_slice_of_new_picture(const SliceHeader& sh) const;
    bool start_picture(const SliceHeader& sh);
    void finish_picture();
    void decode_slice(BitReader& br, const SliceHeader& sh);

    // Reference pictures, order and output
    void compute_poc(const SliceHeader& sh, Pic* p);
    void fill_frame_num_gap(const SliceHeader& sh);
    void build_ref_lists(const SliceHeader& sh);
    void mark_references(const SliceHeader& sh);
    void store_and_output(Pic* p, bool flush_first, bool no_output);
    void bump();
    void flush_output();
    void output(Pic* p);
    Pic* new_pic();
    void release_unused();
    int dpb_capacity() const;
    Pic* missing_ref();

    // Deblocking and borders
    void deblock_rows(int until_row);
    void deblock_ready();
    void expand_borders(Pic* p);
    void conceal_missing();

    PictureSink sink_;
    void* user_;
    DecodeStats* stats_;
    bool stop_ = false;
    const char* unsupported_ = nullptr;

    Sps sps_table_[32];
    Pps pps_table_[256];
    std::vector<uint8_t> rbsp_;

    // Active sequence and picture parameters (copies: a set may be resent)
    Sps sps_cur_;
    Pps pps_cur_;
    const Sps* sps_ = nullptr;
    const Pps* pps_ = nullptr;
    int mbw_ = 0, mbh_ = 0;
    std::vector<std::unique_ptr<Pic>> pool_;
    std::vector<Pic*> dpb_;
    std::unique_ptr<Pic> missing_;
    int32_t next_id_ = 0;

    // Picture order and frame numbering state of the previous pictures
    int prev_poc_msb_ = 0, prev_poc_lsb_ = 0;
    int prev_frame_num_offset_ = 0, prev_frame_num_ = 0;
    int prev_ref_frame_num_ = 0;
    bool prev_pic_mmco5_ = false;
    int frame_num_offset_ = 0;
    int max_long_term_idx_ = -1;  // -1: no long-term frame indices
    bool have_idr_ = false;

    // The picture being decoded
    Pic* cur_ = nullptr;
    SliceHeader first_sh_;  // the first slice's header (marking, picture detection)
    int top_poc_ = 0, bottom_poc_ = 0, poc_msb_ = 0;
    std::vector<SliceFilter> slice_filters_;
    std::vector<int> row_count_;  // decoded macroblocks per row
    int deblocked_rows_ = 0;
    int decoded_mbs_ = 0;
    SliceHeader sh_;  // the slice being decoded

    // Reference lists of the current slice
    Pic* ref_list_[2][32] = {};
    int num_ref_[2] = {0, 0};
};

// Chroma quantiser for a luma one plus the picture's offset.
int chroma_qp(int qp, int offset);

// The deblocking filter's table row for index 0..51: alpha', beta', and tC0'
// for bS 1, 2 and 3 (for a test against the code tables).
void deblock_table_row(int index, int out[5]);

}  // namespace kplvc::codecs::h264
