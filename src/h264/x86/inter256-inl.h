// inter256-inl.h: the 256-bit parts of the H.264 inter prediction kernels
// (inter-inl.h) for an AVX2 level: 16-wide luma strips, 8-wide luma and
// chroma two rows per register, and the 16-wide weighting.
//
// Per-ISA body: include it only inside the anonymous namespace of an x86/
// file's own namespace (kplvc::h264::x86::<isa>), after <immintrin.h> and
// h264/x86/inter-inl.h. It includes nothing, so each including file compiles
// its own internal copy with its own flags. Needs: AVX2. An AVX2 level's
// traits derive from Wide256.
#pragma once

// ---- Strips of 16 columns in a 256-bit register --------------------------------------

struct Strip256 {
    using V = __m256i;
    static constexpr int kCols = 16;

    static V add(V a, V b) { return _mm256_add_epi16(a, b); }
    static V row(const uint8_t* p) { return _mm256_cvtepu8_epi16(loadn<16>(p)); }
    static __m128i loadp(const uint8_t* p) { return loadn<16>(p); }
    static void storep(uint8_t* p, __m128i v) { storen<16>(p, v); }
    // packus works per 128-bit lane: lanes hold bytes 0..7 and 8..15; the
    // permute gathers the two low quadwords.
    static __m128i pack(V v) {
        return _mm256_castsi256_si128(_mm256_permute4x64_epi64(_mm256_packus_epi16(v, v), 0x08));
    }
    static V rnd5(V v) { return _mm256_srai_epi16(_mm256_add_epi16(v, _mm256_set1_epi16(16)), 5); }

    static V tap(const V* r) {
        const V a = _mm256_add_epi16(r[0], r[5]);
        const V f = _mm256_add_epi16(r[1], r[4]);
        const V g = _mm256_add_epi16(r[2], r[3]);
        const V t = _mm256_sub_epi16(_mm256_slli_epi16(g, 2), f);
        return _mm256_add_epi16(a, _mm256_add_epi16(t, _mm256_slli_epi16(t, 2)));
    }

    // Lane 0 holds columns -2..13 (for outputs 0..7), lane 1 columns 3..18
    // (for outputs 8..15), so the lane-1 shuffle indices are 3 higher.
    static V b1(const uint8_t* p) {
        const V v = _mm256_inserti128_si256(_mm256_castsi128_si256(loadn<16>(p - 2)), loadn<16>(p + 3), 1);
        const V k01 = _mm256_setr_epi8(0, 1, 1, 2, 2, 3, 3, 4, 4, 5, 5, 6, 6, 7, 7, 8,  //
                                       3, 4, 4, 5, 5, 6, 6, 7, 7, 8, 8, 9, 9, 10, 10, 11);
        const V k23 = _mm256_setr_epi8(2, 3, 3, 4, 4, 5, 5, 6, 6, 7, 7, 8, 8, 9, 9, 10,  //
                                       5, 6, 6, 7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13);
        const V k45 = _mm256_setr_epi8(4, 5, 5, 6, 6, 7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12,  //
                                       7, 8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13, 14, 14, 15);
        const V s01 = _mm256_maddubs_epi16(_mm256_shuffle_epi8(v, k01), _mm256_set1_epi16(byte_pair(1, -5)));
        const V s23 = _mm256_maddubs_epi16(_mm256_shuffle_epi8(v, k23), _mm256_set1_epi16(byte_pair(20, 20)));
        const V s45 = _mm256_maddubs_epi16(_mm256_shuffle_epi8(v, k45), _mm256_set1_epi16(byte_pair(-5, 1)));
        return _mm256_add_epi16(_mm256_add_epi16(s01, s45), s23);
    }

