// Curve fitting, the SVD least-squares solver, line clipping and the small numeric services.
#include <qvgeo/support/bit_field.h>
#include <qvgeo/support/curve_fit.h>
#include <qvgeo/support/least_squares.h>
#include <qvgeo/support/line_clip.h>
#include <qvgeo/support/math_services.h>
#include <qvgeo/support/matrix.h>

#include <gtest/gtest.h>

#include <cmath>
#include <numeric>
#include <random>
#include <stdexcept>
#include <vector>

namespace qv {
namespace {

TCurveFit FitOf(std::initializer_list<std::pair<double, double>> pts)
{
    TCurveFit f;
    f.Init();
    for (const auto& [x, y] : pts)
        f.EnterStatValue(x, y);
    return f;
}

TEST(CurveFit, LineByHand)
{
    double k, d, q;
    // (1,1) (2,2) (3,2): Sxx = 2, Sxy = 1, Syy = 2/3 -> k = 1/2, d = 2/3, R² = 3/4
    ASSERT_TRUE(FitOf({{1, 1}, {2, 2}, {3, 2}}).CalcLinFit(k, d, q));
    EXPECT_NEAR(k, 0.5, 1e-15);
    EXPECT_NEAR(d, 2.0 / 3.0, 1e-15);
    EXPECT_NEAR(q, 0.75, 1e-15);
    // undetermined: all x equal, or a single pair
    EXPECT_FALSE(FitOf({{4, 1}, {4, 3}}).CalcLinFit(k, d, q));
    EXPECT_EQ(k, 0.0);
    EXPECT_EQ(d, 2.0);
    // One fit object serves every graticule line: Init forgets the pairs of the last one.
    TCurveFit f = FitOf({{9, 0}, {8, 5}});
    f.Init();
    f.EnterStatValue(0, 1);
    f.EnterStatValue(1, 3);
    ASSERT_TRUE(f.CalcLinFit(k, d, q));
    EXPECT_NEAR(k, 2.0, 1e-15);
}

TEST(CurveFit, ParabolaByHand)
{
    double k0, k1, k2, q;
    // least squares through (-1,0) (0,1) (1,0) (2,3), solved exactly in rationals:
    // y = 1/10 + 3/10 x + 1/2 x², SSres = 1.8, SStot = 6
    ASSERT_TRUE(FitOf({{-1, 0}, {0, 1}, {1, 0}, {2, 3}}).CalcParabolFit(k0, k1, k2, q));
    EXPECT_NEAR(k0, 0.1, 1e-14);
    EXPECT_NEAR(k1, 0.3, 1e-14);
    EXPECT_NEAR(k2, 0.5, 1e-14);
    EXPECT_NEAR(q, 0.7, 1e-14);
}

TEST(CurveFit, ParabolaAtPixelScaleKeepsItsDigits)
{
    // A graticule line across a large scan: x in the thousands, where raw normal equations in x⁴
    // would lose about half the digits.
    TCurveFit f;
    for (int x = 5000; x <= 9000; x += 250)
        f.EnterStatValue(x, 1234.5 - 0.125 * x + 2.5e-5 * x * x);
    double k0, k1, k2, q;
    ASSERT_TRUE(f.CalcParabolFit(k0, k1, k2, q));
    EXPECT_NEAR(k2, 2.5e-5, 1e-15);
    EXPECT_NEAR(k1, -0.125, 1e-10);
    EXPECT_NEAR(k0, 1234.5, 1e-6);
    EXPECT_NEAR(q, 1.0, 1e-12);
}

TEST(CurveFit, ParabolaFallsBackToTheLine)
{
    double k0, k1, k2, q;
    EXPECT_FALSE(FitOf({{1, 1}, {2, 3}, {2, 5}}).CalcParabolFit(k0, k1, k2, q));  // two distinct x
    EXPECT_EQ(k2, 0.0);
    EXPECT_NEAR(k1, 3.0, 1e-14);
    EXPECT_NEAR(k0, -2.0, 1e-14);
}

TEST(CurveFit, StatisticsAndTheDisagreementFigure)
{
    int n;
    double mx, my, sx, sy, r, md, rms;
    FitOf({{1, 1}, {2, 2}, {3, 3}}).CalcStatistics(n, mx, my, sx, sy, r, rms, md);
    EXPECT_TRUE(n == 3 && mx == 2.0 && sx == 1.0 && r == 1.0) << n << " " << mx << " " << sx << " " << r;
    EXPECT_EQ(rms, 0.0);  // every pair equal: no disagreement
    // predicted minus measured: +3, -4, 0 -> rms = sqrt((9 + 16 + 0) / 3), mean -1/3
    FitOf({{10, 13}, {20, 16}, {30, 30}}).CalcStatistics(n, mx, my, sx, sy, r, rms, md);
    EXPECT_NEAR(rms, std::sqrt(25.0 / 3.0), 1e-14);
    EXPECT_NEAR(md, -1.0 / 3.0, 1e-14);
}

// Builds an m x n TMatrix (column, row) from rows.
TMatrix Design(const std::vector<std::vector<double>>& rows)
{
    TMatrix a(static_cast<int>(rows[0].size()), static_cast<int>(rows.size()));
    for (std::size_t r = 0; r < rows.size(); ++r)
        for (std::size_t c = 0; c < rows[r].size(); ++c)
            a.SetVal(static_cast<int>(c + 1), static_cast<int>(r + 1), rows[r][c]);
    return a;
}

TVector Vec(const std::vector<double>& v)
{
    TVector out(static_cast<int>(v.size()));
    for (std::size_t i = 0; i < v.size(); ++i)
        out.SetVal(static_cast<int>(i + 1), v[i]);
    return out;
}

TEST(LeastSquares, RankDeficientGivesMinimumNorm)
{
    TVector c;
    bool singular = false;
    // Two equal columns: every c1 + c2 = 2 fits; the shortest is (1, 1).
    ASSERT_TRUE(SolveLeastSquares(Design({{1, 1}, {1, 1}, {1, 1}}), Vec({2, 2, 2}), c, singular));
    EXPECT_TRUE(singular);
    EXPECT_TRUE(std::fabs(c.GetVal(1) - 1.0) < 1e-13 && std::fabs(c.GetVal(2) - 1.0) < 1e-13);

    // One observation, three unknowns (a single calibration quad): c = a * 48 / |a|².
    const std::vector<double> a = {1, 100, 200};
    ASSERT_TRUE(SolveLeastSquares(Design({a}), Vec({48}), c, singular));
    EXPECT_TRUE(singular);
    const double scale = 48.0 / (1 + 100 * 100 + 200 * 200);
    for (int i = 1; i <= 3; ++i)
        EXPECT_NEAR(c.GetVal(i), a[static_cast<std::size_t>(i - 1)] * scale, 1e-15);

    // All zero: nothing to fit, the zero vector, flagged.
    ASSERT_TRUE(SolveLeastSquares(Design({{0, 0}, {0, 0}}), Vec({1, 2}), c, singular));
    EXPECT_TRUE(singular && c.GetVal(1) == 0.0 && c.GetVal(2) == 0.0);
}

TEST(LeastSquares, RecoversSixUnknownsFrom200Rows)
{
    // The biquadratic design of a calibration: rows [1, x, y, x², xy, y²] at pixel scale.
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> px(0.0, 4000.0);
    const std::vector<double> truth = {48.3, -2.5e-4, 1.25e-4, 3e-9, -2e-9, 1e-9};
    TMatrix a(6, 200);
    TVector b(200);
    for (int r = 1; r <= 200; ++r) {
        const double x = px(rng), y = px(rng);
        const double row[6] = {1, x, y, x * x, x * y, y * y};
        double s = 0;
        for (int c = 1; c <= 6; ++c) {
            a.SetVal(c, r, row[c - 1]);
            s += row[c - 1] * truth[static_cast<std::size_t>(c - 1)];
        }
        b.SetVal(r, s);
    }
    TVector c, var;
    bool singular = true;
    ASSERT_TRUE(SolveLeastSquares(a, b, c, singular, &var));
    EXPECT_FALSE(singular);
    for (int i = 1; i <= 6; ++i) {
        const double t = truth[static_cast<std::size_t>(i - 1)];
        EXPECT_NEAR(c.GetVal(i), t, 1e-9 * std::max(1e-3, std::fabs(t))) << i;
        EXPECT_GT(var.GetVal(i), 0.0);
    }
}

TEST(LeastSquares, DecompositionReconstructsAndIsOrthogonal)
{
    std::mt19937 rng(11);
    std::normal_distribution<double> g;
    for (const auto& [m, n] : {std::pair{7, 4}, std::pair{4, 4}, std::pair{2, 5}, std::pair{1, 1}}) {
        std::vector<double> a(static_cast<std::size_t>(m * n));
        for (double& x : a)
            x = g(rng);
        TSingularValueDecomposition s;
        ASSERT_TRUE(SingularValueDecomposition(a, m, n, s));
        for (int i = 0; i < m; ++i)
            for (int j = 0; j < n; ++j) {
                double v = 0;
                for (int k = 0; k < n; ++k)
                    v += s.U[static_cast<std::size_t>(i * n + k)] * s.W[static_cast<std::size_t>(k)] *
                         s.V[static_cast<std::size_t>(j * n + k)];
                EXPECT_NEAR(v, a[static_cast<std::size_t>(i * n + j)], 1e-12) << m << "x" << n;
            }
        for (int p = 0; p < n; ++p) {
            EXPECT_GE(s.W[static_cast<std::size_t>(p)], 0.0);
            for (int q = 0; q < n; ++q) {
                double vtv = 0;
                for (int k = 0; k < n; ++k)
                    vtv += s.V[static_cast<std::size_t>(k * n + p)] * s.V[static_cast<std::size_t>(k * n + q)];
                EXPECT_NEAR(vtv, p == q ? 1.0 : 0.0, 1e-12);
            }
        }
    }
}

TEST(LeastSquares, ProgressHookCountsAndAborts)
{
    const double before = ProcStat;
    std::vector<double> seen;
    MathFeedBackProc = [&](double v) { seen.push_back(v); };
    TVector c;
    bool singular;
    ASSERT_TRUE(SolveLeastSquares(Design({{1, 1, 0}, {1, 2, 1}, {1, 3, 5}, {1, 4, 2}}), Vec({1, 2, 3, 4}), c, singular));
    ASSERT_EQ(seen.size(), 3u);  // one step per singular value
    EXPECT_EQ(seen.back(), before + 3.0);
    EXPECT_EQ(ProcStat, before + 3.0);

    AbortMathProc = true;
    c = Vec({7, 7, 7});
    EXPECT_FALSE(SolveLeastSquares(Design({{1, 1}, {1, 2}}), Vec({1, 2}), c, singular));
    EXPECT_EQ(c.GetVal(1), 7.0);  // untouched on failure
    EXPECT_EQ(ProcStat, before + 4.0);  // the step that saw the request still counted
    AbortMathProc = false;
    MathFeedBackProc = nullptr;
}

TEST(LeastSquares, RefusesWhatItCannotSolve)
{
    TVector c;
    bool singular;
    EXPECT_FALSE(SolveLeastSquares(Design({{1, 2}}), Vec({1, 2}), c, singular));  // b of the wrong size
    EXPECT_FALSE(SolveLeastSquares(TMatrix(), TVector(), c, singular));
    EXPECT_FALSE(SolveLeastSquares(Design({{1, NAN}, {1, 2}}), Vec({1, 2}), c, singular));
    EXPECT_FALSE(SolveLeastSquares(Design({{1, 1}, {1, 2}}), Vec({1, INFINITY}), c, singular));
}

TEST(Matrix, OneBasedColumnRowAndBounds)
{
    TMatrix m;
    m.Resize(5, 2);  // five columns, two rows, as the graticule matrix uses it
    EXPECT_EQ(m.NrOfColumns(), 5);
    EXPECT_EQ(m.NrOfRows(), 2);
    m.SetVal(5, 2, 3.5);
    TMatrix copy;
    copy.Clone(m);
    EXPECT_EQ(copy.GetVal(5, 2), 3.5);
    EXPECT_THROW(m.GetVal(6, 1), std::out_of_range);
    EXPECT_THROW(m.GetVal(1, 3), std::out_of_range);
    EXPECT_THROW(m.SetVal(0, 1, 1.0), std::out_of_range);
    m.Resize(5, 1);
    EXPECT_EQ(m.GetVal(5, 1), 0.0);
    EXPECT_THROW(TVector(3).GetVal(4), std::out_of_range);
}

TEST(LineClip, AgainstTheBox0To10)
{
    const struct {
        const char* name;
        double x1, y1, x2, y2;  // the defining points
        bool hits;
        double cx1, cy1, cx2, cy2;
    } cases[] = {
        {"horizontal through", 0, 5, 1, 5, true, 0, 5, 10, 5},
        {"reversed direction", 6, 5, 5, 5, true, 10, 5, 0, 5},
        {"vertical through", 3, -100, 3, 100, true, 3, 0, 3, 10},
        {"diagonal corner to corner", 0, 0, 1, 1, true, 0, 0, 10, 10},
        {"shallow from outside", -20, 2, 30, 7, true, 0, 4, 10, 5},
        {"along an edge", 5, 0, 6, 0, true, 0, 0, 10, 0},
        {"along the far edge", 10, 5, 10, 6, true, 10, 0, 10, 10},
        {"touching a corner", -1, 1, 1, -1, true, 0, 0, 0, 0},
        {"missing above", 0, 20, 1, 20, false, 0, 0, 0, 0},
        {"missing beside", 11, 0, 11, 1, false, 0, 0, 0, 0},
        {"no line from one point", 5, 5, 5, 5, false, 0, 0, 0, 0},
    };
    for (const auto& c : cases) {
        TSLine line;
        line.LineFrom2Points(c.x1, c.y1, c.x2, c.y2);
        double a = -99, b = -99, d = -99, e = -99;
        EXPECT_EQ(line.ClipBox(0, 0, 10, 10, a, b, d, e), c.hits) << c.name;
        if (!c.hits) {
            EXPECT_EQ(a, -99) << c.name;
            continue;
        }
        EXPECT_LT(std::hypot(std::hypot(a - c.cx1, b - c.cy1), std::hypot(d - c.cx2, e - c.cy2)), 1e-12)
            << c.name << ": " << a << " " << b << " " << d << " " << e;
        // The box limits may come in any order.
        double a2, b2, d2, e2;
        ASSERT_TRUE(line.ClipBox(10, 10, 0, 0, a2, b2, d2, e2)) << c.name;
        EXPECT_EQ(std::pair(a2, e2), std::pair(a, e)) << c.name;
    }
}

TEST(Round125, SeriesAndSwitchPoints)
{
    struct C {
        double in, out;
    };
    for (const C c : {C{1, 1}, C{1.41, 1}, C{1.42, 2}, C{3.1, 2}, C{3.2, 5}, C{7.0, 5}, C{7.1, 10}, C{9.99, 10},
                      C{10, 10}, C{12, 10}, C{150, 200}, C{0.0034, 0.005}, C{0.001, 0.001}, C{-0.7, -0.5},
                      C{0, 0}, C{4.2e-300, 5e-300}}) {
        EXPECT_NEAR(Round125(c.in), c.out, 1e-12 * std::fabs(c.out)) << c.in;
    }
    EXPECT_TRUE(std::isinf(Round125(INFINITY)));
}

TEST(FloatLimits, SmallestPositiveAndLargestFinite)
{
    EXPECT_EQ(std::nextafter(0.0, 1.0), uc_MinDouble);
    EXPECT_EQ(std::nextafter(INFINITY, 0.0), uc_MaxDouble);
}

TEST(GreatCircle, KnownDistances)
{
    const double r = 6378000.0;
    const double quarter = r * 3.141592653589793 / 2.0;
    EXPECT_NEAR(SphereGreatCircleDist(0, 0, 0, 90, r), quarter, 1e-6);
    EXPECT_NEAR(SphereGreatCircleDist(0, 0, 90, 123, r), quarter, 1e-6);       // to the pole, any longitude
    EXPECT_NEAR(SphereGreatCircleDist(10, 20, -10, -160, r), 2 * quarter, 1e-6);  // antipodes
    EXPECT_NEAR(SphereGreatCircleDist(0, 179.5, 0, -179.5, 1.0), 3.141592653589793 / 180.0, 1e-15);
    // One arc-minute of latitude on this sphere: 1855.3 m.
    EXPECT_NEAR(SphereGreatCircleDist(48.0, 16.0, 48.0 + 1.0 / 60.0, 16.0, r), r * 3.141592653589793 / 10800.0, 1e-6);
}

TEST(BRandom, RangeAndReproducibility)
{
    BRandomize(42);
    std::vector<double> first;
    for (int i = 0; i < 1000; ++i) {
        const double v = BRandom(5.0);
        EXPECT_GE(v, 0.0);
        EXPECT_LT(v, 5.0);
        first.push_back(v);
    }
    BRandomize(42);
    for (int i = 0; i < 1000; ++i)
        EXPECT_EQ(BRandom(5.0), first[static_cast<std::size_t>(i)]);
    EXPECT_NEAR(std::accumulate(first.begin(), first.end(), 0.0) / 1000.0, 2.5, 0.25);
    EXPECT_LE(BRandom(-2.0), 0.0);
}

TEST(BitField, SetClearResizeAndBounds)
{
    TBitFld f;
    f.SetSize(130);
    f.SetBit(0, true);
    f.SetBit(64, true);
    f.SetBit(129, true);
    f.SetBit(130, true);  // outside: ignored
    f.SetBit(-1, true);
    EXPECT_TRUE(f.GetBit(0) && f.GetBit(129) && !f.GetBit(130) && !f.GetBit(-5));
    EXPECT_EQ(f.CountSetBits(), 3);
    f.SetBit(64, false);
    EXPECT_FALSE(f.GetBit(64));
    f.SetSize(100);  // shrinking drops bit 129 for good
    f.SetSize(130);
    EXPECT_FALSE(f.GetBit(129));
    EXPECT_TRUE(f.GetBit(0));
    f.Clear();
    EXPECT_EQ(f.CountSetBits(), 0);
}

}  // namespace
}  // namespace qv
