// Landmark files that other programs wrote (OGR in the test, ogr2ogr, a hand-typed GPX as devices write
// them), ogrinfo's view of our files, and hostile input: every bad file ends in a clear error.
#include "landmark_test_files.h"

#include <qvgeo/gdalio/landmark_exchange.h>
#include <qvgeo/geobasics/transverse_mercator.h>
#include <qvgeo/geomap/landmark_file.h>
#include <qvgeo/support/date_time.h>
#include <qvgeo/support/errors.h>

#include <gtest/gtest.h>

#include <gdal_priv.h>
#include <ogr_spatialref.h>
#include <ogrsf_frmts.h>

#include <cmath>
#include <limits>

namespace {

using namespace qv;
using lmtest::Date;
using lmtest::TScratch;

std::string ImportError(const std::string& File, const TLandMarkImportOptions& Options = {})
{
    TLandMarkImportReport report;
    try {
        ImportLandMarks(File, Options, report);
    } catch (const EXELGeoMapError& e) {
        return e.what();
    }
    return "no error";
}

bool Has(const std::vector<std::string>& Messages, const std::string& Part)
{
    for (const auto& m : Messages)
        if (m.find(Part) != std::string::npos)
            return true;
    return false;
}

const char* const DeviceGpx = R"(<?xml version="1.0" encoding="UTF-8"?>
<gpx version="1.1" creator="a handheld" xmlns="http://www.topografix.com/GPX/1/1">
  <wpt lat="47.0718" lon="15.4398">
    <ele>353.2</ele>
    <time>2023-08-01T06:15:30Z</time>
    <name>Uhrturm &amp; Schlo&#223;berg</name>
    <desc>a description we have no field for</desc>
    <sym>Flag, Blue</sym>
  </wpt>
  <wpt lat="-41.2865" lon="174.7762"><name>Wellington</name><sym>Square</sym></wpt>
  <rte><name>r</name>
    <rtept lat="1" lon="2"><name>R1</name></rtept>
    <rtept lat="3" lon="4"><name>R2</name></rtept>
  </rte>
  <trk><name>t</name><trkseg>
    <trkpt lat="10.5" lon="20.25"><ele>100</ele><time>2023-08-01T07:00:00+02:00</time></trkpt>
    <trkpt lat="10.6" lon="20.35"><ele>101</ele></trkpt>
    <trkpt lat="10.7" lon="20.45"/>
  </trkseg></trk>
</gpx>
)";

// Waypoints are the landmarks of a GPX file; route and track points only when asked for.
TEST(LandMarkForeign, DeviceGpxGivesItsWaypoints)
{
    TScratch dir;
    const std::string file = dir.Write("device.gpx", DeviceGpx);
    TLandMarkImportReport report;
    const auto lms = ImportLandMarks(file, {}, report);
    ASSERT_EQ(lms.size(), 2u);
    EXPECT_EQ(lms[0].Latitude, 47.0718);
    EXPECT_EQ(lms[0].Longitude, 15.4398);
    EXPECT_EQ(lms[0].Altitude, 353.2);
    EXPECT_EQ(lms[0].Time, Date(2023, 8, 1, 6, 15, 30));
    EXPECT_EQ(lms[0].Caption.Text, "Uhrturm & Schlo\xC3\x9F" "berg");
    EXPECT_EQ(lms[0].SymbolProps, DefaultLandMarkRecord().SymbolProps);  // "Flag, Blue": no catalogue
    EXPECT_EQ(lms[1].SymbolProps.Kind, lmSquare);
    EXPECT_EQ(lms[1].Altitude, 0);
    EXPECT_EQ(lms[1].Time, 0);
    EXPECT_EQ(report.UnknownSymbols, 1);
    EXPECT_EQ(report.LayersRead, std::vector<std::string>{"waypoints"});
    EXPECT_TRUE(Has(report.Messages, "layer route_points: 2 point(s) not imported")) << report.Messages.size();
    EXPECT_TRUE(Has(report.Messages, "layer track_points: 3 point(s) not imported"));

    TLandMarkImportOptions track;
    track.Layer = "track_points";
    const auto pts = ImportLandMarks(file, track, report);
    ASSERT_EQ(pts.size(), 3u);
    EXPECT_EQ(pts[0].Altitude, 100);
    EXPECT_EQ(pts[0].Time, Date(2023, 8, 1, 5, 0, 0));  // +02:00 brought to UTC
    EXPECT_EQ(pts[2].Latitude, 10.7);

    TLandMarkImportOptions tracks;
    tracks.Layer = "tracks";
    EXPECT_TRUE(ImportLandMarks(file, tracks, report).empty());
    EXPECT_EQ(report.NotPoints, 1);
    EXPECT_TRUE(Has(report.Messages, "1 feature(s) with geometry multilinestring skipped")) << report.Messages[0];
}