    // As Strip128::jrnd; unpack and packs both work within 128-bit lanes,
    // so the lane order survives the round trip through 32 bits.
    static __m128i jrnd(const V* b) {
        const V s05 = _mm256_add_epi16(b[0], b[5]);
        const V s14 = _mm256_add_epi16(b[1], b[4]);
        const V s23 = _mm256_add_epi16(b[2], b[3]);
        const V c15 = _mm256_set1_epi32(word_pair(1, -5));
        const V c20 = _mm256_set1_epi32(word_pair(20, 1));
        const V k512 = _mm256_set1_epi16(512);
        V lo = _mm256_add_epi32(_mm256_madd_epi16(_mm256_unpacklo_epi16(s05, s14), c15),
                                _mm256_madd_epi16(_mm256_unpacklo_epi16(s23, k512), c20));
        V hi = _mm256_add_epi32(_mm256_madd_epi16(_mm256_unpackhi_epi16(s05, s14), c15),
                                _mm256_madd_epi16(_mm256_unpackhi_epi16(s23, k512), c20));
        return pack(_mm256_packs_epi32(_mm256_srai_epi32(lo, 10), _mm256_srai_epi32(hi, 10)));
    }
};

// 8-wide rows in the two 128-bit lanes of a 256-bit register. Strip256's
// pack leaves row y in the low and row y + 1 in the high 8 bytes.
struct PairRows8 : Strip256 {
    static __m128i bytes2(const uint8_t* p0, const uint8_t* p1) {
        return _mm_unpacklo_epi64(loadn<8>(p0), loadn<8>(p1));
    }
    static V rows2(const uint8_t* p0, const uint8_t* p1) { return _mm256_cvtepu8_epi16(bytes2(p0, p1)); }
    // Columns -2..10 of a row in one register (two 8-byte loads that overlap).
    static __m128i span(const uint8_t* p) {
        return _mm_or_si128(loadn<8>(p - 2), _mm_slli_si128(loadn<8>(p + 3), 5));
    }
    static V b1_2(const uint8_t* p0, const uint8_t* p1) {
        const V v = _mm256_inserti128_si256(_mm256_castsi128_si256(span(p0)), span(p1), 1);
        const V k01 =
            _mm256_broadcastsi128_si256(_mm_setr_epi8(0, 1, 1, 2, 2, 3, 3, 4, 4, 5, 5, 6, 6, 7, 7, 8));
        const V k23 =
            _mm256_broadcastsi128_si256(_mm_setr_epi8(2, 3, 3, 4, 4, 5, 5, 6, 6, 7, 7, 8, 8, 9, 9, 10));
        const V k45 =
            _mm256_broadcastsi128_si256(_mm_setr_epi8(4, 5, 5, 6, 6, 7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12));
        const V s01 = _mm256_maddubs_epi16(_mm256_shuffle_epi8(v, k01), _mm256_set1_epi16(byte_pair(1, -5)));
        const V s23 = _mm256_maddubs_epi16(_mm256_shuffle_epi8(v, k23), _mm256_set1_epi16(byte_pair(20, 20)));
        const V s45 = _mm256_maddubs_epi16(_mm256_shuffle_epi8(v, k45), _mm256_set1_epi16(byte_pair(-5, 1)));
        return _mm256_add_epi16(_mm256_add_epi16(s01, s45), s23);
    }
    static V swap(V a, V b) { return _mm256_permute2x128_si256(a, b, 0x21); }
    static void store2(uint8_t* d0, uint8_t* d1, __m128i v) {
        storen<8>(d0, v);
        storen<8>(d1, _mm_unpackhi_epi64(v, v));
    }
};

struct Wide256 {
    static constexpr bool kAvx2 = true;
    using Strip16 = Strip256;
    using Pair8 = PairRows8;

    // Rows y and y + 1 in the two lanes; heights are even.
    template <int H>
    static void chroma8(const uint8_t* src, intptr_t ss, uint8_t* dst, intptr_t ds, int32_t wa, int32_t wb,
                        int32_t wc, int32_t wd) {
        // Row y as (A, B) byte pairs: columns x and x + 1 interleaved.
        auto pairs = [src, ss](int y) {
            return _mm_unpacklo_epi8(loadn<8>(src + y * ss), loadn<8>(src + y * ss + 1));
        };
        const __m256i wab2 = _mm256_set1_epi16(byte_pair(wa, wb));
        const __m256i wcd2 = _mm256_set1_epi16(byte_pair(wc, wd));
        __m128i p0 = pairs(0);
        for (int y = 0; y < H; y += 2) {
            const __m128i p1 = pairs(y + 1), p2 = pairs(y + 2);
            const __m256i top = _mm256_inserti128_si256(_mm256_castsi128_si256(p0), p1, 1);
            const __m256i bot = _mm256_inserti128_si256(_mm256_castsi128_si256(p1), p2, 1);
            __m256i v = _mm256_add_epi16(_mm256_maddubs_epi16(top, wab2), _mm256_maddubs_epi16(bot, wcd2));
            v = _mm256_srli_epi16(_mm256_add_epi16(v, _mm256_set1_epi16(32)), 6);
            v = _mm256_packus_epi16(v, v);
            storen<8>(dst + y * ds, _mm256_castsi256_si128(v));
            storen<8>(dst + (y + 1) * ds, _mm256_extracti128_si256(v, 1));
            p0 = p2;
        }
    }

