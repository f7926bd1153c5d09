// Drawing speed of the map view: 20000 haloed landmark symbols on a full-HD screen image, drawn directly
// and through the sprite cache (warm, as between two paints of the map, and cold, sprites drawn first),
// and a synthetic 4000 x 3000 map with a 0.1° graticule.
#include "qt_main.h"

#include <qvgeo/mapview/empty_map.h>
#include <qvgeo/mapview/landmark_symbols.h>
#include <qvgeo/platform/canvas.h>

#include <benchmark/benchmark.h>

#include <QGuiApplication>

#include <random>
#include <vector>

namespace {

using namespace qv;

struct Symbol {
    std::int32_t X, Y;
    TSymbolProperties P;
};

// 20000 symbols in ten styles (the nine drawn shapes, haloed and filled, and transparent triangles), four
// colour pairs, sizes 4..8, eight directions and two arrow lengths, at random points of the screen.
const std::vector<Symbol>& Symbols()
{
    static const std::vector<Symbol> s = [] {
        std::mt19937 rng(20240611);
        const TColor pairs[4][2] = {{0xFF0000, 0xFFFFFF}, {0x0000FF, 0x00FFFF}, {0x000000, 0x00FF00}, {0x800080, 0xC0C0C0}};
        std::vector<Symbol> v;
        for (int i = 0; i < 20000; ++i) {
            Symbol sym{};
            sym.X = static_cast<std::int32_t>(rng() % 1920);
            sym.Y = static_cast<std::int32_t>(rng() % 1080);
            const unsigned style = rng() % 10;
            sym.P.Kind = style == 9 ? lmTriangle : static_cast<TLandMarkElement>(style);
            sym.P.Transparent = style == 9;
            const unsigned c = rng() % 4;
            sym.P.FGColor = pairs[c][0];
            sym.P.BGColor = pairs[c][1];
            sym.P.Size = 4 + static_cast<std::int32_t>(rng() % 5);
            sym.P.Direction = 45 * static_cast<std::int32_t>(rng() % 8);
            sym.P.Length = rng() % 2 ? 12 : 20;
            v.push_back(sym);
        }
        return v;
    }();
    return s;
}

void BM_Symbols_Direct(benchmark::State& state)
{
    TBitmap screen(1920, 1080);
    TCanvas& c = screen.Canvas();
    for (auto _ : state) {
        for (const Symbol& s : Symbols())
            DrawLandMarkSymbolOnCanvas(c, s.X, s.Y, s.P.Kind, s.P.FGColor, s.P.BGColor, s.P.Size, s.P.Direction,
                                       s.P.Length, s.P.Transparent);
        benchmark::DoNotOptimize(screen.ScanLine(0));
    }
    state.SetItemsProcessed(state.iterations() * static_cast<long>(Symbols().size()));
}

void BM_Symbols_SpriteCache(benchmark::State& state)
{
    TBitmap screen(1920, 1080);
    TCanvas& c = screen.Canvas();
    TSymbolSpriteCache cache;
    for (const Symbol& s : Symbols())  // the first paint fills the cache
        cache.Draw(c, s.X, s.Y, s.P);
    for (auto _ : state) {
        for (const Symbol& s : Symbols())
            cache.Draw(c, s.X, s.Y, s.P);
        benchmark::DoNotOptimize(screen.ScanLine(0));
    }
    state.counters["sprites"] = static_cast<double>(cache.SpriteCount());
    state.SetItemsProcessed(state.iterations() * static_cast<long>(Symbols().size()));
}

void BM_Symbols_SpriteCacheCold(benchmark::State& state)
{
    TBitmap screen(1920, 1080);
    TCanvas& c = screen.Canvas();
    for (auto _ : state) {
        TSymbolSpriteCache cache;
        for (const Symbol& s : Symbols())
            cache.Draw(c, s.X, s.Y, s.P);
        benchmark::DoNotOptimize(screen.ScanLine(0));
    }
    state.SetItemsProcessed(state.iterations() * static_cast<long>(Symbols().size()));
}

// 40..52 N, 5..21 E every 0.1°: 119 parallels and 159 meridians, each labelled twice.
void BM_EmptyMap_4000x3000(benchmark::State& state)
{
    TEmptyMapRequest r;
    r.LatMin = 40;
    r.LatMax = 52;
    r.LongMin = 5;
    r.LongMax = 21;
    r.LatGratDist = 0.1;
    r.LongGratDist = 0.1;
    r.Width = 4000;
    r.Height = 3000;
    TBitmap map;
    TCalibData cal;
    for (auto _ : state) {
        GenerateEmptyMap(r, map, cal);
        benchmark::DoNotOptimize(map.ScanLine(0));
    }
}

BENCHMARK(BM_Symbols_Direct)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Symbols_SpriteCache)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Symbols_SpriteCacheCold)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EmptyMap_4000x3000)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) { return RunQtBenchmarks(argc, argv); }
