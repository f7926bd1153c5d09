// TGeoMap on real (hidden) widgets: image loading and its limit, the zoom history ring, panning and
// centring, pixel conversions, setter rules, Assign, saving and resizing, output to the clipboard, bitmaps
// and a PDF printer, the pyramid of big maps, high-density frames and the keyboard.
#include <qvgeo/mapview/geo_map.h>

#include <qvgeo/platform/clipboard.h>
#include <qvgeo/platform/image_files.h>
#include <qvgeo/support/errors.h>
#include "render_case.h"

#include <QPrinter>
#include <QTest>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <tuple>

#include <unistd.h>

namespace {

using namespace qv;
namespace fs = std::filesystem;

struct TempDir {
    fs::path Dir = fs::temp_directory_path() / ("qvgeo_geo_map_" + std::to_string(::getpid()));
    TempDir() { fs::create_directories(Dir); }
    ~TempDir() { fs::remove_all(Dir); }
    std::string operator/(const std::string& Name) const { return (Dir / Name).string(); }
};

// A picture whose every pixel is distinct enough to tell places apart.
TBitmap Pattern(int W, int H)
{
    TBitmap b(W, H);
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x)
            b.SetPixel(x, y, static_cast<TColor>((x * 7 & 0xFF) | ((y * 5 & 0xFF) << 8) | (((x + y) & 0xFF) << 16)));
    return b;
}

// 40..50 N, 10..20 E over 1000 x 800 pixels, equirect, no margin: pixel (x, y) is (50 - y/80, 10 + x/100).
void MakeCalibratedMap(TGeoMap& M)
{
    M.CreateEmptyMapInMemory(40, 10, 50, 20, 1, 1, 1000, 800, false);
}

TEST(GeoMap, Defaults)
{
    TGeoMap m;
    EXPECT_EQ(std::tuple(m.width(), m.height(), m.Magnification(), m.CacheMagLimit(), m.ColorBackGnd()),
              std::tuple(500, 400, 1.0, 2.0 / 3.0, 0xC0C0C0u));
    EXPECT_EQ(std::tuple(m.FrameStyle(), m.EmptyMsg(), m.MouseAction(), m.ConfinePanToMapImage(), m.AntiAlias()),
              std::tuple(fsLowered, std::string("GeoMap: empty"), maPan, true, true));
    EXPECT_EQ(std::tuple(m.RandSampleLimit(), m.CalibModel(), m.MaxMapPixels()), std::tuple(20000, cmUndefined, 3000000));
    // One entry pushed by the constructor.
    EXPECT_EQ(m.ZStackPoi(), 2);
    EXPECT_EQ(m.GetZoomStackEntry(0), (TgmZoomStackEntry{0, 0, 1.0}));
}

TEST(GeoMap, SizeLimitAndUnknownTypes)
{
    TempDir t;
    SaveBMP(TBitmap(2000, 1500), t / "ok.bmp");
    SavePNG(Pattern(10, 10), t / "other.png");
    TGeoMap m;
    static_cast<TCustomControl&>(m).SetName("Map1");  // the parts are renamed through the base too
    try {
        m.LandMarkStore().SaveLandmarks(t / "no/x.xml", "s");
        ADD_FAILURE() << "no error for a missing folder";
    } catch (const EXELGeoMapError& e) {
        EXPECT_EQ(e.what(), "Component \"Map1\": cannot write file \"" + t / "no/x.xml" + "\"");
    }
    m.SetMapImgName(t / "ok.bmp");
    EXPECT_EQ(m.MapWidth(), 2000);
    m.SetTopLeft({30, 40});
    // An image type the map cannot load: the name is taken, the picture kept, the view reset.
    m.SetMapImgName(t / "other.png");
    EXPECT_EQ(m.MapImgName(), t / "other.png");
    EXPECT_EQ(m.MapWidth(), 2000);
    EXPECT_EQ(m.TopLeft(), (TPoint{0, 0}));
    // The request event picks the file, the map keeps the name it was given; a missing file empties it.
    m.OnMapImageRequest = [&](TGeoMap&, std::string& Name) { Name = t / "ok.bmp"; };
    m.SetMapImgName("elsewhere.bmp");
    EXPECT_EQ(m.MapImgName(), "elsewhere.bmp");
    m.OnMapImageRequest = nullptr;
    m.SetMapImgName(t / "missing.jpg");
    EXPECT_EQ(m.MapImgName(), "");
    EXPECT_EQ(m.MapWidth() + m.MapHeight(), 0);
}

