// The six calibration models recover known ground truths: synthetic maps are built from a known relation
// between pixels and places, fitted from their reference points, and checked in both directions.
// Degenerate inputs are diagnosed, behave as documented and never crash.
#include <qvgeo/geobasics/transverse_mercator.h>
#include <qvgeo/geomap/calib_internal.h>
#include <qvgeo/geomap/calib_residuals.h>
#include <qvgeo/geomap/calibration.h>
#include <qvgeo/support/curve_fit.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <tuple>

namespace qv {
namespace {

constexpr double kPi = 3.141592653589793;
constexpr int kW = 1000, kH = 800;

TMapCalibration MakeMap(TCalibModel model)
{
    TMapCalibration cal;
    cal.SetComponentName("Synth");
    cal.SetImageSize(kW, kH);
    cal.SetCalibModel(model);
    return cal;
}

using GeoOfPixel = std::function<TCoords(int x, int y)>;

// A map of the model fitted to quads from the truth on a 5 x 4 grid of pixels covering the image.
TMapCalibration FitGrid(TCalibModel model, const GeoOfPixel& truth)
{
    TMapCalibration cal = MakeMap(model);
    for (int i = 0; i < 5; ++i)
        for (int j = 0; j < 4; ++j) {
            const int x = 37 + i * 230, y = 21 + j * 250;
            const TCoords g = truth(x, y);
            EXPECT_TRUE(cal.AddCalibPoint(g.Latit, g.Longit, x, y));
        }
    return cal;
}

// Checks pixel -> place against the truth (tolerance in degrees) and place -> pixel back to the pixel.
void CheckBothWays(const TMapCalibration& cal, const GeoOfPixel& truth, double tolDeg, int tolPx)
{
    for (int x = 0; x <= kW; x += 125)
        for (int y = 0; y <= kH; y += 100) {
            SCOPED_TRACE(testing::Message() << "pixel " << x << "," << y);
            const TCoords g = truth(x, y);
            TCoords c;
            EXPECT_TRUE(cal.CalcPosition(TPoint{x, y}, c));
            EXPECT_NEAR(c.Latit, g.Latit, tolDeg);
            EXPECT_NEAR(c.Longit, g.Longit, tolDeg);
            std::int32_t px = -1, py = -1;
            ASSERT_TRUE(cal.CalcPixelCoords(g.Latit, g.Longit, px, py));
            EXPECT_LE(std::max(std::abs(px - x), std::abs(py - y)), tolPx);
            // The unrounded pixel rounds to the same one (the conic column follows the unrounded row).
            double fx = 0, fy = 0;
            ASSERT_TRUE(cal.Fit().CalcPixelPosition(g.Latit, g.Longit, fx, fy));
            EXPECT_EQ(std::nearbyint(fy), py);
            if (cal.CalibModel() != cmConicConformal) {
                EXPECT_EQ(std::nearbyint(fx), px);
            }
        }
}

TEST(CalibModels, EquiRectRecoversAnAffineMap)
{
    const GeoOfPixel truth = [](int x, int y) {
        return TCoords{48.5 - 0.001 * y + 0.00002 * x, 16.0 + 0.0015 * x + 0.00001 * y};
    };
    const TMapCalibration cal = FitGrid(cmEquiRect, truth);
    CheckBothWays(cal, truth, 1e-9, 0);
    double qx = -1, qy = -1;
    cal.CalibQuality(qx, qy);
    EXPECT_EQ(std::pair(qx, qy), std::pair(0.0, 0.0));
    // Corners and resolution follow the image size: 1.5 m per 0.0015° at this latitude.
    const TCalibData& d = cal.CalibData();
    EXPECT_NEAR(d.Corners[gcoBottomRight].Longit, 16.0 + 1.5 + 0.008, 1e-9);
    const double rowLat = 48.5 - 0.4;  // middle row y = 400, at the left edge; not quite a parallel
    EXPECT_NEAR(d.Resolution, 6378000.0 * 1.5 * kPi / 180 * std::cos(rowLat * kPi / 180) / kW, 0.1);
}

TEST(CalibModels, UTMRecoversAnAffineGridMap)
{
    // 12.5 m per pixel, north up, zone 33 north; the truth is the UTM inverse of the affine grid.
    const double n0 = 5340000.0, e0 = 590000.0, res = 12.5;
    TMapCalibration cal = MakeMap(cmUTM);
    cal.SetUTMZone(33);
    cal.SetUTMHemisphere(hemiNorth);
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 3; ++j) {
            const int x = 50 + 300 * i, y = 40 + 350 * j;
            ASSERT_TRUE(cal.AddCalibPoint(n0 - res * y, e0 + res * x, 33, hemiNorth, x, y));
        }
    const GeoOfPixel truth = [&](int x, int y) {
        TCoords g;
        UTMToLatLong(e0 + res * x, n0 - res * y, 33, false, gelWGS84, g.Latit, g.Longit);
        return g;
    };
    CheckBothWays(cal, truth, 1e-9, 0);
    std::int32_t x = 0, y = 0;
    EXPECT_EQ(cal.CalcUTMyFromNorthingX(n0 - res * 250, 17), 250);
    EXPECT_EQ(cal.CalcUTMxFromEastingY(e0 + res * 610, 99), 610);
    EXPECT_NEAR(cal.CalibData().Resolution, res, 0.2);  // scale factor and sphere: close, not equal
    // Under any other model the UTM pixel function reports failure with (0, 0).
    TMapCalibration other = MakeMap(cmEquiRect);
    x = y = 7;
    EXPECT_FALSE(other.CalcPixelCoordsUTM(n0, e0, x, y));
    EXPECT_EQ(std::pair(x, y), std::pair(0, 0));
}

TEST(CalibModels, MillerRecoversTheCylindricalStretch)
{
    // x = xs·λ(rad) + xo, y = ys·ln tan(π/4 + 0.4·φ(rad)) + yo, with y growing southwards.
    const double xs = 2000.0, xo = -300.0, ys = -2500.0, yo = 2100.0;
    const GeoOfPixel truth = [&](int x, int y) {
        const double lat = (std::atan(std::exp((y - yo) / ys)) - kPi / 4) * 2.5 * 180 / kPi;
        const double lon = (x - xo) / xs * 180 / kPi;
        return TCoords{lat, lon};
    };
    CheckBothWays(FitGrid(cmMillerCylindrical, truth), truth, 1e-9, 0);
}

TEST(CalibModels, ConicFindsTheApexAndRecoversTheCone)
{
    // Apex above the map; latitude falls with the distance from it, longitude grows with the angle.
    const double ax = 430.0, ay = -2700.0, latK = -0.004, latD = 60.0, lonK = 25.0, lonD = 15.0;
    const GeoOfPixel truth = [&](int x, int y) {
        const double r = std::hypot(x - ax, y - ay);
        return TCoords{latK * r + latD, lonK * std::atan((x - ax) / (y - ay)) + lonD};
    };
    const TMapCalibration cal = FitGrid(cmConicConformal, truth);
    // The search walks an integer grid of apexes with a shrinking 5 x 5 pattern; it may stop a pixel or
    // two from the true apex, which costs well under a tenth of a pixel inside the map
    // (0.004° per pixel of latitude here).
    EXPECT_NEAR(cal.ConicPars()[0], ax, 2.0);
    EXPECT_NEAR(cal.ConicPars()[1], ay, 2.0);
    CheckBothWays(cal, truth, 0.05 * 0.004, 1);
}

TEST(CalibModels, BiquadraticRecoversAQuadraticMap)
{
    // The pixel -> place polynomial is exact; place -> pixel is a quadratic approximation of its inverse.
    const GeoOfPixel truth = [](int x, int y) {
        const double fx = x, fy = y;
        return TCoords{48.5 - 0.001 * fy + 0.00001 * fx + 2e-8 * fx * fx - 1e-8 * fx * fy + 3e-8 * fy * fy,
                       16.0 + 0.0015 * fx - 0.00002 * fy + 1e-8 * fx * fx + 2e-8 * fx * fy - 1e-8 * fy * fy};
    };
    const TMapCalibration cal = FitGrid(cmBiquadraticPn, truth);
    CheckBothWays(cal, truth, 1e-8, 1);  // 1e-8° is about a millimetre
    double qx = 1, qy = 1;
    cal.CalibQuality(qx, qy);
    EXPECT_LT(std::max(qx, qy), 0.8);
}

TEST(CalibModels, BiquadraticUsesWrappingPixelSquares)
{
    // Beyond 46340 pixels x² wraps in 32 bits; the fit and the transform wrap alike, so the quads are
    // still reproduced by the fitted polynomial.
    TMapCalibration cal = MakeMap(cmBiquadraticPn);
    const TPoint px[] = {{0, 0}, {20000, 100}, {50000, 200}, {60000, 300}, {0, 400}, {30000, 500}, {55000, 600}};
    for (const TPoint& p : px)
        cal.AddCalibPoint(40.0 + 0.001 * p.Y, 10.0 + 0.0001 * p.X, p.X, p.Y);
    bool v = false;
    for (const TPoint& p : px)
        EXPECT_NEAR(cal.CalcLongitude(p, v), 10.0 + 0.0001 * p.X, 1e-6) << p.X;
}

// Graticule parabolas through integer points: parallels 49°, 48°, 47° at y = 100, 400, 700 + 0.0001·(x − 500)²,
// meridians 16°, 17°, 18° at x = 200, 500, 800 + 0.0001·(y − 400)².
double ParallelY(int i, double x) { return 100 + 300 * i + 0.0001 * (x - 500) * (x - 500); }
double MeridianX(int i, double y) { return 200 + 300 * i + 0.0001 * (y - 400) * (y - 400); }
int Px(double v) { return static_cast<int>(std::lround(v)); }

void AddGraticule(TMapCalibration& cal)
{
    for (int i = 0; i < 3; ++i)
        for (int x = 0; x <= 1000; x += 100)
            cal.AddCalibPoint(gtlParallel, 49.0 - i, x, Px(ParallelY(i, x)));
    for (int i = 0; i < 3; ++i)
        for (int y = 0; y <= 800; y += 100)
            cal.AddCalibPoint(gtlMeridian, 16.0 + i, Px(MeridianX(i, y)), y);
}

TEST(CalibModels, ParabolicInterpolatesBetweenGraticuleParabolas)
{
    TMapCalibration cal = MakeMap(cmParabolicIp);
    AddGraticule(cal);
    ASSERT_TRUE(cal.RecalcGratMat());
    // On a parallel the latitude is its value; halfway between two parallels it is the mean.
    bool v = false;
    for (int x : {0, 300, 500, 900}) {
        EXPECT_NEAR(cal.CalcLatitude(x, Px(ParallelY(1, x)), v), 48.0, 1e-9);
        EXPECT_NEAR(cal.CalcLatitude(x, Px((ParallelY(0, x) + ParallelY(1, x)) / 2), v), 48.5, 1e-9);
    }
    for (int y : {0, 400, 700})
        EXPECT_NEAR(cal.CalcLongitude(Px(MeridianX(0, y)) + 150, y, v), 16.5, 1e-9);
    // Pixels -> places -> pixels within a pixel.
    for (int x = 150; x <= 850; x += 350)
        for (int y = 150; y <= 650; y += 250) {
            const double lat = cal.CalcLatitude(x, y, v), lon = cal.CalcLongitude(x, y, v);
            std::int32_t px = 0, py = 0;
            ASSERT_TRUE(cal.CalcPixelCoords(lat, lon, px, py));
            EXPECT_LE(std::max(std::abs(px - x), std::abs(py - y)), 1) << x << "," << y;
        }
    // A position far outside the graticule makes the iteration run away.
    std::int32_t px = 0, py = 0;
    EXPECT_FALSE(cal.CalcPixelCoords(-80.0, 170.0, px, py));
}

// The apex search as documented, without shortcuts, with TCurveFit's line fits: 25 candidates per
// round, step halving from 1000000, the best strictly smaller sum of squared residual means.
std::array<double, 6> ReferenceConicSearch(const TCalibData& d, int w, int h)
{
    const int n = d.NumCalQuads;
    int minX = w, minY = h, maxX = 0, maxY = 0;
    for (int i = 0; i < n; ++i) {
        minX = std::min(minX, d.CalQuads[i].MapX);
        maxX = std::max(maxX, d.CalQuads[i].MapX);
        minY = std::min(minY, d.CalQuads[i].MapY);
        maxY = std::max(maxY, d.CalQuads[i].MapY);
    }
    long long cx = (minX + maxX) / 2, cy = (minY + maxY) / 2;
    double best = 1e10;
    std::array<double, 6> pars{};
    for (long long step = 1000000; step > 0; step /= 2) {
        long long bx = cx, by = cy;
        for (int i = -2; i <= 2; ++i)
            for (int j = -2; j <= 2; ++j) {
                const double ax = static_cast<double>(cx + i * step), ay = static_cast<double>(cy + j * step);
                TCurveFit fr, fa;
                for (int q = 0; q < n; ++q) {
                    const TCalQuad& c = d.CalQuads[q];
                    fr.EnterStatValue(std::hypot(c.MapX - ax, c.MapY - ay), c.Latitude);
                    if (c.MapY != ay)
                        fa.EnterStatValue(std::atan((c.MapX - ax) / (c.MapY - ay)), c.Longitude);
                }
                double k1 = 0, d1 = 0, k2 = 0, d2 = 0, quality = 0;
                fr.CalcLinFit(k1, d1, quality);
                fa.CalcLinFit(k2, d2, quality);
                double s1 = 0, s2 = 0;
                for (int q = 0; q < n; ++q) {
                    const TCalQuad& c = d.CalQuads[q];
                    s1 += std::pow(c.Latitude - k1 * std::hypot(c.MapX - ax, c.MapY - ay) - d1, 2);
                    if (c.MapY != ay)
                        s2 += std::pow(c.Longitude - k2 * std::atan((c.MapX - ax) / (c.MapY - ay)) - d2, 2);
                }
                const double sum = s1 / n + s2 / n;
                if (sum < best) {
                    best = sum;
                    pars = {ax, ay, k1, d1, k2, d2};
                    bx = cx + i * step;
                    by = cy + j * step;
                }
            }
        cx = bx;
        cy = by;
    }
    return pars;
}

TEST(CalibModels, ConicSearchMatchesTheExhaustiveDocumentedSearch)
{
    // Noisy cones with the apex above or below the sheet, a flat (non-conic) sheet, all quads on one
    // row, where the candidate apexes on that row see no angles (the mean is still over all quads), and
    // cones with the apex inside the sheet and every k-th quad on the apex row, where the angle residual
    // of the best candidates is averaged over more quads than have an angle, and quads only right of
    // x = 850, beyond the image height, where the search starts from the image width.
    struct Case { double ax, ay, latK, lonK, noise; bool row = false; int apexRow = 0; bool east = false; };
    const Case cases[] = {{430, -2700, -0.004, 25, 1e-4}, {-200, -900, -0.01, 40, 3e-4},
                          {600, 5200, 0.003, -30, 2e-4}, {500, -1e6, -1e-6, 1e3, 0}, {430, -2700, -0.004, 25, 1e-4, true},
                          {500.5, 300, -0.004, 25, 1e-2, false, 3}, {430.5, 100, -0.004, 25, 1e-2, false, 4},
                          {500.5, 200, -0.004, 25, 1.0, false, 2}, {480.5, 250, -0.01, 40, 0.05, false, 10},
                          {430, -2700, -0.004, 25, 1e-2, false, 0, true}, {500, -1e6, -1e-6, 1e3, 1e-3, false, 0, true},
                          {900, -300, -0.01, 40, 1e-1, false, 0, true}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.ay);
        TMapCalibration cal = MakeMap(cmConicConformal);
        TCalibData& d = cal.CalibData();
        unsigned seed = 12345;
        auto noise = [&] {
            seed = seed * 1103515245u + 12345u;
            return (static_cast<int>((seed >> 8) % 2001) - 1000) / 1000.0 * c.noise;
        };
        for (int i = 0; i < 40; ++i) {
            const int x = c.east ? 850 + (i * 97) % 140 : 13 + (i * 97) % 980;
            const int y = c.apexRow ? static_cast<int>(c.ay) + (i % c.apexRow == 0 ? 0 : 7 + (i * 61) % 490)
                                    : c.row ? 300 + i % 2 : 7 + (i * 61) % 790;
            const double r = std::hypot(x - c.ax, y - c.ay);
            d.CalQuads[i] = TCalQuad{c.latK * r + 50 + noise(), c.lonK * std::atan((x - c.ax) / (y - c.ay)) + 10 + noise(), x, y};
        }
        d.NumCalQuads = 40;
        cal.CalcConicCalibration();
        const auto ref = ReferenceConicSearch(d, kW, kH);
        // The data are what they claim: the search finds the cone's apex, to within the noise (quads on one
        // row, or in a strip 140 pixels wide, do not fix it).
        if (!c.row && !c.east) {
            EXPECT_LT(std::hypot(ref[0] - c.ax, ref[1] - c.ay), 0.02 * std::hypot(c.ax - 500, c.ay - 400) + 3);
        }
        EXPECT_EQ(std::pair(cal.ConicPars()[0], cal.ConicPars()[1]), std::pair(ref[0], ref[1]));  // the apex
        for (int k = 2; k < 6; ++k)
            EXPECT_NEAR(cal.ConicPars()[k], ref[k], 1e-9 * (1 + std::fabs(ref[k]))) << k;
    }
}

