// An atlas whose maps include a large GeoTIFF: selecting it shows it tiled, switching away and back works,
// and a map whose raster cannot be read keeps the map shown.
#include <qvgeo/geoatlas/geo_atlas.h>

#include "../mapview/calibrated_map_files.h"

#include <gtest/gtest.h>

#if QVGEO_WITH_GDAL
#include <qvgeo/gdalio/gdal_session.h>

#include <gdal_priv.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include <unistd.h>

namespace {

using namespace qv;
namespace fs = std::filesystem;

// 2001 x 1500 grey steps of 100 pixels: one column above the size limit, so the atlas's map holds it tiled.
void WriteBigTiff(const fs::path& File)
{
    GdalSession();
    GDALDriver* drv = GetGDALDriverManager()->GetDriverByName("GTiff");
    const int W = 2001, H = 1500;
    GDALDataset* ds = drv->Create(File.c_str(), W, H, 1, GDT_Byte, nullptr);
    std::vector<GByte> row(W);
    for (int x = 0; x < W; ++x)
        row[std::size_t(x)] = GByte(x / 100 * 10);
    for (int y = 0; y < H; ++y)
        ASSERT_EQ(ds->GetRasterBand(1)->RasterIO(GF_Write, 0, y, W, 1, row.data(), W, 1, GDT_Byte, 0, 0, nullptr), CE_None);
    GDALClose(ds);
}

TEST(AtlasTiled, SwitchingToAndFromATiledMap)
{
    const fs::path dir = fs::temp_directory_path() / ("qvgeo_atlas_tiled_" + std::to_string(::getpid()));
    fs::create_directories(dir);
    WriteBigTiff(dir / "scan.tif");
    std::ofstream(dir / "text.tif") << "not a picture\n";
    const std::vector<std::string> maps = {
        qvtest::WriteCalibratedMap(dir, "good", 46, 14, 50, 19, 320, 240, 100),
        qvtest::WriteCalibratedMap(dir, "scan", 46, 14, 50, 19, 320, 240, 50, "scan.tif"),
        qvtest::WriteCalibratedMap(dir, "text", 46, 14, 50, 19, 320, 240, 40, "text.tif"),
    };
    TGeoAtlas a;
    std::string errors;
    a.OnError = [&](const std::exception& E) { errors += std::string(E.what()) + "\n"; };
    for (const std::string& m : maps)
        ASSERT_TRUE(a.RegisterMap(m));
    a.resize(400, 300);
    auto seen = [&] {
        const TGeoMap& v = a.MapView();
        return std::tuple(a.CurrentMap(), fs::path(v.MapImgName()).filename().string(), v.MapWidth(), v.MapHeight(),
                          v.MapTiled());
    };
    ASSERT_TRUE(a.SelectMap(2));
    EXPECT_EQ(seen(), std::tuple(2, std::string("scan.tif"), 2001, 1500, true));
    // The steps are drawn: at 1:1 from the left edge, control column 150 shows map column 150 (grey 10).
    a.MapView().SetMagnification(1.0);
    a.MapView().SetTopLeft({0, 0});
    EXPECT_EQ(a.MapView().AuxBmp().Pixel(150, 100), 0x0A0A0Au);
    ASSERT_TRUE(a.SelectMap(1));
    EXPECT_EQ(seen(), std::tuple(1, std::string("good.bmp"), 320, 240, false));
    ASSERT_TRUE(a.SelectMap(2));
    EXPECT_EQ(seen(), std::tuple(2, std::string("scan.tif"), 2001, 1500, true));
    const auto before = seen();
    EXPECT_FALSE(a.SelectMap(3));
    EXPECT_NE(errors.find("Cannot load map image \"" + (dir / "text.tif").string() + "\": "), std::string::npos) << errors;
    EXPECT_EQ(seen(), before);
    fs::remove_all(dir);
}

}  // namespace

#endif
