// DV segment decoding: the example segments, every code word of the standard
// code, a round trip through an encoder of our own, agreement with a plain
// model on damaged and real segments, and the argument checks.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "dv/segment_model.h"
#include "dv/tables.h"
#include "kplvc.h"
#include "support/args.h"
#include "support/code_lists.h"
#include "support/support.h"

namespace {

using kplvc::dvtest::ModelResult;
using kplvc::test::Guarded;
using kplvc::test::GuardPages;
using kplvc::test::Rng;
namespace cdv = kplvc::codecs::dv;

// ---- Tables and scans -----------------------------------------------------------------

// A built table, copied to the end of a readable window of words 0..960:
// reading any word the builder did not write for the standard code faults.
class Table {
public:
    explicit Table(bool tolerant) : page_(961 * 4) {
        Kpl32u* t = cdv::build_table(tolerant);
        EXPECT_NE(t, nullptr);
        words_ = reinterpret_cast<uint32_t*>(page_.flush_end());
        std::memcpy(words_, t, 961 * 4);
        kpliFreeHuffmanTable_DV_32u(t);
    }
    const uint32_t* get() const { return words_; }

private:
    GuardPages page_;
    uint32_t* words_;
};

const Table& table(bool tolerant) {
    static const Table standard(false), lenient(true);
    return tolerant ? lenient : standard;
}

enum class Scan { standard, transposed, identity };
std::vector<int32_t> scans(Scan s) {
    std::vector<int32_t> v(cdv::kScans, cdv::kScans + 128);
    for (int i = 0; i < 64; ++i) {
        if (s == Scan::identity) v[i] = v[64 + i] = i;
        if (s == Scan::transposed) v[i] = 8 * (cdv::kScans[i] & 7) + (cdv::kScans[i] >> 3);
    }
    return v;
}

// ---- Decoding through guarded outputs ---------------------------------------------------

struct Result {
    KplStatus status;
    int16_t out[30][64];
    uint32_t info[30];
};

// Decodes with outputs pre-filled with a pattern; on an error they must keep
// it, and nothing may be written around them.
Result decode(const uint8_t* seg, const uint32_t* tab, const int32_t* scan) {
    Guarded out(3840), info(120);
    std::memset(out.data(), 0x5A, 3840);
    std::memset(info.data(), 0xC3, 120);
    Result r;
    r.status = kpliHuffmanDecodeSegment_DV_8u16s(seg, tab, scan, out.as<Kpl16s>(), info.as<Kpl32u>());
    EXPECT_TRUE(out.intact() && info.intact());
    if (r.status != kplStsNoErr) {
        for (int i = 0; i < 3840; ++i) EXPECT_EQ(out.data()[i], 0x5A) << "output written on error";
        for (int i = 0; i < 120; ++i) EXPECT_EQ(info.data()[i], 0xC3) << "info written on error";
    }
    std::memcpy(r.out, out.data(), 3840);
    std::memcpy(r.info, info.data(), 120);
    return r;
}

// A segment whose 30 blocks hold DC 0, mode 0, class 0 and EOB, QNO 15.
std::vector<uint8_t> empty_segment() {
    std::vector<uint8_t> s(400, 0);
    static const int kArea[6] = {4, 18, 32, 46, 60, 70};
    for (int k = 0; k < 5; ++k) {
        s[80 * k] = 0x90, s[80 * k + 1] = 0x07, s[80 * k + 2] = static_cast<uint8_t>(k);
        s[80 * k + 3] = 0x0F;
        for (int j = 0; j < 6; ++j) s[80 * k + kArea[j] + 1] = 0x06;
    }
    return s;
}

void put_bits(std::vector<uint8_t>& s, int at, const std::string& bits) {
    for (char c : bits) {
        const uint8_t m = static_cast<uint8_t>(0x80 >> (at & 7));
        s[at >> 3] = static_cast<uint8_t>(c == '1' ? s[at >> 3] | m : s[at >> 3] & ~m);
        ++at;
    }
}

// ---- The standard code, from the table file ----------------------------------------------

struct CodeWord {
    std::string bits;  // sign bit included
    int run, value;    // value 0 for (run, 0)
};

struct Code {
    std::vector<cdv::VlcRow> rows;
    std::string eob, run_prefix, amp_prefix;
    int run_lo = 0, run_hi = -1, amp_lo = 0, amp_hi = -1;
    std::map<std::pair<int, int>, std::string> row_code;  // (run, amp) -> code without sign

