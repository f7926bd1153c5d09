// Per-point cost of the projections, the geocentric conversion and the Helmert shift, with GeographicLib
// and PROJ doing the same work in the same binary. Every benchmark cycles through the same table of
// points so that branch prediction and caches treat all sides alike.
#include <qvgeo/geobasics/datums.h>
#include <qvgeo/geobasics/geocentric.h>
#include <qvgeo/geobasics/transverse_mercator.h>

#include <GeographicLib/Geocentric.hpp>
#include <GeographicLib/PolarStereographic.hpp>
#include <GeographicLib/TransverseMercator.hpp>
#include <benchmark/benchmark.h>
#include <proj.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

namespace {

constexpr double Pi = 3.141592653589793;
constexpr double Deg = Pi / 180.0;
constexpr std::size_t NumPoints = 4096;  // a power of two: the index wraps with a mask

struct Point {
    double a, b, c;
};

// Reproducible pseudo-random points; lat in [lat0, lat1], lon in [lon0, lon1], h in [0, 3000] m.
std::vector<Point> Points(double lat0, double lat1, double lon0, double lon1)
{
    std::vector<Point> p(NumPoints);
    std::uint64_t s = 0x9E3779B97F4A7C15ull;
    auto next = [&s] {
        s ^= s << 13;
        s ^= s >> 7;
        s ^= s << 17;
        return static_cast<double>(s >> 11) / 9007199254740992.0;
    };
    for (auto& q : p)
        q = {lat0 + (lat1 - lat0) * next(), lon0 + (lon1 - lon0) * next(), 3000.0 * next()};
    return p;
}

const std::vector<Point>& UTMGeo() { static const auto p = Points(-79.0, 83.0, 12.0, 18.0); return p; }
const std::vector<Point>& PolarGeo() { static const auto p = Points(84.0, 89.9, -180.0, 180.0); return p; }
const std::vector<Point>& WorldGeo() { static const auto p = Points(-85.0, 85.0, -89.0, 89.0); return p; }

// The zone-33 grid coordinates of UTMGeo, as input for the inverse benchmarks.
const std::vector<Point>& UTMGrid()
{
    static const auto p = [] {
        std::vector<Point> g;
        for (const Point& q : UTMGeo()) {
            int zone;
            double e, n;
            qv::LatLongToUTM(q.a, q.b, qv::gelWGS84, zone, e, n);
            g.push_back({e, n, q.a < 0.0 ? 1.0 : 0.0});
        }
        return g;
    }();
    return p;
}

struct ProjHandle {
    PJ* P;
    explicit ProjHandle(const std::string& def) : P(proj_create(PJ_DEFAULT_CTX, def.c_str()))
    {
        if (!P)
            std::fprintf(stderr, "PROJ rejected: %s\n", def.c_str());
    }
    ~ProjHandle() { proj_destroy(P); }
    ProjHandle(const ProjHandle&) = delete;
    ProjHandle& operator=(const ProjHandle&) = delete;
};

// --------------------------------------------------------------------------------------------------- UTM

void BM_qv_LatLongToUTM(benchmark::State& state)
{
    const auto& p = UTMGeo();
    std::size_t i = 0;
    for (auto _ : state) {
        const Point& q = p[i++ & (NumPoints - 1)];
        int zone;
        double e, n;
        qv::LatLongToUTM(q.a, q.b, qv::gelWGS84, zone, e, n);
        benchmark::DoNotOptimize(zone);
        benchmark::DoNotOptimize(e);
        benchmark::DoNotOptimize(n);
    }
}
BENCHMARK(BM_qv_LatLongToUTM);

void BM_GeographicLib_UTM_Forward(benchmark::State& state)
{
    const auto& p = UTMGeo();
    const auto& tm = GeographicLib::TransverseMercator::UTM();
    std::size_t i = 0;
    for (auto _ : state) {
        const Point& q = p[i++ & (NumPoints - 1)];
        double x, y;
        tm.Forward(15.0, q.a, q.b, x, y);
        benchmark::DoNotOptimize(x);
        benchmark::DoNotOptimize(y);
    }
}
BENCHMARK(BM_GeographicLib_UTM_Forward);

void BM_PROJ_utm_Forward(benchmark::State& state)
{
    const auto& p = UTMGeo();
    ProjHandle h("+proj=utm +zone=33 +ellps=WGS84");
    std::size_t i = 0;
    for (auto _ : state) {
        const Point& q = p[i++ & (NumPoints - 1)];
        const PJ_COORD c = proj_trans(h.P, PJ_FWD, proj_coord(q.b * Deg, q.a * Deg, 0, 0));
        benchmark::DoNotOptimize(c);
    }
}
BENCHMARK(BM_PROJ_utm_Forward);

void BM_qv_UTMToLatLong(benchmark::State& state)
{
    const auto& p = UTMGrid();
    std::size_t i = 0;
    for (auto _ : state) {
        const Point& q = p[i++ & (NumPoints - 1)];
        double lat, lon;
        qv::UTMToLatLong(q.a, q.b, 33, q.c != 0.0, qv::gelWGS84, lat, lon);
        benchmark::DoNotOptimize(lat);
        benchmark::DoNotOptimize(lon);
    }
}
BENCHMARK(BM_qv_UTMToLatLong);

void BM_GeographicLib_UTM_Reverse(benchmark::State& state)
{
    const auto& p = UTMGrid();
    const auto& tm = GeographicLib::TransverseMercator::UTM();
    std::size_t i = 0;
    for (auto _ : state) {
        const Point& q = p[i++ & (NumPoints - 1)];
        double lat, lon;
        tm.Reverse(15.0, q.a - 500000.0, q.c != 0.0 ? q.b - 10000000.0 : q.b, lat, lon);
        benchmark::DoNotOptimize(lat);
        benchmark::DoNotOptimize(lon);
    }
}
BENCHMARK(BM_GeographicLib_UTM_Reverse);

void BM_PROJ_utm_Inverse(benchmark::State& state)
{
    const auto& p = UTMGrid();
    ProjHandle north("+proj=utm +zone=33 +ellps=WGS84");
    ProjHandle south("+proj=utm +zone=33 +south +ellps=WGS84");
    std::size_t i = 0;
    for (auto _ : state) {
        const Point& q = p[i++ & (NumPoints - 1)];
        const PJ_COORD c = proj_trans(q.c != 0.0 ? south.P : north.P, PJ_INV, proj_coord(q.a, q.b, 0, 0));
        benchmark::DoNotOptimize(c);
    }
}
BENCHMARK(BM_PROJ_utm_Inverse);

// --------------------------------------------------------------------------------------------------- UPS

void BM_qv_LatLongToUPS(benchmark::State& state)
{
    const auto& p = PolarGeo();
    std::size_t i = 0;
    for (auto _ : state) {
        const Point& q = p[i++ & (NumPoints - 1)];
        double x, y;
        qv::LatLongToUPS(q.a, q.b, qv::gelWGS84, x, y);
        benchmark::DoNotOptimize(x);
        benchmark::DoNotOptimize(y);
    }
}
BENCHMARK(BM_qv_LatLongToUPS);

void BM_GeographicLib_UPS_Forward(benchmark::State& state)
{
    const auto& p = PolarGeo();
    const auto& ups = GeographicLib::PolarStereographic::UPS();
    std::size_t i = 0;
    for (auto _ : state) {
        const Point& q = p[i++ & (NumPoints - 1)];
        double x, y;
        ups.Forward(true, q.a, q.b, x, y);
        benchmark::DoNotOptimize(x);
        benchmark::DoNotOptimize(y);
    }
}
BENCHMARK(BM_GeographicLib_UPS_Forward);

void BM_PROJ_ups_Forward(benchmark::State& state)
{
    const auto& p = PolarGeo();
    ProjHandle h("+proj=ups +ellps=WGS84");
    std::size_t i = 0;
    for (auto _ : state) {
        const Point& q = p[i++ & (NumPoints - 1)];
        const PJ_COORD c = proj_trans(h.P, PJ_FWD, proj_coord(q.b * Deg, q.a * Deg, 0, 0));
        benchmark::DoNotOptimize(c);
    }
}
BENCHMARK(BM_PROJ_ups_Forward);

const std::vector<Point>& UPSGrid()
{
    static const auto p = [] {
        std::vector<Point> g;
        for (const Point& q : PolarGeo()) {
            double x, y;
            qv::LatLongToUPS(q.a, q.b, qv::gelWGS84, x, y);
            g.push_back({x, y, 0.0});
        }
        return g;
    }();
    return p;
}

void BM_qv_UPSToLatLong(benchmark::State& state)
{
    const auto& p = UPSGrid();
    std::size_t i = 0;
    for (auto _ : state) {
        const Point& q = p[i++ & (NumPoints - 1)];
        double lat, lon;
        qv::UPSToLatLong(q.a, q.b, false, qv::gelWGS84, lat, lon);
        benchmark::DoNotOptimize(lat);
        benchmark::DoNotOptimize(lon);
    }
}
BENCHMARK(BM_qv_UPSToLatLong);

void BM_GeographicLib_UPS_Reverse(benchmark::State& state)
{
    const auto& p = UPSGrid();
    const auto& ups = GeographicLib::PolarStereographic::UPS();
    std::size_t i = 0;
    for (auto _ : state) {
        const Point& q = p[i++ & (NumPoints - 1)];
        double lat, lon;
        ups.Reverse(true, q.a - 2000000.0, q.b - 2000000.0, lat, lon);
        benchmark::DoNotOptimize(lat);
        benchmark::DoNotOptimize(lon);
    }
}
BENCHMARK(BM_GeographicLib_UPS_Reverse);

void BM_PROJ_ups_Inverse(benchmark::State& state)
{
    const auto& p = UPSGrid();
    ProjHandle h("+proj=ups +ellps=WGS84");
    std::size_t i = 0;
    for (auto _ : state) {
        const Point& q = p[i++ & (NumPoints - 1)];
        const PJ_COORD c = proj_trans(h.P, PJ_INV, proj_coord(q.a, q.b, 0, 0));
        benchmark::DoNotOptimize(c);
    }
}
BENCHMARK(BM_PROJ_ups_Inverse);

// ------------------------------------------------------------------------------------------- geocentric

void BM_qv_GeoToCartesian(benchmark::State& state)
{
    const auto& p = WorldGeo();
    std::size_t i = 0;
    for (auto _ : state) {
        const Point& q = p[i++ & (NumPoints - 1)];
        double X, Y, Z;
        qv::GeoToCartesian(q.a, q.b, q.c, qv::gelWGS84, X, Y, Z);
        benchmark::DoNotOptimize(X);
        benchmark::DoNotOptimize(Y);
        benchmark::DoNotOptimize(Z);
    }
}
BENCHMARK(BM_qv_GeoToCartesian);

void BM_GeographicLib_Geocentric_Forward(benchmark::State& state)
{
    const auto& p = WorldGeo();
    const auto& g = GeographicLib::Geocentric::WGS84();
    std::size_t i = 0;
    for (auto _ : state) {
        const Point& q = p[i++ & (NumPoints - 1)];
        double X, Y, Z;
        g.Forward(q.a, q.b, q.c, X, Y, Z);
        benchmark::DoNotOptimize(X);
        benchmark::DoNotOptimize(Y);
        benchmark::DoNotOptimize(Z);
    }
}
BENCHMARK(BM_GeographicLib_Geocentric_Forward);

void BM_PROJ_cart_Forward(benchmark::State& state)
{
    const auto& p = WorldGeo();
    ProjHandle h("+proj=cart +ellps=WGS84");
    std::size_t i = 0;
    for (auto _ : state) {
        const Point& q = p[i++ & (NumPoints - 1)];
        const PJ_COORD c = proj_trans(h.P, PJ_FWD, proj_coord(q.b * Deg, q.a * Deg, q.c, 0));
        benchmark::DoNotOptimize(c);
    }
}
BENCHMARK(BM_PROJ_cart_Forward);

const std::vector<Point>& Cartesian()
{
    static const auto p = [] {
        std::vector<Point> g;
        for (const Point& q : WorldGeo()) {
            Point c;
            qv::GeoToCartesian(q.a, q.b, q.c, qv::gelWGS84, c.a, c.b, c.c);
            g.push_back(c);
        }
        return g;
    }();
    return p;
}

void BM_qv_CartesianToGeo(benchmark::State& state)
{
    const auto& p = Cartesian();
    std::size_t i = 0;
    for (auto _ : state) {
        const Point& q = p[i++ & (NumPoints - 1)];
        double lat, lon, h;
        qv::CartesianToGeo(q.a, q.b, q.c, qv::gelWGS84, lat, lon, h);
        benchmark::DoNotOptimize(lat);
        benchmark::DoNotOptimize(lon);
        benchmark::DoNotOptimize(h);
    }
}
BENCHMARK(BM_qv_CartesianToGeo);

void BM_GeographicLib_Geocentric_Reverse(benchmark::State& state)
{
    const auto& p = Cartesian();
    const auto& g = GeographicLib::Geocentric::WGS84();
    std::size_t i = 0;
    for (auto _ : state) {
        const Point& q = p[i++ & (NumPoints - 1)];
        double lat, lon, h;
        g.Reverse(q.a, q.b, q.c, lat, lon, h);
        benchmark::DoNotOptimize(lat);
        benchmark::DoNotOptimize(lon);
        benchmark::DoNotOptimize(h);
    }
}
BENCHMARK(BM_GeographicLib_Geocentric_Reverse);

void BM_PROJ_cart_Inverse(benchmark::State& state)
{
    const auto& p = Cartesian();
    ProjHandle h("+proj=cart +ellps=WGS84");
    std::size_t i = 0;
    for (auto _ : state) {
        const Point& q = p[i++ & (NumPoints - 1)];
        const PJ_COORD c = proj_trans(h.P, PJ_INV, proj_coord(q.a, q.b, q.c, 0));
        benchmark::DoNotOptimize(c);
    }
}
BENCHMARK(BM_PROJ_cart_Inverse);

// ---------------------------------------------------------------------------------------------- Helmert

// OSGB 1936 (datum 183, seven parameters, Airy ellipsoid) into WGS 84.
void BM_qv_HelmertTransform(benchmark::State& state)
{
    const auto& p = WorldGeo();
    std::size_t i = 0;
    for (auto _ : state) {
        const Point& q = p[i++ & (NumPoints - 1)];
        double lat, lon, h;
        const int status = qv::HelmertTransform(183, q.a, q.b, q.c, qv::GeoDatumWGS84, lat, lon, h);
        benchmark::DoNotOptimize(status);
        benchmark::DoNotOptimize(lat);
        benchmark::DoNotOptimize(lon);
        benchmark::DoNotOptimize(h);
    }
}
BENCHMARK(BM_qv_HelmertTransform);

void BM_PROJ_helmert_pipeline(benchmark::State& state)
{
    const auto& p = WorldGeo();
    ProjHandle h("+proj=pipeline +step +proj=cart +ellps=airy"
                 " +step +proj=helmert +x=446.448 +y=-125.157 +z=542.06 +rx=0.15 +ry=0.247 +rz=0.8421"
                 " +s=-20.49 +convention=position_vector +step +inv +proj=cart +ellps=WGS84");
    std::size_t i = 0;
    for (auto _ : state) {
        const Point& q = p[i++ & (NumPoints - 1)];
        const PJ_COORD c = proj_trans(h.P, PJ_FWD, proj_coord(q.b * Deg, q.a * Deg, q.c, 0));
        benchmark::DoNotOptimize(c);
    }
}
BENCHMARK(BM_PROJ_helmert_pipeline);

}  // namespace

BENCHMARK_MAIN();
