// Painting a 1920 x 1080 map view over a 2000 x 1500 (3-megapixel) map, each paint beside its peer:
// - a reduced view panned through the scaled-image cache (magnification 0.5, 37 pixels a step) beside a
//   plain memcpy of the frame;
// - an enlarged view stretched with AntiAlias (magnification 1.5) beside QImage::scaled of the same
//   rectangle with smooth transformation (the rectangle cut out with QImage::copy first, as a caller of
//   scaled must);
// - 0, 2000 and 20000 landmarks with distinct captions: a repeated paint after a pan (symbol and caption
//   sprites warm) beside the first paint (fresh caches: every caption rendered and measured once);
// - the same with collision-free placement and a 1-pixel halo on (and 200000 landmarks), beside the
//   documented drawing: the first paint (every caption measured and placed) and a pan (placement reused).
#include "qt_main.h"

#include <qvgeo/geomap/calib_fit.h>
#include <qvgeo/mapview/empty_map.h>
#include <qvgeo/mapview/map_render_caches.h>
#include <qvgeo/platform/bitmap.h>

#include <benchmark/benchmark.h>

#include <QGuiApplication>
#include <QImage>

#include <cstring>
#include <string>
#include <vector>

namespace {

using namespace qv;

constexpr int ViewW = 1920, ViewH = 1080, MapW = 2000, MapH = 1500;

struct TBenchMap {
    TBitmap Img;
    TCalibData Cal;
    TCalibFit Fit;
    TLandMarkStore Store;

    TBenchMap()
    {
        TEmptyMapRequest r;
        r.LatMin = 46;
        r.LatMax = 49;
        r.LongMin = 9;
        r.LongMax = 17;
        r.LatGratDist = r.LongGratDist = 0.25;
        r.Width = MapW;
        r.Height = MapH;
        GenerateEmptyMap(r, Img, Cal);
        Fit.SetModel(cmBiquadraticPn);
        Fit.SetProjection(Cal);
        Fit.FitModel(Cal, MapW, MapH);
    }

    TMapViewport View(double Mag) const
    {
        TMapViewport v;
        v.SetControlSize({ViewW, ViewH});
        v.SetMapSize({MapW, MapH});
        v.SetMagnify(Mag);
        return v;
    }
    TMapSources Sources() const
    {
        TMapSources s;
        s.MapImgName = "bench.bmp";
        s.GrafBmp = &Img;
        s.CalibData = &Cal;
        s.Fit = &Fit;
        s.LandMarks = &Store;
        return s;
    }

