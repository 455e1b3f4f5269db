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
    void add(const double* v, int n) {
        int i = 0;
        for (; i + 1 < n; i += 2) {
            const Pair p = load_pair(v + i);
            acc_ += p - p;
        }
        if (i < n) add(v[i]);
    }
    // Rows of a record with a row stride.
    void add_rows(const double* first, int rows, int cols, int stride) {
        for (int i = 0; i < rows; ++i) add(first + i * stride, cols);
    }
    bool all_finite() const { return acc_[0] + acc_[1] + tail_ == 0.0; }

  private:
    Pair acc_ = {0.0, 0.0};
    double tail_ = 0.0;
};

// Whether an n x n block (row stride `stride`) holds zeros, of either sign,
// everywhere off its diagonal.
inline bool zero_off_diagonal(const double* m, int n, int stride) {
    bool nonzero = false;
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
            if (i != j) nonzero |= m[i * stride + j] != 0.0;
    return !nonzero;
}

// Whether two arrays of doubles share any element.
inline bool overlap(const double* a, int na, const double* b, int nb) {
    const auto a0 = reinterpret_cast<uintptr_t>(a);
    const auto b0 = reinterpret_cast<uintptr_t>(b);
    return a0 < b0 + nb * sizeof(double) && b0 < a0 + na * sizeof(double);
}

}  // namespace magcal::matrix
