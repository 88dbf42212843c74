// BLAS and LAPACK through their Fortran interface (32-bit integers), with
// the hidden string-length arguments, and typed wrappers over T.
#pragma once

#include <cstddef>

extern "C" {
void dgemv_(const char* trans, const int* m, const int* n, const double* alpha, const double* a,
            const int* lda, const double* x, const int* incx, const double* beta, double* y,
            const int* incy, size_t transLength);
void sgemv_(const char* trans, const int* m, const int* n, const float* alpha, const float* a,
            const int* lda, const float* x, const int* incx, const float* beta, float* y,
            const int* incy, size_t transLength);
void dtrmv_(const char* uplo, const char* trans, const char* diag, const int* n, const double* a,
            const int* lda, double* x, const int* incx, size_t, size_t, size_t);
void strmv_(const char* uplo, const char* trans, const char* diag, const int* n, const float* a,
            const int* lda, float* x, const int* incx, size_t, size_t, size_t);
}

namespace zv::blas {

inline void gemv(const char* trans, int m, int n, double alpha, const double* a, int lda,
                 const double* x, int incx, double beta, double* y, int incy) {
    dgemv_(trans, &m, &n, &alpha, a, &lda, x, &incx, &beta, y, &incy, 1);
}
inline void gemv(const char* trans, int m, int n, float alpha, const float* a, int lda,
                 const float* x, int incx, float beta, float* y, int incy) {
    sgemv_(trans, &m, &n, &alpha, a, &lda, x, &incx, &beta, y, &incy, 1);
}
inline void trmv(const char* uplo, const char* trans, const char* diag, int n, const double* a,
                 int lda, double* x, int incx) {
    dtrmv_(uplo, trans, diag, &n, a, &lda, x, &incx, 1, 1, 1);
}
inline void trmv(const char* uplo, const char* trans, const char* diag, int n, const float* a,
                 int lda, float* x, int incx) {
    strmv_(uplo, trans, diag, &n, a, &lda, x, &incx, 1, 1, 1);
}

}  // namespace zv::blas
