// Every band layout and every format Debian's GDAL writes, read back through OpenRasterSource: the file is
// made in the test from an in-memory dataset with GDAL's CreateCopy, and every pixel is compared with
// what the layout rules give for the values written.
#include <qvgeo/gdalio/gdal_session.h>
#include <qvgeo/gdalio/raster_source.h>
#include <qvgeo/platform/image_files.h>

#include <gtest/gtest.h>

#include <cpl_string.h>
#include <gdal_priv.h>

#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <functional>
#include <memory>

namespace {

constexpr int W = 40, H = 30;

// A folder of this process's own, removed at exit (ctest runs the cases in parallel processes).
std::string TempName(const std::string& Leaf)
{
    static const struct TFolder {
        std::filesystem::path Path = std::filesystem::temp_directory_path() /
                                     ("qvgeo-raster-formats-" + std::to_string(::getpid()));
        TFolder() { std::filesystem::create_directories(Path); }
        ~TFolder()
        {
            std::error_code ec;
            std::filesystem::remove_all(Path, ec);
        }
    } folder;
    return (folder.Path / Leaf).string();
}

struct TClose {
    void operator()(GDALDataset* D) const { GDALClose(D); }
};
using TData = std::unique_ptr<GDALDataset, TClose>;

// Band b (1-based) of pixel (x, y) as written.
using TValue = std::function<double(int B, int X, int Y)>;

// A W x H dataset of Bands bands of Type in memory, with colour interpretations Interp (one per band,
// GCI_Undefined to leave GDAL's choice).
TData MemoryDataset(int Bands, GDALDataType Type, const TValue& Value, const std::vector<GDALColorInterp>& Interp = {})
{
    qv::GdalSession();
    TData ds(GetGDALDriverManager()->GetDriverByName("MEM")->Create("", W, H, Bands, Type, nullptr));
    std::vector<double> buf(std::size_t(W) * H);
    for (int b = 1; b <= Bands; ++b) {
        for (int y = 0; y < H; ++y)
            for (int x = 0; x < W; ++x)
                buf[std::size_t(y) * W + x] = Value(b, x, y);
        GDALRasterBand* band = ds->GetRasterBand(b);
        EXPECT_EQ(band->RasterIO(GF_Write, 0, 0, W, H, buf.data(), W, H, GDT_Float64, 0, 0, nullptr), CE_None);
        if (std::size_t(b) <= Interp.size() && Interp[std::size_t(b) - 1] != GCI_Undefined)
            band->SetColorInterpretation(Interp[std::size_t(b) - 1]);
    }
    return ds;
}

std::string Copy(GDALDataset& Source, const char* Driver, const std::string& Leaf, const std::vector<const char*>& Options = {})
{
    CPLStringList options;
    for (const char* o : Options)
        options.AddString(o);
    const std::string name = TempName(Leaf);
    TData out(GetGDALDriverManager()->GetDriverByName(Driver)->CreateCopy(name.c_str(), &Source, FALSE, options.List(),
                                                                          nullptr, nullptr));
    EXPECT_TRUE(out) << Driver << " " << CPLGetLastErrorMsg();
    return name;
}

std::uint32_t Rgb(int R, int G, int B) { return 0xFF000000u | std::uint32_t(R) << 16 | std::uint32_t(G) << 8 | std::uint32_t(B); }
int Channel(std::uint32_t P, int C) { return int(P >> (16 - 8 * C) & 255); }  // 0 red, 1 green, 2 blue

// Compares every pixel of level 0; Tolerance is per channel.
void ExpectPixels(const std::string& File, const std::function<std::uint32_t(int, int)>& Want, int Tolerance = 0,
                  double MeanTolerance = 0.0)
{
    SCOPED_TRACE(File);
    const auto source = qv::OpenRasterSource(File);
    ASSERT_EQ(source->Size().cx, W);
    ASSERT_EQ(source->Size().cy, H);
    const qv::TBitmap b = qv::ReadWholeLevel(*source);
    double sum = 0;
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x)
            for (int c = 0; c < 3; ++c) {
                const int d = std::abs(Channel(b.ScanLine(y)[x], c) - Channel(Want(x, y), c));
                sum += d;
                ASSERT_LE(d, Tolerance) << "pixel " << x << "," << y << " channel " << c << " got " << std::hex
                                        << b.ScanLine(y)[x] << " want " << Want(x, y);
            }
    EXPECT_LE(sum / (W * H * 3), MeanTolerance);
}

