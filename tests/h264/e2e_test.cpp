// End to end: a synthetic picture is coded as 4x4 intra blocks (mode by
// least SAD, residual transformed and quantised), reconstructed through the
// decoder side (dequantise, inverse transform, add), and deblocked. The
// reconstruction must stay within the quantiser's error of the source, and
// the deblocking must act on the block edges without moving away from it.
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "kplvc.h"
#include "support/support.h"

namespace {

constexpr int W = 64, H = 64, S = W;

struct DeblockRow {
    int alpha, beta, tc0[3];
};

DeblockRow deblock_row(int index) {
    std::ifstream in(std::string(KPLVC_TEST_DATA_DIR) + "/h264_deblock_tables.txt");
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream ls(line);
        int i;
        DeblockRow r;
        ls >> i >> r.alpha >> r.beta >> r.tc0[0] >> r.tc0[1] >> r.tc0[2];
        if (i == index) return r;
    }
    ADD_FAILURE() << "no deblocking row " << index;
    return {};
}

// Smooth gradients, a soft diagonal edge and a little texture.
std::vector<uint8_t> synthetic_picture() {
    std::vector<uint8_t> pic(W * H);
    kplvc::test::Rng rng(2024);
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) {
            double v =
                60 + 1.5 * x + 0.8 * y + (x + y > 70 ? 50 : 0) + 12 * std::sin(x * 0.3) * std::cos(y * 0.2);
            v += rng.range(-3, 3);
            pic[static_cast<size_t>(y * W + x)] =
                static_cast<uint8_t>(std::lround(std::fmin(255.0, std::fmax(0.0, v))));
        }
    return pic;
}

int availability(int bx, int by) {
    int a = 0;
    if (by > 0) a |= 1;
    if (bx > 0) a |= 2;
    if (bx > 0 && by > 0) a |= 32;
    if (by > 0 && bx + 4 < W) a |= 64;  // blocks are coded in picture raster order
    return a;
}

double psnr(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
    double se = 0;
    for (size_t i = 0; i < a.size(); ++i) se += (a[i] - b[i]) * (a[i] - b[i]);
    return 10 * std::log10(255.0 * 255.0 * a.size() / (se > 0 ? se : 1e-9));
}

// Codes the picture at QP; returns the reconstruction before deblocking.
std::vector<uint8_t> code_picture(const std::vector<uint8_t>& src, int qp, int* modes_used) {
    std::vector<uint8_t> rec(W * H, 0);
    const int16_t scan[16] = {0, 1, 4, 8, 5, 2, 3, 6, 9, 12, 13, 10, 7, 11, 14, 15};
    for (int by = 0; by < H; by += 4)
        for (int bx = 0; bx < W; bx += 4) {
            const int avail = availability(bx, by);
            uint8_t* blk = rec.data() + by * S + bx;
            // Try every mode on the reconstructed neighbours; keep the best.
            int best_mode = 2, best_sad = 1 << 30;
            uint8_t best_pred[16];
            for (int mode = 0; mode < 9; ++mode) {
                std::vector<uint8_t> scratch(rec);  // prediction writes into the frame
                uint8_t* b = scratch.data() + by * S + bx;
                const KplStatus st = kpliPredictIntra_4x4_H264_8u_C1IR(b, S, mode, avail);
                if (st != kplStsNoErr) {
                    continue;  // a mode that had to substitute a neighbour
                }
                int sad = 0;
                for (int y = 0; y < 4; ++y)
                    for (int x = 0; x < 4; ++x)
                        sad += std::abs(b[y * S + x] - src[static_cast<size_t>((by + y) * W + bx + x)]);
                if (sad < best_sad) {
                    best_sad = sad, best_mode = mode;
                    for (int y = 0; y < 4; ++y) std::memcpy(best_pred + 4 * y, b + y * S, 4);
                }
            }
            modes_used[best_mode]++;
            int16_t coef[16];
            for (int y = 0; y < 4; ++y)
                for (int x = 0; x < 4; ++x)
                    coef[4 * y + x] = static_cast<int16_t>(src[static_cast<size_t>((by + y) * W + bx + x)] -
                                                           best_pred[4 * y + x]);
            Kpl8u count = 0, last = 0;
            EXPECT_EQ(kpliTransformQuantResidual_H264_16s_C1I(coef, qp, &count, 1, scan, &last), kplStsNoErr);
            EXPECT_EQ(
                kpliDequantTransformResidualAndAdd_H264_16s_C1I(best_pred, coef, nullptr, blk, 4, S, qp, 1),
                kplStsNoErr);
        }
    return rec;
}

