// The atlas with 200 registered maps, all covering one place at resolutions from 10 to 2000 metres per
// pixel: ZoomIn's scan of the 200 definitions when no map is finer (nothing is loaded), and a ZoomIn that
// switches maps (scan, calibration file read, 300 x 200 BMP image loaded, place centred, one paint).
// The same choice without a widget: a TMapCatalogue of the same 200 files, when nothing qualifies and
// when a map does.
#include "qt_main.h"

#include <qvgeo/geoatlas/geo_atlas.h>
#include <qvgeo/geomap/calibration_file.h>
#include <qvgeo/geomap/map_catalogue.h>
#include <qvgeo/platform/bitmap.h>
#include <qvgeo/support/text.h>

#include <benchmark/benchmark.h>

#include <QApplication>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include <unistd.h>

namespace {

using namespace qv;
namespace fs = std::filesystem;

constexpr double kLat = 48.2, kLon = 16.4;

struct TAtlasFixture {
    fs::path Dir = fs::temp_directory_path() / ("qvgeo_bench_atlas_" + std::to_string(::getpid()));
    std::unique_ptr<TGeoAtlas> Atlas;
    TMapCatalogue Catalogue;

    TAtlasFixture()
    {
        fs::create_directories(Dir);
        TEmptyMapRequest r;
        r.LatMin = 47, r.LongMin = 15, r.LatMax = 49, r.LongMax = 18, r.Width = 300, r.Height = 200;
        const TEmptyMapFiles f = WriteEmptyMapFiles((Dir / "base").string(), r);
        TCalibData base;
        TCalibModel model = cmUndefined;
        ParseCalibData(f.CalibFile, "", base, model);
        Atlas = std::make_unique<TGeoAtlas>();
        Atlas->show();
        // Every map is the same picture under its own calibration file and resolution, so that a switch
        // reads a calibration and an image like any other.
        for (int i = 1; i <= MaxAtlasMaps; ++i) {
            TCalibData cal = base;
            cal.Resolution = 10.0 * i;
            cal.Caption = "map " + std::to_string(i);
            cal.MapFName = StripPath(f.ImageFile);
            const fs::path name = Dir / ("m" + std::to_string(i) + ".xml");
            std::ofstream out(name, std::ios::trunc);
            WriteRawCalDataToOpenXMLFile(out, true, "m", cal, model);
            out.close();
            Atlas->RegisterMap(name.string());
            Catalogue.Register(name.string());
        }
    }
    ~TAtlasFixture()
    {
        Atlas.reset();
        fs::remove_all(Dir);
    }
};

std::unique_ptr<TAtlasFixture> fixture;

TAtlasFixture& TheFixture()
{
    if (!fixture)
        fixture = std::make_unique<TAtlasFixture>();
    return *fixture;
}

TGeoAtlas& TheAtlas() { return *TheFixture().Atlas; }

void BM_ZoomIn_NoFinerMap(benchmark::State& State)
{
    TGeoAtlas& a = TheAtlas();
    for (auto _ : State)
        benchmark::DoNotOptimize(a.ZoomIn(kLat, kLon, 10.0));
}
BENCHMARK(BM_ZoomIn_NoFinerMap);

// Alternates the starting resolution, so that every ZoomIn switches to another of the 200 maps.
void BM_ZoomIn_SwitchesMap(benchmark::State& State)
{
    TGeoAtlas& a = TheAtlas();
    bool odd = false;
    for (auto _ : State) {
        benchmark::DoNotOptimize(a.ZoomIn(kLat, kLon, odd ? 1000.0 : 2000.0));
        odd = !odd;
    }
    if (a.CurrentMap() != 89 && a.CurrentMap() != 179)
        State.SkipWithError("ZoomIn chose an unexpected map");
}
BENCHMARK(BM_ZoomIn_SwitchesMap)->Unit(benchmark::kMicrosecond);

void BM_Catalogue_NoFinerMap(benchmark::State& State)
{
    const TMapCatalogue& c = TheFixture().Catalogue;
    for (auto _ : State)
        benchmark::DoNotOptimize(c.ChooseFiner(kLat, kLon, 10.0));
}
BENCHMARK(BM_Catalogue_NoFinerMap);

void BM_Catalogue_ChooseFiner(benchmark::State& State)
{
    const TMapCatalogue& c = TheFixture().Catalogue;
    std::int32_t chosen = 0;
    for (auto _ : State) {
        chosen = c.ChooseFiner(kLat, kLon, 2000.0);
        benchmark::DoNotOptimize(chosen);
    }
    if (chosen != 179)
        State.SkipWithError("the catalogue chose an unexpected map");
}
BENCHMARK(BM_Catalogue_ChooseFiner);

}  // namespace

int main(int argc, char** argv)
{
    return RunQtBenchmarks(argc, argv, {}, [] { fixture.reset(); });
}
