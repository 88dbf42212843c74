// BLAS and LAPACK through their Fortran interface (32-bit integers), with
// the hidden string-length arguments, and typed wrappers over T that take
// 64-bit counts: vectors longer than BLAS can count go through in pieces,
// products beyond its counts through plain loops, and a square matrix whose
// order no 32-bit count can hold (it could not exist) fails as an allocation.
#pragma once

#include <algorithm>
#include <climits>
#include <cstddef>
#include <type_traits>

#include "host/except.hpp"

extern "C" {
void dgemv_(const char* trans, const int* m, const int* n, const double* alpha, const double* a,
            const int* lda, const double* x, const int* incx, const double* beta, double* y,
            const int* incy, size_t transLength);
void sgemv_(const char* trans, const int* m, const int* n, const float* alpha, const float* a,
            const int* lda, const float* x, const int* incx, const float* beta, float* y,
            const int* incy, size_t transLength);
void dgemm_(const char* transa, const char* transb, const int* m, const int* n, const int* k,
            const double* alpha, const double* a, const int* lda, const double* b, const int* ldb,
            const double* beta, double* c, const int* ldc, size_t, size_t);
void sgemm_(const char* transa, const char* transb, const int* m, const int* n, const int* k,
            const float* alpha, const float* a, const int* lda, const float* b, const int* ldb,
            const float* beta, float* c, const int* ldc, size_t, size_t);
void dtrmv_(const char* uplo, const char* trans, const char* diag, const int* n, const double* a,
            const int* lda, double* x, const int* incx, size_t, size_t, size_t);
void strmv_(const char* uplo, const char* trans, const char* diag, const int* n, const float* a,
            const int* lda, float* x, const int* incx, size_t, size_t, size_t);
void dsyrk_(const char* uplo, const char* trans, const int* n, const int* k, const double* alpha,
            const double* a, const int* lda, const double* beta, double* c, const int* ldc, size_t,
            size_t);
void ssyrk_(const char* uplo, const char* trans, const int* n, const int* k, const float* alpha,
            const float* a, const int* lda, const float* beta, float* c, const int* ldc, size_t,
            size_t);
double ddot_(const int* n, const double* x, const int* incx, const double* y, const int* incy);
float sdot_(const int* n, const float* x, const int* incx, const float* y, const int* incy);
void dtrtrs_(const char* uplo, const char* trans, const char* diag, const int* n, const int* nrhs,
             const double* a, const int* lda, double* b, const int* ldb, int* info, size_t, size_t,
             size_t);
void strtrs_(const char* uplo, const char* trans, const char* diag, const int* n, const int* nrhs,
             const float* a, const int* lda, float* b, const int* ldb, int* info, size_t, size_t,
             size_t);
void dpotrs_(const char* uplo, const int* n, const int* nrhs, const double* a, const int* lda,
             double* b, const int* ldb, int* info, size_t);
void spotrs_(const char* uplo, const int* n, const int* nrhs, const float* a, const int* lda,
             float* b, const int* ldb, int* info, size_t);
void daxpy_(const int* n, const double* alpha, const double* x, const int* incx, double* y, const int* incy);
void dsyev_(const char* jobz, const char* uplo, const int* n, double* a, const int* lda, double* w, double* work,
            const int* lwork, int* info, size_t, size_t);
void saxpy_(const int* n, const float* alpha, const float* x, const int* incx, float* y, const int* incy);
}

