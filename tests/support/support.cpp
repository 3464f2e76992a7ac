#include "support/support.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "support/variants.h"

namespace kplvc::test {

uint64_t seed() {
    static const uint64_t s = [] {
        const char* e = std::getenv("KPLVC_TEST_SEED");
        return e != nullptr && *e != 0 ? std::strtoull(e, nullptr, 0) : uint64_t{20040722};
    }();
    return s;
}

std::string seed_text() { return "KPLVC_TEST_SEED=" + std::to_string(seed()); }

bool quick() {
    static const bool q = [] {
        const char* e = std::getenv("KPLVC_TEST_QUICK");
        return e != nullptr && std::strcmp(e, "0") != 0 && *e != 0;
    }();
    return q;
}

int iters(int n) { return quick() ? std::max(1, n / 16) : n; }

uint64_t seed_for(const std::string& name) {
    uint64_t h = 0xcbf29ce484222325u;  // FNV-1a of the name, then a splitmix64 round
    for (unsigned char ch : name) h = (h ^ ch) * 0x100000001b3u;
    uint64_t z = seed() ^ h;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    return z ^ (z >> 31);
}

namespace {
std::string g_running;  // what a variant loop is running, for a fault
void on_fault(int sig) {
    const char head[] = "\n[  FAULT   ] ";
    [[maybe_unused]] const bool reported =
        write(2, head, sizeof head - 1) >= 0 && write(2, g_running.data(), g_running.size()) >= 0;
    std::signal(sig, SIG_DFL);
    std::raise(sig);
}
// Prints the settings once, before the first test, and names the variant
// call that faults (a read past a guard page).
struct Settings : ::testing::Environment {
    void SetUp() override {
        std::printf("[ kplvc    ] %s%s\n", seed_text().c_str(), quick() ? ", KPLVC_TEST_QUICK=1" : "");
        std::signal(SIGSEGV, on_fault);
        std::signal(SIGBUS, on_fault);
    }
};
[[maybe_unused]] ::testing::Environment* const kSettings = ::testing::AddGlobalTestEnvironment(new Settings);
}  // namespace

void Rng::fill_extreme(int16_t* p, size_t n, int32_t lo, int32_t hi) {
    const int kind = range(0, 5);
    for (size_t i = 0; i < n; ++i) p[i] = static_cast<int16_t>(extreme(kind, i, lo, hi));
}

void Rng::fill_extreme(uint8_t* p, size_t n) {
    const int kind = range(0, 5);
    for (size_t i = 0; i < n; ++i) p[i] = static_cast<uint8_t>(extreme(kind, i, 0, 255));
}

int32_t Rng::extreme(int kind, size_t i, int32_t lo, int32_t hi) {
    switch (kind) {
        case 0:
        case 1:
            return kind == 0 ? lo : hi;
        case 2:
            return (i & 1) ? hi : lo;
        case 3:
            return coin() ? hi : lo;
        case 4:
            return coin() ? lo + range(0, 3) : hi - range(0, 3);
        default:
            return range(lo, hi);
    }
}

Guarded::Guarded(size_t size, size_t misalign)
    : buf_(size + 2 * kGuard + misalign + 64, kCanary), size_(size), misalign_(misalign) {}

bool Guarded::intact() const {
    const uint8_t* base = buf_.data();
    for (size_t i = 0; i < kGuard + misalign_; ++i)
        if (base[i] != kCanary) return false;
    for (size_t i = kGuard + misalign_ + size_; i < buf_.size(); ++i)
        if (base[i] != kCanary) return false;
    return true;
}

GuardPages::GuardPages(size_t size) : size_(size) {
    page_ = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    span_ = (size + page_ - 1) / page_ * page_;
    if (span_ == 0) span_ = page_;
    total_ = span_ + 2 * page_;
    void* p = mmap(nullptr, total_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) std::abort();
    region_ = static_cast<uint8_t*>(p);
    if (mprotect(region_ + page_, span_, PROT_READ | PROT_WRITE) != 0) std::abort();
}

GuardPages::~GuardPages() { munmap(region_, total_); }

std::vector<cpu::Isa> cpu_levels() {
    std::vector<cpu::Isa> out;
    for (int i = 0; i < cpu::kIsaCount; ++i)
        if (cpu::supports(static_cast<cpu::Isa>(i))) out.push_back(static_cast<cpu::Isa>(i));
    return out;
}

// ---- Coefficients -------------------------------------------------------------------

namespace {
// Samples of one block: flat, smooth ramp, noise, or two levels split by an
// edge; 0..255, or differences of two such blocks for residuals.
void samples(Rng& rng, int* f, int n, bool residual) {
    auto one = [&](int* out) {
        const int kind = rng.range(0, 3), a = rng.range(0, 255), b = rng.range(0, 255);
        const int dx = rng.range(-12, 12), dy = rng.range(-12, 12), cut = rng.range(1, 2 * n - 2);
        for (int y = 0; y < n; ++y)
            for (int x = 0; x < n; ++x) {
                int v = kind == 0   ? a
                        : kind == 1 ? a + dx * x + dy * y
                        : kind == 2 ? rng.range(0, 255)
                                    : (x + y < cut ? a : b);
                out[n * y + x] = v < 0 ? 0 : v > 255 ? 255 : v;
            }
    };
    one(f);
    if (!residual) return;
    std::vector<int> g(static_cast<size_t>(n * n));
    one(g.data());
    for (int i = 0; i < n * n; ++i) f[i] -= g[static_cast<size_t>(i)];
}
}  // namespace

void dct_coefficients(Rng& rng, int16_t* blk, bool residual, double step) {
    int f[64];
    samples(rng, f, 8, residual);
    auto basis = [](int k, int x) {
        return (k == 0 ? std::sqrt(0.125) : 0.5) * std::cos((2 * x + 1) * k * M_PI / 16);
    };
    for (int u = 0; u < 8; ++u)
        for (int v = 0; v < 8; ++v) {
            double s = 0;
            for (int y = 0; y < 8; ++y)
                for (int x = 0; x < 8; ++x) s += f[8 * y + x] * basis(u, y) * basis(v, x);
            const long c = std::lround(s / step);
            blk[8 * u + v] = static_cast<int16_t>(c < -2048 ? -2048 : c > 2047 ? 2047 : c);
        }
}

void h264_levels(Rng& rng, int16_t* blk, int qp) {
    static const int kMF[6][3] = {{13107, 5243, 8066}, {11916, 4660, 7490}, {10082, 4194, 6554},
                                  {9362, 3647, 5825},  {8192, 3355, 5243},  {7282, 2893, 4559}};
    static const int kCf[4][4] = {{1, 1, 1, 1}, {2, 1, -1, -2}, {1, -1, -1, 1}, {1, -2, 2, -1}};
    int r[16], t[16];
    samples(rng, r, 4, true);
    for (int i = 0; i < 4; ++i)  // t = Cf r, then w = t Cf^T
        for (int j = 0; j < 4; ++j) {
            t[4 * i + j] = 0;
            for (int k = 0; k < 4; ++k) t[4 * i + j] += kCf[i][k] * r[4 * k + j];
        }
    const int qbits = 15 + qp / 6, round = (1 << qbits) / 3;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) {
            int w = 0;
            for (int k = 0; k < 4; ++k) w += t[4 * i + k] * kCf[j][k];
            const int cls = (i % 2 == 0 && j % 2 == 0) ? 0 : (i % 2 == 1 && j % 2 == 1) ? 1 : 2;
            const int64_t level = (static_cast<int64_t>(std::abs(w)) * kMF[qp % 6][cls] + round) >> qbits;
            blk[4 * i + j] = static_cast<int16_t>(w < 0 ? -level : level);
        }
}

