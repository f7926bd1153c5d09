// TGeoAtlas switching to a map whose image cannot be shown keeps the map shown; the zoom cursor.
#include <qvgeo/geoatlas/geo_atlas.h>

#include "../mapview/calibrated_map_files.h"
#include <qvgeo/platform/cursors.h>
#include <qvgeo/platform/image_files.h>

#include <QComboBox>
#include <QTest>
#include <QToolButton>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>

#include <unistd.h>

namespace {

using namespace qv;
namespace fs = std::filesystem;

const fs::path kDir = fs::temp_directory_path() / ("qvgeo_atlas_switch_" + std::to_string(::getpid()));
constexpr double kLat = 48.2, kLon = 16.4;  // covered by every map below

// Each map covers the place; its resolution also moves its southern edge.
std::string MakeMap(const std::string& Base, double Resolution, const std::string& ImageRef)
{
    return qvtest::WriteCalibratedMap(kDir, Base, 46 + Resolution / 100, 14, 50, 19, 320, 240, Resolution, ImageRef);
}

class AtlasSwitch : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        fs::create_directories(kDir);
        SaveBMP(TBitmap(2001, 1500), (kDir / "big.bmp").string());
        std::ofstream(kDir / "text.jpg") << "not a picture\n";
        Maps = {MakeMap("good", 100, ""), MakeMap("oversize", 50, "big.bmp"), MakeMap("text", 40, "text.jpg")};
    }
    static void TearDownTestSuite() { fs::remove_all(kDir); }

    void SetUp() override
    {
        a.OnError = [this](const std::exception& E) { Errors += std::string(E.what()) + "\n"; };
        for (const std::string& m : Maps)
            ASSERT_TRUE(a.RegisterMap(m));
        ASSERT_TRUE(a.SelectMap(1));
        a.MapView().SetMagnification(0.8);
        a.MapView().SetTopLeft({12, 7});
    }

    // What the user sees of the atlas.
    auto Seen() const
    {
        const TGeoMap& v = a.MapView();
        return std::tuple(a.CurrentMap(), a.MapSelector()->currentIndex(), v.MapImgName(), v.MapWidth(),
                          v.MapHeight(), v.MapCaption(), v.CalibData().Resolution, v.TopLeft(), v.Magnification());
    }

    static inline std::vector<std::string> Maps;
    TGeoAtlas a;
    std::string Errors;
};

const struct {
    int map;
    const char* error;  // a part of the message
} kBad[] = {
    {2, "Cannot use map image, maximum of 3000000 pixels exceeded (size of map is 2001 x 1500)"},
    {3, "text.jpg\": not a JPEG file"},
};

TEST_F(AtlasSwitch, SelectMapOfABrokenImageKeepsTheView)
{
    for (const auto& c : kBad) {
        const auto before = Seen();
        const QImage screen = a.MapView().AuxBmp().Image().copy();
        Errors.clear();
        EXPECT_FALSE(a.SelectMap(c.map)) << c.map;
        EXPECT_NE(Errors.find(c.error), std::string::npos) << Errors;
        EXPECT_EQ(Seen(), before) << c.map;
        EXPECT_TRUE(a.MapView().AuxBmp().Image() == screen) << c.map;
    }
}

TEST_F(AtlasSwitch, ListChoiceOfABrokenImageGoesBack)
{
    std::string log;
    a.OnCBoxMapsChange = [&](TGeoAtlas& S) { log += std::to_string(S.CurrentMap()) + " "; };
    for (const auto& c : kBad) {
        const auto before = Seen();
        Errors.clear();
        a.MapSelector()->setCurrentIndex(c.map - 1);  // as the user's choice does before it is reported
        emit a.MapSelector()->activated(c.map - 1);
        EXPECT_NE(Errors.find(c.error), std::string::npos) << Errors;
        EXPECT_EQ(Seen(), before) << c.map;
    }
    EXPECT_EQ(log, "1 1 ");
}

// Zooming in at the place picks the oversize map (the coarsest finer one): nothing is shown, nothing moves.
TEST_F(AtlasSwitch, ZoomInToABrokenMapKeepsTheView)
{
    const auto before = Seen();
    EXPECT_FALSE(a.ZoomIn(kLat, kLon, 100));
    EXPECT_EQ(Seen(), before);
    EXPECT_NE(Errors.find(kBad[0].error), std::string::npos) << Errors;
}

TEST_F(AtlasSwitch, ZoomCursorShowsOverTheMap)
{
    const QImage zoom = GetCursor(AtlasZoomCursor).pixmap().toImage();
    for (const bool modeCursor : {true, false}) {
        a.MapView().SetModeCursor(modeCursor);
        QTest::mouseClick(a.ZoomButton(), Qt::LeftButton);
        EXPECT_EQ(a.MapView().cursor().pixmap().toImage(), zoom) << modeCursor;
        QTest::mouseClick(a.PointerButton(), Qt::LeftButton);
        EXPECT_NE(a.MapView().cursor().pixmap().toImage(), zoom) << modeCursor;
        // Without its own mode cursor the view shows the atlas's hand.
        EXPECT_EQ(a.MapView().testAttribute(Qt::WA_SetCursor), modeCursor) << modeCursor;
    }
}

}  // namespace
