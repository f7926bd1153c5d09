// The map control paints through RenderMapView: its frame is what RenderMapView draws from the control's
// viewport, sources and appearance, and for the bundled Vienna views it is the picture that the
// widget-free rendering test compares with (tests/data/render).
#include <qvgeo/mapview/geo_map.h>
#include <qvgeo/platform/image_files.h>

#include <QTest>

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <tuple>

namespace qv {
namespace {

const std::string Samples = std::string(QVGEO_SOURCE_DIR) + "/data/samples/";

TBitmap Corner(const TBitmap& B, std::int32_t W, std::int32_t H)
{
    TBitmap c(W, H);
    c.CopyRect(0, 0, B, {0, 0, W, H});
    return c;
}

bool SamePixels(const TBitmap& A, const TBitmap& B)
{
    if (A.Width() != B.Width() || A.Height() != B.Height())
        return false;
    for (std::int32_t y = 0; y < A.Height(); ++y)
        for (std::int32_t x = 0; x < A.Width(); ++x)
            if ((A.Pixel(x, y) & 0xFFFFFF) != (B.Pixel(x, y) & 0xFFFFFF))
                return false;
    return true;
}

TEST(MapViewRender, TheControlPaintsWhatRenderMapViewDrawsFromItsViewport)
{
    const struct {
        const char* id;
        TShowGrat grat;
        double mag;
        TPoint topLeft;
        double ratio;
        const char* reference;  // null: no stored picture for the view
    } views[] = {
        {"geo", sgPointsAndLines, 0.5, {20, 10}, 0, "vienna-geo-050.png"},
        {"utm", sgPointsAndUTMGrid, 1.25, {300, 200}, 0, "vienna-utm-125.png"},
        {"grat", sgPointsAndLines, 2.0, {-30, 400}, 1.5, nullptr},  // off the map's left edge, ratio 1.5
    };
    for (const auto& v : views) {
        TGeoMap m;
        m.resize(240, 180);
        m.OnMapImageRequest = [](TGeoMap&, std::string& Name) { Name = Samples + Name; };
        m.LoadCalDataFromXML(Samples + "calib-vienna.xml", v.id);
        ASSERT_TRUE(m.LoadLandMarks(Samples + "landmarks-vienna.xml", ""));
        m.SetForcedPixelRatio(v.ratio);
        m.SetShowGraticule(v.grat);
        m.SetMagnification(v.mag);
        m.SetTopLeft(v.topLeft);
        // The viewport holds the view the setters made, at the control's size.
        EXPECT_EQ(m.Viewport().ControlSize(), (TSize{240, 180})) << v.id;
        EXPECT_EQ(m.Viewport().TopLeft(), TMapPixel(v.topLeft)) << v.id;
        EXPECT_EQ(m.Viewport().MapSize(), (TSize{m.MapWidth(), m.MapHeight()})) << v.id;
        const TBitmap painted = Corner(m.AuxBmp(), 240, 180);
        TBitmap drawn;
        TMapImageCache cache;
        RenderMapView(m.Viewport(), m.RenderSources(), m.Appearance(), drawn, cache);
        EXPECT_TRUE(SamePixels(painted, drawn)) << v.id;
        if (v.reference) {
            TBitmap reference;
            LoadPNG(reference, std::string(QVGEO_TEST_DATA) + "/render/" + v.reference);
            EXPECT_TRUE(SamePixels(painted, reference)) << v.id;
        }
    }
}

// The high-density frame: the map stretched from the pyramid level that still has a pixel per device
// pixel, and what was drawn over the map taken from AuxBmp's W x H picture only, up to the last device
// column and row of a fractional ratio.
TEST(MapViewRender, DeviceFrameTakesTheRightLevelAndStaysInsideTheView)
{
    const TColor Map = 0x000001, Level1 = 0x000002, Level2 = 0x000003, Drawn = 0x0000FF, Beyond = 0x00FF00;
    TBitmap map(400, 400), l1(200, 200), l2(100, 100);
    map.Fill(Map), l1.Fill(Level1), l2.Fill(Level2);
    TMapSources src;
    src.MapImgName = "map", src.GrafBmp = &map, src.PyramidLevels = {&l1, &l2, nullptr, nullptr};
    const TMapAppearance look;
    const struct { double mag, ratio; TColor centre; } cases[] = {
        {0.25, 1.5, Level1},  // 0.375 device pixels per map pixel: level 1 (0.5) still covers it, level 2 not
        {0.2, 1.25, Level2},  // 0.25: level 2 exactly
        {1.0, 1.5, Map},
    };
    for (const auto& c : cases) {
        TMapViewport view;
        view.SetControlSize({5, 3});
        view.SetMapSize({400, 400});
        view.SetMagnify(c.mag);
        view.SetPixelRatio(c.ratio);
        // AuxBmp is wider and higher than the view (it only grows); its pixels beyond the view must not show.
        TBitmap aux(6, 4), bare(6, 4);
        aux.Fill(Beyond), bare.Fill(Beyond);
        for (int y = 0; y < 3; ++y)
            for (int x = 0; x < 5; ++x)
                aux.SetPixel(x, y, 0x112233), bare.SetPixel(x, y, 0x112233);
        aux.SetPixel(4, 2, Drawn);  // drawn over the map at the view's last pixel
        TBitmap screen;
        RenderDeviceFrame(screen, aux, &bare, view, src, look);
        const int wd = static_cast<int>(std::ceil(5 * c.ratio)), hd = static_cast<int>(std::ceil(3 * c.ratio));
        ASSERT_EQ(std::tuple(screen.Width(), screen.Height()), std::tuple(wd, hd)) << c.mag;
        EXPECT_EQ(screen.Pixel(wd / 2, hd / 2) & 0xFFFFFF, c.centre) << c.mag;
        EXPECT_EQ(screen.Pixel(wd - 1, hd - 1) & 0xFFFFFF, Drawn) << c.mag;
        // Without the bare map everything comes from AuxBmp, its last view column and row included.
        RenderDeviceFrame(screen, aux, nullptr, view, src, look);
        EXPECT_EQ(screen.Pixel(wd - 1, 0) & 0xFFFFFF, 0x112233u) << c.mag;
        EXPECT_EQ(screen.Pixel(0, hd - 1) & 0xFFFFFF, 0x112233u) << c.mag;
    }
}

// A resize reaches the viewport with the resize event of a shown control, and before any view operation
// of a hidden one (whose resize event waits until it is shown).
TEST(MapViewRender, TheViewportFollowsTheControlSize)
{
    TGeoMap m;
    m.SetMapBitMap(TBitmap(1000, 800));
    m.resize(300, 200);
    m.BringMapPixelToCenter({500, 400});
    EXPECT_EQ(m.Viewport().ControlSize(), (TSize{300, 200}));
    EXPECT_EQ(m.TopLeft(), (TPoint{350, 300}));
    m.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&m));
    m.resize(400, 100);
    QCoreApplication::processEvents();
    EXPECT_EQ(m.Viewport().ControlSize(), (TSize{400, 100}));
    EXPECT_EQ(m.AuxBmp().Width() >= 400, true);
}

