// TMapImage, the picture of a map view, and the map's scaled copy of it: a picture that replaces another
// is never drawn from the scaled copy of the one before, also when the size check refuses it.
#include <qvgeo/mapview/geo_map.h>
#include <qvgeo/mapview/map_image.h>

#include <qvgeo/platform/image_files.h>
#include <qvgeo/support/errors.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include <unistd.h>

namespace {

using namespace qv;
namespace fs = std::filesystem;

struct TempDir {
    fs::path Dir = fs::temp_directory_path() / ("qvgeo_map_image_" + std::to_string(::getpid()));
    TempDir() { fs::create_directories(Dir); }
    ~TempDir() { fs::remove_all(Dir); }
    std::string operator/(const std::string& Name) const { return (Dir / Name).string(); }
};

TBitmap Plain(int W, int H, TColor C)
{
    TBitmap b(W, H);
    b.Fill(C);
    return b;
}

TEST(MapImage, ResultsNameSizeAndGenerations)
{
    TempDir t;
    SaveBMP(Plain(30, 20, 0x0000FF), t / "a.bmp");
    SaveBMP(Plain(400, 300, 0x00FF00), t / "big.bmp");
    SaveBMP(Plain(10, 10, 0xFF0000), t / "other.png");  // not a type that loads by its extension
    TMapImage img;
    img.SetComponentName("Map1");
    img.SetMaxPixels(100000);
    struct Step {
        const char* file;
        TMapImage::TLoadResult result;
        std::string name;
        int w, h, bitmapW;
        std::uint64_t generation;
    };
    const Step steps[] = {
        {"a.bmp", TMapImage::lrTaken, t / "a.bmp", 30, 20, 30, 1},
        {"other.png", TMapImage::lrTaken, t / "other.png", 30, 20, 30, 1},  // the old picture, new name
        {"none.bmp", TMapImage::lrMissing, "", 0, 0, 30, 1},
        {"a.bmp", TMapImage::lrTaken, t / "a.bmp", 30, 20, 30, 2},
    };
    for (const Step& s : steps) {
        EXPECT_EQ(img.Load(t / s.file, {}), s.result) << s.file;
        EXPECT_EQ(std::tuple(img.Name(), img.Width(), img.Height(), img.Bitmap().Width(), img.Generation()),
                  std::tuple(s.name, s.w, s.h, s.bitmapW, s.generation))
            << s.file;
    }
    // Over the limit: the picture is taken (a new generation), name and size are not.
    try {
        img.Load(t / "big.bmp", {});
        ADD_FAILURE() << "no size error";
    } catch (const EXELGeoMapError& e) {
        EXPECT_EQ(std::string(e.what()),
                  "Component \"Map1\": Cannot use map image, maximum of 100000 pixels exceeded (size of map is 400 x 300)");
    }
    EXPECT_EQ(std::tuple(img.Name(), img.Width(), img.Bitmap().Width(), img.Generation()),
              std::tuple(t / "a.bmp", 30, 400, std::uint64_t{3}));
    // A request may load another file; the name stored is the one asked for.
    TMapImage::TLoadEvents events;
    events.Request = [&](std::string& Name) { Name = t / "a.bmp"; };
    EXPECT_EQ(img.Load("elsewhere.jpg", events), TMapImage::lrTaken);
    EXPECT_EQ(std::tuple(img.Name(), img.Width(), img.Height()), std::tuple(std::string("elsewhere.jpg"), 30, 20));
    // Resampling takes the new size; a factor that would leave no pixel changes nothing.
    EXPECT_TRUE(img.Resample(0.5, true));
    EXPECT_EQ(std::tuple(img.Width(), img.Height(), img.Bitmap().Height()), std::tuple(15, 10, 10));
    EXPECT_FALSE(img.Resample(0.01, true));
    EXPECT_FALSE(img.Resample(-1.0, true));
    EXPECT_EQ(std::pair(img.Width(), img.Height()), std::pair(15, 10));
}

// At magnification 0.5 the map draws from its scaled copy; each new picture of the same size must show.
TEST(MapImage, ANewPictureIsNeverDrawnFromTheOldScaledCopy)
{
    TempDir t;
    SaveBMP(Plain(200, 100, 0x00FF00), t / "green.bmp");
    SaveBMP(Plain(3000, 1001, 0x00FFFF), t / "huge.bmp");
    TGeoMap m;
    m.SetFrameStyle(fsNone);
    m.SetMagnification(0.5);
    auto centre = [&m] { return m.AuxBmp().Pixel(50, 25); };
    m.SetMapBitMap(Plain(200, 100, 0x0000FF));
    EXPECT_EQ(centre(), 0x0000FFu);
    m.SetMapBitMap(Plain(200, 100, 0xFF0000));
    EXPECT_EQ(centre(), 0xFF0000u);
    m.SetMapImgName(t / "green.bmp");
    EXPECT_EQ(centre(), 0x00FF00u);
    // Refused by the size check: the picture stays in GrafBmp, the scaled copy must not be the old one's.
    EXPECT_THROW(m.SetMapImgName(t / "huge.bmp"), EXELGeoMapError);
    EXPECT_EQ(m.ImageCache().Mag, 0.0);
    EXPECT_THROW(m.SetMapBitMap(Plain(3000, 1001, 0x00FFFF)), EXELGeoMapError);
    EXPECT_EQ(m.ImageCache().Mag, 0.0);
}

}  // namespace
