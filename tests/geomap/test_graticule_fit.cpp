// The calibration of a found graticule: the values the user gives number every crossing, the best model
// is chosen by its left-out predictions, and a grid whose numbering is wrong is never reported as good.
// The grids are built from known projections (no image), so that the truth is exact.
#include <qvgeo/geomap/graticule_grid.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <random>

using namespace qv;

namespace {

constexpr double kPi = 3.141592653589793;
using TProjection = std::function<void(double Lat, double Long, double& X, double& Y)>;

// Turns (x, y) by Degrees about (Cx, Cy).
void Turn(double Degrees, double Cx, double Cy, double& X, double& Y)
{
    const double a = Degrees * kPi / 180.0, dx = X - Cx, dy = Y - Cy;
    X = Cx + dx * std::cos(a) - dy * std::sin(a);
    Y = Cy + dx * std::sin(a) + dy * std::cos(a);
}

TProjection EquiRect(double Degrees)
{
    return [Degrees](double Lat, double Long, double& X, double& Y) {
        X = 100.0 + (Long - 10.0) * 180.0;
        Y = 100.0 + (50.0 - Lat) * 250.0;
        Turn(Degrees, 800.0, 700.0, X, Y);
    };
}

// Parallels as arcs about an apex far above the map, meridians as rays from it: a conic map.
TProjection Conic()
{
    return [](double Lat, double Long, double& X, double& Y) {
        const double r = 6000.0 + (55.0 - Lat) * 260.0, a = (Long - 14.0) * 0.75 * kPi / 180.0;
        X = 800.0 + r * std::sin(a);
        Y = -5500.0 + r * std::cos(a);
    };
}

TProjection Miller()
{
    return [](double Lat, double Long, double& X, double& Y) {
        X = 60.0 + (Long - 10.0) * 160.0;
        Y = 9000.0 - 9200.0 * std::log(std::tan(kPi / 4 + 0.4 * Lat * kPi / 180.0));
    };
}

// A found grid of Rows x Cols crossings: parallels of latitude Lat0, Lat0 - 1, ... from the top, meridians
// of longitude Long0, Long0 + 1, ... from the left, each crossing off its true pixel by Gaussian noise of
// Noise pixels.
TGratGrid MakeGrid(const TProjection& P, int Rows, int Cols, double Noise = 0.0, double Lat0 = 50.0,
                   double Long0 = 10.0, unsigned Seed = 7)
{
    std::mt19937 rng(Seed);
    std::normal_distribution<double> noise(0.0, Noise > 0.0 ? Noise : 1.0);
    TGratGrid g;
    g.Found = true;
    g.Width = 2000;
    g.Height = 1800;
    g.Confidence = 0.9;
    for (int r = 0; r < Rows; ++r)
        for (int c = 0; c < Cols; ++c) {
            TGratNode n;
            n.Row = r;
            n.Col = c;
            P(Lat0 - r, Long0 + c, n.X, n.Y);
            if (Noise > 0.0) {
                n.X += noise(rng);
                n.Y += noise(rng);
            }
            n.Seen = true;
            g.Nodes.push_back(n);
        }
    return g;
}

TGratLabels OneCrossing(int Row, double Lat, int Col, double Long, double LatStep = -1.0, double LongStep = 1.0)
{
    TGratLabels l;
    l.Parallels.Index = Row;
    l.Parallels.Value = Lat;
    l.Parallels.Spacing = LatStep;
    l.Meridians.Index = Col;
    l.Meridians.Value = Long;
    l.Meridians.Spacing = LongStep;
    return l;
}

// Largest distance, over every quarter degree of the grid's area, between the fitted pixel and the truth.
double WorstError(const TGratCalibration& C, const TProjection& P, int Rows, int Cols, double Lat0 = 50.0,
                  double Long0 = 10.0)
{
    double worst = 0.0;
    for (double lat = Lat0 - (Rows - 1); lat <= Lat0 + 1e-9; lat += 0.25)
        for (double lon = Long0; lon <= Long0 + Cols - 1 + 1e-9; lon += 0.25) {
            double x = 0.0, y = 0.0, tx = 0.0, ty = 0.0;
            if (!C.Fit.CalcPixelPosition(lat, lon, x, y))
                return 1e9;
            P(lat, lon, tx, ty);
            worst = std::max(worst, std::hypot(x - tx, y - ty));
        }
    return worst;
}

const TGratCandidate& CandidateOf(const TGratCalibration& C, TCalibModel M)
{
    for (const TGratCandidate& c : C.Candidates)
        if (c.Model == M)
            return c;
    static const TGratCandidate none;
    return none;
}

}  // namespace