TEST(GeoMap, ZoomHistoryRing)
{
    TGeoMap fresh;
    fresh.ClearZoomHistory();
    fresh.SetTopLeft({5, 6});
    fresh.ZoomHistory(-3);  // an all-zero slot
    EXPECT_EQ(fresh.TopLeft(), (TPoint{5, 6}));

    TGeoMap m;
    for (int i = 1; i <= 17; ++i) {  // the constructor's push makes 18 in all
        m.SetTopLeft({i, 100 + i});
        m.ZoomStateOnStack();
    }
    EXPECT_EQ(m.GetZoomStackEntry(0).Left, 17);
    EXPECT_EQ(m.GetZoomStackEntry(-15).Left, 2);
    EXPECT_EQ(m.GetZoomStackEntry(-16), TgmZoomStackEntry{});
    EXPECT_EQ(m.GetZoomStackEntry(1), TgmZoomStackEntry{});
    const std::int32_t poi = m.ZStackPoi();
    m.ZoomHistory(-2);
    EXPECT_EQ(m.TopLeft(), (TPoint{15, 115}));
    EXPECT_EQ(m.ZStackPoi(), poi);  // going back is not a pop
    m.ZoomHistory(1);
    EXPECT_EQ(m.TopLeft(), (TPoint{15, 115}));
}

TEST(GeoMap, PanningAndCentring)
{
    TGeoMap m;  // 500 x 400
    const struct { int w, h; double mag; TPoint from, to; } pans[] = {
        {300, 200, 1.0, {50, 50}, {0, 0}},         // map smaller than the control
        {1000, 800, 1.0, {900, 700}, {500, 400}},
        {1000, 800, 2.0, {900, 700}, {750, 600}},
        {1000, 800, 1.0, {-20, 10}, {0, 10}},
        {1000, 800, 0.8, {400, 300}, {375, 300}},  // 1000 - 500/0.8 = 375
    };
    for (const auto& p : pans) {
        m.SetMapBitMap(TBitmap(p.w, p.h));
        m.SetMagnification(p.mag);
        m.SetTopLeft(p.from);
        m.PanMapToFillWindow();
        EXPECT_EQ(m.TopLeft(), p.to) << p.w << " at " << p.mag;
    }
    MakeCalibratedMap(m);
    m.SetMagnification(1.0);
    const struct {
        double lat, lon;
        TPoint tl;
    } centres[] = {{45, 15, {250, 200}}, {49.9, 10.1, {0, 0}}, {40.1, 19.9, {500, 400}}};
    for (const auto& c : centres) {
        m.BringLocationToCenter(c.lat, c.lon);
        EXPECT_EQ(m.TopLeft(), c.tl) << c.lat << ", " << c.lon;
    }
    m.BringMapPixelToCenter({990, 10});
    EXPECT_EQ(m.TopLeft(), (TPoint{500, 0}));
    m.ZoomFitPage();
    EXPECT_DOUBLE_EQ(m.Magnification(), 0.5);  // min(500/1000, 400/800)
}

TEST(GeoMap, PixelConversionsTieToEven)
{
    TGeoMap m;
    m.SetTopLeft({10, 20});
    const struct { double mag; TPoint in, toMap, toControl; } cases[] = {
        {2.0, {5, 7}, {12, 24}, {-10, -26}},      // 2.5 -> 2, 3.5 -> 4; (5-10)*2, (7-20)*2
        {0.5, {3, 5}, {16, 30}, {-4, -8}},        // 6, 10; (3-10)/2 = -3.5 -> -4, (5-20)/2 = -7.5 -> -8
        {0.5, {13, 23}, {36, 66}, {2, 2}},        // 1.5 -> 2, 1.5 -> 2
        {4.0, {-2, 6}, {10, 22}, {-48, -56}},     // -0.5 -> -0, 1.5 -> 2
    };
    for (const auto& c : cases) {
        m.SetMagnification(c.mag);
        EXPECT_EQ(m.ControlToMapImage(c.in), c.toMap) << c.mag;
        EXPECT_EQ(m.MapImageToControl(c.in), c.toControl) << c.mag;
    }
}

