// Change notices of the calibration and the landmark store: one per operation, with the bits of what it
// touched, none for a set that changes nothing; listeners that never travel with a copy; the image size
// that an owner pushes; the line parabolas that a refit leaves in the fit.
#include <qvgeo/geomap/calibration.h>
#include <qvgeo/geomap/calibration_file.h>
#include <qvgeo/geomap/landmark_store.h>
#include <qvgeo/support/curve_fit.h>

#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace qv {
namespace {

// The notices an object raised: one entry (the bits) per notice.
struct Heard {
    std::vector<unsigned> notices;
    TChangeNotice::TListener Listener()
    {
        return [this](unsigned What) { notices.push_back(What); };
    }
};

// An equirect calibration of a 1000 x 800 image with three quads.
TMapCalibration EquiRect()
{
    TMapCalibration cal;
    cal.SetImageSize(1000, 800);
    cal.SetCalibModel(cmEquiRect);
    cal.AddCalibPoint(48.0, 16.0, 0, 0);
    cal.AddCalibPoint(47.0, 17.0, 1000, 800);
    cal.AddCalibPoint(47.5, 16.2, 200, 400);
    return cal;
}

TEST(ChangeNotices, CalibrationRaisesOneNoticePerOperationWithItsBits)
{
    const unsigned PF = ccPoints | ccFit;
    struct Case {
        const char* what;
        std::function<void(TMapCalibration&)> op;
        std::vector<unsigned> expected;
    };
    const std::string written = [] {
        TMapCalibration c = EquiRect();
        c.SetMapCaption("Sheet");
        c.SetImageName("no-such-sheet.bmp");  // read back without an owner: a missing image, dropped
        std::ostringstream out;
        c.WriteCalDataToOpenXMLFile(out, true, "a");
        return out.str();
    }();
    const Case cases[] = {
        {"quad added", [](auto& c) { c.AddCalibPoint(47.2, 16.8, 700, 500); }, {PF}},
        {"quad removed", [](auto& c) { c.RemoveCalibPoint(0, 0); }, {PF}},
        {"removed and restored", [](auto& c) { c.RemoveCalibPoint(0, 0), c.RestoreLastDeletedCalPoint(); }, {PF, PF}},
        {"new model", [](auto& c) { c.SetCalibModel(cmBiquadraticPn); }, {ccModel | ccFit}},
        {"refit", [](auto& c) { c.RecalcCalibration(); }, {ccFit}},
        {"points scaled", [](auto& c) { c.ScaleCalibPoints(0.5); }, {PF}},
        {"cleared", [](auto& c) { c.ClearCalibData(); }, {PF | ccUTMZone}},
        {"all cleared", [](auto& c) { c.Clear(); }, {PF | ccUTMZone | ccModel | ccCaption | ccImage}},
        {"caption", [](auto& c) { c.SetMapCaption("Wien"); }, {ccCaption}},
        {"same caption", [](auto& c) { c.SetMapCaption(""); }, {}},
        {"zone", [](auto& c) { c.SetUTMZone(33); }, {ccUTMZone | ccFit}},
        {"zone out of range", [](auto& c) { c.SetUTMZone(61); }, {}},
        {"same hemisphere", [](auto& c) { c.SetUTMHemisphere(hemiNorth); }, {}},
        {"hemisphere", [](auto& c) { c.SetUTMHemisphere(hemiSouth); }, {ccUTMZone | ccFit}},
        {"image size pushed", [](auto& c) { c.SetImageSize(500, 400); }, {}},
        {"corners unchanged", [](auto& c) { c.CalcExtentsAndResolution(); }, {}},
        {"corners of a new size", [](auto& c) { c.SetImageSize(500, 400), c.CalcExtentsAndResolution(); }, {ccFit}},
        {"record taken over", [](auto& c) { c.LoadCalibData(c.CalibData(), cmEquiRect); }, {PF | ccModel | ccCaption | ccUTMZone}},
        {"file read", [&](auto& c) { std::istringstream in(written); c.ReadCalDataFromOpenXMLFile(in, "a"); },
         {PF | ccModel | ccCaption | ccUTMZone | ccImage}},
        {"no matching id", [&](auto& c) { std::istringstream in(written); c.ReadCalDataFromOpenXMLFile(in, "b"); },
         {PF | ccModel | ccCaption}},
        {"written", [](auto& c) { std::ostringstream out; c.WriteCalDataToOpenXMLFile(out, true, "x"); }, {}},
        {"assigned", [](auto& c) { c.AssignCalibration(EquiRect()); },
         {PF | ccModel | ccCaption | ccUTMZone | ccImage}},
    };
    for (const Case& k : cases) {
        TMapCalibration cal = EquiRect();
        Heard heard;
        cal.SetChangeListener(heard.Listener());
        k.op(cal);
        EXPECT_EQ(heard.notices, k.expected) << k.what;
    }
}

TEST(ChangeNotices, RefusedQuadStillNotifiesAsItRepainted)
{
    TMapCalibration cal = EquiRect();
    for (int i = 3; i < MaxCalQuads; ++i)
        cal.AddCalibPoint(47.0 + i * 1e-3, 16.0 + i * 1e-3, i, i);
    Heard heard;
    cal.SetChangeListener(heard.Listener());
    EXPECT_FALSE(cal.AddCalibPoint(46.0, 15.0, 1, 1));
    EXPECT_EQ(heard.notices, std::vector<unsigned>{ccPoints});  // the points were worked on, no refit
}

TEST(ChangeNotices, CopiesNeverCarryTheListener)
{
    TMapCalibration original = EquiRect();
    Heard heard;
    original.SetChangeListener(heard.Listener());

    TMapCalibration copied(original);
    EXPECT_FALSE(copied.HasChangeListener());
    copied.AddCalibPoint(47.3, 16.3, 300, 300);

    TMapCalibration assigned;
    Heard own;
    assigned.SetChangeListener(own.Listener());
    assigned = original;  // keeps its own listener, which hears nothing of the assignment itself
    assigned.RemoveCalibPoint(0, 0);

    TMapCalibration moved(std::move(copied));
    EXPECT_FALSE(moved.HasChangeListener());
    moved.ClearCalibData();

    TMapCalibration snapshot;
    snapshot.AssignCalibration(original);
    snapshot.SetCalibModel(cmConicConformal);

    EXPECT_TRUE(heard.notices.empty());
    EXPECT_EQ(own.notices, std::vector<unsigned>{ccPoints | ccFit});
    EXPECT_EQ(original.CalibData().NumCalQuads, 3);
}

TEST(ChangeNotices, TheImageSizeIsPushedNotPulled)
{
    TMapCalibration cal = EquiRect();
    cal.SetImageName("sheet.jpg");
    cal.SetImageSize(640, 480);
    std::int32_t w = 0, h = 0;
    cal.ImageSize(w, h);
    EXPECT_EQ(std::tuple(w, h, cal.ImageName()), std::tuple(640, 480, std::string("sheet.jpg")));
    // Nothing is refitted until the next edit, which takes the pushed size for the corners.
    TCoords corner;
    cal.CalcPosition(TPoint{1000, 800}, corner);
    EXPECT_EQ(cal.CalibData().Corners[gcoBottomRight], corner);
    cal.AddCalibPoint(47.1, 16.9, 900, 700);
    cal.CalcPosition(TPoint{640, 480}, corner);
    EXPECT_EQ(cal.CalibData().Corners[gcoBottomRight], corner);
    cal.SetImageSize(-5, 10);
    cal.ImageSize(w, h);
    EXPECT_EQ(std::pair(w, h), std::pair(0, 10));
    // The writer names the pushed image.
    std::ostringstream out;
    cal.WriteCalDataToOpenXMLFile(out, false, "1");
    EXPECT_NE(out.str().find("map=\"sheet.jpg\""), std::string::npos);
}

TEST(ChangeNotices, LineParabolasComeWithTheFitAndMatchADirectFit)
{
    TMapCalibration cal;
    cal.SetImageSize(600, 500);
    cal.SetCalibModel(cmParabolicIp);
    const std::vector<std::tuple<TGratLineKind, double, std::vector<TPoint>>> lines = {
        {gtlParallel, 45.0, {{10, 40}, {300, 70}, {590, 35}}},
        {gtlMeridian, 7.0, {{100, 5}, {130, 250}, {95, 490}, {101, 300}}},
        {gtlMeridian, 8.0, {{450, 10}, {470, 480}}},  // two points: a straight line
        {gtlParallel, 46.0, {{20, 300}}},             // one point
    };
    for (const auto& [kind, value, points] : lines)
        for (TPoint p : points)
            cal.AddCalibPoint(kind, value, p.X, p.Y);
    Heard heard;
    cal.SetChangeListener(heard.Listener());
    const std::vector<TLineParabola>& got = cal.Fit().LineParabolas();
    ASSERT_EQ(got.size(), lines.size());
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const auto& [kind, value, points] = lines[i];
        TCurveFit direct;
        direct.Init();
        for (TPoint p : points)
            kind == gtlParallel ? direct.EnterStatValue(p.X, p.Y) : direct.EnterStatValue(p.Y, p.X);
        double k0 = 0, k1 = 0, k2 = 0, q = 0;
        direct.CalcParabolFit(k0, k1, k2, q);
        EXPECT_EQ(std::tuple(got[i].Parallel, got[i].Drawn, got[i].K0, got[i].K1, got[i].K2),
                  std::tuple(kind == gtlParallel, true, k0, k1, k2))
            << i;
    }
    EXPECT_EQ(got[2].K2, 0.0);
    // The matrix keeps only the lines of 3 points; a removal refits the parabola of its line.
    EXPECT_EQ(cal.GratMat().NrOfRows(), 1);  // one parallel and one meridian of 3 points: no usable matrix
    cal.RemoveCalibPoint(gtlMeridian, 7.0, 101, 300);
    TCurveFit three;
    three.Init();
    for (TPoint p : {TPoint{100, 5}, TPoint{130, 250}, TPoint{95, 490}})
        three.EnterStatValue(p.Y, p.X);
    double k0 = 0, k1 = 0, k2 = 0, q = 0;
    three.CalcParabolFit(k0, k1, k2, q);
    EXPECT_EQ(std::tuple(cal.Fit().LineParabolas()[1].K0, cal.Fit().LineParabolas()[1].K2), std::tuple(k0, k2));
    EXPECT_EQ(heard.notices, std::vector<unsigned>{ccPoints | ccFit});
    cal.ClearCalibData();
    EXPECT_TRUE(cal.Fit().LineParabolas().empty());
}

