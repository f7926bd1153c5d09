// Calibration points: adding, removing, restoring and clearing, with the exact messages and the quirks
// that stored calibrations and callers depend on.
#include "error_text.h"
#include <qvgeo/geomap/calibration.h>
#include <qvgeo/support/errors.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace qv {
namespace {

// A calibration named Map1 with a 1000 x 800 image and a repaint counter.
struct Fixture {
    TMapCalibration cal;
    int repaints = 0;
    explicit Fixture(TCalibModel model)
    {
        cal.SetComponentName("Map1");
        cal.SetImageSize(1000, 800);
        cal.SetChangeListener([this](unsigned) { ++repaints; });
        cal.SetCalibModel(model);
    }
    const TCalibData& d() const { return cal.CalibData(); }
    // Adds geographic quads (lat, lon, x, y).
    void Quads(std::initializer_list<TCalQuad> qs)
    {
        for (const TCalQuad& q : qs)
            cal.AddCalibPoint(q.Latitude, q.Longitude, q.MapX, q.MapY);
    }
};

// The meaningful points of a line: the slots beyond NumPoints keep stale values.
std::vector<TPoint> Pts(const TCalibLine& l)
{
    return {l.CalPoints.begin(), l.CalPoints.begin() + l.NumPoints};
}

const std::string kAddMsg =
    "Component \"Map1\": current calibration model does not support this version of AddCalibPoint";
const std::string kRemoveMsg =
    "Component \"Map1\": current calibration model does not support this version of RemoveCalibPoint";

TEST(CalibPoints, OverloadsRejectOtherModelsWithTheComponentMessage)
{
    struct Case { TCalibModel model; bool lineOk, geoOk, utmOk; };
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
        EXPECT_EQ(ErrorOf([&] { f.cal.AddCalibPoint(5e6, 5e5, 33, hemiNorth, 1, 2); }), c.utmOk ? "(no error)" : kAddMsg);
        EXPECT_EQ(ErrorOf([&] { f.cal.RemoveCalibPoint(gtlParallel, 48.0, 1, 2); }), c.lineOk ? "(no error)" : kRemoveMsg);
    }
}

TEST(CalibPoints, AddingRespectsTheLimitsSilentlyAndFindsLinesByKindAndValue)
{
    Fixture f(cmParabolicIp);
    for (int i = 0; i < 11; ++i)
        EXPECT_FALSE(f.cal.AddCalibPoint(gtlParallel, 48.0, 10 * i, 100));  // false always
    ASSERT_EQ(f.d().NumCalLines, 1);
    EXPECT_EQ(Pts(f.d().CalLines[0]).back(), (TPoint{90, 100}));  // the 11th point is dropped
    for (int l = 1; l < 26; ++l)
        f.cal.AddCalibPoint(gtlMeridian, 10.0 + l, 5, 5);
    EXPECT_EQ(f.d().NumCalLines, 25);  // the 26th line is dropped
    EXPECT_EQ(f.d().CalLines[24].LineValue, 34.0);
    // Same value, other kind: a different line. Same kind, value exactly equal: the same line.
    Fixture g(cmParabolicIp);
    g.cal.AddCalibPoint(gtlParallel, 48.0, 1, 1);
    g.cal.AddCalibPoint(gtlMeridian, 48.0, 2, 2);
    g.cal.AddCalibPoint(gtlParallel, 48.0 + 1e-12, 3, 3);
    g.cal.AddCalibPoint(gtlParallel, 48.0, 4, 4);
    ASSERT_EQ(g.d().NumCalLines, 3);
    EXPECT_EQ(Pts(g.d().CalLines[0]), (std::vector<TPoint>{{1, 1}, {4, 4}}));

    // Quads: the 201st returns false but still repaints.
    Fixture q(cmEquiRect);
    for (int i = 0; i < MaxCalQuads; ++i)
        ASSERT_TRUE(q.cal.AddCalibPoint(48.0 + i * 0.001, 16.0, i, 2 * i));
    const int before = q.repaints;
    EXPECT_FALSE(q.cal.AddCalibPoint(50.0, 17.0, 1, 1));
    EXPECT_EQ(q.repaints, before + 1);
    EXPECT_EQ(q.d().CalQuads[MaxCalQuads - 1].MapX, 199);
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
    EXPECT_TRUE(f.cal.AddCalibPoint(5e6, 5e5, 32, hemiNorth, 1, 2));
    f.cal.SetUTMZone(60);
    f.cal.SetUTMHemisphere(hemiSouth);
    // Accepted only with the new zone and hemisphere; the refused ones above left no quad behind.
    EXPECT_TRUE(f.cal.AddCalibPoint(4e6, 6e5, 60, hemiSouth, 3, 4));
    EXPECT_EQ(f.d().CalQuads[1], (TCalQuad{4e6, 6e5, 3, 4}));
    // Restoring a removed UTM quad goes through the geographic overload, which the model refuses.
    ASSERT_TRUE(f.cal.RemoveCalibPoint(3, 4));
    EXPECT_EQ(ErrorOf([&] { f.cal.RestoreLastDeletedCalPoint(); }), kAddMsg);
    EXPECT_TRUE(f.cal.CanRestoreBiQuad());
    EXPECT_EQ(f.d().NumCalQuads, 1);
}