TEST(GeoMap, SetterRules)
{
    TGeoMap m;
    const struct {
        double in, grat, cacheLimit;
    } clamps[] = {{-1, 0, 0}, {0.4, 0.4, 0.4}, {61, 60, 2.0 / 3.0}, {1, 1, 2.0 / 3.0}};
    for (const auto& c : clamps) {
        m.SetGratLineDist(c.in);
        m.SetCacheMagLimit(c.in);
        EXPECT_EQ(m.GratLineDist(), c.grat) << c.in;
        EXPECT_EQ(m.CacheMagLimit(), c.cacheLimit) << c.in;
    }
    for (auto [in, out] : {std::pair{-5, 0}, {20000000, 10000000}, {1000, 1000}}) {
        m.SetUTMGridDist(in);
        EXPECT_EQ(m.UTMGridDist(), out);
    }
    m.SetUTMZone(33);
    m.SetUTMZone(61);
    m.SetUTMZone(0);
    EXPECT_EQ(m.UTMZone(), 33);
    m.SetRandSampleLimit(1000);
    EXPECT_EQ(m.RandSampleLimit(), 20000);
    m.SetRandSampleLimit(1001);
    EXPECT_EQ(m.RandSampleLimit(), 1001);
    m.SetMouseAction(maZoomWindow);
    EXPECT_FALSE(m.AllowPan());
    m.SetAllowPan(true);
    EXPECT_EQ(m.MouseAction(), maPan);
    m.SetAllowPan(false);
    EXPECT_EQ(m.MouseAction(), maNone);
    // Painting held back: no frame is drawn until the hold ends, then exactly one.
    int frames = 0;
    m.OnDataRendered = [&](TGeoMap&, TCanvas&) { ++frames; };
    m.SetMapBitMap(TBitmap(100, 100));
    frames = 0;
    m.SetSuppressPaint(true);
    m.SetColorBackGnd(0x123456);
    m.SetAntiAlias(false);
    EXPECT_EQ(frames, 0);
    m.SetSuppressPaint(false);
    EXPECT_EQ(frames, 1);
}

TEST(GeoMap, AssignCopiesAllButEvents)
{
    TGeoMap a, b;
    int pans = 0;
    a.OnZoomPan = [&](TGeoMap&) { ++pans; };
    MakeCalibratedMap(a);
    a.SetMagnification(0.75);
    a.SetTopLeft({12, 34});
    a.ZoomStateOnStack();
    a.SetColorGraticule(0x00FF00);
    a.SetFrameStyle(fsFlat);
    a.SetGratLineDist(0.5);
    a.SetShowGraticule(sgLines);
    a.SetAntiAlias(false);
    a.AddLandMark(45, 15, 0);
    a.SetClassVisibility(3, false);
    a.SetHighLM(1);
    b.Assign(a);
    EXPECT_EQ(std::tuple(b.MapImgName(), b.MapWidth(), b.Magnification(), b.TopLeft(), b.ZStackPoi()),
              std::tuple(std::string("$unknown$"), 1000, 0.75, TPoint{12, 34}, a.ZStackPoi()));
    EXPECT_EQ(b.GrafBmp().Pixel(500, 400), a.GrafBmp().Pixel(500, 400));
    EXPECT_EQ(b.GetZoomStackEntry(0), a.GetZoomStackEntry(0));
    EXPECT_EQ(std::tuple(b.ColorGraticule(), b.FrameStyle(), b.GratLineDist(), b.ShowGraticule(), b.AntiAlias()),
              std::tuple(0x00FF00u, fsFlat, 0.5, sgLines, false));
    EXPECT_EQ(std::tuple(b.CalibModel(), b.NumLandMarks(), b.GetClassVisibility(3), b.HighLM()),
              std::tuple(cmEquiRect, 1, false, 1));
    EXPECT_EQ(b.CalibData(), a.CalibData());
    std::int32_t x = 0, y = 0;
    ASSERT_TRUE(b.CalcPixelCoords(45, 15, x, y));
    EXPECT_EQ((TPoint{x, y}), (TPoint{500, 400}));
    b.DoZoomPanEvent();
    EXPECT_EQ(pans, 0);
    EXPECT_FALSE(b.OnZoomPan);
}