TEST(ChangeNotices, BatchesGatherIntoOneNoticeAlsoWhenLeftByAnException)
{
    TMapCalibration cal = EquiRect();
    Heard heard;
    cal.SetChangeListener(heard.Listener());
    {
        const auto outer = cal.Batch();
        cal.SetMapCaption("a");
        {
            const auto inner = cal.Batch();
            cal.SetCalibModel(cmBiquadraticPn);
        }
        EXPECT_TRUE(heard.notices.empty());
    }
    EXPECT_EQ(heard.notices, std::vector<unsigned>{ccCaption | ccModel | ccFit});
    heard.notices.clear();
    // A graticule point under the wrong model raises; the caption set before it is still announced.
    EXPECT_THROW(
        {
            const auto batch = cal.Batch();
            cal.SetMapCaption("b");
            cal.AddCalibPoint(gtlParallel, 45.0, 1, 1);
        },
        std::exception);
    EXPECT_EQ(heard.notices, std::vector<unsigned>{ccCaption});
}

TEST(ChangeNotices, LandMarkStoreNotifiesWhatChanged)
{
    struct Case {
        const char* what;
        std::function<void(TLandMarkStore&)> op;
        std::vector<unsigned> expected;
    };
    const Case cases[] = {
        {"added", [](auto& s) { s.AddLandMark(1, 1, 0); }, {lcList}},
        {"vetoed add", [](auto& s) { s.AddLandMark(9, 9, 0, "veto", 0.0); }, {}},
        {"removed by index", [](auto& s) { s.RemoveLandMark(1); }, {lcList}},
        {"removed by class", [](auto& s) { s.RemoveAllLandMarks(std::uint8_t{0}); }, {lcList}},
        {"all removed", [](auto& s) { s.RemoveAllLandMarks(); }, {lcList}},
        {"replaced", [](auto& s) { s.SetLandMarkData(2, s.GetLandMarkData(1)); }, {lcList}},
        {"replaced out of range", [](auto& s) { s.SetLandMarkData(9, s.GetLandMarkData(1)); }, {}},
        {"highlight", [](auto& s) { s.SetHighLM(2); }, {lcHighlight}},
        {"same highlight", [](auto& s) { s.SetHighLM(0); }, {}},
        {"highlight colours", [](auto& s) { s.SetHighLightProperties(1, 2, true); }, {lcHighlight}},
        {"class hidden", [](auto& s) { s.SetClassVisibility(3, false); }, {lcVisibility}},
        {"template", [](auto& s) { s.SetDefaultLandMark(s.GetLandMarkData(1)); }, {}},
        {"assigned", [](auto& s) { TLandMarkStore o; o.AddLandMark(5, 5, 5); s.AssignLandMarks(o); }, {}},
        {"read", [](auto& s) {
             std::istringstream in("<gmlandmarks sig=\"Quorvanta\" vers=\"1.0\" id=\"1\">\n"
                                   "<landmark lat=\"1\" long=\"2\" />\n</gmlandmarks>\n");
             s.ReadLandMarksFromOpenXMLFile(in, "");
         }, {lcList}},
    };
    for (const Case& k : cases) {
        TLandMarkStore store;
        store.AddLandMark(1, 1, 0);
        store.AddLandMark(2, 2, 0);
        store.AddLandMark(3, 3, 0);
        store.LandMarkActionHook = [](bool& Allowed, TLandMarkAction, const TLandMark& L) {
            Allowed = L.Identifier != "veto";
        };
        Heard heard;
        store.SetChangeListener(heard.Listener());
        k.op(store);
        EXPECT_EQ(heard.notices, k.expected) << k.what;
    }
}

}  // namespace
}  // namespace qv