    static void weight16(uint8_t* sd, int32_t sd_step, const uint8_t* s, int32_t s_step, int32_t rows,
                         int32_t w0, int32_t w1, int32_t log_wd, int32_t offset) {
        const intptr_t ds = sd_step, ss = s_step;
        const __m256i wpair = _mm256_set1_epi32(word_pair(w0, w1));
        const __m256i rnd = _mm256_set1_epi32(int32_t{1} << log_wd);
        const __m128i sh = _mm_cvtsi32_si128(log_wd + 1);
        const __m256i off = _mm256_set1_epi16(static_cast<int16_t>(offset));
        for (int32_t y = 0; y < rows; ++y) {
            uint8_t* d = sd + y * ds;
            const __m256i p0 = _mm256_cvtepu8_epi16(loadn<16>(d));
            const __m256i p1 = _mm256_cvtepu8_epi16(loadn<16>(s + y * ss));
            __m256i lo = _mm256_add_epi32(_mm256_madd_epi16(_mm256_unpacklo_epi16(p0, p1), wpair), rnd);
            __m256i hi = _mm256_add_epi32(_mm256_madd_epi16(_mm256_unpackhi_epi16(p0, p1), wpair), rnd);
            __m256i v = _mm256_packs_epi32(_mm256_sra_epi32(lo, sh), _mm256_sra_epi32(hi, sh));
            v = _mm256_add_epi16(v, off);
            v = _mm256_permute4x64_epi64(_mm256_packus_epi16(v, v), 0x08);
            storen<16>(d, _mm256_castsi256_si128(v));
        }
    }

    // Two rows per register; 16-wide blocks have 16 or 8 rows.
    static void weight_small16(uint8_t* sd, int32_t sd_step, const uint8_t* s, int32_t s_step, int32_t rows,
                               int32_t w0, int32_t w1, int32_t log_wd, int32_t offset) {
        const intptr_t ds = sd_step, ss = s_step;
        const __m256i wb = _mm256_set1_epi16(byte_pair(w0, w1));
        const __m256i scale = _mm256_set1_epi16(static_cast<int16_t>(1 << (14 - log_wd)));
        const __m256i off = _mm256_set1_epi16(static_cast<int16_t>(offset));
        for (int32_t y = 0; y < rows; y += 2) {
            uint8_t* d0 = sd + y * ds;
            uint8_t* d1 = d0 + ds;
            const __m256i a =
                _mm256_inserti128_si256(_mm256_castsi128_si256(loadn<16>(d0)), loadn<16>(d1), 1);
            const __m256i b = _mm256_inserti128_si256(_mm256_castsi128_si256(loadn<16>(s + y * ss)),
                                                      loadn<16>(s + (y + 1) * ss), 1);
            __m256i lo = _mm256_maddubs_epi16(_mm256_unpacklo_epi8(a, b), wb);
            __m256i hi = _mm256_maddubs_epi16(_mm256_unpackhi_epi8(a, b), wb);
            lo = _mm256_add_epi16(_mm256_mulhrs_epi16(lo, scale), off);
            hi = _mm256_add_epi16(_mm256_mulhrs_epi16(hi, scale), off);
            const __m256i v = _mm256_packus_epi16(lo, hi);  // per lane: bytes back in order
            storen<16>(d0, _mm256_castsi256_si128(v));
            storen<16>(d1, _mm256_extracti128_si256(v, 1));
        }
    }
};