TEST(CalibModels, UnfittedModelsAnswerAsDocumented)
{
    // cmUndefined leaves the pixel alone and reports places invalid.
    TMapCalibration undef = MakeMap(cmUndefined);
    std::int32_t x = 12, y = 34;
    EXPECT_TRUE(undef.CalcPixelCoords(48.0, 16.0, x, y));
    EXPECT_EQ(std::pair(x, y), std::pair(12, 34));
    bool v = true;
    EXPECT_EQ(undef.CalcLatitude(1, 2, v), 0.0);
    EXPECT_FALSE(v);

    // Miller with slope 0 is invalid; too few quads keep the previous set, and ClearCalibData does not zero it.
    TMapCalibration miller = MakeMap(cmMillerCylindrical);
    EXPECT_EQ(miller.CalcLongitude(1, 1, v), 0.0);
    EXPECT_FALSE(v);
    for (int i = 0; i < 3; ++i)
        miller.AddCalibPoint(40.0 + i, 10.0 + 2 * i, 100 * i, 500 - 90 * i);
    const auto pars = miller.MillercylPar();
    ASSERT_NE(pars[0], 0.0);
    miller.RemoveCalibPoint(0, 500);  // two quads left
    miller.ClearCalibData();
    EXPECT_EQ(miller.MillercylPar(), pars);

    // Conic with zero slopes gives (0, 0) and true.
    TMapCalibration conic = MakeMap(cmConicConformal);
    EXPECT_TRUE(conic.CalcPixelCoords(48.0, 16.0, x, y));
    EXPECT_EQ(std::pair(x, y), std::pair(0, 0));

    // The parabolic model needs two fitted lines of each kind; without them the graticule matrix is one zero
    // row and pixels are refused.
    TMapCalibration cal = MakeMap(cmParabolicIp);  // parallels of two points are not fitted
    for (double lat : {47.0, 48.0, 49.0})
        for (int x : {10, 20})
            cal.AddCalibPoint(gtlParallel, lat, x, static_cast<int>(lat));
    for (double lon : {16.0, 17.0})
        for (int y : {10, 20, 30})
            cal.AddCalibPoint(gtlMeridian, lon, static_cast<int>(lon), y);
    EXPECT_FALSE(cal.RecalcGratMat());
    EXPECT_EQ(cal.GratMat().NrOfRows(), 1);
    EXPECT_FALSE(cal.CalcPixelCoords(48, 16, x, y));
}

