// The rubber band's geodesic measure against GeographicLib's GeodSolve (geographiclib-tools), run as
//   echo "LAT1 LON1 LAT2 LON2" | GeodSolve -i -p 4 [-e A F]
// which prints the start azimuth (-180..180], the end azimuth and the distance in metres; Bessel 1841 is
// given as -e 6377397.155 0.003342773178754631, its flattening from the catalogued axes.
#include "measure.h"

#include <gtest/gtest.h>

namespace {

TEST(MeasureTest, GeodesicsMatchGeodSolve)
{
    const struct {
        double lat1, long1, lat2, long2;
        qv::TGeoEllipsoid ellipsoid;
        double metres, bearing;
    } cases[] = {
        {48.2085, 16.3721, 47.0707, 15.4395, qv::gelWGS84, 144615.3797, 360 - 150.669597338},  // Vienna to Graz
        {47.0707, 15.4395, 48.2085, 16.3721, qv::gelWGS84, 144615.3797, 28.641243775},         // and back
        // The same two places on Bessel 1841, the ellipsoid of Austrian maps: 16.6 m shorter.
        {48.2085, 16.3721, 47.0707, 15.4395, qv::gelBess41, 144598.8276, 360 - 150.669820209},
        {0, 0, 0, 90, qv::gelWGS84, 10018754.1714, 90},                                         // a quarter of the equator
        {10, -170, 10, 170, qv::gelWGS84, 2192447.5647, 360 - 88.246102178},                   // across the date line
        {-33.9, 151.2, 51.5, -0.1, qv::gelWGS84, 16990083.8801, 360 - 40.786280424},            // Sydney to London
        {48.2085, 16.3721, 48.2085, 16.3721001, qv::gelWGS84, 0.007432, 89.99999996272},       // 7 mm east
        {48.2085, 16.3721, 48.2085, 16.3721, qv::gelWGS84, 0, 0},                               // no distance, bearing 0
    };
    for (const auto& c : cases) {
        const viewer::TGeodesicMeasure m = viewer::MeasureGeodesic(c.lat1, c.long1, c.lat2, c.long2, c.ellipsoid);
        EXPECT_NEAR(m.Metres, c.metres, 1e-4) << c.lat1 << ' ' << c.long1 << ' ' << c.lat2 << ' ' << c.long2;
        EXPECT_NEAR(m.Bearing, c.bearing, 1e-8) << c.lat1 << ' ' << c.long1 << ' ' << c.lat2 << ' ' << c.long2;
        EXPECT_GE(m.Bearing, 0.0);
        EXPECT_LT(m.Bearing, 360.0);
    }
}

TEST(MeasureTest, DistancesReadInMetresThenKilometres)
{
    const struct {
        double metres;
        const char* text;
    } cases[] = {{0, "0 m"},           {743.3646, "743 m"},      {999.4, "999 m"},       {999.6, "1.00 km"},
                 {12346, "12.35 km"},  {99994, "99.99 km"},      {99996, "100.0 km"},   {144615.3797, "144.6 km"},
                 {16990083.88, "16990.1 km"}};
    for (const auto& c : cases)
        EXPECT_EQ(viewer::DistanceText(c.metres).toStdString(), c.text) << c.metres;
}

TEST(MeasureTest, ABandOfLegsAddsThemUp)
{
    viewer::TBandMeasure band;
    EXPECT_FALSE(band.Active());
    band.Begin(48.2085, 16.3721, qv::gelWGS84);
    EXPECT_TRUE(band.Active());
    EXPECT_EQ(band.Text(47.0707, 15.4395).toStdString(), "144.6 km, bearing 209.3\u00B0");
    band.Leg(47.0707, 15.4395);  // at Graz, back to Vienna
    EXPECT_EQ(band.Text(48.2085, 16.3721).toStdString(), "144.6 km, bearing 28.6\u00B0 (total 289.2 km, 2 legs)");
    // A bearing that rounds to 360.0 reads 0.0.
    band.Begin(0, 0, qv::gelWGS84);
    EXPECT_EQ(band.Text(1, -0.0001).toStdString(), "110.6 km, bearing 0.0\u00B0");
    band.End();
    EXPECT_FALSE(band.Active());
}

}  // namespace
