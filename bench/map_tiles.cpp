// A 1920 x 1080 view over a 12000 x 9000 (108-megapixel) picture, three ways side by side:
// - held whole in memory with its halved copies (the map image of a large picture);
// - tiled over a source that makes its pixels when read (a formula: about the cost of decoding them);
// - tiled over a JPEG-compressed tiled GeoTIFF with reduced levels, written once to /tmp by GDAL's tools.
// For each: the first paint of a freshly opened map (empty tile cache, no scaled cache) and a pan by
// 100 pixels (the average over sweeps across the map: at 1:1 a new column of tiles comes into view about
// every fifth pan), at magnifications 1, 0.6 (level 0, reduced) and 0.2 (level 2, stretched directly:
// its scaled cache would hold more than twice the view).
#include "qt_main.h"

#include <qvgeo/geomap/map_viewport.h>
#include <qvgeo/mapview/map_render.h>
#include <qvgeo/platform/bitmap_pyramid.h>
#include <qvgeo/platform/tile_cache.h>

#include <qvgeo/platform/image_files.h>

#if QVGEO_WITH_GDAL
#include <qvgeo/gdalio/raster_source.h>
#endif

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <vector>

namespace {

using namespace qv;

constexpr int ViewW = 1920, ViewH = 1080, MapW = 12000, MapH = 9000;

std::uint32_t Formula(std::int32_t X, std::int32_t Y)
{
    const std::uint32_t r = static_cast<std::uint32_t>(X * 255 / (MapW - 1));
    const std::uint32_t g = static_cast<std::uint32_t>(Y * 255 / (MapH - 1));
    const std::uint32_t b = static_cast<std::uint32_t>((X * 7 + Y * 13 + (X ^ Y) * 3) & 0xFF);
    return 0xFF000000u | r << 16 | g << 8 | b;
}

// Level k's pixel is the formula at the centre of its 2^k block: a read costs a few operations a pixel.
class TFormulaSource : public TImageSource {
public:
    TSize Size() const override { return {MapW, MapH}; }
    int LevelCount() const override { return 5; }
    TSize LevelSize(int Level) const override
    {
        return {(MapW + (1 << Level) - 1) >> Level, (MapH + (1 << Level) - 1) >> Level};
    }
    double LevelScale(int Level) const override { return double(1 << Level); }
    double LevelScaleY(int Level) const override { return double(1 << Level); }
    std::string FormatName() const override { return "formula"; }
    TBitmap ReadWindow(int Level, TRect Window) const override
    {
        TBitmap b(Window.Width(), Window.Height());
        const std::int32_t f = 1 << Level, half = f / 2;
        for (std::int32_t y = 0; y < b.Height(); ++y) {
            std::uint32_t* row = b.ScanLine(y);
            for (std::int32_t x = 0; x < b.Width(); ++x)
                row[x] = Formula((Window.Left + x) * f + half, (Window.Top + y) * f + half);
        }
        return b;
    }
};

struct TWhole {
    TBitmap Picture;
    std::vector<TBitmap> Halved;
    TWhole() : Picture(MapW, MapH)
    {
        for (std::int32_t y = 0; y < MapH; ++y) {
            std::uint32_t* row = Picture.ScanLine(y);
            for (std::int32_t x = 0; x < MapW; ++x)
                row[x] = Formula(x, y);
        }
        const TBitmap* from = &Picture;
        for (int k = 0; k < 4; ++k) {
            Halved.push_back(HalveBitmap(*from));
            from = &Halved.back();
        }
    }
    TMapSources Sources() const
    {
        TMapSources s;
        s.MapImgName = "whole";
        s.GrafBmp = &Picture;
        for (std::size_t i = 0; i < 4; ++i)
            s.PyramidLevels[i] = &Halved[i];
        return s;
    }
};

TWhole& Whole()
{
    static TWhole w;
    return w;
}

#if QVGEO_WITH_GDAL
// The formula picture as a JPEG-compressed GeoTIFF of 512-pixel tiles with 4 reduced levels inside, made
// once by GDAL's own tools from a BMP of the picture.
std::string TiffFile()
{
    static const std::string name = [] {
        const std::string file = "/tmp/qvgeo-bench-tiles-12000x9000.tif";
        if (std::filesystem::exists(file))
            return file;
        const std::string bmp = "/tmp/qvgeo-bench-tiles-12000x9000.bmp", part = file + ".part";
        SaveBMP(Whole().Picture, bmp);
        const std::string translate = "gdal_translate -q -of GTiff -co TILED=YES -co BLOCKXSIZE=512 "
                                      "-co BLOCKYSIZE=512 -co COMPRESS=JPEG -co PHOTOMETRIC=YCBCR "
                                      "-co JPEG_QUALITY=90 " + bmp + " " + part;
        const std::string overviews = "gdaladdo -q -r average --config COMPRESS_OVERVIEW JPEG "
                                      "--config PHOTOMETRIC_OVERVIEW YCBCR " + part + " 2 4 8 16";
        if (std::system(translate.c_str()) != 0 || std::system(overviews.c_str()) != 0)
            std::abort();
        std::filesystem::remove(bmp);
        std::filesystem::rename(part, file);
        return file;
    }();
    return name;
}
#endif

// 0: whole, 1: formula source, 2: GeoTIFF.
std::shared_ptr<const TImageSource> OpenSource(int Kind)
{
#if QVGEO_WITH_GDAL
    if (Kind == 2)
        return OpenRasterSource(TiffFile());
#endif
    (void)Kind;
    return std::make_shared<TFormulaSource>();
}

TMapViewport View(double Mag, TPoint TopLeft)
{
    TMapViewport v;
    v.SetControlSize({ViewW, ViewH});
    v.SetMapSize({MapW, MapH});
    v.SetMagnify(Mag);
    v.SetTopLeft(TMapPixel(TopLeft));
    return v;
}

const char* KindName(int Kind) { return Kind == 0 ? "whole" : Kind == 1 ? "tiled formula" : "tiled GeoTIFF"; }

// First paint of a map just opened at the centre: nothing cached anywhere.
void BM_FirstPaint(benchmark::State& state)
{
    const int kind = static_cast<int>(state.range(0));
    const double mag = state.range(1) / 100.0;
    const TPoint centre{static_cast<std::int32_t>(MapW / 2 - ViewW / 2 / mag),
                        static_cast<std::int32_t>(MapH / 2 - ViewH / 2 / mag)};
    const TMapAppearance look;
    TBitmap aux(ViewW, ViewH);
    std::uint64_t tiles = 0;
    for (auto _ : state) {
        state.PauseTiming();
        std::shared_ptr<const TImageSource> source = kind == 0 ? nullptr : OpenSource(kind);
        auto cache = source ? std::make_unique<TTileCache>(source) : nullptr;
        TMapSources s = kind == 0 ? Whole().Sources() : TMapSources{};
        if (cache) {
            s.MapImgName = "tiled";
            s.Picture = cache.get();
        }
        TMapImageCache imageCache;
        state.ResumeTiming();
        RenderMapView(View(mag, centre), s, look, aux, imageCache);
        state.PauseTiming();
        tiles = cache ? cache->TilesRead() : 0;
        cache.reset();
        source.reset();
        state.ResumeTiming();
    }
    state.counters["tiles"] = double(tiles);
    state.SetLabel(KindName(kind));
}

// Pans by 100 pixels to the right, sweeping across the map band by band, the map open; the counter says how
// many tiles a pan read on average.
void BM_Pan100(benchmark::State& state)
{
    const int kind = static_cast<int>(state.range(0));
    const double mag = state.range(1) / 100.0;
    std::shared_ptr<const TImageSource> source = kind == 0 ? nullptr : OpenSource(kind);
    auto cache = source ? std::make_unique<TTileCache>(source) : nullptr;
    TMapSources s = kind == 0 ? Whole().Sources() : TMapSources{};
    if (cache) {
        s.MapImgName = "tiled";
        s.Picture = cache.get();
    }
    const TMapAppearance look;
    TBitmap aux(ViewW, ViewH);
    TMapImageCache imageCache;
    const std::int32_t span = static_cast<std::int32_t>(MapW - ViewW / mag), step = static_cast<std::int32_t>(100 / mag);
    const std::int32_t rows = static_cast<std::int32_t>(ViewH / mag), bottom = MapH - rows;
    std::int32_t x = 0, top = 0;
    RenderMapView(View(mag, {x, top}), s, look, aux, imageCache);
    const std::uint64_t before = cache ? cache->TilesRead() : 0;
    std::int64_t pans = 0;
    for (auto _ : state) {
        // Across, then on to the next band of the map (the tiles of the band swept before are mostly
        // still held, the new band's are not), back to the top at the bottom.
        if (x + step > span) {
            x = 0;
            top = top + rows > bottom ? 0 : top + rows;
        } else {
            x += step;
        }
        RenderMapView(View(mag, {x, top}), s, look, aux, imageCache);
        ++pans;
    }
    state.counters["tiles/pan"] = cache ? double(cache->TilesRead() - before) / double(pans) : 0.0;
    state.SetLabel(KindName(kind));
}

void Cases(benchmark::internal::Benchmark* b)
{
    for (int mag : {100, 60, 20})
        for (int kind = 0; kind < 3; ++kind)
            b->Args({kind, mag});
}

BENCHMARK(BM_FirstPaint)->Apply(Cases)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Pan100)->Apply(Cases)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv)
{
    return RunQtBenchmarks(argc, argv, [] {
        Whole();
#if QVGEO_WITH_GDAL
        TiffFile();
#endif
    });
}
