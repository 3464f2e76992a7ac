// MPEG-4 binary shape and padding: CAE decoding of boundary BABs, the
// conversion-ratio down- and up-sampling (BABs per second in items/s) and
// padding (macroblocks per second in items/s). All are scalar only.
#include <cstring>
#include <string>
#include <vector>

#include "bench/bench_util.h"
#include "kplvc.h"

namespace {

// A 352x288 shape: a disc and a ring, 0/255, with a 2-sample margin of 0.
constexpr int kW = 352, kH = 288, kStep = kW + 4;
std::vector<uint8_t> shape_plane() {
    std::vector<uint8_t> a(static_cast<size_t>(kStep * (kH + 4)));
    for (int y = 0; y < kH; ++y)
        for (int x = 0; x < kW; ++x) {
            const int dx = x - 170, dy = y - 140, d = dx * dx + dy * dy;
            const bool in = d < 120 * 120 && !(d > 60 * 60 && d < 75 * 75 && ((x / 7 + y / 5) & 3) != 0);
            a[static_cast<size_t>((y + 2) * kStep + x + 2)] = in ? 255 : 0;
        }
    return a;
}

// The boundary macroblocks of the shape (neither empty nor full).
std::vector<int> boundary_mbs(const std::vector<uint8_t>& a) {
    std::vector<int> out;
    for (int my = 0; my < kH / 16; ++my)
        for (int mx = 0; mx < kW / 16; ++mx) {
            int n = 0;
            for (int y = 0; y < 16; ++y)
                for (int x = 0; x < 16; ++x)
                    n += a[static_cast<size_t>((my * 16 + y + 2) * kStep + mx * 16 + x + 2)] != 0;
            if (n > 0 && n < 256) out.push_back((my * 16 + 2) * kStep + mx * 16 + 2);
        }
    return out;
}

void cae(benchmark::State& st, bool inter) {
    std::vector<uint8_t> a = shape_plane();
    const std::vector<int> mbs = boundary_mbs(a);
    // The compensated shape: the same shape one sample to the right.
    std::vector<uint8_t> mc(a.size());
    for (size_t i = 1; i < a.size(); ++i) mc[i] = a[i - 1];
    std::vector<uint8_t> stream(mbs.size() * 520 + 16);
    Kpl8u* p = stream.data();
    Kpl32s off = 0;
    for (int o : mbs)
        if (inter)
            kpliEncodeBABInter_MPEG4_8u1u(a.data() + o, kStep, mc.data() + o, kStep, 16, 1, &p, &off);
        else
            kpliEncodeBABIntra_MPEG4_8u1u(a.data() + o, kStep, 16, (o & 1), &p, &off);
    std::vector<uint8_t> out = a;
    for (auto _ : st) {
        Kpl8u* q = stream.data();
        Kpl32s qoff = 0;
        for (int o : mbs)
            if (inter)
                kpliDecodeBABInter_MPEG4_1u8u(&q, &qoff, out.data() + o, kStep, mc.data() + o, kStep, 16, 1);
            else
                kpliDecodeBABIntra_MPEG4_1u8u(&q, &qoff, out.data() + o, kStep, 16, (o & 1));
        benchmark::DoNotOptimize(out.data());
    }
    st.SetItemsProcessed(static_cast<int64_t>(st.iterations()) * static_cast<int64_t>(mbs.size()));
    st.counters["bits_per_bab"] =
        static_cast<double>((p - stream.data()) * 8 + off) / static_cast<double>(mbs.size());
}

void pad_boundary(benchmark::State& st) {
    const std::vector<uint8_t> a = shape_plane();
    const std::vector<int> mbs = boundary_mbs(a);
    std::vector<uint8_t> tex(a.size());
    for (size_t i = 0; i < tex.size(); ++i) tex[i] = static_cast<uint8_t>(i * 7 + (i >> 8));
    for (auto _ : st) {
        for (int o : mbs) kpliPadMB_MPEG4_8u_C1IR(tex.data() + o, kStep, a.data() + o, kStep, 0);
        benchmark::DoNotOptimize(tex.data());
    }
    st.SetItemsProcessed(static_cast<int64_t>(st.iterations()) * static_cast<int64_t>(mbs.size()));
}

void pad_vop(benchmark::State& st) {
    const std::vector<uint8_t> a = shape_plane();
    std::vector<uint8_t> tex(a.size());
    for (size_t i = 0; i < tex.size(); ++i) tex[i] = static_cast<uint8_t>(i * 7 + (i >> 8));
    const int o = 2 * kStep + 2;
    for (auto _ : st) {
        kpliPadVOP_MPEG4_8u_C1IR(tex.data() + o, kStep, a.data() + o, kStep, {kW, kH}, 0);
        benchmark::DoNotOptimize(tex.data());
    }
    st.SetItemsProcessed(static_cast<int64_t>(st.iterations()) * (kW / 16) * (kH / 16));
}

// Every boundary BAB down-sampled to 16 / convRatio, and the small blocks
// up-sampled back into a copy of the plane (the border read from it).
void resample(benchmark::State& st, int cr, bool up) {
    const std::vector<uint8_t> a = shape_plane();
    const std::vector<int> mbs = boundary_mbs(a);
    const int n = 16 / cr;
    std::vector<uint8_t> small(mbs.size() * 16 * 16);
    for (size_t i = 0; i < mbs.size(); ++i)
        kpliDownsampleAlpha_MPEG4_8u_C1R(a.data() + mbs[i], kStep, small.data() + i * 256, 16, {n, n}, cr);
    std::vector<uint8_t> out = a;
    for (auto _ : st) {
        for (size_t i = 0; i < mbs.size(); ++i)
            if (up)
                kpliUpsampleBAB_MPEG4_8u_C1R(small.data() + i * 256, 16, out.data() + mbs[i], kStep, cr);
            else
                kpliDownsampleAlpha_MPEG4_8u_C1R(a.data() + mbs[i], kStep, small.data() + i * 256, 16, {n, n},
                                                 cr);
        benchmark::DoNotOptimize(out.data());
        benchmark::DoNotOptimize(small.data());
    }
    st.SetItemsProcessed(static_cast<int64_t>(st.iterations()) * static_cast<int64_t>(mbs.size()));
}

void register_all() {
    for (int cr : {2, 4}) {
        const std::string r = std::to_string(cr);
        benchmark::RegisterBenchmark(("mpeg4/bab_downsample_x" + r + "/c").c_str(),
                                     [cr](benchmark::State& st) { resample(st, cr, false); });
        benchmark::RegisterBenchmark(("mpeg4/bab_upsample_x" + r + "/c").c_str(),
                                     [cr](benchmark::State& st) { resample(st, cr, true); });
    }
    benchmark::RegisterBenchmark("mpeg4/cae_decode_intra16/c", [](benchmark::State& st) { cae(st, false); });
    benchmark::RegisterBenchmark("mpeg4/cae_decode_inter16/c", [](benchmark::State& st) { cae(st, true); });
    benchmark::RegisterBenchmark("mpeg4/pad_boundary_mb/c", pad_boundary);
    benchmark::RegisterBenchmark("mpeg4/pad_vop_cif_luma/c", pad_vop);
}
KPLVC_BENCH_REGISTER(register_all);

}  // namespace