// ---- Variant harness -------------------------------------------------------------------

void set_running(const std::string& what) { g_running = what + "\n"; }

void report_scalar(const std::string& name) {
    std::printf("[   SCALAR ] %s: one kernel at every level\n", name.c_str());
}

void report_missing_levels() {
    static std::string reported;
    const auto* t = ::testing::UnitTest::GetInstance()->current_test_info();
    const std::string test = std::string(t->test_suite_name()) + "." + t->name();
    if (test == reported) return;
    reported = test;
    std::string lacks;
    for (int l = 1; l < cpu::kIsaCount; ++l)
        if (!cpu::supports(static_cast<cpu::Isa>(l)))
            lacks += std::string(" ") + cpu::isa_name(static_cast<cpu::Isa>(l));
    std::printf("[  SKIPPED ] %s: variants of%s not run, this CPU lacks them\n", test.c_str(), lacks.c_str());
}

std::vector<int> iterations(int n) {
    std::vector<int> out;
    if (!quick()) {
        for (int i = 0; i < n; ++i) out.push_back(i);
        return out;
    }
    for (int k = 0; 16 * k < n; ++k) out.push_back(16 * k + k % 16 < n ? 16 * k + k % 16 : 16 * k);
    return out;
}

size_t Arena::add(size_t bytes, size_t align, bool input, Edge edge) {
    Slot s{bytes, align == 0 ? 1 : align, input, edge, std::make_unique<Guarded>(bytes), nullptr, nullptr};
    s.data = s.guarded->data();
    rng_.fill(s.data, bytes);
    slots_.push_back(std::move(s));
    return slots_.size() - 1;
}

