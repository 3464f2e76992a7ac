// MPEG-4 rate control: the quadratic rate model of the MPEG-4 verification
// model (ISO/IEC 14496-2 Annex L), on a caller-owned state. The header
// describes each step; the comments here say why the arithmetic is safe.
//
// Everything is IEEE double (the x86 builds use SSE arithmetic, never x87),
// so the same inputs give the same quantisers on every machine.
#include <cmath>
#include <cstring>

#include "kplvc.h"

namespace {

constexpr int kWindow = KPLVC_RC_WINDOW;

bool bad_mad(double mad) { return !(mad >= 0.0) || std::isinf(mad); }  // NaN fails the comparison

// The least-squares line y = x1 + x2 x through (1 / Q, R Q / S) over the
// entries whose `use` flag is set. Identical Q (or one entry) leave x2
// undetermined: the model falls back to the first-order R = x1 S / Q.
void fit(const KplRateControl_MPEG4& st, const bool* use, int n, double* x1, double* x2) {
    double sx = 0, sy = 0, sxx = 0, sxy = 0;
    int m = 0;
    bool same_q = true;
    for (int i = 0; i < n; ++i) {
        if (!use[i]) continue;
        const double x = 1.0 / st.histQP[i],
                     y = st.histBits[i] * static_cast<double>(st.histQP[i]) / st.histMAD[i];
        sx += x;
        sy += y;
        sxx += x * x;
        sxy += x * y;
        same_q = same_q && st.histQP[i] == st.histQP[0];
        ++m;
    }
    const double det = m * sxx - sx * sx;
    if (m < 2 || same_q || !(det > 0.0)) {
        *x2 = 0.0;
        *x1 = sy / m;
        return;
    }
    *x2 = (m * sxy - sx * sy) / det;
    *x1 = (sy - *x2 * sx) / m;
}

// A state as Init and Update leave it. The fields are the caller's to read
// (and to write), so a state is checked before use: a count beyond the
// history would index past it, a channel draining nothing would never end
// the skipping loop.
bool valid(const KplRateControl_MPEG4& st) {
    const auto finite = [](double v) { return std::isfinite(v); };
    if (!finite(st.bitRate) || !(st.bitsPerVOP > 0) || !finite(st.bitsPerVOP) ||
        !(st.bufferSize >= 2 * st.bitsPerVOP) || !finite(st.bufferSize) || !finite(st.bufferLevel) ||
        !finite(st.bitsLeft) || !finite(st.x1) || !finite(st.x2) || !finite(st.lastMAD))
        return false;
    if (st.vopsLeft < 0 || st.qp < 1 || st.qp > 31 || st.count < 0 || st.count > kWindow ||
        st.lastHeaderBits < 0)
        return false;
    for (int i = 0; i < st.count; ++i)
        if (st.histQP[i] < 1 || st.histQP[i] > 31 || st.histBits[i] < 1 || !(st.histMAD[i] > 0) ||
            !finite(st.histMAD[i]))
            return false;
    return true;
}

double model_bits(double x1, double x2, int q, double s) {
    return s * (x1 / q + x2 / (static_cast<double>(q) * q));
}

}  // namespace

