// Geocentric conversion and the Helmert datum shift: documented values, the deliberate longitude folding
// and first-order backward step, status precedence, and cross-checks against GeographicLib's Geocentric
// and PROJ's cart -> helmert -> inverse cart pipeline.
#include "geobasics/datums.h"
#include "geobasics/geocentric.h"

#include <GeographicLib/Geocentric.hpp>
#include <gtest/gtest.h>
#include <proj.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>

namespace {

using namespace qv;

constexpr double Pi = 3.141592653589793;
constexpr double Deg = Pi / 180.0;

// Length on the ground of a latitude/longitude difference (metres, spherical approximation).
double GroundDist(double lat1, double lon1, double lat2, double lon2)
{
    return std::hypot((lat2 - lat1) * 111320.0, (lon2 - lon1) * 111320.0 * std::cos(lat1 * Deg));
}

// ---------------------------------------------------------------------------------------------------------
// Geocentric

TEST(GeoToCartesian, DocumentedPoints)
{
    double X, Y, Z;
    GeoToCartesian(0.0, 0.0, 0.0, gelWGS84, X, Y, Z);
    EXPECT_EQ(X, 6378137.0);
    EXPECT_EQ(Y, 0.0);
    EXPECT_EQ(Z, 0.0);
    GeoToCartesian(90.0, 0.0, 0.0, gelWGS84, X, Y, Z);
    EXPECT_NEAR(Z, 6356752.314245, 1e-6);  // metres
    EXPECT_NEAR(X, 0.0, 1e-6);
    GeoToCartesian(0.0, 90.0, 100.0, gelWGS84, X, Y, Z);
    EXPECT_NEAR(X, 0.0, 1e-6);
    EXPECT_NEAR(Y, 6378237.0, 1e-6);
}

class GeocentricAgainstGeographicLib : public ::testing::TestWithParam<TGeoEllipsoid> {};

TEST_P(GeocentricAgainstGeographicLib, ForwardAndInverse)
{
    const TGeoEllipsoid ell = GetParam();
    const GeographicLib::Geocentric ref(GeoEllipsoidData[ell].a, 1.0 / RecipFlattening(ell));
    double worstF = 0.0, worstI = 0.0, worstH = 0.0;
    for (double lat = -89.0; lat <= 89.0; lat += 1.7) {
        for (double lon = -89.5; lon <= 89.5; lon += 3.1) {
            for (double h : {-11000.0, -100.0, 0.0, 850.0, 8848.0, 40000.0}) {
                double X, Y, Z, gX, gY, gZ;
                GeoToCartesian(lat, lon, h, ell, X, Y, Z);
                ref.Forward(lat, lon, h, gX, gY, gZ);
                worstF = std::max(worstF, std::hypot(X - gX, Y - gY, Z - gZ));
                double rlat, rlon, rh;
                CartesianToGeo(gX, gY, gZ, ell, rlat, rlon, rh);
                worstI = std::max(worstI, GroundDist(lat, lon, rlat, rlon));
                worstH = std::max(worstH, std::fabs(rh - h));
            }
        }
    }
    EXPECT_LT(worstF, 1e-6);  // metres: both sides are the same closed form up to rounding
    EXPECT_LT(worstI, 1e-5);  // metres on the ground: Bowring's closed form, no iteration
    EXPECT_LT(worstH, 1e-5);  // metres
}

INSTANTIATE_TEST_SUITE_P(Ellipsoids, GeocentricAgainstGeographicLib,
                         ::testing::Values(gelWGS84, gelBess41, gelClrk80, gelInt24, gelKrass40, gelAiry30,
                                           gelEver30, gelPZ90));

TEST(CartesianToGeo, LongitudeIsFoldedIntoPlusMinus90)
{
    struct Case {
        double lon, folded;
    };
    const Case cases[] = {{120.0, -60.0}, {-120.0, 60.0}, {179.0, -1.0}, {91.0, -89.0}, {45.0, 45.0}, {-89.0, -89.0}};
    for (const Case& c : cases) {
        double X, Y, Z, lat, lon, h;
        GeoToCartesian(30.0, c.lon, 10.0, gelWGS84, X, Y, Z);
        CartesianToGeo(X, Y, Z, gelWGS84, lat, lon, h);
        EXPECT_NEAR(lon, c.folded, 1e-9) << c.lon;
        EXPECT_NEAR(lat, 30.0, 1e-9) << c.lon;  // latitude and height do not depend on the folding
        EXPECT_NEAR(h, 10.0, 1e-4) << c.lon;
    }
}

// ---------------------------------------------------------------------------------------------------------
// Datum table

TEST(DatumTable, NumberingAndShape)
{
    EXPECT_EQ(GeoDatum(0), nullptr);
    EXPECT_EQ(GeoDatum(272), nullptr);
    EXPECT_EQ(GeoDatum(-1), nullptr);
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
    }
    EXPECT_EQ(GeoDatum(1)->Name, "ACCRA");
    EXPECT_EQ(GeoDatum(271)->Name, "ZANDERIJ");
    EXPECT_EQ(GeoDatum(216)->Name, "QORNOQ ");
    EXPECT_EQ(GeoDatum(218)->Name, "REUNION ");
    EXPECT_EQ(GeoDatum(270)->Name, "YACARE ");
    EXPECT_EQ(GeoDatum(4)->Region, "Ethiopa");
    EXPECT_EQ(GeoDatum(138)->Region, "Morroco");
    EXPECT_EQ(GeoDatum(136)->Region, "Philipines");
    EXPECT_EQ(GeoDatum(246)->Region, "Czechoslavakia");
    EXPECT_EQ(GeoDatum(67)->Region, "Spain (except NW),");
    EXPECT_EQ(GeoDatum(132)->Name, "LISBON (Castelo di Sao Jorge), D7");
}

