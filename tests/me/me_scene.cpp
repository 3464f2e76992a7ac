#include "me_scene.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <ostream>

#include "support/code_lists.h"

namespace kplvc::test::me {

namespace {

// The two committed frames (reference first), 352x288.
constexpr int kFrameW = 352, kFrameH = 288;
const std::vector<uint8_t>& frames() {
    static const std::vector<uint8_t> f = [] {
        std::ifstream in(std::string(KPLVC_TEST_DATA_DIR) + "/me_frames_352x288.gray", std::ios::binary);
        std::vector<uint8_t> v((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        if (v.size() != 2u * kFrameW * kFrameH) std::abort();
        return v;
    }();
    return f;
}

}  // namespace

std::string content_name(Content c) {
    static const char* const names[] = {"noise", "flat", "steps", "real", "shifted", "extreme", "lifted"};
    return names[static_cast<int>(c)];
}

Scene make_scene(int n, const KpliRect& w, Content c, Place place, Rng& rng, int extra) {
    Scene s;
    s.n = n;
    s.ax = std::min(w.x, 0);
    s.ay = std::min(w.y, 0);
    s.aw = std::max(w.x + w.width - 1, 0) + n + extra - s.ax;
    s.ah = std::max(w.y + w.height - 1, 0) + n + extra - s.ay;
    s.ref_step = s.aw;
    const size_t bytes = static_cast<size_t>(s.aw) * s.ah;
    uint8_t* area;
    if (place == Place::heap) {
        s.ref_step += rng.range(0, 9);  // rows need not be packed
        s.heap.resize(static_cast<size_t>(s.ref_step) * s.ah);
        area = s.heap.data();
    } else {
        s.pages = std::make_unique<GuardPages>(bytes);
        area = place == Place::end ? s.pages->flush_end() : s.pages->flush_start();
    }
    s.cur_step = n + rng.range(0, 5);
    s.cur_buf.resize(static_cast<size_t>(s.cur_step) * n);
    uint8_t* cur = s.cur_buf.data();
    const size_t rb = static_cast<size_t>(s.ref_step) * (s.ah - 1) + s.aw;

    const auto fill_ref = [&](auto f) {
        for (int y = 0; y < s.ah; ++y)
            for (int x = 0; x < s.aw; ++x) area[y * s.ref_step + x] = static_cast<uint8_t>(f(x, y));
    };
    const auto fill_cur = [&](auto f) {
        for (int y = 0; y < n; ++y)
            for (int x = 0; x < n; ++x) cur[y * s.cur_step + x] = static_cast<uint8_t>(f(x, y));
    };
    switch (c) {
        case Content::noise:
            rng.fill(area, rb);
            rng.fill(cur, s.cur_buf.size());
            break;
        case Content::flat: {
            const int a = rng.range(0, 255), b = rng.range(0, 255);
            fill_ref([&](int, int) { return a; });
            fill_cur([&](int, int) { return b; });
            break;
        }
        case Content::steps: {  // two levels in coarse cells: many equal SADs
            const int a = rng.range(0, 200), cell = rng.range(2, 5);
            fill_ref([&](int x, int y) { return a + 40 * (((x / cell) + (y / cell)) & 1); });
            fill_cur([&](int x, int y) { return a + 40 * (((x / cell) ^ (y / 3)) & 1); });
            break;
        }
        case Content::extreme:
            fill_ref([&](int x, int y) { return ((x ^ y) & 1) ? 255 : 0; });
            fill_cur([&](int x, int y) { return ((x + y) & 2) ? 255 : 0; });
            break;
        case Content::real: {
            const std::vector<uint8_t>& f = frames();
            // The co-located block at (bx, by) of the second frame; the area
            // from the first, around it.
            const int bx = rng.range(-s.ax, kFrameW - s.aw - 1 - s.ax);
            const int by = rng.range(-s.ay, kFrameH - s.ah - 1 - s.ay);
            fill_ref([&](int x, int y) { return f[(by + s.ay + y) * kFrameW + bx + s.ax + x]; });
            fill_cur([&](int x, int y) { return f[kFrameW * kFrameH + (by + y) * kFrameW + bx + x]; });
            break;
        }
        case Content::shifted: {  // the current block is a reference block, lightly disturbed
            rng.fill(area, rb);
            const int dx = rng.range(w.x, w.x + w.width - 1), dy = rng.range(w.y, w.y + w.height - 1);
            fill_cur([&](int x, int y) {
                const int v = area[(dy - s.ay + y) * s.ref_step + dx - s.ax + x] + rng.range(-2, 2);
                return std::clamp(v, 0, 255);
            });
            break;
        }
        case Content::lifted: {
            // A reference block at the window's left or right edge with each
            // 8x8 quarter of the current block raised or lowered by its own
            // constant: there the quarters' bound equals the SAD. The block
            // at the zero vector, searched first, is a copy one sample
            // further off, so the winner is met with the best J just above
            // its own: a bound a little too high drops it.
            for (size_t i = 0; i < rb; ++i) area[i] = static_cast<uint8_t>(rng.range(40, 215));
            const int dx = rng.range(0, 1) ? w.x : w.x + w.width - 1, dy = rng.range(w.y, w.y + w.height - 1);
            int lift[4];
            for (int& l : lift) l = rng.range(-30, 30);
            const auto ref = [&](int x, int y) -> uint8_t& {
                return area[(y - s.ay) * s.ref_step + x - s.ax];
            };
            fill_cur([&](int x, int y) { return ref(dx + x, dy + y) + lift[(y >= 8) * 2 + (x >= 8)]; });
            if (std::abs(dx) >= n) {
                for (int y = 0; y < n; ++y)
                    for (int x = 0; x < n; ++x) ref(x, y) = ref(dx + x, dy + y);
                ref(0, 0) = static_cast<uint8_t>(ref(0, 0) + (lift[0] > 0 ? -1 : 1));
            }
            break;
        }
    }
    s.area = area;
    s.cur = cur;
    s.ref = area + static_cast<ptrdiff_t>(-s.ay) * s.ref_step - s.ax;
    return s;
}

int table_code_bits(int m) {
    static const std::vector<int> len = [] {
        std::vector<int> l(33, 0);
        for (const auto& r : kplvc::codelists::read_rows("h263_mvd.txt"))
            l[static_cast<size_t>(std::abs(std::stoi(r[2])))] = static_cast<int>(r[1].size());
        return l;
    }();
    return len[static_cast<size_t>(m)];
}

int model_bits(int d, int fcode) {
    const int f = 1 << (fcode - 1);
    while (d < -32 * f) d += 64 * f;
    while (d > 32 * f - 1) d -= 64 * f;
    if (d == 0) return 1;
    const int m = (std::abs(d) - 1) / f + 1;
    return table_code_bits(m) + fcode - 1;
}

int model_sad(const Scene& s, int32_t x, int32_t y) {
    int sad = 0;
    for (int r = 0; r < s.n; ++r)
        for (int c = 0; c < s.n; ++c) sad += std::abs(s.cur_at(c, r) - s.at(x + c, y + r));
    return sad;
}

std::tuple<int, int, int> model_key(const KplMESearch& p, int vx, int vy) {
    int dist = 0;
    if (p.tieRule == KPLVC_ME_TIE_ZERO) dist = std::abs(vx) + std::abs(vy);
    if (p.tieRule == KPLVC_ME_TIE_PRED) dist = std::abs(vx - p.pred.dx) + std::abs(vy - p.pred.dy);
    return {dist, vy, vx};
}

std::ostream& operator<<(std::ostream& os, const Found& f) {
    return os << "(" << f.vx << ", " << f.vy << ") SAD " << f.sad;
}

Found model_full(const Scene& s, const KplMESearch& p) {
    const int unit = p.quarterSample ? 4 : 2;
    ModelBest best(p);
    for (int y = p.window.y; y < p.window.y + p.window.height; ++y)
        for (int x = p.window.x; x < p.window.x + p.window.width; ++x)
            best.offer(x * unit, y * unit, model_sad(s, x, y));
    return best.f;
}

}  // namespace kplvc::test::me
