#pragma once
// Dense linear algebra on plain row-major arrays. Instantiated for float and
// double. None of these throw on numerical failure; they answer a rank or a
// flag and leave partial work in the outputs. A negative size throws
// std::runtime_error.

#include "platform/Api.h"

#include <cstddef>

// Inverse of the n-by-n matrix a by Gauss-Jordan elimination with full
// pivoting. a is left unchanged. determinant receives the product of the
// pivots with the exchange sign (0 for a singular matrix), pivot the smallest
// pivot's absolute value. Terms no larger than 1e-6 times the first pivot are
// taken for zero, which costs accuracy on ill-conditioned input (for n = 200:
// 1e-13 relative at condition 1e4, 1e-5 at 1e5, 1e-3 at 1e6). Returns the
// rank reached; below n, inverse holds the partial elimination.
template <class T>
TEZ_API int TezMatrixInvert(int n, T* a, T* inverse, T& determinant, T& pivot);

// In-place Cholesky factor A = L L^T of the symmetric n-by-n matrix a, right
// looking and blocked by blockSize (values below 1 take a default). L is left
// in the lower triangle, diagonal included; the strict upper triangle is not
// touched. False when a diagonal term is 0 or below (not positive definite).
template <class T>
TEZ_API bool TezMatrixCholesky(size_t n, T* a, int blockSize);

// Factors a in place, then solves A X = B for the n-by-columns right-hand
// sides b (row-major), overwriting b with X. False if the factor fails.
template <class T>
TEZ_API bool TezMatrixCholeskySolveSystem(size_t n, size_t columns, T* a, T* b, int blockSize);
template <class T>
TEZ_API bool TezMatrixCholeskySolveSystem(size_t n, T* a, T* b, int blockSize);

// Thin singular value decomposition a = U diag(s) V^T of the rows-by-columns
// matrix a (left unchanged), by Householder bidiagonalisation and implicit
// shifted QR (Golub-Kahan-Reinsch). With k = min(rows, columns): s receives k
// values in decreasing order, u (rows-by-k) and v (columns-by-k) the
// singular vectors as columns; u or v may be null to skip them. Returns false
// when the QR iteration does not converge.
template <class T>
TEZ_API bool TezMatrixSVD(size_t rows, size_t columns, T* a, T* s, T* u, T* v);
