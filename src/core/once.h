// Constant data computed on first use (lookup tables derived from other
// tables), without the C++ runtime's guard variables: the same one-time build
// as the kernel tables in dispatch.h, through pthread_once and a published
// pointer, so the shared library still links no libstdc++.
#pragma once

#include <pthread.h>

namespace kplvc {

template <class T, T (*Make)()>
struct BuiltOnce {
    static inline T value{};
    static inline const T* current = nullptr;
    static inline pthread_once_t once = PTHREAD_ONCE_INIT;

    static void init() {
        value = Make();
        __atomic_store_n(&current, &value, __ATOMIC_RELEASE);
    }
    [[gnu::noinline, gnu::cold]] static const T& build() {
        pthread_once(&once, init);
        return value;
    }
};

// The value Make() returns, computed once by the first caller; later calls
// cost one acquire load.
template <class T, T (*Make)()>
inline const T& built_once() {
    const T* v = __atomic_load_n(&BuiltOnce<T, Make>::current, __ATOMIC_ACQUIRE);
    if (__builtin_expect(v != nullptr, 1)) return *v;
    return BuiltOnce<T, Make>::build();
}

}  // namespace kplvc