TEST(GeoMap, SaveMapResizeAndEmptyMapFiles)
{
    TempDir t;
    TGeoMap m;
    MakeCalibratedMap(m);
    m.SaveMap(t / "saved.bmp", "first");
    EXPECT_EQ(m.MapImgName(), "saved.jpg");
    ASSERT_TRUE(fs::exists(t / "saved.xml") && fs::exists(t / "saved.jpg"));
    TGeoMap back;
    back.OnMapImageRequest = [&](TGeoMap&, std::string& Name) { Name = t / Name; };
    back.LoadCalDataFromXML(t / "saved.xml", "FIRST");  // true only for a parabolic calibration
    EXPECT_EQ(back.MapImgName(), "saved.jpg");
    EXPECT_EQ(back.MapWidth(), 1000);
    EXPECT_EQ(back.CalibModel(), cmEquiRect);
    std::int32_t x = 0, y = 0;
    ASSERT_TRUE(back.CalcPixelCoords(45, 15, x, y));
    EXPECT_EQ((TPoint{x, y}), (TPoint{500, 400}));

    // Halving: the image, every quad pixel and the transforms follow.
    m.SetTopLeft({7, 7});
    m.ResizeMap(500);
    EXPECT_EQ(std::tuple(m.MapWidth(), m.MapHeight(), m.TopLeft()), std::tuple(500, 400, TPoint{0, 0}));
    // The top-right quad was at (1000, 0), the bottom-left one at row 800.
    EXPECT_EQ(std::tuple(m.CalibData().CalQuads[8].MapX, m.CalibData().CalQuads[8].MapY, m.CalibData().CalQuads[0].MapY),
              std::tuple(500, 0, 400));
    ASSERT_TRUE(m.CalcPixelCoords(45, 15, x, y));
    EXPECT_EQ((TPoint{x, y}), (TPoint{250, 200}));
    EXPECT_NEAR(m.CalibData().Corners[gcoBottomRight].Longit, 20, 1e-9);

    TGeoMap e;
    e.CreateAndLoadEmptyMap(t / "Blank.xml", 40, 10, 41, 11, 0.5, 0.5, 300, 200);
    EXPECT_EQ(e.MapWidth(), 300);
    EXPECT_EQ(e.CalibModel(), cmBiquadraticPn);
    ASSERT_TRUE(e.CalcPixelCoords(40, 10, x, y));
    EXPECT_EQ((TPoint{x, y}), (TPoint{30, 170}));  // the inner frame's corner
}

TEST(GeoMap, ClipboardBitmapAndPrinter)
{
    TGeoMap m;
    m.SetMapBitMap(Pattern(800, 600));
    m.SetTopLeft({20, 10});
    const int W = m.width(), H = m.height();
    m.CopyToClipboard();
    TBitmap clip;
    ASSERT_TRUE(PasteBitmapFromClipboard(clip));
    ASSERT_EQ(clip.Width(), W);
    for (TPoint p : {TPoint{1, 1}, TPoint{W - 2, 1}, TPoint{W - 2, H - 2}, TPoint{1, H - 2}, TPoint{3, H - 2}, TPoint{1, H / 2}})
        EXPECT_EQ(clip.Pixel(p.X, p.Y), 0x000000u) << p.X << ", " << p.Y;
    EXPECT_EQ(clip.Pixel(W - 1, H / 2), 0xFFFFFFu);  // outside the copied area
    EXPECT_EQ(clip.Pixel(W / 2, H / 2), m.AuxBmp().Pixel(W / 2, H / 2));
    EXPECT_EQ(clip.Pixel(W / 2, H / 2), m.GrafBmp().Pixel(20 + W / 2, 10 + H / 2));

    // Any region at any scale, the view untouched.
    TBitmap out;
    m.CopyToBMP(out, {100, 50}, 1.0, {200, 100});
    ASSERT_EQ(out.Width(), 200);
    for (TPoint p : {TPoint{10, 10}, TPoint{150, 80}})
        EXPECT_EQ(out.Pixel(p.X, p.Y), m.GrafBmp().Pixel(100 + p.X, 50 + p.Y));
    EXPECT_EQ(m.TopLeft(), (TPoint{20, 10}));
    EXPECT_EQ(m.AuxBmp().Pixel(W / 2, H / 2), clip.Pixel(W / 2, H / 2));

    TempDir t;
    QPrinter printer(QPrinter::HighResolution);
    printer.setOutputFormat(QPrinter::PdfFormat);
    printer.setOutputFileName(QString::fromStdString(t / "map.pdf"));
    const TRect r = m.CalcExtentsOfPrint(printer, 1.0);
    // An A4 page's printable width, about 8 inches at 96 pixels each, from TopLeft; all the rows below it.
    EXPECT_EQ((TPoint{r.Left, r.Top}), (TPoint{20, 10}));
    EXPECT_GT(r.Width(), 700);
    EXPECT_LT(r.Width(), 780);
    EXPECT_EQ(r.Bottom, 600);
    ASSERT_TRUE(m.PrintIt(printer, 1.0));
    std::ifstream pdf(t / "map.pdf", std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(pdf)), std::istreambuf_iterator<char>());
    EXPECT_EQ(bytes.substr(0, 5), "%PDF-");
    EXPECT_GT(bytes.size(), 50000u);  // the patterned image does not compress to nothing
    EXPECT_NE(bytes.find("/Width " + std::to_string(r.Width())), std::string::npos);
    EXPECT_NE(bytes.find("/Height " + std::to_string(r.Height())), std::string::npos);
}