// A KML as a globe viewer saves it: a style per placemark, a zone in the time, folders, a path.
TEST(LandMarkForeign, SavedKmlGivesItsPlacemarks)
{
    TScratch dir;
    const std::string file = dir.Write("trip.kml", R"(<?xml version="1.0" encoding="UTF-8"?>
<kml xmlns="http://www.opengis.net/kml/2.2">
<Document><name>trip</name>
  <Style id="circle"><IconStyle><scale>1.1</scale></IconStyle></Style>
  <Placemark><name>Gipfel &amp; Kreuz</name><styleUrl>#circle</styleUrl>
    <TimeStamp><when>2021-07-04T10:20:30+01:00</when></TimeStamp>
    <Point><coordinates>11.5, 47.25, 2344.5</coordinates></Point></Placemark>
  <Placemark><name>Weg</name><LineString><coordinates>11,47 12,48</coordinates></LineString></Placemark>
  <Folder><name>Huts</name>
    <Placemark><name>Hut</name><styleUrl>#hut-style</styleUrl><Point><coordinates>11.6,47.3</coordinates></Point></Placemark>
  </Folder>
</Document></kml>
)");
    TLandMarkImportReport report;
    const auto lms = ImportLandMarks(file, {}, report);
    ASSERT_EQ(lms.size(), 2u);
    EXPECT_EQ(lms[0].Caption.Text, "Gipfel & Kreuz");
    EXPECT_EQ(lms[0].Latitude, 47.25);
    EXPECT_EQ(lms[0].Altitude, 2344.5);
    EXPECT_EQ(lms[0].Time, Date(2021, 7, 4, 9, 20, 30));
    EXPECT_EQ(lms[0].SymbolProps.Kind, lmCircle);  // the style's name is a kind's
    EXPECT_EQ(lms[1].Caption.Text, "Hut");
    EXPECT_EQ(lms[1].Altitude, 0);
    EXPECT_EQ(report.LayersRead, (std::vector<std::string>{"trip", "Huts"}));
    EXPECT_EQ(report.NotPoints, 1);
    EXPECT_EQ(report.UnknownSymbols, 1);
    EXPECT_TRUE(Has(report.Messages, "layer Huts, feature 1: symbol \"hut-style\" is not known"));
}

