// The shape every encoder in codecs/ shares, beside Decoder in codec.h, so
// that the `kplvc` tool, the demo and the tests drive them all the same
// way.
//
// An encoder is created for one picture size and set of options, takes raw
// pictures one at a time in display order and appends the coded bytes of
// each to the caller's buffer; it also hands out its reconstruction of the
// picture (what a decoder will show), which is how its output is checked.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "common/picture.h"

namespace kplvc::codecs {

struct EncodeOptions {
    int width = 0, height = 0;      // luma size of every input picture
    int fps_num = 25, fps_den = 1;  // picture rate
    int qscale = 0;                 // constant quantiser; 0: rate control
    long bitrate = 0;               // bits per second when qscale is 0
    int gop = 12;                   // an intra picture every gop pictures (0: the first only)
    int search_range = 15;          // motion search, whole samples
    long frames = 0;                // pictures the caller will send (0: unknown); rate control plans with it
    // Format-specific switches; an encoder rejects what it does not have.
    bool deblock = false;          // in-loop deblocking (H.263 Annex J)
    bool advanced_intra = false;   // advanced intra coding (H.263 Annex I)
    bool extended_header = false;  // the format's extended header even when not needed (H.263+ PLUSPTYPE)
    bool mpeg_quant = false;       // MPEG-4: the first quantisation method, with the default matrices
    bool four_mv = false;          // MPEG-4: four vectors per macroblock where they pay
    bool qpel = false;             // MPEG-4: quarter-sample vectors (Advanced Simple Profile)
};

struct EncodeStats {
    long frames = 0;
    long intra_frames = 0;
    uint64_t bytes = 0;
    int last_qp = 0;
};

class Encoder {
public:
    virtual ~Encoder() = default;
    // Codes one picture of the configured size and appends its bytes to out;
    // when recon is not null it is set to the reconstruction, valid until
    // the next call. False on a picture of the wrong size.
    virtual bool encode(const Picture& in, std::vector<uint8_t>* out, Picture* recon) = 0;
    // Appends what ends the stream (an end-of-sequence code, if any).
    virtual void finish(std::vector<uint8_t>* out) = 0;
    virtual const EncodeStats& stats() const = 0;
};

struct EncoderInfo {
    const char* name;       // "h263", "mpeg4"
    const char* extension;  // of the files it writes: ".h263"
    // Null when the options do not fit the format; why says what is wrong.
    std::unique_ptr<Encoder> (*create)(const EncodeOptions& opt, char* why, size_t why_size);
};

// Every encoder, and the one of a name (or null).
const EncoderInfo* const* encoders(int* count);
const EncoderInfo* find_encoder(const char* name);

}  // namespace kplvc::codecs
