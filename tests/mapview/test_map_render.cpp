// The map view's frame, built without a widget: the cache rule counted, the empty-map picture, graticule
// and UTM grid pixels against the calibration's own transforms, landmark sampling and the strict
// on-control test, OnDrawLandmark's Handled, and the order of the drawing steps seen in the pixels.
#include <qvgeo/geomap/calib_fit.h>
#include <qvgeo/mapview/map_render.h>
#include "render_case.h"
#include <qvgeo/mapview/map_render_caches.h>
#include <qvgeo/support/math_services.h>

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

namespace {

using namespace qv;

constexpr TColor White = 0xFFFFFF, Silver = 0xC0C0C0, Blue = 0xFF0000, Red = 0x0000FF;

// A white W x H map, linear in latitude (LatTop at row 0, LatBottom at row H) and longitude (LonLeft at
// column 0, LonRight at column W), calibrated equirect from its four corner pixels. Under cmUTM the two
// ranges are northing and easting in metres of zone 32 north.
struct TTestMap {
    TBitmap Img;
    TCalibData Cal;
    TCalibFit Fit;
    TLandMarkStore Store;

    TTestMap(int W, int H, double LatTop, double LatBottom, double LonLeft, double LonRight,
             TCalibModel Model = cmEquiRect)
        : Img(W, H)
    {
        const int px[4][2] = {{0, 0}, {0, H}, {W, H}, {W, 0}};
        for (const auto& p : px) {
            Cal.CalQuads[static_cast<std::size_t>(Cal.NumCalQuads++)] = {
                LatTop + (LatBottom - LatTop) * p[1] / H, LonLeft + (LonRight - LonLeft) * p[0] / W, p[0], p[1]};
        }
        Cal.UTMZone = 32;
        Fit.SetModel(Model);
        Fit.SetProjection(Cal);
        Fit.FitEquiRect(Cal);
        for (int i = 0; i < 4; ++i)
            Fit.CalcPosition({px[i][0], px[i][1]}, Cal.Corners[static_cast<std::size_t>(i)]);
    }

    TRenderCase State(int W, int H, double Mag = 1.0, TPoint TopLeft = {})
    {
        TRenderCase s;
        s.View.SetControlSize({W, H}), s.View.SetMagnify(Mag), s.View.SetTopLeft(TMapPixel(TopLeft));
        s.Src.MapImgName = "map.bmp";
        s.Src.GrafBmp = &Img, s.Src.CalibData = &Cal, s.Src.Fit = &Fit, s.Src.LandMarks = &Store;
        return s;
    }

