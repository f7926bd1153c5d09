// Output of a map at a scale of its own (CopyToBMP and the printer paths): what the view draws and what the
// application draws through the render events land where the calibration puts them at the output's scale,
// symbols keep their screen size, the view is left as it was, and a printed map fits its area whole.
#include <qvgeo/geomap/view/geo_map.h>

#include <QImage>
#include <QPainter>
#include <QPrinter>

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

#include <unistd.h>

namespace {

using namespace qv;

constexpr TColor kBefore = 0x00FF00;  // drawn by OnBeforeRenderData
constexpr TColor kAfter = 0xFF00FF;   // drawn by OnDataRendered
constexpr TColor kSymbolFG = 0x008000, kSymbolBG = 0x00FFFF;
// Map pixels (340, 280), (460, 430) and (530, 290): inside every output below, off the graticule lines.
constexpr double kBeforeLat = 46.5, kBeforeLong = 13.4, kAfterLat = 44.625, kAfterLong = 14.6;
constexpr double kMarkLat = 46.375, kMarkLong = 15.3;

// 40..50 N, 10..20 E on 1000 x 800 white pixels: pixel (x, y) is (50 - y/80, 10 + x/100). The view is
// 400 x 300 control pixels at magnification 0.5 from (100, 60), unlike any output below. The render
// events mark two places through the view's own conversions, as an application does, and record the
// frame size they were told.
struct TOutputMap {
    TGeoMap M;
    TSize SeenBefore, SeenAfter;
    TOutputMap()
    {
        M.resize(400, 300);
        M.CreateEmptyMapInMemory(40, 10, 50, 20, 1, 1, 1000, 800, false);
        M.SetFrameStyle(fsNone);
        M.SetShowGraticule(sgPointsAndLines);
        TLandMark lm = M.DefaultLandMark();
        lm.Latitude = kMarkLat;
        lm.Longitude = kMarkLong;
        lm.SymbolProps = {lmSquare, 3, kSymbolFG, kSymbolBG, false, 0, 0};
        lm.Caption.Text.clear();
        M.SetLandMarkData(M.AddLandMark(kMarkLat, kMarkLong, 0), lm);
        M.OnBeforeRenderData = [this](TGeoMap& S, TCanvas& C) {
            SeenBefore = S.FrameSize();
            Block(S, C, kBeforeLat, kBeforeLong, kBefore);
        };
        M.OnDataRendered = [this](TGeoMap& S, TCanvas& C) {
            SeenAfter = S.FrameSize();
            Block(S, C, kAfterLat, kAfterLong, kAfter);
        };
        M.SetMagnification(0.5);
        M.SetTopLeft({100, 60});
        M.Paint();
    }
    // A 5 x 5 block centred on the place's pixel in the frame being drawn.
    static void Block(TGeoMap& S, TCanvas& C, double Lat, double Long, TColor Colour)
    {
        std::int32_t x = 0, y = 0;
        if (!S.CalcPixelCoords(Lat, Long, x, y))
            return;
        const TPoint p = S.MapImageToControl({x, y});
        C.Brush = {Colour, bsSolid};
        C.FillRect({p.X - 2, p.Y - 2, p.X + 3, p.Y + 3});
    }
    TPoint MapPixel(double Lat, double Long)
    {
        TPoint p;
        EXPECT_TRUE(M.CalcPixelCoords(Lat, Long, p.X, p.Y));
        return p;
    }
};

// The output pixel of map pixel P when the output starts at map pixel Pos at Scale (ties to even, as the
// view's own conversion rounds).
TPoint OutputPixel(TPoint P, TPoint Pos, double Scale)
{
    return {static_cast<std::int32_t>(std::nearbyint((P.X - Pos.X) * Scale)),
            static_cast<std::int32_t>(std::nearbyint((P.Y - Pos.Y) * Scale))};
}

TColor PixelAt(const TBitmap& B, TPoint P) { return B.Pixel(P.X, P.Y); }

int CountColour(const TBitmap& B, TPoint Centre, int Radius, TColor Colour)
{
    int n = 0;
    for (int y = Centre.Y - Radius; y <= Centre.Y + Radius; ++y)
        for (int x = Centre.X - Radius; x <= Centre.X + Radius; ++x)
            n += B.Pixel(x, y) == Colour;
    return n;
}

TEST(MapOutput, EverythingDrawnLandsAtTheOutputScale)
{
    const struct {
        TPoint pos;
        double scale;
        TSize size;
    } outputs[] = {
        {{0, 0}, 1.0, {1000, 800}},     // the whole map, pixel for pixel
        {{300, 250}, 2.0, {500, 400}},  // enlarged part
        {{0, 0}, 0.25, {250, 200}},     // the whole map reduced
        {{-40, -20}, 0.5, {540, 420}},  // reaching past the map's corner
        {{100, 60}, 0.5, {400, 300}},   // what the view shows
    };
    TOutputMap t;
    const TCalibData cal = t.M.CalibData();
    ASSERT_GE(ValidCalQuads(cal), 4);
    for (const auto& o : outputs) {
        SCOPED_TRACE(::testing::Message() << "scale " << o.scale << " from " << o.pos.X << ", " << o.pos.Y);
        TBitmap out;
        t.M.CopyToBMP(out, o.pos, o.scale, o.size);
        ASSERT_EQ((TSize{out.Width(), out.Height()}), o.size);
        EXPECT_EQ(t.SeenBefore, o.size);
        EXPECT_EQ(t.SeenAfter, o.size);
        // The application's marks, through MapImageToControl inside the events.
        EXPECT_EQ(PixelAt(out, OutputPixel(t.MapPixel(kBeforeLat, kBeforeLong), o.pos, o.scale)), kBefore);
        EXPECT_EQ(PixelAt(out, OutputPixel(t.MapPixel(kAfterLat, kAfterLong), o.pos, o.scale)), kAfter);
        // The landmark's square: its 5 x 5 outline in the line colour around the fill, the same 16 pixels
        // at every scale (symbols keep their screen size).
        const TPoint mark = OutputPixel(t.MapPixel(kMarkLat, kMarkLong), o.pos, o.scale);
        EXPECT_EQ(PixelAt(out, mark), kSymbolBG);
        EXPECT_EQ(out.Pixel(mark.X - 2, mark.Y - 2), kSymbolFG);
        EXPECT_EQ(CountColour(out, mark, 7, kSymbolFG), 16);
        // The meridian of 14 E (map column 400) and the parallel of 46 N (map row 320), away from the marks.
        const TPoint cross = OutputPixel({400, 320}, o.pos, o.scale);
        for (int d : {-30, 30}) {
            EXPECT_EQ(out.Pixel(cross.X, cross.Y + d), t.M.ColorGraticule()) << d;
            EXPECT_EQ(out.Pixel(cross.X + d, cross.Y), t.M.ColorGraticule()) << d;
        }
        // The reference points' pluses, those well inside the output.
        int seen = 0;
        for (int i = 0; i < ValidCalQuads(cal); ++i) {
            const TCalQuad& q = cal.CalQuads[static_cast<std::size_t>(i)];
            const TPoint p = OutputPixel({q.MapX, q.MapY}, o.pos, o.scale);
            if (p.X < 4 || p.Y < 4 || p.X >= o.size.cx - 4 || p.Y >= o.size.cy - 4)
                continue;
            ++seen;
            EXPECT_EQ(out.Pixel(p.X + 3, p.Y), t.M.ColorCalibPoints()) << i;
            EXPECT_EQ(out.Pixel(p.X, p.Y - 3), t.M.ColorCalibPoints()) << i;
        }
        EXPECT_GT(seen, 0);
    }
}

TEST(MapOutput, TheViewIsLeftAsItWas)
{
    TOutputMap t;
    const QImage before = t.M.AuxBmp().Image().copy();
    const std::int32_t builds = t.M.ImageCache().CacheBuilds;
    // Handlers that repaint or move the view while an output is drawn, and one that raises.
    const auto check = [&](const char* What) {
        SCOPED_TRACE(What);
        EXPECT_EQ(t.M.TopLeft(), (TPoint{100, 60}));
        EXPECT_EQ(t.M.Magnification(), 0.5);
        EXPECT_EQ(t.M.FrameSize(), (TSize{400, 300}));
        EXPECT_TRUE(t.M.AuxBmp().Image() == before);
        EXPECT_EQ(t.M.ImageCache().CacheBuilds, builds);
    };
    const auto paint = t.M.OnBeforeRenderData;
    bool repainted = false;  // once: a repaint that went through would call this handler again
    t.M.OnBeforeRenderData = [&](TGeoMap& S, TCanvas& C) {
        paint(S, C);
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

// A paint device of Size pixels at Dpi dots per inch, filled with a colour the map does not have.
QImage Page(QSize Size, int Dpi)
{
    QImage img(Size, QImage::Format_RGB32);
    img.fill(QColor(255, 0, 255));
    img.setDotsPerMeterX(static_cast<int>(std::lround(Dpi / 0.0254)));
    img.setDotsPerMeterY(static_cast<int>(std::lround(Dpi / 0.0254)));
    return img;
}

// The smallest rectangle holding every pixel that is not the page's fill.
QRect Painted(const QImage& Img)
{
    QRect r;
    for (int y = 0; y < Img.height(); ++y)
        for (int x = 0; x < Img.width(); ++x)
            if (Img.pixel(x, y) != qRgb(255, 0, 255))
                r |= QRect(x, y, 1, 1);
    return r;
}

TEST(MapOutput, TheWholeMapFitsThePrintedArea)
{
    const struct {
        QSize page;
        int dpi;
        double maxScale, scale;
    } pages[] = {
        {{1000, 700}, 192, 1.0, 0.4375},  // 700 / (800 * 2): the height decides
        {{600, 2000}, 96, 1.0, 0.6},      // the width decides
        {{1200, 3000}, 192, 1.0, 0.6},    // 1200 / (1000 * 2)
        {{1200, 1000}, 96, 1.0, 1.0},     // fits at 1:1, centred
        {{1000, 700}, 192, 0.25, 0.25},   // a smaller scale asked for
    };
    TOutputMap t;
    for (const auto& p : pages) {
        SCOPED_TRACE(::testing::Message() << p.page.width() << " x " << p.page.height() << " at " << p.dpi);
        QImage img = Page(p.page, p.dpi);
        double scale = 0;
        {
            QPainter painter(&img);
            scale = t.M.CopyEntireMapToOpenPrinter(painter, {0, 0, p.page.width(), p.page.height()}, p.maxScale);
        }
        EXPECT_DOUBLE_EQ(scale, p.scale);
        const double dev = p.dpi / 96.0;
        const QSizeF size(1000 * p.scale * dev, 800 * p.scale * dev);
        const QPointF corner((p.page.width() - size.width()) / 2, (p.page.height() - size.height()) / 2);
        const QRect r = Painted(img);
        EXPECT_NEAR(r.left(), corner.x(), 1.0);
        EXPECT_NEAR(r.top(), corner.y(), 1.0);
        EXPECT_NEAR(r.right() + 1, corner.x() + size.width(), 1.0);
        EXPECT_NEAR(r.bottom() + 1, corner.y() + size.height(), 1.0);
        // The application's mark at its place on the page, drawn at the print's scale.
        const TPoint m = t.MapPixel(kBeforeLat, kBeforeLong);
        const QPoint at(static_cast<int>(corner.x() + (m.X + 0.5) * p.scale * dev),
                        static_cast<int>(corner.y() + (m.Y + 0.5) * p.scale * dev));
        EXPECT_EQ(img.pixel(at) & 0xFFFFFF, 0x00FF00u) << at.x() << ", " << at.y();
        // Its edges stay crisp on the white map: no dot of a blend around it.
        int blended = 0;
        for (int y = at.y() - 12; y <= at.y() + 12; ++y)
            for (int x = at.x() - 12; x <= at.x() + 12; ++x)
                blended += (img.pixel(x, y) & 0xFFFFFF) != 0x00FF00u && (img.pixel(x, y) & 0xFFFFFF) != 0xFFFFFFu;
        EXPECT_EQ(blended, 0);
    }
    QImage none = Page({100, 100}, 96);
    QPainter painter(&none);
    EXPECT_EQ(t.M.CopyEntireMapToOpenPrinter(painter, {0, 0, 0, 100}), 0.0);
    EXPECT_EQ(t.M.CopyEntireMapToOpenPrinter(painter, {0, 0, 100, 100}, 0.0), 0.0);
}

TEST(MapOutput, PrintedMapKeepsTheImageResolution)
{
    // A 400 x 300 checkerboard of single pixels printed at half its size in 96ths of an inch, on a device of
    // 384 dots an inch: 2 dots a map pixel, so every map pixel shows, where the half-size rendering alone
    // would average them to grey.
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
        for (int x = 10; x < 390; x += 11) {
            const int grey = qGray(img.pixel(2 * x + 1, 2 * y + 1));
            // Smooth scaling mixes in a quarter of the neighbours at 2 dots a pixel; averaging gives 128.
            wrong += (x + y) % 2 ? grey < 160 : grey > 96;
        }
    EXPECT_EQ(wrong, 0);
}

TEST(MapOutput, PrintEntireMapWritesThePageItsMapFits)
{
    TOutputMap t;
    const std::string file =
        (std::filesystem::temp_directory_path() / ("qvgeo_map_output_" + std::to_string(::getpid()) + ".pdf")).string();
    QPrinter printer(QPrinter::HighResolution);
    printer.setOutputFormat(QPrinter::PdfFormat);
    printer.setOutputFileName(QString::fromStdString(file));
    // Rendered at the scale the printable area allows, 96 rendered pixels an inch.
    const double scale = std::min({1.0, printer.width() * 96.0 / printer.resolution() / 1000,
                                   printer.height() * 96.0 / printer.resolution() / 800});
    ASSERT_LT(scale, 1.0);  // an A4 or Letter page is narrower than 1000 pixels at 96 an inch
    ASSERT_TRUE(t.M.PrintEntireMap(printer));
    std::ifstream pdf(file, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(pdf)), std::istreambuf_iterator<char>());
    std::filesystem::remove(file);
    EXPECT_EQ(bytes.substr(0, 5), "%PDF-");
    EXPECT_NE(bytes.find("/Width " + std::to_string(std::lround(1000 * scale))), std::string::npos);
    EXPECT_NE(bytes.find("/Height " + std::to_string(std::lround(800 * scale))), std::string::npos);

    TGeoMap empty;
    EXPECT_FALSE(empty.PrintEntireMap(printer));
}

}  // namespace
