// Label placement: no two captions overlap and none covers another landmark's symbol, over random sets
// and views; the same placement wherever the view is panned; priorities; class ranges at their bounds;
// halo pixels; the labelled drawing against the plain one; the map's scale.
#include <qvgeo/mapview/empty_map.h>
#include <qvgeo/mapview/landmark_symbols.h>
#include <qvgeo/mapview/map_labels.h>
#include <qvgeo/mapview/map_model.h>
#include <qvgeo/mapview/map_render_caches.h>
#include <qvgeo/platform/text_metrics.h>

#include "render_case.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <tuple>
#include <vector>

namespace {

using namespace qv;

constexpr int MapW = 1200, MapH = 900;

struct TLabelMap {
    TBitmap Img;
    TCalibData Cal;
    TCalibFit Fit;
    TLandMarkStore Store;

    TLabelMap()
    {
        TEmptyMapRequest r;
        r.LatMin = 46, r.LatMax = 49, r.LongMin = 9, r.LongMax = 17;
        r.Width = MapW, r.Height = MapH;
        GenerateEmptyMap(r, Img, Cal);
        Fit.SetModel(cmBiquadraticPn);
        Fit.SetProjection(Cal);
        Fit.FitModel(Cal, MapW, MapH);
    }
    void Add(double Lat, double Long, const std::string& Text, std::uint8_t Class = 0, std::int32_t Tag = 0,
             TLandMarkElement Kind = lmCross)
    {
        const std::int32_t n = Store.AddLandMark(Lat, Long, 0, Text, 8, 0x000000);
        TLandMark lm = Store.GetLandMarkData(n);
        lm.ClassFlag = Class, lm.Tag = Tag, lm.SymbolProps.Kind = Kind;
        lm.Caption.FontName = "DejaVu Sans";
        Store.SetLandMarkData(n, lm);
    }
    void AddRandom(std::mt19937& Rng, int N)
    {
        std::uniform_real_distribution<double> lat(46.2, 48.8), lon(9.2, 16.8);
        std::uniform_int_distribution<int> len(1, 14), cls(0, 3), kind(0, 8);
        for (int i = 0; i < N; ++i) {
            std::string t = "L" + std::to_string(i);
            t.resize(static_cast<std::size_t>(std::max<int>(static_cast<int>(t.size()), len(Rng))), 'x');
            Add(lat(Rng), lon(Rng), t, static_cast<std::uint8_t>(cls(Rng)), 0, static_cast<TLandMarkElement>(kind(Rng)));
            // A quarter of the captions anchored otherwise than below the point.
            if (Rng() % 4 == 0) {
                TLandMark lm = Store.GetLandMarkData(Store.NumLandMarks());
                lm.Caption.HAlignment = static_cast<THorzAlignment>(Rng() % 3);
                lm.Caption.VAlignment = static_cast<TVerticalAlignment>(Rng() % 3);
                lm.Caption.dx = static_cast<std::int32_t>(Rng() % 21) - 10;
                lm.Caption.dy = static_cast<std::int32_t>(Rng() % 21) - 10;
                Store.SetLandMarkData(Store.NumLandMarks(), lm);
            }
        }
    }
    TMapViewport View(double Mag, TPoint TopLeft, TSize Size = {800, 600}) const
    {
        TMapViewport v;
        v.SetControlSize(Size);
        v.SetMapSize({MapW, MapH});
        v.SetMagnify(Mag);
        v.SetTopLeft(TMapPixel(TopLeft));
        return v;
    }
    TRenderCase Case(const TMapViewport& V) const
    {
        TRenderCase c;
        c.View = V;
        c.Src.MapImgName = "labels.bmp";
        c.Src.GrafBmp = &Img;
        c.Src.CalibData = &Cal;
        c.Src.Fit = &Fit;
        c.Src.LandMarks = &Store;
        return c;
    }
};

bool Meet(const TRect& A, const TRect& B)
{
    return A.Left < B.Right && B.Left < A.Right && A.Top < B.Bottom && B.Top < A.Bottom;
}

TLabelOptions Placing(std::int32_t Halo = 0, double Scale = 1.0)
{
    TLabelOptions o;
    o.Placement = true;
    o.HaloWidth = Halo;
    o.Scale = Scale;
    return o;
}

TEST(MapLabels, RandomSetsNeverOverlap)
{
    std::mt19937 rng(20261124);
    std::uniform_real_distribution<double> mag(0.4, 3.0);
    int placedTotal = 0, droppedTotal = 0;
    for (int round = 0; round < 16; ++round) {
        TLabelMap m;
        m.AddRandom(rng, 40 + round * 25);
        const double g = mag(rng);
        const TMapViewport v = m.View(g, {static_cast<std::int32_t>(rng() % 600), static_cast<std::int32_t>(rng() % 500)});
        TLabelCache cache;
        const TLabelOptions o = Placing(round % 3, round % 4 == 3 ? 1.5 : 1.0);
        const auto shown = PlaceLandMarks(v, m.Store, m.Fit, o, cache);
        TTextMetrics metrics;
        for (std::size_t i = 0; i < shown.size(); ++i) {
            const TLandMark lm = m.Store.GetLandMarkData(shown[i].Index + 1);
            if (!shown[i].CaptionPlaced && !lm.Caption.Text.empty()) {
                ++droppedTotal;
                // Left out only when every place was taken: each candidate meets a placed caption or another
                // landmark's symbol. Placement keeps boxes a pixel apart where the view's rounding may move
                // them by one more, so a candidate counts as taken within two pixels (three at its anchor).
                const TPoint p = shown[i].Point;
                if (p.X < 150 || p.Y < 80 || p.X > 650 || p.Y > 520)
                    continue;
                const TLMTextProperties cap = ScaledCaption(lm.Caption, o.EffectiveScale());
                TFont f;
                f.Name = cap.FontName, f.Size = cap.Size, f.Style = cap.FontStyles;
                const auto boxes = CaptionCandidateBoxes(cap, metrics.Extent(f, cap.Text),
                                                         SymbolBox({0, 0}, ScaledSymbol(lm.SymbolProps, o.EffectiveScale())),
                                                         o.EffectiveHalo(), true);
                for (std::size_t k = 0; k < boxes.size(); ++k) {
                    const int grow = k == 0 ? 3 : 2;
                    const TRect b{p.X + boxes[k].Left - grow, p.Y + boxes[k].Top - grow, p.X + boxes[k].Right + grow,
                                  p.Y + boxes[k].Bottom + grow};
                    const bool taken = std::any_of(shown.begin(), shown.end(), [&](const TPlacedLandMark& q) {
                        const int g = q.Candidate == 0 ? 1 : 0;  // a caption at its anchor keeps its rounding pixel
                        const TRect c{q.CaptionBox.Left - g, q.CaptionBox.Top - g, q.CaptionBox.Right + g, q.CaptionBox.Bottom + g};
                        return (q.CaptionPlaced && Meet(b, c)) || (q.Index != shown[i].Index && Meet(b, q.SymbolBox));
                    });
                    EXPECT_TRUE(taken) << "round " << round << ": landmark " << shown[i].Index << " left out, candidate " << k << " free";
                }
                continue;
            }
            if (!shown[i].CaptionPlaced)
                continue;
            ++placedTotal;
            // Only the caption's own anchor may touch its symbol (it is where the caption always sat).
            if (shown[i].Candidate > 0) {
                EXPECT_FALSE(Meet(shown[i].CaptionBox, shown[i].SymbolBox))
                    << "round " << round << ": caption of " << shown[i].Index << " on its own symbol";
            }
            for (std::size_t j = 0; j < shown.size(); ++j) {
                if (i == j)
                    continue;
                EXPECT_FALSE(Meet(shown[i].CaptionBox, shown[j].SymbolBox))
                    << "round " << round << ": caption of " << shown[i].Index << " covers the symbol of " << shown[j].Index;
                if (shown[j].CaptionPlaced) {
                    EXPECT_FALSE(Meet(shown[i].CaptionBox, shown[j].CaptionBox))
                        << "round " << round << ": captions of " << shown[i].Index << " and " << shown[j].Index;
                }
            }
        }
    }
    // The sets are dense enough that both outcomes occur, so the check above is not empty.
    EXPECT_GT(placedTotal, 200);
    EXPECT_GT(droppedTotal, 50);
}

TEST(MapLabels, PlacementDoesNotDependOnThePan)
{
    std::mt19937 rng(7);
    for (const double mag : {0.5, 1.0, 1.7, 60.0}) {  // 60: the landmarks spread beyond one placement domain
        TLabelMap m;
        m.AddRandom(rng, 600);
        // At 60 a view spans a dozen map pixels: a cluster of landmarks there, and views on it.
        std::uniform_real_distribution<double> dLat(-0.012, 0.012), dLon(-0.03, 0.03);
        std::int32_t cx = 0, cy = 0;
        if (mag > 10) {
            for (int i = 0; i < 80; ++i)
                m.Add(47.5 + dLat(rng), 13 + dLon(rng), "C" + std::to_string(i * 37 % 1000));
            ASSERT_TRUE(m.Fit.CalcPixelCoords(47.5, 13, cx, cy));
        }
        const TPoint a{static_cast<std::int32_t>(rng() % 300), static_cast<std::int32_t>(rng() % 300)};
        const TPoint b{a.X + 1 + static_cast<std::int32_t>(rng() % 97), a.Y + static_cast<std::int32_t>(rng() % 53)};
        const TSize size{700, 500};
        const TMapViewport va = mag > 10 ? m.View(mag, {cx - 6, cy - 4}, size) : m.View(mag, a, size);
        const TMapViewport vb = mag > 10 ? m.View(mag, {cx - 5, cy - 4}, size) : m.View(mag, b, size);
        TLabelCache ca, cb;
        const auto pa = PlaceLandMarks(va, m.Store, m.Fit, Placing(1), ca);
        const auto pb = PlaceLandMarks(vb, m.Store, m.Fit, Placing(1), cb);
        int compared = 0;
        for (const auto& x : pa) {
            const TRect inner{120, 60, size.cx - 120, size.cy - 60};
            if (!(x.Point.X >= inner.Left && x.Point.X < inner.Right && x.Point.Y >= inner.Top && x.Point.Y < inner.Bottom))
                continue;
            const auto y = std::find_if(pb.begin(), pb.end(), [&](const TPlacedLandMark& P) { return P.Index == x.Index; });
            ASSERT_NE(y, pb.end());
            if (y->Point.X <= 120 || y->Point.Y <= 60 || y->Point.X >= size.cx - 120 || y->Point.Y >= size.cy - 60)
                continue;
            ++compared;
            ASSERT_EQ(x.CaptionPlaced, y->CaptionPlaced) << "mag " << mag << " landmark " << x.Index;
            EXPECT_EQ(x.Candidate, y->Candidate) << "mag " << mag << " landmark " << x.Index;
            if (!x.CaptionPlaced)
                continue;
            // Relative to the point: exact, or a pixel of the anchor's rounding with the point's parity.
            const int ddx = (x.CaptionOrigin.X - x.Point.X) - (y->CaptionOrigin.X - y->Point.X);
            const int ddy = (x.CaptionOrigin.Y - x.Point.Y) - (y->CaptionOrigin.Y - y->Point.Y);
            EXPECT_LE(std::abs(ddx), x.Candidate == 0 ? 1 : 0);
            EXPECT_LE(std::abs(ddy), x.Candidate == 0 ? 1 : 0);
        }
        EXPECT_GT(compared, 10) << "mag " << mag;
    }
    // A pan at one magnification looks the placement up instead of computing it again.
    TLabelMap m;
    m.AddRandom(rng, 200);
    TLabelCache c;
    PlaceLandMarks(m.View(0.8, {10, 10}), m.Store, m.Fit, Placing(), c);
    PlaceLandMarks(m.View(0.8, {90, 40}), m.Store, m.Fit, Placing(), c);
    EXPECT_EQ(c.Placements(), 1u);
    PlaceLandMarks(m.View(0.9, {90, 40}), m.Store, m.Fit, Placing(), c);
    EXPECT_EQ(c.Placements(), 2u);
    m.Add(47, 12, "new");  // a change of the store is seen
    PlaceLandMarks(m.View(0.9, {90, 40}), m.Store, m.Fit, Placing(), c);
    EXPECT_EQ(c.Placements(), 3u);
    m.Fit.SetModel(cmEquiRect);  // and a refit of the calibration in place
    m.Fit.FitModel(m.Cal, MapW, MapH);
    const auto after = PlaceLandMarks(m.View(0.9, {90, 40}), m.Store, m.Fit, Placing(), c);
    EXPECT_EQ(c.Placements(), 4u);
    TLabelCache fresh;
    const auto expect = PlaceLandMarks(m.View(0.9, {90, 40}), m.Store, m.Fit, Placing(), fresh);
    ASSERT_EQ(after.size(), expect.size());
    for (std::size_t i = 0; i < after.size(); ++i)
        EXPECT_EQ(after[i].Point, expect[i].Point);
}

// Captions whose width is not known yet are first tested by width-independent probes, measured only when
// some place may be free. With the widths known beforehand (measured at a magnification where every caption
// fits) the outcome is the same.
TEST(MapLabels, ProbesDecideAsMeasuredWidthsDo)
{
    std::mt19937 rng(99);
    for (int round = 0; round < 12; ++round) {
        TLabelMap m;
        m.AddRandom(rng, 300 + 150 * round);
        const TMapViewport v = m.View(0.6 + 0.2 * round, {static_cast<std::int32_t>(rng() % 400), static_cast<std::int32_t>(rng() % 300)});
        const TLabelOptions o = Placing(round % 3);
        TLabelCache fresh, measured;
        PlaceLandMarks(m.View(50, {0, 0}), m.Store, m.Fit, o, measured);
        const auto a = PlaceLandMarks(v, m.Store, m.Fit, o, fresh);
        const auto b = PlaceLandMarks(v, m.Store, m.Fit, o, measured);
        ASSERT_EQ(a.size(), b.size());
        for (std::size_t i = 0; i < a.size(); ++i)
            ASSERT_EQ(a[i].Candidate, b[i].Candidate) << "round " << round << " landmark " << a[i].Index;
    }
}

// Twelve landmarks on one point with captions of one width: fewer places than captions, so exactly the
// highest ranked take them.
TEST(MapLabels, HigherPriorityIsNeverDroppedForALowerOne)
{
    struct TRow {
        const char* What;
        std::vector<std::uint8_t> Class;
        std::vector<std::int32_t> Tag;
        bool TagIsPriority;
        std::vector<std::int32_t> ClassPriority;  // for classes 0..3
        std::vector<int> Rank;                    // landmark numbers from highest to lowest
    };
    const std::vector<TRow> rows = {
        {"store order", {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, {}, false, {}, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}},
        {"lower class first", {3, 2, 1, 0, 3, 2, 1, 0, 3, 2, 1, 0}, {}, false, {}, {3, 7, 11, 2, 6, 10, 1, 5, 9, 0, 4, 8}},
        {"class priority", {3, 2, 1, 0, 3, 2, 1, 0, 3, 2, 1, 0}, {}, false, {0, 0, 0, 5}, {0, 4, 8, 3, 7, 11, 2, 6, 10, 1, 5, 9}},
        {"tag within class", {0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 1}, {1, 9, 3, 7, 5, 2, 50, 0, 0, 0, 0, 0}, true, {},
         {1, 3, 4, 2, 5, 0, 6, 7, 8, 9, 10, 11}},
        {"tag ignored", {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, {1, 9, 3, 7, 5, 2, 50, 0, 0, 0, 0, 0}, false, {},
         {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}},
    };
    for (const TRow& r : rows) {
        TLabelMap m;
        for (int i = 0; i < 12; ++i)
            m.Add(47.5, 13, "N" + std::to_string(10 + i), r.Class[static_cast<std::size_t>(i)],
                  r.Tag.empty() ? 0 : r.Tag[static_cast<std::size_t>(i)]);
        TLabelOptions o = Placing();
        o.TagIsPriority = r.TagIsPriority;
        for (std::size_t k = 0; k < r.ClassPriority.size(); ++k)
            o.ClassPriority[k] = r.ClassPriority[k];
        TLabelCache c;
        const auto shown = PlaceLandMarks(m.View(1, {300, 300}), m.Store, m.Fit, o, c);
        ASSERT_EQ(shown.size(), 12u) << r.What;
        std::vector<bool> placed(12);
        int n = 0;
        for (const auto& p : shown)
            n += (placed[static_cast<std::size_t>(p.Index)] = p.CaptionPlaced) ? 1 : 0;
        ASSERT_GT(n, 2) << r.What;
        ASSERT_LT(n, 12) << r.What;
        for (int k = 0; k < 12; ++k)
            EXPECT_EQ(placed[static_cast<std::size_t>(r.Rank[static_cast<std::size_t>(k)])], k < n)
                << r.What << ": rank " << k << " (landmark " << r.Rank[static_cast<std::size_t>(k)] << "), " << n << " placed";
    }
}

TEST(MapLabels, ClassRangesAtTheirBounds)
{
    TLabelMap m;
    m.Add(47.5, 13, "ranged", 3);
    m.Add(47.0, 12, "always", 0);
    TLabelOptions o;
    o.ClassRange[3] = {0.5, 2.0};
    ASSERT_TRUE(o.Active());
    const struct {
        double Mag;
        bool Shows;
    } rows[] = {{0.5, true}, {std::nextafter(0.5, 0.0), false}, {1.0, true}, {std::nextafter(2.0, 0.0), true}, {2.0, false}, {3.0, false}};
    for (const auto& r : rows) {
        // A view centred on the ranged landmark's pixel.
        std::int32_t x = 0, y = 0;
        ASSERT_TRUE(m.Fit.CalcPixelCoords(47.5, 13, x, y));
        const TMapViewport v = m.View(r.Mag, {x - static_cast<std::int32_t>(200 / r.Mag), y - static_cast<std::int32_t>(150 / r.Mag)}, {400, 300});
        TLabelCache c;
        const auto shown = PlaceLandMarks(v, m.Store, m.Fit, o, c);
        const bool has = std::any_of(shown.begin(), shown.end(), [](const TPlacedLandMark& p) { return p.Index == 0; });
        EXPECT_EQ(has, r.Shows) << "mag " << r.Mag;
        // The drawing agrees: the symbol's centre pixel is the cross's colour only when the class shows.
        TRenderCase rc = m.Case(v);
        rc.Look.Labels = o;
        TBitmap aux;
        TMapImageCache ic;
        Render(rc, aux, ic, nullptr);
        const TPoint p = rc.View.MapImageToControl(TMapPixel(TPoint{x, y})).Point();
        EXPECT_EQ(aux.Pixel(p.X, p.Y) == 0xFF0000, r.Shows) << "mag " << r.Mag;
    }
}

// Text pixels of a caption drawn on Black, in Red, and which pixels differ from black.
TEST(MapLabels, HaloSurroundsEveryGlyphPixel)
{
    TLMTextProperties cap;
    cap.Text = "Wien 1010", cap.Size = 9, cap.FontName = "DejaVu Sans", cap.FGColor = 0x0000FF, cap.Transparent = true;
    TLabelCache cache;  // one cache for every width: sprites of different halos must not be mixed up
    for (const std::int32_t halo : {1, 2, 3}) {
        TBitmap plain(140, 50), direct(140, 50), sprite(140, 50);
        for (TBitmap* b : {&plain, &direct, &sprite})
            b->Fill(0x000000);
        DrawLandMarkCaption(plain.Canvas(), {20, 15}, cap);  // dx = dy = 0, left/top: origin (20, 15)
        DrawHaloCaption(direct.Canvas(), {20, 15}, cap, halo, 0xFFFFFF, nullptr);
        DrawHaloCaption(sprite.Canvas(), {20, 15}, cap, halo, 0xFFFFFF, &cache);
        DrawHaloCaption(sprite.Canvas(), {20, 15}, cap, halo, 0xFFFFFF, &cache);  // the second from the cache
        int text = 0, haloPixels = 0;
        for (int y = 0; y < 50; ++y)
            for (int x = 0; x < 140; ++x) {
                ASSERT_EQ(direct.Pixel(x, y), sprite.Pixel(x, y)) << "halo " << halo << " at " << x << "," << y;
                const bool isText = plain.Pixel(x, y) == 0x0000FF;
                if (isText) {
                    ++text;
                    EXPECT_EQ(direct.Pixel(x, y), 0x0000FFu) << "text pixel changed at " << x << "," << y;
                    continue;
                }
                // Distance to the nearest text pixel decides: within the halo's round pen white, else black.
                int best = 1 << 20;
                for (int j = -4; j <= 4; ++j)
                    for (int i = -4; i <= 4; ++i)
                        if (x + i >= 0 && x + i < 140 && y + j >= 0 && y + j < 50 && plain.Pixel(x + i, y + j) == 0x0000FF)
                            best = std::min(best, i * i + j * j);
                const bool inHalo = best <= halo * halo + halo;
                EXPECT_EQ(direct.Pixel(x, y), inHalo ? 0xFFFFFFu : 0x000000u) << "halo " << halo << " at " << x << "," << y;
                haloPixels += inHalo;
            }
        EXPECT_GT(text, 30);
        EXPECT_GT(haloPixels, text);
    }
    // Without a halo the caption is exactly the plain one.
    TBitmap a(140, 50), b(140, 50);
    a.Fill(0x336699), b.Fill(0x336699);
    DrawLandMarkCaption(a.Canvas(), {20, 15}, cap);
    DrawHaloCaption(b.Canvas(), {20, 15}, cap, 0, 0xFFFFFF, nullptr);
    EXPECT_TRUE(a.Image() == b.Image());
}

// With every option at a value that changes nothing visible (a class range holding every magnification
// used), the labelled drawing gives the plain drawing's pixels: same symbols, same caption places.
TEST(MapLabels, LabelledDrawingMatchesThePlainOneWhenNothingIsMoved)
{
    std::mt19937 rng(3);
    TLabelMap m;
    m.AddRandom(rng, 150);
    for (const bool caches : {false, true}) {
        TRenderCase plain = m.Case(m.View(1.3, {200, 150}));
        TRenderCase labelled = plain;
        labelled.Look.Labels.ClassRange[0] = {0.01, 100};
        ASSERT_TRUE(labelled.Look.Labels.Active());
        TBitmap a, b;
        TMapImageCache ca, cb;
        auto c1 = MakeMapRenderCaches(), c2 = MakeMapRenderCaches();
        Render(plain, a, ca, caches ? c1.get() : nullptr);
        Render(labelled, b, cb, caches ? c2.get() : nullptr);
        EXPECT_TRUE(a.Image() == b.Image()) << "caches " << caches;
    }
}

// A symbol box holds every pixel the symbol draws, halo included, for every shape.
TEST(MapLabels, SymbolBoxHoldsTheSymbol)
{
    for (int kind = 0; kind <= 10; ++kind)
        for (const int size : {0, 1, 4, 7, 12})
            for (const int direction : {0, 37, 90, 200, 315})
                for (const bool transparent : {false, true}) {
                    TSymbolProperties p;
                    p.Kind = static_cast<TLandMarkElement>(kind), p.Size = size, p.Direction = direction, p.Length = 15;
                    p.FGColor = 0x0000FF, p.BGColor = 0x00FF00, p.Transparent = transparent;
                    TBitmap b(120, 120);
                    b.Fill(0x000000);
                    DrawLandMarkSymbolOnCanvas(b.Canvas(), 60, 61, p.Kind, p.FGColor, p.BGColor, p.Size, p.Direction,
                                               p.Length, p.Transparent);
                    const TRect box = SymbolBox({60, 61}, p);
                    for (int y = 0; y < 120; ++y)
                        for (int x = 0; x < 120; ++x)
                            if (b.Pixel(x, y) != 0) {
                                ASSERT_TRUE(x >= box.Left && x < box.Right && y >= box.Top && y < box.Bottom)
                                    << "kind " << kind << " size " << size << " direction " << direction << " pixel "
                                    << x << "," << y;
                            }
                }
}

// With placement on, OnDrawLandmark is still asked for every landmark shown, and Handled still replaces
// the built-in drawing.
TEST(MapLabels, OnDrawLandmarkWithPlacement)
{
    TLabelMap m;
    m.Add(47.5, 13, "mine", 0, 1);
    m.Add(47.6, 13.5, "built in", 0, 2);
    TRenderCase rc = m.Case(m.View(1, {300, 200}));
    rc.Look.Labels = Placing(1);
    std::vector<std::int32_t> asked;
    rc.Events.OnDrawLandmark = [&](bool& Handled, TCanvas&, TPoint, const TLandMark& Lm) {
        asked.push_back(Lm.Tag);
        Handled = Lm.Tag == 1;
    };
    TBitmap aux;
    TMapImageCache ic;
    Render(rc, aux, ic, nullptr);
    EXPECT_EQ(asked, (std::vector<std::int32_t>{1, 2}));
    for (const auto& [lat, lon, drawn] : {std::tuple{47.5, 13.0, false}, std::tuple{47.6, 13.5, true}}) {
        std::int32_t x = 0, y = 0;
        ASSERT_TRUE(m.Fit.CalcPixelCoords(lat, lon, x, y));
        const TPoint p = rc.View.MapImageToControl(TMapPixel(TPoint{x, y})).Point();
        EXPECT_EQ(aux.Pixel(p.X, p.Y) == 0xFF0000, drawn) << lat;
    }
}

TEST(MapLabels, ScaleEnlargesSymbolsAndCaptions)
{
    TSymbolProperties s;
    s.Kind = lmCircle, s.Size = 7, s.Length = 10;
    EXPECT_EQ(ScaledSymbol(s, 2.0).Size, 14);
    EXPECT_EQ(ScaledSymbol(s, 1.5).Length, 15);
    EXPECT_EQ(ScaledSymbol(s, 1.0), s);
    TLMTextProperties c;
    c.Size = 8, c.dx = 3, c.dy = 8;
    const TLMTextProperties d = ScaledCaption(c, 1.5);
    EXPECT_EQ(d.Size, 12);
    EXPECT_EQ(d.dx, 5);  // 4.5 rounds away from zero
    EXPECT_EQ(d.dy, 12);
    // Drawn: a landmark at Scale 2 has the pixels of one with twice the size.
    TLabelMap m;
    m.Add(47.5, 13, "", 0, 0, lmSquare);
    TRenderCase big = m.Case(m.View(1, {400, 300}, {300, 200}));
    big.Look.Labels.Scale = 2;
    TBitmap a, b;
    TMapImageCache ca, cb;
    Render(big, a, ca, nullptr);
    TLandMark lm = m.Store.GetLandMarkData(1);
    lm.SymbolProps.Size *= 2;
    m.Store.SetLandMarkData(1, lm);
    Render(m.Case(big.View), b, cb, nullptr);
    EXPECT_TRUE(a.Image() == b.Image());
}

TEST(MapLabels, MapScaleAtTheViewCentre)
{
    TLabelMap m;
    // The map spans 3 degrees of latitude over its height and 8 of longitude over its width (within the
    // generated margin); at 47.5 degrees a degree of latitude is about 111.2 km and of longitude 75.3 km.
    std::int32_t x0, y0, x1, y1;
    ASSERT_TRUE(m.Fit.CalcPixelCoords(49, 9, x0, y0));
    ASSERT_TRUE(m.Fit.CalcPixelCoords(46, 17, x1, y1));
    const double perPixel = (3 * 111200.0 / (y1 - y0) + 8 * 75300.0 / (x1 - x0)) / 2;
    for (const double mag : {0.5, 1.0, 4.0}) {
        std::int32_t cx, cy;
        ASSERT_TRUE(m.Fit.CalcPixelCoords(47.5, 13, cx, cy));
        TMapViewport v = m.View(mag, {0, 0}, {400, 300});
        v.SetTopLeft(TMapPixel(TPoint{cx - static_cast<std::int32_t>(200 / mag), cy - static_cast<std::int32_t>(150 / mag)}));
        const double got = ViewMetresPerPixel(v, m.Fit);
        EXPECT_NEAR(got, perPixel / mag, perPixel / mag * 0.01) << "mag " << mag;
        EXPECT_NEAR(ScaleDenominator(got, 96), got * 96 / 0.0254, 1e-6 * got);
    }
    EXPECT_EQ(ViewMetresPerPixel(m.View(1, {0, 0}), TCalibFit{}), 0.0);
}

TEST(MapLabels, TextMetricsAgreeWithTheCanvas)
{
    TBitmap b(10, 10);
    TTextMetrics metrics;
    for (const char* name : {"DejaVu Sans", "DejaVu Serif", "MS Sans Serif"})
        for (const std::int32_t size : {6, 8, 9, 13, 24})
            for (const std::uint8_t styles : {0, 1, 2, 3})
                for (const char* text : {"Wien", "Saint Peter Port", "Ärø 12", "iiii", "WWWW"}) {
                    TFont f;
                    f.Name = name, f.Size = size, f.Style.Bits = styles;
                    b.Canvas().Font = f;
                    EXPECT_EQ(metrics.Extent(f, text), b.Canvas().TextExtent(text)) << name << " " << size << " " << text;
                }
}

// The model's scale follows its view, and a change of the label options repaints with them.
TEST(MapLabels, ModelScaleAndOptions)
{
    TMapModel model;
    model.SetControlSize({400, 300});
    EXPECT_EQ(model.MetresPerPixel(), 0.0);  // no map yet
    // 46..49 N, 9..17 E over 1200 x 900 pixels.
    model.CreateEmptyMapInMemory(46, 9, 49, 17, 1, 1, 1200, 900, true);
    model.SetCalibModel(cmBiquadraticPn);
    model.SetMagnification(1.0);
    const double one = model.MetresPerPixel();
    EXPECT_GT(one, 100.0);
    model.SetMagnification(2.0);
    EXPECT_NEAR(model.MetresPerPixel(), one / 2, one * 0.02);
    EXPECT_NEAR(model.ScaleDenominator(96), model.MetresPerPixel() * 96 / 0.0254, 1e-6 * one);
    std::int32_t x = 0, y = 0;
    ASSERT_TRUE(model.CalcPixelCoords(47.5, 13, x, y));
    model.SetTopLeft({x - 100, y - 75});  // the landmark in the view's middle
    model.AddLandMark(47.5, 13, 0);
    const TBitmap before = model.AuxBmp();
    TLabelOptions o;
    o.Scale = 3;
    model.SetLabelOptions(o);
    EXPECT_EQ(model.LabelOptions().Scale, 3.0);
    EXPECT_FALSE(before.Image() == model.AuxBmp().Image());
}

}  // namespace

TEST(MapLabels, NoLandmarkWithAPlaceGivesAnEmptyPlacement)
{
    // An empty store, and landmarks the fit cannot place (NaN): no domain to place over.
    TLabelMap m;
    TLabelCache cache;
    EXPECT_TRUE(PlaceLandMarks(m.View(1.0, {0, 0}), m.Store, m.Fit, Placing(1), cache).empty());
    m.Add(std::nan(""), std::nan(""), "nowhere");
    TLabelCache cache2;
    EXPECT_TRUE(PlaceLandMarks(m.View(1.0, {0, 0}), m.Store, m.Fit, Placing(1), cache2).empty());
    m.Add(47.5, 13.0, "somewhere");
    TLabelCache cache3;
    EXPECT_EQ(PlaceLandMarks(m.View(0.5, {0, 0}), m.Store, m.Fit, Placing(1), cache3).size(), 1u);
}
