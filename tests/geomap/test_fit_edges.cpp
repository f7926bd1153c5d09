// Fits and transforms at their exact edges: the calibration quality and the residual report (which
// quads are averaged, with which divisor), the conic inverse (the column from the rounded row, the
// hemisphere switch at latitude 0) and the parabolic inverse (ties between graticule lines, the
// run-away test of its iteration). Expected pixels are computed here from the published formulas.
#include <qvgeo/geomap/calib_internal.h>
#include <qvgeo/geomap/calib_points.h>
#include <qvgeo/geomap/calib_residuals.h>
#include <qvgeo/geomap/calibration.h>

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <vector>

namespace qv {
namespace {

constexpr int kW = 1000, kH = 800;

TMapCalibration MakeMap(TCalibModel model)
{
    TMapCalibration cal;
    cal.SetComponentName("Edges");
    cal.SetImageSize(kW, kH);
    cal.SetCalibModel(model);
    return cal;
}

TCoords Affine(double x, double y) { return {48.5 - 0.001 * y + 0.00002 * x, 16.0 + 0.0015 * x + 0.00001 * y}; }

TEST(FitEdges, CalibQualityIsTheRmsOfRoundedPredictionsOverEveryQuad)
{
    // Twelve quads, some clicked a few pixels off, so that no model fits them exactly. The figure of each
    // axis is sqrt(mean((predicted - measured)²)) over all quads, for the models from biquadratic to
    // UTM (conic, Miller and equirect between them); the parabolic model and cmUndefined report 0.
    struct Quad { int x, y, ex, ey; };
    const Quad quads[] = {{40, 30, 0, 0},  {500, 20, 3, 0},  {960, 45, 0, -2}, {30, 420, -4, 1},
                          {480, 400, 0, 0}, {990, 380, 2, 5}, {20, 780, 0, 0},  {510, 760, -3, -3},
                          {970, 790, 1, 0}, {250, 200, 0, 4}, {750, 600, -5, 0}, {260, 610, 0, 0}};
    for (TCalibModel m : {cmParabolicIp, cmBiquadraticPn, cmConicConformal, cmMillerCylindrical, cmEquiRect,
                          cmUTM, cmUndefined}) {
        SCOPED_TRACE(static_cast<int>(m));
        // The parabolic model and cmUndefined take no quads: they are entered under equirect.
        TMapCalibration cal = MakeMap(m == cmParabolicIp || m == cmUndefined ? cmEquiRect : m);
        cal.SetUTMZone(33);
        cal.SetUTMHemisphere(hemiNorth);
        for (const Quad& q : quads) {
            const TCoords g = Affine(q.x, q.y);
            // Under UTM the quads hold a northing and an easting.
            if (m == cmUTM)
                ASSERT_TRUE(cal.AddCalibPoint(5.3e6 - 12.5 * q.y, 5e5 + 12.5 * q.x, 33, hemiNorth, q.x + q.ex, q.y + q.ey));
            else
                ASSERT_TRUE(cal.AddCalibPoint(g.Latit, g.Longit, q.x + q.ex, q.y + q.ey));
        }
        cal.SetCalibModel(m);
        double sx = 0, sy = 0;
        const bool counted = m >= cmBiquadraticPn && m <= cmUTM;
        const TCalibData& d = cal.CalibData();
        for (int i = 0; i < d.NumCalQuads && counted; ++i) {
            std::int32_t px = 0, py = 0;
            cal.CalcPixelCoords(d.CalQuads[i].Latitude, d.CalQuads[i].Longitude, px, py);
            sx += double(px - d.CalQuads[i].MapX) * (px - d.CalQuads[i].MapX);
            sy += double(py - d.CalQuads[i].MapY) * (py - d.CalQuads[i].MapY);
        }
        double qx = -1, qy = -1;
        cal.CalibQuality(qx, qy);
        EXPECT_NEAR(qx, std::sqrt(sx / 12), 1e-12);
        EXPECT_NEAR(qy, std::sqrt(sy / 12), 1e-12);
        if (counted) {
            EXPECT_GT(qx, 0.5);  // the clicks off by a few pixels show
            EXPECT_GT(qy, 0.5);
        }
    }
}

TEST(FitEdges, ResidualsAverageTheQuadsThatHaveAPrediction)
{
    // The fit comes from exact quads, the report is over quads clicked off by known amounts, and one
    // quad whose position has no pixel (an infinite latitude) is left out of every mean.
    TCalibData exact;
    for (TPoint p : {TPoint{0, 0}, TPoint{900, 0}, TPoint{0, 700}, TPoint{900, 700}})
        AppendCalQuad(exact, TCalQuad{Affine(p.X, p.Y).Latit, Affine(p.X, p.Y).Longit, p.X, p.Y});
    TCalibFit fit;
    fit.SetModel(cmEquiRect);
    fit.SetProjection(exact);
    fit.FitModel(exact, kW, kH);

    struct Off { int x, y, dx, dy; };
    const Off offs[] = {{100, 100, 3, 4}, {400, 300, 0, 0}, {700, 600, -6, 8}, {300, 500, 4, -3}};
    TCalibData d;
    for (const Off& o : offs)
        AppendCalQuad(d, TCalQuad{Affine(o.x, o.y).Latit, Affine(o.x, o.y).Longit, o.x + o.dx, o.y + o.dy});
    AppendCalQuad(d, TCalQuad{std::numeric_limits<double>::infinity(), 16.0, 10, 10});

    const TCalibResiduals r = CalibResiduals(d, fit, kW, kH, false);
    ASSERT_EQ(r.Quads.size(), 5u);
    EXPECT_FALSE(r.Quads[4].Valid);
    double sumM2 = 0;
    for (int i = 0; i < 4; ++i) {
        const TQuadResidual& q = r.Quads[static_cast<std::size_t>(i)];
        ASSERT_TRUE(q.Valid);
        // predicted minus measured
        EXPECT_NEAR(q.Dx, -offs[i].dx, 1e-6);
        EXPECT_NEAR(q.Dy, -offs[i].dy, 1e-6);
        EXPECT_NEAR(q.Pixels, std::hypot(offs[i].dx, offs[i].dy), 1e-6);
        // Metres between the quad's position and the fit's position of its pixel: the offset through
        // the affine truth, measured on the ellipsoid.
        const TCoords at = Affine(offs[i].x + offs[i].dx, offs[i].y + offs[i].dy);
        const double m = NearbyDistance(Affine(offs[i].x, offs[i].y).Latit, Affine(offs[i].x, offs[i].y).Longit,
                                        at.Latit, at.Longit, gelWGS84);
        EXPECT_NEAR(q.Metres, m, 1e-3);
        sumM2 += m * m;
    }
    // 5, 0, 10 and 5 pixels over the four valid quads; the 5-pixel tie names the first.
    EXPECT_NEAR(r.RmsPixels, std::sqrt((25.0 + 0 + 100 + 25) / 4), 1e-6);
    EXPECT_NEAR(r.RmsMetres, std::sqrt(sumM2 / 4), 1e-3);
    EXPECT_EQ(r.Worst, 3);
    TCalibData tie = d;
    tie.CalQuads[2] = tie.CalQuads[1];  // quad 3 exact, quad 4 a copy of quad 1: a tie at 5 pixels
    tie.CalQuads[3] = tie.CalQuads[0];
    EXPECT_EQ(CalibResiduals(tie, fit, kW, kH, false).Worst, 1);
}

// A cone with its apex above the map, fitted from exact quads.
TMapCalibration FittedCone()
{
    const double ax = 430.0, ay = -2700.0, latK = -0.004, latD = 60.0, lonK = 25.0, lonD = 15.0;
    TMapCalibration cal = MakeMap(cmConicConformal);
    for (int i = 0; i < 5; ++i)
        for (int j = 0; j < 4; ++j) {
            const int x = 37 + i * 230, y = 21 + j * 250;
            const double r = std::hypot(x - ax, y - ay);
            cal.AddCalibPoint(latK * r + latD, lonK * std::atan((x - ax) / (y - ay)) + lonD, x, y);
        }
    return cal;
}

// The conic inverse from its coefficients: θ = (λ − λ0)/kλ, t = tan θ, r = (φ − φ0)/kφ; the row is
// ay ± r/√(t² + 1) (minus south of the equator), rounded half to even, and the column ax + (row − ay)·t
// from the rounded row.
TPoint ConicPixel(const std::array<double, 6>& c, double lat, double lon)
{
    const double t = std::tan((lon - c[5]) / c[4]);
    const double r = (lat - c[3]) / c[2];
    const double row = std::nearbyint(lat < 0 ? c[1] - r / std::sqrt(t * t + 1) : c[1] + r / std::sqrt(t * t + 1));
    return {static_cast<std::int32_t>(std::nearbyint(c[0] + (row - c[1]) * t)), static_cast<std::int32_t>(row)};
}

TEST(FitEdges, ConicColumnFollowsTheRoundedRow)
{
    const TMapCalibration cal = FittedCone();
    const auto& c = cal.ConicPars();
    ASSERT_NE(c[2], 0.0);
    ASSERT_NE(c[4], 0.0);
    // A grid of positions over the map and beyond its sides, where the slant t reaches ±0.4: the row's
    // rounding moves the column by up to 0.2 px, which changes the rounded column at many of them.
    int differs = 0;
    for (double lat = 48.0; lat <= 50.0; lat += 0.0371)
        for (double lon = 5.0; lon <= 25.0; lon += 0.413) {
            const TPoint want = ConicPixel(c, lat, lon);
            std::int32_t x = 0, y = 0;
            ASSERT_TRUE(cal.CalcPixelCoords(lat, lon, x, y));
            ASSERT_EQ(std::pair(x, y), std::pair(want.X, want.Y)) << lat << " " << lon;
            double fx = 0, fy = 0;
            ASSERT_TRUE(cal.Fit().CalcPixelPosition(lat, lon, fx, fy));
            differs += std::nearbyint(fx) != x;
        }
    EXPECT_GT(differs, 10);  // the grid does reach positions where the two columns part
}

TEST(FitEdges, ConicRowSwitchesHemisphereBelowLatitudeZero)
{
    const TMapCalibration cal = FittedCone();
    const auto& c = cal.ConicPars();
    for (const double lat : {0.0, -0.0, 1e-300, -1e-300, -1.0, 1.0}) {
        for (const double lon : {15.0, 17.5}) {
            SCOPED_TRACE(testing::Message() << lat << " " << lon);
            const TPoint want = ConicPixel(c, lat, lon);
            std::int32_t x = 0, y = 0;
            ASSERT_TRUE(cal.CalcPixelCoords(lat, lon, x, y));
            EXPECT_EQ(std::pair(x, y), std::pair(want.X, want.Y));
        }
    }
    // The two branches lie on opposite sides of the apex row.
    std::int32_t xn = 0, yn = 0, xs = 0, ys = 0;
    cal.CalcPixelCoords(0.0, 15.0, xn, yn);
    cal.CalcPixelCoords(-1e-300, 15.0, xs, ys);
    EXPECT_GT(yn, c[1]);
    EXPECT_LT(ys, c[1]);
}

// A graticule of straight lines: parallels at the given (value, row), meridians 16° and 17° at x = 200
// and 500.
TMapCalibration StraightGraticule(std::initializer_list<std::pair<double, int>> parallels)
{
    TMapCalibration cal = MakeMap(cmParabolicIp);
    for (const auto& [value, y] : parallels)
        for (int x = 0; x < 1000; x += 100)
            cal.AddCalibPoint(gtlParallel, value, x, y);
    for (const auto& [value, x] : {std::pair{16.0, 200}, std::pair{17.0, 500}})
        for (int y = 0; y < 1000; y += 100)
            cal.AddCalibPoint(gtlMeridian, value, x, y);
    EXPECT_TRUE(cal.RecalcGratMat());
    return cal;
}

// Parallels 50°, 49° and 46° at y = 0, 100 and 700 (not evenly spaced in value), given in the order
// 46°, 49°, 50°.
TMapCalibration StraightGraticule() { return StraightGraticule({{46.0, 700}, {49.0, 100}, {50.0, 0}}); }

TEST(FitEdges, ParabolicInverseKeepsTheEarlierLineOnATie)
{
    const TMapCalibration cal = StraightGraticule();
    struct Case { double lat, lon; std::int32_t x, y; };
    const Case cases[] = {
        // 48°: nearest 49°, then 46° and 50° tie at 2°; the earlier line (46°) is kept, so the row is
        // interpolated 2/3 of the way from 700 to 100, not extrapolated from 50° (which gives 200).
        {48.0, 16.5, 350, 300},
        {49.5, 17.0, 500, 50},   // 49° and 50° tie for the nearest: the same pair either way
        {47.5, 16.0, 200, 400},  // nearest 46° and 49° tie at 1.5°; 46° comes first, the same line pair
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.lat);
        std::int32_t x = 0, y = 0;
        ASSERT_TRUE(cal.CalcPixelCoords(k.lat, k.lon, x, y));
        EXPECT_EQ(std::pair(x, y), std::pair(k.x, k.y));
    }
    // A parallel digitised twice (48° at rows 700 and 650) and 50° at row 100: at 49° all three are 1°
    // away, the two earlier lines are the pair, and their equal values leave nothing to interpolate.
    // (Points of one value join one line, so the second line's value is set afterwards.)
    TMapCalibration twice = StraightGraticule({{48.0, 700}, {47.0, 650}, {50.0, 100}});
    twice.CalibData().CalLines[1].LineValue = 48.0;
    ASSERT_TRUE(twice.RecalcGratMat());
    std::int32_t x = 7, y = 7;
    EXPECT_FALSE(twice.CalcPixelCoords(49.0, 16.0, x, y));
    EXPECT_EQ(std::pair(x, y), std::pair(7, 7));
}

TEST(FitEdges, ParabolicInverseRunsAwayOnlyWhenBothCoordinatesDo)
{
    const TMapCalibration cal = StraightGraticule();
    // Column 200 + 300·(λ − 16), row 100 + 600/3·(49 − φ) below 49°, 100·(50 − φ) above.
    struct Case { double lat, lon; bool ok; std::int32_t x, y; };
    const Case cases[] = {
        {49.0, 200.0, true, 55400, 100},      // far east: the column alone beyond 50000
        {-200.0, 17.0, true, 500, 49900},     // row 49900: below the limit
        {-201.0, 17.0, true, 500, 50100},     // far south: the row alone beyond 50000
        {-201.0, 183.0, false, 0, 0},         // both beyond: run away
        {-200.0, 183.0, true, 50300, 49900},  // column beyond, row not
        {600.0, -160.0, false, 0, 0},         // far north-west: row -55000, column -52600
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(testing::Message() << k.lat << " " << k.lon);
        std::int32_t x = 0, y = 0;
        EXPECT_EQ(cal.CalcPixelCoords(k.lat, k.lon, x, y), k.ok);
        if (k.ok) {
            EXPECT_EQ(std::pair(x, y), std::pair(k.x, k.y));
        }
    }
}

}  // namespace
}  // namespace qv
