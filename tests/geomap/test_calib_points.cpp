// Calibration points: adding, removing, restoring and clearing, with the exact messages and the quirks
// that stored calibrations and callers depend on.
#include "error_text.h"
#include "geomap/calibration.h"
#include "support/errors.h"

#include <gtest/gtest.h>

#include <string>

namespace qv {
namespace {

// A calibration with a name, a 1000 x 800 image and a repaint counter.
struct Fixture {
    TMapCalibration cal;
    int repaints = 0;
    explicit Fixture(TCalibModel model)
    {
        cal.SetName("Map1");
        cal.SetImageSize(1000, 800);
        TCalibrationOwner owner;
        owner.Repaint = [this] { ++repaints; };
        owner.ImageSize = [](std::int32_t& w, std::int32_t& h) {
            w = 1000;
            h = 800;
        };
        cal.SetOwner(owner);
        cal.SetCalibModel(model);
    }
};

const std::string kAddMsg =
    "Component \"Map1\": current calibration model does not support this version of AddCalibPoint";
const std::string kRemoveMsg =
    "Component \"Map1\": current calibration model does not support this version of RemoveCalibPoint";

TEST(CalibPoints, OverloadsRejectOtherModelsWithTheComponentMessage)
{
    struct Case {
        TCalibModel model;
        bool lineOk, geoOk, utmOk;
    };
    const Case cases[] = {
        {cmParabolicIp, true, false, false},  {cmBiquadraticPn, false, true, false},
        {cmConicConformal, false, true, false}, {cmMillerCylindrical, false, true, false},
        {cmEquiRect, false, true, false},     {cmUTM, false, false, true},
        {cmUndefined, false, false, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(static_cast<int>(c.model));
        Fixture f(c.model);
        f.cal.SetUTMZone(33);
        EXPECT_EQ(ErrorOf([&] { f.cal.AddCalibPoint(gtlParallel, 48.0, 1, 2); }), c.lineOk ? "(no error)" : kAddMsg);
        EXPECT_EQ(ErrorOf([&] { f.cal.AddCalibPoint(48.0, 16.0, 1, 2); }), c.geoOk ? "(no error)" : kAddMsg);
        EXPECT_EQ(ErrorOf([&] { f.cal.AddCalibPoint(5e6, 5e5, 33, hemiNorth, 1, 2); }),
                  c.utmOk ? "(no error)" : kAddMsg);
        EXPECT_EQ(ErrorOf([&] { f.cal.RemoveCalibPoint(gtlParallel, 48.0, 1, 2); }),
                  c.lineOk ? "(no error)" : kRemoveMsg);
    }
}

TEST(CalibPoints, LinePointOverloadAlwaysReturnsFalseAndRespectsLimits)
{
    Fixture f(cmParabolicIp);
    for (int i = 0; i < 11; ++i)
        EXPECT_FALSE(f.cal.AddCalibPoint(gtlParallel, 48.0, 10 * i, 100));
    ASSERT_EQ(f.cal.CalibData().NumCalLines, 1);
    EXPECT_EQ(f.cal.CalibData().CalLines[0].NumPoints, 10);  // the 11th is dropped silently
    EXPECT_EQ(f.cal.CalibData().CalLines[0].CalPoints[9], (TPoint{90, 100}));

    for (int l = 1; l < 26; ++l)
        f.cal.AddCalibPoint(gtlMeridian, 10.0 + l, 5, 5);
    EXPECT_EQ(f.cal.CalibData().NumCalLines, 25);  // the 26th line is dropped silently
    EXPECT_EQ(f.cal.CalibData().CalLines[24].LineValue, 34.0);
    // Same value, other kind: a different line. Same kind, value exactly equal: the same line.
    Fixture g(cmParabolicIp);
    g.cal.AddCalibPoint(gtlParallel, 48.0, 1, 1);
    g.cal.AddCalibPoint(gtlMeridian, 48.0, 2, 2);
    g.cal.AddCalibPoint(gtlParallel, 48.0 + 1e-12, 3, 3);
    g.cal.AddCalibPoint(gtlParallel, 48.0, 4, 4);
    ASSERT_EQ(g.cal.CalibData().NumCalLines, 3);
    EXPECT_EQ(g.cal.CalibData().CalLines[0].NumPoints, 2);
    EXPECT_EQ(g.cal.CalibData().CalLines[0].CalPoints[1], (TPoint{4, 4}));
}

TEST(CalibPoints, QuadsFullReturnsFalseButStillRepaints)
{
    Fixture f(cmEquiRect);
    for (int i = 0; i < MaxCalQuads; ++i)
        ASSERT_TRUE(f.cal.AddCalibPoint(48.0 + i * 0.001, 16.0, i, 2 * i));
    const int before = f.repaints;
    EXPECT_FALSE(f.cal.AddCalibPoint(50.0, 17.0, 1, 1));
    EXPECT_EQ(f.repaints, before + 1);
    EXPECT_EQ(f.cal.CalibData().NumCalQuads, 200);
    EXPECT_EQ(f.cal.CalibData().CalQuads[199].MapX, 199);
}

TEST(CalibPoints, UTMZoneMustBeSetFirstAndMatch)
{
    Fixture f(cmUTM);
    f.cal.ClearCalibData();
    EXPECT_EQ(f.cal.UTMZone(), -1);
    const std::string zoneMsg = "Component \"Map1\": UTM zone parameter changed";
    EXPECT_EQ(ErrorOf([&] { f.cal.AddCalibPoint(5e6, 5e5, 33, hemiNorth, 1, 2); }), zoneMsg);
    f.cal.SetUTMZone(32);
    for (int z : {0, 61, -1, 100})
        f.cal.SetUTMZone(z);
    EXPECT_EQ(f.cal.UTMZone(), 32);
    EXPECT_EQ(ErrorOf([&] { f.cal.AddCalibPoint(5e6, 5e5, 33, hemiNorth, 1, 2); }), zoneMsg);
    EXPECT_EQ(ErrorOf([&] { f.cal.AddCalibPoint(5e6, 5e5, 32, hemiSouth, 1, 2); }), zoneMsg);
    EXPECT_EQ(f.cal.CalibData().NumCalQuads, 0);
    EXPECT_TRUE(f.cal.AddCalibPoint(5e6, 5e5, 32, hemiNorth, 1, 2));
    f.cal.SetUTMZone(60);
    EXPECT_EQ(f.cal.UTMZone(), 60);
    f.cal.SetUTMHemisphere(hemiSouth);
    EXPECT_EQ(f.cal.UTMHemisphere(), hemiSouth);
    EXPECT_TRUE(f.cal.CalibData().UTMSouth);
    EXPECT_TRUE(f.cal.AddCalibPoint(4e6, 6e5, 60, hemiSouth, 3, 4));
    EXPECT_EQ(f.cal.CalibData().CalQuads[1], (TCalQuad{4e6, 6e5, 3, 4}));
}

TEST(CalibPoints, RemoveFromLineTakesTheLastPointWhenNoneMatches)
{
    Fixture f(cmParabolicIp);
    for (int i = 1; i <= 4; ++i)
        f.cal.AddCalibPoint(gtlParallel, 48.0, i, 10 * i);
    // (2, 20) is removed by moving the last point into its slot.
    EXPECT_FALSE(f.cal.RemoveCalibPoint(gtlParallel, 48.0, 2, 20));
    const TCalibLine& line = f.cal.CalibData().CalLines[0];
    ASSERT_EQ(line.NumPoints, 3);
    EXPECT_EQ(line.CalPoints[0], (TPoint{1, 10}));
    EXPECT_EQ(line.CalPoints[1], (TPoint{4, 40}));
    EXPECT_EQ(line.CalPoints[2], (TPoint{3, 30}));
    // A pixel not on the line removes its last point.
    f.cal.RemoveCalibPoint(gtlParallel, 48.0, 999, 999);
    ASSERT_EQ(line.NumPoints, 2);
    EXPECT_EQ(line.CalPoints[1], (TPoint{4, 40}));
    // An unknown line changes nothing; no record of the removal is kept by this overload.
    f.cal.RemoveCalibPoint(gtlMeridian, 48.0, 1, 10);
    EXPECT_EQ(line.NumPoints, 2);
    EXPECT_FALSE(f.cal.CanRestoreParaIp());
}

TEST(CalibPoints, EmptiedLineIsReplacedByTheLastLine)
{
    Fixture f(cmParabolicIp);
    f.cal.AddCalibPoint(gtlParallel, 47.0, 1, 1);
    f.cal.AddCalibPoint(gtlParallel, 48.0, 2, 2);
    f.cal.AddCalibPoint(gtlMeridian, 16.0, 3, 3);
    f.cal.AddCalibPoint(gtlMeridian, 16.0, 4, 4);
    f.cal.RemoveCalibPoint(gtlParallel, 47.0, 1, 1);
    const TCalibData& d = f.cal.CalibData();
    ASSERT_EQ(d.NumCalLines, 2);
    EXPECT_EQ(d.CalLines[0].LineType, gtlMeridian);
    EXPECT_EQ(d.CalLines[0].LineValue, 16.0);
    EXPECT_EQ(d.CalLines[0].NumPoints, 2);
    EXPECT_EQ(d.CalLines[1].LineValue, 48.0);
}

TEST(CalibPoints, NearestRemovalRecordsAndRestoresOnce)
{
    Fixture f(cmParabolicIp);
    f.cal.AddCalibPoint(gtlParallel, 48.0, 100, 100);
    f.cal.AddCalibPoint(gtlParallel, 48.0, 200, 100);
    f.cal.AddCalibPoint(gtlMeridian, 16.0, 150, 300);
    // (150, 100) is equally far from both parallel points: the earlier one wins.
    EXPECT_TRUE(f.cal.RemoveCalibPoint(150, 100));
    ASSERT_TRUE(f.cal.CanRestoreParaIp());
    EXPECT_EQ(f.cal.ParaIpOops().X, 100);
    EXPECT_EQ(f.cal.ParaIpOops().LineKind, gtlParallel);
    EXPECT_EQ(f.cal.CalibData().CalLines[0].NumPoints, 1);
    EXPECT_EQ(f.cal.CalibData().CalLines[0].CalPoints[0], (TPoint{200, 100}));
    f.cal.RestoreLastDeletedCalPoint();
    f.cal.RestoreLastDeletedCalPoint();
    EXPECT_EQ(f.cal.CalibData().CalLines[0].NumPoints, 2);
    EXPECT_EQ(f.cal.CalibData().CalLines[0].CalPoints[1], (TPoint{100, 100}));
    EXPECT_FALSE(f.cal.CanRestoreParaIp());

    // The only point of a line: the line goes, and the restore brings it back as a new last line.
    EXPECT_TRUE(f.cal.RemoveCalibPoint(160, 290));
    EXPECT_EQ(f.cal.CalibData().NumCalLines, 1);
    f.cal.RestoreLastDeletedCalPoint();
    ASSERT_EQ(f.cal.CalibData().NumCalLines, 2);
    EXPECT_EQ(f.cal.CalibData().CalLines[1].LineValue, 16.0);
}

TEST(CalibPoints, NearestQuadRemovalAndRestore)
{
    Fixture f(cmEquiRect);
    f.cal.AddCalibPoint(48.0, 16.0, 0, 0);
    f.cal.AddCalibPoint(47.0, 17.0, 500, 400);
    f.cal.AddCalibPoint(46.0, 18.0, 1000, 800);
    EXPECT_TRUE(f.cal.RemoveCalibPoint(480, 390));
    const TCalibData& d = f.cal.CalibData();
    ASSERT_EQ(d.NumCalQuads, 2);
    EXPECT_EQ(d.CalQuads[1], (TCalQuad{46.0, 18.0, 1000, 800}));  // the last quad moved into the slot
    EXPECT_EQ(f.cal.BiQuadOops(), (TCalQuad{47.0, 17.0, 500, 400}));
    f.cal.RestoreLastDeletedCalPoint();
    f.cal.RestoreLastDeletedCalPoint();
    ASSERT_EQ(d.NumCalQuads, 3);
    EXPECT_EQ(d.CalQuads[2], (TCalQuad{47.0, 17.0, 500, 400}));
}

TEST(CalibPoints, NearestSearchUsesWrappingSquares)
{
    // dx = 50000 squares to 2500000000, which wraps to a negative 32-bit value and so counts as nearest.
    Fixture f(cmEquiRect);
    f.cal.AddCalibPoint(48.0, 16.0, 10, 0);
    f.cal.AddCalibPoint(47.0, 17.0, 50000, 0);
    EXPECT_TRUE(f.cal.RemoveCalibPoint(0, 0));
    EXPECT_EQ(f.cal.BiQuadOops().MapX, 50000);
}

TEST(CalibPoints, RemovalWithoutPointsReturnsFalseAndStillRefits)
{
    for (TCalibModel m : {cmParabolicIp, cmEquiRect, cmUndefined}) {
        Fixture f(m);
        const int before = f.repaints;
        EXPECT_FALSE(f.cal.RemoveCalibPoint(5, 5));
        EXPECT_EQ(f.repaints, before + 1);
    }
    // Under cmUndefined nothing is removed even when quads exist.
    Fixture g(cmEquiRect);
    g.cal.AddCalibPoint(48.0, 16.0, 1, 1);
    g.cal.SetCalibModel(cmUndefined);
    EXPECT_FALSE(g.cal.RemoveCalibPoint(1, 1));
    EXPECT_EQ(g.cal.CalibData().NumCalQuads, 1);
}

TEST(CalibPoints, RestoreUnderUTMRaisesTheGeographicOverloadsError)
{
    Fixture f(cmUTM);
    f.cal.SetUTMZone(33);
    f.cal.AddCalibPoint(5340000.0, 600000.0, 33, hemiNorth, 10, 20);
    ASSERT_TRUE(f.cal.RemoveCalibPoint(10, 20));
    EXPECT_EQ(ErrorOf([&] { f.cal.RestoreLastDeletedCalPoint(); }), kAddMsg);
    EXPECT_TRUE(f.cal.CanRestoreBiQuad());
    EXPECT_EQ(f.cal.CalibData().NumCalQuads, 0);
}

TEST(CalibPoints, ClearCalibDataKeepsModelNamesAndCaption)
{
    Fixture f(cmEquiRect);
    f.cal.CalibData().MapFName = "map.bmp";
    f.cal.SetMapCaption("Caption");
    f.cal.CalibData().Ellipsoid = gelBess41;
    f.cal.CalibData().UTMSouth = true;
    f.cal.AddCalibPoint(48.0, 16.0, 0, 0);
    f.cal.AddCalibPoint(47.0, 17.0, 500, 400);
    ASSERT_NE(f.cal.EquRectPLSP()[0][0], 0.0);
    const int before = f.repaints;
    f.cal.ClearCalibData();
    const TCalibData& d = f.cal.CalibData();
    EXPECT_EQ(f.repaints, before + 1);
    EXPECT_EQ(f.cal.CalibModel(), cmEquiRect);
    EXPECT_EQ(d.MapFName, "map.bmp");
    EXPECT_EQ(d.Caption, "Caption");
    EXPECT_EQ(d.NumCalQuads, 0);
    EXPECT_EQ(d.CalQuads[0], TCalQuad{});
    EXPECT_EQ(d.Resolution, 0.0);
    EXPECT_EQ(d.Corners[gcoBottomRight], TCoords{});
    EXPECT_EQ(d.UTMZone, -1);
    EXPECT_FALSE(d.UTMSouth);
    EXPECT_EQ(d.Ellipsoid, gelWGS84);
    EXPECT_EQ(f.cal.EquRectPLSP()[0][0], 0.0);
    EXPECT_EQ(f.cal.GratMat().NrOfRows(), 1);
    EXPECT_EQ(f.cal.GratMat().NrOfColumns(), 5);

    f.cal.Clear();
    EXPECT_EQ(f.cal.CalibModel(), cmUndefined);
    EXPECT_EQ(d.MapFName, "");
    EXPECT_EQ(d.Caption, "");
}

TEST(CalibPoints, ClearWithoutOwnerDropsTheOwnImage)
{
    TMapCalibration cal;
    cal.SetImageSize(640, 480);
    cal.Clear();
    std::int32_t w = -1, h = -1;
    cal.ImageSize(w, h);
    EXPECT_EQ(w, 0);
    EXPECT_EQ(h, 0);
    EXPECT_EQ(cal.ImageName(), "");
}

TEST(CalibPoints, ModelChangeKeepsPointsAndRefitsOnlyTheNewModel)
{
    Fixture f(cmEquiRect);
    f.cal.AddCalibPoint(48.0, 16.0, 0, 0);
    f.cal.AddCalibPoint(47.0, 17.0, 500, 400);
    f.cal.AddCalibPoint(46.0, 16.5, 100, 800);
    const auto equ = f.cal.EquRectPLSP();
    f.cal.SetCalibModel(cmBiquadraticPn);
    EXPECT_EQ(f.cal.CalibData().NumCalQuads, 3);
    EXPECT_EQ(f.cal.EquRectPLSP(), equ);
    EXPECT_NE(f.cal.CalParsPLSP()[0][0], 0.0);
}

TEST(CalibPoints, ScalingThePointsFollowsAResampledImage)
{
    Fixture f(cmEquiRect);
    f.cal.AddCalibPoint(48.0, 16.0, 0, 0);
    f.cal.AddCalibPoint(47.0, 17.0, 500, 401);
    f.cal.AddCalibPoint(46.0, 16.5, 101, 803);
    f.cal.ScaleCalibPoints(0.5);
    const TCalibData& d = f.cal.CalibData();
    EXPECT_EQ(d.CalQuads[1].MapY, 200);  // 200.5 rounds to even
    EXPECT_EQ(d.CalQuads[2].MapX, 50);   // 50.5 rounds to even
    EXPECT_EQ(d.CalQuads[2].MapY, 402);  // 401.5 rounds to even
    bool v = false;
    EXPECT_NEAR(f.cal.CalcLongitude(250, 200, v), 17.0, 0.01);  // refitted on the new pixels
    Fixture g(cmParabolicIp);
    g.cal.AddCalibPoint(gtlMeridian, 16.0, 3, 7);
    g.cal.ScaleCalibPoints(3.0);
    EXPECT_EQ(g.cal.CalibData().CalLines[0].CalPoints[0], (TPoint{9, 21}));
}

TEST(CalibPoints, AssignCopiesStateButNotNameOrOwner)
{
    Fixture f(cmEquiRect);
    f.cal.AddCalibPoint(48.0, 16.0, 0, 0);
    f.cal.AddCalibPoint(47.0, 17.0, 500, 400);
    TMapCalibration other;
    other.SetName("Other");
    other.AssignCalibration(f.cal);
    EXPECT_EQ(other.Name(), "Other");
    EXPECT_FALSE(other.Owner().Repaint);
    EXPECT_EQ(other.CalibData(), f.cal.CalibData());
    EXPECT_EQ(other.CalibModel(), cmEquiRect);
    EXPECT_EQ(other.EquRectSPPL(), f.cal.EquRectSPPL());
}

}  // namespace
}  // namespace qv
