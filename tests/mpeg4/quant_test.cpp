#include <cstdint>
#include <cstring>
#include <vector>

#include "kplvc.h"
#include "mpeg4/quant.h"
#include "support/support.h"

using kplvc::mpeg4::QuantKernels;
using kplvc::test::Guarded;
using kplvc::test::Rng;
using kplvc::test::variants;

namespace {

struct Block {
    int16_t v[64] = {};
};

Block flat_weights(int16_t w) {
    Block b;
    for (auto& x : b.v) x = w;
    return b;
}

int32_t block_sum(const int16_t* b) {
    int32_t s = 0;
    for (int i = 0; i < 64; ++i) s += b[i];
    return s;
}

int32_t sgn(int32_t c) { return (c > 0) - (c < 0); }

int16_t div_clamp(int64_t num, int64_t den) {
    const int64_t v = num / den;
    return static_cast<int16_t>(v < -2048 ? -2048 : (v > 2047 ? 2047 : v));
}

enum Form { kIntra, kInterW, kInterFlat };

KplStatus run(Form f, int16_t* b, int32_t qp, const int16_t* w) {
    switch (f) {
        case kIntra:
            return kpliQuantInvIntra_MPEG4_16s_C1I(b, qp, w);
        case kInterW:
            return kpliQuantInv_MPEG4_16s_C1I(b, qp, w);
        default:
            return kpliQuantInv_MPEG4_16s_C1I(b, qp, nullptr);
    }
}

}  // namespace

// ---- Behaviour --------------------------------------------------------------------

// One coefficient at `pos` (0: none) besides the DC: wraps, clamps, QP outside
// 1..31 and mismatch control (the random test below covers the plain
// truncating division).
TEST(Mpeg4QuantInv, WorkedCases) {
    struct Case {
        const char* what;
        Form form;
        int16_t dc;
        int pos;
        int16_t c;
        int32_t qp;
        int16_t w, want_dc, want_pos, want_last;
    };
    const Case cases[] = {
        {"intra zeros, DC 0: last becomes 1", kIntra, 0, 0, 0, 5, 16, 0, 0, 1},
        {"intra DC 5 alone: odd, unchanged", kIntra, 5, 0, 0, 5, 16, 5, 0, 0},
        {"intra -1 QP 1 W 8: (-8 + 7) >> 3", kIntra, 1, 9, -1, 1, 8, 1, -1, 1},
        {"intra 2047 QP 31 W 16 wraps to 4034, clamped", kIntra, 1, 9, 2047, 31, 16, 1, 2047, 1},
        {"intra DC never scaled", kIntra, -32768, 9, 0, 31, 16, -32768, 0, 1},
        {"inter flat no shift: 2 QP 4 -> 20, even", kInterFlat, 2, 0, 0, 4, 0, 20, 0, 1},
        {"inter flat 1000 QP 31 wraps to -3505 -> -2048", kInterFlat, 0, 9, 1000, 31, 0, 0, -2048, 1},
        {"inter flat 2047 QP 31 wraps", kInterFlat, 0, 9, 2047, 31, 0, 0, -2048, 1},
        {"inter W16 2047 QP 31 wraps to -31 (flat: -2048)", kInterW, 0, 9, 2047, 31, 16, 0, -31, 0},
        {"inter W16 -5 QP 3: (-33·16 + 15) >> 4", kInterW, 0, 9, -5, 3, 16, 0, -33, 0},
        {"inter W16 QP 65536+3 uses low bits", kInterW, 0, 9, 5, 65536 + 3, 16, 0, 33, 0},
        {"inter W16 QP 0", kInterW, 0, 9, 5, 0, 16, 0, 0, 1},
    };
    for (const auto& c : cases) {
        Block b;
        b.v[0] = c.dc;
        b.v[c.pos] = c.pos != 0 ? c.c : c.dc;
        const Block w = flat_weights(c.w);
        ASSERT_EQ(run(c.form, b.v, c.qp, w.v), kplStsNoErr);
        EXPECT_EQ(b.v[0], c.want_dc) << c.what;
        for (int i = 1; i < 63; ++i) EXPECT_EQ(b.v[i], i == c.pos ? c.want_pos : 0) << c.what << " at " << i;
        EXPECT_EQ(b.v[63], c.want_last) << c.what;
        EXPECT_EQ(block_sum(b.v) & 1, 1) << c.what;
    }
}

TEST(Mpeg4QuantInv, WithoutWrapIsTruncatingDivision) {
    Rng rng(4001);
    for (int iter = 0; iter < 3000; ++iter) {
        SCOPED_TRACE(iter);
        const Form form = static_cast<Form>(iter % 3);
        const int32_t qp = rng.range(1, 31);
        Block c, w, want;
        for (int i = 0; i < 64; ++i) {
            w.v[i] = static_cast<int16_t>(rng.range(1, 255));
            const int32_t wt = form == kInterFlat ? 1 : w.v[i];
            const int32_t lim = form == kIntra ? 32767 / (qp * wt) : (32767 / (qp * wt) - 1) / 2;
            c.v[i] = static_cast<int16_t>(rng.range(-lim, lim));
            const int64_t x = c.v[i];
            if (form == kIntra)
                want.v[i] = i == 0 ? c.v[0] : div_clamp(x * qp * w.v[i], 8);
            else if (form == kInterW)
                want.v[i] = div_clamp((2 * x + sgn(c.v[i])) * qp * w.v[i], 16);
            else
                want.v[i] = div_clamp((2 * x + sgn(c.v[i])) * qp, 1);
        }
        Block b = c;
        ASSERT_EQ(run(form, b.v, qp, w.v), kplStsNoErr);
        for (int i = 0; i < 63; ++i) ASSERT_EQ(b.v[i], want.v[i]) << "form " << form << " i " << i;
        const bool even = (block_sum(want.v) & 1) == 0;
        EXPECT_EQ(b.v[63], even ? (want.v[63] ^ 1) : want.v[63]) << "form " << form;
    }
}