namespace zv::blas {

namespace detail {

inline constexpr size_t kMaxCount = size_t(INT_MAX);

inline bool fits(size_t n) { return n <= kMaxCount; }

// An order or leading dimension of a matrix that BLAS must see whole.
inline int wholeCount(size_t n) {
    if (!fits(n)) throw bedrock::core::except::bad_alloc();
    return int(n);
}
// BLAS wants leading dimensions of at least 1, also for empty matrices.
inline int leading(size_t ld) { return wholeCount(std::max<size_t>(ld, 1)); }

inline double dot(int n, const double* x, const double* y) {
    const int one = 1;
    return ddot_(&n, x, &one, y, &one);
}
inline float dot(int n, const float* x, const float* y) {
    const int one = 1;
    return sdot_(&n, x, &one, y, &one);
}
inline void axpy(int n, double alpha, const double* x, double* y) {
    const int one = 1;
    daxpy_(&n, &alpha, x, &one, y, &one);
}
inline void axpy(int n, float alpha, const float* x, float* y) {
    const int one = 1;
    saxpy_(&n, &alpha, x, &one, y, &one);
}
inline void gemv(const char* trans, int m, int n, double alpha, const double* a, int lda, const double* x,
                 double beta, double* y) {
    const int one = 1;
    dgemv_(trans, &m, &n, &alpha, a, &lda, x, &one, &beta, y, &one, 1);
}
inline void gemv(const char* trans, int m, int n, float alpha, const float* a, int lda, const float* x, float beta,
                 float* y) {
    const int one = 1;
    sgemv_(trans, &m, &n, &alpha, a, &lda, x, &one, &beta, y, &one, 1);
}

}  // namespace detail

// x . y over n values with unit strides; longer vectors sum their pieces.
template <class T>
T dot(size_t n, const T* x, const T* y) {
    if (detail::fits(n)) return detail::dot(int(n), x, y);
    T sum = 0;
    for (size_t start = 0; start < n; start += detail::kMaxCount)
        sum += detail::dot(int(std::min(detail::kMaxCount, n - start)), x + start, y + start);
    return sum;
}

// y += alpha x over n values with unit strides.
template <class T>
void axpy(size_t n, T alpha, const T* x, T* y) {
    for (size_t start = 0; start < n; start += detail::kMaxCount)
        detail::axpy(int(std::min(detail::kMaxCount, n - start)), alpha, x + start, y + start);
}

// y = alpha op(A) x + beta y, A m-by-n with leading dimension lda, unit
// strides. As in BLAS, nothing is touched when m or n is 0, and y is not
// read when beta is 0.
template <class T>
void gemv(const char* trans, size_t m, size_t n, T alpha, const T* a, size_t lda, const T* x, T beta, T* y) {
    if (detail::fits(m) && detail::fits(n) && detail::fits(lda)) {
        detail::gemv(trans, int(m), int(n), alpha, a, detail::leading(lda), x, beta, y);
        return;
    }
    if (m == 0 || n == 0) return;
    if (*trans == 'N' || *trans == 'n') {
        for (size_t i = 0; i < m; ++i) y[i] = beta == T(0) ? T(0) : beta * y[i];
        for (size_t j = 0; j < n; ++j) axpy(m, alpha * x[j], a + j * lda, y);
    } else {
        for (size_t j = 0; j < n; ++j) {
            const T s = alpha * dot(m, a + j * lda, x);
            y[j] = beta == T(0) ? s : s + beta * y[j];
        }
    }
}

// C = alpha op(A) op(B) + beta C, C m-by-n, op(A) m-by-k. Beyond BLAS's
// counts, column by column when op(B) is B, else by plain loops.
template <class T>
void gemm(const char* ta, const char* tb, size_t m, size_t n, size_t k, T alpha, const T* a, size_t lda,
          const T* b, size_t ldb, T beta, T* c, size_t ldc) {
    if (detail::fits(m) && detail::fits(n) && detail::fits(k) && detail::fits(lda) && detail::fits(ldb) &&
        detail::fits(ldc)) {
        const int M = int(m), N = int(n), K = int(k), LDA = detail::leading(lda), LDB = detail::leading(ldb),
                  LDC = detail::leading(ldc);
        if constexpr (std::is_same_v<T, double>) dgemm_(ta, tb, &M, &N, &K, &alpha, a, &LDA, b, &LDB, &beta, c, &LDC, 1, 1);
        else sgemm_(ta, tb, &M, &N, &K, &alpha, a, &LDA, b, &LDB, &beta, c, &LDC, 1, 1);
        return;
    }
    const bool transA = *ta != 'N' && *ta != 'n';
    if (*tb == 'N' || *tb == 'n') {
        for (size_t j = 0; j < n; ++j) gemv(transA ? "T" : "N", transA ? k : m, transA ? m : k, alpha, a, lda, b + j * ldb, beta, c + j * ldc);
        return;
    }
    for (size_t j = 0; j < n; ++j)
        for (size_t i = 0; i < m; ++i) {
            T s = 0;
            for (size_t l = 0; l < k; ++l) s += (transA ? a[l + i * lda] : a[i + l * lda]) * b[j + l * ldb];
            c[i + j * ldc] = beta == T(0) ? alpha * s : alpha * s + beta * c[i + j * ldc];
        }
}

// x = op(A) x for a triangular n-by-n A.
template <class T>
void trmv(const char* uplo, const char* trans, const char* diag, size_t n, const T* a, size_t lda, T* x) {
    const int N = detail::wholeCount(n), LDA = detail::leading(lda), one = 1;
    if constexpr (std::is_same_v<T, double>) dtrmv_(uplo, trans, diag, &N, a, &LDA, x, &one, 1, 1, 1);
    else strmv_(uplo, trans, diag, &N, a, &LDA, x, &one, 1, 1, 1);
}

// One triangle of C = alpha op(A) op(A)' + beta C, C n-by-n, op(A) n-by-k.
// Beyond BLAS's counts (a long k), each entry is one dot product.
template <class T>
void syrk(const char* uplo, const char* trans, size_t n, size_t k, T alpha, const T* a, size_t lda, T beta, T* c,
          size_t ldc) {
    const int N = detail::wholeCount(n), LDC = detail::leading(ldc);
    if (detail::fits(k) && detail::fits(lda)) {
        const int K = int(k), LDA = detail::leading(lda);
        if constexpr (std::is_same_v<T, double>) dsyrk_(uplo, trans, &N, &K, &alpha, a, &LDA, &beta, c, &LDC, 1, 1);
        else ssyrk_(uplo, trans, &N, &K, &alpha, a, &LDA, &beta, c, &LDC, 1, 1);
        return;
    }
    const bool lower = *uplo == 'L' || *uplo == 'l', transA = *trans != 'N' && *trans != 'n';
    for (size_t j = 0; j < n; ++j)
        for (size_t i = lower ? j : 0; i < (lower ? n : j + 1); ++i) {
            T s = 0;
            if (transA) s = dot(k, a + i * lda, a + j * lda);
            else
                for (size_t l = 0; l < k; ++l) s += a[i + l * lda] * a[j + l * lda];
            c[i + j * ldc] = beta == T(0) ? alpha * s : alpha * s + beta * c[i + j * ldc];
        }
}

// LAPACK triangular and Cholesky solves; they return the routine's info.
template <class T>
int trtrs(const char* uplo, const char* trans, const char* diag, size_t n, size_t nrhs, const T* a, size_t lda, T* b,
          size_t ldb) {
    const int N = detail::wholeCount(n), NRHS = detail::wholeCount(nrhs), LDA = detail::leading(lda),
              LDB = detail::leading(ldb);
    int info = 0;
    if constexpr (std::is_same_v<T, double>) dtrtrs_(uplo, trans, diag, &N, &NRHS, a, &LDA, b, &LDB, &info, 1, 1, 1);
    else strtrs_(uplo, trans, diag, &N, &NRHS, a, &LDA, b, &LDB, &info, 1, 1, 1);
    return info;
}
template <class T>
int potrs(const char* uplo, size_t n, size_t nrhs, const T* a, size_t lda, T* b, size_t ldb) {
    const int N = detail::wholeCount(n), NRHS = detail::wholeCount(nrhs), LDA = detail::leading(lda),
              LDB = detail::leading(ldb);
    int info = 0;
    if constexpr (std::is_same_v<T, double>) dpotrs_(uplo, &N, &NRHS, a, &LDA, b, &LDB, &info, 1);
    else spotrs_(uplo, &N, &NRHS, a, &LDA, b, &LDB, &info, 1);
    return info;
}

}  // namespace zv::blas
