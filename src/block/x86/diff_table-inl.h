// diff_table-inl.h: places the difference kernels of one ISA file into the
// blockcopy table's entries.
//
// Per-ISA body: include it only inside the anonymous namespace of an x86/
// file's own namespace (kplvc::block::x86::<isa>), after the file's kernel
// templates diff<W, H, P> and diff_b<W, H, PF, PB> (P, PF, PB: mc::Pos). It
// includes nothing, so each including file compiles its own internal copy.
#pragma once

// One kernel per sub-sample position into its group of four entries: entry
// i holds the kernel of position i >> 2 (the four entries of a group differ
// only in the predictor pointer, which the kernel tests itself).
template <int W, int H>
void set_diff(DiffFn (&tbl)[16]) {
    const DiffFn by_pos[4] = {diff<W, H, mc::ff>, diff<W, H, mc::fh>, diff<W, H, mc::hf>, diff<W, H, mc::hh>};
    for (int i = 0; i < 16; ++i) tbl[i] = by_pos[i >> 2];
}

// Entry i: forward position i & 3, backward position i >> 2.
template <int W, int H, int... I>
void set_diff_b_seq(DiffBFn (&tbl)[16], std::integer_sequence<int, I...>) {
    ((tbl[I] = diff_b<W, H, mc::Pos(I & 3), mc::Pos(I >> 2)>), ...);
}
template <int W, int H>
void set_diff_b(DiffBFn (&tbl)[16]) {
    set_diff_b_seq<W, H>(tbl, std::make_integer_sequence<int, 16>());
}