extern "C" {

KPLVC_API KplStatus kpliRateControlInit_MPEG4(KplRateControl_MPEG4* pState, Kpl32s bitRate, Kpl32s rateNum,
                                              Kpl32s rateDen, Kpl32s totalVOPs, Kpl32s bufferSize,
                                              Kpl32s firstQP) {
    if (pState == nullptr) return kplStsNullPtrErr;
    if (bitRate < 1 || rateNum < 1 || rateDen < 1 || totalVOPs < 1) return kplStsBadArgErr;
    const double per_vop = static_cast<double>(bitRate) * rateDen / rateNum;
    if (bufferSize < 2 * per_vop) return kplStsBadArgErr;
    if (firstQP < 1 || firstQP > 31) return kplStsMPEG4QPErr;
    KplRateControl_MPEG4 st;
    std::memset(&st, 0, sizeof st);
    st.bitRate = bitRate;
    st.bitsPerVOP = per_vop;
    st.bufferSize = bufferSize;
    st.bufferLevel = bufferSize / 2.0;
    st.bitsLeft = per_vop * totalVOPs;
    st.vopsLeft = totalVOPs;
    st.qp = firstQP;
    *pState = st;
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliRateControlQP_MPEG4(const KplRateControl_MPEG4* pState, double mad, Kpl32s* pQP,
                                            Kpl32s* pTarget) {
    if (pState == nullptr || pQP == nullptr) return kplStsNullPtrErr;
    if (!valid(*pState) || bad_mad(mad)) return kplStsBadArgErr;
    const KplRateControl_MPEG4& st = *pState;
    const double rs = st.bitRate, rp = st.bitsPerVOP, bs = st.bufferSize, b = st.bufferLevel;

    // Steps 1 to 3: the target.
    double t = st.vopsLeft > 0 ? st.bitsLeft / st.vopsLeft : rp;
    if (st.vopsLeft > 0 && st.lastBits > 0) t = 0.95 * t + 0.05 * st.lastBits;
    if (t < rs / 30) t = rs / 30;
    t = t * (b + 2 * (bs - b)) / (2 * b + (bs - b));  // b in [0, 0.8 bs] after an update: no zero divisor
    if (b + t > 0.9 * bs)
        t = std::fmax(rs / 30, 0.9 * bs - b);
    else if (b - rp + t < 0.1 * bs)
        t = rp - b + 0.1 * bs;

    // Step 4: the quantiser.
    const int lo = st.qp * 3 / 4 > 1 ? st.qp * 3 / 4 : 1;                // floor(0.75 qp)
    const int hi = (st.qp * 5 + 3) / 4 < 31 ? (st.qp * 5 + 3) / 4 : 31;  // ceil(1.25 qp)
    int q = st.qp;
    if (st.count > 0) {
        if (mad == 0.0) {
            q = lo;
        } else {
            const double tex = std::fmax(t - st.lastHeaderBits, rp / 8);
            const double a = st.x1 * mad, c = st.x2 * mad;
            double qf = a / tex;
            if (c != 0.0) {
                const double root = (a + std::sqrt(a * a + 4 * c * tex)) / (2 * tex);
                if (root > 0.0) qf = root;  // also false for NaN (a negative discriminant)
            }
            // Clamp before converting: qf may be huge, negative or NaN.
            if (!(qf >= lo)) qf = lo;
            if (qf > hi) qf = hi;
            q = static_cast<int>(std::lround(qf));
            q = q < lo ? lo : (q > hi ? hi : q);
        }
    }
    *pQP = q;
    if (pTarget != nullptr) *pTarget = static_cast<Kpl32s>(std::lround(std::fmin(t, 2147483647.0)));
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliRateControlUpdate_MPEG4(KplRateControl_MPEG4* pState, Kpl32s qp, Kpl32s bits,
                                                Kpl32s headerBits, double mad, Kpl32s* pSkip) {
    if (pState == nullptr) return kplStsNullPtrErr;
    if (!valid(*pState)) return kplStsBadArgErr;
    if (qp < 1 || qp > 31) return kplStsMPEG4QPErr;
    if (bits < 0 || headerBits < 0 || headerBits > bits || bad_mad(mad)) return kplStsBadArgErr;
    KplRateControl_MPEG4 st = *pState;

    // Step 1: the budget and the buffer.
    st.bitsLeft -= bits;
    if (st.vopsLeft > 0) --st.vopsLeft;
    st.bufferLevel = std::fmax(0.0, st.bufferLevel + bits - st.bitsPerVOP);

    // Step 2: the history.
    const int texture = bits - headerBits;
    if (texture > 0 && mad > 0.0) {
        const int keep = st.count < kWindow ? st.count : kWindow - 1;
        std::memmove(st.histQP + 1, st.histQP, sizeof(Kpl32s) * static_cast<size_t>(keep));
        std::memmove(st.histBits + 1, st.histBits, sizeof(Kpl32s) * static_cast<size_t>(keep));
        std::memmove(st.histMAD + 1, st.histMAD, sizeof(double) * static_cast<size_t>(keep));
        st.histQP[0] = qp;
        st.histBits[0] = texture;
        st.histMAD[0] = mad;
        st.count = keep + 1;
    }

    // Steps 3 to 5: the window, the fit, the outliers.
    if (st.count > 0) {
        double r = 1.0;
        if (mad > 0.0 && st.lastMAD > 0.0) r = mad < st.lastMAD ? mad / st.lastMAD : st.lastMAD / mad;
        int n = static_cast<int>(std::ceil(kWindow * r));
        n = n > st.count ? st.count : (n < 1 ? 1 : n);
        bool use[kWindow];
        for (int i = 0; i < n; ++i) use[i] = true;
        fit(st, use, n, &st.x1, &st.x2);
        if (n >= 3) {
            double e[kWindow], sq = 0;
            for (int i = 0; i < n; ++i) {
                e[i] = std::fabs(st.histBits[i] - model_bits(st.x1, st.x2, st.histQP[i], st.histMAD[i]));
                sq += e[i] * e[i];
            }
            const double sigma = std::sqrt(sq / n);
            bool dropped = false, kept = false;
            for (int i = 0; i < n; ++i) {
                use[i] = e[i] <= sigma;
                dropped = dropped || !use[i];
                kept = kept || use[i];
            }
            if (dropped && kept) fit(st, use, n, &st.x1, &st.x2);
        }
    }

    // Step 6.
    st.qp = qp;
    st.lastBits = bits;
    st.lastHeaderBits = headerBits;
    st.lastMAD = mad;

    // Step 7: skipping drains the buffer one VOP's worth at a time.
    Kpl32s skip = 0;
    while (st.bufferLevel > 0.8 * st.bufferSize) {
        st.bufferLevel -= st.bitsPerVOP;
        if (st.vopsLeft > 0) --st.vopsLeft;
        ++skip;
    }
    *pState = st;
    if (pSkip != nullptr) *pSkip = skip;
    return kplStsNoErr;
}

}  // extern "C"