// A GeoJSON as people type it: mixed geometries, bad values, long names, zones and numbers as times.
TEST(LandMarkForeign, HandTypedGeoJson)
{
    TScratch dir;
    const std::string name100 = std::string(79, 'n') + "\xC3\xA9" + std::string(19, 'n');  // é at bytes 80, 81
    const std::string file = dir.Write("mixed.geojson", R"({"type": "FeatureCollection", "features": [
 {"type": "Feature", "geometry": {"type": "Point", "coordinates": [16.5, 48.1]},
  "properties": {"name": ")" + name100 + R"(", "symbol_fgcolor": "#FF8000", "caption_styles": ["bold", "strikeout"],
                 "time": "2024-01-02T03:04:05+02:00", "class": "17", "caption_halign": "RIGHT"}},
 {"type": "Feature", "geometry": {"type": "LineString", "coordinates": [[0, 0], [1, 1]]}, "properties": {}},
 {"type": "Feature", "geometry": null, "properties": {"name": "nowhere"}},
 {"type": "Feature", "geometry": {"type": "MultiPoint", "coordinates": [[0, 0], [1, 1]]}, "properties": {}},
 {"type": "Feature", "geometry": {"type": "Point", "coordinates": [1, 91]}, "properties": {"name": "beyond the pole"}},
 {"type": "Feature", "geometry": {"type": "Point", "coordinates": [400, 1]}, "properties": {}},
 {"type": "Feature", "geometry": {"type": "Point", "coordinates": [-190.5, -90, -11034]},
  "properties": {"class": 300, "symbol_bgcolor": "blue", "symbol_transparent": "maybe", "time": 45000.25,
                 "caption_valign": "middle", "identifier": "longer than fifteen", "caption_styles": ["heavy"],
                 "name": "the name wins", "caption_text": "over caption_text"}},
 {"type": "Feature", "geometry": {"type": "Point", "coordinates": [5, 5]}, "properties": {"caption_text": "no name"}}
]})");
    TLandMarkImportReport report;
    const auto lms = ImportLandMarks(file, {}, report);
    ASSERT_EQ(lms.size(), 3u);
    const TLandMark d = DefaultLandMarkRecord();
    EXPECT_EQ(lms[0].Caption.Text, std::string(79, 'n'));  // never inside a character
    EXPECT_EQ(lms[0].SymbolProps.FGColor, 0x000080FFu);
    EXPECT_EQ(lms[0].Caption.FontStyles, StrToFontStyles("1001"));
    EXPECT_EQ(lms[0].Time, Date(2024, 1, 2, 1, 4, 5));
    EXPECT_EQ(lms[0].ClassFlag, 17);
    EXPECT_EQ(lms[0].Caption.HAlignment, haRightJustify);
    EXPECT_EQ(lms[1].Longitude, -190.5);  // a map across the date line may number its longitudes so
    EXPECT_EQ(lms[1].Altitude, -11034);
    EXPECT_EQ(lms[1].ClassFlag, d.ClassFlag);
    EXPECT_EQ(lms[1].SymbolProps.BGColor, d.SymbolProps.BGColor);
    EXPECT_EQ(lms[1].SymbolProps.Transparent, d.SymbolProps.Transparent);
    EXPECT_EQ(lms[1].Time, 45000.25);
    EXPECT_EQ(lms[1].Caption.VAlignment, d.Caption.VAlignment);
    EXPECT_EQ(lms[1].Caption.FontStyles, d.Caption.FontStyles);
    EXPECT_EQ(lms[1].Identifier, "longer than fif");
    EXPECT_EQ(lms[1].Caption.Text, "the name wins");
    EXPECT_EQ(lms[2].Caption.Text, "no name");

    EXPECT_EQ(report.Features, 8);
    EXPECT_EQ(report.Imported, 3);
    EXPECT_EQ(report.NotPoints, 3);
    EXPECT_EQ(report.Invalid, 2);
    EXPECT_EQ(report.NamesCut, 1);
    EXPECT_EQ(report.IdentifiersCut, 1);
    EXPECT_EQ(report.BadAttributes, 5);
    EXPECT_TRUE(Has(report.Messages, "feature 5: latitude 91 is out of range; not imported"));
    EXPECT_TRUE(Has(report.Messages, "feature 6: longitude 400 is out of range; not imported"));
    EXPECT_TRUE(Has(report.Messages, "class \"300\" is out of range 0..255"));
    EXPECT_TRUE(Has(report.Messages, "1 feature(s) with no geometry skipped"));
    EXPECT_TRUE(Has(report.Messages, "1 feature(s) with geometry multipoint skipped"));
}

