// DV decoder (IEC 61834-2 and SMPTE 314M at 25 Mbit/s): 525/60 4:1:1,
// 625/50 4:2:0 and 625/50 4:1:1, built on the library's segment decoder,
// inverse quantiser and inverse transforms.
//
// A frame is 10 (525/60) or 12 (625/50) DIF sequences of 150 DIF blocks of
// 80 bytes: a header, two subcode, three VAUX, then nine groups of one audio
// and fifteen video blocks. The video blocks, taken five at a time, are the 27
// segments of a sequence; the five macroblocks of a segment come from five
// superblocks spread over the picture (the standard's shuffling), so damage
// to one stretch of tape scatters over the picture instead of wiping out one
// area. Every DIF block carries its own ID (section type, sequence, block
// number), which this decoder checks before it trusts a segment: a segment
// whose blocks are missing, out of place or undecodable keeps the previous
// frame's macroblocks and is counted as concealed.
#include <cstdio>
#include <cstring>
#include <vector>

#include "common/codec.h"
#include "kplvc.h"
#include "tables.h"

namespace kplvc::codecs::dv {
namespace {

constexpr size_t kDif = 80;
constexpr int kSequenceBlocks = 150;
constexpr int kSegments = 27;  // per sequence

enum Section { kHeader = 0, kSubcode = 1, kVaux = 2, kAudio = 3, kVideo = 4 };

// The DIF block ID: section type in bits 7..5 of byte 0, the sequence in bits
// 7..4 of byte 1 and FSC (the second channel of 50 Mbit/s streams) in bit 3,
// the block number in byte 2.
bool id_is(const uint8_t* b, int section, int seq, int number, int fsc = 0) {
    return (b[0] >> 5) == section && (b[1] >> 4) == seq && ((b[1] >> 3) & 1) == fsc && b[2] == number;
}

// A frame starts with the header block of sequence 0, followed by its two
// subcode blocks and its first VAUX block. One ID alone matches by chance
// about once in 65536 byte positions; two of the four (one may be damaged)
// do not.
bool frame_at(const uint8_t* d, size_t left) {
    if (left < 4 * kDif) return false;
    const int n = id_is(d, kHeader, 0, 0) + id_is(d + kDif, kSubcode, 0, 0) +
                  id_is(d + 2 * kDif, kSubcode, 0, 1) + id_is(d + 3 * kDif, kVaux, 0, 0);
    return n >= 2;
}

size_t next_frame(const uint8_t* d, size_t size, size_t from) {
    for (size_t p = from; p + 4 * kDif <= size; ++p)
        if (frame_at(d + p, size - p)) return p;
    return size;
}

struct System {
    int sequences;  // 10 or 12
    int width, height;
    Chroma chroma;
};

// Where the macroblocks of a segment go: kind 0 a 16x16 4:2:0 macroblock,
// 1 a 32x8 4:1:1 one, 2 a 16x16 4:1:1 one at the right edge (its chroma
// blocks hold two 4x8 halves, the upper half on the left).
struct Place {
    uint16_t x, y;
    uint8_t kind;
};

// Macroblock b (0..4) of segment k of sequence s comes from superblock row
// (s + kRowShift[b]) mod sequences, column kColumn[b], at index k there.
constexpr int kRowShift[5] = {2, 6, 8, 0, 4};
constexpr int kColumn[5] = {2, 1, 3, 0, 4};

// Inside a superblock the 27 macroblocks run down and up its columns in
// turn. 4:2:0: 9 columns of 3 macroblocks of 16x16. 4:1:1: six rows of 32x8
// macroblocks, 4.5 columns wide; the half column is shared by superblock
// columns 0 and 1 (and 2 and 3): the top three rows belong to the left one,
// the bottom three to the right one; column 4 ends at the picture's edge
// with three 16x16 macroblocks.
Place place(const System& sys, int s, int k, int b) {
    const int r = (s + kRowShift[b]) % sys.sequences, c = kColumn[b];
    if (sys.chroma == Chroma::c420) {
        const int col = k / 3, row = (col & 1) ? 2 - k % 3 : k % 3;
        return {static_cast<uint16_t>((c * 9 + col) * 16), static_cast<uint16_t>((r * 3 + row) * 16), 0};
    }
    int x32, row;
    if (c == 4 && k >= 24) return {704, static_cast<uint16_t>((r * 6 + (k - 24) * 2) * 8), 2};
    if ((c & 1) == 0) {
        const int base = c * 9 / 2;
        if (k < 24) {
            const int col = k / 6;
            x32 = base + col, row = (col & 1) ? 5 - k % 6 : k % 6;
        } else {
            x32 = base + 4, row = k - 24;
        }
    } else {
        const int base = (c * 9 - 1) / 2;
        if (k < 3) {
            x32 = base, row = 3 + k;
        } else {
            const int col = 1 + (k - 3) / 6;
            x32 = base + col, row = (col & 1) ? 5 - (k - 3) % 6 : (k - 3) % 6;
        }
    }
    return {static_cast<uint16_t>(x32 * 32), static_cast<uint16_t>((r * 6 + row) * 8), 1};
}

class FrameDecoder {
public:
    FrameDecoder(const System& sys, const Kpl32u* table)
        : sys_(sys), table_(table), frame_(sys.width, sys.height, sys.chroma, 0) {
        dequant_tables(&dq_);
        places_.resize(static_cast<size_t>(sys.sequences) * kSegments * 5);
        for (int s = 0; s < sys.sequences; ++s)
            for (int k = 0; k < kSegments; ++k)
                for (int b = 0; b < 5; ++b) places_[(s * kSegments + k) * 5 + b] = place(sys, s, k, b);
        for (int dc = 0; dc < 2048; ++dc) {
            alignas(16) Kpl16s b[64] = {static_cast<Kpl16s>(dc)};
            uint8_t out[64];
            kpliDCT8x8Inv_16s8u_C1R(b, out, 8);
            flat_dc_[dc] = std::memcmp(out, out + 1, 63) == 0;
        }
        // Black until the first frame arrives (what a concealed segment of the
        // first frame shows).
        for (int p = 0; p < 3; ++p)
            for (int y = 0; y < frame_.plane_height(p); ++y)
                std::memset(frame_.data(p) + static_cast<size_t>(y) * frame_.stride(p), p ? 128 : 16,
                            static_cast<size_t>(frame_.plane_width(p)));
    }

