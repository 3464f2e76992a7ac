// pred-inl.h: the scalar set-up of the 16x16 plane prediction, shared by the
// SSE2 and AVX2 predictor files (they differ in the horizontal gradient and
// in how many rows one register holds).
//
// Per-ISA body: include it only inside the anonymous namespace of an x86/
// file's own namespace (kplvc::h264::x86::<isa>), after core/arith.h. It
// includes nothing, so each including file compiles its own internal copy
// with its own flags. Needs: nothing beyond the base ISA.
#pragma once

// pred(x, y) = clip((base + b * x + c * y) >> 5), ITU-T H.264 8.3.1.2.4, with
// the rounding 16 folded into base (the value at x = 0, y = 0).
struct Plane16 {
    int b, c, base;
};

// h is the horizontal gradient of the row above, sum over i = 0..7 of
// (i + 1) * (above[8 + i] - above[6 - i]) with above[-1] the corner, which
// the includer computes in vector registers. The vertical gradient is summed
// in scalar registers straight from the frame: collecting the left column
// into a vector through memory would stall on store forwarding.
inline Plane16 plane16_setup(const uint8_t* p, int32_t step, int h) {
    const uint8_t* above = row_at(p, step, -1);
    auto L = [&](int y) { return int{row_at(p, step, y)[-1]}; };  // L(-1) is the corner
    int v = 0;
    for (int i = 0; i < 8; ++i) v += (i + 1) * (L(8 + i) - L(6 - i));
    const int a = 16 * (L(15) + above[15]);
    const int b = (5 * h + 32) >> 6, c = (5 * v + 32) >> 6;
    return {b, c, a - 7 * b - 7 * c + 16};
}