TEST(CalibPoints, RemovingFromALineMovesTheLastPointOrLineIntoTheGap)
{
    Fixture f(cmParabolicIp);
    for (int i = 1; i <= 4; ++i)
        f.cal.AddCalibPoint(gtlParallel, 48.0, i, 10 * i);
    const TCalibLine& line = f.d().CalLines[0];
    EXPECT_FALSE(f.cal.RemoveCalibPoint(gtlParallel, 48.0, 2, 20));  // false always
    EXPECT_EQ(Pts(line), (std::vector<TPoint>{{1, 10}, {4, 40}, {3, 30}}));
    // A pixel not on the line removes its last point; an unknown line changes nothing, and this overload
    // keeps no record of the removal.
    f.cal.RemoveCalibPoint(gtlParallel, 48.0, 999, 999);
    f.cal.RemoveCalibPoint(gtlMeridian, 48.0, 1, 10);
    EXPECT_EQ(Pts(line), (std::vector<TPoint>{{1, 10}, {4, 40}}));
    EXPECT_FALSE(f.cal.CanRestoreParaIp());
    // An emptied line is replaced by the last line.
    f.cal.AddCalibPoint(gtlParallel, 47.0, 1, 1);
    f.cal.AddCalibPoint(gtlMeridian, 16.0, 3, 3);
    f.cal.RemoveCalibPoint(gtlParallel, 47.0, 1, 1);
    ASSERT_EQ(f.d().NumCalLines, 2);
    EXPECT_EQ(f.d().CalLines[1].LineType, gtlMeridian);
    EXPECT_EQ(Pts(f.d().CalLines[1]), (std::vector<TPoint>{{3, 3}}));
    // A new line in the freed slot starts empty, whatever the slot held.
    f.cal.AddCalibPoint(gtlParallel, 46.0, 9, 9);
    EXPECT_EQ(Pts(f.d().CalLines[2]), (std::vector<TPoint>{{9, 9}}));
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
    EXPECT_EQ(f.cal.ParaIpOops().LineKind, gtlParallel);
    EXPECT_EQ(Pts(f.d().CalLines[0]), (std::vector<TPoint>{{200, 100}}));
    f.cal.RestoreLastDeletedCalPoint();
    f.cal.RestoreLastDeletedCalPoint();
    EXPECT_EQ(Pts(f.d().CalLines[0]), (std::vector<TPoint>{{200, 100}, {100, 100}}));
    EXPECT_FALSE(f.cal.CanRestoreParaIp());
    // The only point of a line: the line goes, and the restore brings it back as a new last line.
    EXPECT_TRUE(f.cal.RemoveCalibPoint(160, 290));
    EXPECT_EQ(f.d().NumCalLines, 1);
    f.cal.RestoreLastDeletedCalPoint();
    ASSERT_EQ(f.d().NumCalLines, 2);
    EXPECT_EQ(f.d().CalLines[1].LineValue, 16.0);
}

