// Synthetic empty maps: frame, graticule rows and columns at their formula positions, labels, the nine
// quads, argument normalisation, the data callback, and the written image and calibration files.
#include <qvgeo/mapview/empty_map.h>

#include <qvgeo/geomap/calibration_file.h>
#include <qvgeo/platform/image_files.h>
#include <qvgeo/support/errors.h>

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <tuple>

#include <unistd.h>

namespace {

using namespace qv;

constexpr TColor Black = 0x000000, White = 0xFFFFFF, Silver = 0xC0C0C0;

TEmptyMapRequest R(double latMin, double lonMin, double latMax, double lonMax, double dLat, double dLon, int w, int h)
{
    TEmptyMapRequest r;
    std::tie(r.LatMin, r.LongMin, r.LatMax, r.LongMax, r.LatGratDist, r.LongGratDist, r.Width, r.Height) =
        std::tuple(latMin, lonMin, latMax, lonMax, dLat, dLon, w, h);
    return r;
}

// Pixels of colour c in [x0, x1) x [y0, y1).
int Count(const TBitmap& b, int x0, int y0, int x1, int y1, TColor c)
{
    int n = 0;
    for (int y = y0; y < y1; ++y)
        for (int x = x0; x < x1; ++x)
            n += b.Pixel(x, y) == c;
    return n;
}

TEST(EmptyMap, Labels)
{
    const struct { double value, dist; bool lat; const char* text; } cases[] = {
        {48.25, 0.05, true, " 48°15'00\" N "}, {48.2, 0.06, true, " 48°12'00\" N "}, {48.2, 0.07, true, " 48°12' N "},
        {42, 2, true, " 42° N "},            {12.5, 2.5, false, " 12°30' E "},     {-33.5, 0.5, true, " 33°30' S "},
        {-120, 10, false, " 120° W "},       {0, 1, false, " 0° E "},             {-5.6e-17, 0.05, true, " 0°00'00\" N "},
        {-0.0001, 0.05, false, " 0°00'00\" E "}, {-0.0003, 0.05, false, " 0°00'01\" W "},
    };
    for (const auto& c : cases)
        EXPECT_EQ(EmptyMapLabel(c.value, c.dist, c.lat), c.text) << c.value << " every " << c.dist;
}

// 40..50.001 N, 10..20.001 E on 400 x 300: parallels every 2° at rows 300 - round((φ - 40)/10.001 · 240) - 30,
// meridians every 2.5° at columns round((λ - 10)/10.001 · 340) + 30; the lines at 40° and 50° N, 10° and 20° E
// fall on the frame and are left out.
TEST(EmptyMap, FrameGraticuleAndLabels)
{
    TBitmap b;
    TCalibData d;
    GenerateEmptyMap(R(40, 10, 50.001, 20.001, 2, 2.5, 400, 300), b, d);
    ASSERT_EQ(TSize({b.Width(), b.Height()}), TSize({400, 300}));
    // Pixels of a colour in a rectangle, between lo and hi. The solid frame on the inner edge (its top and
    // left sides crossed by the labels' boxes), the dotted one 4 px outside; a parallel's row is dashed
    // silver and the row below it is crossed only by the meridians at 115, 200 and 285, the same for
    // columns; no line or label on the frame (40° N would be row 270, 50° N row 30, 10° E column 30, 20° E 370).
    struct { int x0, y0, x1, y1; TColor c; int lo, hi; } counts[] = {
        {30, 30, 371, 31, Black, 338, 341},  {30, 270, 371, 271, Black, 341, 341}, {30, 30, 31, 271, Black, 237, 241},
        {370, 30, 371, 271, Black, 241, 241}, {26, 26, 375, 27, Black, 101, 259},  {26, 274, 375, 275, Black, 101, 259},
        {0, 0, 26, 26, White, 676, 676}, {0, 270, 400, 271, Silver, 0, 0}, {0, 30, 400, 31, Silver, 0, 3},
        {30, 0, 31, 300, Silver, 0, 4},       {370, 0, 371, 300, Silver, 0, 0}};
    for (const auto& k : counts) {
        const int n = Count(b, k.x0, k.y0, k.x1, k.y1, k.c);
        EXPECT_TRUE(n >= k.lo && n <= k.hi) << n << " at " << k.x0 << "," << k.y0;
    }
    for (int y : {222, 174, 126, 78}) {
        EXPECT_GT(Count(b, 100, y, 300, y + 1, Silver), 80) << y;
        EXPECT_LT(Count(b, 100, y, 300, y + 1, Silver), 190) << y;
        EXPECT_LE(Count(b, 100, y + 1, 300, y + 2, Silver), 3) << y;
    }
    for (int x : {115, 200, 285}) {
        EXPECT_GT(Count(b, x, 40, x + 1, 260, Silver), 80) << x;
        EXPECT_LE(Count(b, x + 1, 40, x + 2, 260, Silver), 4) << x;
    }
    // Labels, pixel for pixel as the text written there on white: parallels left (from x = 36) and right
    // (ending 36 px before the edge), centred on the row; meridians above (ending 24 px below the top) and
    // below (from y = 276), centred on the column. None for the lines left out.
    const auto labelAt = [&](int X, int Y, const std::string& Text) {
        const TSize e = b.Canvas().TextExtent(Text);
        TBitmap ref(400, 300);
        ref.Canvas().TextOut(X, Y, Text);
        for (int y = Y; y < Y + e.cy; ++y)
            for (int x = X; x < X + e.cx; ++x)
                if (b.Pixel(x, y) != ref.Pixel(x, y))
                    return false;
        return Count(ref, X, Y, X + e.cx, Y + e.cy, Black) > 10;
    };
    const std::string lat = EmptyMapLabel(42, 2, true), lon = EmptyMapLabel(15, 2.5, false);
    const TSize e = b.Canvas().TextExtent(lat), em = b.Canvas().TextExtent(lon);
    EXPECT_TRUE(labelAt(36, 222 - e.cy / 2, lat));
    EXPECT_TRUE(labelAt(364 - e.cx, 222 - e.cy / 2, lat));
    EXPECT_TRUE(labelAt(200 - em.cx / 2, 24 - em.cy, lon));
    EXPECT_TRUE(labelAt(200 - em.cx / 2, 276, lon));
    EXPECT_EQ(Count(b, 31, 31, 110, 40, Black), 0);    // 50° N
    EXPECT_EQ(Count(b, 31, 262, 110, 270, Black), 0);  // 40° N; 10° E: the white corner above
}

// The nine quads, with and without the margin, and the rest of the record.
TEST(EmptyMap, Calibration)
{
    for (bool grat : {true, false}) {
        TEmptyMapRequest r = R(-10, 100, 20, 130, 5, 5, 401, 301);
        r.ShowGrat = grat;
        TBitmap b;
        TCalibData d;
        d.NumCalLines = 3;
        d.MapFName = "old.bmp";
        GenerateEmptyMap(r, b, d);
        EXPECT_EQ(d.Caption, "Map generated by TGeoMap");
        EXPECT_TRUE(d.MapFName.empty() && d.NumCalLines == 0 && d.UTMZone == -1 && d.Resolution == 0.0);
        EXPECT_EQ(d.Corners, (TCornerArray{TCoords{20, 100}, {-10, 100}, {-10, 130}, {20, 130}}));
        ASSERT_EQ(d.NumCalQuads, 9);
        // (401 - 60)/2 + 30 = 200.5 and 301/2 = 150.5 round half to even.
        const int xs[2][3] = {{0, 200, 401}, {30, 200, 371}};
        const int ys[2][3] = {{301, 150, 0}, {271, 150, 30}};
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j)
                EXPECT_EQ(d.CalQuads[static_cast<std::size_t>(i * 3 + j)],
                          (TCalQuad{-10 + 15.0 * i, 100 + 15.0 * j, xs[grat][j], ys[grat][i]}))
                    << i << j;
        EXPECT_TRUE(grat || Count(b, 0, 0, 401, 301, White) == 401 * 301);  // no frame without the graticule
    }
}