    TPoint Pixel(double Lat, double Lon) const
    {
        TPoint p;
        EXPECT_TRUE(Fit.CalcPixelCoords(Lat, Lon, p.X, p.Y));
        return p;
    }
};

TBitmap Paint(const TRenderCase& S, TMapRenderCaches* Caches = nullptr)
{
    TBitmap aux;
    TMapImageCache cache;
    Render(S, aux, cache, Caches);
    return aux;
}

int CountColour(const TBitmap& B, TColor C, int X0, int Y0, int X1, int Y1)
{
    int n = 0;
    for (int y = Y0; y < Y1; ++y)
        for (int x = X0; x < X1; ++x)
            n += B.Pixel(x, y) == C;
    return n;
}

// ---- the scaled-image cache ----

TEST(MapRender, CacheRuleCountsBuildsAndStretches)
{
    struct Case {
        double mag;
        std::vector<std::pair<TPoint, bool>> paints;  // top-left and AntiAlias of each paint
        std::uint64_t builds, stretches;
    };
    const std::vector<Case> cases = {
        {0.5, {{{0, 0}, true}, {{37, 21}, true}, {{74, 42}, true}}, 1, 0},
        {1.0, {{{0, 0}, true}, {{37, 21}, true}}, 0, 2},
        {0.5, {{{0, 0}, true}, {{37, 21}, false}, {{11, 3}, false}}, 2, 0},
        {0.7, {{{0, 0}, true}, {{37, 21}, true}}, 0, 2},  // above the limit of 2/3
        {2.0 / 3.0, {{{0, 0}, true}}, 0, 1},              // at it
    };
    for (const Case& c : cases) {
        TTestMap m(400, 300, 1, 0, 0, 1);
        for (int y = 0; y < 300; ++y)
            for (int x = 0; x < 400; ++x)
                m.Img.SetPixel(x, y, TColor((x * 7) & 0xFF) | TColor((y * 5) & 0xFF) << 8);
        TRenderCase s = m.State(120, 90);
        s.View.SetMagnify(c.mag);
        TBitmap aux;
        TMapImageCache cache;
        for (const auto& [tl, aa] : c.paints) {
            s.View.SetTopLeft(TMapPixel(tl));
            s.Look.AntiAlias = aa;
            Render(s, aux, cache, nullptr);
        }
        EXPECT_EQ(cache.CacheBuilds, c.builds) << c.mag;
        EXPECT_EQ(cache.DirectStretches, c.stretches) << c.mag;
        if (c.builds) {
            // The copy starts at the cache pixel Round(TopLeft * Magnify), half to even.
            const TPoint tl = c.paints.back().first;
            EXPECT_EQ(aux.Pixel(30, 20), cache.Image.Pixel(int(std::nearbyint(tl.X * c.mag)) + 30,
                                                             int(std::nearbyint(tl.Y * c.mag)) + 20));
        } else if (c.mag == 1.0) {
            EXPECT_EQ(aux.Pixel(30, 20), m.Img.Pixel(37 + 30, 21 + 20));
        }
    }
}

TEST(MapRender, StretchBeyondTheMapShowsBackground)
{
    TTestMap m(100, 80, 1, 0, 0, 1);
    const TBitmap aux = Paint(m.State(200, 160, 1.5, {40, 30}));  // the map ends at control x = 90, y = 75
    EXPECT_EQ(std::vector<TColor>({aux.Pixel(88, 50), aux.Pixel(91, 50), aux.Pixel(50, 73), aux.Pixel(50, 76)}),
              std::vector<TColor>({White, Silver, White, Silver}));
}

// Large maps (above 3 000 000 pixels) skip a cache of more than twice the view's pixels and stretch from
// the pyramid level with a pixel per control pixel. Each level is a solid colour here, so the view's
// centre tells which image a paint came from; white is GrafBmp.
TEST(MapRender, LargeMapsSkipBigCachesAndStretchFromTheirPyramid)
{
    constexpr TColor LevelColour[4] = {0x000011, 0x002200, 0x330000, 0x444444};
    struct Case {
        int mapW, mapH, W, H;
        double mag, cacheLimit;
        bool levels;
        std::uint64_t builds, stretches;
        int level;  // 0: GrafBmp
    };
    const Case cases[] = {
        {4000, 1000, 200, 100, 0.1, 2.0 / 3.0, true, 1, 0, 3},   // cache 400 x 100, twice the view: built
        {4000, 1000, 200, 100, 0.11, 2.0 / 3.0, true, 0, 1, 3},  // 440 x 110: stretched from 500 x 125
        {4000, 1000, 200, 100, 0.25, 2.0 / 3.0, true, 0, 1, 2},  // 1000 map pixels across fit level 2
        {4000, 1000, 200, 100, 0.2501, 2.0 / 3.0, true, 0, 1, 1},
        {4000, 1000, 200, 100, 0.6, 2.0 / 3.0, true, 0, 1, 0},
        {4000, 1000, 1000, 400, 0.3, 0.05, true, 0, 1, 1},       // small cache, above CacheMagLimit
        {2000, 1500, 200, 100, 0.5, 2.0 / 3.0, false, 1, 0, 0},  // 3 000 000 pixels: the documented rule
        {2001, 1500, 200, 100, 0.5, 2.0 / 3.0, true, 0, 1, 1},   // one column more: large
    };
    for (const Case& c : cases) {
        TBitmap map(c.mapW, c.mapH);
        std::vector<TBitmap> levels;
        TRenderCase s;
        s.View.SetControlSize({c.W, c.H}), s.View.SetMagnify(c.mag), s.Look.CacheMagLimit = c.cacheLimit;
        s.Src.MapImgName = "big.jpg";
        s.Src.GrafBmp = &map;
        for (int k = 1; c.levels && k <= 4; ++k) {
            levels.emplace_back((c.mapW + (1 << k) - 1) >> k, (c.mapH + (1 << k) - 1) >> k);
            levels.back().Fill(LevelColour[k - 1]);
        }
        for (std::size_t i = 0; i < levels.size(); ++i)
            s.Src.PyramidLevels[i] = &levels[i];
        TBitmap aux;
        TMapImageCache cache;
        Render(s, aux, cache, nullptr);
        EXPECT_EQ(cache.CacheBuilds, c.builds) << c.mapW << " " << c.mag;
        EXPECT_EQ(cache.DirectStretches, c.stretches) << c.mapW << " " << c.mag;
        EXPECT_EQ(aux.Pixel(c.W / 2, c.H / 2), c.level ? LevelColour[c.level - 1] : White) << c.mapW << " " << c.mag;
    }
}

// ---- empty map, invisible control, frame ----

TEST(MapRender, EmptyMapMessageAndFrame)
{
    struct Case { bool designing; const char* name; bool visible, message; };
    for (const Case& c : {Case{false, "", true, true}, Case{true, "map.bmp", true, true},
                          Case{false, "map.bmp", false, false}}) {
        TTestMap m(50, 50, 1, 0, 0, 1);
        TRenderCase s = m.State(200, 100);
        s.Src.Designing = c.designing, s.Src.MapImgName = c.name, s.Src.Visible = c.visible, s.Look.ColorFrame = Red;
        TBitmap aux(200, 100);
        aux.Fill(0x123456);
        TMapImageCache cache;
        Render(s, aux, cache, nullptr);
        // The lowered frame: grey and black rings at the top left, white and silver at the bottom right.
        EXPECT_EQ(std::vector<TColor>({aux.Pixel(0, 0), aux.Pixel(1, 1), aux.Pixel(199, 99), aux.Pixel(198, 98)}),
                  std::vector<TColor>({0x808080, 0x000000, White, Silver}));
        // The message's pixels are those of the text written at (10, 10); an invisible control only gets
        // its frame.
        TBitmap ref(200, 100);
        ref.Fill(Silver);
        ref.Canvas().Font.Color = Red;
        ref.Canvas().TextOut(10, 10, s.Look.EmptyMsg);
        auto reds = [](const TBitmap& B) {
            std::vector<int> v;
            for (int i = 2 * 200; i < 98 * 200; ++i)
                if (B.Pixel(i % 200, i / 200) == Red && i % 200 >= 2 && i % 200 < 198)
                    v.push_back(i);
            return v;
        };
        EXPECT_GT(reds(ref).size(), 20u);
        EXPECT_EQ(reds(aux) == reds(ref), c.message);
        EXPECT_EQ(aux.Pixel(150, 80), c.message ? Silver : 0x123456u);
    }
}

// ---- graticule and grid against the calibration's transforms ----

TEST(MapRender, AutomaticMeridiansEveryTenthOfADegree)
{
    // 0.3° of longitude (9.95..10.25) and of latitude (50.32..50.02): lines every 0.1°.
    TTestMap m(300, 300, 50.32, 50.02, 9.95, 10.25);
    TRenderCase s = m.State(300, 300);
    s.Look.ShowGraticule = sgLines;
    TBitmap aux = Paint(s);
    const int row = m.Pixel(50.17, 10).Y;  // between parallels
    EXPECT_EQ(CountColour(aux, Blue, 2, row, 298, row + 1), 3);
    for (double lon : {10.0, 10.1, 10.2}) {
        for (double lat : {50.05, 50.15, 50.28}) {
            const TPoint p = m.Pixel(lat, lon);
            EXPECT_EQ(aux.Pixel(p.X, p.Y), Blue) << lat << " " << lon;
            EXPECT_EQ(aux.Pixel(p.X + 5, p.Y), White) << lat << " " << lon;
        }
    }
    const int col = m.Pixel(50.15, 10.05).X;
    EXPECT_EQ(CountColour(aux, Blue, col, 2, col + 1, 298), 3);  // parallels 50.1, 50.2, 50.3
    // A fixed distance of 0.05° adds 10.05 and 10.15 (9.95 lies under the frame, 10.25 beyond the edge).
    s.Look.GratLineDist = 0.05;
    aux = Paint(s);
    EXPECT_EQ(CountColour(aux, Blue, 2, row, 298, row + 1), 5);
}

TEST(MapRender, ParabolicGraticuleFollowsItsCalibrationLines)
{
    TTestMap m(300, 200, 1, 0, 0, 1);
    m.Fit.SetModel(cmParabolicIp);
    m.Cal.NumCalLines = 2;
    m.Cal.CalLines[0] = {gtlParallel, 45.0, 3, {TPoint{10, 40}, TPoint{150, 60}, TPoint{290, 40}}};
    m.Cal.CalLines[1] = {gtlMeridian, 7.0, 3, {TPoint{100, 0}, TPoint{100, 90}, TPoint{100, 190}}};
    m.Fit.FitGratMat(m.Cal);  // the lines' parabolas come with the fit
    TRenderCase s = m.State(300, 200);
    s.Look.ShowGraticule = sgPointsAndLines;
    const TBitmap aux = Paint(s);
    // y = 40 + (x - 10)(290 - x)/980 through the three points: a parabola sagging to row 60 at x = 150.
    for (int x : {20, 80, 220, 280}) {
        const int y = int(std::nearbyint(40 + (x - 10.0) * (290.0 - x) / 980.0));
        EXPECT_EQ(aux.Pixel(x, y), Blue) << x;
        EXPECT_EQ(aux.Pixel(x, y + 3), White) << x;
    }
    EXPECT_EQ(aux.Pixel(100, 150), Blue);
    EXPECT_EQ(aux.Pixel(150, 57), Red);  // the plus marking the point (150, 60), 3 pixels above its centre
    EXPECT_EQ(aux.Pixel(153, 60), Red);
}

TEST(MapRender, UTMGridOnTheCalibrationsLines)
{
    // 400 x 300 pixels of 10 m: eastings 500000..504000, northings 5400000..5397000.
    struct Case {
        std::int32_t dist;
        int lines;  // easting lines inside the map, ends excluded
        double mag;
        TPoint topLeft;
    };
    // Automatic: Round125(4000 m / 10) = 500 m.
    for (const Case& c : {Case{1000, 3, 1.0, {0, 0}}, Case{0, 7, 0.8, {-20, 10}}}) {
        TTestMap m(400, 300, 5400000, 5397000, 500000, 504000, cmUTM);
        TRenderCase s = m.State(500, 400, c.mag, c.topLeft);
        s.Look.ShowGraticule = sgUTMGrid;
        s.Look.UTMGridDist = c.dist;
        const TBitmap aux = Paint(s);
        auto ctl = [&](int x, int y) {
            return TPoint{int(std::nearbyint((x - c.topLeft.X) * c.mag)), int(std::nearbyint((y - c.topLeft.Y) * c.mag))};
        };
        const int spacing = c.dist ? 1000 : 500;
        const int row = ctl(0, 157).Y;
        EXPECT_EQ(CountColour(aux, Blue, ctl(0, 0).X + 2, row, ctl(400, 0).X - 2, row + 1), c.lines);
        for (int e = 500000 + spacing; e < 504000; e += spacing) {
            for (int y : {20, 157, 290}) {
                const TPoint p = ctl(m.Fit.CalcUTMxFromEastingY(e, y), y);
                EXPECT_EQ(aux.Pixel(p.X, p.Y), Blue) << e;
                EXPECT_EQ(aux.Pixel(p.X + 2, p.Y), White) << e;
            }
            const TPoint below = ctl(m.Fit.CalcUTMxFromEastingY(e, 350), 350);
            EXPECT_EQ(aux.Pixel(below.X, below.Y), Silver);  // clipped to the map
        }
        EXPECT_EQ(m.Fit.CalcUTMyFromNorthingX(5399000, 250), 100);
        const TPoint p = ctl(251, 100);
        EXPECT_EQ(aux.Pixel(p.X, p.Y), Blue);
        EXPECT_EQ(aux.Pixel(p.X, p.Y + 2), White);
        EXPECT_EQ(aux.Pixel(ctl(450, 100).X, p.Y), Silver);
    }
}

// ---- landmarks ----

// n landmarks spread over the middle of a 1° map, every one on the control.
void AddSpread(TLandMarkStore& Store, int N, double LatOffset = 0)
{
    for (int i = 0; i < N; ++i)
        Store.AddLandMark(0.1 + 0.8 * ((i * 7919) % N) / N + LatOffset, 0.1 + 0.8 * (i % 173) / 173.0, 0);
}

TEST(MapRender, RandomSampleAboveTheLimit)
{
    struct Case {
        int onMap, offMap, hiddenClass;  // in view, 5° away from it, of a hidden class among those in view
        int minCalls, maxCalls;
    };
    // 30000 at the limit 20000: p = 2/3, 20000 ± 300 (3.7 standard deviations of 82).
    for (const Case& c : {Case{30000, 0, 0, 19700, 20300}, Case{20000, 0, 0, 20000, 20000},
                          Case{10000, 20000, 0, 30000, 30000}, Case{30000, 0, 12000, 18000, 18000}}) {
        TTestMap m(400, 400, 1, 0, 0, 1);
        AddSpread(m.Store, c.onMap);
        AddSpread(m.Store, c.offMap, 5);
        for (int i = 1; i <= c.hiddenClass; ++i) {
            TLandMark lm = m.Store.GetLandMarkData(i);
            lm.ClassFlag = 3;
            m.Store.SetLandMarkData(i, lm);
        }
        m.Store.SetClassVisibility(3, c.hiddenClass == 0);
        TRenderCase s = m.State(400, 400);
        int calls = 0;
        s.Events.OnDrawLandmark = [&](bool&, TCanvas&, TPoint, const TLandMark&) { ++calls; };
        Paint(s);
        EXPECT_TRUE(calls >= c.minCalls && calls <= c.maxCalls) << calls << " of " << c.onMap << "+" << c.offMap;
    }
}

TEST(MapRender, HandledAndTheStrictOnControlTest)
{
    // Plus symbols of half-size 5 at control columns 0, 1, 199, 200 and -40 on row 50, one handled.
    TTestMap m(200, 100, 1, 0, 0, 2);  // 100 pixels per degree
    TLandMark t = m.Store.DefaultLandMark();
    t.SymbolProps = {lmPlus, 5, Red, Red, true, 0, 0};
    m.Store.SetDefaultLandMark(t);
    const struct {
        int x;
        bool drawn;
    } cases[] = {{0, false}, {1, true}, {199, true}, {200, false}, {-40, false}, {120, false}};  // 120: handled
    for (const auto& c : cases)
        m.Store.AddLandMark(0.5, c.x / 100.0, 0);
    TRenderCase s = m.State(200, 100);
    s.Look.FrameStyle = fsNone;
    std::vector<TPoint> seen;
    s.Events.OnDrawLandmark = [&](bool& Handled, TCanvas& Canvas, TPoint P, const TLandMark&) {
        seen.push_back(P);
        if (P.X == 120) {
            Handled = true;
            Canvas.SetPixel(P.X, P.Y, Blue);
        }
    };
    auto caches = MakeMapRenderCaches();
    const TBitmap aux = Paint(s, caches.get());
    ASSERT_EQ(seen.size(), std::size(cases));  // off-control landmarks included
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        const int x = cases[i].x;
        EXPECT_EQ(seen[i].X, x);
        EXPECT_EQ(seen[i].Y, 50);
        // A pixel of the plus's vertical bar that no neighbour's horizontal bar reaches.
        if (x >= 0 && x < 200) {
            EXPECT_EQ(aux.Pixel(x, 47) == Red, cases[i].drawn) << x;
        }
    }
    EXPECT_EQ(aux.Pixel(120, 50), Blue);
    EXPECT_EQ(aux.Pixel(123, 50), White);
}