// A picture with detail in every channel, but smooth enough for lossy coders to keep close.
double Smooth(int B, int X, int Y) { return 10 + B * 30 + X * 2 + Y * 2; }
std::uint32_t SmoothRgb(int X, int Y) { return Rgb(int(Smooth(1, X, Y)), int(Smooth(2, X, Y)), int(Smooth(3, X, Y))); }
int Alpha(int X, int Y) { return (X * 13 + Y * 7) % 256; }
int Over(int C, int A) { return int(std::nearbyint(C * (A / 255.0) + 255.0 * (1.0 - A / 255.0))); }

}  // namespace

TEST(RasterFormats, LosslessFormatsGiveBackEveryPixel)
{
    const TData rgb = MemoryDataset(3, GDT_Byte, Smooth);
    const struct {
        const char* Driver;
        const char* Leaf;
        std::vector<const char*> Options;
    } cases[] = {
        {"PNG", "rgb.png", {}},
        {"WEBP", "rgb-lossless.webp", {"LOSSLESS=YES"}},
        {"JP2OpenJPEG", "rgb-reversible.jp2", {"REVERSIBLE=YES", "QUALITY=100"}},
        {"BMP", "rgb.bmp", {}},
        {"GTiff", "rgb-deflate.tif", {"COMPRESS=DEFLATE", "TILED=YES", "BLOCKXSIZE=16", "BLOCKYSIZE=16"}},
    };
    for (const auto& c : cases)
        ExpectPixels(Copy(*rgb, c.Driver, c.Leaf, c.Options), SmoothRgb);
}

// JPEG, lossy WebP and lossy JPEG 2000 at high quality on a smooth picture: the coders' error on such a
// picture is a few levels, and 4:2:0 chroma halving moves single pixels further at the diagonal ramps.
// The bounds fail for a swapped channel, a shifted row or a missing band by tens of levels.
TEST(RasterFormats, LossyFormatsStayWithinTheirCodingError)
{
    const TData rgb = MemoryDataset(3, GDT_Byte, Smooth);
    ExpectPixels(Copy(*rgb, "JPEG", "rgb.jpg", {"QUALITY=95"}), SmoothRgb, 24, 2.5);
    ExpectPixels(Copy(*rgb, "WEBP", "rgb.webp", {"QUALITY=95"}), SmoothRgb, 24, 2.5);
    ExpectPixels(Copy(*rgb, "JP2OpenJPEG", "rgb.jp2", {"QUALITY=90"}), SmoothRgb, 24, 2.5);
    const TData grey = MemoryDataset(1, GDT_Byte, Smooth);
    ExpectPixels(Copy(*grey, "JPEG", "grey.jpg", {"QUALITY=95"}), [](int x, int y) {
        const int v = int(Smooth(1, x, y));
        return Rgb(v, v, v);
    }, 12, 1.5);
}

