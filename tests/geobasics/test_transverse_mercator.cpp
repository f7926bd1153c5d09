// Transverse Mercator, UTM and UPS: documented values, zone rules, round trips, and cross-checks against
// GeographicLib's exact Transverse Mercator and its polar stereographic UPS.
#include "geobasics/transverse_mercator.h"

#include <GeographicLib/Ellipsoid.hpp>
#include <GeographicLib/PolarStereographic.hpp>
#include <GeographicLib/TransverseMercatorExact.hpp>
#include <GeographicLib/UTMUPS.hpp>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>

namespace {

using namespace qv;

constexpr double Pi = 3.141592653589793;
constexpr double Deg = Pi / 180.0;

bool SameBits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// ---------------------------------------------------------------------------------------------------------
// Zones and bands

struct ZoneCase {
    double lat, lon;
    int zone;
    char band;
};

const ZoneCase ZoneCases[] = {
    {84.0, 10.0, 33, 'X'},      {84.0001, 10.0, 0, ' '},   {-80.0, 0.0, 31, 'C'},     {-80.0001, 0.0, 0, ' '},
    {0.0, 180.0, 0, ' '},       {0.0, -180.0, 1, 'N'},     {60.0, 5.0, 32, 'V'},      {60.0, 2.0, 31, 'V'},
    {78.0, 8.99, 31, 'X'},      {78.0, 9.0, 33, 'X'},      {78.0, 41.9, 37, 'X'},     {78.0, 42.0, 38, 'X'},
    {47.5, 16.4, 33, 'T'},      {-0.0001, 0.0, 31, 'M'},   {0.0, 0.0, 31, 'N'},       {71.9999, 5.0, 31, 'W'},
    {72.0, 5.0, 31, 'X'},       {56.0, 3.0, 32, 'V'},      {56.0, 2.9999, 31, 'V'},   {63.9999, 11.9999, 32, 'V'},
    {64.0, 11.9999, 32, 'W'},   {55.9999, 5.0, 31, 'U'},   {-72.0, 0.0, 31, 'D'},     {-8.0, 100.0, 47, 'M'},
    {8.0, 100.0, 47, 'P'},      {-32.0001, 179.9999, 60, 'H'}, {-32.0, 179.9999, 60, 'J'}, {40.0, -0.0, 31, 'T'},
    {78.0, -0.0001, 30, 'X'},   {78.0, 0.0, 31, 'X'},      {78.0, 20.9999, 33, 'X'},  {78.0, 21.0, 35, 'X'},
    {78.0, 32.9999, 35, 'X'},   {78.0, 33.0, 37, 'X'},     {std::nan(""), 0.0, 0, ' '}, {0.0, std::nan(""), 0, ' '},
};

class ZoneTable : public ::testing::TestWithParam<ZoneCase> {};

TEST_P(ZoneTable, ZoneAndBand)
{
    const ZoneCase& c = GetParam();
    int zone = -1;
    char band = '?';
    GeoToUTMZone(c.lat, c.lon, zone, band);
    EXPECT_EQ(zone, c.zone) << c.lat << " " << c.lon;
    EXPECT_EQ(band, c.band) << c.lat << " " << c.lon;
    const std::string text = GeoToUTMZone(c.lat, c.lon);
    EXPECT_EQ(text, c.zone == 0 ? std::string() : std::to_string(c.zone) + c.band);
}

INSTANTIATE_TEST_SUITE_P(Edges, ZoneTable, ::testing::ValuesIn(ZoneCases));

// GeographicLib's standard zone applies the same Norway and Svalbard rules; it treats 84° as outside,
// where this grid keeps band X up to 84° inclusive, so the comparison stops short of it.
TEST(UTMZone, AgreesWithIndependentZoneRules)
{
    int compared = 0;
    for (double lat = -80.0; lat < 84.0; lat += 0.37) {
        for (double lon = -180.0; lon < 180.0; lon += 0.29) {
            int zone;
            char band;
            GeoToUTMZone(lat, lon, zone, band);
            ASSERT_EQ(zone, GeographicLib::UTMUPS::StandardZone(lat, lon)) << lat << " " << lon;
            ++compared;
        }
    }
    EXPECT_GT(compared, 500000);
}

TEST(UTMZone, BandsRunCtoXWithoutIandO)
{
    std::string bands;
    for (int lat = -80; lat < 84; lat += 8) {
        int zone;
        char band;
        GeoToUTMZone(lat + 0.5, 20.0, zone, band);
        bands.push_back(band);
    }
    EXPECT_EQ(bands, "CDEFGHJKLMNPQRSTUVWXX");  // the last step, 80°, still lies in the widened X
}

TEST(UTMCentralMeridian, Table)
{
    EXPECT_DOUBLE_EQ(UTMCentralMeridian(1), -177.0 * Deg);
    EXPECT_DOUBLE_EQ(UTMCentralMeridian(60), 177.0 * Deg);
    EXPECT_DOUBLE_EQ(UTMCentralMeridian(33), 15.0 * Deg);
    EXPECT_DOUBLE_EQ(UTMCentralMeridian(31), 3.0 * Deg);
    // The documented expression, bit for bit (the meridians are tabulated).
    for (int z = 1; z <= 60; ++z)
        EXPECT_TRUE(SameBits(UTMCentralMeridian(z), (6.0 * z - 183.0) * Pi / 180.0)) << z;
    for (int bad : {0, 61, -1, 1000, -2147483647})
        EXPECT_EQ(UTMCentralMeridian(bad), 0.0) << bad;
}

// ---------------------------------------------------------------------------------------------------------
// Documented points

TEST(UTM, Vienna)
{
    int zone;
    double e, n;
    LatLongToUTM(48.2, 16.3, gelWGS84, zone, e, n);
    EXPECT_EQ(zone, 33);
    EXPECT_NEAR(e, 596597.83, 0.005);  // metres, to the centimetre
    EXPECT_NEAR(n, 5339346.79, 0.005);
    double lat, lon;
    UTMToLatLong(e, n, zone, false, gelWGS84, lat, lon);
    EXPECT_NEAR(lat, 48.2, 1e-9);  // degrees
    EXPECT_NEAR(lon, 16.3, 1e-9);
}

TEST(UTM, EquatorAndFalseNorthing)
{
    int zone;
    double e, n;
    LatLongToUTM(0.0, 15.0, gelWGS84, zone, e, n);
    EXPECT_EQ(zone, 33);
    EXPECT_EQ(e, 500000.0);
    EXPECT_EQ(n, 0.0);
    LatLongToUTM(-1e-6, 15.0, gelWGS84, zone, e, n);
    EXPECT_LT(n, 10000000.0);
    EXPECT_GT(n, 10000000.0 - 0.2);  // 1e-6° is about 0.11 m
    double lat, lon;
    UTMToLatLong(e, n, zone, true, gelWGS84, lat, lon);
    EXPECT_NEAR(lat, -1e-6, 1e-12);
    EXPECT_NEAR(lon, 15.0, 1e-12);
}

TEST(UTM, OutsideTheGridProjectsAboutGreenwich)
{
    int zone = -1;
    double e, n, x, y;
    LatLongToUTM(85.0, 2.0, gelWGS84, zone, e, n);
    EXPECT_EQ(zone, 0);
    LatLongToTM(85.0 * Pi / 180.0, 2.0 * Pi / 180.0, 0.0, gelWGS84, x, y);
    EXPECT_EQ(e, x * 0.9996 + 500000.0);
    EXPECT_EQ(n, y * 0.9996);
    // An invalid zone in the inverse means the Greenwich meridian, without an error.
    double lat1, lon1, lat2, lon2;
    UTMToLatLong(510000.0, 5000000.0, 0, false, gelWGS84, lat1, lon1);
    UTMToLatLong(510000.0, 5000000.0, 99, false, gelWGS84, lat2, lon2);
    EXPECT_TRUE(SameBits(lat1, lat2) && SameBits(lon1, lon2));
    double phi, lambda;
    TMToLatLong(10000.0 / 0.9996, 5000000.0 / 0.9996, 0.0, gelWGS84, phi, lambda);
    EXPECT_TRUE(SameBits(lat1, phi * 180.0 / Pi) && SameBits(lon1, lambda * 180.0 / Pi));
}

TEST(ArcLengthOfMeridian, AgreesWithGeographicLib)
{
    // The series ends at n⁵; what is left is of the order a·n⁶ (below a nanometre on the Earth).
    for (TGeoEllipsoid ell : {gelWGS84, gelBess41, gelClrk80, gelInt24, gelAiry30, gelKrass40}) {
        const double a = GeoEllipsoidData[ell].a;
        const GeographicLib::Ellipsoid ref(a, 1.0 / RecipFlattening(ell));
        for (double lat = -90.0; lat <= 90.0; lat += 2.5)
            EXPECT_NEAR(ArcLengthOfMeridian(lat * Deg, ell), ref.MeridianDistance(lat), 1e-6)
                << GeoEllipsoidId[ell] << " " << lat;
    }
    // Published length of the WGS 84 quarter meridian: 10 001 965.729 m.
    EXPECT_NEAR(ArcLengthOfMeridian(Pi / 2.0, gelWGS84), 10001965.729, 0.0005);
    EXPECT_EQ(ArcLengthOfMeridian(0.0, gelWGS84), 0.0);
}

TEST(TransverseMercator, SphereMatchesClosedForm)
{
    // On a sphere the series is the Taylor expansion of x = R·artanh(cos φ sin l), y = R·atan(tan φ / cos l).
    const double R = GeoEllipsoidData[gelSphere].a;
    for (double lat = -80.0; lat <= 80.0; lat += 5.0) {
        for (double dl : {-2.0, -0.5, 0.0, 0.25, 1.0, 2.0}) {
            const double phi = lat * Deg, l = dl * Deg;
            double x, y;
            LatLongToTM(phi, l + 0.3, 0.3, gelSphere, x, y);
            EXPECT_NEAR(x, R * std::atanh(std::cos(phi) * std::sin(l)), 2e-5) << lat << " " << dl;
            EXPECT_NEAR(y, R * std::atan2(std::tan(phi), std::cos(l)), 2e-5) << lat << " " << dl;
        }
    }
}

// ---------------------------------------------------------------------------------------------------------
// Cross-check against the exact Transverse Mercator, with a tolerance that grows with the distance from
// the central meridian as the truncated series allows (figures measured, then given a margin of 2-3).

struct Tolerance {
    double maxDLon;  // degrees from the central meridian
    double forward;  // metres on the grid
    double inverse;  // metres on the grid, after projecting the result exactly
};

const Tolerance Tolerances[] = {{1.0, 2e-7, 1e-6}, {3.0, 4e-5, 1.2e-5}, {4.0, 2e-4, 6e-5}, {6.3, 2.5e-3, 1.2e-3}};

const Tolerance& ToleranceAt(double dlon)
{
    for (const Tolerance& t : Tolerances)
        if (std::fabs(dlon) <= t.maxDLon)
            return t;
    return Tolerances[std::size(Tolerances) - 1];
}

class UTMAgainstExact : public ::testing::TestWithParam<TGeoEllipsoid> {};

TEST_P(UTMAgainstExact, ForwardAndInverseGrid)
{
    const TGeoEllipsoid ell = GetParam();
    const GeographicLib::TransverseMercatorExact exact(GeoEllipsoidData[ell].a, 1.0 / RecipFlattening(ell),
                                                       UTMScaleFactor);
    int points = 0;
    // Every zone, both hemispheres, the widened Norway and Svalbard zones.
    for (double lat = -80.0; lat <= 84.0; lat += 1.31) {
        for (double lon = -180.0; lon < 180.0; lon += 0.73) {
            int zone;
            double e, n;
            LatLongToUTM(lat, lon, ell, zone, e, n);
            ASSERT_GE(zone, 1);
            const double lon0 = 6.0 * zone - 183.0;
            const Tolerance& tol = ToleranceAt(lon - lon0);
            double gx, gy;
            exact.Forward(lon0, lat, lon, gx, gy);
            const bool south = gy < 0.0;
            const double ge = gx + 500000.0, gn = south ? gy + 10000000.0 : gy;
            ASSERT_LE(std::hypot(e - ge, n - gn), tol.forward) << lat << " " << lon;

            double rlat, rlon, hx, hy;
            UTMToLatLong(ge, gn, zone, south, ell, rlat, rlon);
            exact.Forward(lon0, rlat, rlon, hx, hy);
            ASSERT_LE(std::hypot(hx - gx, hy - gy), tol.inverse) << lat << " " << lon;
            ++points;
        }
    }
    EXPECT_GT(points, 60000);
}

INSTANTIATE_TEST_SUITE_P(Ellipsoids, UTMAgainstExact, ::testing::Values(gelWGS84, gelInt24, gelBess41, gelClrk66));

TEST(UTM, RoundTripInsideZones)
{
    double worst = 0.0;  // metres on the ground, roughly
    for (double lat = -80.0; lat <= 84.0; lat += 0.61) {
        for (double lon = -180.0; lon < 180.0; lon += 0.53) {
            int zone;
            double e, n, rlat, rlon;
            LatLongToUTM(lat, lon, gelWGS84, zone, e, n);
            UTMToLatLong(e, n, zone, lat < 0.0, gelWGS84, rlat, rlon);
            const double d = std::hypot((rlat - lat) * 111320.0, (rlon - lon) * 111320.0 * std::cos(lat * Deg));
            worst = std::max(worst, d);
        }
    }
    // Zones span at most 6.1° about their meridian (Svalbard); the round trip stays well under 1 mm.
    EXPECT_LT(worst, 1e-3);
}

// ---------------------------------------------------------------------------------------------------------
// Per-ellipsoid constants are cached; every result must equal the formula evaluated from scratch.

namespace direct {

void TM(double phi, double lambda, double lambda0, TGeoEllipsoid ell, double& X, double& Y)
{
    const double a = GeoEllipsoidData[ell].a, b = GeoEllipsoidData[ell].b;
    const double ep2 = (a * a - b * b) / (b * b);
    const double n = (a - b) / (a + b);
    const double alpha = ((a + b) / 2.0) * (1.0 + std::pow(n, 2.0) / 4.0 + std::pow(n, 4.0) / 64.0);
    const double beta = -3.0 * n / 2.0 + 9.0 * std::pow(n, 3.0) / 16.0 - 3.0 * std::pow(n, 5.0) / 32.0;
    const double gamma = 15.0 * std::pow(n, 2.0) / 16.0 - 15.0 * std::pow(n, 4.0) / 32.0;
    const double delta = -35.0 * std::pow(n, 3.0) / 48.0 + 105.0 * std::pow(n, 5.0) / 256.0;
    const double epsilon = 315.0 * std::pow(n, 4.0) / 512.0;
    const double arc = alpha * (phi + beta * std::sin(2.0 * phi) + gamma * std::sin(4.0 * phi) +
                                delta * std::sin(6.0 * phi) + epsilon * std::sin(8.0 * phi));
    const double c = std::cos(phi);
    const double nu2 = ep2 * (c * c);
    const double N = a * a / (b * std::sqrt(1.0 + nu2));
    const double t = std::tan(phi), t2 = t * t;
    const double l = lambda - lambda0;
    const double l3 = 1.0 - t2 + nu2;
    const double l4 = 5.0 - t2 + 9.0 * nu2 + 4.0 * (nu2 * nu2);
    const double l5 = 5.0 - 18.0 * t2 + t2 * t2 + 14.0 * nu2 - 58.0 * t2 * nu2;
    const double l6 = 61.0 - 58.0 * t2 + t2 * t2 + 270.0 * nu2 - 330.0 * t2 * nu2;
    const double l7 = 61.0 - 479.0 * t2 + 179.0 * (t2 * t2) - t2 * t2 * t2;
    const double l8 = 1385.0 - 3111.0 * t2 + 543.0 * (t2 * t2) - t2 * t2 * t2;
    auto p = [](double v, int k) {
        double r = v;
        for (int i = 1; i < k; ++i)
            r = r * v;
        return r;
    };
    X = N * c * l + (N / 6.0) * p(c, 3) * l3 * p(l, 3) + (N / 120.0) * p(c, 5) * l5 * p(l, 5) +
        (N / 5040.0) * p(c, 7) * l7 * p(l, 7);
    Y = arc + (t / 2.0) * N * p(c, 2) * p(l, 2) + (t / 24.0) * N * p(c, 4) * l4 * p(l, 4) +
        (t / 720.0) * N * p(c, 6) * l6 * p(l, 6) + (t / 40320.0) * N * p(c, 8) * l8 * p(l, 8);
}

void UPS(double lat, double lon, TGeoEllipsoid ell, double& X, double& Y)
{
    const double a = GeoEllipsoidData[ell].a, b = GeoEllipsoidData[ell].b;
    const double k = b / a;
    const double e = std::sqrt(std::fabs(1.0 - k * k));
    const double chi = (lat < 0.0 ? lat + 90.0 : 90.0 - lat) * Pi / 180.0;
    const double rho = a * 0.994 * 2.0 * std::tan(chi / 2.0) * std::exp(e * std::atanh(e * std::cos(chi))) /
                       (std::sqrt(1.0 - (1.0 - k * k)) * std::exp(e * std::atanh(e)));
    const double L = lon >= 180.0 ? lon - 360.0 : lon < -180.0 ? lon + 360.0 : lon;
    X = L == -180.0 ? 0.0 : rho * std::sin(L * Pi / 180.0);
    Y = std::fabs(L) == 90.0 ? 0.0 : rho * std::cos(L * Pi / 180.0);
    if (lat >= 0.0)
        Y = -Y;
    X = X + 2000000.0;
    Y = Y + 2000000.0;
}

}  // namespace direct

TEST(Caching, ResultsAreBitIdenticalToTheFormula)
{
    int compared = 0;
    for (int i = 0; i < NumGeoEllipsoids; ++i) {
        const auto ell = static_cast<TGeoEllipsoid>(i);
        for (double lat = -89.0; lat <= 89.0; lat += 7.3) {
            for (double dl = -9.0; dl <= 9.0; dl += 1.7) {
                double x, y, rx, ry;
                LatLongToTM(lat * Deg, (20.0 + dl) * Deg, 20.0 * Deg, ell, x, y);
                direct::TM(lat * Deg, (20.0 + dl) * Deg, 20.0 * Deg, ell, rx, ry);
                ASSERT_TRUE(SameBits(x, rx) && SameBits(y, ry)) << GeoEllipsoidId[ell] << " " << lat << " " << dl;
                LatLongToUPS(lat, dl * 20.0, ell, x, y);
                direct::UPS(lat, dl * 20.0, ell, rx, ry);
                ASSERT_TRUE(SameBits(x, rx) && SameBits(y, ry)) << GeoEllipsoidId[ell] << " " << lat << " " << dl;
                ++compared;
            }
        }
    }
    EXPECT_GT(compared, 10000);
}

TEST(TransverseMercator, RoundTripOtherEllipsoidsAndSpheres)
{
    for (int i = 0; i < NumGeoEllipsoids; ++i) {
        const auto ell = static_cast<TGeoEllipsoid>(i);
        for (double lat = -75.0; lat <= 75.0; lat += 15.0) {
            for (double dl : {-3.0, -1.0, 0.0, 2.0, 3.0}) {
                double x, y, phi, lambda;
                LatLongToTM(lat * Deg, (dl - 40.0) * Deg, -40.0 * Deg, ell, x, y);
                TMToLatLong(x, y, -40.0 * Deg, ell, phi, lambda);
                EXPECT_NEAR(phi / Deg, lat, 2e-10) << GeoEllipsoidId[ell];  // degrees; 2e-10° ≈ 20 µm
                EXPECT_NEAR(lambda / Deg, dl - 40.0, 2e-10) << GeoEllipsoidId[ell];
            }
        }
    }
}

// ---------------------------------------------------------------------------------------------------------
// UPS

TEST(UPS, PolesAndAxes)
{
    for (double lon : {-180.0, -90.0, 0.0, 45.0, 179.9}) {
        double x, y;
        LatLongToUPS(90.0, lon, gelWGS84, x, y);
        EXPECT_EQ(x, 2000000.0);
        EXPECT_EQ(y, 2000000.0);
        LatLongToUPS(-90.0, lon, gelWGS84, x, y);
        EXPECT_EQ(x, 2000000.0);
        EXPECT_EQ(y, 2000000.0);
    }
    for (double lat : {85.0, -85.0, 60.0, 0.0}) {
        double x, y;
        LatLongToUPS(lat, 90.0, gelWGS84, x, y);
        EXPECT_EQ(y, 2000000.0) << lat;
        EXPECT_GT(x, 2000000.0);
        LatLongToUPS(lat, -90.0, gelWGS84, x, y);
        EXPECT_EQ(y, 2000000.0) << lat;
        LatLongToUPS(lat, -180.0, gelWGS84, x, y);
        EXPECT_EQ(x, 2000000.0) << lat;
        LatLongToUPS(lat, 180.0, gelWGS84, x, y);  // wrapped to −180
        EXPECT_EQ(x, 2000000.0) << lat;
    }
    double x1, y1, x2, y2;
    LatLongToUPS(87.0, 190.0, gelWGS84, x1, y1);
    LatLongToUPS(87.0, -170.0, gelWGS84, x2, y2);
    EXPECT_TRUE(SameBits(x1, x2) && SameBits(y1, y2));
    LatLongToUPS(-87.0, -200.0, gelWGS84, x1, y1);
    LatLongToUPS(-87.0, 160.0, gelWGS84, x2, y2);
    EXPECT_TRUE(SameBits(x1, x2) && SameBits(y1, y2));
}

TEST(UPS, AgreesWithPolarStereographic)
{
    const auto& ups = GeographicLib::PolarStereographic::UPS();
    double worstF = 0.0, worstI = 0.0;
    for (double lat = 60.0; lat <= 90.0; lat += 0.1) {
        for (double lon = -180.0; lon < 180.0; lon += 1.3) {
            for (bool south : {false, true}) {
                const double la = south ? -lat : lat;
                double x, y, gx, gy;
                LatLongToUPS(la, lon, gelWGS84, x, y);
                ups.Forward(!south, la, lon, gx, gy);
                gx += 2000000.0;
                gy += 2000000.0;
                worstF = std::max(worstF, std::hypot(x - gx, y - gy));
                double rlat, rlon, hx, hy;
                UPSToLatLong(gx, gy, south, gelWGS84, rlat, rlon);
                ups.Forward(!south, rlat, rlon, hx, hy);
                worstI = std::max(worstI, std::hypot(hx + 2000000.0 - gx, hy + 2000000.0 - gy));
            }
        }
    }
    // Both sides are closed forms; what remains is rounding (and the ellipsoids' 1e-10 relative
    // difference in flattening). Tolerance 1 µm.
    EXPECT_LT(worstF, 1e-6);
    EXPECT_LT(worstI, 1e-6);
}

TEST(UPS, RoundTripWithinSixNewtonRounds)
{
    for (int i : {int(gelWGS84), int(gelClrk66), int(gelKrass40), int(gelSphere)}) {
        const auto ell = static_cast<TGeoEllipsoid>(i);
        for (double lat = 0.0; lat <= 90.0; lat += 2.5) {
            for (double lon = -179.0; lon < 180.0; lon += 17.0) {
                for (bool south : {false, true}) {
                    const double la = south ? -lat : lat;
                    double x, y, rlat, rlon;
                    LatLongToUPS(la, lon, ell, x, y);
                    // Latitude 0 counts as northern in the forward direction.
                    UPSToLatLong(x, y, south && lat != 0.0, ell, rlat, rlon);
                    EXPECT_NEAR(rlat, la, 1e-10) << GeoEllipsoidId[ell] << " " << la << " " << lon;
                    if (lat < 90.0) {
                        EXPECT_NEAR(rlon, lon, 1e-9) << GeoEllipsoidId[ell] << " " << la << " " << lon;
                    }
                }
            }
        }
    }
}

TEST(UPS, InverseAtThePoleAndOnTheAxes)
{
    double lat, lon;
    UPSToLatLong(2000000.0, 2000000.0, false, gelWGS84, lat, lon);
    EXPECT_EQ(lat, 90.0);
    UPSToLatLong(2000000.0, 2000000.0, true, gelWGS84, lat, lon);
    EXPECT_EQ(lat, -90.0);
    // North cap: grid north points along the 180° meridian, grid east along 90°E.
    UPSToLatLong(2000000.0, 1500000.0, false, gelWGS84, lat, lon);
    EXPECT_NEAR(lon, 0.0, 1e-12);
    UPSToLatLong(2500000.0, 2000000.0, false, gelWGS84, lat, lon);
    EXPECT_NEAR(lon, 90.0, 1e-12);
    // South cap: grid north points along 0°.
    UPSToLatLong(2000000.0, 2500000.0, true, gelWGS84, lat, lon);
    EXPECT_NEAR(lon, 0.0, 1e-12);
    UPSToLatLong(2500000.0, 2000000.0, true, gelWGS84, lat, lon);
    EXPECT_NEAR(lon, 90.0, 1e-12);
    EXPECT_LT(lat, -85.0);
}

}  // namespace
