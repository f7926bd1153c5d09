// Georeferenced export and import: world files and control-point lists round-trip, the pixel
// conventions (world file: centre of the top-left pixel; image coordinates: its corner), hostile input.
// GDAL's reading of the exported files is checked end to end in tests/apps/georef.sh.
#include <qvgeo/geomap/calibration.h>
#include <qvgeo/geomap/calibration_file.h>
#include <qvgeo/geomap/georef_export.h>
#include <qvgeo/support/errors.h>

#include <gtest/gtest.h>

#include <sstream>

namespace qv {
namespace {

TMapCalibration Load(const char* Id)
{
    TCalibData d;
    TCalibModel m = cmUndefined;
    EXPECT_TRUE(ParseCalibData(QVGEO_SOURCE_DIR "/data/samples/calib-vienna.xml", Id, d, m));
    TMapCalibration cal;
    cal.SetImageSize(800, 600);
    cal.LoadCalibData(d, m);
    return cal;
}

TEST(WorldFile, RoundTripsToTheDigitsWrittenAndMeansPixelCentres)
{
    struct Case {
        const char* Text;
        std::int32_t W, H;
        TCalibModel Model;
        std::int32_t Zone;
        bool South;
    } cases[] = {
        // rotated, with terms of every sign and the full 12 decimals of a pixel term
        {"0.000168063623\n-0.000001984595\n-0.000003168151\n-0.000112422161\n16.2931324573\n48.241953092\n",
         800, 600, cmEquiRect, -1, false},
        {"-0.001\n0.0005\n0.0004\n0.002\n-70.5\n-33.25\n", 37, 1201, cmEquiRect, -1, false},
        {"2.48966176\n-0.3\n0.41\n-2.5\n312345.6789\n6123456.5\n", 4000, 3000, cmUTM, 56, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.Text);
        std::istringstream in(c.Text);
        TWorldFile w;
        std::string err;
        ASSERT_TRUE(ReadWorldFile(in, w, err)) << err;
        TMapCalibration cal;
        cal.SetImageSize(c.W, c.H);
        cal.LoadCalibData(WorldFileToCalib(w, c.W, c.H, c.Model, c.Zone, c.South), c.Model);
        // The calibration's pixel (x, y) is the world file's pixel centre: no half-pixel shift.
        const TLinearPars& lat = cal.EquRectPLSP()[0];
        const TLinearPars& lon = cal.EquRectPLSP()[1];
        for (TPoint p : {TPoint{0, 0}, TPoint{c.W / 3, c.H - 1}, TPoint{c.W - 1, 7}}) {
            EXPECT_NEAR(lon[0] + lon[1] * p.X + lon[2] * p.Y, w.C + w.A * p.X + w.B * p.Y, 1e-7);
            EXPECT_NEAR(lat[0] + lat[1] * p.X + lat[2] * p.Y, w.F + w.D * p.X + w.E * p.Y, 1e-7);
        }
        std::ostringstream out;
        WriteWorldFile(out, CalibWorldFile(cal), c.Model == cmUTM);
        EXPECT_EQ(out.str(), c.Text);
    }
}

TEST(GCPList, RoundTripsAndPutsPixelCentresHalfAPixelIn)
{
    for (const char* id : {"geo", "utm"}) {
        SCOPED_TRACE(id);
        const TMapCalibration cal = Load(id);
        const std::vector<TGroundControlPoint> gcps = CalibGCPs(cal);
        ASSERT_EQ(gcps.size(), 6u);  // the reference points
        const TCalQuad& q = cal.CalibData().CalQuads[3];
        EXPECT_EQ(gcps[3], (TGroundControlPoint{q.MapX + 0.5, q.MapY + 0.5, q.Longitude, q.Latitude}));
        std::stringstream text;
        WriteGCPList(text, cal, gcps);
        std::vector<TGroundControlPoint> back;
        std::string err;
        ASSERT_TRUE(ReadGCPList(text, back, err)) << err;
        EXPECT_EQ(back, gcps);
        TCalibData d;
        GCPsToCalib(back, d);
        ASSERT_EQ(d.NumCalQuads, cal.CalibData().NumCalQuads);
        for (int i = 0; i < d.NumCalQuads; ++i)
            EXPECT_EQ(d.CalQuads[static_cast<std::size_t>(i)], cal.CalibData().CalQuads[static_cast<std::size_t>(i)]);
    }
    // A model with no quads exports its fit on a grid; a grid point's place is the fit's at that pixel.
    const TMapCalibration grat = Load("grat");
    const std::vector<TGroundControlPoint> grid = CalibGCPs(grat, gcsAuto, 3);
    ASSERT_EQ(grid.size(), 9u);
    EXPECT_EQ(std::pair(grid[5].Pixel, grid[5].Line), std::pair(799.5, 300.5));
    bool v = false;
    EXPECT_EQ(grid[5].Y, grat.CalcLatitude(799, 300, v));
    EXPECT_EQ(grid[5].X, grat.CalcLongitude(799, 300, v));
    EXPECT_THROW(CalibGCPs(grat, gcsReferencePoints), EXELGeoMapError);
    EXPECT_THROW(CalibWorldFile(grat), EXELGeoMapError);
}

TEST(GeoRefInput, HostileFilesAreRefusedWithTheLine)
{
    const struct {
        const char* Text;
        const char* Error;
    } world[] = {
        {"1\n0\n0\n-1\n5\n", "this one 5"},
        {"1\n0\n0\n-1\n5\n6\n7\n", "line 7: a world file has six lines"},
        {"1\n0\n0\n-1\n1e999\n6\n", "line 5: not a number"},
        {"1\n2\n0.5\n1\n5\n6\n", "degenerate"},
    };
    for (const auto& c : world) {
        std::istringstream in(c.Text);
        TWorldFile w;
        std::string err;
        EXPECT_FALSE(ReadWorldFile(in, w, err)) << c.Text;
        EXPECT_NE(err.find(c.Error), std::string::npos) << err;
    }
    const struct {
        const char* Text;
        const char* Error;
    } gcp[] = {{"# none\n\n", "no control points"}, {"1 2 3 4\n1 2 3\n", "line 2"}, {"1 2 3 4 5\n", "line 1"},
               {"0.5 0.5 nan 4\n", "line 1"}};
    for (const auto& c : gcp) {
        std::istringstream in(c.Text);
        std::vector<TGroundControlPoint> g;
        std::string err;
        EXPECT_FALSE(ReadGCPList(in, g, err)) << c.Text;
        EXPECT_NE(err.find(c.Error), std::string::npos) << err;
    }
    EXPECT_THROW(WorldFileToCalib(TWorldFile{1, 0, 0, -1, 0, 0}, 100, 100, cmBiquadraticPn), EXELGeoMapError);
    TCalibData d;
    EXPECT_THROW(GCPsToCalib(std::vector<TGroundControlPoint>(201), d), EXELGeoMapError);
}

TEST(GeoRefVRT, NamesTheImageEscapedWithItsPalette)
{
    TImageBands bands;
    ASSERT_TRUE(ReadImageBands(QVGEO_SOURCE_DIR "/data/samples/calib-vienna.bmp", bands));
    EXPECT_EQ(bands.Count, 1);
    EXPECT_EQ(bands.Palette.size(), 2u);
    const TMapCalibration cal = Load("utm");
    std::ostringstream out;
    WriteGeoRefVRT(out, cal, CalibGCPs(cal), "a&b \"c\".bmp", true, bands);
    EXPECT_NE(out.str().find(">a&amp;b &quot;c&quot;.bmp</SourceFilename>"), std::string::npos);
    EXPECT_NE(out.str().find("Projection=\"EPSG:32633\""), std::string::npos);
    EXPECT_NE(UTMWKT(33, true, gelInt24).find("\"false_northing\",10000000"), std::string::npos);
}

}  // namespace
}  // namespace qv
