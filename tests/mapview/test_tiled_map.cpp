// A map held tiled (a picture read by window, no GrafBmp): it shows what the same picture held whole
// shows, every whole-map operation works on it or refuses with its message, and OpenRaster opens any
// raster — small ones whole, large ones tiled — while LoadMapImage keeps its documented rules.
#include "tiled_picture.h"

#include <qvgeo/mapview/geo_map.h>
#include <qvgeo/platform/clipboard.h>
#include <qvgeo/platform/image_files.h>
#include <qvgeo/support/errors.h>

#include <QImage>
#include <QPainter>

#include <gtest/gtest.h>

#if QVGEO_WITH_GDAL
#include <qvgeo/gdalio/gdal_session.h>

#include <gdal_priv.h>
#endif

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <vector>

namespace qv {
namespace {

namespace fs = std::filesystem;
using test::TCountingSource;

struct TempDir {
    fs::path Dir = fs::temp_directory_path() / ("qvgeo_tiled_map_" + std::to_string(::getpid()));
    TempDir() { fs::create_directories(Dir); }
    ~TempDir() { fs::remove_all(Dir); }
    std::string operator/(const std::string& Leaf) const { return (Dir / Leaf).string(); }
};

bool SameView(const TBitmap& A, const TBitmap& B, std::int32_t W, std::int32_t H)
{
    for (std::int32_t y = 0; y < H; ++y)
        for (std::int32_t x = 0; x < W; ++x)
            if (A.Pixel(x, y) != B.Pixel(x, y))
                return false;
    return true;
}

std::string ErrorOf(const std::function<void()>& F)
{
    try {
        F();
    } catch (const EXELGeoMapError& e) {
        return e.what();
    }
    return "no error";
}

// The same 2400 x 1300 picture twice: held whole (its pyramid made by the map) and as a tiled source.
struct TTwoMaps {
    std::shared_ptr<TCountingSource> Source = std::make_shared<TCountingSource>(test::FormulaPicture(2400, 1300), 5);
    TMapModel Whole, Tiled;
    TTwoMaps()
    {
        Whole.SetComponentName("whole");
        Tiled.SetComponentName("tiled");
        for (TMapModel* m : {&Whole, &Tiled})
            m->SetControlSize({320, 240});
        Whole.SetMaxMapPixels(10000000);
        Whole.SetMapBitMap(Source->Level(0));
        Tiled.SetMapSource(Source, "formula");
        Tiled.SetMagnification(1.0);  // a tiled picture is first shown whole
    }
    void Show(double Mag, TPoint TopLeft)
    {
        for (TMapModel* m : {&Whole, &Tiled}) {
            m->SetMagnification(Mag);
            m->SetTopLeft(TopLeft);
        }
    }
};

TEST(TiledMap, ShowsWhatThePictureHeldWholeShows)
{
    TTwoMaps t;
    EXPECT_TRUE(t.Tiled.MapTiled());
    EXPECT_FALSE(t.Whole.MapTiled());
    EXPECT_TRUE(t.Tiled.GrafBmp().Empty());
    EXPECT_EQ(std::tuple(t.Tiled.MapWidth(), t.Tiled.MapHeight(), t.Tiled.MapImgName()),
              std::tuple(2400, 1300, std::string("formula")));
    std::int32_t w = 0, h = 0;
    t.Tiled.Calibration().ImageSize(w, h);
    EXPECT_EQ(std::tuple(w, h, t.Tiled.Calibration().ImageName()), std::tuple(2400, 1300, std::string("formula")));
    for (auto [mag, tl] : {std::pair{1.0, TPoint{0, 0}}, {1.0, TPoint{-50, 1200}}, {2.5, TPoint{2300, 10}},
                           {0.3, TPoint{900, -60}}, {0.12, TPoint{-100, -100}}, {0.05, TPoint{0, 0}}}) {
        t.Show(mag, tl);
        EXPECT_TRUE(SameView(t.Whole.AuxBmp(), t.Tiled.AuxBmp(), 320, 240)) << mag << " " << tl.X;
    }
    // A pan by 100 pixels at 1:1 reads one new column of 512-pixel tiles at most, never the view again.
    t.Show(1.0, {600, 300});
    const std::size_t before = t.Source->Reads.size();
    t.Tiled.SetTopLeft({700, 300});
    EXPECT_LE(t.Source->Reads.size() - before, 2u);
    t.Whole.SetTopLeft({700, 300});
    EXPECT_TRUE(SameView(t.Whole.AuxBmp(), t.Tiled.AuxBmp(), 320, 240));
    // The high-density frame of a tiled map is drawn from its levels too.
    for (TMapModel* m : {&t.Whole, &t.Tiled}) {
        m->SetForcedPixelRatio(1.5);
        m->SetMagnification(0.4);
    }
    ASSERT_EQ(t.Tiled.ScreenFrame().Width(), 480);
    EXPECT_TRUE(SameView(t.Whole.ScreenFrame(), t.Tiled.ScreenFrame(), 480, 360));
}

TEST(TiledMap, OutputsAreDrawnFromTheLevelThatFitsOrRefused)
{
    TTwoMaps t;
    TBitmap a, b;
    t.Whole.CopyToBMP(a, {1000, 500}, 0.7, {200, 150});
    t.Tiled.CopyToBMP(b, {1000, 500}, 0.7, {200, 150});
    ASSERT_EQ(std::tuple(b.Width(), b.Height()), std::tuple(200, 150));
    EXPECT_TRUE(SameView(a, b, 200, 150));
    // The clipboard's copy of the view is the view's, whatever holds the picture.
    t.Tiled.CopyToClipboard();
    TBitmap clip;
    ASSERT_TRUE(PasteBitmapFromClipboard(clip));
    EXPECT_EQ(clip.Pixel(160, 120), t.Source->Level(0).Pixel(160, 120));
    // The whole map at 1:1 would be a bitmap above the size limit.
    EXPECT_EQ(ErrorOf([&] { t.Tiled.CopyEntireMapToClipboard(1.0); }),
              "Component \"tiled\": Cannot copy map image, maximum of 3000000 pixels exceeded (size of copy is "
              "2400 x 1300)");
    // Printed whole onto a page: the map image at the device's resolution from the fitting level.
    QImage pageA(500, 400, QImage::Format_RGB32), pageB(500, 400, QImage::Format_RGB32);
    pageA.fill(Qt::white), pageB.fill(Qt::white);
    double scaleA = 0, scaleB = 0;
    {
        QPainter pa(&pageA), pb(&pageB);
        scaleA = t.Whole.CopyEntireMapToOpenPrinter(pa, {10, 10, 490, 390});
        scaleB = t.Tiled.CopyEntireMapToOpenPrinter(pb, {10, 10, 490, 390});
    }
    EXPECT_GT(scaleB, 0.0);
    EXPECT_EQ(scaleA, scaleB);
    EXPECT_TRUE(pageA == pageB);
}

TEST(TiledMap, WholeMapOperationsWorkOrRefuseClearly)
{
    TempDir dir;
    TTwoMaps t;
    // SaveMap would have to hold the picture whole: refused before anything is written or renamed.
    EXPECT_EQ(ErrorOf([&] { t.Tiled.SaveMap(dir / "saved.xml", "c"); }),
              "Component \"tiled\": Cannot save map image, maximum of 3000000 pixels exceeded (size of map is "
              "2400 x 1300)");
    EXPECT_FALSE(fs::exists(dir / "saved.xml"));
    EXPECT_EQ(t.Tiled.MapImgName(), "formula");
    // With the limit raised it is read whole and written.
    t.Tiled.SetMaxMapPixels(4000000);
    t.Tiled.SaveMap(dir / "saved.xml", "c");
    TBitmap saved;
    ASSERT_TRUE(LoadJPEG(saved, dir / "saved.jpg"));
    EXPECT_EQ(std::tuple(saved.Width(), saved.Height()), std::tuple(2400, 1300));
    EXPECT_TRUE(fs::exists(dir / "saved.xml"));
    t.Tiled.SetMaxMapPixels(3000000);

    // Another map takes the tiled picture by Assign and shows the same.
    TMapModel copy;
    copy.SetControlSize({320, 240});
    copy.Assign(t.Tiled);
    EXPECT_TRUE(copy.MapTiled());
    t.Show(0.3, {100, 100});
    copy.SetMagnification(0.3);
    copy.SetTopLeft({100, 100});
    EXPECT_TRUE(SameView(copy.AuxBmp(), t.Tiled.AuxBmp(), 320, 240));

    // A resize whose result is above the limit is refused as for a whole picture; one within it makes a
    // whole picture from the level that fits (halving: level 1 itself).
    t.Tiled.ResizeMap(2.0);
    EXPECT_TRUE(t.Tiled.MapTiled());
    t.Tiled.ResizeMap(0.5);
    ASSERT_FALSE(t.Tiled.MapTiled());
    EXPECT_EQ(std::tuple(t.Tiled.MapWidth(), t.Tiled.MapHeight()), std::tuple(1200, 650));
    EXPECT_TRUE(t.Tiled.GrafBmp().Image() == t.Source->Level(1).Image());

    // A bitmap replaces the tiled picture.
    copy.SetMapBitMap(TBitmap(30, 20));
    EXPECT_FALSE(copy.MapTiled());
    EXPECT_EQ(std::tuple(copy.MapWidth(), copy.MapHeight(), copy.MapImgName()), std::tuple(30, 20, std::string("$unknown$")));
}

#if QVGEO_WITH_GDAL

// A GeoTIFF of the formula picture, with reduced levels when asked.
std::string WriteTiff(const std::string& Name, const TBitmap& Picture, bool Overviews = false)
{
    GdalSession();
    GDALDriver* drv = GetGDALDriverManager()->GetDriverByName("GTiff");
    const int W = Picture.Width(), H = Picture.Height();
    GDALDataset* ds = drv->Create(Name.c_str(), W, H, 3, GDT_Byte, nullptr);
    std::vector<GByte> buf(static_cast<std::size_t>(W) * H);
    for (int b = 1; b <= 3; ++b) {
        for (int y = 0; y < H; ++y)
            for (int x = 0; x < W; ++x)
                buf[std::size_t(y) * W + x] = GByte(Picture.ScanLine(y)[x] >> (8 * (3 - b)));
        EXPECT_EQ(ds->GetRasterBand(b)->RasterIO(GF_Write, 0, 0, W, H, buf.data(), W, H, GDT_Byte, 0, 0, nullptr),
                  CE_None);
    }
    GDALClose(ds);
    if (Overviews) {
        GDALDataset* ro = static_cast<GDALDataset*>(GDALOpen(Name.c_str(), GA_ReadOnly));
        const int factors[1] = {2};
        ro->BuildOverviews("AVERAGE", 1, factors, 0, nullptr, nullptr, nullptr);
        GDALClose(ro);
    }
    return Name;
}

TEST(TiledMap, OpenRasterHoldsSmallPicturesWholeAndLargeOnesTiled)
{
    TempDir dir;
    const TBitmap picture = test::FormulaPicture(640, 480);
    SavePNG(picture, dir / "small.png");
    WriteTiff(dir / "scan.tif", picture);
    SaveBMP(TBitmap(40, 30), dir / "plain.bmp");

    TGeoMap m;
    m.resize(320, 240);
    std::vector<TProgressStage> stages;
    m.OnDataLoading = [&](TGeoMap&, TProgressStage Stage, std::int32_t) { stages.push_back(Stage); };
    // A PNG within the limit: read whole, its own pixels, its name and size in the calibration.
    m.OpenRaster(dir / "small.png");
    EXPECT_FALSE(m.MapTiled());
    EXPECT_TRUE(m.GrafBmp().Image() == picture.Image());
    std::int32_t w = 0, h = 0;
    m.Calibration().ImageSize(w, h);
    EXPECT_EQ(std::tuple(m.MapImgName(), w, h), std::tuple(dir / "small.png", 640, 480));
    ASSERT_GE(stages.size(), 2u);
    EXPECT_EQ(std::tuple(stages.front(), stages.back()), std::tuple(pgStarting, pgEnding));

    // LoadMapImage keeps its rule for other types: the old picture stays, the name is taken.
    m.OpenRaster(dir / "plain.bmp");
    m.SetMapImgName(dir / "small.png");
    EXPECT_EQ(std::tuple(m.MapImgName(), m.GrafBmp().Width(), m.MapWidth()), std::tuple(dir / "small.png", 40, 40));

    // Above the limit: tiled, exempt from it, drawn as the same picture held whole.
    m.SetMaxMapPixels(100000);
    m.OpenRaster(dir / "scan.tif");
    EXPECT_TRUE(m.MapTiled());
    EXPECT_EQ(std::tuple(m.MapWidth(), m.MapHeight(), m.GrafBmp().Empty()), std::tuple(640, 480, true));
    // LoadMapImage of another type keeps the tiled picture under the new name, its size unchanged.
    m.SetMapImgName(dir / "small.png");
    EXPECT_EQ(std::tuple(m.MapTiled(), m.MapImgName(), m.MapWidth(), m.MapHeight()),
              std::tuple(true, dir / "small.png", 640, 480));
    TMapModel whole;
    whole.SetControlSize({320, 240});
    whole.SetMapBitMap(picture);
    for (auto [mag, tl] : {std::pair{1.0, TPoint{100, 50}}, {2.0, TPoint{-20, 400}}, {1.0, TPoint{500, -30}}}) {
        for (TMapModel* map : {static_cast<TMapModel*>(&m), &whole}) {
            map->SetMagnification(mag);
            map->SetTopLeft(tl);
        }
        EXPECT_TRUE(SameView(m.AuxBmp(), whole.AuxBmp(), 320, 240)) << mag;
    }
    // The limit itself: a picture of exactly MaxMapPixels is read whole, one pixel more stays tiled.
    for (const std::int64_t limit : {640 * 480, 640 * 480 - 1}) {
        m.SetMaxMapPixels(limit);
        m.OpenRaster(dir / "scan.tif");
        EXPECT_EQ(m.MapTiled(), limit < 640 * 480) << limit;
        m.OpenRaster(dir / "small.png");
        EXPECT_EQ(m.MapTiled(), limit < 640 * 480) << limit;
    }
    // A BMP within the limit decodes as SetMapImgName decodes it.
    m.OpenRaster(dir / "plain.bmp");
    EXPECT_EQ(std::tuple(m.MapTiled(), m.GrafBmp().Width(), m.MapWidth()), std::tuple(false, 40, 40));
}

TEST(TiledMap, OpenRasterFailuresChangeNothing)
{
    TempDir dir;
    std::ofstream(dir / "text.tif") << "not a picture";
    const TBitmap picture = test::FormulaPicture(64, 48);
    SavePNG(picture, dir / "p.png");
    TGeoMap m;
    m.SetName("map");
    m.resize(100, 80);
    m.SetMapBitMap(TBitmap(50, 40));
    EXPECT_EQ(ErrorOf([&] { m.OpenRaster(dir / "none.tif"); }),
              "Component \"map\": Cannot load map image \"" + (dir / "none.tif") + "\": no such file");
    const std::string unreadable = ErrorOf([&] { m.OpenRaster(dir / "text.tif"); });
    EXPECT_EQ(unreadable.rfind("Component \"map\": Cannot load map image \"" + (dir / "text.tif") + "\": ", 0), 0u)
        << unreadable;
    // Cancelled from its progress event.
    m.OnDataLoading = [](TGeoMap& Map, TProgressStage, std::int32_t) { Map.CancelLoading(); };
    m.OpenRaster(dir / "p.png");
    EXPECT_EQ(std::tuple(m.MapImgName(), m.MapWidth(), m.GrafBmp().Width()), std::tuple(std::string("$unknown$"), 50, 50));
}

// A calibration of a GeoTIFF opens it (tiled when too large); a failed switch away from a tiled map puts
// it back; renaming a tiled map's file takes its reduced levels along.
TEST(TiledMap, CalibrationsSwitchesAndRenamesOfTiledMaps)
{
    TempDir dir;
    const TBitmap picture = test::FormulaPicture(640, 480);
    WriteTiff(dir / "scan.tif", picture, true);
    std::ofstream(dir / "broken.jpg") << "not a JPEG";
    TMapModel m;
    m.SetControlSize({200, 150});
    m.SetMaxMapPixels(100000);
    m.OpenRaster(dir / "scan.tif");
    ASSERT_TRUE(m.MapTiled());
    m.Calibration().SaveCalDataAsXML(dir / "scan.xml", "");
    m.SetMapBitMap(TBitmap(10, 10));
    m.LoadCalDataFromXML(dir / "scan.xml", "");
    EXPECT_TRUE(m.MapTiled());
    EXPECT_EQ(std::tuple(m.MapImgName(), m.MapWidth(), m.MapHeight()), std::tuple(dir / "scan.tif", 640, 480));

    m.SetTopLeft({40, 30});
    const TBitmap before = m.AuxBmp();
    m.Calibration().SetImageName(dir / "broken.jpg");
    m.Calibration().SaveCalDataAsXML(dir / "broken.xml", "");
    m.Calibration().SetImageName(m.MapImgName());
    EXPECT_THROW(m.LoadCalDataFromXML(dir / "broken.xml", ""), EXELGeoMapError);
    EXPECT_TRUE(m.MapTiled());
    EXPECT_EQ(m.MapImgName(), dir / "scan.tif");
    EXPECT_TRUE(SameView(before, m.AuxBmp(), 200, 150));
    // BMP and JPEG images of a calibration keep their documented size error (never opened tiled), and the
    // tiled map shown stays.
    SaveBMP(TBitmap(400, 300), dir / "big.bmp");
    SaveJPEG(TBitmap(400, 300), dir / "big.jpg");
    SaveJPEG(TBitmap(400, 300), dir / "big.jpeg");
    for (const char* image : {"big.bmp", "big.jpg", "big.jpeg"}) {
        m.Calibration().SetImageName(dir / image);
        m.Calibration().SaveCalDataAsXML(dir / "big.xml", "");
        m.Calibration().SetImageName(m.MapImgName());
        EXPECT_EQ(ErrorOf([&] { m.LoadCalDataFromXML(dir / "big.xml", ""); }),
                  "Component \"\": Cannot use map image, maximum of 100000 pixels exceeded (size of map is 400 x 300)")
            << image;
        EXPECT_EQ(std::tuple(m.MapTiled(), m.MapImgName()), std::tuple(true, dir / "scan.tif")) << image;
    }

    ASSERT_TRUE(fs::exists(dir / "scan.tif.ovr"));
    EXPECT_TRUE(m.RenameMapImg("moved"));
    m.SetMagnification(1.0);
    EXPECT_EQ(m.MapImgName(), dir / "moved.tif");
    EXPECT_TRUE(fs::exists(dir / "moved.tif.ovr"));
    EXPECT_FALSE(fs::exists(dir / "scan.tif.ovr"));
    m.SetTopLeft({0, 0});  // still drawn from the open file
    EXPECT_EQ(m.AuxBmp().Pixel(100, 75), picture.Pixel(100, 75));
}

#endif

}  // namespace
}  // namespace qv
