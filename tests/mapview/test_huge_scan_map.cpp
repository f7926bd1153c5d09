// A huge JPEG scan in the map view: its first picture comes from the reduced decode, and the tiled copy it
// needs for full resolution is made inside the first paint that shows it, reported through OnDataLoading
// as a load and stopped by CancelLoading — long after OpenRaster has returned.
#include <qvgeo/mapview/geo_map.h>
#include <qvgeo/platform/image_files.h>

#include <gtest/gtest.h>

#if QVGEO_WITH_GDAL

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <vector>

namespace qv {
namespace {

namespace fs = std::filesystem;

// A JPEG just above the size at which the raster source treats a JPEG as a huge scan (4096 x 4096), with
// its own cache folder (the tiled copy goes there).
struct THugeScan {
    fs::path Dir = fs::temp_directory_path() / ("qvgeo_huge_scan_" + std::to_string(::getpid()));
    std::string File = (Dir / "scan.jpg").string();
    THugeScan()
    {
        fs::remove_all(Dir);
        fs::create_directories(Dir / "cache");
        setenv("XDG_CACHE_HOME", (Dir / "cache").string().c_str(), 1);
        TBitmap picture(4160, 4128);
        for (std::int32_t y = 0; y < picture.Height(); ++y) {
            std::uint32_t* row = picture.ScanLine(y);
            for (std::int32_t x = 0; x < picture.Width(); ++x)
                row[x] = 0xFF000000u | std::uint32_t(x / 16 % 2 ? 200 : 40) << 16 | std::uint32_t(y & 255) << 8 | 90;
        }
        SaveJPEG(picture, File, 85);
    }
    ~THugeScan()
    {
        unsetenv("XDG_CACHE_HOME");
        fs::remove_all(Dir);
    }
};

TEST(HugeScanMap, TheTiledCopyIsMadeInsideAPaintAndReportedAsALoad)
{
    THugeScan scan;
    TGeoMap m;
    m.resize(320, 240);
    std::vector<TProgressStage> stages;
    m.OnDataLoading = [&](TGeoMap&, TProgressStage Stage, std::int32_t) { stages.push_back(Stage); };
    m.OpenRaster(scan.File);
    ASSERT_TRUE(m.MapTiled());
    EXPECT_EQ(m.MapWidth(), 4160);
    ASSERT_FALSE(stages.empty());
    EXPECT_EQ(stages.back(), pgEnding);  // the open itself
    EXPECT_DOUBLE_EQ(m.Magnification(), 240.0 / 4128);  // shown whole at first
    // Reduced: the 1/8 picture serves it.
    m.SetMagnification(0.05);
    m.Paint();
    EXPECT_EQ(m.ImageCache().ReadFailures, 0u);
    const std::size_t afterOpen = stages.size();
    // Full resolution: the copy is made now, reported from start to end, and the view shows the picture.
    m.SetMagnification(1.0);
    m.SetTopLeft({2000, 2000});
    m.Paint();
    ASSERT_GT(stages.size(), afterOpen + 2);
    EXPECT_EQ(stages[afterOpen], pgStarting);
    EXPECT_EQ(stages.back(), pgEnding);
    EXPECT_EQ(m.ImageCache().ReadFailures, 0u) << m.ImageCache().LastReadError;
    const TColor c = m.AuxBmp().Pixel(100, 100);  // picture pixel (2100, 2100): blue 90, not background
    EXPECT_NEAR(static_cast<int>(c >> 16 & 255), 90, 12);
}

TEST(HugeScanMap, ACancelledCopyShowsTheBackgroundAndIsNotStartedAgainAtThatScale)
{
    THugeScan scan;
    TGeoMap m;
    m.resize(320, 240);
    int starts = 0;
    m.OnDataLoading = [&](TGeoMap& Map, TProgressStage Stage, std::int32_t) {
        starts += Stage == pgStarting;
        if (Stage == pgRunning && starts > 1)
            Map.CancelLoading();  // the open runs to its end; the copy in the paint is cancelled
    };
    m.OpenRaster(scan.File);
    ASSERT_TRUE(m.MapTiled());
    m.SetMagnification(1.0);
    m.SetTopLeft({100, 100});
    m.Paint();
    EXPECT_EQ(starts, 2);
    EXPECT_GT(m.ImageCache().ReadFailures, 0u);
    EXPECT_EQ(m.AuxBmp().Pixel(100, 100), m.ColorBackGnd());
    // Panned at the same scale: no new question.
    m.SetTopLeft({300, 300});
    m.Paint();
    EXPECT_EQ(starts, 2);
    // Another scale asks again (and this time it is let through).
    m.OnDataLoading = [&](TGeoMap&, TProgressStage Stage, std::int32_t) { starts += Stage == pgStarting; };
    m.SetMagnification(0.5);
    m.Paint();
    EXPECT_EQ(starts, 3);
    EXPECT_NE(m.AuxBmp().Pixel(100, 100), m.ColorBackGnd());
}

}  // namespace
}  // namespace qv

#endif  // QVGEO_WITH_GDAL