void deblock_picture(std::vector<uint8_t>& rec, int qp) {
    const DeblockRow r = deblock_row(qp);
    const Kpl8u alpha[2] = {static_cast<Kpl8u>(r.alpha), static_cast<Kpl8u>(r.alpha)};
    const Kpl8u beta[2] = {static_cast<Kpl8u>(r.beta), static_cast<Kpl8u>(r.beta)};
    // Intra macroblocks: strength 4 on macroblock edges, 3 inside.
    for (int my = 0; my < H; my += 16)
        for (int mx = 0; mx < W; mx += 16) {
            Kpl8u bs_v[16], bs_h[16], tc0[16];
            for (int i = 0; i < 16; ++i) {
                bs_v[i] = i < 4 ? (mx > 0 ? 4 : 0) : 3;
                bs_h[i] = i < 4 ? (my > 0 ? 4 : 0) : 3;
                tc0[i] = static_cast<Kpl8u>(r.tc0[2]);
            }
            uint8_t* mb = rec.data() + my * S + mx;
            ASSERT_EQ(kpliFilterDeblockingLuma_VerEdge_H264_8u_C1IR(mb, S, alpha, beta, tc0, bs_v),
                      kplStsNoErr);
            ASSERT_EQ(kpliFilterDeblockingLuma_HorEdge_H264_8u_C1IR(mb, S, alpha, beta, tc0, bs_h),
                      kplStsNoErr);
        }
}

// Sum of the absolute steps across every vertical and horizontal 4x4 edge.
long edge_steps(const std::vector<uint8_t>& p) {
    long sum = 0;
    for (int y = 0; y < H; ++y)
        for (int x = 4; x < W; x += 4)
            sum += std::abs(p[static_cast<size_t>(y * W + x)] - p[static_cast<size_t>(y * W + x - 1)]);
    for (int y = 4; y < H; y += 4)
        for (int x = 0; x < W; ++x)
            sum += std::abs(p[static_cast<size_t>(y * W + x)] - p[static_cast<size_t>((y - 1) * W + x)]);
    return sum;
}

}  // namespace

TEST(H264EndToEnd, IntraCodingReconstructsWithinQuantisationError) {
    const auto src = synthetic_picture();
    struct Case {
        int qp;
        double min_psnr;  // for the quantiser step of this QP
    };
    double prev = 1e9;
    for (Case c : {Case{12, 44.0}, Case{24, 36.0}, Case{36, 28.0}}) {
        SCOPED_TRACE(c.qp);
        int modes[9] = {};
        auto rec = code_picture(src, c.qp, modes);
        const double before = psnr(src, rec);
        EXPECT_GT(before, c.min_psnr);
        EXPECT_LT(before, prev);  // a coarser quantiser loses more
        prev = before;
        // Per sample, the error stays within a few quantiser steps
        // (Qstep = 0.625 * 2^(QP / 6)).
        const double qstep = 0.625 * std::pow(2.0, c.qp / 6.0);
        for (size_t i = 0; i < src.size(); ++i) ASSERT_LE(std::abs(src[i] - rec[i]), 3 * qstep + 2) << i;
        int used = 0;
        for (int m : modes) used += m > 0;
        EXPECT_GE(used, 4);  // the picture exercises several directions
        auto deblocked = rec;
        deblock_picture(deblocked, c.qp);
        int changed = 0;
        for (size_t i = 0; i < rec.size(); ++i) changed += rec[i] != deblocked[i];
        // The filter smooths the steps across the 4x4 edges.
        if (c.qp >= 24) {
            EXPECT_LT(edge_steps(deblocked), edge_steps(rec));
            EXPECT_GT(changed, 0);
        }
        EXPECT_GT(psnr(src, deblocked), before - 1.0);
    }
}