TEST(CalibModels, PixelRoundingIsHalfToEvenAndRefusesUnrepresentablePixels)
{
    using calib_detail::RoundPixel;
    using calib_detail::RoundPixelSaturated;
    struct Case { double v; bool ok; std::int32_t r; };
    const Case cases[] = {{0.5, true, 0}, {1.5, true, 2}, {2.5, true, 2}, {-0.5, true, 0}, {-1.5, true, -2},
                          {2.4999999, true, 2}, {2147483647.4, true, INT32_MAX}, {-2147483648.4, true, INT32_MIN},
                          {2147483647.5, false, 0}, {-2147483648.6, false, 0}, {NAN, false, 0}, {INFINITY, false, 0}};
    for (const Case& c : cases) {
        std::int32_t r = 12345;
        EXPECT_EQ(RoundPixel(c.v, r), c.ok) << c.v;
        EXPECT_EQ(r, c.ok ? c.r : 12345) << c.v;
    }
    EXPECT_EQ(std::tuple(RoundPixelSaturated(NAN), RoundPixelSaturated(1e12), RoundPixelSaturated(-INFINITY)),
              std::tuple(0, INT32_MAX, INT32_MIN));

    // A position whose pixel is beyond 32 bits reports failure instead of a wrapped pixel.
    TMapCalibration cal = MakeMap(cmEquiRect);
    cal.AddCalibPoint(0.0, 0.0, 0, 0);
    cal.AddCalibPoint(0.0, 100.0, 200, 0);
    cal.AddCalibPoint(100.0, 0.0, 0, 200);
    std::int32_t x = 5, y = 5;
    EXPECT_FALSE(cal.CalcPixelCoords(1e300, 0.0, x, y));
    EXPECT_EQ(std::pair(x, y), std::pair(5, 5));
}

