// Geocentric conversion and the Helmert datum shift: documented values, the deliberate longitude folding
// and first-order backward step, status precedence, and cross-checks against GeographicLib's Geocentric
// and PROJ's cart -> helmert -> inverse cart pipeline.
#include <qvgeo/geobasics/datums.h>
#include <qvgeo/geobasics/geocentric.h>

#include <GeographicLib/Geocentric.hpp>
#include <gtest/gtest.h>
#include <proj.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <tuple>
#include <utility>

namespace {

using namespace qv;

constexpr double Pi = 3.141592653589793;
constexpr double Deg = Pi / 180.0;

// Difference of two longitudes in degrees, across the antimeridian (179.9 and −179.9 are 0.2 apart).
double LonDiff(double a, double b) { return std::remainder(a - b, 360.0); }

// Length on the ground of a latitude/longitude difference (metres, spherical approximation).
double GroundDist(double lat1, double lon1, double lat2, double lon2)
{
    return std::hypot((lat2 - lat1) * 111320.0, LonDiff(lon2, lon1) * 111320.0 * std::cos(lat1 * Deg));
}

bool HasScaleOrRotation(const TGeoDatum& d) { return d.Scale != 0.0 || d.rX != 0.0 || d.rY != 0.0 || d.rZ != 0.0; }

// The folded longitude of the documented inverse: the true one moved by 180° into [−90°, 90°].
double Fold(double lon) { return lon > 90.0 ? lon - 180.0 : lon < -90.0 ? lon + 180.0 : lon; }

TEST(Geocentric, AgreesWithGeographicLibAllRound)
{
    for (TGeoEllipsoid ell : {gelWGS84, gelBess41, gelClrk80, gelInt24, gelKrass40, gelAiry30, gelEver30, gelPZ90}) {
        const GeographicLib::Geocentric ref(GeoEllipsoidData[ell].a, 1.0 / RecipFlattening(ell));
        for (double lat = -89.0; lat <= 89.0; lat += 1.7) {
            for (double lon = -179.5; lon <= 180.0; lon += 3.1) {
                for (double h : {-11000.0, -100.0, 0.0, 850.0, 8848.0, 40000.0}) {
                    double X, Y, Z, gX, gY, gZ, rlat, rlon, rh, flat, flon, fh;
                    GeoToCartesian(lat, lon, h, ell, X, Y, Z);
                    ref.Forward(lat, lon, h, gX, gY, gZ);
                    CartesianToGeoUnfolded(gX, gY, gZ, ell, rlat, rlon, rh);
                    CartesianToGeo(gX, gY, gZ, ell, flat, flon, fh);
                    // Metres. The forward is the same closed form on both sides, up to rounding; the inverse
                    // is Bowring's closed form, without iteration.
                    const double err[] = {std::hypot(X - gX, Y - gY, Z - gZ), GroundDist(lat, lon, rlat, rlon),
                                          std::fabs(rh - h)};
                    ASSERT_TRUE(err[0] < 1e-6 && err[1] < 1e-5 && err[2] < 1e-5)
                        << GeoEllipsoidId[ell] << " " << lat << " " << lon << " " << h << ": forward " << err[0]
                        << ", inverse " << err[1] << ", height " << err[2];
                    // The documented inverse differs in the longitude alone.
                    ASSERT_TRUE(flat == rlat && fh == rh && std::fabs(flon - Fold(rlon)) < 1e-9)
                        << GeoEllipsoidId[ell] << " " << lat << " " << lon << ": " << flon << " " << rlon;
                }
            }
        }
    }
}

std::string Num(double v)
{
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.17g", v);
    return buf;
}

using PJPtr = std::unique_ptr<PJ, decltype(&proj_destroy)>;

std::string ProjCart(TGeoEllipsoid e)
{
    return " +proj=cart +a=" + Num(GeoEllipsoidData[e].a) + " +b=" + Num(GeoEllipsoidData[e].b);
}

// PROJ's inverse cart at points all round the globe, on the polar axis and at the centre's side of the
// ellipsoid: 0.1 mm on the ground and in height.
TEST(CartesianToGeoUnfolded, AgreesWithProjInverseCart)
{
    for (TGeoEllipsoid ell : {gelWGS84, gelBess41, gelClrk66}) {
        const PJPtr P(proj_create(PJ_DEFAULT_CTX, ("+proj=pipeline +step +inv" + ProjCart(ell)).c_str()), proj_destroy);
        ASSERT_TRUE(P);
        const double b = GeoEllipsoidData[ell].b;
        const double points[][3] = {{0, 0, b + 5}, {0, 0, -b + 100}, {-6.3e6, 1e3, 2e5},  {-6.3e6, -1e3, 2e5},
                                    {-1e3, 6.3e6, -5e5}, {-4e6, -4e6, 2.8e6}, {-6378137, 0, 0}, {-6378137, -0.0, 0}};
        for (const auto& q : points) {
            double lat, lon, h;
            CartesianToGeoUnfolded(q[0], q[1], q[2], ell, lat, lon, h);
            const PJ_COORD out = proj_trans(P.get(), PJ_FWD, proj_coord(q[0], q[1], q[2], 0));
            const double plat = out.lpz.phi / Deg, plon = out.lpz.lam / Deg;
            EXPECT_LT(GroundDist(plat, plon, lat, lon), 1e-4)
                << GeoEllipsoidId[ell] << " " << q[0] << " " << q[1] << " " << q[2] << ": " << lat << " " << lon;
            EXPECT_NEAR(h, out.lpz.z, 1e-4) << q[0] << " " << q[1] << " " << q[2];
            EXPECT_TRUE(lon >= -180.0 && lon <= 180.0) << lon;
        }
    }
}

TEST(DatumTable, NumberingAndShape)
{
    // Only these rows carry a scale or rotation.
    const int seven[] = {13,  23,  24,  31,  33,  37,  44,  45,  51,  52,  62,  66,  67,  68,  75,  76,  77,
                         80,  83,  87,  92,  99,  101, 102, 108, 112, 119, 123, 124, 127, 130, 132, 134, 143,
                         144, 145, 179, 181, 183, 207, 211, 212, 214, 215, 217, 219, 235, 237, 238, 239, 250,
                         255, 257, 258, 259, 260, 261, 268};
    for (int bad : {0, 272, -1})
        EXPECT_EQ(GeoDatum(bad), nullptr) << bad;
    for (int n = 1; n <= NumGeoDatums; ++n) {
        const TGeoDatum* d = GeoDatum(n);
        ASSERT_NE(d, nullptr);
        EXPECT_LE(d->Name.size(), 33u) << n;
        EXPECT_LE(d->Region.size(), 35u) << n;
        EXPECT_FALSE(d->Name.empty()) << n;
        EXPECT_LT(int(d->Ellipsoid), NumGeoEllipsoids) << n;
        // Every published shift to WGS 84 is under two kilometres per axis (the largest, Kusaie 1951,
        // reaches 1777 m); a misplaced decimal point would show here.
        EXPECT_LT(std::max({std::fabs(d->dX), std::fabs(d->dY), std::fabs(d->dZ)}), 2000.0) << n;
        EXPECT_EQ(HasScaleOrRotation(*d), std::find(std::begin(seven), std::end(seven), n) != std::end(seven)) << n;
    }
    // Spelled as catalogued, trailing blanks and misspellings included.
    const auto Name = &TGeoDatum::Name, Region = &TGeoDatum::Region;
    const std::tuple<int, std::string_view TGeoDatum::*, std::string_view> texts[] = {
        {1, Name, "ACCRA"},       {271, Name, "ZANDERIJ"},  {216, Name, "QORNOQ "},       {4, Region, "Ethiopa"},
        {67, Region, "Spain (except NW),"}, {132, Name, "LISBON (Castelo di Sao Jorge), D7"},
    };
    for (const auto& [n, field, text] : texts)
        EXPECT_EQ(GeoDatum(n)->*field, text) << n;
}

// Documented full rows, and three-parameter rows checked against the published standard values.
using Params = std::tuple<TGeoEllipsoid, double, double, double, double, double, double, double>;
const std::pair<int, Params> DatumRows[] = {
    {1, {gelWarOffice, -199, 32, 322, 0, 0, 0, 0}},
    {13, {gelBess41, 565, 49.9, 465.8, 4.08, -0.409, 0.36, -1.869}},
    {33, {gelClrk80IGN, -465.05, 440.83, 41.4, 15.289, -3.88771, -11.3482, -27.4139}},
    {52, {gelHongKong63, -104.24, -16.713, 843.593, -60.095, 0.90497, 0.64131, 3.01174}},
    {215, {gelInt24, -119.425, -303.6587, -11.00061, 3.65707, 1.1643, 0.17446, 1.096259}},
    {238, {gelSGS85, 0, 0, 4, 0, 0, 0, 0.6}},
    {269, {gelWGS84, 0, 0, 0, 0, 0, 0, 0}},
    // three-parameter rows, NIMA TR 8350.2 values: European 1950 mean, North American 1927 CONUS, Pulkovo
    // 1942 Russia, Tokyo Japan, CH1903+
    {59, {gelInt24, -87, -98, -121, 0, 0, 0, 0}},    {167, {gelClrk66, -8, 160, 176, 0, 0, 0, 0}},
    {210, {gelKrass40, 28, -130, -95, 0, 0, 0, 0}},  {262, {gelBess41, -148, 507, 685, 0, 0, 0, 0}},
    {49, {gelBess41, 674.374, 15.056, 405.346, 0, 0, 0, 0}},
};

TEST(DatumTable, DocumentedAndPublishedRows)
{
    for (const auto& [n, params] : DatumRows) {
        const TGeoDatum& d = *GeoDatum(n);
        EXPECT_EQ(Params(d.Ellipsoid, d.dX, d.dY, d.dZ, d.Scale, d.rX, d.rY, d.rZ), params) << n;
    }
}

TEST(Helmert, StatusPrecedence)
{
    const double NaN = std::nan("");
    const struct {
        int src;
        double lat, lon;
        int dst, status;
    } cases[] = {
        {0, 100.0, 200.0, 500, -4},  {0, 10.0, 10.0, 269, -1},    {269, 10.0, 10.0, 272, -2}, {0, 10.0, 10.0, 0, -2},
        {269, 90.5, 10.0, 269, -3},  {0, -91.0, 10.0, 0, -3},     {272, 0.0, 0.0, 1, -1},     {269, 10.0, 180.5, 269, -4},
        {269, 99.0, 181.0, 269, -4}, {269, NaN, 0, 269, -3},      {269, 0.0, NaN, 269, -4},   {269, 90.0, 180.0, 269, 0},
        {269, -90.0, -180.0, 269, 0}, {1, 0.0, 0.0, 271, 0},   {271, 5.8, -55.2, 1, 0},
    };
    for (const auto& c : cases) {
        double lat = 1234.5, lon = 1234.5, h = 1234.5;
        EXPECT_EQ(HelmertTransform(c.src, c.lat, c.lon, 0.0, c.dst, lat, lon, h), c.status)
            << c.src << " " << c.lat << " " << c.lon << " " << c.dst;
        // Nothing computed without both datums: outputs untouched.
        if (!GeoDatum(c.src) || !GeoDatum(c.dst)) {
            EXPECT_TRUE(lat == 1234.5 && lon == 1234.5 && h == 1234.5) << c.src << " " << c.dst;
        }
    }
}

// The whole shift as a PROJ pipeline: cart on the source ellipsoid, the source's position-vector Helmert,
// the target's with every parameter negated, inverse cart on the target ellipsoid. The backward step out of
// WGS 84 is that first-order inverse, which PROJ's forward Helmert reproduces exactly; for WGS 84 as the
// target the second Helmert is the identity. The unfolded companion must give PROJ's longitude, the
// documented shift that longitude folded.
void ExpectAgreesWithProj(int src, int dst, std::initializer_list<double> lats, std::initializer_list<double> lons,
                          double h)
{
    const TGeoDatum &s = *GeoDatum(src), &d = *GeoDatum(dst);
    auto helmert = [](const TGeoDatum& p, double sign) {
        return " +step +proj=helmert +x=" + Num(sign * p.dX) + " +y=" + Num(sign * p.dY) + " +z=" +
               Num(sign * p.dZ) + " +rx=" + Num(sign * p.rX) + " +ry=" + Num(sign * p.rY) + " +rz=" +
               Num(sign * p.rZ) + " +s=" + Num(sign * p.Scale) + " +convention=position_vector";
    };
    const std::string def = "+proj=pipeline +step" + ProjCart(s.Ellipsoid) + helmert(s, 1.0) + helmert(d, -1.0) +
                            " +step +inv" + ProjCart(d.Ellipsoid);
    const PJPtr P(proj_create(PJ_DEFAULT_CTX, def.c_str()), proj_destroy);
    ASSERT_TRUE(P) << def;
    for (double lat : lats) {
        for (double lon : lons) {
            double rlat, rlon, rh, flat, flon, fh;
            ASSERT_EQ(HelmertTransformUnfolded(src, lat, lon, h, dst, rlat, rlon, rh), 0);
            ASSERT_EQ(HelmertTransform(src, lat, lon, h, dst, flat, flon, fh), 0);
            const PJ_COORD out = proj_trans(P.get(), PJ_FWD, proj_coord(lon * Deg, lat * Deg, h, 0));
            const double plat = out.lpz.phi / Deg, plon = out.lpz.lam / Deg;
            // 0.1 mm on the ground and in height
            ASSERT_LT(GroundDist(plat, plon, rlat, rlon), 1e-4)
                << src << "->" << dst << " " << lat << " " << lon << ": " << rlon << " " << plon;
            ASSERT_NEAR(rh, out.lpz.z, 1e-4) << src << "->" << dst << " " << lat << " " << lon;
            ASSERT_TRUE(flat == rlat && fh == rh && std::fabs(LonDiff(flon, Fold(plon))) < 1e-9)
                << src << "->" << dst << " " << lat << " " << lon << ": " << flon << " " << plon;
        }
    }
}

// Every datum into WGS 84, then whole shifts between two datums, most of them with rotations, at
// longitudes all round the globe (the antimeridian and both sides of ±90° included).
TEST(Helmert, AgreesWithProjPipelineAllRound)
{
    for (int n = 1; n <= NumGeoDatums && !HasFailure(); ++n)
        ExpectAgreesWithProj(n, GeoDatumWGS84, {-60.0, -12.5, 0.0, 33.3, 51.5, 70.0},
                             {-180.0, -135.0, -90.5, -85.0, 0.0, 16.3, 89.9, 90.1, 120.0, 179.99, 180.0}, 250.0);
    const std::pair<int, int> pairs[] = {{183, 101}, {101, 183}, {269, 44}, {13, 217},
                                         {52, 75},   {92, 269},  {167, 59}, {1, 130}};
    for (const auto& [src, dst] : pairs)
        ExpectAgreesWithProj(src, dst, {-45.0, 0.5, 35.0, 50.0, 64.0}, {-179.5, -100.0, -70.0, 0.0, 15.0, 95.0, 150.0},
                             100.0);
}

}  // namespace
