// The MPEG-2 decoder's inverse DCT (the library's table-driven inverse)
// against the IEEE 1180-1990 accuracy test that ISO/IEC 13818-2 Annex A
// refers to: six sets of 10,000 random blocks (ranges -256..255, -5..5,
// -300..300, each also with every sign inverted) taken through a
// double-precision forward DCT, rounded and clipped to -2048..2047, then
// inverted by the transform under test and by a double-precision
// reference. The matrix-engine (AANTransposed) inverse, which rounds with
// 0.625 of a unit in its second pass, is run through the same procedure to
// show that the test tells a transform that misses the limits.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "kplvc.h"

namespace {

// The test's generator: a linear congruential sequence, scaled into L..H.
class IeeeRandom {
public:
    long next(long low, long high) {
        x_ = x_ * 1103515245u + 12345u;
        const long i = static_cast<long>(x_ & 0x7FFFFFFEu);
        double v = static_cast<double>(i) / static_cast<double>(0x7FFFFFFF);
        v *= static_cast<double>(low + high + 1);
        return static_cast<long>(v) - low;
    }

private:
    uint32_t x_ = 1;
};

struct Basis {
    double c[8][8];  // c[k][n] = C(k)/2 * cos((2n + 1) k pi / 16)
    Basis() {
        const double pi = std::acos(-1.0);
        for (int k = 0; k < 8; ++k)
            for (int n = 0; n < 8; ++n)
                c[k][n] = (k == 0 ? std::sqrt(0.125) : 0.5) * std::cos((2 * n + 1) * k * pi / 16);
    }
};
const Basis& basis() {
    static const Basis b;
    return b;
}

// Separable double-precision transforms on row-major 8x8 blocks.
void forward(const double in[64], double out[64]) {
    const Basis& b = basis();
    double t[64];
    for (int y = 0; y < 8; ++y)
        for (int u = 0; u < 8; ++u) {
            double s = 0;
            for (int x = 0; x < 8; ++x) s += b.c[u][x] * in[8 * y + x];
            t[8 * y + u] = s;
        }
    for (int v = 0; v < 8; ++v)
        for (int u = 0; u < 8; ++u) {
            double s = 0;
            for (int y = 0; y < 8; ++y) s += b.c[v][y] * t[8 * y + u];
            out[8 * v + u] = s;
        }
}

void inverse(const double in[64], double out[64]) {
    const Basis& b = basis();
    double t[64];
    for (int v = 0; v < 8; ++v)
        for (int x = 0; x < 8; ++x) {
            double s = 0;
            for (int u = 0; u < 8; ++u) s += b.c[u][x] * in[8 * v + u];
            t[8 * v + x] = s;
        }
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x) {
            double s = 0;
            for (int v = 0; v < 8; ++v) s += b.c[v][y] * t[8 * v + x];
            out[8 * y + x] = s;
        }
}

long clip(long v, long lo, long hi) { return v < lo ? lo : (v > hi ? hi : v); }

// The statistics the test bounds.
struct Accuracy {
    int peak = 0;           // largest |error| of any sample
    double worst_pmse = 0;  // largest mean square error of a position
    double omse = 0;        // mean square error over all samples
    double worst_pme = 0;   // largest |mean error| of a position
    double ome = 0;         // mean error over all samples
    bool passes() const {
        return peak <= 1 && worst_pmse <= 0.06 && omse <= 0.02 && worst_pme <= 0.015 &&
               std::fabs(ome) <= 0.0015;
    }
};

using Inverse = void (*)(const Kpl16s* coef, long* out);

void table_driven(const Kpl16s* coef, long* out) {
    Kpl16s r[64];
    ASSERT_EQ(kpliDCT8x8Inv_16s_C1(coef, r), kplStsNoErr);
    for (int i = 0; i < 64; ++i) out[i] = r[i];
}

void matrix_engine(const Kpl16s* coef, long* out) {
    Kpl16s t[64], r[64];
    for (int i = 0; i < 64; ++i) t[8 * (i & 7) + (i >> 3)] = coef[i];  // its transposed input
    ASSERT_EQ(kpliDCT8x8Inv_AANTransposed_16s_C1R(t, r, 16, 64), kplStsNoErr);
    for (int i = 0; i < 64; ++i) out[i] = r[i];
}

Accuracy run(Inverse inv, long low, long high, int sign, int blocks) {
    IeeeRandom rnd;
    long err_sum[64] = {}, sq_sum[64] = {};
    Accuracy a;
    for (int n = 0; n < blocks; ++n) {
        double pix[64], f[64];
        for (double& p : pix) p = static_cast<double>(rnd.next(low, high) * sign);
        forward(pix, f);
        Kpl16s coef[64];
        double fr[64], ref[64];
        for (int i = 0; i < 64; ++i) {
            coef[i] = static_cast<Kpl16s>(clip(std::lround(f[i]), -2048, 2047));
            fr[i] = coef[i];
        }
        inverse(fr, ref);
        long test[64];
        inv(coef, test);
        for (int i = 0; i < 64; ++i) {
            const long e = clip(test[i], -256, 255) - clip(std::lround(ref[i]), -256, 255);
            a.peak = std::max(a.peak, static_cast<int>(std::labs(e)));
            err_sum[i] += e;
            sq_sum[i] += e * e;
        }
    }
    long total = 0, total_sq = 0;
    for (int i = 0; i < 64; ++i) {
        a.worst_pme = std::max(a.worst_pme, std::fabs(static_cast<double>(err_sum[i]) / blocks));
        a.worst_pmse = std::max(a.worst_pmse, static_cast<double>(sq_sum[i]) / blocks);
        total += err_sum[i];
        total_sq += sq_sum[i];
    }
    a.ome = static_cast<double>(total) / (64.0 * blocks);
    a.omse = static_cast<double>(total_sq) / (64.0 * blocks);
    return a;
}

TEST(Mpeg2Idct, MeetsIeee1180) {
    struct Case {
        long low, high;
        int sign;
    } cases[] = {{256, 255, 1}, {256, 255, -1}, {5, 5, 1}, {5, 5, -1}, {300, 300, 1}, {300, 300, -1}};
    for (const Case& c : cases) {
        const Accuracy a = run(table_driven, c.low, c.high, c.sign, 10000);
        EXPECT_TRUE(a.passes()) << "range -" << c.low << ".." << c.high << " sign " << c.sign << ": peak "
                                << a.peak << " pmse " << a.worst_pmse << " omse " << a.omse << " pme "
                                << a.worst_pme << " ome " << a.ome;
    }
    // The same procedure rejects the matrix engine (its overall mean error
    // is far beyond 0.0015).
    EXPECT_FALSE(run(matrix_engine, 256, 255, 1, 2000).passes());
    // An all-zero block gives all zeros.
    Kpl16s zero[64] = {};
    long out[64];
    table_driven(zero, out);
    for (long v : out) EXPECT_EQ(v, 0);
}

}  // namespace