struct DatumRow {
    int number;
    TGeoEllipsoid ellipsoid;
    double dX, dY, dZ, scale, rX, rY, rZ;
};

// Documented full rows, and three-parameter rows checked against the published standard values.
const DatumRow DatumRows[] = {
    {1, gelWarOffice, -199, 32, 322, 0, 0, 0, 0},
    {13, gelBess41, 565, 49.9, 465.8, 4.08, -0.409, 0.36, -1.869},
    {33, gelClrk80IGN, -465.05, 440.83, 41.4, 15.289, -3.88771, -11.3482, -27.4139},
    {52, gelHongKong63, -104.24, -16.713, 843.593, -60.095, 0.90497, 0.64131, 3.01174},
    {101, gelBess41, 577.326, 90.129, 463.919, 2.4232, 5.1366, 1.4742, 5.297},
    {183, gelAiry30, 446.448, -125.157, 542.06, -20.49, 0.15, 0.247, 0.8421},
    {215, gelInt24, -119.425, -303.6587, -11.00061, 3.65707, 1.1643, 0.17446, 1.096259},
    {212, gelKrass40, 21.58719, -97.541, -60.925, -4.6121, 1.01378, 0.58117, 0.2348},
    {238, gelSGS85, 0, 0, 4, 0, 0, 0, 0.6},
    {268, gelWGS72, 0, 0, 4.5, 0.219, 0, 0, 0.554},
    {269, gelWGS84, 0, 0, 0, 0, 0, 0, 0},
    // three-parameter rows: NIMA TR 8350.2 values
    {30, gelAuNat65, -133, -48, 148, 0, 0, 0, 0},      // Australian Geodetic 1966
    {59, gelInt24, -87, -98, -121, 0, 0, 0, 0},        // European 1950, mean
    {167, gelClrk66, -8, 160, 176, 0, 0, 0, 0},        // North American 1927, CONUS
    {210, gelKrass40, 28, -130, -95, 0, 0, 0, 0},      // Pulkovo 1942, Russia
    {262, gelBess41, -148, 507, 685, 0, 0, 0, 0},      // Tokyo, Japan
    {142, gelClrk80, -92, -93, 122, 0, 0, 0, 0},       // Minna, Nigeria
    {104, gelInt24, -73, 46, -86, 0, 0, 0, 0},         // Hjorsey 1955
    {178, gelClrk80IGN, -168, -60, 320, 0, 0, 0, 0},   // NTF
    {49, gelBess41, 674.374, 15.056, 405.346, 0, 0, 0, 0},  // CH1903+
};