// Swapped limits, a width of 50, distances <= 0, and the callback: called once, after the graticule, with
// the normalised arguments.
TEST(EmptyMap, NormalisationAndCallback)
{
    TBitmap a, b;
    TCalibData da, db;
    GenerateEmptyMap(R(40, 10, 50, 20, 2, 2.5, 300, 200), a, da);
    TEmptyMapRequest swapped = R(50, 20, 40, 10, 2, 2.5, 300, 200);
    int calls = 0;
    swapped.OnDrawData = [&](TCanvas& c, double latMin, double lonMin, double latMax, double lonMax,
                             std::int32_t w, std::int32_t h) {
        ++calls;
        EXPECT_TRUE(latMin == 40 && lonMin == 10 && latMax == 50 && lonMax == 20 && w == 300 && h == 200);
        EXPECT_EQ(c.Pixel(120, 30), Black);  // the frame is there already
        EXPECT_TRUE(c.Pen.Style == psSolid && c.Pen.Color == Black);  // not the graticule's pen
    };
    GenerateEmptyMap(swapped, b, db);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(a.Image(), b.Image());
    EXPECT_EQ(da, db);

    GenerateEmptyMap(R(40, 10, 50, 20, 2, 2.5, 50, 99), b, db);
    EXPECT_EQ(b.Width(), 100);
    EXPECT_EQ(b.Height(), 100);
    EXPECT_EQ(db.CalQuads[2].MapX, 70);

    // A distance <= 0 becomes 1°: 40..50 on 300 rows gives a parallel every 24 rows.
    GenerateEmptyMap(R(40, 10, 50, 20, 0, -3, 300, 300), b, db);
    for (int y = 246; y > 30; y -= 24)
        EXPECT_GT(Count(b, 100, y, 200, y + 1, Silver), 30) << y;
    EXPECT_LE(Count(b, 100, 258, 200, 259, Silver), 10);
    const TEmptyMapRequest n = NormalizedEmptyMapRequest(R(50, 20, 40, 10, 0, -3, 50, 99));
    EXPECT_TRUE(n.LatMin == 40 && n.LongMax == 20 && n.LatGratDist == 1.0 && n.LongGratDist == 1.0);
}