TEST(GeoMap, HighDensityFrame)
{
    TGeoMap m;
    TBitmap checker(1000, 800);
    for (int y = 0; y < 800; ++y)
        for (int x = 0; x < 1000; ++x)
            checker.SetPixel(x, y, (x + y) % 2 ? 0x0000FF : 0x000000);  // mean 0x80 red, unlike the frame
    m.SetMapBitMap(checker);
    m.SetMagnification(0.5);
    m.SetTopLeft({10, 20});
    // Ratio 1: the widget shows AuxBmp, where the checkerboard averages to grey.
    EXPECT_EQ(&m.ScreenFrame(), &m.AuxBmp());
    const TColor grey = m.AuxBmp().Pixel(100, 100);
    EXPECT_NE(grey, 0x000000u);
    EXPECT_NE(grey, 0x0000FFu);
    // Ratio 2: one device pixel per map pixel, so every map pixel shows; the frame comes from AuxBmp.
    m.SetForcedPixelRatio(2.0);
    const TBitmap& f = m.ScreenFrame();
    ASSERT_EQ(TSize({f.Width(), f.Height()}), TSize({1000, 800}));
    for (TPoint p : {TPoint{100, 100}, TPoint{101, 100}, TPoint{555, 432}})
        EXPECT_EQ(f.Pixel(p.X, p.Y), checker.Pixel(10 + p.X, 20 + p.Y)) << p.X << ", " << p.Y;
    EXPECT_EQ(f.Pixel(0, 0), m.AuxBmp().Pixel(0, 0));
    EXPECT_EQ(f.Pixel(999, 799), m.AuxBmp().Pixel(499, 399));
    TGeoMap empty;  // no map at all: the whole frame comes from AuxBmp
    empty.SetForcedPixelRatio(2.0);
    EXPECT_EQ(empty.ScreenFrame().Pixel(1, 1), empty.AuxBmp().Pixel(0, 0));
    m.SetForcedPixelRatio(1.5);
    EXPECT_EQ(TSize({m.ScreenFrame().Width(), m.ScreenFrame().Height()}), TSize({750, 600}));
}

TEST(GeoMap, KeyboardNavigation)
{
    TGeoMap m;
    m.SetMapBitMap(TBitmap(2000, 1500));
    m.SetTopLeft({400, 400});
    int events = 0;
    m.OnZoomPan = [&](TGeoMap&) { ++events; };
    const struct { Qt::Key key; TPoint tl; double mag; } steps[] = {
        {Qt::Key_Right, {462, 400}, 1.0},  // 500/8 = 62.5 -> 62
        {Qt::Key_Up, {462, 350}, 1.0},
        {Qt::Key_Plus, {512, 390}, 1.25},  // the centre (712, 550) stays
        {Qt::Key_Minus, {462, 350}, 1.0},
        {Qt::Key_Home, {0, 0}, 0.25},
    };
    for (const auto& s : steps) {
        QTest::keyClick(&m, s.key);
        EXPECT_EQ(m.TopLeft(), s.tl) << s.key;
        EXPECT_DOUBLE_EQ(m.Magnification(), s.mag) << s.key;
    }
    EXPECT_EQ(events, 5);
    m.SetKeyboardNavigation(false);
    QTest::keyClick(&m, Qt::Key_Right);
    EXPECT_EQ(m.TopLeft(), (TPoint{0, 0}));
}

