// The map view at its limits: magnification bounds, graticule work at tiny scales, huge captions.
#include <qvgeo/mapview/caption_sprites.h>
#include <qvgeo/mapview/geo_map.h>
#include <qvgeo/mapview/map_render.h>
#include "render_case.h"

#include <qvgeo/geomap/calib_fit.h>

#include <QTest>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <tuple>

namespace {

using namespace qv;

constexpr TColor Blue = 0xFF0000, Silver = 0xC0C0C0;

TEST(MapViewLimits, SetterClampsOrIgnores)
{
    const double inf = std::numeric_limits<double>::infinity(), nan = std::numeric_limits<double>::quiet_NaN();
    const struct {
        double value, expected;  // from 0.5
    } cases[] = {
        {0.0, 0.5}, {-inf, 0.5}, {nan, 0.5}, {inf, 0.5}, {1e-9, MinMagnification}, {1e9, MaxMagnification},
        {MinMagnification, MinMagnification}, {MaxMagnification, MaxMagnification}, {3.0, 3.0}, {1e-4, 1e-4},
    };
    TGeoMap m;
    m.SetMapBitMap(TBitmap(300, 200));
    for (const auto& c : cases) {
        m.SetMagnification(0.5);
        m.SetMagnification(c.value);
        EXPECT_EQ(m.Magnification(), c.expected) << c.value;
    }
}

// Dragging far down in drag-zoom mode multiplies the magnification by 0.03 on every move: four moves
// would reach 8.1e-7.
TEST(MapViewLimits, DragZoomStopsAtTheSmallestMagnification)
{
    TGeoMap m;
    m.SetMapBitMap(TBitmap(300, 200));
    m.SetMouseAction(maDragZoom);
    const int H = m.height();
    QTest::mousePress(&m, Qt::LeftButton, {}, {250, 0});
    QTest::mouseMove(&m, {250, 0});
    for (int i = 0; i < 4; ++i)
        QTest::mouseMove(&m, {250, int(std::lround(0.97 * H))});
    QTest::mouseRelease(&m, Qt::LeftButton, {}, {250, int(std::lround(0.97 * H))});
    EXPECT_EQ(m.Magnification(), MinMagnification);
    // The zoom history holds the clamped value.
    EXPECT_EQ(m.GetZoomStackEntry(0).MagF, MinMagnification);
    // The conversions stay finite: one control pixel is 65536 map pixels.
    const TPoint tl = m.TopLeft();
    EXPECT_EQ(m.ControlToMapImage({1, 0}).X - m.ControlToMapImage({0, 0}).X, 65536);
    EXPECT_EQ(m.ControlToMapImage({0, 0}), tl);
}

TEST(MapViewLimits, KeysStopAtBothEnds)
{
    const struct {
        Qt::Key key;
        int presses;
        double expected;
    } cases[] = {{Qt::Key_Minus, 60, MinMagnification}, {Qt::Key_Plus, 120, MaxMagnification}};
    TGeoMap m;
    m.SetMapBitMap(TBitmap(300, 200));
    for (const auto& c : cases) {
        for (int i = 0; i < c.presses; ++i)
            QTest::keyClick(&m, c.key);
        EXPECT_EQ(m.Magnification(), c.expected) << c.key;
    }
    // Panning far out stops at the last pixel instead of wrapping round.
    m.SetConfinePanToMapImage(false);
    m.SetTopLeft({std::numeric_limits<std::int32_t>::max(), 0});
    QTest::keyClick(&m, Qt::Key_Right);
    EXPECT_EQ(m.TopLeft().X, std::numeric_limits<std::int32_t>::max());
}

// An atlas lower than its panel leaves its map view 0 x 0: fitting the page must not give magnification 0
// (a blank view, conversions at the 32-bit limit).
TEST(MapViewLimits, ZoomFitPageOnAnEmptyControl)
{
    const struct {
        int w, h;
        double expected;
    } cases[] = {{0, 0, MinMagnification}, {0, 150, MinMagnification}, {150, 100, 0.5}};
    for (const auto& c : cases) {
        TGeoMap m;
        m.SetMapBitMap(TBitmap(300, 200));
        m.resize(c.w, c.h);
        m.ZoomFitPage();
        EXPECT_EQ(m.Magnification(), c.expected) << c.w;
        EXPECT_EQ(m.ControlToMapImage({2, 3}), (TPoint{int(std::lround(2 / c.expected)), int(std::lround(3 / c.expected))}))
            << c.w;
    }
}

// The parabolic graticule at the smallest magnification: a 200 x 100 view spans 13 million map columns and
// 6.5 million rows (without a bound, one point each). The line is drawn with one point per control pixel,
// straight where it should be, the view placed a billion map pixels out.
TEST(MapViewLimits, ParabolicGraticuleAtATinyMagnificationIsBoundedAndRight)
{
    const struct {
        TGratLineKind kind;
        TPoint topLeft;
        bool row;  // a horizontal line (parallel) at row 50 or a vertical one (meridian) at column 100
    } cases[] = {
        {gtlParallel, {-1000000000, 40 - 50 * 65536}, true},
        {gtlMeridian, {100 - 100 * 65536, -500000000}, false},
    };
    for (const auto& c : cases) {
        TBitmap img(300, 200);
        img.Fill(0xFFFFFF);
        TCalibData cal;
        cal.NumCalLines = 1;
        if (c.kind == gtlParallel)
            cal.CalLines[0] = {gtlParallel, 45.0, 3, {TPoint{10, 40}, TPoint{150, 40}, TPoint{290, 40}}};
        else
            cal.CalLines[0] = {gtlMeridian, 7.0, 3, {TPoint{100, 0}, TPoint{100, 90}, TPoint{100, 190}}};
        TCalibFit fit;
        fit.SetModel(cmParabolicIp);
        fit.FitGratMat(cal);  // the line's parabola comes with the fit
        TLandMarkStore store;
        TRenderCase s;
        s.View.SetControlSize({200, 100}), s.View.SetMagnify(MinMagnification), s.View.SetTopLeft(TMapPixel(c.topLeft));
        s.Src.MapImgName = "map.bmp", s.Src.GrafBmp = &img, s.Src.CalibData = &cal, s.Src.Fit = &fit, s.Src.LandMarks = &store;
        s.Look.ShowGraticule = sgLines, s.Look.ColorGraticule = Blue, s.Look.ColorBackGnd = Silver, s.Look.FrameStyle = fsNone;
        TBitmap aux;
        TMapImageCache cache;
        Render(s, aux, cache, nullptr);
        int onLine = 0, elsewhere = 0;
        for (int y = 0; y < 100; ++y)
            for (int x = 0; x < 200; ++x) {
                const bool line = c.row ? y == 50 : x == 100;
                (line ? onLine : elsewhere) += aux.Pixel(x, y) == Blue;
            }
        // From the view's first pixel; the polyline's last point (the last control pixel) is left out.
        EXPECT_EQ(aux.Pixel(c.row ? 0 : 100, c.row ? 50 : 0), Blue) << c.row;
        EXPECT_EQ(onLine, c.row ? 199 : 99) << c.row;
        EXPECT_EQ(elsewhere, 0) << c.row;
    }
}

// Captions of huge fonts are drawn straight onto the picture: the scratch bitmap never outgrows it, the
// pixels are those of drawing the caption directly, and ordinary captions still go through a sprite.
TEST(MapViewLimits, HugeCaptionsStayWithinThePicture)
{
    const struct {
        int size;
        bool transparent;
        bool sprite;  // rendered into a sprite
    } cases[] = {{9, false, true}, {300, false, false}, {300, true, false}, {2000, false, false}, {5000, false, false}};
    for (const auto& c : cases) {
        TLMTextProperties cap;
        cap.Text = "Wien", cap.Size = c.size, cap.FontName = "DejaVu Sans", cap.FGColor = 0x0000FF;
        cap.BGColor = 0xFFFF00, cap.Transparent = c.transparent, cap.HAlignment = haCenter, cap.VAlignment = vaCenter;
        TBitmap direct(200, 100), viaCache(200, 100);
        direct.Fill(Silver);
        viaCache.Fill(Silver);
        DrawLandMarkCaption(direct.Canvas(), {100, 50}, cap);
        TCaptionSpriteCache cache;
        cache.Draw(viaCache.Canvas(), {100, 50}, cap);
        EXPECT_LE(cache.ScratchPixels(), 200 * 100) << c.size;
        EXPECT_EQ(cache.Renders(), c.sprite ? 1u : 0u) << c.size;
        EXPECT_TRUE(direct.Image() == viaCache.Image()) << c.size;
        int changed = 0;
        for (int y = 0; y < 100; ++y)
            for (int x = 0; x < 200; ++x)
                changed += viaCache.Pixel(x, y) != Silver;
        // Opaque: the text's box covers the whole picture; transparent: some glyph crosses it.
        if (c.size >= 2000)
            EXPECT_EQ(changed, 200 * 100) << c.size;
        else
            EXPECT_GT(changed, 0) << c.size;
    }
}

}  // namespace
