// The limits of the numeric services at their exact edges: the least-squares solver's cut-off for
// singular values, the variances it reports, the statistics of a curve fit (which divisor, which
// square root) and a parabola over nearly coincident abscissae.
//
// A diagonal design is its own singular value decomposition, so its singular values are known exactly
// and the cut-off can be probed at the last bit.
#include <qvgeo/support/curve_fit.h>
#include <qvgeo/support/least_squares.h>
#include <qvgeo/support/matrix.h>

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace qv {
namespace {

// The design diag(w1, w2) over a third, zero row (a tall system), and the right-hand side (1, 1, 0).
void SolveDiagonal(double w1, double w2, TVector& c, bool& singular, TVector& var)
{
    TMatrix a(2, 3);
    a.SetVal(1, 1, w1);
    a.SetVal(2, 2, w2);
    TVector b(3);
    b.SetVal(1, 1.0);
    b.SetVal(2, 1.0);
    ASSERT_TRUE(SolveLeastSquares(a, b, c, singular, &var));
}

TEST(SolverLimits, SingularValueCutOffIsStrictAndRelativeToTheLargest)
{
    const double at = 1.0 * SingularValueThreshold;  // computed as the solver computes its cut-off
    struct Case {
        double w1, w2;
        bool keep1, keep2;  // whether each singular value survives the cut-off
    };
    const Case cases[] = {
        {1.0, at, true, true},                                   // exactly at the cut-off: kept
        {1.0, std::nextafter(at, 0.0), true, false},             // one bit below: discarded
        {-1.0, -at, true, true},                                 // signs do not matter
        {at, 1.0, true, true},                                   // the largest is not the first
        {std::nextafter(at, 0.0), 1.0, false, true},
        {1e6, 1e-9, true, false},                                // relative: 1e-9 < 1e6·1e-14
        {1e-20, 1e-21, true, true},                              // tiny but well conditioned
        {1024.0, 1024.0 * SingularValueThreshold, true, true},   // a scaled cut-off, exactly at it
        {3.0, 0.0, true, false},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(testing::Message() << k.w1 << " " << k.w2);
        TVector c, var;
        bool singular = false;
        SolveDiagonal(k.w1, k.w2, c, singular, var);
        EXPECT_EQ(singular, !(k.keep1 && k.keep2));
        // c = 1/w for a kept value, 0 for a discarded one; the variance is 1/w² or 0.
        EXPECT_DOUBLE_EQ(c.GetVal(1), k.keep1 ? 1.0 / k.w1 : 0.0);
        EXPECT_DOUBLE_EQ(c.GetVal(2), k.keep2 ? 1.0 / k.w2 : 0.0);
        EXPECT_DOUBLE_EQ(var.GetVal(1), k.keep1 ? 1.0 / (k.w1 * k.w1) : 0.0);
        EXPECT_DOUBLE_EQ(var.GetVal(2), k.keep2 ? 1.0 / (k.w2 * k.w2) : 0.0);
    }
}

TEST(SolverLimits, VariancesOfAFullDesignMatchTheInverseNormalMatrix)
{
    // Straight line through x = 0, 1, 2, 3: AᵀA = [[4, 6], [6, 14]], det 20, so the variances (the
    // diagonal of (AᵀA)⁻¹) are 14/20 and 4/20; the fit of y = 1, 3, 2, 5 is d = 1.1, k = 1.1.
    TMatrix a(2, 4);
    TVector b(4);
    const double ys[] = {1, 3, 2, 5};
    for (int r = 1; r <= 4; ++r) {
        a.SetVal(1, r, 1.0);
        a.SetVal(2, r, r - 1.0);
        b.SetVal(r, ys[r - 1]);
    }
    TVector c, var;
    bool singular = true;
    ASSERT_TRUE(SolveLeastSquares(a, b, c, singular, &var));
    EXPECT_FALSE(singular);
    EXPECT_NEAR(c.GetVal(1), 1.1, 1e-14);
    EXPECT_NEAR(c.GetVal(2), 1.1, 1e-14);
    EXPECT_NEAR(var.GetVal(1), 0.7, 1e-14);
    EXPECT_NEAR(var.GetVal(2), 0.2, 1e-14);
}

TEST(SolverLimits, StatisticsByHand)
{
    struct Case {
        std::vector<std::pair<double, double>> pairs;
        double mx, my, sx, sy, r, rms, md;
    };
    const Case cases[] = {
        // dx = -3 -1 1 3, dy = -5 -1 0 6: Sxx 20, Syy 62, Sxy 34; y - x = -1 1 0 4
        {{{2, 1}, {4, 5}, {6, 6}, {8, 12}},
         5, 6, std::sqrt(20.0 / 3), std::sqrt(62.0 / 3), 34 / std::sqrt(20.0 * 62), std::sqrt(18.0 / 4), 1.0},
        // anti-correlated, y spread three times x's: sample deviations with n - 1 = 2
        {{{0, 9}, {1, 6}, {2, 3}}, 1, 6, 1, 3, -1, std::sqrt((81 + 25 + 1) / 3.0), 5},
        // a single pair: no spread, the disagreement is |y - x|
        {{{7, 4}}, 7, 4, 0, 0, 0, 3, -3},
        // constant y: no correlation, not NaN; y - x = 1, -1
        {{{1, 2}, {3, 2}}, 2, 2, std::sqrt(2.0), 0, 0, 1, 0},
        {{}, 0, 0, 0, 0, 0, 0, 0},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.pairs.size());
        TCurveFit f;
        for (const auto& [x, y] : k.pairs)
            f.EnterStatValue(x, y);
        int n = -1;
        double mx, my, sx, sy, r, rms, md;
        f.CalcStatistics(n, mx, my, sx, sy, r, rms, md);
        EXPECT_EQ(n, static_cast<int>(k.pairs.size()));
        const double got[] = {mx, my, sx, sy, r, rms, md};
        const double want[] = {k.mx, k.my, k.sx, k.sy, k.r, k.rms, k.md};
        for (int i = 0; i < 7; ++i)
            EXPECT_NEAR(got[i], want[i], 1e-14) << "output " << i + 2;
    }
}

TEST(SolverLimits, FitQualityByHand)
{
    // R² = 1 - SSres/SStot of the line and of the parabola; a constant y reproduced exactly is a perfect
    // fit (SStot = 0 must not give 0/0), an undetermined line has quality 0.
    struct Case {
        std::vector<std::pair<double, double>> pairs;
        double line, parabola;
    };
    const Case cases[] = {
        {{{1, 1}, {2, 2}, {3, 2}}, 0.75, 1.0},                 // SSres 1/6 of SStot 2/3; a parabola fits 3 points
        {{{-1, 0}, {0, 1}, {1, 0}, {2, 3}}, 8.0 / 15, 0.7},    // SStot 6: line SSres 2.8, parabola 1.8
        {{{1, 5}, {2, 5}, {3, 5}}, 1.0, 1.0},
        {{{4, 1}, {4, 3}}, 0.0, 0.0},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.pairs.size());
        TCurveFit f;
        for (const auto& [x, y] : k.pairs)
            f.EnterStatValue(x, y);
        double a, b, c, q = -1;
        f.CalcLinFit(a, b, q);
        EXPECT_NEAR(q, k.line, 1e-14);
        q = -1;
        f.CalcParabolFit(a, b, c, q);
        EXPECT_NEAR(q, k.parabola, 1e-14);
    }
}

