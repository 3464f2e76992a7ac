#include "headers.h"

namespace kplvc::codecs::mpeg4 {

const int16_t kDefaultIntraMatrix[64] = {
    8,  17, 18, 19, 21, 23, 25, 27, 17, 18, 19, 21, 23, 25, 27, 28, 20, 21, 22, 23, 24, 26,
    28, 30, 21, 22, 23, 24, 26, 28, 30, 32, 22, 23, 24, 26, 28, 30, 32, 35, 23, 24, 26, 28,
    30, 32, 35, 38, 25, 26, 28, 30, 32, 35, 38, 41, 27, 28, 30, 32, 35, 38, 41, 45,
};

const int16_t kDefaultInterMatrix[64] = {
    16, 17, 18, 19, 20, 21, 22, 23, 17, 18, 19, 20, 21, 22, 23, 24, 18, 19, 20, 21, 22, 23,
    24, 25, 19, 20, 21, 22, 23, 24, 26, 27, 20, 21, 22, 23, 25, 26, 27, 28, 21, 22, 23, 24,
    26, 27, 28, 30, 22, 23, 24, 26, 27, 28, 30, 31, 23, 24, 25, 27, 28, 30, 31, 33,
};

// The classical zigzag: matrices arrive in this order.
const uint8_t kZigzag[64] = {
    0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,  12, 19, 26, 33, 40, 48,
    41, 34, 27, 20, 13, 6,  7,  14, 21, 28, 35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23,
    30, 37, 44, 51, 58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63,
};

namespace {

// Up to 64 eight-bit values in zigzag order; a 0 ends the list and the last
// value fills the rest.
bool read_matrix(BitReader& br, int16_t* m) {
    int last = 0;
    int i = 0;
    for (; i < 64; ++i) {
        const int v = static_cast<int>(br.get(8));
        if (v == 0) break;
        m[kZigzag[i]] = static_cast<int16_t>(v);
        last = v;
    }
    if (i == 0) return false;
    for (; i < 64; ++i) m[kZigzag[i]] = static_cast<int16_t>(last);
    return true;
}

int bits_for(int n) {
    int b = 1;
    while ((1 << b) < n) ++b;
    return b;
}

// warping_mv_code: dmv_length (Table B-33), then the value like a DC
// differential, then a marker.
int read_warp_code(BitReader& br) {
    static constexpr struct {
        uint16_t code;
        uint8_t len;
    } kLen[15] = {{0x0, 2},  {0x2, 3},   {0x3, 3},    {0x4, 3},    {0x5, 3},
                  {0x6, 3},  {0xE, 4},   {0x1E, 5},   {0x3E, 6},   {0x7E, 7},
                  {0xFE, 8}, {0x1FE, 9}, {0x3FE, 10}, {0x7FE, 11}, {0xFFE, 12}};
    int length = -1;
    for (int k = 0; k < 15; ++k)
        if (br.peek(kLen[k].len) == kLen[k].code) {
            br.skip(kLen[k].len);
            length = k;
            break;
        }
    if (length <= 0) {
        if (length < 0) br.skip(12);
        br.marker();
        return 0;
    }
    const int v = static_cast<int>(br.get(length));
    br.marker();
    return (v >> (length - 1)) ? v : v - ((1 << length) - 1);
}

}  // namespace

bool parse_vol(BitReader& br, Vol* vol, const char** why) {
    Vol v;
    br.skip(1);  // random_accessible_vol
    const int type = static_cast<int>(br.get(8));
    (void)type;
    if (br.bit()) {  // is_object_layer_identifier
        v.verid = static_cast<int>(br.get(4));
        br.skip(3);
    }
    if (br.get(4) == 15) br.skip(16);  // extended pixel aspect ratio
    if (br.bit()) {                    // vol_control_parameters
        if (br.get(2) != 1) return *why = "chroma formats other than 4:2:0 are not supported", false;
        br.skip(1);      // low_delay
        if (br.bit()) {  // vbv_parameters
            br.skip(15);
            br.marker();
            br.skip(15);
            br.marker();
            br.skip(15);
            br.marker();
            br.skip(3);
            br.skip(11);
            br.marker();
            br.skip(15);
            br.marker();
        }
    }
    v.shape = static_cast<int>(br.get(2));
    if (v.shape == 3) return *why = "grey-scale shape (alpha planes) is not supported", false;
    if (v.shape == 2) return *why = "binary-only shape video object layers are not supported", false;
    br.marker();
    v.time_res = static_cast<int>(br.get(16));
    if (v.time_res == 0) return *why = "damaged VOL header (time resolution 0)", false;
    br.marker();
    v.time_bits = bits_for(v.time_res);
    if (br.bit()) br.skip(v.time_bits);  // fixed_vop_rate
    if (v.shape == 0) {
        br.marker();
        v.width = static_cast<int>(br.get(13));
        br.marker();
        v.height = static_cast<int>(br.get(13));
        br.marker();
        if (v.width < 16 || v.height < 16 || v.width > 4096 || v.height > 4096)
            return *why = "damaged VOL header (picture size)", false;
    }
    // With binary shape the size comes with each VOP (its bounding box).
    v.interlaced = br.bit();
    br.skip(1);  // obmc_disable
    v.sprite = static_cast<int>(v.verid == 1 ? br.get(1) : br.get(2));
    if (v.sprite == kStatic || v.sprite == 3) return *why = "static sprites are not supported", false;
    if (v.sprite == kGmc) {
        v.warp_points = static_cast<int>(br.get(6));
        v.warp_accuracy = static_cast<int>(br.get(2));
        if (br.bit()) return *why = "sprite brightness change is not supported", false;
        if (v.warp_points > 3) return *why = "GMC with more than three warping points is not allowed", false;
    }
    if (br.bit()) {  // not_8_bit
        v.quant_precision = static_cast<int>(br.get(4));
        if (br.get(4) != 8) return *why = "samples other than 8 bits are not supported", false;
    }
    v.quant_type = br.bit();
    for (int i = 0; i < 64; ++i) {
        v.intra_matrix[i] = kDefaultIntraMatrix[i];
        v.inter_matrix[i] = kDefaultInterMatrix[i];
    }
    if (v.quant_type) {
        if (br.bit() && !read_matrix(br, v.intra_matrix)) return *why = "damaged VOL header (matrix)", false;
        if (br.bit() && !read_matrix(br, v.inter_matrix)) return *why = "damaged VOL header (matrix)", false;
    }
    if (v.verid != 1) v.quarter_sample = br.bit();
    if (!br.bit()) return *why = "complexity estimation headers are not supported", false;
    v.resync_disable = br.bit();
    v.data_partitioned = br.bit();
    if (v.data_partitioned) {
        v.rvlc_bit = br.byte_pos() * 8 + static_cast<size_t>(br.bit_off());
        v.rvlc = br.bit();
        if (v.interlaced) return *why = "data partitioning of interlaced VOPs is not supported", false;
    }
    if (v.shape != 0) {
        if (v.interlaced) return *why = "interlaced VOPs with binary shape are not supported", false;
        if (v.sprite != kNoSprite) return *why = "sprites with binary shape are not supported", false;
        if (v.data_partitioned) return *why = "data partitioning with binary shape is not supported", false;
    }
    if (v.verid != 1) {
        if (br.bit()) return *why = "NEWPRED is not supported", false;
        if (br.bit()) return *why = "reduced-resolution VOPs are not supported", false;
    }
    if (br.bit()) return *why = "scalable video object layers are not supported", false;
    if (br.overrun()) return *why = "damaged VOL header (truncated)", false;
    v.valid = true;
    *vol = v;
    return true;
}

bool parse_vop(BitReader& br, const Vol& vol, Vop* vop, const char** why) {
    Vop v;
    v.type = static_cast<int>(br.get(2));
    while (br.bit()) {
        if (++v.modulo > 3600 || br.overrun()) return *why = "damaged VOP header", false;
    }
    br.marker();
    v.increment = static_cast<int>(br.get(vol.time_bits));
    br.marker();
    v.coded = br.bit();
    if (!v.coded) {
        *vop = v;
        return true;
    }
    if (v.type == kS && vol.sprite != kGmc) return *why = "damaged VOP header (S-VOP without GMC)", false;
    if (v.type == kP || (v.type == kS)) v.rounding = static_cast<int>(br.get(1));
    if (vol.shape != 0) {
        // The bounding box: size, then the position as 13-bit two's
        // complement numbers; then change_conv_ratio_disable and the
        // constant alpha (a composition hint, skipped).
        v.vop_width = static_cast<int>(br.get(13));
        br.marker();
        v.vop_height = static_cast<int>(br.get(13));
        br.marker();
        auto signed13 = [](uint32_t u) { return static_cast<int>(u) - ((u & 0x1000u) ? 0x2000 : 0); };
        v.hor_ref = signed13(br.get(13));
        br.marker();
        v.ver_ref = signed13(br.get(13));
        br.marker();
        v.conv_ratio_disable = br.bit();
        if (br.bit()) br.skip(8);  // vop_constant_alpha_value
        if (v.vop_width < 1 || v.vop_height < 1 || v.vop_width > 4096 || v.vop_height > 4096)
            return *why = "damaged VOP header (bounding box)", false;
    }
    v.dc_thr = static_cast<int>(br.get(3));
    if (vol.interlaced) {
        v.top_field_first = br.bit();
        v.alt_scan = br.bit();
    }
    if (v.type == kS && vol.warp_points > 0) {
        for (int n = 0; n < vol.warp_points; ++n) {
            v.warp_du[n] = read_warp_code(br);
            v.warp_dv[n] = read_warp_code(br);
        }
    }
    v.quant = static_cast<int>(br.get(vol.quant_precision));
    if (v.quant < 1 || v.quant > 31) return *why = "damaged VOP header (quantiser 0)", false;
    if (v.type != kI) {
        v.fcode_f = static_cast<int>(br.get(3));
        if (v.fcode_f == 0) return *why = "damaged VOP header (f_code 0)", false;
    }
    if (v.type == kB) {
        v.fcode_b = static_cast<int>(br.get(3));
        if (v.fcode_b == 0) return *why = "damaged VOP header (f_code 0)", false;
    }
    if (vol.shape != 0 && v.type != kI) v.inter_shape = br.bit();
    if (br.overrun()) return *why = "damaged VOP header (truncated)", false;
    *vop = v;
    return true;
}

bool parse_short_header(BitReader& br, Vol* vol, Vop* vop, const char** why) {
    // temporal_reference (8), marker 1, zero bit, split screen, document
    // camera, freeze release, source format (3), picture coding type,
    // four zero bits, quantiser (5), zero bit, then PEI + PSPARE bytes.
    Vop v;
    v.increment = static_cast<int>(br.get(8));
    if (!br.bit() || br.bit()) return *why = "damaged short video header", false;
    br.skip(3);
    const int format = static_cast<int>(br.get(3));
    static constexpr int kW[6] = {0, 128, 176, 352, 704, 1408}, kH[6] = {0, 96, 144, 288, 576, 1152};
    if (format < 1 || format > 5) return *why = "short video header: unsupported source format", false;
    v.type = br.bit() ? kP : kI;
    if (br.get(4) != 0) return *why = "short video header: optional H.263 modes are not allowed", false;
    v.quant = static_cast<int>(br.get(5));
    if (v.quant == 0) return *why = "damaged short video header (quantiser 0)", false;
    br.skip(1);
    while (br.bit()) {
        br.skip(8);
        if (br.overrun()) return *why = "damaged short video header", false;
    }
    const int w = kW[format], h = kH[format];
    if (!vol->valid || !vol->short_header || vol->width != w || vol->height != h) {
        Vol s;
        s.valid = true;
        s.short_header = true;
        s.width = w;
        s.height = h;
        s.time_res = 30000;
        s.time_bits = 8;
        s.resync_disable = true;
        for (int i = 0; i < 64; ++i) {
            s.intra_matrix[i] = kDefaultIntraMatrix[i];
            s.inter_matrix[i] = kDefaultInterMatrix[i];
        }
        *vol = s;
    }
    v.gob_count = h <= 288 ? h / 16 : h / 32;
    *vop = v;
    return true;
}

}  // namespace kplvc::codecs::mpeg4
