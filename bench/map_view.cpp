// The map control on a 1920 x 1080 view: what a magnification change costs on a 100-megapixel map beside a
// 3-megapixel map, and the same change on the big map rendered without the pyramid (cache and stretches
// from the full image), the pyramid's own construction, and a pan at the high-density ratio 1.5. On the big
// map the fit-to-page magnification and 1.26 times it (whose zoom step just fits the largest cache built,
// twice the view) build the scaled cache from a pyramid level; 3 times it stretches the view from a level,
// 6 times (above CacheMagLimit) from the image itself.
#include "qt_main.h"

#include <qvgeo/mapview/geo_map.h>
#include <qvgeo/platform/bitmap.h>

#include <benchmark/benchmark.h>

#include <QApplication>

#include <memory>

namespace {

using namespace qv;

// A picture with detail at every scale: stripes of three periods in two colours.
TBitmap Synthetic(int W, int H)
{
    TBitmap b(W, H);
    for (int y = 0; y < H; ++y) {
        std::uint32_t* row = b.ScanLine(y);
        for (int x = 0; x < W; ++x)
            row[x] = 0xFF000000u | static_cast<std::uint32_t>(((x >> 3) & 0xFF) << 16) |
                     static_cast<std::uint32_t>(((y >> 5) & 0xFF) << 8) | static_cast<std::uint32_t>((x ^ y) & 0xFF);
    }
    return b;
}

// One map at a time (a 100-megapixel map holds about 530 MB with its pyramid); dropped before the
// application object.
std::unique_ptr<TGeoMap> m;

TGeoMap& MapOf(int W, int H)
{
    static int w = 0, h = 0;
    if (!m || w != W || h != H) {
        m.reset();
        m = std::make_unique<TGeoMap>();
        m->resize(1920, 1080);
        m->SetMaxMapPixels(200000000);
        m->SetMapBitMap(Synthetic(W, H));
        w = W;
        h = H;
    }
    return *m;
}

// Alternates between the magnification that fits the map and 1.25 times it (the keyboard's zoom step),
// multiplied by Scale, so that every paint rebuilds the cache when the view is reduced below 2/3.
void ZoomSteps(benchmark::State& State, int W, int H, double Scale)
{
    TGeoMap& m = MapOf(W, H);
    const double fit = std::min(1920.0 / W, 1080.0 / H) * Scale;
    bool in = false;
    for (auto _ : State) {
        m.SetMagnification(in ? fit * 1.25 : fit);
        in = !in;
        benchmark::DoNotOptimize(m.AuxBmp().Pixel(960, 540));
    }
    State.counters["mag"] = fit;
    State.counters["cache_builds"] = static_cast<double>(m.ImageCache().CacheBuilds);
}

void BM_ZoomStep_100MP(benchmark::State& S) { ZoomSteps(S, 12000, 8400, S.range(0) / 100.0); }
void BM_ZoomStep_3MP(benchmark::State& S) { ZoomSteps(S, 2000, 1500, S.range(0) / 100.0); }
BENCHMARK(BM_ZoomStep_100MP)->Arg(100)->Arg(126)->Arg(300)->Arg(600)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ZoomStep_3MP)->Arg(50)->Arg(100)->Unit(benchmark::kMillisecond);

// The same zoom steps on the 100-megapixel map drawn by the renderer without pyramid levels.
void BM_ZoomStep_100MP_NoPyramid(benchmark::State& State)
{
    TGeoMap& m = MapOf(12000, 8400);
    TMapViewport v;
    v.SetControlSize({1920, 1080});
    v.SetMapSize({12000, 8400});
    TMapSources s;
    s.MapImgName = "big";
    s.GrafBmp = &m.GrafBmp();
    const TMapAppearance look;
    TBitmap aux;
    TMapImageCache cache;
    const double fit = std::min(1920.0 / 12000, 1080.0 / 8400) * State.range(0) / 100.0;
    bool in = false;
    for (auto _ : State) {
        v.SetMagnify(in ? fit * 1.25 : fit);
        in = !in;
        RenderMapView(v, s, look, aux, cache, nullptr);
        benchmark::DoNotOptimize(aux.Pixel(960, 540));
    }
}
BENCHMARK(BM_ZoomStep_100MP_NoPyramid)->Arg(100)->Arg(300)->Unit(benchmark::kMillisecond);

// Loading a new picture of the size makes its pyramid (the copy into the map included).
void BM_SetMapBitMap_100MP(benchmark::State& State)
{
    const TBitmap picture = Synthetic(12000, 8400);
    TGeoMap m;
    m.SetMaxMapPixels(200000000);
    m.SetSuppressPaint(true);
    for (auto _ : State) {
        TBitmap copy = picture;
        copy.SetPixel(0, 0, 0);  // a picture of its own, as a loaded file would be
        m.SetMapBitMap(copy);
        benchmark::DoNotOptimize(m.PyramidLevel(3));
    }
}
BENCHMARK(BM_SetMapBitMap_100MP)->Unit(benchmark::kMillisecond)->Iterations(3);

// A pan on the 3-megapixel map at the cached magnification 0.5, at ratio 1 and 1.5.
void BM_Pan_3MP(benchmark::State& State)
{
    TGeoMap& m = MapOf(2000, 1500);
    m.SetForcedPixelRatio(State.range(0) / 10.0);
    m.SetMagnification(0.5);
    int step = 0;
    for (auto _ : State) {
        m.SetTopLeft({(step * 37) % 100, (step * 37) % 80});
        ++step;
        benchmark::DoNotOptimize(m.ScreenFrame().Pixel(5, 5));
    }
    m.SetForcedPixelRatio(0);
}
BENCHMARK(BM_Pan_3MP)->Arg(10)->Arg(15)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv)
{
    return RunQtBenchmarks(argc, argv, {}, [] { m.reset(); });
}