// Positions in another coordinate system come in as WGS 84 latitude and longitude.
TEST(LandMarkForeign, ProjectedLayerIsTransformed)
{
    TScratch dir;
    const std::string file = dir.Path("utm.gpkg");
    {
        GDALAllRegister();
        std::unique_ptr<GDALDataset> ds(
            GetGDALDriverManager()->GetDriverByName("GPKG")->Create(file.c_str(), 0, 0, 0, GDT_Unknown, nullptr));
        ASSERT_TRUE(ds);
        OGRSpatialReference utm;
        utm.importFromEPSG(32733);  // UTM zone 33 south
        OGRLayer* l = ds->CreateLayer("pts", &utm, wkbPoint25D, nullptr);
        OGRFieldDefn name("name", OFTString);
        l->CreateField(&name);
        OGRFeatureUniquePtr f(OGRFeature::CreateFeature(l->GetLayerDefn()));
        OGRPoint p(500000 + 12345.678, 10000000 - 3456789.5, 12.5);
        f->SetGeometry(&p);
        f->SetField(0, "Windhoek-ish");
        ASSERT_EQ(l->CreateFeature(f.get()), OGRERR_NONE);
    }
    TLandMarkImportReport report;
    const auto lms = ImportLandMarks(file, {}, report);
    ASSERT_EQ(lms.size(), 1u);
    double lat = 0, lon = 0;
    UTMToLatLong(500000 + 12345.678, 10000000 - 3456789.5, 33, true, gelWGS84, lat, lon);
    EXPECT_NEAR(lms[0].Latitude, lat, 1e-9);  // about 0.1 mm
    EXPECT_NEAR(lms[0].Longitude, lon, 1e-9);
    EXPECT_NEAR(lms[0].Altitude, 12.5, 1e-9);
    EXPECT_EQ(lms[0].Caption.Text, "Windhoek-ish");
    EXPECT_EQ(report.Transformed, 1);
}

std::vector<TLandMark> SampleSet()
{
    std::vector<TLandMark> set(3, DefaultLandMarkRecord());
    set[0] = {48.20849, 16.37208, 171, 1, 101, {lmSpade, 6, 0xFF, 0xFFFF, false, 0, 10}, {}, "STEPHANSDOM",
              Date(2024, 5, 17, 9, 30, 0)};
    set[0].Caption = DefaultLandMarkRecord().Caption;
    set[0].Caption.Text = "Stephansdom \xE2\x80\x93 \"Steffl\" & Co";
    set[0].Caption.FontStyles = StrToFontStyles("1000");
    set[1].Latitude = -45.5;
    set[1].Longitude = -179.999;
    set[1].Altitude = -12.25;
    set[1].Caption.Text = "<south>";
    set[2].Latitude = 89.9;
    set[2].Longitude = 180;
    set[2].SymbolProps.Kind = lmCircle;
    set[2].Time = Date(2000, 2, 29, 23, 59, 59);
    return set;
}

// Files converted by ogr2ogr, another writer of the same formats, read as the original.
TEST(LandMarkForeign, FilesConvertedByOgr2ogrReadBack)
{
    TScratch dir;
    const auto set = SampleSet();
    ExportLandMarks(set, dir.Path("src.geojson"), lffGeoJSON);
    struct {
        const char* Driver;
        const char* File;
        const char* Options;
        // A list field goes to KML as a text: ogr2ogr would declare it an array field, which the KML
        // reader skips.
    } const conversions[] = {{"GPKG", "c.gpkg", ""},
                             {"KML", "c.kml", "-mapFieldType StringList=String"},
                             {"GeoJSON", "c.json", ""}};
    for (const auto& c : conversions) {
        std::string out;
        ASSERT_EQ(lmtest::Run("ogr2ogr " + std::string(c.Options) + " -f " + c.Driver + " '" + dir.Path(c.File) + "' '" +
                                  dir.Path("src.geojson") + "'",
                              dir.Path("log.txt"), out),
                  0)
            << out;
        TLandMarkImportReport report;
        const auto back = ImportLandMarks(dir.Path(c.File), {}, report);
        ASSERT_EQ(back.size(), set.size()) << c.Driver;
        for (std::size_t i = 0; i < set.size(); ++i) {
            EXPECT_NEAR(back[i].Latitude, set[i].Latitude, 1e-12) << c.Driver;
            TLandMark b = back[i];
            b.Latitude = set[i].Latitude;
            b.Longitude = set[i].Longitude;
            EXPECT_NEAR(back[i].Longitude, set[i].Longitude, 1e-12) << c.Driver;
            EXPECT_EQ(lmtest::LandMarkDiff(b, set[i]), "") << c.Driver << " landmark " << i + 1;
        }
    }
}

