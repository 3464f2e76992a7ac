// Aligned allocation with a hidden back pointer.
//
// The system block is asked for len + 32 + sizeof(void*) bytes; the caller's
// block starts at (raw + 31 + sizeof(void*)) rounded down to 32, which leaves
// between sizeof(void*) and 31 + sizeof(void*) bytes before it: always room
// for the pointer that kplsFree hands back to free(). On 32-bit x86 that is
// len + 36 and (raw + 35) & ~31.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "kplvc.h"

namespace {
constexpr uintptr_t kAlign = 32;
constexpr uintptr_t kExtra = kAlign + sizeof(void*);
}  // namespace

extern "C" KPLVC_API Kpl8u* kplsMalloc_8u(Kpl32s len) {
    if (len < 1) return nullptr;
    void* raw = std::malloc(static_cast<size_t>(len) + kExtra);
    if (raw == nullptr) return nullptr;
    const uintptr_t user = (reinterpret_cast<uintptr_t>(raw) + kExtra - 1) & ~(kAlign - 1);
    auto* block = reinterpret_cast<Kpl8u*>(user);
    std::memcpy(block - sizeof(void*), &raw, sizeof(void*));
    return block;
}

extern "C" KPLVC_API void kplsFree(void* ptr) {
    if (ptr == nullptr) return;
    void* raw;
    std::memcpy(&raw, static_cast<Kpl8u*>(ptr) - sizeof(void*), sizeof(void*));
    std::free(raw);
}
