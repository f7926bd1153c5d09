// The ellipsoid catalogue and the parameter functions: published values, documented errors, invariants.
#include <qvgeo/geobasics/ellipsoids.h>
#include <qvgeo/support/errors.h>

#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <string>

namespace qv {
namespace {

TEST(EllipsoidCatalogue, TablesAreCompleteAndConsistent)
{
    EXPECT_EQ(GeoEllipsoidName[gelWGS84], "WGS 1984");
    EXPECT_EQ(GeoEllipsoidName[gelNahrwan29], "Nahrwan 1929");  // the last row
    std::set<std::string_view> ids, names;
    for (int i = 0; i < NumGeoEllipsoids; ++i) {
        const auto e = static_cast<TGeoEllipsoid>(i);
        ids.insert(GeoEllipsoidId[e]);
        names.insert(GeoEllipsoidName[e]);
        EXPECT_GE(GeoEllipsoidData[e].a, GeoEllipsoidData[e].b) << GeoEllipsoidId[e];
        // Every Earth model lies within 10 km of 6371 km.
        EXPECT_NEAR(GeoEllipsoidData[e].a, 6371000.0, 10000.0) << GeoEllipsoidId[e];
        TGeoEllipsoid found;
        ASSERT_TRUE(FindGeoEllipsoid(GeoEllipsoidId[e], found));
        EXPECT_EQ(found, e);
    }
    EXPECT_EQ(ids.size(), 61u);
    EXPECT_EQ(names.size(), 61u);
    TGeoEllipsoid found;
    EXPECT_FALSE(FindGeoEllipsoid("gelwgs84", found));  // exact spelling only
    EXPECT_FALSE(FindGeoEllipsoid("", found));
}

TEST(EllipsoidCatalogue, PublishedAxesExactly)
{
    struct Row {
        TGeoEllipsoid e;
        double a, b;
    };
    for (const Row r : {Row{gelWGS84, 6378137.0, 6356752.314245}, Row{gelGRS80, 6378137.0, 6356752.31414},
                        Row{gelClrk66, 6378206.4, 6356583.8}, Row{gelBess41, 6377397.155, 6356078.96284},
                        Row{gelInt24, 6378388.0, 6356911.94613}, Row{gelKrass40, 6378245.0, 6356863.0188},
                        Row{gelAiry30, 6377563.396, 6356256.91}, Row{gelClrk80intfoot, 6378306.3696, 6356571.996},
                        Row{gelNahrwan29, 6378300.782, 6356566.42744}}) {
        EXPECT_EQ(GeoEllipsoidData[r.e].a, r.a) << GeoEllipsoidId[r.e];
        EXPECT_EQ(GeoEllipsoidData[r.e].b, r.b) << GeoEllipsoidId[r.e];
    }
    // Rows that are deliberately identical but for their names.
    for (const auto& [x, y] : {std::pair{gelGEM10C, gelWGS84}, std::pair{gelCGCS2000, gelGRS80},
                              std::pair{gelAuNat65, gelSAm69}}) {
        EXPECT_EQ(GeoEllipsoidData[x].a, GeoEllipsoidData[y].a);
        EXPECT_EQ(GeoEllipsoidData[x].b, GeoEllipsoidData[y].b);
    }
}

TEST(EllipsoidParameters, DocumentedValues)
{
    // Both from the stored axes, hence the difference in the seventh decimal.
    EXPECT_EQ(RecipFlattening(gelWGS84), 298.2572235604902);
    EXPECT_EQ(RecipFlattening(gelGRS80), 298.2572220960422);
    // The published e² follows from the defining 1/f; b stored to the micrometre moves it by ~6e-14.
    EXPECT_NEAR(GeoEllEccSquared(gelWGS84), 0.00669437999014, 2e-13);
    EXPECT_EQ(GeoEllEccSquared(6356752.314245, 6378137.0), GeoEllEccSquared(gelWGS84));  // order does not matter
    EXPECT_EQ(EllipsoidMinAxFlat(6378137.0, 0.0), 6378137.0);
    EXPECT_NEAR(EllipsoidMinAxFlat(6378137.0, 298.257223563), 6356752.314245, 1e-6);  // the defining 1/f
    for (const auto e : {gelSphere, gelAuthSph, gelInt24AuthSph, gelPopVisSphere})
        EXPECT_TRUE(RecipFlattening(e) == 0.0 && GeoEllEccSquared(e) == 0.0) << GeoEllipsoidId[e];
    EXPECT_EQ(RecipFlattening(0.0), 0.0);
    // b > a: a negative reciprocal flattening, by design.
    EXPECT_NEAR(RecipFlattening(6356752.314245, 6378137.0), -297.2572, 1e-4);
}

TEST(EllipsoidParameters, RoundTripsThroughEveryForm)
{
    for (int i = 0; i < NumGeoEllipsoids; ++i) {
        const auto e = static_cast<TGeoEllipsoid>(i);
        const auto [a, b] = GeoEllipsoidData[e];
        const double rf = RecipFlattening(e);
        const double e2 = GeoEllEccSquared(e);
        EXPECT_NEAR(EllipsoidMinAxFlat(a, rf), b, 1e-8) << GeoEllipsoidId[e];
        EXPECT_NEAR(EllipsoidMinAxEcc(a, e2), b, 1e-8) << GeoEllipsoidId[e];
        EXPECT_NEAR(GeoEllEccSquared(rf), e2, 1e-16) << GeoEllipsoidId[e];
        if (rf != 0.0) {
            EXPECT_NEAR(RecipFlattening(e2), rf, 1e-9 * rf) << GeoEllipsoidId[e];
        }
    }
}

TEST(EllipsoidParameters, ErrorBehaviour)
{
    const auto message = [](auto f) -> std::string {
        try {
            f();
        } catch (const EXELGeoBasicsError& err) {
            return err.what();
        }
        return "(no error)";
    };
    EXPECT_EQ(message([] { EllipsoidMinAxFlat(6378137.0, -298.0); }), "invalid reciprocal flattening");
    EXPECT_EQ(message([] { EllipsoidMinAxEcc(6378137.0, -0.1); }), "invalid eccentricity");
    // The unit's error is an EXELError like every other unit's. No upper check: e² > 1 reaches the square
    // root as it is.
    EXPECT_THROW(EllipsoidMinAxEcc(1.0, -1.0), EXELError);
    EXPECT_TRUE(std::isnan(EllipsoidMinAxEcc(6378137.0, 1.5)));
}

}  // namespace
}  // namespace qv