struct THostile {
    const char* Name;
    const char* File;
    std::string Text;
    const char* Expect;  // part of the error message
};

TEST(LandMarkForeign, HostileFilesGiveClearErrors)
{
    const std::string wpt = R"(<wpt lat="1" lon="2"><name>a</name></wpt>)";
    const THostile cases[] = {
        {"empty gpx", "e.gpx", "", "cannot be read as a GPX file"},
        {"empty, format unknown", "e.dat", "", "cannot be read as a GPX, KML, GeoPackage or GeoJSON file"},
        {"text as GeoJSON", "t.geojson", "hello, world\n", "cannot be read as a GeoJSON file"},
        {"truncated GeoJSON", "t2.geojson", R"({"type": "FeatureCollection", "features": [{"type": "Feature", )",
         "cannot be read as a GeoJSON file"},
        {"text as GeoPackage", "t.gpkg", "SQLite format 3\nnot really", "cannot be read as a GeoPackage file"},
        {"text as KML", "t.kml", "<kml><Placemark><name>x</", "KML"},
        {"broken GPX", "b.gpx",
         "<?xml version=\"1.0\"?>\n<gpx version=\"1.1\" xmlns=\"http://www.topografix.com/GPX/1/1\">\n" + wpt +
             "\n<wpt lat=\"3\" lon=\"4\"><name>b</nam></wpt>\n</gpx>\n",
         "XML parsing of GPX file failed"},
        {"GPX cut short", "c.gpx",
         "<?xml version=\"1.0\"?>\n<gpx version=\"1.1\" xmlns=\"http://www.topografix.com/GPX/1/1\">\n" + wpt +
             "\n<wpt lat=\"3\" lo",
         "XML parsing of GPX file failed"},
        {"binary", "x.gpx", std::string("\0\1\2\3\xFF\xFE<gpx", 10), "cannot be read as a GPX file"},
    };
    TScratch dir;
    for (const auto& c : cases) {
        const std::string file = dir.Write(c.File, c.Text);
        const std::string error = ImportError(file);
        EXPECT_EQ(error.rfind("ImportLandMarks: ", 0), 0u) << c.Name << ": " << error;
        EXPECT_NE(error.find(c.Expect), std::string::npos) << c.Name << ": " << error;
    }
    EXPECT_NE(ImportError(dir.Path("missing.gpx")).find("is not a file"), std::string::npos);
    EXPECT_NE(ImportError(dir.Path("")).find("is not a file"), std::string::npos);

    // A raster is not a vector file, whatever its name says.
    {
        GDALAllRegister();
        std::unique_ptr<GDALDataset> ras(GetGDALDriverManager()->GetDriverByName("GTiff")->Create(
            dir.Path("r.tif").c_str(), 4, 4, 1, GDT_Byte, nullptr));
        ASSERT_TRUE(ras);
    }
    EXPECT_NE(ImportError(dir.Path("r.tif")).find("cannot be read as a GPX, KML"), std::string::npos);
    TLandMarkImportOptions asGpkg;
    asGpkg.Format = lffGPKG;
    EXPECT_NE(ImportError(dir.Path("r.tif"), asGpkg).find("as a GeoPackage file"), std::string::npos);

    // A layer that is not there: the message lists those that are.
    ExportLandMarks(SampleSet(), dir.Path("ok.gpkg"), lffGPKG);
    TLandMarkImportOptions layer;
    layer.Layer = "nope";
    EXPECT_NE(ImportError(dir.Path("ok.gpkg"), layer).find("has no layer \"nope\"; its layers: landmarks"),
              std::string::npos)
        << ImportError(dir.Path("ok.gpkg"), layer);
}

