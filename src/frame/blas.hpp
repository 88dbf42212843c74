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
void saxpy_(const int* n, const float* alpha, const float* x, const int* incx, float* y, const int* incy);
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
inline void gemm(const char* ta, const char* tb, int m, int n, int k, double alpha, const double* a,
                 int lda, const double* b, int ldb, double beta, double* c, int ldc) {
    dgemm_(ta, tb, &m, &n, &k, &alpha, a, &lda, b, &ldb, &beta, c, &ldc, 1, 1);
}
inline void gemm(const char* ta, const char* tb, int m, int n, int k, float alpha, const float* a,
                 int lda, const float* b, int ldb, float beta, float* c, int ldc) {
    sgemm_(ta, tb, &m, &n, &k, &alpha, a, &lda, b, &ldb, &beta, c, &ldc, 1, 1);
}
inline void trmv(const char* uplo, const char* trans, const char* diag, int n, const double* a,
                 int lda, double* x, int incx) {
    dtrmv_(uplo, trans, diag, &n, a, &lda, x, &incx, 1, 1, 1);
}
inline void trmv(const char* uplo, const char* trans, const char* diag, int n, const float* a,
                 int lda, float* x, int incx) {
    strmv_(uplo, trans, diag, &n, a, &lda, x, &incx, 1, 1, 1);
}

inline void syrk(const char* uplo, const char* trans, int n, int k, double alpha, const double* a,
                 int lda, double beta, double* c, int ldc) {
    dsyrk_(uplo, trans, &n, &k, &alpha, a, &lda, &beta, c, &ldc, 1, 1);
}
inline void syrk(const char* uplo, const char* trans, int n, int k, float alpha, const float* a,
                 int lda, float beta, float* c, int ldc) {
    ssyrk_(uplo, trans, &n, &k, &alpha, a, &lda, &beta, c, &ldc, 1, 1);
}
inline double dot(int n, const double* x, int incx, const double* y, int incy) {
    return ddot_(&n, x, &incx, y, &incy);
}
inline float dot(int n, const float* x, int incx, const float* y, int incy) {
    return sdot_(&n, x, &incx, y, &incy);
}
// LAPACK solves; they return the routine's info.
inline int trtrs(const char* uplo, const char* trans, const char* diag, int n, int nrhs,
                 const double* a, int lda, double* b, int ldb) {
    int info = 0;
    dtrtrs_(uplo, trans, diag, &n, &nrhs, a, &lda, b, &ldb, &info, 1, 1, 1);
    return info;
}
inline int trtrs(const char* uplo, const char* trans, const char* diag, int n, int nrhs,
                 const float* a, int lda, float* b, int ldb) {
    int info = 0;
    strtrs_(uplo, trans, diag, &n, &nrhs, a, &lda, b, &ldb, &info, 1, 1, 1);
    return info;
}
inline int potrs(const char* uplo, int n, int nrhs, const double* a, int lda, double* b, int ldb) {
    int info = 0;
    dpotrs_(uplo, &n, &nrhs, a, &lda, b, &ldb, &info, 1);
    return info;
}
inline int potrs(const char* uplo, int n, int nrhs, const float* a, int lda, float* b, int ldb) {
    int info = 0;
    spotrs_(uplo, &n, &nrhs, a, &lda, b, &ldb, &info, 1);
    return info;
}
inline void axpy(int n, double alpha, const double* x, int incx, double* y, int incy) {
    daxpy_(&n, &alpha, x, &incx, y, &incy);
}
inline void axpy(int n, float alpha, const float* x, int incx, float* y, int incy) {
    saxpy_(&n, &alpha, x, &incx, y, &incy);
}

}  // namespace zv::blas