// Each arrow key moves the viewport by an eighth of the view in map pixels, its own way.
TEST(MapViewRender, ArrowKeysPanTheViewportEachWay)
{
    TGeoMap m;  // 500 x 400
    m.SetMapBitMap(TBitmap(2000, 1500));
    const struct { double mag; Qt::Key key; TPoint to; } steps[] = {
        {1.0, Qt::Key_Left, {338, 400}},  // 62.5 -> 62
        {1.0, Qt::Key_Right, {462, 400}},
        {1.0, Qt::Key_Up, {400, 350}},
        {1.0, Qt::Key_Down, {400, 450}},
        {2.0, Qt::Key_Left, {369, 400}},  // 31.25 -> 31
        {2.0, Qt::Key_Down, {400, 425}},
    };
    for (const auto& s : steps) {
        m.SetMagnification(s.mag);
        m.SetTopLeft({400, 400});
        QTest::keyClick(&m, s.key);
        EXPECT_EQ(m.TopLeft(), s.to) << s.key << " at " << s.mag;
    }
}

// A landmark is drawn only strictly inside the view: not on its left or top edge, nor on the first column
// or row past its right or bottom edge, which the symbol would still reach.
TEST(MapViewRender, LandmarksOnTheViewsEdgesAreNotDrawn)
{
    // 256 x 128 map pixels over 8 x 4 degrees: a pixel is exactly 1/32 degree, so places convert exactly.
    TBitmap img(256, 128);
    img.Fill(0xFFFFFF);
    TCalibData cal;
    const int px[4][2] = {{0, 0}, {0, 128}, {256, 128}, {256, 0}};
    for (const auto& p : px)
        cal.CalQuads[static_cast<std::size_t>(cal.NumCalQuads++)] = {48.0 - p[1] / 32.0, 16.0 + p[0] / 32.0, p[0], p[1]};
    TCalibFit fit;
    fit.SetModel(cmEquiRect);
    fit.SetProjection(cal);
    fit.FitEquiRect(cal);
    TMapViewport view;
    view.SetControlSize({100, 60});
    view.SetTopLeft({10, 10});
    TMapAppearance look;
    look.FrameStyle = fsNone;
    TMapSources src;
    src.MapImgName = "map.bmp", src.GrafBmp = &img, src.CalibData = &cal, src.Fit = &fit;
    TBitmap bare;
    TMapImageCache cache;
    RenderMapView(view, src, look, bare, cache);
    const struct { TPoint control; bool drawn; } cases[] = {
        {{0, 30}, false}, {{30, 0}, false}, {{100, 30}, false}, {{30, 60}, false},
        {{1, 1}, true}, {{99, 59}, true}, {{50, 30}, true},
    };
    for (const auto& c : cases) {
        TLandMarkStore store;
        store.AddLandMark(48.0 - (c.control.Y + 10) / 32.0, 16.0 + (c.control.X + 10) / 32.0, 0);
        src.LandMarks = &store;
        TBitmap aux;
        RenderMapView(view, src, look, aux, cache);
        bool changed = false;
        for (int y = 0; y < 60; ++y)
            for (int x = 0; x < 100; ++x)
                changed = changed || aux.Pixel(x, y) != bare.Pixel(x, y);
        EXPECT_EQ(changed, c.drawn) << c.control.X << ", " << c.control.Y;
    }
}

