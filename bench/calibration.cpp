// Calibration hot paths: fitting each model from 200 quads (what every point edit under that model
// costs), the per-point transforms that rendering and the mouse read-out call, CalcPosition against the
// two separate calls, and the residual report with its leave-one-out refits.
#include <qvgeo/geobasics/transverse_mercator.h>
#include <qvgeo/geomap/calib_residuals.h>
#include <qvgeo/geomap/calibration.h>

#include <benchmark/benchmark.h>

#include <cmath>

namespace {

constexpr int kW = 2000, kH = 1500;

// 200 quads on a 20 x 10 grid of a 2000 x 1500 map around Vienna; UTM quads in zone 33 metres.
qv::TMapCalibration MakeMap(qv::TCalibModel model)
{
    qv::TMapCalibration cal;
    cal.SetImageSize(kW, kH);
    cal.SetCalibModel(model);
    cal.SetUTMZone(33);
    qv::TCalibData& d = cal.CalibData();
    d.NumCalQuads = 0;
    for (int i = 0; i < 20; ++i)
        for (int j = 0; j < 10; ++j) {
            const int x = 50 + 100 * i, y = 40 + 150 * j;
            qv::TCalQuad q{48.4 - 0.0002 * y + 0.000003 * x, 16.0 + 0.0003 * x + 0.000002 * y, x, y};
            if (model == qv::cmUTM)
                q = qv::TCalQuad{5360000.0 - 20.0 * y, 590000.0 + 20.0 * x, x, y};
            d.CalQuads[static_cast<std::size_t>(d.NumCalQuads++)] = q;
        }
    cal.RecalcCalibration();
    return cal;
}

qv::TMapCalibration MakeParabolic()
{
    qv::TMapCalibration cal;
    cal.SetImageSize(kW, kH);
    cal.SetCalibModel(qv::cmParabolicIp);
    for (int p = 0; p < 6; ++p)
        for (int k = 0; k < 10; ++k) {
            const int x = 200 * k;
            cal.AddCalibPoint(qv::gtlParallel, 48.4 - 0.05 * p, x,
                              100 + 250 * p + static_cast<int>(std::lround(0.00002 * (x - 1000) * (x - 1000))));
        }
    for (int m = 0; m < 8; ++m)
        for (int k = 0; k < 10; ++k) {
            const int y = 150 * k;
            cal.AddCalibPoint(qv::gtlMeridian, 16.0 + 0.08 * m, 100 + 250 * m + static_cast<int>(std::lround(0.00001 * (y - 750) * (y - 750))), y);
        }
    return cal;
}

void BM_Fit(benchmark::State& state)
{
    const auto model = static_cast<qv::TCalibModel>(state.range(0));
    qv::TMapCalibration cal = MakeMap(model);
    for (auto _ : state) {
        switch (model) {
        case qv::cmBiquadraticPn: cal.CalcBiquadraticCalibration(); break;
        case qv::cmConicConformal: cal.CalcConicCalibration(); break;
        case qv::cmMillerCylindrical: cal.CalcMillerCylCalibration(); break;
        default: cal.CalcEquiRectCalibration(); break;
        }
        benchmark::ClobberMemory();
    }
    state.SetLabel(std::string(qv::CalibModelKeywords[model]) + ", 200 quads");
}
BENCHMARK(BM_Fit)
    ->Arg(qv::cmEquiRect)
    ->Arg(qv::cmUTM)
    ->Arg(qv::cmBiquadraticPn)
    ->Arg(qv::cmMillerCylindrical)
    ->Arg(qv::cmConicConformal)
    ->Unit(benchmark::kMicrosecond);

// A true conic map (apex 3000 px above the sheet), the case the apex search is made for.
void BM_FitConicTrueCone(benchmark::State& state)
{
    qv::TMapCalibration cal;
    cal.SetImageSize(kW, kH);
    cal.SetCalibModel(qv::cmConicConformal);
    qv::TCalibData& d = cal.CalibData();
    const double ax = 930.0, ay = -3000.0;
    for (int i = 0; i < 20; ++i)
        for (int j = 0; j < 10; ++j) {
            const int x = 50 + 100 * i, y = 40 + 150 * j;
            const double r = std::hypot(x - ax, y - ay);
            d.CalQuads[static_cast<std::size_t>(d.NumCalQuads++)] =
                qv::TCalQuad{60.0 - 0.002 * r, 15.0 + 20.0 * std::atan((x - ax) / (y - ay)), x, y};
        }
    for (auto _ : state) {
        cal.CalcConicCalibration();
        benchmark::ClobberMemory();
    }
    state.SetLabel("conicconformal, 200 quads of a true cone");
}
BENCHMARK(BM_FitConicTrueCone)->Unit(benchmark::kMicrosecond);

void BM_RecalcGratMat(benchmark::State& state)
{
    qv::TMapCalibration cal = MakeParabolic();
    for (auto _ : state)
        benchmark::DoNotOptimize(cal.RecalcGratMat());
    state.SetLabel("6 parallels + 8 meridians, 10 points each");
}
BENCHMARK(BM_RecalcGratMat)->Unit(benchmark::kMicrosecond);

// What geotool calib show and an editor pay for the residuals of 200 quads, leave-one-out included.
void BM_Residuals(benchmark::State& state)
{
    const auto model = static_cast<qv::TCalibModel>(state.range(0));
    const qv::TMapCalibration cal = MakeMap(model);
    for (auto _ : state)
        benchmark::DoNotOptimize(qv::CalibResiduals(cal.CalibData(), cal.Fit(), kW, kH));
    state.SetLabel(std::string(qv::CalibModelKeywords[model]) + ", 200 quads, leave-one-out");
}
BENCHMARK(BM_Residuals)->Arg(qv::cmEquiRect)->Arg(qv::cmUTM)->Arg(qv::cmConicConformal)->Unit(benchmark::kMillisecond);

void BM_PixelToGeo(benchmark::State& state)
{
    const auto model = static_cast<qv::TCalibModel>(state.range(0));
    qv::TMapCalibration cal = model == qv::cmParabolicIp ? MakeParabolic() : MakeMap(model);
    std::int32_t x = 0, y = 0;
    for (auto _ : state) {
        bool v1 = false, v2 = false;
        benchmark::DoNotOptimize(cal.CalcLatitude(x, y, v1));
        benchmark::DoNotOptimize(cal.CalcLongitude(x, y, v2));
        x = (x + 37) % kW;
        y = (y + 23) % kH;
    }
    state.SetLabel(std::string(qv::CalibModelKeywords[model]) + ", latitude and longitude");
}

void BM_GeoToPixel(benchmark::State& state)
{
    const auto model = static_cast<qv::TCalibModel>(state.range(0));
    qv::TMapCalibration cal = model == qv::cmParabolicIp ? MakeParabolic() : MakeMap(model);
    double lat = 48.2, lon = 16.2;
    for (auto _ : state) {
        std::int32_t x = 0, y = 0;
        benchmark::DoNotOptimize(cal.CalcPixelCoords(lat, lon, x, y));
        lat = lat > 48.35 ? 48.15 : lat + 0.0013;
        lon = lon > 16.5 ? 16.1 : lon + 0.0017;
    }
    state.SetLabel(std::string(qv::CalibModelKeywords[model]));
}

// One conversion of a pixel to both coordinates against the two separate calls, on the same pixels.
// Under UTM the separate calls run the inverse projection twice; the ratio of the two benchmarks'
// times is what CalcPosition saves.
void BM_PositionTwoCalls(benchmark::State& state)
{
    const auto model = static_cast<qv::TCalibModel>(state.range(0));
    const qv::TMapCalibration cal = MakeMap(model);
    std::int32_t x = 0, y = 0;
    for (auto _ : state) {
        bool v1 = false, v2 = false;
        benchmark::DoNotOptimize(cal.CalcLatitude(x, y, v1));
        benchmark::DoNotOptimize(cal.CalcLongitude(x, y, v2));
        x = (x + 37) % kW;
        y = (y + 23) % kH;
    }
    state.SetLabel(std::string(qv::CalibModelKeywords[model]) + ", CalcLatitude + CalcLongitude");
}

void BM_PositionOnce(benchmark::State& state)
{
    const auto model = static_cast<qv::TCalibModel>(state.range(0));
    const qv::TMapCalibration cal = MakeMap(model);
    std::int32_t x = 0, y = 0;
    for (auto _ : state) {
        qv::TCoords c;
        benchmark::DoNotOptimize(cal.CalcPosition(qv::TPoint{x, y}, c));
        benchmark::DoNotOptimize(c);
        x = (x + 37) % kW;
        y = (y + 23) % kH;
    }
    state.SetLabel(std::string(qv::CalibModelKeywords[model]) + ", CalcPosition");
}
BENCHMARK(BM_PositionTwoCalls)->Arg(qv::cmUTM)->Arg(qv::cmConicConformal);
BENCHMARK(BM_PositionOnce)->Arg(qv::cmUTM)->Arg(qv::cmConicConformal);

#define ALL_MODELS                                                                                            \
    Arg(qv::cmParabolicIp)->Arg(qv::cmBiquadraticPn)->Arg(qv::cmConicConformal)->Arg(qv::cmMillerCylindrical) \
        ->Arg(qv::cmEquiRect)->Arg(qv::cmUTM)
BENCHMARK(BM_PixelToGeo)->ALL_MODELS;
BENCHMARK(BM_GeoToPixel)->ALL_MODELS;

}  // namespace

BENCHMARK_MAIN();
