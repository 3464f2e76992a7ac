// The stream layer: start codes, sequence, GOP, picture and extension
// headers, the frames and their order of output, and the concealment of
// macroblocks that no slice delivered.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

#include "decoder.h"

namespace kplvc::codecs::mpeg2 {

namespace {

constexpr int kPad = 32;                    // luma border of every frame (chroma: scaled)
constexpr int kPaddingWords = 64;           // zero words after the data
constexpr size_t kChunkBytes = 256 * 1024;  // bytes turned into words at a time
constexpr int kMaxDimension = 4096;         // larger pictures are refused (memory)

enum StartCode : int {
    kPictureStart = 0x00,
    kSliceLast = 0xAF,
    kUserData = 0xB2,
    kSequenceHeader = 0xB3,
    kSequenceError = 0xB4,
    kExtension = 0xB5,
    kSequenceEnd = 0xB7,
    kGroupStart = 0xB8,
};

enum ExtensionId : int {
    kSequenceExtension = 1,
    kQuantMatrixExtension = 3,
    kPictureCodingExtension = 8,
};

// Transposed scans, and a matrix transposed to match (see macroblock.cpp):
// entry i of the scan is the transposed position of scan index i.
struct Scans {
    Kpl32s t[2][64];
    Scans() {
        for (int i = 0; i < 64; ++i) {
            t[0][i] = ((kZigzagScan[i] & 7) << 3) | (kZigzagScan[i] >> 3);
            t[1][i] = ((kAlternateScan[i] & 7) << 3) | (kAlternateScan[i] >> 3);
        }
    }
};
const Scans& scans() {
    static const Scans s;
    return s;
}

void transpose_matrix(const uint8_t* raster, Kpl16s* out) {
    for (int p = 0; p < 64; ++p) out[p] = raster[((p & 7) << 3) | (p >> 3)];
}

class StreamDecoder {
public:
    StreamDecoder(PictureSink sink, void* user, DecodeStats* stats)
        : sink_(sink), user_(user), stats_(stats) {}
    int run(const uint8_t* data, size_t size);

private:
    // Headers.
    bool sequence_header(Bits& b);
    void extension(Bits& b);
    bool picture_header(Bits& b);
    void read_matrix(Bits& b, uint8_t* raster);

    // Pictures and frames.
    bool start_picture();
    void finish_picture();
    void finish_frame();
    void conceal_missing_field();
    void extend(Frame& f);
    bool output(int index);
    void flush();
    void conceal();
    Frame* frame_or_grey(int index);
    void make_views(Frame* f, int parity_or_frame, PlaneView* out);
    bool fail(const char* why) {
        std::snprintf(stats_->message, sizeof stats_->message, "%s", why);
        return false;
    }

    PictureSink sink_;
    void* user_;
    DecodeStats* stats_;
    bool stopped_ = false;

    size_t convert(const uint8_t* data, size_t size, size_t at, size_t next);
    std::vector<uint32_t> words_;
    size_t chunk_begin_ = 1, chunk_end_ = 0;  // bytes of the stream in words_

    Sequence seq_;
    bool have_sequence_ = false;
    bool after_sequence_header_ = false;  // extensions belong to the sequence
    PictureHeader pic_;
    bool have_picture_ = false;     // a picture header whose slices may follow
    bool picture_started_ = false;  // its first slice has been seen

    // Frames: three buffers, two references and a target.
    Frame frames_[3];
    int shown_[3][2] = {};  // each frame's display size, from the sequence it was decoded in
    std::unique_ptr<Frame> grey_;
    int ref_[2] = {-1, -1};  // older, newer reference (display order)
    int target_ = -1;        // the frame being decoded
    bool target_is_ref_ = false;
    int pending_ = -1;      // a reference not yet handed out
    int first_field_ = -1;  // parity of the lone first field of target_, or -1
    int field_type_ = 0;    // picture type of that first field

