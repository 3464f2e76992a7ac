// Shared test helpers: run settings, seeded random data, coefficient
// generators, guarded buffers and guard pages. The variant harness is in
// support/variants.h, the argument-check helper in support/args.h.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "core/cpu.h"

namespace kplvc::test {

// ---- Run settings -------------------------------------------------------------
// KPLVC_TEST_SEED=N changes the seed of every random loop (printed at start and
// with each failure); KPLVC_TEST_QUICK=1 runs about 1/16 of their iterations
// (for emulated CPUs).
uint64_t seed();
std::string seed_text();  // "KPLVC_TEST_SEED=N"
bool quick();
// n, or n / 16 (at least 1) in quick runs.
int iters(int n);
// A seed for one named loop: the run's seed mixed with the name.
uint64_t seed_for(const std::string& name);

// ---- Random data ---------------------------------------------------------------
class Rng {
public:
    explicit Rng(uint64_t seed) : g_(seed) {}
    // Seeded from the run's seed and a name.
    explicit Rng(const std::string& name) : g_(seed_for(name)) {}
    uint32_t u32() { return static_cast<uint32_t>(g_()); }
    uint64_t u64() { return g_(); }
    // Uniform in lo..hi inclusive.
    int32_t range(int32_t lo, int32_t hi) {
        return static_cast<int32_t>(
            lo + static_cast<int64_t>(g_() % (static_cast<uint64_t>(int64_t{hi} - lo) + 1)));
    }
    uint8_t u8() { return static_cast<uint8_t>(g_()); }
    int16_t s16() { return static_cast<int16_t>(g_()); }
    bool coin() { return (g_() & 1) != 0; }

    void fill(uint8_t* p, size_t n) {
        for (size_t i = 0; i < n; ++i) p[i] = u8();
    }
    void fill(int16_t* p, size_t n, int32_t lo = -32768, int32_t hi = 32767) {
        for (size_t i = 0; i < n; ++i) p[i] = static_cast<int16_t>(range(lo, hi));
    }

    // Bytes drawn from patterns that reach arithmetic limits: all 0, all 255,
    // alternating 0/255, random, random near the ends.
    void fill_extreme(uint8_t* p, size_t n);
    // 16-bit values drawn from the same idea within lo..hi.
    void fill_extreme(int16_t* p, size_t n, int32_t lo = -32768, int32_t hi = 32767);

private:
    int32_t extreme(int kind, size_t i, int32_t lo, int32_t hi);
    std::mt19937_64 g_;
};

// ---- Coefficients of real transforms ----------------------------------------------
// Legal inputs of inverse transforms and dequantisers, made the way a coder
// makes them: a random block of samples (smooth, noisy or sharp-edged; residuals
// when `residual`) through the forward transform, then divided by `step`
// (1: the coefficients themselves) and rounded.
// 8x8 DCT in double precision, row-major, results clamped to -2048..2047.
void dct_coefficients(Rng& rng, int16_t* blk, bool residual, double step = 1);
// H.264 4x4 core transform of a residual, then quantised at qp (0..51) with
// the standard's multipliers and intra rounding: the levels a stream carries.
void h264_levels(Rng& rng, int16_t* blk, int qp);

// ---- Guarded buffers ------------------------------------------------------------
// A byte buffer with canary zones before and after the usable part. Any write
// into a canary is caught by intact(). The usable part can start at an
// offset (to test misaligned pointers).
class Guarded {
public:
    static constexpr size_t kGuard = 64;
    static constexpr uint8_t kCanary = 0xA5;

    explicit Guarded(size_t size, size_t misalign = 0);
    uint8_t* data() { return buf_.data() + kGuard + misalign_; }
    const uint8_t* data() const { return buf_.data() + kGuard + misalign_; }
    size_t size() const { return size_; }
    template <class T>
    T* as() {
        return reinterpret_cast<T*>(data());
    }
    bool intact() const;

private:
    std::vector<uint8_t> buf_;
    size_t size_;
    size_t misalign_;
};

// ---- Guard pages -----------------------------------------------------------------
// A readable and writable window with an unmapped page right before and right
// after it: any access outside the window faults.
class GuardPages {
public:
    explicit GuardPages(size_t size);
    ~GuardPages();
    GuardPages(const GuardPages&) = delete;
    GuardPages& operator=(const GuardPages&) = delete;
    // The window placed flush against the page after it (first byte past the
    // window faults) or flush against the page before it.
    uint8_t* flush_end() { return region_ + page_ + span_ - size_; }
    uint8_t* flush_start() { return region_ + page_; }
    size_t size() const { return size_; }

private:
    uint8_t* region_ = nullptr;
    size_t page_ = 0, span_ = 0, size_ = 0, total_ = 0;
};

// The levels this CPU supports, c first, for contracts that hold at each level.
std::vector<cpu::Isa> cpu_levels();

// The bits of `s` ('0' and '1', spaces skipped) as bytes, the first bit the
// top bit of byte 0, then `pad` zero bytes for a reader's look-ahead.
std::vector<uint8_t> bit_bytes(const std::string& s, size_t pad = 16);

}  // namespace kplvc::test