TEST(RasterFormats, PaletteFilesThroughTheirTable)
{
    const TData ds = MemoryDataset(1, GDT_Byte, [](int, int x, int y) { return (x / 3 + y) % 5; });
    GDALColorTable table;
    const GDALColorEntry e[5] = {{255, 0, 0, 255}, {0, 255, 0, 255}, {0, 0, 255, 255}, {17, 34, 51, 255}, {250, 240, 230, 255}};
    for (int i = 0; i < 5; ++i)
        table.SetColorEntry(i, &e[i]);
    ds->GetRasterBand(1)->SetColorTable(&table);
    const auto want = [&e](int x, int y) {
        const GDALColorEntry& c = e[(x / 3 + y) % 5];
        return Rgb(c.c1, c.c2, c.c3);
    };
    ExpectPixels(Copy(*ds, "PNG", "palette.png"), want);
    ExpectPixels(Copy(*ds, "GIF", "palette.gif"), want);
    // A PNG palette with transparent entries: each laid over white by its own alpha.
    const GDALColorEntry clear = {0, 0, 0, 0}, half = {0, 100, 200, 128};
    table.SetColorEntry(1, &clear);
    table.SetColorEntry(3, &half);
    ds->GetRasterBand(1)->SetColorTable(&table);
    ExpectPixels(Copy(*ds, "PNG", "palette-alpha.png"), [&](int x, int y) {
        const int i = (x / 3 + y) % 5;
        return i == 1 ? 0xFFFFFFFFu : i == 3 ? Rgb(127, 177, 227) : want(x, y);
    });
}

TEST(RasterFormats, AlphaIsLaidOverWhite)
{
    const TData ga = MemoryDataset(2, GDT_Byte, [](int b, int x, int y) { return b == 1 ? Smooth(1, x, y) : Alpha(x, y); },
                                   {GCI_GrayIndex, GCI_AlphaBand});
    ExpectPixels(Copy(*ga, "PNG", "grey-alpha.png"), [](int x, int y) {
        const int v = Over(int(Smooth(1, x, y)), Alpha(x, y));
        return Rgb(v, v, v);
    });
    const TData rgba = MemoryDataset(4, GDT_Byte, [](int b, int x, int y) { return b < 4 ? Smooth(b, x, y) : Alpha(x, y); },
                                     {GCI_RedBand, GCI_GreenBand, GCI_BlueBand, GCI_AlphaBand});
    const auto want = [](int x, int y) {
        const int a = Alpha(x, y);
        return Rgb(Over(int(Smooth(1, x, y)), a), Over(int(Smooth(2, x, y)), a), Over(int(Smooth(3, x, y)), a));
    };
    ExpectPixels(Copy(*rgba, "PNG", "rgba.png"), want);
    ExpectPixels(Copy(*rgba, "GTiff", "rgba.tif", {"ALPHA=YES"}), want);
    ExpectPixels(Copy(*rgba, "WEBP", "rgba.webp", {"LOSSLESS=YES"}), want);
}

// 16-bit: 1000 at the left edge, 4315 at the right one, ramps that differ by row between them; stretched
// onto 0 .. 255 by that range (GDAL's approximate range may skip rows, so every row holds both ends).
// With statistics stored in the file, those set the range.
double Ramp16(int, int X, int Y) { return 1000 + 85 * X - (X > 0 && X < W - 1 ? (Y * 7) % 11 : 0); }

