// A tiled map drawn without widgets: a picture read by window through a tile cache must give the pixels of
// the same picture held whole (with its halved copies), at every magnification and for views that reach
// beyond the map, and a pan must read only the tiles that came into view.
#include "../mapview/tiled_picture.h"

#include <qvgeo/geomap/map_viewport.h>
#include <qvgeo/mapview/map_render.h>
#include <qvgeo/platform/image_files.h>
#include <qvgeo/platform/tile_cache.h>

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>
#include <tuple>

namespace qv {
namespace {

using test::TCountingSource;

std::int64_t DifferentPixels(const TBitmap& A, const TBitmap& B, std::int32_t W, std::int32_t H)
{
    std::int64_t n = 0;
    for (std::int32_t y = 0; y < H; ++y)
        for (std::int32_t x = 0; x < W; ++x)
            n += A.Pixel(x, y) != B.Pixel(x, y);
    return n;
}

// 2400 x 1300 pixels: above the 3 000 000 of the documented limit, so the picture held whole is drawn from
// its pyramid as a tiled one is.
struct TPictures {
    std::shared_ptr<TCountingSource> Source = std::make_shared<TCountingSource>(test::FormulaPicture(2400, 1300), 5);
    TMapSources Whole, Tiled;
    explicit TPictures(TTileCache& Cache)
    {
        Whole.MapImgName = Tiled.MapImgName = "picture";
        Whole.GrafBmp = &Source->Level(0);
        for (int k = 1; k <= 4; ++k)
            Whole.PyramidLevels[static_cast<std::size_t>(k - 1)] = &Source->Level(k);
        Tiled.Picture = &Cache;
    }
};

TMapViewport View(TSize Control, double Mag, TPoint TopLeft)
{
    TMapViewport v;
    v.SetControlSize(Control);
    v.SetMapSize({2400, 1300});
    v.SetMagnify(Mag);
    v.SetTopLeft(TMapPixel(TopLeft));
    return v;
}

TEST(TiledRender, SamePixelsAsThePictureHeldWhole)
{
    struct Case {
        TSize control;
        double mag;
        TPoint topLeft;
        bool antiAlias;
    };
    const Case cases[] = {
        {{300, 200}, 1.0, {100, 50}, true},
        {{300, 200}, 1.0, {-40, -30}, true},      // beyond the top-left corner
        {{300, 200}, 1.7, {2300, 1250}, true},    // beyond the bottom-right corner
        {{300, 200}, 3.3, {-20, 600}, false},
        {{300, 200}, 0.6, {1000, -100}, true},    // level 0, reduced
        {{300, 200}, 0.37, {-200, 400}, true},    // level 1
        {{300, 200}, 0.37, {-200, 400}, false},
        {{300, 200}, 0.2, {51, 49}, true},        // level 2 (600 across for 480 needed)
        {{300, 200}, 0.11, {-500, -300}, true},   // level 3
        {{300, 200}, 0.05, {0, 0}, true},         // a cache of 120 x 65: built
        {{640, 480}, 0.29, {1234, 567}, true},    // a cache of 696 x 377, under twice the view: built
        {{640, 480}, 0.29, {1234, 567}, false},
        {{97, 61}, 2.0 / 3.0, {2390, 1290}, true},
    };
    for (const Case& c : cases) {
        TTileCache cache(std::make_shared<TCountingSource>(test::FormulaPicture(2400, 1300), 5), 128);
        TPictures p(cache);
        const TMapViewport v = View(c.control, c.mag, c.topLeft);
        TMapAppearance look;
        look.AntiAlias = c.antiAlias;
        TBitmap whole, tiled;
        TMapImageCache wholeCache, tiledCache;
        RenderMapView(v, p.Whole, look, whole, wholeCache);
        RenderMapView(v, p.Tiled, look, tiled, tiledCache);
        EXPECT_EQ(DifferentPixels(whole, tiled, c.control.cx, c.control.cy), 0) << c.mag << " " << c.topLeft.X;
        EXPECT_EQ(std::tuple(wholeCache.CacheBuilds, wholeCache.DirectStretches),
                  std::tuple(tiledCache.CacheBuilds, tiledCache.DirectStretches))
            << c.mag;
        // The high-density frame reads the tiled map the same way.
        TMapViewport dense = v;
        dense.SetPixelRatio(1.5);
        TBitmap wholeScreen, tiledScreen;
        RenderDeviceFrame(wholeScreen, whole, &whole, dense, p.Whole, look);
        RenderDeviceFrame(tiledScreen, tiled, &tiled, dense, p.Tiled, look);
        ASSERT_EQ(wholeScreen.Width(), tiledScreen.Width());
        EXPECT_EQ(DifferentPixels(wholeScreen, tiledScreen, wholeScreen.Width(), wholeScreen.Height()), 0) << c.mag;
    }
}

// The tiles (column, row) of a 64-pixel grid that the source was asked for since Reads[From].
std::set<std::tuple<int, int, int>> TilesRead(const TCountingSource& S, std::size_t From)
{
    std::set<std::tuple<int, int, int>> tiles;
    for (std::size_t i = From; i < S.Reads.size(); ++i) {
        const TRect w = S.Reads[i].Window;
        EXPECT_EQ(std::tuple(w.Left % 64, w.Top % 64), std::tuple(0, 0));  // whole tiles only
        tiles.insert({S.Reads[i].Level, w.Left / 64, w.Top / 64});
    }
    EXPECT_EQ(tiles.size(), S.Reads.size() - From);  // no tile read twice
    return tiles;
}

TEST(TiledRender, APanReadsOnlyTheTilesThatCameIntoView)
{
    auto source = std::make_shared<TCountingSource>(test::FormulaPicture(2400, 1300), 5);
    TTileCache cache(source, 64);
    TMapSources s;
    s.MapImgName = "picture";
    s.Picture = &cache;
    const TMapAppearance look;
    TBitmap aux;
    TMapImageCache imageCache;
    using Tiles = std::set<std::tuple<int, int, int>>;
    struct Step {
        double mag;
        TPoint topLeft;
        Tiles tiles;  // read by this paint
    };
    auto columns = [](int Level, int C0, int C1, int R0, int R1) {
        Tiles t;
        for (int c = C0; c <= C1; ++c)
            for (int r = R0; r <= R1; ++r)
                t.insert({Level, c, r});
        return t;
    };
    const Step steps[] = {
        // Map pixels 130..429 x 70..269: columns 2..6, rows 1..4 of level 0.
        {1.0, {130, 70}, columns(0, 2, 6, 1, 4)},
        {1.0, {130, 70}, {}},                      // a repaint reads nothing
        {1.0, {230, 70}, columns(0, 7, 8, 1, 4)},  // 100 px right: 230..529, columns 7 and 8 are new
        {1.0, {230, 170}, columns(0, 3, 8, 5, 5)}, // 100 px down: 170..369, row 5 is new
        {1.0, {130, 70}, {}},                      // back: all still held
        // At 0.3 (720 pixels across needed) level 1 serves: map 130..1130 x 70..737 is level 65..565 x
        // 35..369, columns 1..8 and rows 0..5 of level 1.
        {0.3, {130, 70}, columns(1, 1, 8, 0, 5)},
    };
    for (const Step& st : steps) {
        const std::size_t before = source->Reads.size();
        RenderMapView(View({300, 200}, st.mag, st.topLeft), s, look, aux, imageCache);
        EXPECT_EQ(TilesRead(*source, before), st.tiles) << st.mag << " " << st.topLeft.X << " " << st.topLeft.Y;
    }
    EXPECT_EQ(cache.TilesRead(), source->Reads.size());
}

// A file's reduced level need not be a halving, nor reduced alike both ways: here level 1 is a third
// across and a half down (the default LevelScale and LevelScaleY, from the sizes). The quadrants of the
// picture must meet where the map pixel (600, 400) falls on the view, whichever level draws them.
TEST(TiledRender, LevelsReducedByOtherRatiosArePlacedByTheirOwnScales)
{
    struct TUneven : TImageSource {
        static TColor At(std::int32_t X, std::int32_t Y) { return (X < 600 ? 0x0000FFu : 0xFF0000u) | (Y < 400 ? 0 : 0x00FF00u); }
        TSize Size() const override { return {1200, 800}; }
        int LevelCount() const override { return 2; }
        TSize LevelSize(int Level) const override { return Level == 0 ? TSize{1200, 800} : TSize{400, 400}; }
        std::string FormatName() const override { return "uneven"; }
        TBitmap ReadWindow(int Level, TRect Window) const override
        {
            TBitmap b(Window.Width(), Window.Height());
            const std::int32_t fx = Level == 0 ? 1 : 3, fy = Level == 0 ? 1 : 2;
            for (std::int32_t y = 0; y < b.Height(); ++y)
                for (std::int32_t x = 0; x < b.Width(); ++x)
                    b.SetPixel(x, y, At((Window.Left + x) * fx + fx / 2, (Window.Top + y) * fy + fy / 2));
            return b;
        }
    };
    TTileCache cache(std::make_shared<TUneven>(), 64);
    EXPECT_EQ(std::tuple(cache.LevelScale(1), cache.LevelScaleY(1)), std::tuple(3.0, 2.0));
    TMapSources s;
    s.MapImgName = "uneven";
    s.Picture = &cache;
    TMapAppearance look;
    look.AntiAlias = false;
    // Level 1 (360 of 400 columns needed) through the scaled cache and stretched directly, then level 0.
    for (const auto& [mag, cacheLimit] : {std::pair{0.3, 2.0 / 3.0}, {0.3, 0.0}, {0.9, 2.0 / 3.0}}) {
        look.CacheMagLimit = cacheLimit;
        TMapViewport v;
        v.SetControlSize({300, 200});
        v.SetMapSize({1200, 800});
        v.SetMagnify(mag);
        v.SetTopLeft(TMapPixel{400, 300});
        TBitmap aux;
        TMapImageCache imageCache;
        RenderMapView(v, s, look, aux, imageCache);
        const std::int32_t cx = static_cast<std::int32_t>((600 - 400) * mag), cy = static_cast<std::int32_t>((400 - 300) * mag);
        EXPECT_EQ(std::vector<TColor>({aux.Pixel(cx - 2, cy - 2), aux.Pixel(cx + 2, cy - 2), aux.Pixel(cx - 2, cy + 2),
                                       aux.Pixel(cx + 2, cy + 2)}),
                  std::vector<TColor>({TUneven::At(0, 0), TUneven::At(600, 0), TUneven::At(0, 400), TUneven::At(600, 400)}))
            << mag << " " << cacheLimit;
    }
    // The high-density frame at 0.2 x 1.5 = 0.3 device pixels per map pixel reads level 1 (a third across).
    TMapViewport v;
    v.SetControlSize({300, 200});
    v.SetMapSize({1200, 800});
    v.SetMagnify(0.2);
    v.SetTopLeft(TMapPixel{400, 300});
    v.SetPixelRatio(1.5);
    TBitmap aux, screen;
    TMapImageCache imageCache;
    RenderMapView(v, s, look, aux, imageCache);
    RenderDeviceFrame(screen, aux, &aux, v, s, look);
    const std::int32_t dx = 60, dy = 30;  // map (600, 400) on the device
    EXPECT_EQ(std::vector<TColor>({screen.Pixel(dx - 2, dy - 2), screen.Pixel(dx + 2, dy - 2), screen.Pixel(dx - 2, dy + 2),
                                   screen.Pixel(dx + 2, dy + 2)}),
              std::vector<TColor>({TUneven::At(0, 0), TUneven::At(600, 0), TUneven::At(0, 400), TUneven::At(600, 400)}));
}

// A huge picture without reduced levels seen whole: nothing is read (it would be read whole); the view
// shows the background and says why. Up close it is drawn.
TEST(TiledRender, AHugePictureWithoutReducedLevelsIsNotReadWhole)
{
    struct THuge : TImageSource {
        mutable std::int64_t PixelsRead = 0;
        TSize Size() const override { return {40000, 30000}; }
        int LevelCount() const override { return 1; }
        TSize LevelSize(int) const override { return Size(); }
        std::string FormatName() const override { return "huge"; }
        TBitmap ReadWindow(int, TRect Window) const override
        {
            PixelsRead += std::int64_t{Window.Width()} * Window.Height();
            return TBitmap(Window.Width(), Window.Height());
        }
    };
    auto source = std::make_shared<THuge>();
    TTileCache cache(source);
    TMapSources s;
    s.MapImgName = "huge.tif";
    s.Picture = &cache;
    TMapAppearance look;
    TMapViewport v;
    v.SetControlSize({300, 200});
    v.SetMapSize({40000, 30000});
    TBitmap aux;
    for (const double cacheLimit : {2.0 / 3.0, 0.0}) {  // through the scaled cache, stretched directly
        look.CacheMagLimit = cacheLimit;
        v.SetMagnify(0.0075);
        TMapImageCache imageCache;
        RenderMapView(v, s, look, aux, imageCache);
        EXPECT_EQ(source->PixelsRead, 0) << cacheLimit;
        EXPECT_EQ(imageCache.ReadFailures, 1u) << cacheLimit;
        EXPECT_EQ(imageCache.LastReadError.rfind("\"huge.tif\": no reduced level small enough for this view (", 0), 0u)
            << imageCache.LastReadError;
        EXPECT_EQ(aux.Pixel(150, 100), look.ColorBackGnd);
    }
    v.SetMagnify(1.0);
    TMapImageCache imageCache;
    RenderMapView(v, s, look, aux, imageCache);
    EXPECT_EQ(std::tuple(imageCache.ReadFailures, source->PixelsRead, aux.Pixel(150, 100)),
              std::tuple(std::uint64_t{0}, std::int64_t{512 * 512}, TColor{0xFFFFFF}));
}

// A tiled map whose file breaks under the view: the paint goes on with the background where the map was,
// the failure is counted with its message, and the cache made before stays good for its magnification.
TEST(TiledRender, AnUnreadableSourceLeavesTheBackgroundAndIsCounted)
{
    struct TBreaking : TCountingSource {
        using TCountingSource::TCountingSource;
        mutable bool Broken = false;
        TBitmap ReadWindow(int Level, TRect Window) const override
        {
            if (Broken)
                throw EXELImageError("\"scan.tif\": read error");
            return TCountingSource::ReadWindow(Level, Window);
        }
    };
    auto source = std::make_shared<TBreaking>(test::FormulaPicture(2400, 1300), 5);
    TTileCache cache(source, 128);
    TMapSources s;
    s.MapImgName = "scan.tif";
    s.Picture = &cache;
    TMapAppearance look;
    TBitmap aux, good;
    TMapImageCache imageCache;
    RenderMapView(View({300, 200}, 0.05, {0, 0}), s, look, good, imageCache);  // a cache of 120 x 65
    ASSERT_EQ(imageCache.CacheBuilds, 1u);
    source->Broken = true;
    for (double mag : {1.0, 0.1}) {
        RenderMapView(View({300, 200}, mag, {10, 10}), s, look, aux, imageCache);
        EXPECT_EQ(aux.Pixel(150, 100), look.ColorBackGnd) << mag;
        EXPECT_EQ(aux.Pixel(0, 0), 0x808080u) << mag;  // the frame
    }
    EXPECT_EQ(std::tuple(imageCache.ReadFailures, imageCache.LastReadError),
              std::tuple(std::uint64_t{2}, std::string("\"scan.tif\": read error")));
    RenderMapView(View({300, 200}, 0.05, {0, 0}), s, look, aux, imageCache);
    EXPECT_EQ(aux.Pixel(50, 30), good.Pixel(50, 30));
    // Tiles still held keep serving: 0.06 is drawn from level 4 as 0.05 was.
    RenderMapView(View({300, 200}, 0.06, {0, 0}), s, look, aux, imageCache);
    EXPECT_NE(aux.Pixel(50, 30), look.ColorBackGnd);
    EXPECT_EQ(imageCache.ReadFailures, 2u);
}

}  // namespace
}  // namespace qv
