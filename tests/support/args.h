// The argument-check helper: a function's checks from one table.
//
//   ArgPool p;
//   Kpl16s* blk = p.take<Kpl16s>(64);
//   CHECK_ARGS(p, kpliQuantIntra_MPEG2_16s_C1I, {blk, 3, m, count},
//              {null(0), null(3), fails(1, 0, kplStsDivByZeroErr), passes(2, nullptr)});
//
// The list gives, in the order the function checks them, values that fail
// (with their status) or that are accepted (kplStsNoErr). Each value is tried
// alone in the good call, then every two values of different arguments of
// which at least one fails, at once: they must give the status of the one
// listed first that fails, which pins the order. Every buffer the calls may
// touch comes from the pool, which must be unchanged, canaries included,
// after each failing call (and is restored after each call, so that every
// call reads the same contents). The good call itself runs last and must pass
// the checks: it returns kplStsNoErr, or `good` where its data makes it fail
// later (a stream that holds no code).
#pragma once

#include <algorithm>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <tuple>
#include <type_traits>
#include <variant>
#include <vector>

#include "kplvc.h"
#include "support/support.h"

namespace kplvc::test {

struct Arg {
    size_t index;  // of the argument, from 0
    std::variant<std::nullptr_t, long long, const void*, KpliSize, KpliRect> value;
    KplStatus status;
};

// Argument i null (failing with -8 unless said otherwise); argument i set to
// v, failing with st; argument i set to v, accepted.
inline Arg null(size_t i, KplStatus st = kplStsNullPtrErr) { return {i, nullptr, st}; }
template <class V>
Arg fails(size_t i, V v, KplStatus st) {
    return {i, v, st};
}
template <class V>
Arg passes(size_t i, V v) {
    return {i, v, kplStsNoErr};
}

class ArgPool {
public:
    explicit ArgPool(size_t bytes = 16384) : g_(bytes) { std::memset(g_.data(), 0x5B, bytes); }

    // n elements of T, 32-byte aligned, filled with 0x5B bytes or with v.
    template <class T>
    T* take(size_t n = 1) {
        used_ = (used_ + 31) & ~size_t{31};
        T* p = reinterpret_cast<T*>(g_.data() + used_);
        used_ += n * sizeof(T);
        if (used_ > g_.size()) std::abort();
        return p;
    }
    template <class T>
    T* take(std::initializer_list<T> v) {
        T* p = take<T>(v.size());
        std::memcpy(static_cast<void*>(p), v.begin(), v.size() * sizeof(T));
        return p;
    }

    template <class R, class... A>
    void check(const char* name, R (*fn)(A...), std::tuple<std::type_identity_t<A>...> good_args,
               std::initializer_list<Arg> list, KplStatus good = kplStsNoErr) {
        const std::vector<Arg> v(list);
        for (size_t i = 0; i < v.size(); ++i) {
            expect(name, fn, with(good_args, {&v[i]}), v[i].status, i, i);
            for (size_t j = i + 1; j < v.size(); ++j)
                if (v[i].index != v[j].index && (v[i].status != 0 || v[j].status != 0))
                    expect(name, fn, with(good_args, {&v[i], &v[j]}),
                           v[i].status != 0 ? v[i].status : v[j].status, i, j);
        }
        expect(name, fn, good_args, good, v.size(), v.size(), true);
    }

    // One call that must return `want`, writing nothing unless it succeeds.
    // Except for the good call, the pool is restored afterwards, so that
    // every call starts from the same contents (a stream not yet read).
    template <class R, class... A>
    void expect(const char* name, R (*fn)(A...), const std::tuple<A...>& args, KplStatus want, size_t i = 0,
                size_t j = 0, bool good_call = false) {
        const std::vector<uint8_t> before(g_.data(), g_.data() + g_.size());
        const R got = std::apply(fn, args);
        EXPECT_EQ(got, want) << name << " with list entries " << i << " and " << j;
        if (good_call) return;
        if (want != kplStsNoErr) {
            EXPECT_TRUE(std::equal(before.begin(), before.end(), g_.data()) && g_.intact())
                << name << " wrote with list entries " << i << " and " << j;
        }
        std::memcpy(g_.data(), before.data(), before.size());
    }

private:
    template <class... A>
    static std::tuple<A...> with(std::tuple<A...> t, std::initializer_list<const Arg*> set) {
        for (const Arg* a : set) put(t, *a, std::index_sequence_for<A...>{});
        return t;
    }
    template <class Tuple, size_t... I>
    static void put(Tuple& t, const Arg& a, std::index_sequence<I...>) {
        ((a.index == I ? assign(std::get<I>(t), a) : void()), ...);
    }
    template <class T>
    static void assign(T& slot, const Arg& a) {
        std::visit(
            [&](const auto& x) {
                using X = std::decay_t<decltype(x)>;
                if constexpr (std::is_pointer_v<T> && std::is_object_v<std::remove_pointer_t<T>> &&
                              std::is_same_v<X, const void*>)
                    slot = static_cast<T>(const_cast<void*>(x));
                else if constexpr (std::is_convertible_v<X, T>)
                    slot = static_cast<T>(x);
                else
                    ADD_FAILURE() << "argument " << a.index << " cannot take that value";
            },
            a.value);
    }

    Guarded g_;
    size_t used_ = 0;
};

}  // namespace kplvc::test

// CHECK_ARGS(pool, function, {good arguments}, {list}): pool.check with the
// function's name.
#define CHECK_ARGS(pool, fn, ...) (pool).check(#fn, fn, __VA_ARGS__)
