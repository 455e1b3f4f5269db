// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Building blocks of the filters' specialised steps: result rows accumulated
// several elements at a time, and checks that decide whether a step may use
// them.
//
// A specialised step computes every result element as the plain matrix
// operation would, 0.0 + t0 + t1 + ... with the terms in the same order, and
// leaves out only products with a structural zero of a known matrix. That is
// exact while the other factor is finite: the product is then +-0, and a sum
// that starts at +0.0 never becomes -0.0 in round-to-nearest, so adding +-0
// changes nothing. The steps therefore check their operands (and the
// intermediates that meet a skipped zero) with FiniteCheck and fall back to
// the plain path when anything is NaN or infinite.
//
// Neighbouring elements of a row are independent sums, so they are carried
// in one register of W lanes (W = 2 everywhere; W = 4 in the clones built
// for processors with 256-bit registers, see wide_lanes.h); each lane does
// exactly the scalar arithmetic (no contraction: the library is built with
// -ffp-contract=off), so the lane width never changes a bit.
#pragma once

#include <cstdint>

#define MAGCAL_INLINE inline __attribute__((always_inline))

namespace magcal::matrix {

using Pair = double __attribute__((vector_size(16)));
using Quad = double __attribute__((vector_size(32)));

template <int W>
struct LaneType;
template <>
struct LaneType<2> {
    using type = Pair;
};
template <>
struct LaneType<4> {
    using type = Quad;
};
template <int W>
using Lanes = typename LaneType<W>::type;

// Wide registers are passed by reference only: a 256-bit value passed or
// returned by value would have a different calling convention in the clones.
template <typename V>
MAGCAL_INLINE void load_lanes(V& v, const double* p) {
    __builtin_memcpy(&v, p, sizeof v);
}

template <typename V>
MAGCAL_INLINE void store_lanes(double* p, const V& v) {
    __builtin_memcpy(p, &v, sizeof v);
}

MAGCAL_INLINE Pair load_pair(const double* p) {
    Pair v;
    load_lanes(v, p);
    return v;
}

MAGCAL_INLINE void store_pair(double* p, Pair v) {
    store_lanes(p, v);
}

MAGCAL_INLINE Pair splat(double v) {
    return Pair{v, v};
}

// a + b with a as the first operand of the machine's addition. When both
// are NaN the result is one of them, and which one depends on that order
// (x86 returns the first operand's); C++ leaves the order to the compiler.
// The histories' sums must keep the order the library has always had, so on
// x86-64 it is pinned here; elsewhere it is the compiler's.
template <typename T>  // double or Pair
MAGCAL_INLINE T add_nan_first(T a, T b) {
#if defined(__x86_64__) && defined(__GNUC__)
    if constexpr (sizeof(T) == sizeof(double))
        __asm__("addsd %1, %0" : "+x"(a) : "xm"(b));
    else
        __asm__("addpd %1, %0" : "+x"(a) : "x"(b));  // in memory it may be unaligned
    return a;
#else
    return a + b;
#endif
}

// +0.0 in both lanes: the start of every result element.
constexpr Pair kZeroPair = {0.0, 0.0};

// One result row of N elements, each starting at +0.0 like a cleared
// destination element: kWide registers of W lanes, then at most one pair,
// then at most one single element.
template <int N, int W = 2>
struct RowSum {
    using Wide = Lanes<W>;
    static constexpr int kWide = N / W;
    static constexpr int kPairAt = kWide * W;  // first element after the wide registers
    static constexpr bool kHasPair = N - kPairAt >= 2;
    static constexpr bool kHasLast = N % 2 == 1;

    Wide wide[kWide > 0 ? kWide : 1] = {};
    Pair pair = {};
    double last = 0.0;  // element N - 1 when N is odd

    // row[j] += a * b[j] for every j, b being a source row.
    MAGCAL_INLINE void add(double a, const double* b) {
        Wide aa;
        for (int l = 0; l < W; ++l) aa[l] = a;
#pragma GCC unroll 8
        for (int j = 0; j < kWide; ++j) {
            Wide bj;
            load_lanes(bj, b + W * j);
            wide[j] += aa * bj;
        }
        if (kHasPair) pair += Pair{a, a} * load_pair(b + kPairAt);
        if (kHasLast) last += a * b[N - 1];
    }

    // row[j] += v for one element: a term whose other factor is exactly 1.0.
    MAGCAL_INLINE void add_at(int j, double v) {
        if (j < kPairAt)
            wide[j / W][j % W] += v;
        else if (kHasPair && j < kPairAt + 2)
            pair[j - kPairAt] += v;
        else
            last += v;
    }