TEST(MapRender, CachedLandmarksDrawTheDirectPixels)
{
    // Every shape, caption direction, alignment and background, some cut by the control's edges; painted
    // without caches, then twice through the same caches (sprites made, then found by slot) after a pan.
    TTestMap m(300, 200, 1, 0, 0, 1.5);
    for (int i = 0; i < 60; ++i) {
        const int n = m.Store.AddLandMark(0.02 + 0.016 * i, 0.03 + (i * 37 % 60) / 40.0, 0, "Ort " + std::to_string(i % 7), 8, 0x000000);
        TLandMark lm = m.Store.GetLandMarkData(n);
        lm.SymbolProps.Kind = TLandMarkElement(i % 9);
        lm.Caption.Direction = i % 5 ? i * 90 : i * 35, lm.Caption.Transparent = i % 2, lm.Caption.BGColor = 0xCCFFFF;
        lm.Caption.HAlignment = THorzAlignment(i % 3), lm.Caption.VAlignment = TVerticalAlignment(i / 3 % 3);
        m.Store.SetLandMarkData(n, lm);
    }
    auto caches = MakeMapRenderCaches();
    for (TPoint tl : {TPoint{0, 0}, TPoint{37, 11}}) {
        const TRenderCase s = m.State(260, 180, 1.0, tl);
        const TBitmap direct = Paint(s);
        Paint(s, caches.get());
        EXPECT_TRUE(Paint(s, caches.get()).Image() == direct.Image()) << tl.X;
    }
    EXPECT_EQ(caches->Captions.Renders(), caches->Captions.SpriteCount());  // each rendered once
}