    std::vector<CodeWord> words() const {  // every code word with each sign
        std::vector<CodeWord> w;
        for (const auto& [ra, code] : row_code) {
            if (ra.second == 0) w.push_back({code, ra.first, 0});
            for (int s = 0; s < 2 && ra.second; ++s)
                w.push_back({code + "01"[s], ra.first, s ? -ra.second : ra.second});
        }
        for (int r = run_lo; r <= run_hi; ++r) w.push_back({run_prefix + bin(r, 6), r, 0});
        for (int a = amp_lo; a <= amp_hi; ++a)
            for (int s = 0; s < 2; ++s) w.push_back({amp_prefix + bin(a, 8) + "01"[s], 0, s ? -a : a});
        return w;
    }
    static std::string bin(int v, int n) {
        std::string b;
        for (int i = n - 1; i >= 0; --i) b += ((v >> i) & 1) ? '1' : '0';
        return b;
    }
};

const Code& code() {
    static const Code c = [] {
        Code c;
        for (const auto& f : kplvc::codelists::read_rows("dv_vlc.txt")) {
            const std::string& bits = f[1];
            if (f[0] == "EOB") {
                c.eob = bits;
            } else if (f[0] == "RUN") {
                c.run_prefix = bits;
                c.run_lo = std::stoi(f[2]), c.run_hi = std::stoi(f[3]);
            } else if (f[0] == "AMP") {
                c.amp_prefix = bits;
                c.amp_lo = std::stoi(f[2]), c.amp_hi = std::stoi(f[3]);
            } else {
                const int run = std::stoi(f[2]), amp = std::stoi(f[3]);
                c.rows.push_back({static_cast<uint16_t>(std::stoi(bits, nullptr, 2)),
                                  static_cast<uint8_t>(bits.size()), static_cast<uint8_t>(run),
                                  static_cast<uint8_t>(amp)});
                c.row_code[{run, amp}] = bits;
            }
        }
        return c;
    }();
    return c;
}

// ---- The tests' encoder -------------------------------------------------------------------

struct BlockPlan {
    int dc = 0, m = 0, c = 0;
    std::vector<std::pair<int, int>> coefs;  // (scan position 1..63, value), increasing positions
};

struct Coded {
    std::string bits;  // the block's code string, EOB included
    struct Event {
        size_t end;  // the code word that sets the value ends here
        int pos, value;
    };
    std::vector<Event> events;
};

Coded encode_block(const BlockPlan& b) {
    const Code& c = code();
    Coded out;
    auto word_for = [&](int run, int v) -> std::string {  // one code word of a pair, or ""
        const int a = v < 0 ? -v : v;
        const auto it = c.row_code.find({run, a});
        if (it != c.row_code.end()) return it->second + (a ? (v < 0 ? "1" : "0") : "");
        if (run == 0 && a >= c.amp_lo) return c.amp_prefix + Code::bin(a, 8) + (v < 0 ? "1" : "0");
        if (a == 0 && run >= c.run_lo) return c.run_prefix + Code::bin(run, 6);
        return "";
    };
    int prev = 0;
    for (const auto& [pos, v] : b.coefs) {
        const int run = pos - prev - 1;
        std::string w = word_for(run, v);
        if (w.empty()) {
            out.bits += word_for(run - 1, 0);
            w = word_for(0, v);
        }
        out.bits += w;
        out.events.push_back({out.bits.size(), pos, v});
        prev = pos;
    }
    out.bits += c.eob;
    return out;
}

struct Encoded {
    std::vector<uint8_t> seg;
    std::vector<size_t> placed;  // bits of each block's string placed
    std::vector<int> pass;       // pass that placed its last bit, 0 if not all placed
    std::vector<Coded> coded;
};

// Places the strings in the three passes; bits that carry nothing are filled
// by `fill`: 0 zeros, 1 ones, 2 random, 3 zeros to the byte's end then ones.
Encoded encode_segment(const std::vector<BlockPlan>& blocks, const int (&staqno)[5], int fill, Rng& rng) {
    static const int kArea[6] = {4, 18, 32, 46, 60, 70}, kSpace[6] = {100, 100, 100, 100, 68, 68};
    Encoded e;
    e.seg.assign(400, 0);
    std::vector<int8_t> bit(3200, -1);  // -1: carries nothing
    auto put = [&](int at, char b) { bit[at] = b == '1'; };
    e.placed.assign(30, 0);
    e.pass.assign(30, 0);
    std::vector<std::vector<int>> spare(30);
    for (int n = 0; n < 30; ++n) {
        const int k = n / 6, j = n % 6, at = (80 * k + kArea[j]) * 8;
        const BlockPlan& b = blocks[n];
        const int h = ((b.dc & 511) << 3) | (b.m << 2) | b.c;
        for (int i = 0; i < 12; ++i) put(at + i, ((h >> (11 - i)) & 1) ? '1' : '0');
        e.coded.push_back(encode_block(b));
        const std::string& s = e.coded[n].bits;
        const size_t fit = std::min<size_t>(s.size(), kSpace[j]);
        for (size_t i = 0; i < fit; ++i) put(at + 12 + static_cast<int>(i), s[i]);
        e.placed[n] = fit;
        if (fit == s.size()) {
            e.pass[n] = 1;
            for (int i = static_cast<int>(fit); i < kSpace[j]; ++i) spare[n].push_back(at + 12 + i);
        }
    }
    auto place = [&](int n, const std::vector<int>& room, size_t& cursor, int pass) {
        const std::string& s = e.coded[n].bits;
        while (e.placed[n] < s.size() && cursor < room.size()) put(room[cursor++], s[e.placed[n]++]);
        if (e.placed[n] == s.size()) e.pass[n] = pass;
    };
    std::vector<int> left;  // the segment's spare bits after pass 2
    for (int k = 0; k < 5; ++k) {
        std::vector<int> room;
        for (int j = 0; j < 6; ++j) room.insert(room.end(), spare[6 * k + j].begin(), spare[6 * k + j].end());
        size_t cursor = 0;
        for (int j = 0; j < 6; ++j)
            if (!e.pass[6 * k + j]) place(6 * k + j, room, cursor, 2);
        left.insert(left.end(), room.begin() + static_cast<ptrdiff_t>(cursor), room.end());
    }
    size_t cursor = 0;
    for (int n = 0; n < 30; ++n)
        if (!e.pass[n]) place(n, left, cursor, 3);

    for (int k = 0; k < 5; ++k) {
        for (int i = 0; i < 3; ++i) e.seg[80 * k + i] = rng.u8();  // the DIF block ID is never read
        e.seg[80 * k + 3] = static_cast<uint8_t>(staqno[k]);
    }
    bool after_data = false;
    for (int at = 32; at < 3200; ++at) {
        if (at % 640 < 32) continue;  // ID and STA/QNO bytes
        if (bit[at] >= 0) {
            after_data = true;
        } else {
            if (at % 8 == 0) after_data = false;
            bit[at] = fill == 0   ? 0
                      : fill == 1 ? 1
                      : fill == 2 ? static_cast<int8_t>(rng.coin())
                                  : !after_data;
        }
        if (bit[at]) e.seg[at >> 3] = static_cast<uint8_t>(e.seg[at >> 3] | (0x80 >> (at & 7)));
    }
    return e;
}

// Random blocks: empty, small, large, full or sparse; values near 0, at the
// limits of the rows and the escape (22, 23, 255) or anywhere.
BlockPlan random_block(Rng& rng, int load) {
    BlockPlan b;
    b.dc = rng.range(-256, 255);
    b.m = rng.range(0, 1);
    b.c = rng.range(0, 3);
    auto value = [&] {
        static const int kEdge[] = {1, 2, 3, 17, 22, 23, 24, 255};
        const int a = rng.coin() ? kEdge[rng.range(0, 7)] : rng.range(1, rng.coin() ? 4 : 255);
        return rng.coin() ? -a : a;
    };
    const int profile = rng.range(0, 4) + load;  // 0..6
    if (profile == 0) return b;
    if (profile == 6 || (profile == 5 && rng.coin())) {  // full
        for (int p = 1; p < 64; ++p) b.coefs.push_back({p, value()});
        return b;
    }
    const int n = profile == 1 ? rng.range(1, 3) : profile == 2 ? rng.range(1, 8) : rng.range(8, 40);
    int pos = 0;
    for (int i = 0; i < n && pos < 63; ++i) {
        const int maxrun = rng.range(0, 3) == 0 ? 62 : 3;
        pos += 1 + rng.range(0, std::min(maxrun, 62 - pos));
        b.coefs.push_back({pos, value()});
    }
    return b;
}

// What the decoder must give for an encoded segment (the round-trip rule).
ModelResult expected(const Encoded& e, const std::vector<BlockPlan>& blocks, const int (&staqno)[5],
                     const int32_t* scan) {
    ModelResult r;
    for (int n = 0; n < 30; ++n) {
        const BlockPlan& b = blocks[n];
        const int32_t* s = scan + 64 * b.m;
        uint32_t count = 0;
        if (b.dc) r.out[n][s[0] & 63] = static_cast<int16_t>(64 * b.dc), count = 1;
        for (const auto& ev : e.coded[n].events)
            if (ev.end <= e.placed[n]) {
                r.out[n][s[ev.pos] & 63] = static_cast<int16_t>(64 * ev.value);
                count = static_cast<uint32_t>(ev.pos) + 1;
            }
        const uint32_t sq = static_cast<uint32_t>(staqno[n / 6]);
        r.info[n] = count | (e.pass[n] ? 0x80u : 0u) | (static_cast<uint32_t>(b.m) << 8) |
                    (static_cast<uint32_t>(b.c) << 9) | ((sq & 15) << 12) | ((sq >> 4) << 16) |
                    (static_cast<uint32_t>(e.pass[n]) << 20);
    }
    return r;
}

template <class A, class B>
void expect_same(const A& got, const B& want, const std::string& what) {
    EXPECT_EQ(got.status, want.status) << what;
    if (got.status != kplStsNoErr || want.status != kplStsNoErr) return;
    for (int n = 0; n < 30; ++n) {
        EXPECT_EQ(got.info[n], want.info[n]) << what << " block " << n;
        for (int i = 0; i < 64; ++i)
            ASSERT_EQ(got.out[n][i], want.out[n][i]) << what << " block " << n << " index " << i;
    }
}

// Random segments with their block plans, light to overfull.
struct Sample {
    std::vector<BlockPlan> blocks;
    int staqno[5];
    Encoded enc;
};
Sample random_segment(Rng& rng) {
    Sample s;
    const int load = rng.range(0, 2);
    for (int n = 0; n < 30; ++n) s.blocks.push_back(random_block(rng, load));
    for (int& q : s.staqno) q = rng.range(0, 255);
    s.enc = encode_segment(s.blocks, s.staqno, rng.range(0, 3), rng);
    return s;
}

std::vector<uint8_t> real_segments() {
    std::ifstream in(kplvc::codelists::table_path("dv_segments.bin"), std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

}  // namespace

// ---- Tests ------------------------------------------------------------------------------

// The example segments, whole, with every output value and information word.
TEST(DvSegment, ExampleVectors) {
    // A record: "NAME ... | tables T | scans S | status N", then its stream
    // and block lines.
    std::vector<std::vector<std::vector<std::string>>> records;
    for (auto& f : kplvc::codelists::read_rows("dv_segment_vectors.txt")) {
        if (f[0] != "stream" && f[0] != "block") records.emplace_back();
        ASSERT_FALSE(records.empty());
        records.back().push_back(std::move(f));
    }
    EXPECT_EQ(records.size(), 19u) << "tests/data/dv_segment_vectors.txt";
    for (const auto& rec : records) {
        std::string h;
        for (const std::string& w : rec[0]) h += w + " ";
        const bool tolerant = h.find("tables tolerant") != std::string::npos;
        const Scan sc = h.find("scans identity") != std::string::npos ? Scan::identity : Scan::standard;
        std::vector<uint8_t> seg;
        ModelResult want;
        want.status = std::stoi(rec[0].back());
        for (size_t i = 1; i < rec.size(); ++i) {
            const auto& f = rec[i];
            if (f[0] == "stream")
                for (size_t b = 0; b + 1 < f[1].size(); b += 2)
                    seg.push_back(static_cast<uint8_t>(std::stoi(f[1].substr(b, 2), nullptr, 16)));
            if (f[0] != "block") continue;
            const int n = std::stoi(f[1]);
            want.info[n] = static_cast<uint32_t>(std::stoul(f[3], nullptr, 16));
            for (size_t k = 4; k < f.size(); ++k) {
                const size_t colon = f[k].find(':');
                want.out[n][std::stoi(f[k].substr(0, colon))] =
                    static_cast<int16_t>(std::stoi(f[k].substr(colon + 1)));
            }
        }
        ASSERT_EQ(seg.size(), 400u) << h;
        const std::vector<int32_t> s = scans(sc);
        expect_same(decode(seg.data(), table(tolerant).get(), s.data()), want, h);
    }
}

// The codec's rows are the file's; every code word of the standard code, with
// each sign, decodes to its own run and value, and consumes exactly its bits
// (the pair after it lands one position further on).
TEST(DvSegment, EveryCodeWord) {
    const Code& c = code();
    ASSERT_EQ(c.rows.size(), static_cast<size_t>(cdv::kVlcRows));
    for (int i = 0; i < cdv::kVlcRows; ++i) {
        EXPECT_EQ(c.rows[i].code, cdv::kVlc[i].code) << "row " << i;
        EXPECT_EQ(c.rows[i].len, cdv::kVlc[i].len) << "row " << i;
        EXPECT_EQ(c.rows[i].run, cdv::kVlc[i].run) << "row " << i;
        EXPECT_EQ(c.rows[i].amp, cdv::kVlc[i].amp) << "row " << i;
    }
    const std::vector<int32_t> id = scans(Scan::identity);
    const std::vector<CodeWord> words = c.words();
    EXPECT_EQ(words.size(), 2u * 82 + 6 + 56 + 2 * 233);  // rows with a sign bit twice
    for (const CodeWord& w : words) {
        std::vector<uint8_t> seg = empty_segment();
        put_bits(seg, 4 * 8 + 12, w.bits + "000" + c.eob + "1111");  // then (0, +1), EOB
        const Result r = decode(seg.data(), table(false).get(), id.data());
        ASSERT_EQ(r.status, kplStsNoErr) << w.bits;
        EXPECT_EQ(r.out[0][w.run + 1], 64 * w.value) << w.bits;
        EXPECT_EQ(r.out[0][w.run + 2], 64) << w.bits;
        EXPECT_EQ(r.info[0], 0x10F080u | static_cast<uint32_t>(w.run + 3)) << w.bits;
    }
}

// The encoder and the decoder both ways: what the encoder placed comes back exactly, for
// segments that fit and segments that do not, every pass and fill, both
// modes, all classes, QNO and STA values, and three scan tables.
TEST(DvSegment, RoundTrip) {
    Rng rng("dv segment round trip");
    const int n = kplvc::test::iters(1500);
    int seen[4] = {0, 0, 0, 0};  // blocks finished in pass 1, 2, 3, and unfinished
    for (int it = 0; it < n; ++it) {
        const Sample s = random_segment(rng);
        const std::vector<int32_t> scan = scans(static_cast<Scan>(it % 3));
        const ModelResult want = expected(s.enc, s.blocks, s.staqno, scan.data());
        expect_same(decode(s.enc.seg.data(), table(false).get(), scan.data()), want,
                    "iteration " + std::to_string(it));
        if (HasFailure()) return;
        for (int p : s.enc.pass) ++seen[p ? p - 1 : 3];
    }
    for (int i = 0; i < 4; ++i)
        EXPECT_GT(seen[i], n / 2) << "pass " << i + 1 << " (4: unfinished) rarely seen";
}

// The encoder's choices for pairs without a row of their own.
TEST(DvSegment, EncoderChoices) {
    const struct {
        int pos, value;
        const char* bits;  // the pair or pairs, then EOB
    } cases[] = {
        {19, -1, "1111110010001 001 0110"},
        {63, 5, "1111110111101 101100 0110"},
        {3, 30, "11111001111 1111111000111100 0110"},
    };
    for (const auto& c : cases) {
        BlockPlan b;
        b.coefs = {{c.pos, c.value}};
        std::string want = c.bits;
        want.erase(std::remove(want.begin(), want.end(), ' '), want.end());
        EXPECT_EQ(encode_block(b).bits, want);
    }
}

// Against the model: encoded segments with a few bits flipped (errors of
// every kind, in every pass), with the standard, the tolerant and random
// tables; real segments cut from an ffmpeg-made file; and plain random bytes.
TEST(DvSegment, MatchesModel) {
    Rng rng("dv segment model");
    const int n = kplvc::test::iters(2000);
    int status_seen[3] = {0, 0, 0};  // ok, VLC, coefficient count
    GuardPages page(1024 * 4);
    uint32_t* random_table = reinterpret_cast<uint32_t*>(page.flush_end());
    for (int it = 0; it < n; ++it) {
        Sample s = random_segment(rng);
        std::vector<uint8_t>& seg = s.enc.seg;
        const bool own_table = it % 4 == 1;
        if (it % 10 == 9) {
            rng.fill(seg.data(), seg.size());
        } else if (!own_table) {
            for (int f = rng.range(1, 4); f > 0; --f) {
                const int at = rng.range(32, 3199);
                seg[at >> 3] = static_cast<uint8_t>(seg[at >> 3] ^ (0x80 >> (at & 7)));
            }
        }
        const uint32_t* tab = table(it % 4 == 3).get();
        if (own_table) {
            // A caller's table in no standard form: the tolerant table with
            // some words replaced at random (any length up to 17, 0 too,
            // every kind at both levels), so that a code can be shorter than
            // the bits a block has pending. Word 1024 lies beyond the window.
            std::memcpy(random_table, table(true).get(), 961 * 4);
            static const uint32_t kV1[] = {0, 1, 5, 63, 64, 64, 64, 65, 66, 67, 1000};
            auto word = [&] {
                const uint32_t len = static_cast<uint32_t>(rng.coin() ? rng.range(1, 9) : rng.range(0, 17));
                return (rng.u32() & 0xFFC00000u) | (kV1[rng.range(0, 10)] << 8) | len;
            };
            for (int w = 961; w < 1024; ++w) random_table[w] = word();
            for (int n = rng.range(1, 40); n > 0; --n) random_table[rng.range(1, 960)] = word();
            tab = random_table;
        }
        const std::vector<int32_t> scan = scans(static_cast<Scan>(it % 3));
        const ModelResult want = kplvc::dvtest::model_decode(seg.data(), tab, scan.data());
        expect_same(decode(seg.data(), tab, scan.data()), want, "iteration " + std::to_string(it));
        if (HasFailure()) return;
        ++status_seen[want.status == kplStsNoErr ? 0 : want.status == kplStsVLCErr ? 1 : 2];
    }
    for (int i = 0; i < 3; ++i) EXPECT_GT(status_seen[i], n / 20) << "status kind " << i << " rarely seen";

    const std::vector<uint8_t> real = real_segments();
    ASSERT_GE(real.size(), 4000u) << "tests/data/dv_segments.bin";
    const std::vector<int32_t> scan = scans(Scan::standard);
    for (size_t at = 0; at + 400 <= real.size(); at += 400) {
        const ModelResult want =
            kplvc::dvtest::model_decode(real.data() + at, table(false).get(), scan.data());
        EXPECT_EQ(want.status, kplStsNoErr) << "real segment " << at / 400;
        expect_same(decode(real.data() + at, table(false).get(), scan.data()), want,
                    "real segment " + std::to_string(at / 400));
    }
}

// A first level whose 1111111xx entries link to the second level: thirteen
// 1 bits would index word 1024, which is never read; the pattern is invalid.
TEST(DvSegment, SecondLevelIndex511) {
    GuardPages page(1024 * 4);
    uint32_t* t = reinterpret_cast<uint32_t*>(page.flush_end());
    std::memcpy(t, table(false).get(), 961 * 4);
    for (int w = 961; w < 1024; ++w) t[w] = 0x00004305;  // (67, 0): invalid if ever reached
    for (int x = 0b111111100; x <= 0b111111111; ++x) t[1 + x] = 0x00004107;
    std::vector<uint8_t> seg = empty_segment();
    put_bits(seg, 4 * 8 + 12,
             "1111111111111"
             "0110");
    const std::vector<int32_t> scan = scans(Scan::standard);
    EXPECT_EQ(decode(seg.data(), t, scan.data()).status, kplStsVLCErr);
}

// A block can finish inside its pending bits when a caller's table has a
// code shorter than them; the pool is then untouched for the next block.
// Blocks 0 and 2 hold thirty-three (0, +1) and one more bit (1, then 0) that
// waits; entries 11xxxxxxx are made EOB of length 0, so block 0 ends in pass
// 2 on "1" + "1..." without consuming, and block 2 reads "0" + "110": EOB.
TEST(DvSegment, EobWithinPendingBits) {
    GuardPages page(961 * 4);
    uint32_t* t = reinterpret_cast<uint32_t*>(page.flush_end());
    std::memcpy(t, table(false).get(), 961 * 4);
    for (int x = 0b110000000; x <= 0b111111111; ++x) t[1 + x] = KPLVC_DV_EOB << 8;
    std::vector<uint8_t> seg = empty_segment();
    std::string ones;
    for (int i = 0; i < 33; ++i) ones += "000";
    put_bits(seg, 4 * 8 + 12, ones + "1");
    put_bits(seg, 18 * 8 + 12,
             "0110"
             "110");
    put_bits(seg, 32 * 8 + 12, ones + "0");
    const std::vector<int32_t> scan = scans(Scan::identity);
    const Result r = decode(seg.data(), t, scan.data());
    ASSERT_EQ(r.status, kplStsNoErr);
    EXPECT_EQ(r.info[0], 0x20F0A2u);  // count 34, EOB, QNO 15, pass 2
    EXPECT_EQ(r.info[2], 0x20F0A2u);
    expect_same(r, kplvc::dvtest::model_decode(seg.data(), t, scan.data()), "model");
}

TEST(DvSegment, NullPointers) {
    using kplvc::test::null;
    const std::vector<uint8_t> seg = empty_segment();
    const std::vector<int32_t> scan = scans(Scan::standard);
    kplvc::test::ArgPool p;
    Kpl8u* s = p.take<Kpl8u>(seg.size());
    std::memcpy(s, seg.data(), seg.size());
    CHECK_ARGS(p, kpliHuffmanDecodeSegment_DV_8u16s,
               {s, table(false).get(), scan.data(), p.take<Kpl16s>(1920), p.take<Kpl32u>(30)},
               {null(0), null(1), null(2), null(3), null(4)});
}