TEST(GraticuleFit, LineValuesFromOneLineAndSpacingOrFromTwoLines)
{
    const struct {
        TGratAxisLabel Label;
        int Index;
        bool Ok;
        double Value;
    } cases[] = {
        {{2, 48.0, false, 0, 0.0, -0.5}, 2, true, 48.0},
        {{2, 48.0, false, 0, 0.0, -0.5}, 5, true, 46.5},
        {{2, 48.0, false, 0, 0.0, -0.5}, 0, true, 49.0},
        {{1, 16.0, true, 4, 17.5, 0.0}, 7, true, 19.0},   // two meridians three steps apart: 0.5° each
        {{1, 16.0, true, 4, 17.5, 0.0}, 0, true, 15.5},
        {{1, 16.0, true, 1, 17.5, 0.0}, 3, false, 0.0},   // the same line twice gives no spacing
        {{1, 16.0, false, 0, 0.0, 0.0}, 3, false, 0.0},   // no spacing
        {{1, NAN, false, 0, 0.0, 1.0}, 3, false, 0.0},
        // Any 32-bit numbers: no overflow, and no value that is not finite.
        {{INT32_MAX, 0.0, false, 0, 0.0, 1.0}, INT32_MIN, true, -4294967295.0},
        {{INT32_MIN, 0.0, true, INT32_MAX, 4294967295.0, 0.0}, 0, true, 2147483648.0},
        {{0, 0.0, false, 0, 0.0, 1e308}, 1000, false, 0.0},
    };
    for (const auto& c : cases) {
        double v = -999.0;
        EXPECT_EQ(GratLineValue(c.Label, c.Index, v), c.Ok) << c.Index;
        if (c.Ok)
            EXPECT_NEAR(v, c.Value, 1e-12) << c.Index;
        else
            EXPECT_EQ(v, -999.0);
    }
}

TEST(GraticuleFit, TurnedStraightGridCalibratesToTheTruthWithTheSimplestModel)
{
    for (double turn : {-10.0, 0.0, 7.0}) {
        const TProjection p = EquiRect(turn);
        const TGratGrid g = MakeGrid(p, 6, 8, 0.25);
        // The user names the crossing of parallel 2 (48°) and meridian 3 (13°).
        const TGratCalibration c = FitGraticule(g, OneCrossing(2, 48.0, 3, 13.0));
        ASSERT_TRUE(c.Ok) << c.Reason;
        EXPECT_TRUE(c.Confident) << c.Reason;
        EXPECT_EQ(c.Model, cmEquiRect) << c.Reason;
        EXPECT_EQ(c.Data.NumCalQuads, 48);
        EXPECT_LT(WorstError(c, p, 6, 8), 0.6) << turn;
        // Every quad carries its node's place: parallel r is 50 - r, meridian k is 10 + k.
        for (int q = 0; q < c.Data.NumCalQuads; ++q) {
            const TGratNode& n = g.Nodes[static_cast<std::size_t>(c.NodeOfQuad[static_cast<std::size_t>(q)])];
            EXPECT_DOUBLE_EQ(c.Data.CalQuads[static_cast<std::size_t>(q)].Latitude, 50.0 - n.Row);
            EXPECT_DOUBLE_EQ(c.Data.CalQuads[static_cast<std::size_t>(q)].Longitude, 10.0 + n.Col);
            EXPECT_EQ(c.Data.CalQuads[static_cast<std::size_t>(q)].MapX, static_cast<int>(std::nearbyint(n.X)));
        }
        // The corners are those of a map of the grid's size under the chosen fit.
        double lat = 0.0, lon = 0.0;
        bool v1 = false, v2 = false;
        lat = c.Fit.CalcLatitude(0, 0, v1);
        lon = c.Fit.CalcLongitude(0, 0, v2);
        EXPECT_NEAR(c.Data.Corners[gcoTopLeft].Latit, lat, 1e-9);
        EXPECT_NEAR(c.Data.Corners[gcoTopLeft].Longit, lon, 1e-9);
        EXPECT_GT(c.Data.Resolution, 0.0);
    }
}

TEST(GraticuleFit, TwoNamedLinesGiveTheSameCalibrationAsACrossingAndSpacings)
{
    const TGratGrid g = MakeGrid(EquiRect(3.0), 5, 6, 0.2);
    TGratLabels two;
    two.Parallels = {0, 50.0, true, 4, 46.0, 0.0};
    two.Meridians = {5, 15.0, true, 1, 11.0, 0.0};
    const TGratCalibration a = FitGraticule(g, two), b = FitGraticule(g, OneCrossing(0, 50.0, 0, 10.0));
    ASSERT_TRUE(a.Ok && b.Ok);
    EXPECT_EQ(a.Data, b.Data);
    EXPECT_EQ(a.Model, b.Model);
}