class DatumRowTable : public ::testing::TestWithParam<DatumRow> {};

TEST_P(DatumRowTable, Values)
{
    const DatumRow& r = GetParam();
    const TGeoDatum* d = GeoDatum(r.number);
    ASSERT_NE(d, nullptr);
    EXPECT_EQ(d->Ellipsoid, r.ellipsoid);
    EXPECT_EQ(d->dX, r.dX);
    EXPECT_EQ(d->dY, r.dY);
    EXPECT_EQ(d->dZ, r.dZ);
    EXPECT_EQ(d->Scale, r.scale);
    EXPECT_EQ(d->rX, r.rX);
    EXPECT_EQ(d->rY, r.rY);
    EXPECT_EQ(d->rZ, r.rZ);
}

INSTANTIATE_TEST_SUITE_P(Rows, DatumRowTable, ::testing::ValuesIn(DatumRows));

TEST(DatumTable, OnlyTheDocumentedRowsCarryScaleOrRotation)
{
    const int seven[] = {13,  23,  24,  31,  33,  37,  44,  45,  51,  52,  62,  66,  67,  68,  75,  76,  77,
                         80,  83,  87,  92,  99,  101, 102, 108, 112, 119, 123, 124, 127, 130, 132, 134, 143,
                         144, 145, 179, 181, 183, 207, 211, 212, 214, 215, 217, 219, 235, 237, 238, 239, 250,
                         255, 257, 258, 259, 260, 261, 268};
    int count = 0;
    for (int n = 1; n <= NumGeoDatums; ++n) {
        const TGeoDatum* d = GeoDatum(n);
        const bool has = d->Scale != 0.0 || d->rX != 0.0 || d->rY != 0.0 || d->rZ != 0.0;
        const bool documented = std::find(std::begin(seven), std::end(seven), n) != std::end(seven);
        EXPECT_EQ(has, documented) << n;
        count += has;
    }
    EXPECT_EQ(count, int(std::size(seven)));
}

// ---------------------------------------------------------------------------------------------------------
// Helmert shift

TEST(Helmert, WGS84ToWGS84IsIdentity)
{
    double lat = 0, lon = 0, h = 0;
    EXPECT_EQ(HelmertTransform(269, 48.2, 16.3, 200.0, 269, lat, lon, h), 0);
    EXPECT_NEAR(lat, 48.2, 1e-11);
    EXPECT_NEAR(lon, 16.3, 1e-11);
    EXPECT_NEAR(h, 200.0, 1e-5);
}

struct StatusCase {
    int src;
    double lat, lon;
    int dst;
    int status;
};

const StatusCase StatusCases[] = {
    {0, 100.0, 200.0, 500, -4}, {0, 10.0, 10.0, 269, -1}, {269, 10.0, 10.0, 272, -2}, {0, 10.0, 10.0, 0, -2},
    {269, 90.5, 10.0, 269, -3}, {269, -90.5, 10.0, 269, -3}, {0, -91.0, 10.0, 0, -3}, {269, 10.0, 180.5, 269, -4},
    {269, 10.0, -180.5, 269, -4}, {269, 99.0, 181.0, 269, -4}, {269, 90.0, 180.0, 269, 0},
    {269, -90.0, -180.0, 269, 0}, {1, 0.0, 0.0, 271, 0},      {271, 5.8, -55.2, 1, 0},
    {272, 0.0, 0.0, 1, -1},     {269, std::nan(""), 0.0, 269, -3}, {269, 0.0, std::nan(""), 269, -4},
};

class HelmertStatus : public ::testing::TestWithParam<StatusCase> {};

