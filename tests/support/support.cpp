#include "support/support.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>

namespace kplvc::test {

void Rng::fill_extreme(uint8_t* p, size_t n) {
    const int kind = range(0, 5);
    for (size_t i = 0; i < n; ++i) {
        switch (kind) {
            case 0:
                p[i] = 0;
                break;
            case 1:
                p[i] = 255;
                break;
            case 2:
                p[i] = (i & 1) ? 255 : 0;
                break;
            case 3:
                p[i] = coin() ? 255 : 0;
                break;
            case 4:
                p[i] = coin() ? static_cast<uint8_t>(range(0, 3)) : static_cast<uint8_t>(range(252, 255));
                break;
            default:
                p[i] = u8();
                break;
        }
    }
}

void Rng::fill_extreme(int16_t* p, size_t n, int32_t lo, int32_t hi) {
    const int kind = range(0, 5);
    for (size_t i = 0; i < n; ++i) {
        int32_t v;
        switch (kind) {
            case 0:
                v = lo;
                break;
            case 1:
                v = hi;
                break;
            case 2:
                v = (i & 1) ? hi : lo;
                break;
            case 3:
                v = coin() ? hi : lo;
                break;
            case 4:
                v = coin() ? lo + range(0, 3) : hi - range(0, 3);
                break;
            default:
                v = range(lo, hi);
                break;
        }
        p[i] = static_cast<int16_t>(v);
    }
}

std::string seed_trace(uint64_t seed) {
    std::ostringstream s;
    s << "seed=" << seed;
    return s.str();
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

std::vector<cpu::Isa> simd_levels() {
    std::vector<cpu::Isa> out;
    for (int i = 1; i < cpu::kIsaCount; ++i) {
        const auto isa = static_cast<cpu::Isa>(i);
        if (cpu::supports(isa)) out.push_back(isa);
    }
    return out;
}

}  // namespace kplvc::test
