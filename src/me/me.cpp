// Motion estimation: the kernel table with its scalar references, the code
// lengths behind a vector's price, and the checks of a search record.
#include "me/me.h"

#include <cstdlib>

#include "core/arith.h"
#include "core/dispatch.h"
#include "me/price.h"

namespace kplvc::me {

namespace {

template <int N>
void sad_x4_c(const uint8_t* src, int32_t ss, const uint8_t* const* ref, int32_t rs, int32_t* sad) {
    for (int i = 0; i < 4; ++i) {
        int32_t sum = 0;
        for (int y = 0; y < N; ++y) {
            const uint8_t* s = row_at(src, ss, y);
            const uint8_t* r = row_at(ref[i], rs, y);
            for (int x = 0; x < N; ++x) sum += std::abs(s[x] - r[x]);
        }
        sad[i] = sum;
    }
}

// Column sums of 8 or 16 rows are at most 4080, and adding the new row
// before taking the old one out never exceeds 17 * 255 = 4335; unsigned
// 16-bit arithmetic is exact throughout.
void col_update_c(uint16_t* col, const uint8_t* add, const uint8_t* sub, int32_t n) {
    for (int32_t i = 0; i < n; ++i) col[i] = static_cast<uint16_t>(col[i] + add[i] - sub[i]);
}

template <int N>
void row_sums_c(const uint16_t* col, uint16_t* dst, int32_t n) {
    for (int32_t i = 0; i < n; ++i) {
        uint32_t sum = 0;
        for (int k = 0; k < N; ++k) sum += col[i + k];
        dst[i] = static_cast<uint16_t>(sum);
    }
}

int32_t sea_filter_c(const uint16_t* sums, const int32_t* price, int32_t n, int32_t sc, int32_t limit,
                     uint16_t* idx) {
    int32_t m = 0;
    for (int32_t i = 0; i < n; ++i)
        if (16 * std::abs(sc - sums[i]) + price[i] <= limit) idx[m++] = static_cast<uint16_t>(i);
    return m;
}

int32_t sea_filter_quarters_c(const uint16_t* a, const uint16_t* b, const int32_t* sq, const int32_t* price,
                              int32_t n, int32_t limit, uint16_t* idx) {
    int32_t m = 0;
    for (int32_t i = 0; i < n; ++i) {
        const int32_t gap = std::abs(sq[0] - a[i]) + std::abs(sq[1] - a[i + 8]) + std::abs(sq[2] - b[i]) +
                            std::abs(sq[3] - b[i + 8]);
        if (16 * gap + price[i] <= limit) idx[m++] = static_cast<uint16_t>(i);
    }
    return m;
}

// Lengths of the motion codes 0..32 of ISO/IEC 14496-2 Table B-12 (H.263's
// MVD code), sign bit included; +m and -m have codes of the same length.
constexpr uint8_t kMotionCodeBits[33] = {1,  3,  4,  5,  7,  8,  8,  8,  10, 10, 10, 11, 11, 11, 11, 11, 11,
                                         11, 11, 11, 11, 11, 11, 11, 11, 12, 12, 12, 12, 12, 12, 13, 13};

void install_scalar(MeKernels& k) {
    k.sad_x4[k16] = sad_x4_c<16>;
    k.sad_x4[k8] = sad_x4_c<8>;
    k.row_sums[k16] = row_sums_c<16>;
    k.row_sums[k8] = row_sums_c<8>;
    k.col_update = col_update_c;
    k.sea_filter = sea_filter_c;
    k.sea_filter_quarters = sea_filter_quarters_c;
}

constexpr Upgrade<MeKernels> kCascade[] = {
    {cpu::Isa::c, install_scalar},
    KPLVC_X86_UPGRADES({cpu::Isa::sse2, x86::sse2::upgrade_me}, {cpu::Isa::avx2, x86::avx2::upgrade_me})};

}  // namespace

MeKernels me_kernels_for(cpu::Isa isa) { return build_table(kCascade, isa); }

const MeKernels& me_kernels() { return active_table<MeKernels, me_kernels_for>(); }

// The difference is first brought into [-32f, 32f - 1] as a decoder's
// modular reconstruction allows; then code m = ((|d| - 1) >> r) + 1 with r =
// fcode - 1 residual bits.
int32_t mv_bits(int32_t d, int32_t fcode) {
    const int32_t r = fcode - 1, f = 1 << r;
    if (d < -32 * f) d += 64 * f;
    if (d > 32 * f - 1) d -= 64 * f;
    if (d == 0) return 1;
    const int32_t m = ((std::abs(d) - 1) >> r) + 1;
    return kMotionCodeBits[m] + r;
}

Setup make_setup(const KplMESearch& s) {
    return Setup{s.window.x, s.window.y, s.window.width, s.window.height, s.quarterSample ? 2 : 1,
                 s.pred.dx,  s.pred.dy,  s.lambda,       s.fcode,         s.tieRule};
}

}  // namespace kplvc::me