TEST_P(HelmertStatus, Precedence)
{
    const StatusCase& c = GetParam();
    double lat = 1234.5, lon = 1234.5, h = 1234.5;
    EXPECT_EQ(HelmertTransform(c.src, c.lat, c.lon, 0.0, c.dst, lat, lon, h), c.status);
    const bool tableOk = GeoDatum(c.src) && GeoDatum(c.dst);
    if (!tableOk) {
        // Nothing computed without both datums: outputs untouched.
        EXPECT_EQ(lat, 1234.5);
        EXPECT_EQ(lon, 1234.5);
        EXPECT_EQ(h, 1234.5);
    }
}

INSTANTIATE_TEST_SUITE_P(Cases, HelmertStatus, ::testing::ValuesIn(StatusCases));

TEST(Helmert, LongitudeBeyond90IsFolded)
{
    double lat, lon, h;
    EXPECT_EQ(HelmertTransform(59, 40.0, 120.0, 0.0, 269, lat, lon, h), 0);
    EXPECT_NEAR(lon, -60.0, 0.01);
    EXPECT_NEAR(lat, 40.0, 0.01);
}

TEST(Helmert, SameDatumRoundTrip)
{
    // Translation-only datums come back to the input up to rounding and Bowring's closed form; datums with
    // scale and rotation only to first order (micrometres to centimetres, never exactly).
    for (int n = 1; n <= NumGeoDatums; ++n) {
        const TGeoDatum* d = GeoDatum(n);
        if (d->Ellipsoid == gelSphere || d->Ellipsoid == gelAuthSph)
            continue;
        double lat, lon, h;
        ASSERT_EQ(HelmertTransform(n, 47.0, 11.0, 500.0, n, lat, lon, h), 0);
        const double dist = std::hypot(GroundDist(47.0, 11.0, lat, lon), h - 500.0);
        const bool seven = d->Scale != 0.0 || d->rX != 0.0 || d->rY != 0.0 || d->rZ != 0.0;
        if (seven) {
            EXPECT_LT(dist, 0.25) << n;
            EXPECT_GT(dist, 1e-7) << n;
        } else {
            EXPECT_LT(dist, 1e-4) << n;
        }
    }
}

TEST(Helmert, KnownShiftOSGB36)
{
    // Around London, OSGB 1936 coordinates and WGS 84 coordinates of the same point differ by roughly
    // 100 m; a wrong sign of a translation or of the rotation convention moves it by kilometres.
    double lat, lon, h;
    EXPECT_EQ(HelmertTransform(183, 51.4778, -0.0014, 0.0, 269, lat, lon, h), 0);
    EXPECT_GT(GroundDist(51.4778, -0.0014, lat, lon), 50.0);
    EXPECT_LT(GroundDist(51.4778, -0.0014, lat, lon), 150.0);
}

// The forward step into WGS 84 against PROJ's position-vector Helmert between the two ellipsoids.
struct ProjDeleter {
    void operator()(PJ* p) const { proj_destroy(p); }
};

std::string Num(double v)
{
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.17g", v);
    return buf;
}