TEST(MapRender, StepsDrawInOrder)
{
    // OnBeforeRenderData paints under the graticule; OnDataRendered paints over the landmarks and under
    // the highlight and the frame.
    TTestMap m(200, 200, 1, 0, 0, 1);
    m.Store.AddLandMark(0.5, 0.25, 0);
    m.Store.AddLandMark(0.5, 0.75, 0);
    m.Store.SetHighLM(2);
    TRenderCase s = m.State(200, 200);
    s.Look.ShowGraticule = sgLines;
    s.Look.GratLineDist = 0.5;
    std::string order;
    s.Events.OnBeforeRenderData = [&](TCanvas& C) {
        order += "B";
        C.Brush = {0x00FF00, bsSolid};
        C.FillRect({0, 0, 200, 200});
    };
    s.Events.OnDrawLandmark = [&](bool&, TCanvas&, TPoint, const TLandMark&) { order += "L"; };
    s.Events.OnDataRendered = [&](TCanvas& C) {
        order += "D";
        C.Brush = {0x00FFFF, bsSolid};
        C.FillRect({0, 0, 200, 60});      // over the frame's top
        C.FillRect({140, 90, 160, 110});  // over landmark 2, which is highlighted
        C.FillRect({40, 90, 60, 110});    // over landmark 1
    };
    const TBitmap aux = Paint(s);
    EXPECT_EQ(order, "BLLD");
    EXPECT_EQ(aux.Pixel(100, 150), Blue);      // the 0.5° meridian over the application's fill
    EXPECT_EQ(aux.Pixel(80, 150), 0x00FF00u);  // the application's fill under it
    EXPECT_EQ(aux.Pixel(50, 100), 0x00FFFFu);  // landmark 1 painted over
    EXPECT_EQ(aux.Pixel(150, 100), Blue);      // landmark 2 drawn again in the highlight colours
    EXPECT_EQ(aux.Pixel(100, 0), 0x808080u);   // the frame last
}

}  // namespace
