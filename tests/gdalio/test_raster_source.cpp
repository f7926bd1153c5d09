// The GDAL raster source against pictures written in the test: every pixel back as written, for each way
// a file can hold its colours, and windows that reach past the edges.
#include <qvgeo/gdalio/gdal_session.h>
#include <qvgeo/gdalio/raster_source.h>
#include <qvgeo/platform/image_files.h>

#include <gtest/gtest.h>

#include <gdal_priv.h>

#include <filesystem>

namespace {

std::string TempName(const std::string& Leaf)
{
    const auto dir = std::filesystem::temp_directory_path() / "qvgeo-raster-source";
    std::filesystem::create_directories(dir);
    return (dir / Leaf).string();
}

// A colour that differs in every channel from pixel to pixel.
std::uint32_t Expected(int X, int Y) { return 0xFF000000u | std::uint32_t((X * 7) & 255) << 16 | std::uint32_t((Y * 5) & 255) << 8 | std::uint32_t((X + Y) & 255); }

// Writes a W x H GeoTIFF with bands as given: "rgb" (3 bands), "bgr" (3 bands, blue first, by colour
// interpretation), "grey", "palette".
std::string WriteTiff(const std::string& Leaf, int W, int H, const std::string& Kind, bool Overviews)
{
    qv::GdalSession();
    const std::string name = TempName(Leaf);
    GDALDriver* drv = GetGDALDriverManager()->GetDriverByName("GTiff");
    const int bands = Kind == "rgb" || Kind == "bgr" ? 3 : 1;
    GDALDataset* ds = drv->Create(name.c_str(), W, H, bands, GDT_Byte, nullptr);
    std::vector<GByte> buf(static_cast<std::size_t>(W) * H);
    for (int b = 1; b <= bands; ++b) {
        const int channel = Kind == "bgr" ? 4 - b : b;  // 1 red, 2 green, 3 blue
        for (int y = 0; y < H; ++y)
            for (int x = 0; x < W; ++x) {
                const std::uint32_t c = Expected(x, y);
                const int shift = bands == 1 ? 0 : 8 * (3 - channel);
                buf[std::size_t(y) * W + x] = GByte(Kind == "palette" ? (x + y) % 4 : (c >> shift) & 255);
            }
        GDALRasterBand* band = ds->GetRasterBand(b);
        if (band->RasterIO(GF_Write, 0, 0, W, H, buf.data(), W, H, GDT_Byte, 0, 0, nullptr) != CE_None)
            throw std::runtime_error("cannot write " + name);
        if (Kind == "bgr")
            band->SetColorInterpretation(b == 1 ? GCI_BlueBand : b == 2 ? GCI_GreenBand : GCI_RedBand);
    }
    if (Kind == "palette") {
        GDALColorTable table;
        const GDALColorEntry entries[4] = {{255, 0, 0, 255}, {0, 255, 0, 255}, {0, 0, 255, 255}, {17, 34, 51, 255}};
        for (int i = 0; i < 4; ++i)
            table.SetColorEntry(i, &entries[i]);
        ds->GetRasterBand(1)->SetColorTable(&table);
    }
    if (Overviews) {
        const int factors[2] = {2, 4};
        ds->BuildOverviews("AVERAGE", 2, factors, 0, nullptr, nullptr, nullptr);
    }
    GDALClose(ds);
    return name;
}

std::uint32_t ExpectedOf(const std::string& Kind, int X, int Y)
{
    static const std::uint32_t palette[4] = {0xFFFF0000u, 0xFF00FF00u, 0xFF0000FFu, 0xFF112233u};
    if (Kind == "palette")
        return palette[(X + Y) % 4];
    if (Kind == "grey") {
        const std::uint32_t v = Expected(X, Y) & 255;  // the one band holds the blue channel
        return 0xFF000000u | v << 16 | v << 8 | v;
    }
    return Expected(X, Y);
}

}  // namespace

TEST(RasterSource, EveryPixelOfEveryBandLayoutInAWindowPastTheEdges)
{
    for (const std::string kind : {"rgb", "bgr", "grey", "palette"}) {
        SCOPED_TRACE(kind);
        const auto source = qv::OpenRasterSource(WriteTiff(kind + ".tif", 37, 23, kind, false));
        ASSERT_EQ(source->Size().cx, 37);
        ASSERT_EQ(source->Size().cy, 23);
        EXPECT_EQ(source->LevelCount(), 1);
        EXPECT_EQ(source->FormatName(), "GTiff");
        // A window from (-3, -2) to (40, 25): a white border around the whole picture.
        const qv::TBitmap w = source->ReadWindow(0, {-3, -2, 40, 25});
        ASSERT_EQ(w.Width(), 43);
        ASSERT_EQ(w.Height(), 27);
        for (int y = 0; y < 27; ++y)
            for (int x = 0; x < 43; ++x) {
                const int px = x - 3, py = y - 2;
                const bool inside = px >= 0 && py >= 0 && px < 37 && py < 23;
                const std::uint32_t want = inside ? ExpectedOf(kind, px, py) : 0xFFFFFFFFu;
                ASSERT_EQ(w.Image().pixel(x, y), want) << x << "," << y;
            }
    }
}

TEST(RasterSource, OverviewLevelsAndTheirScale)
{
    const auto source = qv::OpenRasterSource(WriteTiff("ovr.tif", 102, 50, "rgb", true));
    ASSERT_EQ(source->LevelCount(), 3);
    EXPECT_EQ(source->LevelSize(1).cx, 51);
    EXPECT_EQ(source->LevelSize(2).cx, 26);
    EXPECT_DOUBLE_EQ(source->LevelScale(0), 1.0);
    EXPECT_DOUBLE_EQ(source->LevelScale(2), 102.0 / 26.0);  // not 4: sizes are rounded up
    // The whole of level 1 reads as its own size, and its pixel (10, 10) averages the picture's 2 x 2 block.
    const qv::TBitmap level = qv::ReadWholeLevel(*source, 1);
    ASSERT_EQ(level.Width(), 51);
    ASSERT_EQ(level.Height(), 25);
    const std::uint32_t got = level.Image().pixel(10, 10);
    const std::uint32_t red = got >> 16 & 255;
    EXPECT_NEAR(red, (140 + 147) / 2.0, 0.5);  // red is 7x: 140 and 147 in columns 20 and 21
}

TEST(RasterSource, FilesGdalCannotReadGiveTheirNameAndGdalsReason)
{
    const std::string text = TempName("not-a-raster.tif");
    FILE* f = std::fopen(text.c_str(), "w");
    std::fputs("hello\n", f);
    std::fclose(f);
    for (const std::string& name : {text, TempName("missing.tif")}) {
        try {
            qv::OpenRasterSource(name);
            ADD_FAILURE() << name << " opened";
        } catch (const qv::EXELImageError& e) {
            EXPECT_EQ(std::string(e.what()).rfind("\"" + name + "\": ", 0), 0u) << e.what();
        }
    }
}