TEST(Helmert, ForwardStepAgreesWithProj)
{
    int compared = 0;
    for (int n = 1; n <= NumGeoDatums; ++n) {
        const TGeoDatum* d = GeoDatum(n);
        const TEllipsoidAxes src = GeoEllipsoidData[d->Ellipsoid];
        const TEllipsoidAxes w = GeoEllipsoidData[gelWGS84];
        const std::string def = "+proj=pipeline +step +proj=cart +a=" + Num(src.a) + " +b=" + Num(src.b) +
                                " +step +proj=helmert +x=" + Num(d->dX) + " +y=" + Num(d->dY) + " +z=" +
                                Num(d->dZ) + " +rx=" + Num(d->rX) + " +ry=" + Num(d->rY) + " +rz=" + Num(d->rZ) +
                                " +s=" + Num(d->Scale) + " +convention=position_vector" +
                                " +step +inv +proj=cart +a=" + Num(w.a) + " +b=" + Num(w.b);
        std::unique_ptr<PJ, ProjDeleter> P(proj_create(PJ_DEFAULT_CTX, def.c_str()));
        ASSERT_TRUE(P) << def;
        for (double lat : {-60.0, -12.5, 0.0, 33.3, 51.5, 70.0}) {
            for (double lon : {-85.0, -20.0, 0.0, 16.3, 77.7}) {
                const double h = 250.0;
                double rlat, rlon, rh;
                ASSERT_EQ(HelmertTransform(n, lat, lon, h, 269, rlat, rlon, rh), 0);
                const PJ_COORD out = proj_trans(P.get(), PJ_FWD, proj_coord(lon * Deg, lat * Deg, h, 0));
                const double plat = out.lpz.phi / Deg, plon = out.lpz.lam / Deg;
                ASSERT_LT(GroundDist(plat, plon, rlat, rlon), 1e-4) << n << " " << lat << " " << lon;  // 0.1 mm
                ASSERT_NEAR(rh, out.lpz.z, 1e-4) << n;
                ++compared;
            }
        }
    }
    EXPECT_EQ(compared, 271 * 30);
}


// The backward step out of WGS 84 is the target datum's Helmert with every parameter negated (a first-order
// inverse), which PROJ's forward Helmert reproduces exactly when given the negated parameters. Checked
// here for a whole shift between two datums with rotations: the source's forward, then the target's
// negated parameters.
TEST(Helmert, TwoDatumShiftAgreesWithProjPipeline)
{
    struct Pair {
        int src, dst;
    };
    const Pair pairs[] = {{183, 101}, {101, 183}, {269, 44}, {13, 217}, {52, 75}, {92, 269}, {167, 59}, {1, 130}};
    for (const Pair& pr : pairs) {
        const TGeoDatum* s = GeoDatum(pr.src);
        const TGeoDatum* d = GeoDatum(pr.dst);
        const TEllipsoidAxes se = GeoEllipsoidData[s->Ellipsoid];
        const TEllipsoidAxes de = GeoEllipsoidData[d->Ellipsoid];
        const std::string def =
            "+proj=pipeline +step +proj=cart +a=" + Num(se.a) + " +b=" + Num(se.b) +
            " +step +proj=helmert +x=" + Num(s->dX) + " +y=" + Num(s->dY) + " +z=" + Num(s->dZ) + " +rx=" +
            Num(s->rX) + " +ry=" + Num(s->rY) + " +rz=" + Num(s->rZ) + " +s=" + Num(s->Scale) +
            " +convention=position_vector" + " +step +proj=helmert +x=" + Num(-d->dX) + " +y=" + Num(-d->dY) +
            " +z=" + Num(-d->dZ) + " +rx=" + Num(-d->rX) + " +ry=" + Num(-d->rY) + " +rz=" + Num(-d->rZ) +
            " +s=" + Num(-d->Scale) + " +convention=position_vector" + " +step +inv +proj=cart +a=" + Num(de.a) +
            " +b=" + Num(de.b);
        std::unique_ptr<PJ, ProjDeleter> P(proj_create(PJ_DEFAULT_CTX, def.c_str()));
        ASSERT_TRUE(P) << def;
        for (double lat : {-45.0, 0.5, 35.0, 50.0, 64.0}) {
            for (double lon : {-70.0, 0.0, 5.5, 15.0, 33.0}) {
                double rlat, rlon, rh;
                ASSERT_EQ(HelmertTransform(pr.src, lat, lon, 100.0, pr.dst, rlat, rlon, rh), 0);
                const PJ_COORD out = proj_trans(P.get(), PJ_FWD, proj_coord(lon * Deg, lat * Deg, 100.0, 0));
                EXPECT_LT(GroundDist(out.lpz.phi / Deg, out.lpz.lam / Deg, rlat, rlon), 1e-4)
                    << pr.src << "->" << pr.dst << " " << lat << " " << lon;  // 0.1 mm
                EXPECT_NEAR(rh, out.lpz.z, 1e-4) << pr.src << "->" << pr.dst;
            }
        }
    }
}

}  // namespace