    MAGCAL_INLINE void store(double* dst) const {
#pragma GCC unroll 8
        for (int j = 0; j < kWide; ++j) store_lanes(dst + W * j, wide[j]);
        if (kHasPair) store_pair(dst + kPairAt, pair);
        if (kHasLast) dst[N - 1] = last;
    }
};

// dst[j] = (0.0 + (a[j] + b[j])) / divisor, element by element; with
// kDivide false, without the division.
template <bool kDivide, int N, int W>
MAGCAL_INLINE void store_sum(double* dst, const RowSum<N, W>& a, const RowSum<N, W>& b,
                             double divisor = 1.0) {
    using Row = RowSum<N, W>;
    using Wide = typename Row::Wide;
    Wide d;
    for (int l = 0; l < W; ++l) d[l] = divisor;
    const Wide zero = {};
#pragma GCC unroll 8
    for (int j = 0; j < Row::kWide; ++j) {
        const Wide s = zero + (a.wide[j] + b.wide[j]);
        store_lanes(dst + W * j, kDivide ? s / d : s);
    }
    if (Row::kHasPair) {
        const Pair s = kZeroPair + (a.pair + b.pair);
        store_pair(dst + Row::kPairAt, kDivide ? s / splat(divisor) : s);
    }
    if (Row::kHasLast) {
        const double s = 0.0 + (a.last + b.last);
        dst[N - 1] = kDivide ? s / divisor : s;
    }
}

// Collects values and tells whether all of them were finite: x - x is +0.0
// for a finite x and NaN for an infinity or a NaN, and NaN survives any sum.
template <int W = 2>
class FiniteCheck {
  public:
    using Wide = Lanes<W>;

    MAGCAL_INLINE void add(double v) { tail_ += v - v; }
    template <int N>
    MAGCAL_INLINE void add(const double* v) {
        int i = 0;
#pragma GCC unroll 64
        for (; i + W <= N; i += W) {
            Wide p;
            load_lanes(p, v + i);
            wide_ += p - p;
        }
        if (W == 4 && i + 2 <= N) {
            const Pair p = load_pair(v + i);
            pair_ += p - p;
            i += 2;
        }
        if (i < N) add(v[N - 1]);
    }
    // The elements of a row still held in its accumulators.
    template <int N>
    MAGCAL_INLINE void add(const RowSum<N, W>& row) {
        for (int j = 0; j < RowSum<N, W>::kWide; ++j) wide_ += row.wide[j] - row.wide[j];
        if (RowSum<N, W>::kHasPair) pair_ += row.pair - row.pair;
        if (RowSum<N, W>::kHasLast) add(row.last);
    }
    MAGCAL_INLINE bool all_finite() const {
        double sum = tail_ + pair_[0] + pair_[1];
        for (int l = 0; l < W; ++l) sum += wide_[l];
        return sum == 0.0;
    }

  private:
    Wide wide_ = {};
    Pair pair_ = {};
    double tail_ = 0.0;
};
// Whether the leading n x n block of a record with row stride S is diagonal
// with a finite diagonal: every off-diagonal element a zero of either sign.
// Each row is multiplied by a mask that is 1 off the diagonal and 0 on it,
// so a non-zero off-diagonal element stays non-zero and an infinite or NaN
// diagonal element becomes NaN; either compares unequal to zero.
template <int n, int S>
bool diagonal_and_finite(const double* m) {
    using Mask = long long __attribute__((vector_size(16)));
    Mask nonzero = {0, 0};
    bool last_nonzero = false;
    double last_diagonal = 0.0;
#pragma GCC unroll 16
    for (int i = 0; i < n; ++i) {
#pragma GCC unroll 8
        for (int j = 0; j + 1 < n; j += 2) {
            const Pair mask = {i == j ? 0.0 : 1.0, i == j + 1 ? 0.0 : 1.0};
            nonzero |= (load_pair(m + i * S + j) * mask) != Pair{0.0, 0.0};
        }
        if (n % 2 == 1) {
            const double v = m[i * S + n - 1];
            if (i == n - 1)
                last_diagonal = v - v;
            else
                last_nonzero |= v != 0.0;
        }
    }
    return nonzero[0] == 0 && nonzero[1] == 0 && !last_nonzero && last_diagonal == 0.0;
}

// Whether two arrays of doubles share any element.
inline bool overlap(const double* a, int na, const double* b, int nb) {
    const auto a0 = reinterpret_cast<uintptr_t>(a);
    const auto b0 = reinterpret_cast<uintptr_t>(b);
    return a0 < b0 + nb * sizeof(double) && b0 < a0 + na * sizeof(double);
}

}  // namespace magcal::matrix
