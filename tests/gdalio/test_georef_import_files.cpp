// `.map` and `.points` files: written from a calibration, read by GDAL (the `.map`) and imported back,
// they give the calibration's places; hostile files give clear messages.
#include "georef_test_util.h"

#include <qvgeo/gdalio/georef_import.h>
#include <qvgeo/geomap/calibration_file.h>
#include <qvgeo/geomap/georef_formats.h>

#include <gtest/gtest.h>

#include <sstream>

namespace qv {
namespace {

using namespace georeftest;

const std::vector<TPoint> kPixels = {{0, 0}, {799, 0}, {0, 599}, {799, 599}, {400, 300}, {17, 550}, {633, 41}, {123, 377}};

// The sample calibrations of Vienna, and a biquadratic one fitted to 8 points with metres of misfit.
TMapCalibration Sample(const std::string& Id)
{
    TMapCalibration cal;
    cal.SetImageSize(800, 600);
    if (Id == "utms") {  // 8 km by 6 km of UTM zone 33 south: affine in degrees to a quarter pixel
        cal.LoadCalibData(WorldFileToCalib(TWorldFile{10, 0, 0, -10, 300005, 6199995}, 800, 600, cmUTM, 33, true),
                          cmUTM);
        return cal;
    }
    if (Id == "bq") {
        TCalibData d;
        const double pts[][4] = {{48.25, 16.29, 0, 0},       {48.25, 16.4245, 799, 0},   {48.1833, 16.29, 0, 599},
                                 {48.1830, 16.4250, 799, 599}, {48.2167, 16.3572, 400, 300}, {48.2300, 16.3200, 180, 180},
                                 {48.2000, 16.4000, 620, 450}, {48.2400, 16.4100, 700, 90}};
        for (const auto& p : pts)
            d.CalQuads[static_cast<std::size_t>(d.NumCalQuads++)] = {p[0], p[1], static_cast<std::int32_t>(p[2]),
                                                                     static_cast<std::int32_t>(p[3])};
        cal.LoadCalibData(d, cmBiquadraticPn);
        return cal;
    }
    TCalibData d;
    TCalibModel m = cmUndefined;
    EXPECT_TRUE(ParseCalibData(QVGEO_SOURCE_DIR "/data/samples/calib-vienna.xml", Id, d, m));
    cal.LoadCalibData(d, m);
    return cal;
}

// The largest distance between two calibrations' places over the test pixels.
double WorstBetween(const TMapCalibration& A, const TGeoRefImport& R)
{
    TMapCalibration b;
    b.SetImageSize(R.Width, R.Height);
    b.LoadCalibData(R.Data, R.Model);
    double worst = 0;
    for (const TPoint p : kPixels) {
        TCoords ca, cb;
        EXPECT_TRUE(A.CalcPosition(p, ca) && b.CalcPosition(p, cb));
        worst = std::max(worst, NearbyDistance(ca.Latit, ca.Longit, cb.Latit, cb.Longit, gelWGS84));
    }
    return worst;
}

TEST(GeoRefFiles, MapFilesReadByGDALGiveTheCalibrationsPlacesAndImportBack)
{
    const struct {
        const char* Id;
        double GdalTol;   // metres between GDAL's places (its own choice of polynomial) and ours
    } cases[] = {
        {"geo", 0.005},  // places to 1e-6 minute (2 mm)
        {"utm", 0.05},   // the UTM plane is not quite a polynomial in degrees over 10 km
        {"bq", 0.005},
        {"utms", 0.05},  // GDAL would make these points one affine transform, up to 2.5 m off
    };
    TTempDir dir;
    MakeRaster(dir.File("m.tif"), 800, 600, nullptr, nullptr, {});
    for (const auto& c : cases) {
        SCOPED_TRACE(c.Id);
        const TMapCalibration cal = Sample(c.Id);
        std::ostringstream text;
        WriteMapFile(text, cal, "m.tif", c.Id);
        const std::string map = dir.File(std::string(c.Id) + ".map");
        WriteText(map, text.str());
        // GDAL's own places: through a geotransform when the points are affine, else its polynomial.
        // GDAL takes points that an affine transform fits within a quarter pixel as affine; held to a
        // thousandth of a pixel, as the import holds it, it reproduces the calibration.
        CPLSetConfigOption("GDAL_GCPS_TO_GEOTRANSFORM_APPROX_THRESHOLD", "0.001");
        TGeoRefImport asCal;
        asCal.Width = 800;
        asCal.Height = 600;
        asCal.Data = cal.CalibData();
        asCal.Model = cal.CalibModel();
        EXPECT_LE(WorstDistanceToGDAL(map, asCal, kPixels, "EPSG:4326"), c.GdalTol);
        CPLSetConfigOption("GDAL_GCPS_TO_GEOTRANSFORM_APPROX_THRESHOLD", nullptr);
        // Imported back: the same places, within the import's own residuals.
        const TGeoRefImport r = ImportGeoRef(map, grfMapFile);
        EXPECT_EQ(r.Width, 800);
        EXPECT_EQ(r.Data.MapFName, dir.File("m.tif"));
        EXPECT_LE(WorstBetween(cal, r), r.Residuals.RmsMetres + c.GdalTol) << CalibModelKeywords[r.Model];
    }
}

TEST(GeoRefFiles, PointsFilesRoundTripTheReferencePoints)
{
    TTempDir dir;
    MakeRaster(dir.File("m.tif"), 800, 600, nullptr, nullptr, {});
    for (const char* id : {"geo", "utm", "bq"}) {
        SCOPED_TRACE(id);
        const TMapCalibration cal = Sample(id);
        std::ostringstream text;
        WritePointsFile(text, cal);
        const std::string points = dir.File(std::string(id) + ".points");
        WriteText(points, text.str());
        TGeoRefOptions o;
        o.Image = dir.File("m.tif");
        const TGeoRefImport r = ImportGeoRef(points, grfPoints, o);
        // Every reference point comes back on its own pixel with its own place.
        const TCalibData& d = cal.CalibData();
        ASSERT_EQ(r.Data.NumCalQuads, d.NumCalQuads);
        for (int i = 0; i < d.NumCalQuads; ++i) {
            const TCalQuad& a = d.CalQuads[static_cast<std::size_t>(i)];
            const TCalQuad& b = r.Data.CalQuads[static_cast<std::size_t>(i)];
            EXPECT_EQ(a.MapX, b.MapX);
            EXPECT_EQ(a.MapY, b.MapY);
            if (r.Model == cal.CalibModel()) {
                EXPECT_DOUBLE_EQ(a.Latitude, b.Latitude);
                EXPECT_DOUBLE_EQ(a.Longitude, b.Longitude);
            }
        }
        // The same model fitted to the same points gives the same places; another one differs by no more
        // than the two fits' residuals.
        if (r.Model == cal.CalibModel()) {
            EXPECT_LE(WorstBetween(cal, r), 1e-6);
        } else {
            const double own = CalibResiduals(d, cal.Fit(), 800, 600, false).RmsMetres;
            EXPECT_LE(WorstBetween(cal, r), 3 * (own + r.Residuals.RmsMetres)) << CalibModelKeywords[r.Model];
        }
    }
}

TEST(GeoRefFiles, HostilePointsAndMapFilesGiveClearMessages)
{
    TTempDir dir;
    MakeRaster(dir.File("m.tif"), 100, 80, nullptr, nullptr, {});
    TGeoRefOptions o;
    o.Image = dir.File("m.tif");
    const std::string hdr = "mapX,mapY,pixelX,pixelY,enable,dX,dY,residual\n";
    const std::string ok = "16.2,48.3,0.5,-0.5,1,0,0,0\n16.3,48.3,99.5,-0.5,1,0,0,0\n16.2,48.2,0.5,-79.5,1,0,0,0\n";
    std::string many = hdr;
    for (int i = 0; i < 201; ++i)
        many += "16." + std::to_string(i) + ",48.3," + std::to_string(i % 100) + ".5,-" + std::to_string(i / 100) +
                ".5,1,0,0,0\n";
    const struct {
        const char* Name;
        std::string Text;
        const char* Part;
    } cases[] = {
        {"truncated", hdr + ok + "16.25,48.25,5", "line 5: expected 8 comma-separated fields, found 3"},
        {"nan", hdr + "nan,48.3,0.5,-0.5,1,0,0,0\n" + ok, "line 2: field 1 \"nan\" is not a finite number"},
        {"infinite pixel", hdr + ok + "16.2,48.3,inf,-0.5,1,0,0,0\n", "line 5: field 3"},
        {"too many", many, "line 202: more than 200 enabled points"},
        {"no header", ok, "line 1: expected the header"},
        {"empty", "", "not a .points file"},
        {"all disabled", hdr + "16.2,48.3,0.5,-0.5,0,0,0,0\n", "no enabled points"},
        {"bad crs", "#CRS: PROJCS[nonsense\n" + hdr + ok, "not a coordinate system GDAL knows"},
        {"two points", hdr + "16.2,48.3,0.5,-0.5,1,0,0,0\n16.3,48.3,99.5,-0.5,1,0,0,0\n", "3 points or more"},
        {"metres without crs", hdr + "500000,5000000,0.5,-0.5,1,0,0,0\n500100,5000000,99.5,-0.5,1,0,0,0\n"
                                     "500000,4999900,0.5,-79.5,1,0,0,0\n",
         "--crs"},
        {"binary", std::string("\x89PNG\r\n\x1a\n\0\0", 10), "line 1"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.Name);
        const std::string f = dir.File("h.points");
        WriteText(f, c.Text);
        ExpectImportError(f, grfPoints, o, c.Part);
    }
    // `.map` files GDAL refuses: GDAL's reason, with the file's name.
    const std::string magic(MapFileMagic);
    const struct {
        const char* Name;
        std::string Text;
        std::string Part;
    } maps[] = {
        {"no image", magic + "\r\nt\r\nnowhere.tif\r\n1 ,Map Code,\r\nWGS 84,WGS 84,   0.0000,   0.0000,WGS 84\r\n"
                             "Reserved 1\r\nReserved 2\r\nMagnetic Variation,,,E\r\n"
                             "Map Projection,Latitude/Longitude,PolyCal,No,AutoCalOnly,No,BSBUseWPX,No\r\n"
                             "Point01,xy,    0,    0,in, deg,  48, 18.0,N,  16, 12.0,E, grid,   ,    ,    ,N\r\n",
         "nowhere.tif"},
        {"header only", magic + "\r\n", "GDAL does not read it as a .map calibration file"},
        {"not a map", "hello\r\n", "\"" + dir.File("bad.map") + "\": GDAL does not read it as a .map calibration file"},
    };
    for (const auto& c : maps) {
        SCOPED_TRACE(c.Name);
        WriteText(dir.File("bad.map"), c.Text);
        ExpectImportError(dir.File("bad.map"), grfMapFile, {}, c.Part);
    }
}

}  // namespace
}  // namespace qv
