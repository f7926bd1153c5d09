// Map output at a scale of its own: CopyToBMP and printing the whole map.
#include <qvgeo/mapview/geo_map.h>

#include <QImage>
#include <QPainter>

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>
#include <tuple>
#include <utility>

namespace {

using namespace qv;

constexpr TColor kBefore = 0x00FF00, kAfter = 0xFF00FF, kSymbolFG = 0x008000, kSymbolBG = 0x00FFFF;

// 40..50 N, 10..20 E on 1000 x 800 white pixels, (x, y) = (50 - y/80, 10 + x/100); the view shows 400 x 300
// at 0.5 from (100, 60), unlike any output below. The events mark map pixels (340, 280) and (460, 430) with
// 5 x 5 blocks through the view's conversions, as an application does; a square landmark sits at (530, 290).
struct TOutputMap {
    TGeoMap M;
    TSize Seen;
    static TPoint Place(TGeoMap& S, double Lat, double Long)
    {
        std::int32_t x = 0, y = 0;
        EXPECT_TRUE(S.CalcPixelCoords(Lat, Long, x, y));
        return {x, y};
    }
    static void Block(TGeoMap& S, TCanvas& C, TPoint MapPixel, TColor Colour)
    {
        const TPoint p = S.MapImageToControl(MapPixel);
        C.Brush = {Colour, bsSolid};
        C.FillRect({p.X - 2, p.Y - 2, p.X + 3, p.Y + 3});
    }
    TOutputMap()
    {
        M.resize(400, 300);
        M.CreateEmptyMapInMemory(40, 10, 50, 20, 1, 1, 1000, 800, false);
        M.SetFrameStyle(fsNone);
        M.SetShowGraticule(sgPointsAndLines);
        TLandMark lm = M.DefaultLandMark();
        lm.SymbolProps = {lmSquare, 3, kSymbolFG, kSymbolBG, false, 0, 0};
        lm.Latitude = 46.375, lm.Longitude = 15.3;
        M.SetLandMarkData(M.AddLandMark(lm.Latitude, lm.Longitude, 0), lm);
        M.OnBeforeRenderData = [this](TGeoMap& S, TCanvas& C) { Block(S, C, Place(S, 46.5, 13.4), kBefore); };
        M.OnDataRendered = [this](TGeoMap& S, TCanvas& C) {
            Seen = S.FrameSize();
            Block(S, C, Place(S, 44.625, 14.6), kAfter);
        };
        M.SetMagnification(0.5);
        M.SetTopLeft({100, 60});
        M.Paint();
    }
};

TEST(MapOutput, EverythingDrawnLandsAtTheOutputScale)
{
    const struct {
        TPoint pos;
        double scale;
        TSize size;
    } outputs[] = {{{0, 0}, 1.0, {1000, 800}}, {{300, 250}, 2.0, {500, 400}}, {{0, 0}, 0.25, {250, 200}},
                   {{-40, -20}, 0.5, {540, 420}}, {{100, 60}, 0.5, {400, 300}}};
    TOutputMap t;
    for (const auto& o : outputs) {
        SCOPED_TRACE(::testing::Message() << "scale " << o.scale << " from " << o.pos.X << ", " << o.pos.Y);
        TBitmap out;
        t.M.CopyToBMP(out, o.pos, o.scale, o.size);
        ASSERT_EQ((TSize{out.Width(), out.Height()}), o.size);
        EXPECT_EQ(t.Seen, o.size);
        // Output pixel of a map pixel, rounded as the view rounds (ties to even).
        const auto at = [&](TPoint P) {
            return TPoint{static_cast<std::int32_t>(std::nearbyint((P.X - o.pos.X) * o.scale)),
                          static_cast<std::int32_t>(std::nearbyint((P.Y - o.pos.Y) * o.scale))};
        };
        const auto pixel = [&](TPoint P, int Dx = 0, int Dy = 0) { return out.Pixel(P.X + Dx, P.Y + Dy); };
        EXPECT_EQ(pixel(at({340, 280})), kBefore);
        EXPECT_EQ(pixel(at({460, 430})), kAfter);
        // The square's 5 x 5 outline around its fill: the same 16 pixels at every scale.
        const TPoint mark = at({530, 290});
        int outline = 0;
        for (int dy = -7; dy <= 7; ++dy)
            for (int dx = -7; dx <= 7; ++dx)
                outline += pixel(mark, dx, dy) == kSymbolFG;
        EXPECT_EQ(std::tuple(pixel(mark), pixel(mark, -2, -2), outline), std::tuple(kSymbolBG, kSymbolFG, 16));
        // The meridian of 14 E and the parallel of 46 N (map column 400, row 320); the reference point at
        // the map's centre.
        const TPoint cross = at({400, 320}), centre = at({500, 400});
        EXPECT_EQ(std::tuple(pixel(cross, 0, 30), pixel(cross, 0, -30), pixel(cross, 30, 0), pixel(cross, -30, 0)),
                  std::tuple(0xFF0000u, 0xFF0000u, 0xFF0000u, 0xFF0000u));
        EXPECT_EQ(std::pair(pixel(centre, 3, 0), pixel(centre, 0, -3)), std::pair(0x0000FFu, 0x0000FFu));
    }
}

TEST(MapOutput, TheViewIsLeftAsItWas)
{
    TOutputMap t;
    const QImage before = t.M.AuxBmp().Image().copy();
    const auto check = [&](const char* What) {
        EXPECT_EQ(std::tuple(t.M.TopLeft(), t.M.Magnification(), t.M.FrameSize()),
                  std::tuple(TPoint{100, 60}, 0.5, TSize{400, 300}))
            << What;
        EXPECT_TRUE(t.M.AuxBmp().Image() == before) << What;
    };
    bool repainted = false;  // once: a repaint that went through would come back here
    t.M.OnBeforeRenderData = [&](TGeoMap& S, TCanvas&) {
        if (!std::exchange(repainted, true))
            S.Paint();
    };
    TBitmap out;
    t.M.CopyToBMP(out, {0, 0}, 0.25, {250, 200});
    check("a handler repaints");
    t.M.OnBeforeRenderData = [](TGeoMap&, TCanvas&) { throw std::runtime_error("handler"); };
    EXPECT_THROW(t.M.CopyToBMP(out, {0, 0}, 1.0, {1000, 800}), std::runtime_error);
    check("a handler raises");
}

// A paint device of Size pixels at Dpi dots an inch, filled with magenta, which no map here has.
QImage Page(QSize Size, int Dpi)
{
    QImage img(Size, QImage::Format_RGB32);
    img.fill(QColor(255, 0, 255));
    img.setDotsPerMeterX(static_cast<int>(std::lround(Dpi / 0.0254)));
    img.setDotsPerMeterY(static_cast<int>(std::lround(Dpi / 0.0254)));
    return img;
}

TEST(MapOutput, TheWholeMapFitsThePrintedArea)
{
    const struct {
        QSize page;
        int dpi;
        double maxScale, scale;
    } pages[] = {
        {{1000, 700}, 192, 1.0, 0.4375},  // 700 / (800 * 2): the height decides
        {{1200, 3000}, 192, 1.0, 0.6},    // 1200 / (1000 * 2): the width decides
        {{1200, 1000}, 96, 1.0, 1.0},     // fits at 1:1, centred
        {{1000, 700}, 192, 0.25, 0.25},   // a smaller scale asked for
    };
    TOutputMap t;
    for (const auto& p : pages) {
        SCOPED_TRACE(::testing::Message() << p.page.width() << " x " << p.page.height() << " at " << p.dpi);
        QImage img = Page(p.page, p.dpi);
        {
            QPainter painter(&img);
            EXPECT_DOUBLE_EQ(t.M.CopyEntireMapToOpenPrinter(painter, {0, 0, p.page.width(), p.page.height()}, p.maxScale), p.scale);
        }
        const double k = p.scale * p.dpi / 96.0;  // device pixels per map pixel
        const QRectF map((p.page.width() - 1000 * k) / 2, (p.page.height() - 800 * k) / 2, 1000 * k, 800 * k);
        QRect painted;
        for (int y = 0; y < img.height(); ++y)
            for (int x = 0; x < img.width(); ++x)
                if (img.pixel(x, y) != qRgb(255, 0, 255))
                    painted |= QRect(x, y, 1, 1);
        EXPECT_NEAR(painted.left(), map.left(), 1.0);
        EXPECT_NEAR(painted.top(), map.top(), 1.0);
        EXPECT_NEAR(painted.right() + 1, map.right(), 1.0);
        EXPECT_NEAR(painted.bottom() + 1, map.bottom(), 1.0);
        // The application's mark at its place, crisp on the white map: no dot of a blend around it.
        const QPoint at(static_cast<int>(map.left() + 340.5 * k), static_cast<int>(map.top() + 280.5 * k));
        EXPECT_EQ(img.pixel(at) & 0xFFFFFF, 0x00FF00u);
        int blended = 0;
        for (int y = at.y() - 12; y <= at.y() + 12; ++y)
            for (int x = at.x() - 12; x <= at.x() + 12; ++x)
                blended += (img.pixel(x, y) & 0xFFFFFF) != 0x00FF00u && (img.pixel(x, y) & 0xFFFFFF) != 0xFFFFFFu;
        EXPECT_EQ(blended, 0);
    }
    QImage none = Page({100, 100}, 96);
    QPainter painter(&none);
    EXPECT_EQ(t.M.CopyEntireMapToOpenPrinter(painter, {0, 0, 0, 100}), 0.0);
    EXPECT_EQ(TGeoMap().CopyEntireMapToOpenPrinter(painter, {0, 0, 100, 100}), 0.0);
}

TEST(MapOutput, PrintedMapKeepsTheImageResolution)
{
    // A 400 x 300 checkerboard of single pixels printed at half size in 96ths of an inch on 384 dots an
    // inch: 2 dots a map pixel. Smooth scaling mixes in a quarter of the neighbours; the half-size
    // rendering alone would average every pixel to 128.
    TBitmap board(400, 300);
    for (int y = 0; y < 300; ++y)
        for (int x = 0; x < 400; ++x)
            board.SetPixel(x, y, (x + y) % 2 ? 0xFFFFFF : 0x000000);
    TGeoMap m;
    m.SetMapBitMap(board);
    QImage img = Page({800, 600}, 384);
    {
        QPainter painter(&img);
        ASSERT_EQ(m.CopyEntireMapToOpenPrinter(painter, {0, 0, 800, 600}), 0.5);
    }
    int wrong = 0;
    for (int y = 10; y < 290; y += 7)
        for (int x = 10; x < 390; x += 11)
            wrong += (x + y) % 2 ? qGray(img.pixel(2 * x + 1, 2 * y + 1)) < 160 : qGray(img.pixel(2 * x + 1, 2 * y + 1)) > 96;
    EXPECT_EQ(wrong, 0);
}

}  // namespace
