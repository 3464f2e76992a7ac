// What the motion-estimation tests share: the scenes a search runs on and a
// plain model of a vector's price, written from the public header's words.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "kplvc.h"
#include "support/support.h"

namespace kplvc::test::me {

enum class Content { noise, flat, steps, real, shifted, extreme, lifted };
// Where the reference buffer sits: inside a heap block, or flush against an
// unmapped page after (end) or before (start) it, so that a read beyond the
// window's blocks (plus `extra` columns and rows) faults.
enum class Place { heap, start, end };

// A current block and a reference area holding exactly the blocks of a
// window (and the co-located block).
struct Scene {
    int n = 16;
    int32_t cur_step = 0, ref_step = 0;
    std::vector<uint8_t> cur_buf;
    std::vector<uint8_t> heap;
    std::unique_ptr<GuardPages> pages;
    const uint8_t* cur = nullptr;
    const uint8_t* ref = nullptr;  // the co-located block
    // The area: its top-left displacement and size in samples.
    int32_t ax = 0, ay = 0, aw = 0, ah = 0;
    const uint8_t* area = nullptr;

    int at(int32_t x, int32_t y) const {  // reference sample (x, y) from the co-located block's origin
        return area[(y - ay) * ref_step + (x - ax)];
    }
    int cur_at(int x, int y) const { return cur[y * cur_step + x]; }
};

Scene make_scene(int n, const KpliRect& window, Content c, Place place, Rng& rng, int extra = 0);
std::string content_name(Content c);

// The code lengths of Table B-12 read from tests/data/h263_mvd.txt (by |code|).
int table_code_bits(int m);
// Bits of a vector difference component, from the header's words.
int model_bits(int d, int fcode);

// SAD of the block at integer displacement (x, y).
int model_sad(const Scene& s, int32_t x, int32_t y);

// The order of the tie rules: (distance, dy, dx), smaller first.
std::tuple<int, int, int> model_key(const KplMESearch& p, int vx, int vy);

struct Found {
    int vx, vy, sad;
    bool operator==(const Found& o) const { return vx == o.vx && vy == o.vy && sad == o.sad; }
};
std::ostream& operator<<(std::ostream& os, const Found& f);
inline Found found(const KplMotionVector& mv, int sad) { return Found{mv.dx, mv.dy, sad}; }

// Keeps the best of the vectors offered by (J, key).
struct ModelBest {
    const KplMESearch* p;
    int64_t j = INT64_MAX;
    std::tuple<int, int, int> key{};
    Found f{0, 0, 0};
    explicit ModelBest(const KplMESearch& prm) : p(&prm) {}
    int64_t price(int vx, int vy, int sad) const {
        return 16 * int64_t{sad} + int64_t{p->lambda} * (model_bits(vx - p->pred.dx, p->fcode) +
                                                         model_bits(vy - p->pred.dy, p->fcode));
    }
    bool better(int vx, int vy, int sad) const {
        const int64_t cj = price(vx, vy, sad);
        return cj < j || (cj == j && model_key(*p, vx, vy) < key);
    }
    void offer(int vx, int vy, int sad) {
        if (!better(vx, vy, sad)) return;
        j = price(vx, vy, sad);
        key = model_key(*p, vx, vy);
        f = Found{vx, vy, sad};
    }
};

// Every displacement of the window in raster order.
Found model_full(const Scene& s, const KplMESearch& p);

}  // namespace kplvc::test::me