TEST(RasterFormats, SixteenBitGreyStretchedByItsRangeOrItsStoredStatistics)
{
    const TData ds = MemoryDataset(1, GDT_UInt16, Ramp16);
    const auto want = [](double Min, double Max) {
        return [=](int x, int y) {
            const int v = int(std::nearbyint((Ramp16(1, x, y) - Min) * 255.0 / (Max - Min)));
            return Rgb(v, v, v);
        };
    };
    const std::string plain = Copy(*ds, "GTiff", "grey16.tif");
    ExpectPixels(plain, want(1000, 4315));
    // A PNG is one block per row and GDAL's approximate range samples it more coarsely: give the range
    // as statistics beside the file, where GDAL keeps them for formats that cannot hold them.
    const std::string png = Copy(*ds, "PNG", "grey16.png");
    {
        TData f(GDALDataset::Open(png.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
        ASSERT_TRUE(f);
        f->GetRasterBand(1)->SetStatistics(1000.0, 4315.0, 2600.0, 100.0);
    }
    ExpectPixels(png, want(1000, 4315));
    {
        TData f(GDALDataset::Open(plain.c_str(), GDAL_OF_RASTER | GDAL_OF_UPDATE));
        ASSERT_TRUE(f);
        f->GetRasterBand(1)->SetStatistics(0.0, 6800.0, 3000.0, 100.0);
    }
    ExpectPixels(plain, want(0, 6800));
}

// Three 16-bit bands share one range (0 .. 2000 here), so colours keep their balance.
TEST(RasterFormats, SixteenBitColourSharesOneRange)
{
    const TData ds = MemoryDataset(3, GDT_UInt16, [](int b, int x, int y) { return b == 1 ? (x + y) * 10 % 1001 : b == 2 ? 2000 - x * 20 : 500; });
    ExpectPixels(Copy(*ds, "GTiff", "rgb16.tif", {"PHOTOMETRIC=RGB"}), [](int x, int y) {
        auto s = [](double v) { return int(std::nearbyint(v * 255.0 / 2000.0)); };
        return Rgb(s((x + y) * 10 % 1001), s(2000 - x * 20), s(500));
    });
}

// Float with a nodata value and NaNs: both white; the rest stretched by the range of the valid values.
TEST(RasterFormats, FloatNodataAndNanAreWhite)
{
    const auto value = [](int, int x, int y) -> double {
        if (x == y)
            return -9999.0;
        if (x == 2 * y)
            return std::nan("");
        return -1.5 + 0.25 * x;  // -1.5 .. 8.25
    };
    const TData ds = MemoryDataset(1, GDT_Float32, value);
    ds->GetRasterBand(1)->SetNoDataValue(-9999.0);
    ExpectPixels(Copy(*ds, "GTiff", "float.tif"), [&](int x, int y) {
        if (x == y || x == 2 * y)
            return 0xFFFFFFFFu;
        const int v = int(std::nearbyint((0.25 * x) * 255.0 / 9.75));
        return Rgb(v, v, v);
    });
}

// Byte RGB with nodata 0: a pixel is nodata only when all three bands hold it.
TEST(RasterFormats, ColourNodataNeedsEveryBand)
{
    const auto value = [](int b, int x, int y) -> double { return (x + y) % 7 == 0 ? 0 : b == 1 && x % 5 == 0 ? 0 : Smooth(b, x, y); };
    const TData ds = MemoryDataset(3, GDT_Byte, value);
    for (int b = 1; b <= 3; ++b)
        ds->GetRasterBand(b)->SetNoDataValue(0);
    ExpectPixels(Copy(*ds, "GTiff", "rgb-nodata.tif"), [&](int x, int y) {
        if ((x + y) % 7 == 0)
            return 0xFFFFFFFFu;
        return Rgb(int(value(1, x, y)), int(value(2, x, y)), int(value(3, x, y)));
    });
}

// CMYK: a TIFF holds ink amounts (0 none .. 255 full); a CMYK JPEG holds Adobe's inverted inks.
TEST(RasterFormats, CmykTiffAndCmykJpeg)
{
    const int ink[4] = {10, 200, 150, 40};
    const TData ds = MemoryDataset(4, GDT_Byte, [&](int b, int, int) { return ink[b - 1]; },
                                   {GCI_CyanBand, GCI_MagentaBand, GCI_YellowBand, GCI_BlackBand});
    const auto inks = [&](int, int) {
        auto rgb = [&](int c) { return (255 - c) * (255 - ink[3]) / 255; };
        return Rgb(rgb(ink[0]), rgb(ink[1]), rgb(ink[2]));
    };
    // GDAL turns a CMYK TIFF into RGBA itself; four bands that only call themselves cyan, magenta,
    // yellow and black are turned into RGB here.
    ExpectPixels(Copy(*ds, "GTiff", "cmyk.tif", {"PHOTOMETRIC=CMYK"}), inks);
    ExpectPixels(Copy(*ds, "GTiff", "cmyk-bands.tif"), inks);
    ExpectPixels(Copy(*ds, "JPEG", "cmyk.jpg", {"QUALITY=100"}), [&](int, int) {
        auto rgb = [&](int c) { return c * ink[3] / 255; };
        return Rgb(rgb(ink[0]), rgb(ink[1]), rgb(ink[2]));
    }, 2, 2.0);
}