Arena Arena::clone() const {
    Arena c(rng_);
    for (const Slot& m : slots_) {
        Slot s{m.bytes, m.align, m.input, m.edge, nullptr, nullptr, nullptr};
        if (m.edge != Edge::none) {
            s.pages = std::make_unique<GuardPages>(m.bytes);
            s.data = m.edge == Edge::end ? s.pages->flush_end() : s.pages->flush_start();
        } else {
            const int32_t slots = static_cast<int32_t>(31 / m.align);
            s.guarded =
                std::make_unique<Guarded>(m.bytes, m.align * static_cast<size_t>(rng_.range(0, slots)));
            s.data = s.guarded->data();
        }
        if (m.bytes != 0) std::memcpy(s.data, m.data, m.bytes);
        c.slots_.push_back(std::move(s));
    }
    return c;
}

std::string Arena::compare(const Arena& ref, const Arena& var) const {
    auto hex = [](unsigned v) {
        char b[8];
        std::snprintf(b, sizeof b, "0x%02x", v);
        return std::string(b);
    };
    for (size_t k = 0; k < slots_.size(); ++k) {
        const Slot &m = slots_[k], &r = ref.slots_[k], &v = var.slots_[k];
        const std::string what = "buffer " + std::to_string(k) + (m.input ? " (input, " : " (output, ") +
                                 std::to_string(m.bytes) + " bytes)";
        for (const Slot* s : {&r, &v}) {
            const char* who = s == &r ? "the reference" : "the variant";
            if (s->guarded && !s->guarded->intact()) return what + ": " + who + " wrote outside it";
            if (m.input && std::memcmp(s->data, m.data, m.bytes) != 0)
                return what + ": " + who + " changed it";
        }
        for (size_t i = 0; i < m.bytes; ++i)
            if (r.data[i] != v.data[i])
                return what + ": byte " + std::to_string(i) + " is " + hex(v.data[i]) +
                       ", the reference wrote " + hex(r.data[i]);
    }
    return {};
}

std::vector<uint8_t> bit_bytes(const std::string& s, size_t pad) {
    std::vector<uint8_t> b(s.size() / 8 + pad, 0);
    size_t n = 0;
    for (char c : s) {
        if (c == ' ') continue;
        if (c == '1') b[n / 8] |= static_cast<uint8_t>(0x80 >> (n % 8));
        ++n;
    }
    return b;
}

}  // namespace kplvc::test
