// Transverse Mercator, UTM and UPS: documented values, zone rules, round trips, and cross-checks against
// GeographicLib's exact Transverse Mercator and its polar stereographic UPS.
#include <qvgeo/geobasics/transverse_mercator.h>

#include <GeographicLib/Ellipsoid.hpp>
#include <GeographicLib/PolarStereographic.hpp>
#include <GeographicLib/TransverseMercator.hpp>
#include <GeographicLib/TransverseMercatorExact.hpp>
#include <GeographicLib/UTMUPS.hpp>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <tuple>

namespace {

using namespace qv;

constexpr double Pi = 3.141592653589793;
constexpr double Deg = Pi / 180.0;

bool SameBits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

TEST(UTMCentralMeridian, DocumentedExpressionBitForBit)
{
    // The meridians are tabulated at compile time; they must keep the bits of the run-time expression.
    for (int z = 1; z <= 60; ++z)
        EXPECT_TRUE(SameBits(UTMCentralMeridian(z), (6.0 * z - 183.0) * Pi / 180.0)) << z;
    for (int bad : {0, 61, -1, 1000, -2147483647})
        EXPECT_EQ(UTMCentralMeridian(bad), 0.0) << bad;
}

TEST(UTM, EquatorIsNorthern)
{
    int zone;
    double e, n;
    LatLongToUTM(0.0, 15.0, gelWGS84, zone, e, n);
    EXPECT_TRUE(e == 500000.0 && n == 0.0) << e << " " << n;
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
    double phi, lambda, lat, lon;
    TMToLatLong(10000.0 / 0.9996, 5000000.0 / 0.9996, 0.0, gelWGS84, phi, lambda);
    for (int badZone : {0, 99}) {
        UTMToLatLong(510000.0, 5000000.0, badZone, false, gelWGS84, lat, lon);
        EXPECT_TRUE(SameBits(lat, phi * 180.0 / Pi) && SameBits(lon, lambda * 180.0 / Pi)) << badZone;
    }
}

// The meridian arc also underlies every northing compared below; here the published quarter meridian of
// WGS 84, 10 001 965.729 m.
TEST(ArcLengthOfMeridian, PublishedQuarterMeridian)
{
    EXPECT_NEAR(ArcLengthOfMeridian(Pi / 2.0, gelWGS84), 10001965.729, 0.0005);
}

class UTMAgainstExact : public ::testing::TestWithParam<TGeoEllipsoid> {};

// Every zone, both hemispheres, the widened Norway and Svalbard zones. The tolerance grows with the distance
// from the central meridian as the truncated series allows (figures measured, then given a margin of 2-3).
// The round trip through this grid's own inverse stays under 1 mm on the ground even in the widened zones
// (at most 6.1° about their meridian).
TEST_P(UTMAgainstExact, ForwardInverseAndRoundTrip)
{
    const TGeoEllipsoid ell = GetParam();
    const GeographicLib::TransverseMercatorExact exact(GeoEllipsoidData[ell].a, 1.0 / RecipFlattening(ell),
                                                       UTMScaleFactor);
    for (double lat = -80.0; lat <= 84.0; lat += 1.31) {
        for (double lon = -180.0; lon < 180.0; lon += 0.73) {
            int zone;
            double e, n, gx, gy, rlat, rlon, hx, hy;
            LatLongToUTM(lat, lon, ell, zone, e, n);
            ASSERT_GE(zone, 1);
            const double lon0 = 6.0 * zone - 183.0;
            const double dl = std::fabs(lon - lon0);  // degrees; tolerances in metres on the grid
            const double tolForward = dl <= 1.0 ? 2e-7 : dl <= 3.0 ? 4e-5 : dl <= 4.0 ? 2e-4 : 2.5e-3;
            const double tolInverse = dl <= 1.0 ? 1e-6 : dl <= 3.0 ? 1.2e-5 : dl <= 4.0 ? 6e-5 : 1.2e-3;
            exact.Forward(lon0, lat, lon, gx, gy);
            const bool south = gy < 0.0;
            const double ge = gx + 500000.0, gn = south ? gy + 10000000.0 : gy;
            ASSERT_LE(std::hypot(e - ge, n - gn), tolForward) << lat << " " << lon;

            UTMToLatLong(ge, gn, zone, south, ell, rlat, rlon);
            exact.Forward(lon0, rlat, rlon, hx, hy);
            ASSERT_LE(std::hypot(hx - gx, hy - gy), tolInverse) << lat << " " << lon;  // after projecting exactly

            UTMToLatLong(e, n, zone, lat < 0.0, ell, rlat, rlon);
            ASSERT_LT(std::hypot((rlat - lat) * 111320.0, (rlon - lon) * 111320.0 * std::cos(lat * Deg)), 1e-3)
                << lat << " " << lon;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Ellipsoids, UTMAgainstExact, ::testing::Values(gelWGS84, gelInt24, gelBess41, gelClrk66));

// Per-ellipsoid constants are cached in tables, so every ellipsoid of the catalogue is checked against
// GeographicLib: its Krüger series (good to 5 nm this close to the meridian) for the kernel, with the
// kernel's own round trip, and its polar stereographic for UPS (closed forms on both sides: 1 µm).
TEST(EveryEllipsoid, AgreesWithGeographicLibAndRoundTrips)
{
    for (int i = 0; i < NumGeoEllipsoids; ++i) {
        const auto ell = static_cast<TGeoEllipsoid>(i);
        const double a = GeoEllipsoidData[ell].a, f = 1.0 - GeoEllipsoidData[ell].b / a;
        const GeographicLib::TransverseMercator tm(a, f, 1.0);
        const GeographicLib::PolarStereographic ps(a, f, UPSScaleFactor);
        for (double lat = -89.0; lat <= 89.0; lat += 7.3) {
            SCOPED_TRACE(::testing::Message() << GeoEllipsoidId[ell] << " " << lat);
            for (double dl = -3.0; dl <= 3.0; dl += 0.7) {
                double x, y, gx, gy, rphi, rlambda;
                LatLongToTM(lat * Deg, (20.0 + dl) * Deg, 20.0 * Deg, ell, x, y);
                tm.Forward(20.0, lat, 20.0 + dl, gx, gy);
                ASSERT_LE(std::hypot(x - gx, y - gy), std::fabs(dl) <= 1.0 ? 2e-7 : 4e-5) << dl;  // metres
                if (std::fabs(lat) <= 75.0) {
                    TMToLatLong(x, y, 20.0 * Deg, ell, rphi, rlambda);
                    EXPECT_NEAR(rphi / Deg, lat, 2e-10) << dl;  // degrees, about 20 µm
                    EXPECT_NEAR(rlambda / Deg, 20.0 + dl, 2e-10) << dl;
                }
            }
            if (std::fabs(lat) < 60.0)
                continue;
            for (double lon : {-170.0, -60.0, 0.0, 45.0, 135.0}) {
                double x, y, gx, gy;
                LatLongToUPS(lat, lon, ell, x, y);
                ps.Forward(lat >= 0.0, lat, lon, gx, gy);
                ASSERT_LT(std::hypot(x - gx - UPSFalseOrigin, y - gy - UPSFalseOrigin), 1e-6) << lon;
                double rlat, rlon;  // the inverse iterates: six Newton rounds must reach 1e-10°
                UPSToLatLong(x, y, lat < 0.0, ell, rlat, rlon);
                EXPECT_TRUE(std::fabs(rlat - lat) < 1e-10 && std::fabs(rlon - lon) < 1e-9)
                    << lon << ": " << rlat << " " << rlon;
            }
        }
    }
}

TEST(UPS, PolesAndAxes)
{
    double x, y, x2, y2, lat, lon;
    for (double pole : {90.0, -90.0}) {
        for (double plon : {-180.0, -90.0, 0.0, 45.0, 179.9}) {
            LatLongToUPS(pole, plon, gelWGS84, x, y);
            EXPECT_TRUE(x == 2000000.0 && y == 2000000.0) << pole << " " << plon;
        }
        UPSToLatLong(2000000.0, 2000000.0, pole < 0.0, gelWGS84, lat, lon);
        EXPECT_EQ(lat, pole);
    }
    for (double alat : {85.0, -85.0, 60.0}) {
        LatLongToUPS(alat, 90.0, gelWGS84, x, y);
        EXPECT_TRUE(y == 2000000.0 && x > 2000000.0) << alat;
        LatLongToUPS(alat, -180.0, gelWGS84, x, y);
        LatLongToUPS(alat, 180.0, gelWGS84, x2, y2);  // 180° is wrapped to −180°
        EXPECT_TRUE(x == 2000000.0 && SameBits(x, x2) && SameBits(y, y2)) << alat;
    }
    const double wrapped[][3] = {{87.0, 190.0, -170.0}, {-87.0, -200.0, 160.0}};  // lat, lon, the same lon
    for (const auto& w : wrapped) {
        LatLongToUPS(w[0], w[1], gelWGS84, x, y);
        LatLongToUPS(w[0], w[2], gelWGS84, x2, y2);
        EXPECT_TRUE(SameBits(x, x2) && SameBits(y, y2)) << w[1];
    }
}

}  // namespace
