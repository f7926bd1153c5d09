// The `.map` and `.points` writers and the `.points` reader, without GDAL: the exact lines written, the
// pixel conventions (a `.map` point at its pixel's corner, `.points` y negated), hostile `.points` text.
// GDAL's reading of the written files is checked in tests/gdalio/.
#include <qvgeo/geomap/calibration.h>
#include <qvgeo/geomap/georef_formats.h>
#include <qvgeo/support/errors.h>

#include <gtest/gtest.h>

#include <sstream>

namespace qv {
namespace {

// An equirect calibration of a 400 x 300 image: latitude Lat0 - 0.0006·y, longitude Lon0 + 0.00075·x at
// pixel centres.
TMapCalibration Equirect(double Lat0, double Lon0)
{
    TCalibData d;
    for (const TPoint p : {TPoint{0, 0}, TPoint{399, 0}, TPoint{0, 299}, TPoint{399, 299}})
        d.CalQuads[static_cast<std::size_t>(d.NumCalQuads++)] = {Lat0 - 0.0006 * p.Y, Lon0 + 0.00075 * p.X, p.X, p.Y};
    TMapCalibration cal;
    cal.SetImageSize(400, 300);
    cal.LoadCalibData(d, cmEquiRect);
    return cal;
}

std::vector<std::string> Lines(const std::string& Text)
{
    std::vector<std::string> out;
    std::istringstream in(Text);
    for (std::string l; std::getline(in, l);) {
        EXPECT_FALSE(l.empty() || l.back() != '\r') << "line without CR LF: " << l;
        if (!l.empty() && l.back() == '\r')
            l.pop_back();
        out.push_back(l);
    }
    return out;
}

TEST(MapFileWriter, PointsSitAtPixelCornersWithTheCornersPlaces)
{
    std::ostringstream text;
    WriteMapFile(text, Equirect(48.3, 16.2), "scan.tif", "Vienna");
    const std::vector<std::string> l = Lines(text.str());
    ASSERT_GE(l.size(), 9u + 30u);
    EXPECT_EQ(l[0], MapFileMagic);
    EXPECT_EQ(l[1], "Vienna");
    EXPECT_EQ(l[2], "scan.tif");
    EXPECT_EQ(l[4], "WGS 84,WGS 84,   0.0000,   0.0000,WGS 84");
    EXPECT_EQ(l[8].rfind("Map Projection,Latitude/Longitude,", 0), 0u);
    // Image coordinate (0, 0) is half a pixel up and left of pixel (0, 0)'s centre: 48.3003, 16.199625.
    EXPECT_EQ(l[9], "Point01,xy,    0,    0,in, deg,  48, 18.018000,N,  16, 11.977500,E, grid,   ,           ,           ,N");
    // The grid's columns 0, 100, 200, 299, 399 (399·i/4 rounded half to even); point 25 is the last corner.
    EXPECT_EQ(l[12].substr(0, 23), "Point04,xy,  299,    0,");
    // (399, 299): 48.3 - 0.0006·298.5 = 48.1209, 16.2 + 0.00075·398.5 = 16.498875.
    EXPECT_EQ(l[33], "Point25,xy,  399,  299,in, deg,  48,  7.254000,N,  16, 29.932500,E, grid,   ,           ,           ,N");
    EXPECT_EQ(l[34].substr(0, 22), "Point26,xy,     ,     ");
    EXPECT_EQ(l[38].substr(0, 7), "Point30");
    EXPECT_EQ(l[39].rfind("Projection Setup", 0), 0u);
    EXPECT_EQ(l.back(), "IWH,Map Image Width/Height,400,300");
}

TEST(MapFileWriter, SouthAndWestAreLettersNotSigns)
{
    std::ostringstream text;
    WriteMapFile(text, Equirect(-0.1, -0.2), "x.tif", "t");
    const std::vector<std::string> l = Lines(text.str());
    // (0, 0): latitude -0.0997, longitude -0.200375: 0° 5.982' S, 0° 12.0225' W.
    EXPECT_EQ(l[9], "Point01,xy,    0,    0,in, deg,   0,  5.982000,S,   0, 12.022500,W, grid,   ,           ,           ,N");
}

TEST(MapFileWriter, RefusesACalibrationWithoutImageSizeOrModel)
{
    TMapCalibration none;
    std::ostringstream text;
    EXPECT_THROW(WriteMapFile(text, none, "x", "t"), EXELGeoMapError);
    TMapCalibration cal = Equirect(48, 16);
    cal.SetImageSize(0, 0);
    EXPECT_THROW(WriteMapFile(text, cal, "x", "t"), EXELGeoMapError);
}

TEST(PointsFile, WrittenPointsReadBackWithYNegatedInTheFile)
{
    const TMapCalibration cal = Equirect(48.3, 16.2);
    std::ostringstream text;
    WritePointsFile(text, cal);
    const std::vector<std::string> l = [&] {
        std::vector<std::string> v;
        std::istringstream in(text.str());
        for (std::string s; std::getline(in, s);)
            v.push_back(s);
        return v;
    }();
    ASSERT_EQ(l.size(), 6u);
    EXPECT_EQ(l[0].rfind("#CRS: GEOGCS[\"WGS 84\"", 0), 0u);
    EXPECT_EQ(l[1], "mapX,mapY,pixelX,pixelY,enable,dX,dY,residual");
    EXPECT_EQ(l[2], "16.2,48.3,0.5,-0.5,1,0,0,0");
    EXPECT_EQ(l[5].substr(0, 9), "16.49925,");
    EXPECT_NE(l[5].find(",399.5,-299.5,1,0,0,0"), std::string::npos) << l[5];
    std::istringstream in(text.str());
    TPointsFile f;
    std::string error;
    ASSERT_TRUE(ReadPointsFile(in, f, error)) << error;
    EXPECT_EQ(f.CRS, l[0].substr(6));
    EXPECT_EQ(f.Points, CalibGCPs(cal));
}

TEST(PointsFile, ReadsBothHeadersDisabledPointsAndWindowsLineEnds)
{
    const struct {
        const char* Name;
        const char* Text;
        std::size_t Points;
        int Disabled;
        TGroundControlPoint First;
    } cases[] = {
        {"older header", "mapX,mapY,pixelX,pixelY,enable\n1,2,3.5,-4.5,1\n", 1, 0, {3.5, 4.5, 1, 2}},
        {"source columns, CR LF", "#CRS: EPSG:4326\r\nmapX,mapY,sourceX,sourceY,enable,dX,dY,residual\r\n\r\n"
                                  "1,2,3,-4,1,0,0,0\r\n5,6,7,-8,0,0,0,0\r\n",
         1, 1, {3, 4, 1, 2}},
        {"spaces and signs", "  MAPX,MAPY,PIXELX,PIXELY,ENABLE  \n +1.5e1 , -2 , 0 , 0 , 1 \n", 1, 0, {0, 0, 15, -2}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.Name);
        std::istringstream in(c.Text);
        TPointsFile f;
        std::string error;
        ASSERT_TRUE(ReadPointsFile(in, f, error)) << error;
        ASSERT_EQ(f.Points.size(), c.Points);
        EXPECT_EQ(f.Disabled, c.Disabled);
        EXPECT_EQ(f.Points[0], c.First);
    }
}

TEST(PointsFile, HostileTextNamesTheLine)
{
    const std::string hdr = "mapX,mapY,pixelX,pixelY,enable,dX,dY,residual\n";
    const struct {
        const char* Name;
        std::string Text;
        const char* Error;
    } cases[] = {
        {"crs after header", hdr + "#CRS: EPSG:4326\n", "line 2: the \"#CRS:\" line must come before the header"},
        {"short", hdr + "1,2,3\n", "line 2: expected 8 comma-separated fields, found 3"},
        {"long", hdr + "1,2,3,4,1,0,0,0,9\n", "line 2: expected 8 comma-separated fields, found 9"},
        {"empty field", hdr + "1,,3,4,1,0,0,0\n", "line 2: field 2 \"\" is not a finite number"},
        {"nan", hdr + "1,2,nan,4,1,0,0,0\n", "line 2: field 3 \"nan\" is not a finite number"},
        {"huge", hdr + "1,2,3,1e999,1,0,0,0\n", "line 2: field 4 \"1e999\" is not a finite number"},
        {"enable 2", hdr + "1,2,3,4,2,0,0,0\n", "line 2: enable must be 0 or 1, not \"2\""},
        {"comma decimals", hdr + "1,5,2,3,4,1,0,0\n", "line 2: enable must be 0 or 1, not \"4\""},
        {"wrong header", "x,y,px,py,enable\n", "line 1: expected the header"},
        {"header only", hdr, "no enabled points"},
        {"nothing", "\n\n", "no header"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.Name);
        std::istringstream in(c.Text);
        TPointsFile f;
        std::string error;
        EXPECT_FALSE(ReadPointsFile(in, f, error));
        EXPECT_EQ(error.substr(0, std::string(c.Error).size()), c.Error);
    }
    std::string many = hdr;
    for (int i = 0; i < 201; ++i)
        many += "1,2,3,4,1,0,0,0\n";
    many += "garbage\n";
    std::istringstream in(many);
    TPointsFile f;
    std::string error;
    EXPECT_FALSE(ReadPointsFile(in, f, error));
    EXPECT_EQ(error, "line 202: more than 200 enabled points (a calibration holds at most 200)");
}

}  // namespace
}  // namespace qv