TEST(GraticuleFit, CurvedGridsChooseAModelThatFollowsTheCurve)
{
    const struct {
        const char* Name;
        TProjection P;
        double Lat0;
    } cases[] = {{"conic", Conic(), 50.0}, {"miller", Miller(), 62.0}};
    for (const auto& k : cases) {
        const TGratGrid g = MakeGrid(k.P, 7, 8, 0.2, k.Lat0);
        const TGratCalibration c = FitGraticule(g, OneCrossing(0, k.Lat0, 0, 10.0));
        ASSERT_TRUE(c.Ok) << k.Name << c.Reason;
        EXPECT_TRUE(c.Confident) << k.Name << c.Reason;
        EXPECT_NE(c.Model, cmEquiRect) << k.Name;
        // The straight model misses the curve by pixels where the chosen one does not.
        EXPECT_GT(CandidateOf(c, cmEquiRect).LeaveOneOutRms, 3.0 * CandidateOf(c, c.Model).LeaveOneOutRms) << k.Name;
        EXPECT_LT(WorstError(c, k.P, 7, 8, k.Lat0), 1.0) << k.Name << " " << CalibModelKeywords[c.Model];
    }
}

// A Miller map turned by 8°: no quad model follows it (Miller's own has no turn, the polynomials miss
// its stretch), so the found lines themselves become the calibration's graticule lines.
TEST(GraticuleFit, ATurnedMillerMapIsCalibratedFromItsOwnLines)
{
    const TProjection p = [](double Lat, double Long, double& X, double& Y) {
        X = 60.0 + (Long - 10.0) * 110.0;
        Y = 7000.0 - 4800.0 * std::log(std::tan(kPi / 4 + 0.4 * Lat * kPi / 180.0));
        Turn(8.0, 800.0, 900.0, X, Y);
    };
    const int rows = 16, cols = 9;
    const double lat0 = 72.0, long0 = 10.0, latStep = 2.0, longStep = 2.0;
    TGratGrid g;
    g.Found = true;
    g.Width = 2000;
    g.Height = 1800;
    g.Confidence = 1.0;
    const auto place = [&](double r, double c, double& x, double& y) { p(lat0 - r * latStep, long0 + c * longStep, x, y); };
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c) {
            TGratNode n{r, c, 0.0, 0.0, 0.05, true};
            place(r, c, n.X, n.Y);
            g.Nodes.push_back(n);
        }
    // Turned parallels and meridians of a cylindrical map are straight: y = C0 + C1·x, x = C0 + C1·y.
    for (int r = 0; r < rows; ++r) {
        double x0, y0, x1, y1;
        place(r, 0, x0, y0);
        place(r, cols - 1, x1, y1);
        const double k = (y1 - y0) / (x1 - x0);
        g.Parallels.push_back({gtlParallel, r, y0 - k * x0, k, 0.0, x0, x1, 0.05, 1.0, {}});
    }
    for (int c = 0; c < cols; ++c) {
        double x0, y0, x1, y1;
        place(0, c, x0, y0);
        place(rows - 1, c, x1, y1);
        const double k = (x1 - x0) / (y1 - y0);
        g.Meridians.push_back({gtlMeridian, c, x0 - k * y0, k, 0.0, y0, y1, 0.05, 1.0, {}});
    }
    const TGratCalibration c = FitGraticule(g, OneCrossing(0, lat0, 0, long0, -latStep, longStep));
    ASSERT_TRUE(c.Ok) << c.Reason;
    EXPECT_EQ(c.Model, cmParabolicIp) << c.Reason;
    EXPECT_TRUE(c.Confident) << c.Reason;
    EXPECT_EQ(c.Data.NumCalLines, MaxCalLines);  // 16 + 9 lines, all kept
    double worst = 0.0;
    for (double lat = lat0 - (rows - 1) * latStep; lat <= lat0; lat += latStep / 4)
        for (double lon = long0; lon <= long0 + (cols - 1) * longStep; lon += longStep / 4) {
            double x = 0, y = 0, tx = 0, ty = 0;
            ASSERT_TRUE(c.Fit.CalcPixelPosition(lat, lon, x, y));
            p(lat, lon, tx, ty);
            worst = std::max(worst, std::hypot(x - tx, y - ty));
        }
    EXPECT_LT(worst, 1.5);
    EXPECT_GT(CandidateOf(c, cmBiquadraticPn).LeaveOneOutRms, 1.0);  // why the lines were needed
    // Without the parabolic model the best quad model is reported as doubtful, not as good.
    TGratFitOptions quadsOnly;
    quadsOnly.Parabolic = false;
    const TGratCalibration q = FitGraticule(g, OneCrossing(0, lat0, 0, long0, -latStep, longStep), quadsOnly);
    ASSERT_TRUE(q.Ok);
    EXPECT_NE(q.Model, cmParabolicIp);
    EXPECT_FALSE(q.Confident) << q.Reason;
}

