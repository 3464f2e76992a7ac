// The variant harness: every SIMD kernel of a table against the scalar one.
//
//   check_variants(h264::xform_kernels_for, &XformKernels::add_dc, "h264 add_dc", 4000,
//                  [](Arena& a, Rng& rng, int i) {
//                      auto pred = a.in<uint8_t>(64), dst = a.out<uint8_t>(64);
//                      rng.fill(a[pred], 64);
//                      const int16_t dc = rng.s16();
//                      return [=](auto fn, Arena& x) { fn(x[pred], 16, x[dst], 16, dc); };
//                  });
//
// The entry is tested at each level where the table's pointer differs from
// the level below, so every implementation runs once; levels this CPU lacks
// are reported as skipped (once per test), entries without variants as
// scalar. Per iteration the body declares the call's buffers in a master
// Arena and returns the call; the harness runs it on two copies of the
// buffers at other misalignments (the reference on one, the variant on the
// other) and requires equal return values, equal outputs, inputs unchanged
// and every canary intact. The random stream is seeded from KPLVC_TEST_SEED
// and the entry's name, the same at each level; a failure names the level,
// the iteration and the buffer and byte that differ.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "support/support.h"

namespace kplvc::test {

template <class T>
struct Buf {
    size_t index;
};

// Where a buffer sits: anywhere (at a random offset inside canaries), with its
// last byte just before an unmapped page, or its first byte just after one
// (a read past that end faults).
enum class Edge { none, end, start };

class Arena {
public:
    explicit Arena(Rng& rng) : rng_(rng) {}
    Arena(Arena&&) = default;

    // n elements of T that the call reads (in) or reads and writes (out),
    // filled with random bytes. `align` is the granularity of the random
    // start offset (0..31 bytes).
    template <class T>
    Buf<T> in(size_t n, size_t align = alignof(T), Edge edge = Edge::none) {
        return {add(n * sizeof(T), align, true, edge)};
    }
    template <class T>
    Buf<T> out(size_t n, size_t align = alignof(T), Edge edge = Edge::none) {
        return {add(n * sizeof(T), align, false, edge)};
    }
    template <class T>
    T* operator[](Buf<T> b) {
        return reinterpret_cast<T*>(slots_[b.index].data);
    }
    // A line printed with a failure (the parameters the body drew).
    template <class... V>
    void note(const V&... v) {
        ::testing::Message m;
        (m << ... << v);
        note_ = m.GetString();
    }

    // Copies of every buffer at new random offsets.
    Arena clone() const;
    // Empty when `ref` and `var` (clones of this) hold equal outputs,
    // unchanged inputs and intact canaries; else what differs.
    std::string compare(const Arena& ref, const Arena& var) const;
    const std::string& notes() const { return note_; }
    // The canaries of every buffer of this arena unchanged.
    bool intact() const {
        for (const Slot& s : slots_)
            if (s.guarded && !s.guarded->intact()) return false;
        return true;
    }

private:
    struct Slot {
        size_t bytes, align;
        bool input;
        Edge edge;
        std::unique_ptr<Guarded> guarded;  // or, at an edge, guard pages
        std::unique_ptr<GuardPages> pages;
        uint8_t* data;
    };
    size_t add(size_t bytes, size_t align, bool input, Edge edge);

    Rng& rng_;
    std::vector<Slot> slots_;
    std::string note_;
};

// The levels this CPU has at which get(table) changes, each with its
// function. Tables of levels above the CPU are never built: building one runs
// code compiled for that level.
template <class Table, class Get>
auto changed_levels(Table (*for_isa)(cpu::Isa), Get get) {
    using Fn = std::decay_t<std::invoke_result_t<Get, const Table&>>;
    std::vector<std::pair<cpu::Isa, Fn>> out;
    Fn prev = std::invoke(get, for_isa(cpu::Isa::c));
    for (int l = 1; l < cpu::kIsaCount && cpu::supports(static_cast<cpu::Isa>(l)); ++l) {
        const Fn f = std::invoke(get, for_isa(static_cast<cpu::Isa>(l)));
        if (f != prev) out.emplace_back(static_cast<cpu::Isa>(l), f);
        prev = f;
    }
    return out;
}

// Names the call under way for the fault handler.
void set_running(const std::string& what);
// Prints the line for an entry without variants; once per test, the line
// for the levels this CPU lacks (their variants are not run).
void report_scalar(const std::string& name);
void report_missing_levels();
// The iteration indices of n: all of them, or every 16th (shifted, so that
// indices used modulo small numbers still vary) under KPLVC_TEST_QUICK=1.
std::vector<int> iterations(int n);

// Runs body for n iterations (see the comment at the top) at every level where
// `get` (a member pointer or a function of the table) changes. Returns the
// number of levels run.
template <class Table, class Get, class Body>
int check_variants(Table (*for_isa)(cpu::Isa), Get get, const std::string& name, int n, Body body) {
    const auto levels = changed_levels(for_isa, get);
    const auto ref = std::invoke(get, for_isa(cpu::Isa::c));
    const bool all_levels = cpu::supports(static_cast<cpu::Isa>(cpu::kIsaCount - 1));
    if (!all_levels) report_missing_levels();
    if (levels.empty() && all_levels) report_scalar(name);
    int ran = 0;
    for (const auto& [isa, fn] : levels) {
        const std::string label = name + " " + cpu::isa_name(isa);
        ++ran;
        Rng rng(seed_for(name));
        const bool failed_before = ::testing::Test::HasFailure();
        for (int i : iterations(n)) {
            Arena a(rng);
            auto call = body(a, rng, i);
            Arena r = a.clone(), v = a.clone();
            const std::string where = label + ", iteration " + std::to_string(i) + " of " + seed_text() +
                                      (a.notes().empty() ? "" : ": " + a.notes());
            set_running(where);
            if constexpr (std::is_void_v<decltype(call(ref, r))>) {
                call(ref, r);
                call(fn, v);
            } else {
                const auto want = call(ref, r);
                const auto got = call(fn, v);
                EXPECT_EQ(want, got) << "return value, " << where;
            }
            const std::string diff = a.compare(r, v);
            EXPECT_TRUE(diff.empty()) << diff << ", " << where;
            if (!diff.empty() || (!failed_before && ::testing::Test::HasFailure())) break;
        }
    }
    return ran;
}

// check_variants for one kernel table, its names prefixed:
//   const auto check = variants_of(mc::mc_kernels_for, "mc ");
//   check(&MCKernels::copy, "copy", 500, body);
template <class Table>
auto variants_of(Table (*for_isa)(cpu::Isa), std::string prefix) {
    return [for_isa, prefix](auto get, const std::string& name, int n, auto body) {
        return check_variants(for_isa, get, prefix + name, n, body);
    };
}

}  // namespace kplvc::test
