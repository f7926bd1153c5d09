// Georeferencing imported through GDAL, checked against GDAL's own transformation of the same pixels:
// rasters with a geotransform in several coordinate systems, rasters with control points, world files
// with and without a .prj. GDAL writes the files; nothing is downloaded.
#include "georef_test_util.h"

#include <qvgeo/gdalio/georef_import.h>
#include <qvgeo/geomap/georef_export.h>
#include <qvgeo/support/errors.h>

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <limits>

namespace qv {
namespace {

using namespace georeftest;

const std::vector<TPoint> kPixels = {{0, 0}, {399, 0}, {0, 299}, {399, 299}, {200, 150}, {17, 250}, {333, 41}, {123, 177}};

struct TGeoTransformCase {
    const char* Name;
    const char* SRS;
    std::array<double, 6> GT;
    TCalibModel Model;          // cmUndefined: fitted, any model
    TGeoEllipsoid Ellipsoid;
    const char* Compare;        // the geographic CRS GDAL gives its places in
    std::int32_t Zone;
    bool South;
};

TEST(GeoRefImport, GeoTransformsGiveGDALsPlaces)
{
    const TGeoTransformCase cases[] = {
        {"geographic", "EPSG:4326", {16.2, 0.00075, 0, 48.3, 0, -0.000666}, cmEquiRect, gelWGS84, "EPSG:4326", -1, false},
        {"rotated geographic", "EPSG:4326", {-70.5, 0.001, 0.0004, -33.25, 0.0005, -0.0009}, cmEquiRect, gelWGS84,
         "EPSG:4326", -1, false},
        {"UTM north", "EPSG:32633", {596000, 12.5, 0, 5344000, 0, -12.5}, cmUTM, gelWGS84, "EPSG:4326", 33, false},
        {"UTM south, rotated", "EPSG:32756", {312345.5, 2.5, 0.4, 6123456.5, -0.3, -2.5}, cmUTM, gelWGS84, "EPSG:4326",
         56, true},
        // MGI lies on Bessel 1841, one of ours: the places stay on that datum.
        {"geographic on Bessel", "EPSG:4312", {16.2, 0.00075, 0, 48.3, 0, -0.000666}, cmEquiRect, gelBess41,
         "EPSG:4312", -1, false},
        {"UTM on International 1924", "EPSG:23031", {430000, 30, 0, 4600000, 0, -30}, cmUTM, gelInt24, "EPSG:4230", 31,
         false},
        {"web mercator", "EPSG:3857", {1800000, 100, 0, 6150000, 0, -100}, cmUndefined, gelWGS84, "EPSG:4326", -1, false},
        {"Lambert conic on Bessel", "EPSG:31287", {500000, 250, 0, 450000, 0, -250}, cmUndefined, gelBess41, "EPSG:4312",
         -1, false},
    };
    TTempDir dir;
    for (const TGeoTransformCase& c : cases) {
        SCOPED_TRACE(c.Name);
        const std::string tif = dir.File("gt.tif");
        MakeRaster(tif, 400, 300, c.SRS, &c.GT, {});
        const TGeoRefImport r = ImportGeoRef(tif, grfRaster);
        EXPECT_EQ(r.Width, 400);
        EXPECT_EQ(r.Height, 300);
        EXPECT_EQ(r.Data.MapFName, tif);
        EXPECT_EQ(r.Data.Ellipsoid, c.Ellipsoid);
        EXPECT_EQ(r.Notes.size(), 0u) << (r.Notes.empty() ? "" : r.Notes[0]);
        double tol = 1e-3;  // affine: the same transform, to the millimetre
        if (c.Model != cmUndefined) {
            EXPECT_EQ(r.Model, c.Model);
            EXPECT_EQ(r.Data.UTMZone, c.Zone);
            EXPECT_EQ(r.Data.UTMSouth, c.South);
            EXPECT_TRUE(r.Candidates.empty());
        } else {
            // Fitted: the chosen model has the smallest rms of those with points to spare.
            ASSERT_FALSE(r.Candidates.empty());
            for (const TGeoRefCandidate& k : r.Candidates) {
                if (k.Diagnosis == cdgOK) {
                    EXPECT_GE(k.RmsMetres + 0.001, r.Residuals.RmsMetres) << CalibModelKeywords[k.Model];
                }
            }
            EXPECT_EQ(r.Data.NumCalQuads, 100);
            EXPECT_LT(r.Residuals.RmsMetres, 1.0);
            // Between the sampled pixels the fit errs most: the stated check figures bound it there,
            // the worst residual at the sampled pixels themselves.
            EXPECT_EQ(r.CheckPoints, 81);
            EXPECT_GE(r.CheckMaxMetres, r.CheckRmsMetres);
            double worstPoint = 0;
            for (const TQuadResidual& q : r.Residuals.Quads)
                worstPoint = std::max(worstPoint, q.Metres);
            tol = std::max(r.CheckMaxMetres, worstPoint) + 0.01;
        }
        const double worst = WorstDistanceToGDAL(tif, r, kPixels, c.Compare);
        EXPECT_LE(worst, tol) << "rms " << r.Residuals.RmsMetres << " model " << CalibModelKeywords[r.Model];
    }
}

TEST(GeoRefImport, ControlPointsAreMovedToPixelCentresAndFitted)
{
    // Places quadratic in the image coordinates: GDAL's second-order polynomial and our biquadratic
    // model both describe them; the points sit on pixel corners (whole image coordinates), so each is
    // moved half a pixel to its pixel's centre. Three points lie outside the image, two of them on its right and bottom borders.
    auto lat = [](double p, double l) { return 48.3 - 0.00066 * l + 3e-9 * p * l - 2e-10 * p * p; };
    auto lon = [](double p, double l) { return 16.2 + 0.00075 * p + 1e-9 * l * l - 2e-6 * l; };
    std::vector<TGroundControlPoint> g;
    for (int j = 0; j <= 4; ++j)
        for (int i = 0; i <= 5; ++i) {
            const double p = i * 79.0 + 3, l = j * 74.0 + 1;
            g.push_back({p, l, lon(p, l), lat(p, l)});
        }
    g.push_back({-10.0, 5.0, lon(-10, 5), lat(-10, 5)});
    g.push_back({400.0, 150.0, lon(400, 150), lat(400, 150)});  // the right border: no pixel's
    g.push_back({200.0, 300.0, lon(200, 300), lat(200, 300)});  // the bottom border
    TTempDir dir;
    const std::string tif = dir.File("gcp.tif");
    MakeRaster(tif, 400, 300, "EPSG:4326", nullptr, g);
    const TGeoRefImport r = ImportGeoRef(tif, grfRaster);
    EXPECT_EQ(r.Model, cmBiquadraticPn);
    EXPECT_EQ(r.Data.NumCalQuads, 30);
    ASSERT_EQ(r.Notes.size(), 1u);
    EXPECT_NE(r.Notes[0].find("3 point(s) outside"), std::string::npos) << r.Notes[0];
    // The first point, image coordinate (3, 1), becomes pixel (3, 1) with the place of (3.5, 1.5).
    EXPECT_EQ(r.Data.CalQuads[0].MapX, 3);
    EXPECT_EQ(r.Data.CalQuads[0].MapY, 1);
    EXPECT_NEAR(r.Data.CalQuads[0].Latitude, lat(3.5, 1.5), 1e-9);
    EXPECT_NEAR(r.Data.CalQuads[0].Longitude, lon(3.5, 1.5), 1e-9);
    EXPECT_LT(r.Residuals.RmsMetres, 1e-3);
    EXPECT_EQ(r.Residuals.Quads.size(), 30u);
    const double worst = WorstDistanceToGDAL(tif, r, kPixels, "EPSG:4326", 2);
    EXPECT_LE(worst, r.Residuals.RmsMetres + 1e-3) << "rms " << r.Residuals.RmsMetres;
}

TEST(GeoRefImport, ControlPointsInAUTMZoneMayChooseTheUTMModel)
{
    // Easting and northing affine in the pixels: only the utm model is exact. The points lie on pixel
    // corners, so easting and northing move with them to the centres.
    auto east = [](double p, double l) { return 590000 + 25.0 * p + 2.0 * l; };
    auto north = [](double p, double l) { return 5350000 - 25.0 * l + 1.5 * p; };
    std::vector<TGroundControlPoint> g;
    for (int j = 0; j < 4; ++j)
        for (int i = 0; i < 4; ++i) {
            const double p = 10 + i * 120, l = 5 + j * 90;
            g.push_back({p, l, east(p, l), north(p, l)});
        }
    TTempDir dir;
    const std::string tif = dir.File("utm.tif");
    MakeRaster(tif, 400, 300, "EPSG:32633", nullptr, g);
    const TGeoRefImport r = ImportGeoRef(tif, grfRaster);
    EXPECT_EQ(r.Model, cmUTM);
    EXPECT_EQ(r.Data.UTMZone, 33);
    EXPECT_FALSE(r.Data.UTMSouth);
    EXPECT_EQ(r.Data.CalQuads[0].MapX, 10);
    EXPECT_NEAR(r.Data.CalQuads[0].Longitude, east(10.5, 5.5), 1e-6);
    EXPECT_NEAR(r.Data.CalQuads[0].Latitude, north(10.5, 5.5), 1e-6);
    EXPECT_LT(r.Residuals.RmsMetres, 1e-3);
    EXPECT_LE(WorstDistanceToGDAL(tif, r, kPixels, "EPSG:4326", 1), 1e-3);
}

TEST(GeoRefImport, ManyControlPointsAreThinnedAndPointsThatAreNotNumbersLeftOut)
{
    std::vector<TGroundControlPoint> g;
    for (int j = 0; j < 15; ++j)
        for (int i = 0; i < 15; ++i)
            g.push_back({i * 26.0 + 2.5, j * 19.0 + 1.5, 16.2 + 0.00075 * i * 26, 48.3 - 0.0006 * j * 19});
    g[7].X = std::numeric_limits<double>::quiet_NaN();
    TTempDir dir;
    const std::string tif = dir.File("many.tif");
    MakeRaster(tif, 400, 300, "EPSG:4326", nullptr, g);
    const TGeoRefImport r = ImportGeoRef(tif, grfRaster);
    ASSERT_EQ(r.Notes.size(), 2u);
    EXPECT_EQ(r.Notes[0], "1 point(s) not a number or not transformable to latitude/longitude left out");
    EXPECT_EQ(r.Notes[1], "224 points thinned to 200, the most a calibration holds");
    EXPECT_EQ(r.Data.NumCalQuads, 200);
    // Spread over the whole list: the first and one of the last rows are kept.
    EXPECT_EQ(r.Data.CalQuads[0].MapX, 2);
    EXPECT_EQ(r.Data.CalQuads[199].MapY, 14 * 19 + 1);
    for (int i = 0; i < 200; ++i)
        EXPECT_TRUE(std::isfinite(r.Data.CalQuads[static_cast<std::size_t>(i)].Longitude));
    EXPECT_LT(r.Residuals.RmsMetres, 1e-3);
}

TEST(GeoRefImport, AForeignEllipsoidIsTransformedToWGS84WithANote)
{
    TTempDir dir;
    const std::string tif = dir.File("odd.tif");
    const std::array<double, 6> gt{10.0, 0.001, 0, 50.0, 0, -0.001};
    MakeRaster(tif, 400, 300, "+proj=longlat +a=6378000 +rf=300 +no_defs", &gt, {});
    const TGeoRefImport r = ImportGeoRef(tif, grfRaster);
    ASSERT_FALSE(r.Notes.empty());
    EXPECT_NE(r.Notes[0].find("not one of ours"), std::string::npos) << r.Notes[0];
    EXPECT_NE(r.Notes[0].find("WGS 84"), std::string::npos) << r.Notes[0];
    EXPECT_EQ(r.Data.Ellipsoid, gelWGS84);
    EXPECT_LE(WorstDistanceToGDAL(tif, r, kPixels, "EPSG:4326"), r.Residuals.RmsMetres + 0.01);
}

TEST(GeoRefImport, WorldFilesTakeTheirCoordinateSystemFromAPrjOrTheirNumbers)
{
    TTempDir dir;
    const std::string image = dir.File("scan.tif");
    MakeRaster(image, 400, 300, nullptr, nullptr, {});
    const std::string wld = dir.File("scan.wld");
    // Metres with a .prj naming UTM zone 33 on WGS 84: the utm model, four corner points.
    WriteText(wld, "12.5\n0\n0\n-12.5\n596006.25\n5343993.75\n");
    WriteText(dir.File("scan.prj"), UTMWKT(33, false, gelWGS84));
    TGeoRefImport r = ImportGeoRef(wld, grfWorldFile);
    EXPECT_EQ(r.Model, cmUTM);
    EXPECT_EQ(r.Data.UTMZone, 33);
    EXPECT_EQ(r.Data.MapFName, image);  // found beside the world file
    EXPECT_EQ(r.Data.CalQuads[0].Longitude, 596006.25);  // the centre of the top-left pixel
    EXPECT_EQ(r.Data.CalQuads[0].Latitude, 5343993.75);
    EXPECT_EQ(r.Data.CalQuads[3].Longitude, 596006.25 + 399 * 12.5);
    // The same numbers without the .prj are not degrees: an error asking for the coordinate system.
    std::filesystem::remove(dir.File("scan.prj"));
    try {
        ImportGeoRef(wld, grfWorldFile);
        ADD_FAILURE() << "metres without a coordinate system accepted";
    } catch (const EXELGeoMapError& e) {
        EXPECT_NE(std::string(e.what()).find("--zone"), std::string::npos) << e.what();
    }
    // ... which a zone supplies.
    TGeoRefOptions o;
    o.Zone = 33;
    EXPECT_EQ(ImportGeoRef(wld, grfWorldFile, o).Model, cmUTM);
    // Degrees without a .prj: WGS 84 latitude/longitude, with a note.
    WriteText(wld, "0.00075\n0\n0\n-0.0006\n16.2\n48.3\n");
    r = ImportGeoRef(wld, grfWorldFile);
    EXPECT_EQ(r.Model, cmEquiRect);
    ASSERT_EQ(r.Notes.size(), 1u);
    EXPECT_NE(r.Notes[0].find("look like degrees"), std::string::npos);
    EXPECT_DOUBLE_EQ(r.Data.CalQuads[3].Latitude, 48.3 - 299 * 0.0006);
    // A broken world file names its fault; an image that cannot be found is asked for.
    WriteText(wld, "0.00075\n0\nzero\n-0.0006\n16.2\n48.3\n");
    ExpectImportError(wld, grfWorldFile, {}, "line 3: not a number");
    WriteText(dir.File("alone.wld"), "1\n0\n0\n-1\n500000\n5000000\n");
    ExpectImportError(dir.File("alone.wld"), grfWorldFile, {}, "was not found");
}

TEST(GeoRefImport, RastersWithoutGeoreferencingOrThatGDALRefusesAreClearErrors)
{
    TTempDir dir;
    const std::string plain = dir.File("plain.tif");
    MakeRaster(plain, 40, 30, nullptr, nullptr, {});
    ExpectImportError(plain, grfRaster, {}, "has no georeferencing");
    WriteText(dir.File("junk.tif"), "II*\0 not a tiff");
    ExpectImportError(dir.File("junk.tif"), grfRaster, {}, "junk.tif");
    ExpectImportError(dir.File("missing.tif"), grfRaster, {}, "missing.tif");
    // Two control points are too few.
    const std::string two = dir.File("two.tif");
    MakeRaster(two, 40, 30, "EPSG:4326", nullptr, {{0.5, 0.5, 16, 48}, {39.5, 29.5, 16.1, 47.9}});
    ExpectImportError(two, grfRaster, {}, "3 points");
    // All points outside the image.
    const std::string far = dir.File("far.tif");
    MakeRaster(far, 40, 30, "EPSG:4326", nullptr,
               {{100.5, 0.5, 16, 48}, {139.5, 29.5, 16.1, 47.9}, {100.5, 29.5, 16, 47.9}});
    ExpectImportError(far, grfRaster, {}, "inside the 40 x 30 image");
    TGeoRefOptions bad;
    bad.CRS = "EPSG:999999";
    ExpectImportError(two, grfRaster, bad, "not one GDAL knows");
}

}  // namespace
}  // namespace qv