TEST(GraticuleFit, AMisnumberedLineIsNeverReportedAsGood)
{
    // A parallel missed by the finder without its number being skipped: every row below it is numbered
    // one too small, so their latitudes are one spacing too far north.
    TGratGrid g = MakeGrid(EquiRect(4.0), 7, 7, 0.2);
    std::erase_if(g.Nodes, [](const TGratNode& n) { return n.Row == 3; });
    for (TGratNode& n : g.Nodes)
        if (n.Row >= 4)
            n.Row -= 1;
    const TGratCalibration c = FitGraticule(g, OneCrossing(0, 50.0, 0, 10.0));
    ASSERT_TRUE(c.Ok) << c.Reason;
    EXPECT_FALSE(c.Confident);
    EXPECT_NE(c.Reason.find("doubtful"), std::string::npos) << c.Reason;
}

TEST(GraticuleFit, DoubtfulWhenTooFewLinesOrTheFinderIsUnsure)
{
    const TGratCalibration narrow = FitGraticule(MakeGrid(EquiRect(0.0), 2, 6, 0.2), OneCrossing(0, 50.0, 0, 10.0));
    ASSERT_TRUE(narrow.Ok) << narrow.Reason;
    EXPECT_FALSE(narrow.Confident) << narrow.Reason;

    TGratGrid unsure = MakeGrid(EquiRect(0.0), 5, 5, 0.2);
    unsure.Confidence = 0.2;
    const TGratCalibration u = FitGraticule(unsure, OneCrossing(0, 50.0, 0, 10.0));
    ASSERT_TRUE(u.Ok);
    EXPECT_FALSE(u.Confident) << u.Reason;
}

TEST(GraticuleFit, NothingFoundOrNothingGivenMakesNoCalibration)
{
    TGratGrid none;
    none.Message = NoGraticuleFound;
    const TGratCalibration a = FitGraticule(none, OneCrossing(0, 50.0, 0, 10.0));
    EXPECT_FALSE(a.Ok);
    EXPECT_EQ(a.Reason, NoGraticuleFound);
    EXPECT_EQ(a.Data.NumCalQuads, 0);

    const TGratGrid g = MakeGrid(EquiRect(0.0), 4, 4);
    EXPECT_FALSE(FitGraticule(g, OneCrossing(0, 50.0, 0, 10.0, 0.0, 1.0)).Ok);  // no latitude spacing
    TGratLabels bad = OneCrossing(0, 50.0, 0, 10.0);
    bad.UTMZone = 61;
    EXPECT_FALSE(FitGraticule(g, bad).Ok);
    // Places off the globe are not made into quads: here every parallel would lie beyond the pole.
    const TGratCalibration polar = FitGraticule(g, OneCrossing(0, 90.5, 0, 10.0, 1.0, 1.0));
    EXPECT_FALSE(polar.Ok) << polar.Reason;
}

TEST(GraticuleFit, LargeGridsAreThinnedToWholeRowsAndColumnsSpanningIt)
{
    const TProjection p = [](double Lat, double Long, double& X, double& Y) {
        X = 20.0 + (Long - 10.0) * 60.0;
        Y = 20.0 + (50.0 - Lat) * 60.0;
    };
    const TGratGrid g = MakeGrid(p, 25, 30, 0.1);  // 750 crossings
    const TGratCalibration c = FitGraticule(g, OneCrossing(0, 50.0, 0, 10.0));
    ASSERT_TRUE(c.Ok) << c.Reason;
    EXPECT_LE(c.Data.NumCalQuads, MaxCalQuads);
    EXPECT_GE(c.Data.NumCalQuads, 150);
    int minRow = 99, maxRow = -1, minCol = 99, maxCol = -1;
    for (int i : c.NodeOfQuad) {
        const TGratNode& n = g.Nodes[static_cast<std::size_t>(i)];
        minRow = std::min(minRow, n.Row), maxRow = std::max(maxRow, n.Row);
        minCol = std::min(minCol, n.Col), maxCol = std::max(maxCol, n.Col);
    }
    EXPECT_EQ(minRow, 0);
    EXPECT_EQ(maxRow, 24);
    EXPECT_EQ(minCol, 0);
    EXPECT_EQ(maxCol, 29);
    EXPECT_TRUE(c.Confident) << c.Reason;
}

