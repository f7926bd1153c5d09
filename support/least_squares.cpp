#include <qvgeo/support/least_squares.h>

#include <qvgeo/support/math_services.h>

#include <algorithm>
#include <cmath>

namespace qv {

namespace {

// sqrt(a² + b²) without destructive overflow or underflow.
double Hypot(double a, double b)
{
    const double aa = std::fabs(a), ab = std::fabs(b);
    if (aa > ab)
        return aa * std::sqrt(1.0 + (ab / aa) * (ab / aa));
    return ab == 0.0 ? 0.0 : ab * std::sqrt(1.0 + (aa / ab) * (aa / ab));
}

double WithSignOf(double magnitude, double sign) { return sign >= 0.0 ? std::fabs(magnitude) : -std::fabs(magnitude); }

// Row-major accessor for a rows x cols matrix.
struct Mat {
    std::vector<double>& d;
    int cols;
    double& operator()(int r, int c) { return d[static_cast<std::size_t>(r) * cols + c]; }
};

}  // namespace

bool SingularValueDecomposition(const std::vector<double>& A, int m, int n, TSingularValueDecomposition& R,
                                TMathProgress* Progress)
{
    if (m < 1 || n < 1 || A.size() != static_cast<std::size_t>(m) * static_cast<std::size_t>(n))
        return false;
    for (const double x : A)
        if (!std::isfinite(x))
            return false;

    // Fewer rows than columns: pad with zero rows so that the bidiagonalisation sees a tall matrix.
    const int rows = std::max(m, n);
    R.Rows = rows;
    R.Cols = n;
    R.U.assign(static_cast<std::size_t>(rows) * n, 0.0);
    std::copy(A.begin(), A.end(), R.U.begin());
    R.W.assign(static_cast<std::size_t>(n), 0.0);
    R.V.assign(static_cast<std::size_t>(n) * n, 0.0);
    Mat a{R.U, n}, v{R.V, n};
    std::vector<double>& w = R.W;
    std::vector<double> e(static_cast<std::size_t>(n), 0.0);  // superdiagonal of the bidiagonal form

    // 1. Householder reduction to upper bidiagonal form: w on the diagonal, e[i] above it (e[0] = 0).
    double g = 0.0, scale = 0.0, anorm = 0.0;
    for (int i = 0; i < n; ++i) {
        const int l = i + 1;
        e[i] = scale * g;
        g = scale = 0.0;
        double s = 0.0;
        for (int k = i; k < rows; ++k)
            scale += std::fabs(a(k, i));
        if (scale != 0.0) {
            for (int k = i; k < rows; ++k) {
                a(k, i) /= scale;
                s += a(k, i) * a(k, i);
            }
            const double f = a(i, i);
            g = -WithSignOf(std::sqrt(s), f);
            const double h = f * g - s;
            a(i, i) = f - g;
            for (int j = l; j < n; ++j) {
                double sum = 0.0;
                for (int k = i; k < rows; ++k)
                    sum += a(k, i) * a(k, j);
                const double factor = sum / h;
                for (int k = i; k < rows; ++k)
                    a(k, j) += factor * a(k, i);
            }
            for (int k = i; k < rows; ++k)
                a(k, i) *= scale;
        }
        w[i] = scale * g;
        g = s = scale = 0.0;
        if (i != n - 1) {
            for (int k = l; k < n; ++k)
                scale += std::fabs(a(i, k));
            if (scale != 0.0) {
                for (int k = l; k < n; ++k) {
                    a(i, k) /= scale;
                    s += a(i, k) * a(i, k);
                }
                const double f = a(i, l);
                g = -WithSignOf(std::sqrt(s), f);
                const double h = f * g - s;
                a(i, l) = f - g;
                for (int k = l; k < n; ++k)
                    e[k] = a(i, k) / h;
                for (int j = l; j < rows; ++j) {
                    double sum = 0.0;
                    for (int k = l; k < n; ++k)
                        sum += a(j, k) * a(i, k);
                    for (int k = l; k < n; ++k)
                        a(j, k) += sum * e[k];
                }
                for (int k = l; k < n; ++k)
                    a(i, k) *= scale;
            }
        }
        anorm = std::max(anorm, std::fabs(w[i]) + std::fabs(e[i]));
    }

    // 2. Accumulate the right-hand transformations into V.
    for (int i = n - 1; i >= 0; --i) {
        const int l = i + 1;
        if (i < n - 1) {
            if (g != 0.0) {
                for (int j = l; j < n; ++j)  // double division avoids underflow
                    v(j, i) = (a(i, j) / a(i, l)) / g;
                for (int j = l; j < n; ++j) {
                    double sum = 0.0;
                    for (int k = l; k < n; ++k)
                        sum += a(i, k) * v(k, j);
                    for (int k = l; k < n; ++k)
                        v(k, j) += sum * v(k, i);
                }
            }
            for (int j = l; j < n; ++j)
                v(i, j) = v(j, i) = 0.0;
        }
        v(i, i) = 1.0;
        g = e[i];
    }

    // 3. Accumulate the left-hand transformations into U (in place of A).
    for (int i = n - 1; i >= 0; --i) {
        const int l = i + 1;
        g = w[i];
        for (int j = l; j < n; ++j)
            a(i, j) = 0.0;
        if (g != 0.0) {
            g = 1.0 / g;
            for (int j = l; j < n; ++j) {
                double sum = 0.0;
                for (int k = l; k < rows; ++k)
                    sum += a(k, i) * a(k, j);
                const double f = (sum / a(i, i)) * g;
                for (int k = i; k < rows; ++k)
                    a(k, j) += f * a(k, i);
            }
            for (int j = i; j < rows; ++j)
                a(j, i) *= g;
        } else {
            for (int j = i; j < rows; ++j)
                a(j, i) = 0.0;
        }
        a(i, i) += 1.0;
    }

    // 4. Diagonalise the bidiagonal form by implicit-shift QR, one singular value at a time from the
    // bottom. Each singular value is one outer step of the progress hook.
    for (int k = n - 1; k >= 0; --k) {
        if (!MathProgressStep(Progress))
            return false;
        for (int its = 1;; ++its) {
            // Find l such that e[l] is negligible (then the block l..k splits off) or w[l-1] is
            // negligible (then e[l] is chased out first). e[0] is zero by construction, so l = 0 is a
            // split whatever rounding did to anorm.
            bool cancel = true;
            int l = k;
            for (; l >= 0; --l) {
                if (l == 0 || std::fabs(e[l]) + anorm == anorm) {
                    cancel = false;
                    break;
                }
                if (std::fabs(w[l - 1]) + anorm == anorm)
                    break;
            }
            if (cancel) {
                const int nm = l - 1;
                double c = 0.0, s = 1.0;
                for (int i = l; i <= k; ++i) {
                    const double f = s * e[i];
                    e[i] = c * e[i];
                    if (std::fabs(f) + anorm == anorm)
                        break;
                    const double gg = w[i];
                    const double h = Hypot(f, gg);
                    w[i] = h;
                    c = gg / h;
                    s = -f / h;
                    for (int j = 0; j < rows; ++j) {
                        const double y = a(j, nm), z = a(j, i);
                        a(j, nm) = y * c + z * s;
                        a(j, i) = z * c - y * s;
                    }
                }
            }
            double z = w[k];
            if (l == k) {  // converged; singular values are made non-negative
                if (z < 0.0) {
                    w[k] = -z;
                    for (int j = 0; j < n; ++j)
                        v(j, k) = -v(j, k);
                }
                break;
            }
            if (its >= 30)
                return false;
            // Shift from the bottom 2 x 2 minor.
            double x = w[l];
            const int nm = k - 1;
            double y = w[nm];
            double gg = e[nm];
            double h = e[k];
            double f = ((y - z) * (y + z) + (gg - h) * (gg + h)) / (2.0 * h * y);
            gg = Hypot(f, 1.0);
            f = ((x - z) * (x + z) + h * ((y / (f + WithSignOf(gg, f))) - h)) / x;
            // Next QR transformation: chase the bulge down the bidiagonal.
            double c = 1.0, s = 1.0;
            for (int j = l; j <= nm; ++j) {
                const int i = j + 1;
                gg = e[i];
                y = w[i];
                h = s * gg;
                gg = c * gg;
                z = Hypot(f, h);
                e[j] = z;
                c = f / z;
                s = h / z;
                f = x * c + gg * s;
                gg = gg * c - x * s;
                h = y * s;
                y *= c;
                for (int jj = 0; jj < n; ++jj) {
                    const double xv = v(jj, j), zv = v(jj, i);
                    v(jj, j) = xv * c + zv * s;
                    v(jj, i) = zv * c - xv * s;
                }
                z = Hypot(f, h);
                w[j] = z;
                if (z != 0.0) {
                    z = 1.0 / z;
                    c = f * z;
                    s = h * z;
                }
                f = c * gg + s * y;
                x = c * y - s * gg;
                for (int jj = 0; jj < rows; ++jj) {
                    const double yu = a(jj, j), zu = a(jj, i);
                    a(jj, j) = yu * c + zu * s;
                    a(jj, i) = zu * c - yu * s;
                }
            }
            e[l] = 0.0;
            e[k] = f;
            w[k] = x;
        }
    }
    return true;
}

bool SolveLeastSquares(const TMatrix& A, const TVector& b, TVector& c, bool& Singular, TVector* Variances,
                       TMathProgress* Progress)
{
    Singular = false;
    const int n = A.NrOfColumns(), m = A.NrOfRows();
    if (n < 1 || m < 1 || b.NumElem() != m)
        return false;
    std::vector<double> rowMajor(static_cast<std::size_t>(m) * n);
    for (int r = 1; r <= m; ++r)
        for (int col = 1; col <= n; ++col)
            rowMajor[static_cast<std::size_t>(r - 1) * n + (col - 1)] = A.GetVal(col, r);
    std::vector<double> rhs(static_cast<std::size_t>(m));
    for (int r = 1; r <= m; ++r)
        rhs[static_cast<std::size_t>(r - 1)] = b.GetVal(r);
    for (const double x : rhs)
        if (!std::isfinite(x))
            return false;

    TSingularValueDecomposition svd;
    if (!SingularValueDecomposition(rowMajor, m, n, svd, Progress))
        return false;

    std::vector<double>& w = svd.W;
    const double wmax = *std::max_element(w.begin(), w.end());
    const double threshold = wmax * SingularValueThreshold;
    for (double& x : w)
        if (x < threshold || x == 0.0) {  // an exact zero counts too, even when every w is zero
            Singular = true;
            x = 0.0;
        }

    // c = V * diag(1/w) * U^T * b, with 1/0 taken as 0. U's padding rows (m < n) meet no data.
    std::vector<double> t(static_cast<std::size_t>(n), 0.0);
    for (int j = 0; j < n; ++j) {
        if (w[j] == 0.0)
            continue;
        double s = 0.0;
        for (int i = 0; i < m; ++i)
            s += svd.U[static_cast<std::size_t>(i) * n + j] * rhs[static_cast<std::size_t>(i)];
        t[static_cast<std::size_t>(j)] = s / w[j];
    }
    c.SetVecSize(n);
    for (int i = 0; i < n; ++i) {
        double s = 0.0;
        for (int j = 0; j < n; ++j)
            s += svd.V[static_cast<std::size_t>(i) * n + j] * t[static_cast<std::size_t>(j)];
        c.SetVal(i + 1, s);
    }
    if (Variances) {
        Variances->SetVecSize(n);
        for (int i = 0; i < n; ++i) {
            double s = 0.0;
            for (int j = 0; j < n; ++j)
                if (w[j] != 0.0) {
                    const double r = svd.V[static_cast<std::size_t>(i) * n + j] / w[j];
                    s += r * r;
                }
            Variances->SetVal(i + 1, s);
        }
    }
    return true;
}

}  // namespace qv