// A load cancelled from OnDataLoading stops part way and leaves the map as it was; the next load starts
// afresh.
TEST(GeoMap, CancelledJpegLoadKeepsThePreviousImage)
{
    TempDir t;
    SaveJPEG(TBitmap(1200, 2400), t / "tall.jpg", 80);
    TGeoMap m;
    m.SetMapBitMap(TBitmap(30, 20));
    int cancelAt = 40, running = 0, ending = -1;
    m.OnDataLoading = [&](TGeoMap& Map, TProgressStage Stage, std::int32_t P) {
        running += Stage == pgRunning;
        if (Stage == pgEnding)
            ending = P;
        if (Stage == pgRunning && P >= cancelAt)
            Map.CancelLoading();
    };
    m.SetMapImgName(t / "tall.jpg");
    EXPECT_GE(ending, 40);
    EXPECT_LT(ending, 100);
    EXPECT_EQ(m.MapImgName(), "$unknown$");
    EXPECT_EQ(m.MapWidth(), 30);
    EXPECT_EQ(m.GrafBmp().Height(), 20);
    cancelAt = 101;
    const int before = running;
    m.SetMapImgName(t / "tall.jpg");
    EXPECT_EQ(ending, 100);
    EXPECT_GT(running - before, 2);
    EXPECT_EQ(m.MapWidth(), 1200);
    EXPECT_EQ(m.MapHeight(), 2400);
}

// A 4-megapixel map zoomed where its cache would be large: no cache, and the view stretched from a pyramid
// level matches the view stretched from the full image. The picture ramps by 4 units of colour per map
// pixel, so the tolerance is the half control pixel the level's rectangle may be misplaced by, plus the
// rounding of repeated averaging.
TEST(GeoMap, LargeMapZoomStretchesFromThePyramid)
{
    auto ramp = [](int V) { return static_cast<TColor>(V % 128 < 64 ? V % 64 * 4 : 255 - V % 64 * 4); };
    TBitmap picture(4000, 1000);
    for (int y = 0; y < 1000; ++y)
        for (int x = 0; x < 4000; ++x)
            picture.SetPixel(x, y, ramp(x) | ramp(y + 17) << 8 | 0x800000);
    TGeoMap m;
    m.resize(300, 200);
    EXPECT_THROW(m.SetMapBitMap(picture), EXELGeoMapError);  // above the documented limit
    m.SetMaxMapPixels(200000000);
    m.SetMapBitMap(picture);
    // Four halvings, odd sizes rounded up; a halved pixel is the rounded mean of its 2 x 2 block.
    ASSERT_NE(m.PyramidLevel(3), nullptr);
    EXPECT_EQ(std::tuple(m.PyramidLevel(0)->Width(), m.PyramidLevel(3)->Width(), m.PyramidLevel(3)->Height()),
              std::tuple(2000, 250, 63));
    EXPECT_EQ(m.PyramidLevel(0)->Pixel(75, 10), (ramp(150) + 2) | (ramp(37) + 2) << 8 | 0x800000);
    for (auto [mag, tl] : {std::pair{0.25, TPoint{400, 100}}, {0.24, TPoint{401, 3}}, {0.3, TPoint{7, 5}},
                           {0.18, TPoint{333, -77}}, {0.6, TPoint{1003, 17}}}) {
        m.SetMagnification(mag);
        m.SetTopLeft(tl);
        TRenderCase s;
        s.View.SetControlSize({300, 200}), s.View.SetMagnify(mag), s.View.SetTopLeft(TMapPixel(tl)), s.Src.MapImgName = "reference";
        s.Src.GrafBmp = &m.GrafBmp();
        TBitmap ref;
        TMapImageCache cache;
        Render(s, ref, cache, nullptr);
        const int tol = 3 + static_cast<int>(4 * 0.5 / mag);
        int worst = 0;
        for (int y = 2; y < 198; ++y)
            for (int x = 2; x < 298; ++x)
                for (int shift : {0, 8, 16})
                    worst = std::max(worst, std::abs(static_cast<int>((m.AuxBmp().Pixel(x, y) >> shift & 0xFF) -
                                                                      (ref.Pixel(x, y) >> shift & 0xFF))));
        EXPECT_LE(worst, tol) << mag;
        EXPECT_EQ(m.ImageCache().CacheBuilds, 0u) << mag;
    }
    m.SetMapBitMap(TBitmap(2000, 1500));  // within the documented limit: no pyramid
    EXPECT_EQ(m.PyramidLevel(0), nullptr);
}

}  // namespace