// ---- Argument checks ------------------------------------------------------------

TEST(Mpeg4QuantArgs, NullPointersLeaveTheBlock) {
    Guarded g(128), wg(128);
    auto* blk = g.as<Kpl16s>();
    for (int i = 0; i < 64; ++i) blk[i] = static_cast<Kpl16s>(i * 51 - 1500);
    const std::vector<uint8_t> before(g.data(), g.data() + 128);
    auto* w = wg.as<Kpl16s>();
    for (int i = 0; i < 64; ++i) w[i] = 16;
    struct C {
        const char* what;
        KplStatus got, want;
    };
    const C cases[] = {
        {"intra block", kpliQuantInvIntra_MPEG4_16s_C1I(nullptr, 3, w), kplStsNullPtrErr},
        {"intra weights", kpliQuantInvIntra_MPEG4_16s_C1I(blk, 3, nullptr), kplStsNullPtrErr},
        {"intra both", kpliQuantInvIntra_MPEG4_16s_C1I(nullptr, 0, nullptr), kplStsNullPtrErr},
        {"inter block", kpliQuantInv_MPEG4_16s_C1I(nullptr, 3, w), kplStsNullPtrErr},
        {"inter block, no weights", kpliQuantInv_MPEG4_16s_C1I(nullptr, 3, nullptr), kplStsNullPtrErr},
    };
    for (const auto& c : cases) EXPECT_EQ(c.got, c.want) << c.what;
    EXPECT_EQ(std::vector<uint8_t>(g.data(), g.data() + 128), before);
    EXPECT_TRUE(g.intact() && wg.intact());
}

// ---- Variants against the reference -----------------------------------------------

namespace {

using DequantFn = kplvc::mpeg4::DequantFn;

int32_t pick_qp(Rng& rng) {
    const int32_t odd[] = {0,     -1,    32,         63,         255,       4095,
                           32767, 32768, 65536 + 31, -65536 - 5, INT32_MAX, INT32_MIN};
    const int k = rng.range(0, 3);
    return k == 0 ? odd[rng.range(0, 11)] : k == 1 ? static_cast<int32_t>(rng.u32()) : rng.range(1, 31);
}

// Every SIMD version of `member` against the c table's, on misaligned guarded
// blocks; the weights must stay unchanged. Each SIMD level the CPU has (SSE2,
// AVX2) must bring its own version, so that the comparison reaches them all.
void compare(DequantFn QuantKernels::*member, bool uses_weights) {
    const QuantKernels ref = kplvc::mpeg4::quant_kernels_for(kplvc::cpu::Isa::c);
    size_t levels = 0;
    for (auto isa : kplvc::test::simd_levels())
        levels += isa == kplvc::cpu::Isa::sse2 || isa == kplvc::cpu::Isa::avx2;
    const auto vs = variants(kplvc::mpeg4::quant_kernels_for, member);
    EXPECT_EQ(vs.size(), levels);
    for (auto [isa, fn] : vs) {
        SCOPED_TRACE(kplvc::cpu::isa_name(isa));
        Rng rng(4100 + static_cast<int>(isa));
        for (int iter = 0; iter < 3000; ++iter) {
            const size_t mis = 2 * static_cast<size_t>(rng.range(0, 15));
            Guarded a(128, mis), b(128, mis), wg(128, 2 * static_cast<size_t>(rng.range(0, 15)));
            int16_t* blk = a.as<int16_t>();
            switch (rng.range(0, 3)) {
                case 0:
                    rng.fill(blk, 64);
                    break;
                case 1:
                    rng.fill(blk, 64, -2048, 2047);
                    break;
                case 2:
                    rng.fill(blk, 64, -6, 6);
                    break;
                default:
                    rng.fill_extreme(blk, 64);
                    break;
            }
            std::memcpy(b.data(), a.data(), 128);
            int16_t* w = wg.as<int16_t>();
            if (iter < 255)
                for (int i = 0; i < 64; ++i) w[i] = static_cast<int16_t>(iter + 1);  // every weight 1..255
            else if (rng.coin())
                rng.fill(w, 64, 1, 255);
            else
                rng.fill_extreme(w, 64);
            const std::vector<uint8_t> w_before(wg.data(), wg.data() + 128);
            const int32_t qp = pick_qp(rng);
            (ref.*member)(a.as<int16_t>(), qp, uses_weights ? w : nullptr);
            fn(b.as<int16_t>(), qp, uses_weights ? w : nullptr);
            ASSERT_EQ(std::memcmp(a.data(), b.data(), 128), 0) << "iter " << iter << " qp " << qp;
            ASSERT_TRUE(a.intact() && b.intact() && wg.intact());
            ASSERT_EQ(std::vector<uint8_t>(wg.data(), wg.data() + 128), w_before);
        }
    }
}

}  // namespace

TEST(Mpeg4QuantVariants, MatchReference) {
    compare(&QuantKernels::dequant_intra, true);
    compare(&QuantKernels::dequant_inter, true);
    compare(&QuantKernels::dequant_flat, false);
}