TEST(EmptyMap, HostileArguments)
{
    TBitmap b;
    TCalibData d;
    EXPECT_THROW(GenerateEmptyMap(R(40, 10, NAN, 20, 1, 1, 200, 200), b, d), EXELGeoMapError);
    EXPECT_THROW(GenerateEmptyMap(R(40, 10, 50, INFINITY, 1, 1, 200, 200), b, d), EXELGeoMapError);
    EXPECT_THROW(GenerateEmptyMap(R(-80, 10, 80, 20, 1e-9, 1, 200, 200), b, d), EXELGeoMapError);
    // Equal limits: the lines at 45° and 10° divide by zero and are left out.
    GenerateEmptyMap(R(45.5, 10.5, 45.5, 10.5, 1, 1, 200, 200), b, d);
    EXPECT_EQ(Count(b, 0, 0, 200, 200, Silver), 0);
}

// The file variant: image and calibration read back (tests/apps/map.sh checks the fitted model).
TEST(EmptyMap, WrittenFiles)
{
    namespace fs = std::filesystem;
    const fs::path dir = fs::temp_directory_path() / ("qvgeo_empty_map_" + std::to_string(::getpid()));
    fs::create_directories(dir);
    const TEmptyMapRequest r = R(47, 9, 49, 17, 0.5, 1, 640, 480);
    const TEmptyMapFiles files = WriteEmptyMapFiles((dir / "sheet.any").string(), r);
    EXPECT_EQ(files.ImageFile, (dir / "sheet.bmp").string());
    EXPECT_EQ(files.CalibFile, (dir / "sheet.xml").string());

    TBitmap expected, loaded;
    TCalibData d;
    GenerateEmptyMap(r, expected, d);
    LoadImageFile(loaded, files.ImageFile);
    EXPECT_EQ(loaded.Image(), expected.Image());
    std::ifstream in(files.CalibFile, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    EXPECT_EQ(text.str().rfind("<?xml version=\"1.0\"?>\n\n<!-- TGeoMap Calibration / Quorvanta -->\n", 0), 0u);
    TCalibData back;
    TCalibModel model = cmUndefined;
    ASSERT_TRUE(ParseCalibData(files.CalibFile, "XEL_geomap_caldata", back, model));
    EXPECT_EQ(std::tuple(model, back.MapFName, back.NumCalQuads), std::tuple(cmBiquadraticPn, files.ImageFile, 9));
    LoadImageFile(loaded, WriteEmptyMapFiles((dir / "sheet2").string(), r, ".png").ImageFile);
    EXPECT_EQ(loaded.Image(), expected.Image());
    EXPECT_THROW(WriteEmptyMapFiles((dir / "sheet3").string(), r, ".tif"), EXELGeoMapError);
    EXPECT_THROW(WriteEmptyMapFiles((dir / "no" / "such" / "dir").string(), r), EXELError);
    fs::remove_all(dir);
}

}  // namespace