    // N landmarks evenly spread over the map, each with its own caption.
    void SetLandMarks(int N)
    {
        Store.RemoveAllLandMarks();
        for (int i = 0; i < N; ++i) {
            const double lat = 46.1 + 2.8 * ((i * 7919) % N) / N, lon = 9.1 + 7.8 * (i % 211) / 211.0;
            Store.AddLandMark(lat, lon, 0, "Ort " + std::to_string(i), 8, 0x000000);
        }
    }
};

TBenchMap& Map()
{
    static TBenchMap m;
    return m;
}

// The next top-left corner of a pan by 37 pixels, back to the start before leaving Limit.
TPoint Pan(TPoint P, int LimitX)
{
    P.X += 37;
    if (P.X > LimitX)
        P.X = 0;
    return P;
}

void PanView(TMapViewport& View, int LimitX)
{
    View.SetTopLeft(TMapPixel(Pan(View.TopLeft().Point(), LimitX)));
}

const TMapAppearance Look;

void BM_Memcpy_Frame(benchmark::State& state)
{
    std::vector<std::uint32_t> a(std::size_t{ViewW} * ViewH, 0x123456), b(a.size());
    for (auto _ : state) {
        std::memcpy(b.data(), a.data(), a.size() * 4);
        benchmark::DoNotOptimize(b.data());
        benchmark::ClobberMemory();
    }
}

void BM_Paint_Cached_Mag05(benchmark::State& state)
{
    TMapViewport v = Map().View(0.5);
    TMapSources s = Map().Sources();
    s.LandMarks = nullptr;
    TBitmap aux;
    TMapImageCache cache;
    auto caches = MakeMapRenderCaches();
    RenderMapView(v, s, Look, aux, cache, caches.get());  // builds the cache
    for (auto _ : state) {
        PanView(v, MapW);
        RenderMapView(v, s, Look, aux, cache, caches.get());
        benchmark::DoNotOptimize(aux.ScanLine(0));
    }
    state.counters["stretches"] = double(cache.DirectStretches);
    state.counters["builds"] = double(cache.CacheBuilds);
}

void BM_Paint_Stretched_Mag15_AA(benchmark::State& state)
{
    TMapViewport v = Map().View(1.5);
    TMapSources s = Map().Sources();
    s.LandMarks = nullptr;
    TBitmap aux;
    TMapImageCache cache;
    for (auto _ : state) {
        PanView(v, MapW - 1280);
        RenderMapView(v, s, Look, aux, cache, nullptr);
        benchmark::DoNotOptimize(aux.ScanLine(0));
    }
}

void BM_QImageScaled_Mag15_Smooth(benchmark::State& state)
{
    const QImage& src = Map().Img.Image();
    TPoint tl;
    for (auto _ : state) {
        tl = Pan(tl, MapW - 1280);
        QImage out = src.copy(tl.X, tl.Y, 1280, 720).scaled(ViewW, ViewH, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
        benchmark::DoNotOptimize(out.constBits());
    }
}

void BM_Paint_LandMarks_Pan(benchmark::State& state)
{
    Map().SetLandMarks(static_cast<int>(state.range(0)));
    TMapViewport v = Map().View(0.5);
    const TMapSources s = Map().Sources();
    TBitmap aux;
    TMapImageCache cache;
    auto caches = MakeMapRenderCaches();
    RenderMapView(v, s, Look, aux, cache, caches.get());  // the first paint fills the sprite caches
    for (auto _ : state) {
        PanView(v, 370);
        RenderMapView(v, s, Look, aux, cache, caches.get());
        benchmark::DoNotOptimize(aux.ScanLine(0));
    }
    state.counters["captions"] = double(caches->Captions.SpriteCount());
}

void BM_Paint_LandMarks_First(benchmark::State& state)
{
    Map().SetLandMarks(static_cast<int>(state.range(0)));
    const TMapViewport v = Map().View(0.5);
    const TMapSources s = Map().Sources();
    TBitmap aux;
    TMapImageCache cache;
    RenderMapView(v, s, Look, aux, cache, nullptr);  // the image cache is not what is measured here
    for (auto _ : state) {
        auto caches = MakeMapRenderCaches();
        RenderMapView(v, s, Look, aux, cache, caches.get());
        benchmark::DoNotOptimize(aux.ScanLine(0));
    }
}

TMapAppearance Labelled()
{
    TMapAppearance look;
    look.Labels.Placement = true;
    look.Labels.HaloWidth = 1;
    return look;
}

void BM_Paint_Labels_Pan(benchmark::State& state)
{
    Map().SetLandMarks(static_cast<int>(state.range(0)));
    TMapViewport v = Map().View(0.5);
    const TMapSources s = Map().Sources();
    const TMapAppearance look = Labelled();
    TBitmap aux;
    TMapImageCache cache;
    auto caches = MakeMapRenderCaches();
    RenderMapView(v, s, look, aux, cache, caches.get());  // places the captions, fills the sprite caches
    for (auto _ : state) {
        PanView(v, 370);
        RenderMapView(v, s, look, aux, cache, caches.get());
        benchmark::DoNotOptimize(aux.ScanLine(0));
    }
    state.counters["placements"] = double(caches->Labels.Placements());
}

void BM_Paint_Labels_First(benchmark::State& state)
{
    Map().SetLandMarks(static_cast<int>(state.range(0)));
    const TMapViewport v = Map().View(0.5);
    const TMapSources s = Map().Sources();
    const TMapAppearance look = Labelled();
    TBitmap aux;
    TMapImageCache cache;
    RenderMapView(v, s, Look, aux, cache, nullptr);  // the image cache is not what is measured here
    for (auto _ : state) {
        auto caches = MakeMapRenderCaches();
        RenderMapView(v, s, look, aux, cache, caches.get());
        benchmark::DoNotOptimize(aux.ScanLine(0));
    }
}

BENCHMARK(BM_Memcpy_Frame)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Paint_Cached_Mag05)->Unit(benchmark::kMillisecond);
// Qt scales large images on several threads: compare the work done (the process's CPU time) and the time
// taken (real time) alike.
BENCHMARK(BM_Paint_Stretched_Mag15_AA)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(BM_QImageScaled_Mag15_Smooth)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(BM_Paint_LandMarks_Pan)->Arg(0)->Arg(2000)->Arg(20000)->Arg(200000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Paint_LandMarks_First)->Arg(0)->Arg(2000)->Arg(20000)->Arg(200000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Paint_Labels_Pan)->Arg(20000)->Arg(200000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Paint_Labels_First)->Arg(20000)->Arg(200000)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) { return RunQtBenchmarks(argc, argv); }
