// The cost of map furniture on a 1920 x 1080 view panned over a 2000 x 1500 map with a graticule every
// 0.25 degrees (biquadratic model, magnification 1.5, 37 pixels a step): the paint with the graticule alone
// beside the same paint with edge labels (each written with its halo), then with labels, scale bar and
// north arrow; and the label placement alone (tracing the lines and measuring the texts).
#include "qt_main.h"

#include <qvgeo/geomap/calib_fit.h>
#include <qvgeo/mapview/empty_map.h>
#include <qvgeo/mapview/map_render_caches.h>
#include <qvgeo/platform/bitmap.h>

#include <benchmark/benchmark.h>

namespace {

using namespace qv;

constexpr int ViewW = 1920, ViewH = 1080, MapW = 2000, MapH = 1500;

struct TBenchMap {
    TBitmap Img;
    TCalibData Cal;
    TCalibFit Fit;

    TBenchMap()
    {
        TEmptyMapRequest r;
        r.LatMin = 46, r.LatMax = 49, r.LongMin = 9, r.LongMax = 17;
        r.LatGratDist = r.LongGratDist = 0.25;
        r.Width = MapW, r.Height = MapH;
        GenerateEmptyMap(r, Img, Cal);
        Fit.SetModel(cmBiquadraticPn);
        Fit.SetProjection(Cal);
        Fit.FitModel(Cal, MapW, MapH);
    }
    TMapSources Sources() const
    {
        TMapSources s;
        s.MapImgName = "bench.bmp", s.GrafBmp = &Img, s.CalibData = &Cal, s.Fit = &Fit;
        return s;
    }
};

TBenchMap& Map()
{
    static TBenchMap m;
    return m;
}

TMapViewport View()
{
    TMapViewport v;
    v.SetControlSize({ViewW, ViewH});
    v.SetMapSize({MapW, MapH});
    v.SetMagnify(1.5);
    return v;
}

void Pan(TMapViewport& View)
{
    TPoint p = View.TopLeft().Point();
    p.X = p.X + 37 > MapW - ViewW / 1.5 ? 0 : p.X + 37;
    View.SetTopLeft(TMapPixel(p));
}

TMapAppearance Look(bool Labels, bool BarAndArrow)
{
    TMapAppearance look;
    look.ShowGraticule = sgLines;
    look.GratLineDist = 0.25;
    look.Furniture.GridLabels = Labels;
    look.Furniture.ScaleBar = look.Furniture.NorthArrow = BarAndArrow;
    return look;
}

void Paint(benchmark::State& state, const TMapAppearance& L)
{
    TMapViewport v = View();
    const TMapSources s = Map().Sources();
    TBitmap aux;
    TMapImageCache cache;
    auto caches = MakeMapRenderCaches();
    for (auto _ : state) {
        Pan(v);
        RenderMapView(v, s, L, aux, cache, caches.get());
        benchmark::DoNotOptimize(aux.ScanLine(0));
    }
}

void BM_Paint_Graticule(benchmark::State& state) { Paint(state, Look(false, false)); }
void BM_Paint_GraticuleAndEdgeLabels(benchmark::State& state) { Paint(state, Look(true, false)); }
void BM_Paint_GraticuleAndAllFurniture(benchmark::State& state) { Paint(state, Look(true, true)); }

void BM_PlaceGridLabels(benchmark::State& state)
{
    TMapViewport v = View();
    const TMapSources s = Map().Sources();
    const TMapAppearance L = Look(true, false);
    TBitmap scratch(8, 8);
    std::size_t n = 0;
    for (auto _ : state) {
        Pan(v);
        n = PlaceGridLabels(scratch.Canvas(), v, s, L).size();
        benchmark::DoNotOptimize(n);
    }
    state.counters["labels"] = double(n);
}

BENCHMARK(BM_Paint_Graticule)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Paint_GraticuleAndEdgeLabels)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Paint_GraticuleAndAllFurniture)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PlaceGridLabels)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) { return RunQtBenchmarks(argc, argv); }
