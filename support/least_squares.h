// Least-squares solution of an over- or under-determined linear system through a singular value
// decomposition (Golub–Kahan bidiagonalisation followed by implicit-shift QR on the bidiagonal).
//
// Singular values below 1e-14 of the largest are treated as zero, which makes the answer the
// minimum-norm solution when the system is rank-deficient (for example one calibration quad for three
// unknowns). The decomposition reports progress and honours an abort, one step per singular value
// diagonalised, through the TMathProgress passed in or, without one, the calling thread's ProcStat,
// MathFeedBackProc and AbortMathProc (math_services.h).
#pragma once

#include <qvgeo/support/math_services.h>
#include <qvgeo/support/matrix.h>

#include <vector>

namespace qv {

// Thin SVD of an m x n matrix given row-major in A: A = U * diag(W) * V^T, U m x n (for m < n the
// matrix is padded with zero rows to n x n first and U is n x n), W n, V n x n, all row-major.
// At most 30 QR iterations per singular value; false when that limit is reached or on abort.
struct TSingularValueDecomposition {
    int Rows = 0, Cols = 0;          // of U: max(m, n) x n
    std::vector<double> U, W, V;
};
bool SingularValueDecomposition(const std::vector<double>& A, int m, int n,
                                TSingularValueDecomposition& Result, TMathProgress* Progress = nullptr);

// Minimises |A*c - b|² for A given as a TMatrix indexed (column, row) with n columns and m rows, and b
// with m elements. On success c has n elements, Singular tells whether singular values were discarded,
// and Variances (if not null) receives the n variances sum_j (V_ij / w_j)² of the coefficients.
// On failure (decomposition failed or aborted, or sizes that do not match) c is left untouched.
bool SolveLeastSquares(const TMatrix& A, const TVector& b, TVector& c, bool& Singular,
                       TVector* Variances = nullptr, TMathProgress* Progress = nullptr);

// Relative threshold below which a singular value counts as zero.
inline constexpr double SingularValueThreshold = 1e-14;

}  // namespace qv