TEST(GraticuleFit, AKilometreGridCalibratesUnderTheUTMModel)
{
    // Lines every 500 m of northing (rows) and easting (columns) in zone 33, 100 pixels apart.
    TGratGrid g;
    g.Found = true;
    g.Width = 800;
    g.Height = 600;
    g.Confidence = 1.0;
    for (int r = 0; r < 5; ++r)
        for (int k = 0; k < 7; ++k)
            g.Nodes.push_back({r, k, 100.0 + 100.0 * k + 0.3, 100.0 + 100.0 * r - 0.2, 0.1, true});
    TGratLabels l = OneCrossing(0, 5342750.0, 0, 597250.0, -500.0, 500.0);
    l.UTMZone = 33;
    const TGratCalibration c = FitGraticule(g, l);
    ASSERT_TRUE(c.Ok) << c.Reason;
    EXPECT_TRUE(c.Confident) << c.Reason;
    EXPECT_EQ(c.Model, cmUTM);
    EXPECT_EQ(c.Data.UTMZone, 33);
    ASSERT_EQ(c.Candidates.size(), 1u);
    double x = 0.0, y = 0.0;
    ASSERT_TRUE(c.Fit.CalcPixelPositionUTM(5341500.0, 599500.0, x, y));
    // Column 4.5 and row 2.5 of the lattice, within the half pixel that whole-pixel quads may lose when
    // every crossing is off its pixel centre the same way.
    EXPECT_NEAR(x, 550.3, 0.5);
    EXPECT_NEAR(y, 349.8, 0.5);
}

TEST(GraticuleFit, AGridFoundOnAReducedPictureScalesBackToThePicturesPixels)
{
    // A reduced pixel u covers picture pixels u·S .. (u + 1)·S: its centre is (u + 0.5)·S - 0.5.
    TGratGrid g;
    g.Width = 400;
    g.Height = 300;
    g.Nodes.push_back({0, 0, 10.0, 20.0, 0.1, true});
    g.Nodes.push_back({0, 1, 0.0, -0.5, 0.1, true});
    g.Parallels.push_back({gtlParallel, 0, 20.0, 0.05, 2e-4, 5.0, 390.0, 0.1, 0.9, {{10.0, 20.5}}});
    g.Meridians.push_back({gtlMeridian, 0, 10.0, -0.1, -3e-4, 2.0, 290.0, 0.2, 0.8, {}});
    TGratGrid s = g;
    ScaleGratGrid(s, 3.0, 2.0, 1200, 600);
    EXPECT_EQ(s.Width, 1200);
    EXPECT_EQ(s.Height, 600);
    EXPECT_DOUBLE_EQ(s.Nodes[0].X, 31.0);   // (10 + 0.5)·3 - 0.5
    EXPECT_DOUBLE_EQ(s.Nodes[0].Y, 40.5);   // (20 + 0.5)·2 - 0.5
    EXPECT_DOUBLE_EQ(s.Nodes[1].X, 1.0);
    EXPECT_DOUBLE_EQ(s.Nodes[1].Y, -0.5);   // the picture's own top edge stays where it is
    EXPECT_DOUBLE_EQ(s.Parallels[0].Samples[0].Y, 41.5);
    EXPECT_DOUBLE_EQ(s.Parallels[0].From, 16.0);
    EXPECT_DOUBLE_EQ(s.Meridians[0].To, 580.5);
    // Every point of a curve goes where its coordinates go: the scaled curve through the scaled point.
    for (double t : {-3.0, 0.0, 17.25, 200.0, 390.0}) {
        const double px = (t + 0.5) * 3.0 - 0.5, py = (g.Parallels[0].At(t) + 0.5) * 2.0 - 0.5;
        EXPECT_NEAR(s.Parallels[0].At(px), py, 1e-9) << t;
        const double my = (t + 0.5) * 2.0 - 0.5, mx = (g.Meridians[0].At(t) + 0.5) * 3.0 - 0.5;
        EXPECT_NEAR(s.Meridians[0].At(my), mx, 1e-9) << t;
    }
    EXPECT_DOUBLE_EQ(s.Parallels[0].RmsPixels, 0.2);  // across a parallel is down: times 2
    EXPECT_DOUBLE_EQ(s.Meridians[0].RmsPixels, 0.6);
}