    // Decodes the frame whose DIF blocks lie in d[0, size); counts the
    // segments concealed, and among them those found damaged (the others were
    // missing).
    void frame(const uint8_t* d, size_t size, DecodeStats* stats) {
        for (int s = 0; s < sys_.sequences; ++s)
            for (int k = 0; k < kSegments; ++k) {
                const size_t at = (static_cast<size_t>(s) * kSequenceBlocks + 7 + 5 * k + k / 3) * kDif;
                if (at + 5 * kDif > size) {
                    ++stats->concealed;
                    continue;
                }
                bool ok = true;
                for (int b = 0; ok && b < 5; ++b) ok = id_is(d + at + b * kDif, kVideo, s, 5 * k + b);
                if (!ok ||
                    kpliHuffmanDecodeSegment_DV_8u16s(d + at, table_, kScans, coef_, info_) != kplStsNoErr) {
                    ++stats->concealed;
                    ++stats->errors;
                    continue;
                }
                for (int b = 0; b < 5; ++b)
                    macroblock(places_[(s * kSegments + k) * 5 + b], coef_ + 6 * 64 * b, info_ + 6 * b);
            }
    }

    Picture picture() const { return frame_.picture(); }

private:
    // One block to 8x8 samples: dequantisation, the level shift of 128
    // (1024 in the DC's scale of 8), then the transform of its DCT mode.
    void block(Kpl16s* c, Kpl32u info, uint8_t* dst, int stride) {
        const int m = (info >> 8) & 1, cls = (info >> KPLVC_DV_INFO_CLASS_SHIFT) & 3,
                  qno = (info >> KPLVC_DV_INFO_QNO_SHIFT) & 15;
        // The coefficients are formed whole, rounded to the nearest: |64 v q|
        // < 2^30. kpliQuantInv_DV_16s_C1I would clear their two low bits (round
        // down to a multiple of 4), which in busy blocks adds up to 16 levels
        // of error against other decoders.
        const Kpl16s* q = dq_.q[m][cls][qno];
        if ((info & KPLVC_DV_INFO_COUNT) <= 1) {
            // The DC alone (most blocks of flat pictures): every sample is
            // (DC + 4) >> 3, exactly what the 2-4-8 transform gives, and the
            // 8-8 one for the DC values marked flat (the others get a ripple
            // of one level from its row rounders and take the transform).
            const int dc = ((c[0] * q[0] + 8192) >> 14) + 1024;  // 0..2044
            if (m == 1 || flat_dc_[dc]) {
                const int v = (dc + 4) >> 3;
                const uint8_t fill = static_cast<uint8_t>(v > 255 ? 255 : v);
                for (int y = 0; y < 8; ++y) std::memset(dst + y * stride, fill, 8);
                return;
            }
        }
        for (int i = 0; i < 64; ++i) c[i] = static_cast<Kpl16s>((c[i] * q[i] + 8192) >> 14);
        c[0] = static_cast<Kpl16s>(c[0] + 1024);
        if (m == 0) {
            kpliDCT8x8Inv_16s8u_C1R(c, dst, stride);
            return;
        }
        // 2-4-8: the transform's rows are the block's lines in frame order.
        kpliDCT2x4x8Inv_16s_C1I(c);
        for (int y = 0; y < 8; ++y)
            for (int x = 0; x < 8; ++x) {
                const int v = c[8 * y + x];
                dst[y * stride + x] = static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
            }
    }