// A file with more features than allowed is refused, whether the driver knows the count beforehand
// (GeoJSON, GeoPackage) or finds out while reading (GPX).
TEST(LandMarkForeign, TooManyFeaturesAreRefused)
{
    TScratch dir;
    const std::vector<TLandMark> many(1001, DefaultLandMarkRecord());
    for (auto format : {lffGPX, lffGPKG, lffGeoJSON}) {
        const std::string file = dir.Path("many." + std::string(LandMarkFormatName(format)));
        ExportLandMarks(many, file, format);
        TLandMarkImportOptions options;
        options.MaxLandMarks = 1000;
        EXPECT_NE(ImportError(file, options).find("more than 1000"), std::string::npos)
            << LandMarkFormatName(format) << ": " << ImportError(file, options);
        options.MaxLandMarks = 1001;
        TLandMarkImportReport report;
        EXPECT_EQ(ImportLandMarks(file, options, report).size(), 1001u);
    }
}

// Coordinates that are not numbers, or beyond range, in a GPX as a careless writer makes it.
TEST(LandMarkForeign, NonFinitePointsAreReported)
{
    TScratch dir;
    const std::string file = dir.Write("nan.gpx", R"(<?xml version="1.0"?>
<gpx version="1.1" creator="x" xmlns="http://www.topografix.com/GPX/1/1">
<wpt lat="nan" lon="1"/>
<wpt lat="1" lon="inf"/>
<wpt lat="1e999" lon="1"/>
<wpt lat="-90.000001" lon="1"/>
<wpt lat="2" lon="3"><ele>nan</ele></wpt>
<wpt lat="-90" lon="-360"><ele>-1e308</ele></wpt>
</gpx>
)");
    TLandMarkImportReport report;
    const auto lms = ImportLandMarks(file, {}, report);
    // OGR reads a point with a coordinate "nan" as an empty point.
    EXPECT_EQ(report.NotPoints, 1);
    EXPECT_EQ(report.Invalid, 3);
    ASSERT_EQ(lms.size(), 2u);
    EXPECT_EQ(lms[0].Altitude, 0);
    EXPECT_EQ(lms[1].Latitude, -90);
    EXPECT_EQ(lms[1].Longitude, -360);
    EXPECT_EQ(lms[1].Altitude, -1e308);
    for (const char* m : {"1 feature(s) with geometry empty point skipped", "feature 2: longitude inf is out of range",
                          "feature 3: latitude inf is out of range", "feature 4: latitude -90.000001 is out of range",
                          "feature 5: elevation is not finite; 0 is taken"})
        EXPECT_TRUE(Has(report.Messages, m)) << m;
}

}  // namespace

namespace {

// An import that is the first GDAL call of a process (as in geotool) finds its drivers: the child
// process of a "threadsafe" death test starts afresh and runs only this test.
TEST(LandMarkForeignDeathTest, ImportAsTheFirstGdalCallOfAProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::string file = (lmtest::fs::temp_directory_path() /
                              ("qvgeo-lmx-first-call-" + std::to_string(static_cast<long>(::getpid())) + ".gpx"))
                                 .string();
    std::ofstream(file) << DeviceGpx;
    EXPECT_EXIT(
        {
            TLandMarkImportReport report;
            std::size_t n = 0;
            try {
                n = ImportLandMarks(file, {}, report).size();
            } catch (const std::exception& e) {
                std::fprintf(stderr, "%s\n", e.what());
            }
            std::remove(file.c_str());
            std::exit(n == 2 ? 0 : 3);
        },
        ::testing::ExitedWithCode(0), "");
    std::remove(file.c_str());
}

}  // namespace