    PictureContext ctx_{};
    std::vector<uint8_t> done_;
    Kpl16s intra_t_[2][64], non_intra_t_[2][64];
};

// ---- Headers ---------------------------------------------------------------------

void StreamDecoder::read_matrix(Bits& b, uint8_t* raster) {
    // Matrices arrive in zigzag order whatever the picture's scan.
    for (int i = 0; i < 64; ++i) raster[kZigzagScan[i]] = static_cast<uint8_t>(b.get(8));
}

bool StreamDecoder::sequence_header(Bits& b) {
    const int w = static_cast<int>(b.get(12)), h = static_cast<int>(b.get(12));
    b.skip(4 + 4 + 18 + 1 + 10 + 1);  // aspect, frame rate, bit rate, marker, VBV size, constrained flag
    Sequence s = seq_;
    s.width = w;
    s.height = h;
    s.mpeg2 = false;  // until a sequence extension says otherwise
    s.progressive = true;
    s.chroma = Chroma::c420;
    if (b.get(1)) {
        read_matrix(b, s.matrix[0]);
    } else {
        std::memcpy(s.matrix[0], kDefaultIntraMatrix, 64);
    }
    if (b.get(1)) {
        read_matrix(b, s.matrix[1]);
        s.non_intra_default[0] = false;
    } else {
        std::memset(s.matrix[1], 16, 64);
        s.non_intra_default[0] = true;
    }
    std::memcpy(s.matrix[2], s.matrix[0], 64);
    std::memcpy(s.matrix[3], s.matrix[1], 64);
    s.non_intra_default[1] = s.non_intra_default[0];
    if (b.overrun() || w == 0 || h == 0) return false;
    seq_ = s;
    have_sequence_ = true;
    return true;
}

void StreamDecoder::extension(Bits& b) {
    const int id = static_cast<int>(b.get(4));
    if (id == kSequenceExtension && after_sequence_header_) {
        b.skip(8);  // profile and level
        const bool progressive = b.get(1) != 0;
        const int chroma = static_cast<int>(b.get(2));
        const int hx = static_cast<int>(b.get(2)), vx = static_cast<int>(b.get(2));
        if (b.overrun()) return;
        seq_.mpeg2 = true;
        seq_.progressive = progressive;
        seq_.chroma = chroma == 2 ? Chroma::c422 : (chroma == 3 ? Chroma::c444 : Chroma::c420);
        seq_.width |= hx << 12;
        seq_.height |= vx << 12;
    } else if (id == kQuantMatrixExtension) {
        uint8_t m[64];
        for (int k = 0; k < 4; ++k) {
            if (b.get(1) == 0) continue;
            read_matrix(b, m);
            if (b.overrun()) return;
            // A luminance matrix also sets the chrominance one; a chrominance
            // matrix (after it) replaces that.
            std::memcpy(seq_.matrix[k], m, 64);
            if (k < 2) std::memcpy(seq_.matrix[k + 2], m, 64);
            if (k == 1) seq_.non_intra_default[0] = seq_.non_intra_default[1] = false;
            if (k == 3) seq_.non_intra_default[1] = false;
        }
    } else if (id == kPictureCodingExtension && have_picture_) {
        PictureHeader& p = pic_;
        for (int s = 0; s < 2; ++s)
            for (int t = 0; t < 2; ++t) p.f_code[s][t] = static_cast<int>(b.get(4));
        p.dc_precision = static_cast<int>(b.get(2));
        p.structure = static_cast<int>(b.get(2));
        p.top_field_first = b.get(1) != 0;
        p.frame_pred_frame_dct = b.get(1) != 0;
        p.concealment_mv = b.get(1) != 0;
        p.q_scale_type = b.get(1) != 0;
        p.intra_vlc = b.get(1) != 0;
        p.alternate_scan = b.get(1) != 0;
        if (p.structure != kFramePicture) p.frame_pred_frame_dct = false;
    }
}

bool StreamDecoder::picture_header(Bits& b) {
    PictureHeader p;
    b.skip(10);  // temporal_reference
    p.type = static_cast<int>(b.get(3));
    b.skip(16);  // vbv_delay
    if (p.type == kPicP || p.type == kPicB) {
        p.full_pel[0] = b.get(1) != 0;
        p.f_code[0][0] = p.f_code[0][1] = static_cast<int>(b.get(3));
    }
    if (p.type == kPicB) {
        p.full_pel[1] = b.get(1) != 0;
        p.f_code[1][0] = p.f_code[1][1] = static_cast<int>(b.get(3));
    }
    if (b.overrun()) return false;
    pic_ = p;
    return true;
}

// ---- Frames ----------------------------------------------------------------------

Frame* StreamDecoder::frame_or_grey(int index) {
    if (index >= 0) return &frames_[index];
    if (!grey_ || grey_->width() != frames_[0].width() || grey_->height() != frames_[0].height() ||
        grey_->chroma() != frames_[0].chroma()) {
        grey_ = std::make_unique<Frame>(frames_[0].width(), frames_[0].height(), frames_[0].chroma(), kPad);
        for (int p = 0; p < 3; ++p) {
            // The plane with its border.
            const int pw = grey_->plane_width(p), ph = grey_->plane_height(p), pad = grey_->pad(p);
            for (int y = -pad; y < ph + pad; ++y)
                std::memset(grey_->data(p) + static_cast<ptrdiff_t>(y) * grey_->stride(p) - pad, 128,
                            static_cast<size_t>(pw + 2 * pad));
        }
    }
    return grey_.get();
}

// Views of a frame's planes: the frame (parity_or_frame 2) or one field.
void StreamDecoder::make_views(Frame* f, int parity_or_frame, PlaneView* out) {
    for (int p = 0; p < 3; ++p) {
        PlaneView v;
        v.base = f->data(p);
        v.step = f->stride(p);
        v.width = f->plane_width(p);
        v.height = f->plane_height(p);
        v.pad_x = v.pad_y = f->pad(p);  // the border that extend() fills
        if (parity_or_frame != 2) {
            v.base += parity_or_frame * v.step;
            v.step *= 2;
            v.height /= 2;
            v.pad_y /= 2;
        }
        out[p] = v;
    }
}

bool StreamDecoder::output(int index) {
    if (index < 0 || stopped_) return !stopped_;
    Picture pic = frames_[index].picture();
    pic.width = shown_[index][0];
    pic.height = shown_[index][1];
    ++stats_->frames;
    if (!sink_(pic, user_)) stopped_ = true;
    return !stopped_;
}

void StreamDecoder::flush() {
    if (pending_ >= 0) {
        output(pending_);
        pending_ = -1;
    }
}

bool StreamDecoder::start_picture() {
    if (seq_.chroma == Chroma::c444) return fail("4:4:4 chroma is not supported");
    if (seq_.width > kMaxDimension || seq_.height > kMaxDimension) return false;
    const bool field = pic_.structure != kFramePicture;
    const int parity = pic_.structure == kBottomField ? 1 : 0;
    if (!seq_.mpeg2 && field) return false;

    // Geometry: coded size in macroblocks; interlaced MPEG-2 sequences have
    // an even number of macroblock rows (32-line units).
    const int mbw = (seq_.width + 15) / 16;
    const int mbh = seq_.mpeg2 && !seq_.progressive ? 2 * ((seq_.height + 31) / 32) : (seq_.height + 15) / 16;
    if (mbw != seq_.mb_width || mbh != seq_.mb_height || frames_[0].empty() ||
        frames_[0].chroma() != seq_.chroma) {
        // A new picture size: what was decoded before goes out, and the
        // references go.
        flush();
        seq_.mb_width = mbw;
        seq_.mb_height = mbh;
        for (Frame& f : frames_) f = Frame(mbw * 16, mbh * 16, seq_.chroma, kPad);
        ref_[0] = ref_[1] = -1;
        target_ = -1;
        first_field_ = -1;
    }

    // A second field of the frame under way, or a new frame.
    const bool second = field && first_field_ >= 0 && parity != first_field_ && target_ >= 0 &&
                        (pic_.type == kPicB) == (field_type_ == kPicB);
    if (!second) {
        if (first_field_ >= 0) conceal_missing_field();
        const bool ref = pic_.type != kPicB;
        if (ref) {
            flush();
            // The older reference's buffer becomes the target.
            int t = 0;
            if (ref_[0] >= 0 && ref_[0] != ref_[1])
                t = ref_[0];
            else
                while (t == ref_[1]) ++t;
            ref_[0] = ref_[1];
            ref_[1] = t;
            target_ = t;
        } else {
            int t = 0;
            while (t == ref_[0] || t == ref_[1]) ++t;
            target_ = t;
        }
        target_is_ref_ = ref;
        shown_[target_][0] = seq_.width;
        shown_[target_][1] = seq_.height;
        first_field_ = field ? parity : -1;
        field_type_ = pic_.type;
    } else {
        first_field_ = -1;  // this field completes the frame
    }

    Frame* target = &frames_[target_];
    ctx_.seq = &seq_;
    ctx_.pic = &pic_;
    ctx_.target = target;
    ctx_.parity = parity;
    ctx_.mb_rows = field ? mbh / 2 : mbh;
    make_views(target, field ? parity : 2, ctx_.out);

    // References: P from the newer reference (before this frame: the older
    // entry once the target took the newer one), B from both.
    int fwd = -1, bwd = -1;
    if (pic_.type == kPicP) {
        fwd = target_is_ref_ ? ref_[0] : ref_[1];
    } else if (pic_.type == kPicB) {
        fwd = ref_[0];
        bwd = ref_[1];
    }
    Frame* refs[2] = {frame_or_grey(fwd), frame_or_grey(bwd)};
    for (int s = 0; s < 2; ++s) {
        PlaneView v[3];
        make_views(refs[s], 2, v);
        for (int p = 0; p < 3; ++p) ctx_.frame_ref[s][p] = v[p];
        for (int f = 0; f < 2; ++f) {
            // The second field of a P frame takes the opposite parity from the
            // first field of its own frame.
            Frame* src = refs[s];
            if (second && pic_.type == kPicP && s == 0 && f != parity) src = target;
            make_views(src, f, v);
            for (int p = 0; p < 3; ++p) ctx_.field_ref[s][p][f] = v[p];
        }
    }

    const int g = pic_.alternate_scan ? 1 : 0;
    ctx_.scan = scans().t[g];
    for (int c = 0; c < 2; ++c) {
        transpose_matrix(seq_.matrix[2 * c], intra_t_[c]);
        transpose_matrix(seq_.matrix[2 * c + 1], non_intra_t_[c]);
        ctx_.intra_matrix[c] = intra_t_[c];
        // The flat default matrix is passed as null, which the block decoders
        // read as 16 everywhere.
        ctx_.non_intra_matrix[c] = seq_.non_intra_default[c] ? nullptr : non_intra_t_[c];
    }
    done_.assign(static_cast<size_t>(mbw) * ctx_.mb_rows, 0);
    ctx_.done = &done_;
    picture_started_ = true;
    return true;
}

void StreamDecoder::conceal() {
    // Each macroblock that no slice delivered is copied from the reference
    // the picture predicts from (the same field for field pictures), or set
    // to mid-grey where there is none.
    const bool field = pic_.structure != kFramePicture;
    const int parity = ctx_.parity;
    int src = -1;
    if (pic_.type == kPicP || pic_.type == kPicI)
        src = target_is_ref_ ? ref_[0] : ref_[1];
    else
        src = ref_[1];
    PlaneView from[3];
    const bool have = src >= 0 && src != target_;
    if (have) make_views(&frames_[src], field ? parity : 2, from);
    const int mbw = seq_.mb_width;
    const int cw = 8, ch = seq_.chroma == Chroma::c422 ? 16 : 8;
    for (size_t a = 0; a < done_.size(); ++a) {
        if (done_[a]) continue;
        ++stats_->concealed;
        const int mx = static_cast<int>(a) % mbw, my = static_cast<int>(a) / mbw;
        for (int p = 0; p < 3; ++p) {
            const int w = p == 0 ? 16 : cw, h = p == 0 ? 16 : ch;
            const PlaneView& o = ctx_.out[p];
            for (int y = 0; y < h; ++y) {
                uint8_t* d = o.base + static_cast<ptrdiff_t>(my * h + y) * o.step + mx * w;
                if (have)
                    std::memcpy(d, from[p].base + static_cast<ptrdiff_t>(my * h + y) * from[p].step + mx * w,
                                static_cast<size_t>(w));
                else
                    std::memset(d, 128, static_cast<size_t>(w));
            }
        }
    }
}

void StreamDecoder::finish_picture() {
    if (!have_picture_) return;
    have_picture_ = false;
    if (!picture_started_) return;  // a picture without slices: nothing was set up
    picture_started_ = false;
    conceal();
    if (first_field_ >= 0) {
        // A first field: its frame is finished by the second. The border is
        // filled now already, as the second field of a P frame may refer to
        // the first.
        if (target_is_ref_) extend(frames_[target_]);
        return;
    }
    finish_frame();
}

void StreamDecoder::conceal_missing_field() {
    // The frame's second field never came: decode it as a field without
    // slices (all concealed), which finishes the frame.
    const PictureHeader keep = pic_;
    const bool had = have_picture_;
    pic_.structure = first_field_ == 0 ? kBottomField : kTopField;
    pic_.type = field_type_;
    have_picture_ = true;
    picture_started_ = false;
    if (start_picture()) finish_picture();
    pic_ = keep;
    have_picture_ = had;
    picture_started_ = false;
}

void StreamDecoder::extend(Frame& f) {
    // Replicate the edges into the border for predictions that reach out.
    for (int p = 0; p < 3; ++p) {
        const int pad = f.pad(p);
        kpliExpandFrame_H263_8u(f.data(p) - static_cast<ptrdiff_t>(pad) * f.stride(p) - pad, f.plane_width(p),
                                f.plane_height(p), pad, f.stride(p));
    }
}

void StreamDecoder::finish_frame() {
    Frame& f = frames_[target_];
    if (target_is_ref_) {
        extend(f);
        pending_ = target_;
    } else {
        output(target_);
    }
}

// ---- The stream ------------------------------------------------------------------

// Makes words_ hold the stream from a multiple of 4 bytes at or before `at`
// to at least `next` (and, while the chunk lasts, what follows), as 32-bit
// words, first byte most significant, followed by zero words that the
// readers may look ahead into. Returns the byte offset of words_[0]. A chunk
// serves many start codes, and the buffer is reused: the stream is never
// copied whole.
size_t StreamDecoder::convert(const uint8_t* data, size_t size, size_t at, size_t next) {
    if (at >= chunk_begin_ && next <= chunk_end_) return chunk_begin_;
    const size_t begin = at & ~size_t{3};
    const size_t want = next - begin > kChunkBytes ? next - begin : kChunkBytes;
    const size_t end = size - begin < want ? size : begin + want;
    const size_t nwords = (end - begin + 3) / 4;
    if (words_.size() < nwords + kPaddingWords) words_.resize(nwords + kPaddingWords);
    const uint8_t* d = data + begin;
    const size_t whole = (end - begin) / 4;
    for (size_t w = 0; w < whole; ++w)
        words_[w] = (uint32_t{d[4 * w]} << 24) | (uint32_t{d[4 * w + 1]} << 16) |
                    (uint32_t{d[4 * w + 2]} << 8) | d[4 * w + 3];
    std::fill(words_.begin() + static_cast<ptrdiff_t>(whole),
              words_.begin() + static_cast<ptrdiff_t>(nwords + kPaddingWords), 0u);
    for (size_t i = whole * 4; i < end - begin; ++i) words_[i / 4] |= uint32_t{d[i]} << (24 - 8 * (i & 3));
    chunk_begin_ = begin;
    chunk_end_ = end;
    return begin;
}

// The byte offset of the next start code prefix 00 00 01 at or after `from`,
// or `size`.
size_t next_start_code(const uint8_t* d, size_t size, size_t from) {
    size_t i = from + 2;
    while (i < size) {
        const void* one = std::memchr(d + i, 1, size - i);
        if (!one) return size;
        i = static_cast<size_t>(static_cast<const uint8_t*>(one) - d);
        if (d[i - 1] == 0 && d[i - 2] == 0) return i - 2;
        ++i;
    }
    return size;
}

int StreamDecoder::run(const uint8_t* data, size_t size) {
    if (!tables().ok) return fail("the library could not build its code tables"), -1;
    size_t at = next_start_code(data, size, 0);
    while (at < size && !stopped_) {
        const size_t next = next_start_code(data, size, at + 3);
        if (at + 3 >= size) break;
        const int code = data[at + 3];
        const size_t base = convert(data, size, at, next);
        Bits b{words_.data(), (at + 4 - base) * 8, (next - base) * 8};
        if (code == kSequenceHeader) {
            finish_picture();
            if (!sequence_header(b)) ++stats_->errors;
            after_sequence_header_ = true;
        } else if (code == kExtension) {
            extension(b);
        } else if (code == kGroupStart) {
            finish_picture();
            after_sequence_header_ = false;
        } else if (code == kPictureStart) {
            finish_picture();
            after_sequence_header_ = false;
            if (have_sequence_ && picture_header(b)) {
                if (pic_.type == kPicD) {
                    if (!seq_.mpeg2) return fail("MPEG-1 D-pictures (DC-coded only) are not supported"), -1;
                    ++stats_->errors;
                } else if (pic_.type >= kPicI && pic_.type <= kPicB) {
                    have_picture_ = true;
                } else {
                    ++stats_->errors;
                }
            } else if (have_sequence_) {
                ++stats_->errors;
            }
        } else if (code >= 1 && code <= kSliceLast) {
            if (have_picture_) {
                if (!picture_started_ && !start_picture()) {
                    if (stats_->message[0]) return -1;
                    have_picture_ = false;
                    ++stats_->errors;
                } else if (picture_started_ && !decode_slice(ctx_, code, words_.data(), b.pos, b.end)) {
                    ++stats_->errors;
                }
            }
        } else if (code == kSequenceEnd) {
            finish_picture();
        }
        at = next;
    }
    finish_picture();
    if (first_field_ >= 0 && target_ >= 0) conceal_missing_field();  // a lone first field at the end
    flush();
    if (!have_sequence_) return fail("no sequence header: not an MPEG-1/MPEG-2 video stream"), -1;
    return 0;
}

int probe(const uint8_t* data, size_t size) {
    // An elementary stream starts with a sequence header, perhaps after
    // zero bytes; a program stream (pack header 0xBA) is not one.
    size_t i = 0;
    while (i < size && i < 64 && data[i] == 0) ++i;
    if (i >= 2 && i + 1 < size && data[i] == 1) {
        if (data[i + 1] == kSequenceHeader) return 100;
        if (data[i + 1] == 0xBA) return 0;
    }
    // Somewhere in the first 64 KiB.
    const size_t n = size < 65536 ? size : 65536;
    for (size_t k = next_start_code(data, n, 0); k + 3 < n; k = next_start_code(data, n, k + 3))
        if (data[k + 3] == kSequenceHeader) return 50;
    return 0;
}

int decode(const uint8_t* data, size_t size, const DecodeOptions&, PictureSink sink, void* user,
           DecodeStats* stats) {
    StreamDecoder d(sink, user, stats);
    return d.run(data, size);
}

}  // namespace

const Decoder kMpeg2Decoder = {"mpeg2", ".m2v .mpv .m1v .mpg .mpeg", probe, decode};

}  // namespace kplvc::codecs::mpeg2