    void macroblock(const Place& p, Kpl16s* c, const Kpl32u* info) {
        const int ys = frame_.stride(0), cs = frame_.stride(1);
        uint8_t* y = frame_.data(0) + static_cast<size_t>(p.y) * ys + p.x;
        if (p.kind == 1) {  // four luminance blocks side by side
            for (int j = 0; j < 4; ++j) block(c + 64 * j, info[j], y + 8 * j, ys);
        } else {  // 2x2
            for (int j = 0; j < 4; ++j) block(c + 64 * j, info[j], y + (j >> 1) * 8 * ys + (j & 1) * 8, ys);
        }
        const int cx = p.kind == 0 ? p.x / 2 : p.x / 4, cy = p.kind == 0 ? p.y / 2 : p.y;
        for (int j = 0; j < 2; ++j) {
            // Block 4 is CR (V), block 5 CB (U).
            uint8_t* dst = frame_.data(j == 0 ? 2 : 1) + static_cast<size_t>(cy) * cs + cx;
            if (p.kind != 2) {
                block(c + 64 * (4 + j), info[4 + j], dst, cs);
                continue;
            }
            uint8_t tmp[64];
            block(c + 64 * (4 + j), info[4 + j], tmp, 8);
            for (int r = 0; r < 8; ++r) {
                std::memcpy(dst + r * cs, tmp + 8 * r, 4);
                std::memcpy(dst + (r + 8) * cs, tmp + 8 * r + 4, 4);
            }
        }
    }

    System sys_;
    const Kpl32u* table_;
    Frame frame_;
    Dequant dq_;
    std::vector<Place> places_;
    bool flat_dc_[2048];  // an 8-8 block of this DC alone is flat
    alignas(32) Kpl16s coef_[KPLVC_DV_SEGMENT_BLOCKS * 64];
    Kpl32u info_[KPLVC_DV_SEGMENT_BLOCKS];
};

int probe(const uint8_t* d, size_t size) {
    if (size < 8 * kDif || !id_is(d, kHeader, 0, 0)) return 0;
    const bool layout = id_is(d + kDif, kSubcode, 0, 0) && id_is(d + 3 * kDif, kVaux, 0, 0) &&
                        id_is(d + 6 * kDif, kAudio, 0, 0) && id_is(d + 7 * kDif, kVideo, 0, 0);
    return layout ? 100 : 20;
}

int decode(const uint8_t* d, size_t size, const DecodeOptions&, PictureSink sink, void* user,
           DecodeStats* stats) {
    stats->concealed_unit = "segments";
    size_t p = 0;
    while (p < size && !(frame_at(d + p, size - p) && id_is(d + p, kHeader, 0, 0)))
        p = next_frame(d, size, p + 1);
    if (p >= size) {
        std::snprintf(stats->message, sizeof stats->message, "no DV frame header found");
        return -1;
    }
    // Byte 3 of the header: DSF (bit 7) 0 = 525/60, 1 = 625/50. Byte 4: APT
    // (bits 2..0) 0 = IEC 61834 (4:2:0 at 625/50), else SMPTE 314M (4:1:1).
    const bool is625 = (d[p + 3] & 0x80) != 0;
    const int apt = d[p + 4] & 7;
    System sys = is625 ? System{12, 720, 576, apt == 0 ? Chroma::c420 : Chroma::c411}
                       : System{10, 720, 480, Chroma::c411};
    const size_t frame_bytes = static_cast<size_t>(sys.sequences) * kSequenceBlocks * kDif;
    if (p + frame_bytes + kDif <= size && id_is(d + p + frame_bytes, kHeader, 0, 0, 1)) {
        std::snprintf(stats->message, sizeof stats->message, "50 Mbit/s DV (two channels) is not supported");
        return -1;
    }
    Kpl32u* table = build_table();
    if (table == nullptr) {
        std::snprintf(stats->message, sizeof stats->message, "out of memory");
        return -1;
    }
    {
        FrameDecoder dec(sys, table);
        while (p < size) {
            // The frame runs to the next frame's start: where it should be, or
            // wherever the next one turns up when data went missing.
            size_t end = p + frame_bytes;
            if (end > size || !frame_at(d + end, size - end)) {
                end = next_frame(d, size, p + kDif);
                if (end != p + frame_bytes) ++stats->errors;
            }
            dec.frame(d + p, end - p, stats);
            ++stats->frames;
            if (!sink(dec.picture(), user)) break;
            p = end;
        }
    }
    kpliFreeHuffmanTable_DV_32u(table);
    return 0;
}

}  // namespace

extern const kplvc::codecs::Decoder kDvDecoder;
const kplvc::codecs::Decoder kDvDecoder = {"dv", ".dv .dif", probe, decode};

}  // namespace kplvc::codecs::dv