TEST(CalibModels, ResolutionAddsHalfACircumferenceBeyond180Degrees)
{
    // A world map: 0.5 px per degree east-west, 200° across the middle row.
    TMapCalibration cal;
    cal.SetImageSize(400, 200);
    cal.SetCalibModel(cmEquiRect);
    cal.AddCalibPoint(0.0, -100.0, 0, 100);
    cal.AddCalibPoint(0.0, 100.0, 400, 100);
    cal.AddCalibPoint(50.0, -100.0, 0, 0);
    const double arc = 6378000.0 * 160 * kPi / 180;  // the short way round, 160°
    EXPECT_NEAR(cal.CalibData().Resolution, (arc + 20037077.944595702) / 400, 1e-3);
    cal.SetImageSize(0, 200);
    cal.CalcExtentsAndResolution();
    EXPECT_EQ(cal.CalibData().Resolution, 0.0);
}

TEST(CalibModels, PositionInMapIsStrictlyInside)
{
    const TCornerArray c = {TCoords{49, 16}, TCoords{48, 16}, TCoords{48, 17}, TCoords{49, 17}};
    struct Case { double lat, lon; bool inside; };
    const Case cases[] = {{48.5, 16.5, true}, {48.0001, 16.9999, true}, {48.0, 16.5, false}, {48.5, 17.0, false},
                          {49.5, 16.5, false}, {48.5, 15.0, false}, {47.0, 18.0, false}};
    for (const Case& k : cases)
        EXPECT_EQ(PositionInMap(k.lat, k.lon, c), k.inside) << k.lat << " " << k.lon;
}

}  // namespace
}  // namespace qv
