// UTM and TM at their edges, against GeographicLib's zone rules, MGRS bands and exact Transverse Mercator.
#include <qvgeo/geobasics/transverse_mercator.h>

#include <GeographicLib/MGRS.hpp>
#include <GeographicLib/TransverseMercatorExact.hpp>
#include <GeographicLib/UTMUPS.hpp>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <iomanip>
#include <limits>
#include <string>
#include <tuple>
#include <vector>

namespace {

using namespace qv;

constexpr double Pi = 3.141592653589793;
constexpr double Deg = Pi / 180.0;
constexpr double Inf = std::numeric_limits<double>::infinity();

double Up(double v) { return std::nextafter(v, Inf); }
double Down(double v) { return std::nextafter(v, -Inf); }

// Ground distance between two places in metres, good enough for tolerances of millimetres nearby.
double Metres(double lat1, double lon1, double lat2, double lon2)
{
    double dlon = std::remainder(lon2 - lon1, 360.0);
    return std::hypot((lat2 - lat1) * 111320.0, dlon * 111320.0 * std::cos(lat1 * Deg));
}

// GeographicLib's standard zone and the band letter of its MGRS grid zone designation, for a place that
// both grids cover (GeographicLib leaves 84° itself to UPS).
void Oracle(double lat, double lon, int& zone, char& band)
{
    zone = GeographicLib::UTMUPS::StandardZone(lat, lon);
    int z;
    bool northp;
    double x, y;
    GeographicLib::UTMUPS::Forward(lat, lon, z, northp, x, y, zone);
    std::string gzd;
    GeographicLib::MGRS::Forward(z, northp, x, y, lat, -1, gzd);
    band = gzd.back();
}

// A place one ulp either side of a zone or band edge used to land in the wrong zone or band because the
// edge was found after adding 180° (or 80°) and dividing, which rounds; one ulp below 180° made zone 61.
TEST(UTMZoneEdges, EveryEdgeToTheLastBitAgreesWithGeographicLib)
{
    // The whole degrees where a zone or band changes: zone edges every 6° and the Norway and Svalbard
    // edges, band edges every 8° and the ends of the area.
    std::vector<double> lats, lons;
    for (double e = -80.0; e <= 84.0; e += e == 72.0 ? 12.0 : 8.0)
        for (double v : {Down(e), e, Up(e), e + 4.0})
            lats.push_back(v);
    for (double e = -180.0; e < 180.0; e += 6.0)
        for (double v : {Down(e), e, Up(e), e + 1.5})
            lons.push_back(v);
    for (double e : {3.0, 9.0, 21.0, 33.0})
        for (double v : {Down(e), e, Up(e)})
            lons.push_back(v);
    lons.push_back(Down(180.0));
    lats.push_back(-std::numeric_limits<double>::denorm_min());
    int checked = 0;
    for (double lat : lats) {
        for (double lon : lons) {
            if (!(lat >= -80.0 && lat < 84.0 && lon >= -180.0 && lon < 180.0))
                continue;
            int zone, expectedZone;
            char band, expectedBand;
            GeoToUTMZone(lat, lon, zone, band);
            Oracle(lat, lon, expectedZone, expectedBand);
            ASSERT_EQ(zone, expectedZone) << std::hexfloat << lat << " " << lon;
            ASSERT_EQ(band, expectedBand) << std::hexfloat << lat << " " << lon;
            ++checked;
        }
    }
    EXPECT_GT(checked, 20000);
}

// Reference values where GeographicLib's grid stops (84°, 180°, NaN, the sign of zero), also as text.
TEST(UTMZoneEdges, ReferenceValues)
{
    const double NaN = std::nan("");
    const std::tuple<double, double, int, char> cases[] = {  // lat, lon, zone, band
        {84.0, 10.0, 33, 'X'},      {84.0, Down(180.0), 60, 'X'}, {84.0, 41.0, 37, 'X'}, {Up(84.0), 41.0, 0, ' '},
        {Down(-80.0), 41.0, 0, ' '}, {0.0, 180.0, 0, ' '},         {0.0, Down(-180.0), 0, ' '}, {NaN, 0.0, 0, ' '},
        {0.0, NaN, 0, ' '},
        {-0.0, -0.0, 31, 'N'},  // the equator is northern, whatever its sign bit
    };
    for (const auto& [lat, lon, expectedZone, expectedBand] : cases) {
        int zone;
        char band;
        GeoToUTMZone(lat, lon, zone, band);
        EXPECT_TRUE(zone == expectedZone && band == expectedBand)
            << std::hexfloat << lat << " " << lon << ": " << zone << band;
        EXPECT_EQ(GeoToUTMZone(lat, lon), expectedZone == 0 ? std::string() : std::to_string(expectedZone) + expectedBand);
    }
}

// Grid positions west of zone 1 or east of zone 60 lie across the antimeridian. The inverse keeps the
// longitude continuous across the zone edge (map outlines rely on it); wrapped, it names the same place as
// GeographicLib (to the series' accuracy up to 8° from the meridian, 2.2 mm here) and LatLongToUTM takes it
// again, in the zone on its side of the antimeridian.
TEST(UTMInverse, AcrossTheAntimeridian)
{
    const std::tuple<int, bool, double, double> cases[] = {  // zone, south, easting, northing
        {1, false, 100000.0, 5000000.0}, {1, true, 150000.0, 6000000.0},    {1, false, 166021.0, 0.0},
        {60, false, 900000.0, 5000000.0}, {60, true, 833979.0, 9999999.0}, {1, false, 300000.0, 8500000.0},
        {60, false, 700000.0, 8500000.0},
    };
    for (const auto& [zone, south, e, n] : cases) {
        SCOPED_TRACE(::testing::Message() << zone << (south ? " S " : " N ") << e << " " << n);
        double lat, lon, glat, glon;
        UTMToLatLong(e, n, zone, south, gelWGS84, lat, lon);
        EXPECT_TRUE(zone == 1 ? lon < -180.0 : lon > 180.0) << lon;
        const double wrapped = WrapLongitude(lon);
        EXPECT_TRUE(wrapped >= -180.0 && wrapped < 180.0 && wrapped - lon == (zone == 1 ? 360.0 : -360.0)) << wrapped;
        GeographicLib::UTMUPS::Reverse(zone, !south, e, n, glat, glon);
        EXPECT_LT(Metres(glat, glon, lat, wrapped), 5e-3) << lat << " " << wrapped << " against " << glat << " " << glon;
        int z2;
        double e2, n2;
        LatLongToUTM(lat, wrapped, gelWGS84, z2, e2, n2);
        EXPECT_EQ(z2, GeographicLib::UTMUPS::StandardZone(lat, wrapped));
    }
}

TEST(WrapLongitude, ExactAndHalfOpen)
{
    const double cases[][2] = {
        {0.0, 0.0},         {-180.0, -180.0},  {180.0, -180.0},        {Down(180.0), Down(180.0)},
        {Up(180.0), Up(-180.0)}, {Down(-180.0), Down(180.0)}, {540.0, -180.0}, {-540.0, -180.0},
        {-182.08, 177.92},  {190.5, -169.5},   {359.75, -0.25},        {720.0, 0.0},
        {-900.125, 179.875}, {1e9, -80.0},
    };
    for (const auto& c : cases) {
        const double w = WrapLongitude(c[0]);
        // Exact: the difference is a whole number of turns, to the last bit of these decimal values.
        EXPECT_EQ(std::fmod(w - c[0], 360.0), 0.0) << std::hexfloat << c[0] << " " << w;
        EXPECT_NEAR(w, c[1], 1e-12) << std::hexfloat << c[0];
        EXPECT_TRUE(w >= -180.0 && w < 180.0) << c[0];
    }
    EXPECT_EQ(WrapLongitude(-182.08), -182.08 + 360.0);  // a sum without rounding, so the wrap must match it
    EXPECT_TRUE(std::isnan(WrapLongitude(NAN)));
    EXPECT_EQ(WrapLongitude(Inf), Inf);
    // In range: the very same bits, including the sign of zero.
    for (double v : {-0.0, 1e-300, -179.99999999999997, 123.456}) {
        const double w = WrapLongitude(v);
        EXPECT_EQ(std::memcmp(&w, &v, sizeof v), 0) << v;
    }
}

// The series' quarter meridian is 0.14 µm shorter than the exact one, so an exact projection's pole used
// to come back at latitude 90.0000000000013. A northing past a pole continues over it on the opposite
// meridian; the latitude never leaves ±90°. On the central meridian the series is the exact meridian arc,
// so GeographicLib's exact inverse must agree there, at and beyond either pole.
TEST(TMInverse, PolesAndBeyondOnTheMeridian)
{
    const GeographicLib::TransverseMercatorExact exact(6378137.0, 1.0 / 298.257223563, 1.0);
    double gx, gy;
    exact.Forward(0.0, 90.0, 0.0, gx, gy);
    const double q = gy;  // the exact quarter meridian, 10001965.7293127 m
    const std::tuple<double, double> cases[] = {  // y (m), lon0 (deg)
        {q, 0.0},          {-q, 0.0},          {q + 1e-3, 15.0},    {q - 1e-3, 15.0},     {-q - 1e-3, -15.0},
        {q + 1000.0, 0.0}, {-q - 1000.0, 30.0}, {q + 500000.0, -100.0}, {-q - 3e6, 170.0}, {q - 3e6, 170.0},
    };
    for (const auto& [y, lon0] : cases) {
        SCOPED_TRACE(::testing::Message() << std::setprecision(17) << y << " " << lon0);
        double phi, lambda, glat, glon;
        TMToLatLong(0.0, y, lon0 * Deg, gelWGS84, phi, lambda);
        EXPECT_LE(std::fabs(phi), Pi / 2.0);
        exact.Reverse(lon0, 0.0, y, glat, glon);
        EXPECT_LT(Metres(glat, glon, phi / Deg, lambda / Deg), 1e-6)
            << phi / Deg << " " << lambda / Deg << " against " << glat << " " << glon;
    }
}

// Off the meridian the series is only as good near a pole as it is (metres at a few kilometres), but
// beyond the pole it must give exactly the mirror image of the point as far before it: (x, 2Q − y) on
// λ0 + l is (x, y) on λ0 + 180° − l, with Q the series' own quarter meridian.
TEST(TMInverse, BeyondThePoleMirrorsTheNearSide)
{
    const double q = ArcLengthOfMeridian(Pi / 2.0, gelWGS84);
    const std::tuple<double, double> cases[] = {{2000.0, 3000.0}, {-2000.0, 3000.0}, {0.5, 10.0},
                                                {-1e4, 2e5},      {3e5, 1e6},        {1e-3, 1e-3}};  // x, past (m)
    for (double lon0 : {0.0, 15.0, -120.0}) {
        for (const auto& [x, past] : cases) {
            SCOPED_TRACE(::testing::Message() << x << " " << past << " " << lon0);
            double phi, lambda, mphi, mlambda;
            for (double pole : {1.0, -1.0}) {
                TMToLatLong(x, pole * (q + past), lon0 * Deg, gelWGS84, phi, lambda);
                TMToLatLong(x, pole * (q - past), lon0 * Deg, gelWGS84, mphi, mlambda);
                EXPECT_NEAR(phi, mphi, 1e-12) << pole;
                EXPECT_NEAR(lambda - lon0 * Deg, Pi - (mlambda - lon0 * Deg), 1e-9) << pole;
            }
        }
        // The series' own pole is not past it: it keeps the plain formula's result, on the central meridian.
        for (double pole : {1.0, -1.0}) {
            double phi, lambda;
            TMToLatLong(0.0, pole * q, lon0 * Deg, gelWGS84, phi, lambda);
            EXPECT_TRUE(phi == pole * Pi / 2.0 && lambda == lon0 * Deg) << lon0 << " " << phi << " " << lambda;
        }
    }
}

}  // namespace