TEST(SolverLimits, ParabolaOverNearlyCoincidentAbscissaeFallsBackToTheLine)
{
    // Three distinct x of which two nearly coincide: the third pivot of the normal equations is of
    // order δ², and a parabola through such points would carry coefficients of order 1/δ². Far from the
    // degenerate case the parabola is exact.
    struct Case {
        double delta;
        bool parabola;
    };
    for (const Case k : {Case{1e-9, false}, Case{1e-7, false}, Case{1e-2, true}, Case{1.0, true}}) {
        SCOPED_TRACE(k.delta);
        TCurveFit f;
        const double xs[] = {0.0, 1.0, 1.0 + k.delta};
        for (const double x : xs)
            f.EnterStatValue(x, 2.0 + 3.0 * x + (k.parabola ? 0.5 * x * x : 0.0));
        double k0 = 0, k1 = 0, k2 = 0, q = 0;
        EXPECT_EQ(f.CalcParabolFit(k0, k1, k2, q), k.parabola);
        EXPECT_NEAR(k0, 2.0, 1e-6);
        EXPECT_NEAR(k1, 3.0, 1e-6);
        EXPECT_NEAR(k2, k.parabola ? 0.5 : 0.0, 1e-6);
    }
}

}  // namespace
}  // namespace qv
