// Building blocks of the filters' specialised steps: result rows accumulated
// two elements at a time, and checks that decide whether a step may use them.
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
// Two neighbouring elements of a row are independent sums, so they are
// carried in one two-lane register; each lane does exactly the scalar
// arithmetic (no contraction: the library is built with -ffp-contract=off).
#pragma once

#include <cstdint>

namespace magcal::matrix {

using Pair = double __attribute__((vector_size(16)));

inline Pair load_pair(const double* p) {
    Pair v;
    __builtin_memcpy(&v, p, sizeof v);
    return v;
}

inline void store_pair(double* p, Pair v) {
    __builtin_memcpy(p, &v, sizeof v);
}

inline Pair splat(double v) {
    return Pair{v, v};
}

// +0.0 in both lanes: the start of every result element.
constexpr Pair kZeroPair = {0.0, 0.0};

// One result row of N elements, each starting at +0.0 like a cleared
// destination element.
template <int N>
struct RowSum {
    Pair pair[N / 2 > 0 ? N / 2 : 1] = {};
    double last = 0.0;  // element N - 1 when N is odd

    // row[j] += a * b[j] for every j, b being a source row.
    void add(double a, const double* b) {
        const Pair aa = {a, a};
#pragma GCC unroll 8
        for (int j = 0; j < N / 2; ++j) pair[j] += aa * load_pair(b + 2 * j);
        if (N % 2 == 1) last += a * b[N - 1];
    }

    // row[j] += v for one element: a term whose other factor is exactly 1.0.
    void add_at(int j, double v) {
        if (N % 2 == 1 && j == N - 1)
            last += v;
        else
            pair[j / 2][j % 2] += v;
    }

    void store(double* dst) const {
#pragma GCC unroll 8
        for (int j = 0; j < N / 2; ++j) store_pair(dst + 2 * j, pair[j]);
        if (N % 2 == 1) dst[N - 1] = last;
    }
};

// Collects values and tells whether all of them were finite: x - x is +0.0
// for a finite x and NaN for an infinity or a NaN, and NaN survives any sum.
class FiniteCheck {
  public:
    void add(double v) { tail_ += v - v; }
    template <int N>
    void add(const double* v) {
#pragma GCC unroll 64
        for (int i = 0; i + 1 < N; i += 2) {
            const Pair p = load_pair(v + i);
            acc_ += p - p;
        }
        if (N % 2 == 1) add(v[N - 1]);
    }
    // The elements of a row still held in its accumulators.
    template <int N>
    void add(const RowSum<N>& row) {
        for (int j = 0; j < N / 2; ++j) acc_ += row.pair[j] - row.pair[j];
        if (N % 2 == 1) add(row.last);
    }
    bool all_finite() const {
        return acc_[0] + acc_[1] + tail_ == 0.0;
    }

  private:
    Pair acc_ = {0.0, 0.0};
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