TEST(CalibPoints, NearestQuadRemovalAndRestore)
{
    Fixture f(cmEquiRect);
    f.Quads({{48.0, 16.0, 0, 0}, {47.0, 17.0, 500, 400}, {46.0, 18.0, 1000, 800}});
    EXPECT_TRUE(f.cal.RemoveCalibPoint(480, 390));
    ASSERT_EQ(f.d().NumCalQuads, 2);
    EXPECT_EQ(f.d().CalQuads[1], (TCalQuad{46.0, 18.0, 1000, 800}));  // the last quad moved into the slot
    f.cal.RestoreLastDeletedCalPoint();
    f.cal.RestoreLastDeletedCalPoint();
    ASSERT_EQ(f.d().NumCalQuads, 3);
    EXPECT_EQ(f.d().CalQuads[2], (TCalQuad{47.0, 17.0, 500, 400}));
    // dx = 50000 squares to 2500000000, which wraps to a negative 32-bit value and so counts as nearest.
    Fixture w(cmEquiRect);
    w.Quads({{48.0, 16.0, 10, 0}, {47.0, 17.0, 50000, 0}});
    EXPECT_TRUE(w.cal.RemoveCalibPoint(0, 0));
    EXPECT_EQ(w.cal.BiQuadOops().MapX, 50000);
    // Under cmUndefined nothing is removed even when quads exist; the refit still repaints.
    Fixture g(cmEquiRect);
    g.Quads({{48.0, 16.0, 1, 1}});
    g.cal.SetCalibModel(cmUndefined);
    const int before = g.repaints;
    EXPECT_FALSE(g.cal.RemoveCalibPoint(1, 1));
    EXPECT_EQ(std::pair(g.d().NumCalQuads, g.repaints), std::pair(1, before + 1));
}

TEST(CalibPoints, ClearCalibDataKeepsModelNamesAndCaption)
{
    Fixture f(cmEquiRect);
    f.cal.CalibData().MapFName = "map.bmp";
    f.cal.SetMapCaption("Caption");
    f.cal.CalibData().Ellipsoid = gelBess41;
    f.cal.CalibData().UTMSouth = true;
    f.Quads({{48.0, 16.0, 0, 0}, {47.0, 17.0, 500, 400}});
    ASSERT_NE(f.cal.EquRectPLSP()[0][0], 0.0);
    const int before = f.repaints;
    f.cal.ClearCalibData();
    TCalibData cleared{.MapFName = "map.bmp", .Caption = "Caption", .UTMZone = -1};  // all else default
    EXPECT_EQ(f.d(), cleared);
    EXPECT_EQ(f.repaints, before + 1);
    EXPECT_EQ(f.cal.CalibModel(), cmEquiRect);
    EXPECT_EQ(f.cal.EquRectPLSP()[0][0], 0.0);

    f.cal.Clear();
    EXPECT_EQ(f.cal.CalibModel(), cmUndefined);
    cleared.MapFName = cleared.Caption = "";
    EXPECT_EQ(f.d(), cleared);
}

TEST(CalibPoints, ModelChangeAndAssignKeepThePoints)
{
    Fixture f(cmEquiRect);
    f.Quads({{48.0, 16.0, 0, 0}, {47.0, 17.0, 500, 400}, {46.0, 16.5, 100, 800}});
    // Assigning copies the state but neither the name nor the listener.
    TMapCalibration other;
    other.SetComponentName("Other");
    other.AssignCalibration(f.cal);
    EXPECT_EQ(other.ComponentName(), "Other");
    EXPECT_FALSE(other.HasChangeListener());
    EXPECT_EQ(other.CalibData(), f.d());
    EXPECT_EQ(other.EquRectSPPL(), f.cal.EquRectSPPL());
    // A new model keeps the points and refits only itself.
    f.cal.SetCalibModel(cmBiquadraticPn);
    EXPECT_EQ(f.d().NumCalQuads, 3);
    EXPECT_EQ(f.cal.EquRectPLSP(), other.EquRectPLSP());
    EXPECT_NE(f.cal.CalParsPLSP()[0][0], 0.0);
}

TEST(CalibPoints, ScalingThePointsFollowsAResampledImage)
{
    Fixture f(cmEquiRect);
    f.Quads({{48.0, 16.0, 0, 0}, {47.0, 17.0, 500, 401}, {46.0, 16.5, 101, 803}});
    f.cal.ScaleCalibPoints(0.5);
    // 200.5, 50.5 and 401.5 round to even.
    EXPECT_EQ(f.d().CalQuads[1], (TCalQuad{47.0, 17.0, 250, 200}));
    EXPECT_EQ(f.d().CalQuads[2], (TCalQuad{46.0, 16.5, 50, 402}));
    Fixture g(cmParabolicIp);
    g.cal.AddCalibPoint(gtlMeridian, 16.0, 3, 7);
    g.cal.ScaleCalibPoints(3.0);
    EXPECT_EQ(g.d().CalLines[0].CalPoints[0], (TPoint{9, 21}));
}

}  // namespace
}  // namespace qv
