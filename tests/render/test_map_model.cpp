// The map model on its own: no widget and no QApplication. It reads a calibration with the image it names,
// takes a view and renders AuxBmp, which must be the pictures the control paints for the same views; its
// hooks are the only way up, and a model that overrides none of them still works.
#include <qvgeo/mapview/map_model.h>
#include <qvgeo/platform/image_files.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

namespace qv {
namespace {

const std::string Samples = std::string(QVGEO_SOURCE_DIR) + "/data/samples/";

bool SameCorner(const TBitmap& Painted, const TBitmap& Reference)
{
    if (Painted.Width() < Reference.Width() || Painted.Height() < Reference.Height())
        return false;
    for (std::int32_t y = 0; y < Reference.Height(); ++y)
        for (std::int32_t x = 0; x < Reference.Width(); ++x)
            if ((Painted.Pixel(x, y) & 0xFFFFFF) != (Reference.Pixel(x, y) & 0xFFFFFF))
                return false;
    return true;
}

// A model that records what it sends up.
class TRecordingModel : public TMapModel {
public:
    int Paints = 0, Switches = 0, Moves = 0, Zooms = 0;
    std::vector<TMapProperty> Properties;

protected:
    void RequestPaint() override { ++Paints; }
    void MapSwitched() override { ++Switches; }
    void ViewMoved(bool Magnification) override
    {
        ++Moves;
        Zooms += Magnification;
    }
    void PropertyChanged(TMapProperty P) override { Properties.push_back(P); }
};

TEST(MapModel, HeadlessModelRendersTheControlsPictures)
{
    const struct {
        const char* id;
        TShowGrat grat;
        double mag;
        TPoint topLeft;
        const char* reference;
    } views[] = {
        {"geo", sgPointsAndLines, 0.5, {20, 10}, "vienna-geo-050.png"},
        {"utm", sgPointsAndUTMGrid, 1.25, {300, 200}, "vienna-utm-125.png"},
    };
    for (const auto& v : views) {
        TMapModel m;
        m.SetControlSize({240, 180});
        m.LoadCalDataFromXML(Samples + "calib-vienna.xml", v.id);
        ASSERT_GT(m.MapWidth(), 0) << v.id;  // the image, found beside the calibration file
        ASSERT_NE(m.CalibModel(), cmUndefined) << v.id;
        ASSERT_TRUE(m.LoadLandMarks(Samples + "landmarks-vienna.xml", ""));
        m.SetShowGraticule(v.grat);
        m.SetMagnification(v.mag);
        m.SetTopLeft(v.topLeft);
        TBitmap reference;
        LoadPNG(reference, std::string(QVGEO_TEST_DATA) + "/render/" + v.reference);
        ASSERT_FALSE(reference.Empty());
        EXPECT_TRUE(SameCorner(m.AuxBmp(), reference)) << v.id;
        // The output path of the model draws the same view.
        TBitmap out;
        m.CopyToBMP(out, v.topLeft, v.mag, {240, 180});
        EXPECT_TRUE(SameCorner(out, reference)) << v.id;
    }
}

TEST(MapModel, HooksReportChangesOnceAndHeldPaintsStayHeld)
{
    TRecordingModel m;
    m.SetControlSize({200, 100});
    m.CreateEmptyMapInMemory(40, 10, 50, 20, 2, 2, 300, 300, true);
    EXPECT_EQ(m.Switches, 1);
    EXPECT_GT(m.Paints, 0);
    // The new map's calibration model is reported with the map.
    EXPECT_NE(std::find(m.Properties.begin(), m.Properties.end(), mpCalibModel), m.Properties.end());
    m.Properties.clear();
    // A clamp: the stored value is the bound, reported once; the same value again reports nothing.
    const struct {
        double set, stored;
        std::size_t reports;
    } grat[] = {{75.0, 60.0, 1}, {60.0, 60.0, 1}, {-3.0, 0.0, 2}, {7.5, 7.5, 3}};
    for (const auto& g : grat) {
        m.SetGratLineDist(g.set);
        EXPECT_EQ(m.GratLineDist(), g.stored) << g.set;
        EXPECT_EQ(m.Properties.size(), g.reports) << g.set;
    }
    m.SetUTMGridDist(20000000);
    EXPECT_EQ(m.UTMGridDist(), 10000000);
    m.SetCacheMagLimit(0.25);
    const std::size_t reports = m.Properties.size();
    m.SetCacheMagLimit(1.0);
    EXPECT_DOUBLE_EQ(m.CacheMagLimit(), 2.0 / 3.0);
    ASSERT_EQ(m.Properties.size(), reports + 1);
    EXPECT_EQ(m.Properties.back(), mpCacheMagLimit);
    // SuppressPaint: nothing is rendered until it is lifted, then exactly once.
    m.SetSuppressPaint(true);
    const int before = m.Paints;
    m.SetTopLeft({10, 10});
    m.SetMagnification(2.0);
    EXPECT_EQ(m.Paints, before);
    m.SetSuppressPaint(false);
    EXPECT_EQ(m.Paints, before + 1);
    // Each move is reported once, a zoom as one; a repaint that moves nothing reports nothing.
    const struct {
        std::function<void()> act;
        int moves, zooms;
    } steps[] = {
        {[&] { m.SetTopLeft({20, 20}); }, 1, 0},
        {[&] { m.SetTopLeft({20, 20}); }, 0, 0},
        {[&] { m.SetMagnification(0.5); }, 1, 1},
        {[&] { m.SetColorBackGnd(0x123456); }, 0, 0},
        {[&] { m.ZoomFitPage(); }, 1, 1},
    };
    for (const auto& st : steps) {
        const int moves = m.Moves, zooms = m.Zooms;
        st.act();
        EXPECT_EQ(m.Moves - moves, st.moves);
        EXPECT_EQ(m.Zooms - zooms, st.zooms);
    }
    EXPECT_EQ(m.TopLeft(), (TPoint{0, 0}));
}

TEST(MapModel, AppearanceSettersRepaintEvenWhenTheValueStays)
{
    // "Store, repaint": the plain setters repaint on every call; only the report waits for a change.
    TRecordingModel m;
    m.SetControlSize({50, 40});
    const std::function<void()> setters[] = {
        [&] { m.SetAntiAlias(m.AntiAlias()); },         [&] { m.SetColorBackGnd(m.ColorBackGnd()); },
        [&] { m.SetColorFrame(m.ColorFrame()); },       [&] { m.SetColorGraticule(m.ColorGraticule()); },
        [&] { m.SetColorCalibPoints(m.ColorCalibPoints()); }, [&] { m.SetEmptyMsg(m.EmptyMsg()); },
        [&] { m.SetGratLineDist(m.GratLineDist()); },   [&] { m.SetUTMGridDist(m.UTMGridDist()); },
    };
    for (std::size_t i = 0; i < std::size(setters); ++i) {
        const int paints = m.Paints;
        setters[i]();
        EXPECT_EQ(m.Paints, paints + 1) << "setter " << i;
    }
    EXPECT_TRUE(m.Properties.empty());
}

TEST(MapModel, AssignCopiesTheMapButNotTheSize)
{
    TMapModel a, b;
    a.SetControlSize({120, 90});
    b.SetControlSize({60, 40});
    a.CreateEmptyMapInMemory(40, 10, 50, 20, 2, 2, 300, 300, true);
    a.SetMagnification(1.5);
    a.SetTopLeft({30, 40});
    a.AddLandMark(45, 15, 0);
    b.Assign(a);
    EXPECT_EQ(b.MapWidth(), a.MapWidth());
    EXPECT_EQ(b.Magnification(), 1.5);
    EXPECT_EQ(b.TopLeft(), (TPoint{30, 40}));
    EXPECT_EQ(b.NumLandMarks(), 1);
    EXPECT_EQ(b.Viewport().ControlSize(), (TSize{60, 40}));
    EXPECT_EQ(b.CalibModel(), cmEquiRect);
}

// Input without a widget: the tool's keys and wheel move the model's view, and each mode has its cursor.
TEST(MapModel, InputInTheToolsTermsAndTheModesCursor)
{
    TMapModel m;
    m.SetControlSize({100, 100});
    EXPECT_FALSE(m.NavigatesBy(TMapKey::Right));  // no map yet
    m.CreateEmptyMapInMemory(40, 10, 50, 20, 2, 2, 400, 400, true);
    EXPECT_TRUE(m.NavigatesBy(TMapKey::Right));
    EXPECT_FALSE(m.NavigatesBy(TMapKey::Other));
    m.ToolKey(TMapKey::Right, {});
    EXPECT_GT(m.TopLeft().X, 0);
    EXPECT_EQ(m.GetZoomStackEntry(0).Left, m.TopLeft().X);  // the step was pushed on the history
    m.SetKeyboardNavigation(false);
    EXPECT_FALSE(m.NavigatesBy(TMapKey::Right));
    EXPECT_FALSE(m.ToolWheel(120, {50, 50}));  // wheel zoom is off by default
    m.SetWheelZoom(true);
    EXPECT_TRUE(m.ToolWheel(120, {50, 50}));
    EXPECT_DOUBLE_EQ(m.Magnification(), 1.25);

    // MouseAction is set by the widget; a copied model carries the mode.
    const struct {
        TMouseActMode mode;
        TCursor cursor;
    } cursors[] = {
        {maNone, crDefault},           {maPan, crGeoHand},           {maPanHoriz, crGeoHand},
        {maPanVert, crGeoHand},        {maRubberBand, crCross},      {maZoomWindow, crGeoZoomWindow},
        {maDragZoom, crGeoZoom},       {maSelectRect, crGeoSelect},  {maLandMark, crGeoLandMark},
    };
    for (const auto& c : cursors) {
        struct TModeModel : TMapModel {
            void Set(TMouseActMode Mode) { FMouse.SetMode(Mode); }
        } withMode;
        withMode.Set(c.mode);
        EXPECT_EQ(withMode.ModeCursorShape(), c.cursor) << int(c.mode);
    }
}

}  // namespace
}  // namespace qv
