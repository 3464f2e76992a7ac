// What every search shares: the price of a vector and the order between
// vectors of equal price.
//
// J = 16 SAD + lambda R. Ranges: SAD <= 65280, R <= 2 (13 + 6) = 38 bits,
// lambda <= 65535, so J <= 1 044 480 + 2 490 330, far inside int32. Vector
// components are inside [-2048, 2047] (the fcode 7 range), so the tie keys
// below fit their fields.
#pragma once

#include <cstdint>
#include <cstdlib>

#include "me/me.h"

namespace kplvc::me {

// Bits of the rule's distance, then the raster position: dy, then dx, each
// offset to be non-negative. Smaller keys win ties.
inline uint64_t tie_key(const Setup& s, int32_t vx, int32_t vy) {
    uint64_t dist = 0;
    if (s.tie == KPLVC_ME_TIE_ZERO) dist = static_cast<uint64_t>(std::abs(vx) + std::abs(vy));
    if (s.tie == KPLVC_ME_TIE_PRED) dist = static_cast<uint64_t>(std::abs(vx - s.px) + std::abs(vy - s.py));
    return dist << 32 | static_cast<uint64_t>(vy + 32768) << 16 | static_cast<uint64_t>(vx + 32768);
}

inline int32_t vector_bits(const Setup& s, int32_t vx, int32_t vy) {
    return mv_bits(vx - s.px, s.fcode) + mv_bits(vy - s.py, s.fcode);
}

// The best vector so far. better() is a strict total order on (J, key), so
// the result does not depend on the order in which candidates are offered.
struct Best {
    int32_t j = INT32_MAX;
    uint64_t key = UINT64_MAX;
    int32_t vx = 0, vy = 0, sad = 0;

    bool beats(int32_t cj, uint64_t ckey) const { return cj < j || (cj == j && ckey < key); }
    // Offers the vector (vx, vy) at price cj; the key is formed only when
    // the price ties.
    void offer(const Setup& s, int32_t cvx, int32_t cvy, int32_t cj, int32_t csad) {
        if (cj > j) return;
        const uint64_t ckey = tie_key(s, cvx, cvy);
        if (cj == j && ckey >= key) return;
        j = cj;
        key = ckey;
        vx = cvx;
        vy = cvy;
        sad = csad;
    }
};

// Integer displacement nearest to a vector component (vector units, shift 1
// or 2): halves are rounded away from zero.
inline int32_t to_full(int32_t v, int32_t shift) {
    const int32_t half = 1 << (shift - 1);
    return v < 0 ? -((-v + half) >> shift) : (v + half) >> shift;
}

inline int32_t clamp_to(int32_t v, int32_t lo, int32_t hi) { return v < lo ? lo : (v > hi ? hi : v); }

}  // namespace kplvc::me