// While CopyToBMP renders, a render handler sees the output as the view: its size, scale and position;
// after it the view is back, also when the handler raised.
TEST(MapViewRender, OutputHandlersSeeTheOutputAsTheView)
{
    TGeoMap m;
    m.resize(300, 200);
    m.SetMapBitMap(TBitmap(1000, 800));
    m.SetMagnification(2.0);
    m.SetTopLeft({40, 30});
    TSize seenSize;
    double seenMag = 0;
    TPoint seenTopLeft;
    bool raise = false;
    m.OnBeforeRenderData = [&](TGeoMap& Sender, TCanvas&) {
        seenSize = Sender.FrameSize();
        seenMag = Sender.Magnification();
        seenTopLeft = Sender.TopLeft();
        Sender.SetTopLeft({999, 999});  // changes the output's view only
        if (raise)
            throw std::runtime_error("handler");
    };
    TBitmap out;
    m.CopyToBMP(out, {5, 6}, 0.25, {120, 90});
    EXPECT_EQ(std::tuple(seenSize, seenMag, seenTopLeft), std::tuple(TSize{120, 90}, 0.25, TPoint{5, 6}));
    EXPECT_EQ(std::tuple(out.Width(), out.Height()), std::tuple(120, 90));
    EXPECT_EQ(std::tuple(m.FrameSize(), m.Magnification(), m.TopLeft()), std::tuple(TSize{300, 200}, 2.0, TPoint{40, 30}));
    raise = true;
    EXPECT_THROW(m.CopyToBMP(out, {7, 8}, 0.5, {60, 40}), std::runtime_error);
    EXPECT_EQ(std::tuple(m.FrameSize(), m.Magnification(), m.TopLeft()), std::tuple(TSize{300, 200}, 2.0, TPoint{40, 30}));
    EXPECT_EQ(m.Viewport().ControlSize(), (TSize{300, 200}));
}

}  // namespace
}  // namespace qv
