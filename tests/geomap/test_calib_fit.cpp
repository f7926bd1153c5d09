// The fit snapshot, progress of fits on two threads at once, and the residual report: diagnosis of
// degenerate point sets, a blunder found by its residual and by leave-one-out, and metres on the
// ellipsoid against GeographicLib's geodesic.
#include <qvgeo/geomap/calib_points.h>
#include <qvgeo/geomap/calib_residuals.h>
#include <qvgeo/geomap/calibration.h>

#include <GeographicLib/Geodesic.hpp>
#include <gtest/gtest.h>

#include <cmath>
#include <latch>
#include <numeric>
#include <thread>
#include <vector>

namespace qv {
namespace {

constexpr int kW = 1000, kH = 800;

TCoords Affine(int x, int y)
{
    return {48.5 - 0.001 * y + 0.00002 * x, 16.0 + 0.0015 * x + 0.00001 * y};
}

// Quads of the affine truth at the given pixels.
TCalibData AffineQuads(std::initializer_list<TPoint> pixels)
{
    TCalibData d;
    for (TPoint p : pixels)
        AppendCalQuad(d, TCalQuad{Affine(p.X, p.Y).Latit, Affine(p.X, p.Y).Longit, p.X, p.Y});
    return d;
}

TCalibFit Fitted(const TCalibData& d, TCalibModel m)
{
    TCalibFit f;
    f.SetModel(m);
    f.SetProjection(d);
    f.FitModel(d, kW, kH);
    return f;
}

TEST(CalibFit, ASnapshotOutlivesEditsModelChangesAndZoneChanges)
{
    TMapCalibration cal;
    cal.SetImageSize(kW, kH);
    cal.SetCalibModel(cmEquiRect);
    for (TPoint p : {TPoint{0, 0}, TPoint{900, 50}, TPoint{100, 700}, TPoint{800, 750}})
        cal.AddCalibPoint(Affine(p.X, p.Y).Latit, Affine(p.X, p.Y).Longit, p.X, p.Y);
    const TCalibFit snap = cal.Fit();
    TCoords before, then;
    ASSERT_TRUE(cal.CalcPosition(TPoint{400, 300}, before));
    cal.AddCalibPoint(47.9, 16.9, 500, 400);  // off the affine truth: the fit moves
    cal.RemoveCalibPoint(0, 0);
    cal.SetCalibModel(cmBiquadraticPn);
    EXPECT_EQ(snap.Model(), cmEquiRect);
    ASSERT_TRUE(snap.CalcPosition(TPoint{400, 300}, then));
    EXPECT_EQ(then, before);  // bit for bit

    // Under UTM a zone change reaches the map's transforms at once, never a snapshot.
    TMapCalibration utm;
    utm.SetCalibModel(cmUTM);
    utm.SetUTMZone(33);
    for (TCalQuad q : {TCalQuad{5342750, 597250, 100, 100}, TCalQuad{5342750, 604750, 700, 100},
                       TCalQuad{5337750, 597250, 100, 500}})
        utm.AddCalibPoint(q.Latitude, q.Longitude, 33, hemiNorth, q.MapX, q.MapY);
    const TCalibFit utmSnap = utm.Fit();
    utm.SetUTMZone(34);
    TCoords a, b;
    ASSERT_TRUE(utmSnap.CalcPosition(TPoint{400, 300}, a));
    ASSERT_TRUE(utm.CalcPosition(TPoint{400, 300}, b));
    EXPECT_NEAR(b.Longit - a.Longit, 6.0, 1e-9);  // the same grid metres one zone further east
    EXPECT_EQ(b.Latit, a.Latit);
}

TEST(CalibFit, TwoThreadsFitAtOnceEachWithItsOwnProgressAndAbort)
{
    // A true cone (apex 3000 px above the sheet) for the conic search, 20 quads.
    TCalibData cone;
    for (int i = 0; i < 5; ++i)
        for (int j = 0; j < 4; ++j) {
            const int x = 50 + 200 * i, y = 40 + 200 * j;
            const double r = std::hypot(x - 430.0, y + 3000.0);
            AppendCalQuad(cone, TCalQuad{60.0 - 0.002 * r, 15.0 + 20.0 * std::atan((x - 430.0) / (y + 3000.0)), x, y});
        }
    TCalibFit reference;
    reference.FitEquiRect(cone);
    reference.FitConic(cone, kW, kH);
    ASSERT_NE(reference.ConicPars()[2], 0.0);

    struct Worker {
        std::vector<double> globalSeen, objectSeen;
        double procStat = -1;
        TMathProgress progress;
        TCalibFit fit;
    };
    Worker w[2];
    w[1].progress.Abort = true;  // set by this (the "GUI") thread for worker 1's conic fit only
    std::latch start(2);
    auto run = [&](int k) {
        Worker& me = w[k];
        MathFeedBackProc = [&me](double v) { me.globalSeen.push_back(v); };
        AbortMathProc = k == 0;
        me.progress.FeedBack = [&me](double v) { me.objectSeen.push_back(v); };
        start.arrive_and_wait();
        for (int rep = 0; rep < 10; ++rep)
            me.fit.FitEquiRect(cone);  // four solves, through this thread's globals
        me.fit.FitConic(cone, kW, kH, &me.progress);
        me.procStat = ProcStat;
    };
    const double mainStat = ProcStat;
    std::thread t0(run, 0), t1(run, 1);
    t0.join();
    t1.join();
    EXPECT_EQ(ProcStat, mainStat);
    auto steps = [](int n) {  // 1, 2, ..., n
        std::vector<double> v(static_cast<std::size_t>(n));
        std::iota(v.begin(), v.end(), 1.0);
        return v;
    };
    // Worker 0 aborted through its thread's globals: every solve stops at its first step, so the sets
    // stay zero; its conic search, given its own progress object, runs all 20 rounds (1000000 down to 1).
    EXPECT_EQ(w[0].globalSeen, steps(40));
    EXPECT_EQ(w[0].procStat, 40.0);
    EXPECT_EQ(w[0].fit.EquRectPLSP(), TCalibFit().EquRectPLSP());
    EXPECT_EQ(w[0].objectSeen, steps(20));
    EXPECT_EQ(w[0].progress.Stat.load(), 20.0);
    EXPECT_EQ(w[0].fit.ConicPars(), reference.ConicPars());
    // Worker 1: three singular values per solve, the same coefficients as on this thread; its conic
    // search, aborted through its progress object, stops in the first round and keeps the previous
    // (zero) coefficients.
    EXPECT_EQ(w[1].globalSeen, steps(120));
    EXPECT_EQ(w[1].procStat, 120.0);
    EXPECT_EQ(w[1].fit.EquRectPLSP(), reference.EquRectPLSP());
    EXPECT_EQ(w[1].objectSeen, steps(1));
    EXPECT_EQ(w[1].fit.ConicPars(), TCalibFit().ConicPars());
}

TEST(CalibResiduals, DiagnosisOfDegeneratePointSets)
{
    const TCalibData four = AffineQuads({{0, 0}, {900, 50}, {100, 700}, {800, 750}});
    const TCalibData six = AffineQuads({{0, 0}, {900, 50}, {100, 700}, {800, 750}, {450, 300}, {300, 500}});
    auto with = [](TCalibData d, int i, TCalQuad q) {
        d.CalQuads[static_cast<std::size_t>(i - 1)] = q;
        return d;
    };
    auto first = [](TCalibData d, int n) {
        d.NumCalQuads = n;
        return d;
    };
    TCalibData grat;
    for (int l = 0; l < 2; ++l)
        for (int k = 0; k < 3; ++k) {
            AppendLinePoint(grat, gtlParallel, 48.0 + l, TPoint{300 * k, 100 + 400 * l});
            AppendLinePoint(grat, gtlMeridian, 16.0 + l, TPoint{100 + 500 * l, 300 * k});
        }
    struct Case {
        const char* what;
        TCalibModel model;
        TCalibData data;
        TCalibDiagnosis diagnosis;
        int p1, p2;
    };
    const Case cases[] = {
        {"no model", cmUndefined, four, cdgNoModel, 0, 0},
        {"2 for equirect", cmEquiRect, first(four, 2), cdgTooFewPoints, 0, 0},
        {"3 for equirect", cmEquiRect, first(four, 3), cdgNoRedundancy, 0, 0},
        {"4 for equirect", cmEquiRect, four, cdgOK, 0, 0},
        {"5 for biquadratic", cmBiquadraticPn, first(six, 5), cdgTooFewPoints, 0, 0},
        {"6 for biquadratic", cmBiquadraticPn, six, cdgNoRedundancy, 0, 0},
        {"3 for Miller", cmMillerCylindrical, first(four, 3), cdgOK, 0, 0},
        {"Miller on one parallel", cmMillerCylindrical, with(with(first(four, 3), 2, {four.CalQuads[0].Latitude, 16.5, 500, 10}), 3,
                                                        {four.CalQuads[0].Latitude, 17.0, 900, 20}), cdgCollinearPoints, 0, 0},
        {"latitude 90", cmEquiRect, with(four, 3, {90.0, 16.0, 5, 600}), cdgOK, 0, 0},
        {"latitude beyond 90", cmEquiRect, with(four, 3, {90.000001, 16.0, 5, 600}), cdgOutOfRange, 3, 0},
        {"longitude beyond -180", cmEquiRect, with(four, 2, {48.0, -180.5, 5, 600}), cdgOutOfRange, 2, 0},
        {"negative northing", cmUTM, with(first(four, 3), 1, {-1.0, 500000.0, 5, 5}), cdgOutOfRange, 1, 0},
        {"repeated pixel", cmEquiRect, with(four, 4, {47.0, 17.0, 900, 50}), cdgRepeatedPoints, 2, 4},
        {"repeated position", cmEquiRect, with(four, 2, {four.CalQuads[0].Latitude, four.CalQuads[0].Longitude, 5, 600}),
         cdgRepeatedPoints, 1, 2},
        {"pixels on a line", cmEquiRect, AffineQuads({{0, 0}, {100, 80}, {300, 240}, {1000, 800}}), cdgCollinearPoints, 0, 0},
        {"graticule", cmParabolicIp, grat, cdgOK, 0, 0},
        {"graticule short of a line", cmParabolicIp, [&] { TCalibData g = grat; g.NumCalLines = 3; return g; }(),
         cdgTooFewPoints, 0, 0},
        {"graticule beyond 90", cmParabolicIp, [&] { TCalibData g = grat; g.CalLines[2].LineValue = 90.5; return g; }(),
         cdgOutOfRange, 3, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const TCalibResiduals r = CalibResiduals(c.data, Fitted(c.data, c.model), kW, kH);
        EXPECT_EQ(r.Diagnosis, c.diagnosis);
        EXPECT_EQ(std::pair(r.Point1, r.Point2), std::pair(c.p1, c.p2));
        EXPECT_EQ(CalibDiagnosisText(r).empty(), c.diagnosis == cdgOK);
    }
    TCalibData line = four;
    for (int i = 0; i < 4; ++i)  // positions along one straight line, pixels not
        line.CalQuads[static_cast<std::size_t>(i)].Latitude = 48.0 + 0.1 * i,
        line.CalQuads[static_cast<std::size_t>(i)].Longitude = 16.0 + 0.2 * i;
    EXPECT_EQ(CalibResiduals(line, Fitted(line, cmEquiRect), kW, kH).Diagnosis, cdgCollinearPoints);
    EXPECT_EQ(CalibDiagnosisText(CalibResiduals(with(four, 4, {47.0, 17.0, 900, 50}), Fitted(four, cmEquiRect), kW, kH)),
              "points 2 and 4 repeat a pixel or a position");
}

TEST(CalibResiduals, ABlunderIsTheWorstPointByResidualAndByLeaveOneOut)
{
    // Nine exact quads and one whose pixel was clicked 6 px right and 3 px up.
    std::vector<TPoint> px;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            px.push_back({50 + 400 * i, 30 + 350 * j});
    px.push_back({500, 400});
    TCalibData d;
    for (std::size_t i = 0; i < px.size(); ++i) {
        const TCoords g = Affine(px[i].X, px[i].Y);
        AppendCalQuad(d, TCalQuad{g.Latit, g.Longit, px[i].X + (i == 4 ? 6 : 0), px[i].Y - (i == 4 ? 3 : 0)});
    }
    for (TCalibModel m : {cmEquiRect, cmBiquadraticPn}) {
        SCOPED_TRACE(static_cast<int>(m));
        const TCalibResiduals r = CalibResiduals(d, Fitted(d, m), kW, kH);
        ASSERT_EQ(r.Diagnosis, cdgOK);
        EXPECT_EQ(r.Worst, 5);
        EXPECT_EQ(r.WorstLeaveOneOut, 5);
        // Without the blunder the remaining exact quads give the truth back, so its prediction moves
        // from the full fit's pixel to its true pixel.
        const TQuadResidual& b = r.Quads[4];
        EXPECT_NEAR(b.LeaveOneOut, std::hypot(b.PredX - px[4].X, b.PredY - px[4].Y), 1e-6);
        // Least squares with a constant term: residuals sum to zero on each axis.
        double sx = 0, sy = 0, s2 = 0;
        for (const TQuadResidual& q : r.Quads)
            sx += q.Dx, sy += q.Dy, s2 += q.Pixels * q.Pixels;
        EXPECT_NEAR(sx, 0.0, 1e-6);
        EXPECT_NEAR(sy, 0.0, 1e-6);
        EXPECT_NEAR(r.RmsPixels, std::sqrt(s2 / 10), 1e-12);
    }
}

TEST(CalibResiduals, NearbyDistanceAgreesWithTheGeodesic)
{
    struct Case { TGeoEllipsoid ell; double lat, lon, azimuth, metres; };
    const Case cases[] = {
        {gelWGS84, 48.2, 16.4, 90.0, 1000.0}, {gelWGS84, -33.9, 151.2, 10.0, 10000.0},
        {gelBess41, 52.5, 13.4, 300.0, 2500.0}, {gelWGS84, 10.0, 179.99, 90.0, 3000.0},  // across 180°
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.metres);
        const TEllipsoidAxes ax = GeoEllipsoidData[c.ell];
        const GeographicLib::Geodesic g(ax.a, (ax.a - ax.b) / ax.a);
        double lat2 = 0, lon2 = 0;
        g.Direct(c.lat, c.lon, c.azimuth, c.metres, lat2, lon2);
        EXPECT_NEAR(NearbyDistance(c.lat, c.lon, lat2, lon2, c.ell), c.metres, 1e-3 * c.metres);
    }
}

}  // namespace
}  // namespace qv
