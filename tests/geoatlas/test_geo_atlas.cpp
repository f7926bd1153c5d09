// TGeoAtlas on real widgets with synthetic events. The maps are generated empty maps whose calibration
// files are rewritten with a resolution of our choosing and an image named without its directory.
#include <qvgeo/geoatlas/geo_atlas.h>

#include "../mapview/calibrated_map_files.h"
#include <qvgeo/platform/cursors.h>
#include <qvgeo/support/text.h>

#include <QComboBox>
#include <QFrame>
#include <QTest>
#include <QToolButton>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include <unistd.h>

namespace {

using namespace qv;
namespace fs = std::filesystem;

const fs::path kDir = fs::temp_directory_path() / ("qvgeo_atlas_" + std::to_string(::getpid()));
constexpr double kLat = 48.2, kLon = 16.4;  // covered by every map below

std::string MakeMap(const std::string& Base, double LatMin, double LongMin, double LatMax, double LongMax,
                    double Resolution, int W = 200, int H = 150, const std::string& ImageRef = "")
{
    return qvtest::WriteCalibratedMap(kDir, Base, LatMin, LongMin, LatMax, LongMax, W, H, Resolution, ImageRef);
}

class Atlas : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        M = {MakeMap("Austria", 46, 13, 50, 19, 100, 400, 300), MakeMap("Lower", 47.5, 15.5, 48.8, 17.2, 50, 900, 700),
             MakeMap("Vienna", 48.0, 16.0, 48.5, 16.8, 45, 200, 150, "c:\\maps\\VIENNA.BMP"),
             MakeMap("Centre", 48.1, 16.3, 48.3, 16.5, 10), MakeMap("Elsewhere", 10, 10, 11, 11, 20)};
    }
    static void TearDownTestSuite() { fs::remove_all(kDir); }
    // Registers the four maps around (kLat, kLon): 1 at 100, 2 at 50, 3 at 45, 4 at 10 metres per pixel.
    void RegisterFour()
    {
        for (int i = 0; i < 4; ++i)
            ASSERT_TRUE(a.RegisterMap(M[i]));
    }
    // The control pixel of (Lat, Long) on the map shown.
    QPoint At(double Lat, double Long)
    {
        std::int32_t x = 0, y = 0;
        EXPECT_TRUE(a.MapView().CalcPixelCoords(Lat, Long, x, y));
        const TPoint p = a.MapView().MapImageToControl({x, y});
        return {p.X, p.Y};
    }
    // (NumRegMaps, CurrentMap, the list's line: -1 for none)
    std::tuple<int, int, int> State() const { return {a.NumRegMaps(), a.CurrentMap(), a.MapSelector()->currentIndex()}; }
    static inline std::vector<std::string> M;
    TGeoAtlas a;
};

TEST_F(Atlas, ConstructionGeometryAndDefaults)
{
    const std::pair<QWidget*, QRect> geometry[] = {
        {&a, {100, 50, 480, 320}}, {a.CmdPanel(), {0, 0, 480, 33}}, {a.PointerButton(), {3, 3, 26, 26}},
        {a.ZoomButton(), {32, 3, 26, 26}}, {&a.MapView(), {0, 33, 480, 287}}};
    for (auto [w, r] : geometry)
        EXPECT_EQ(w->geometry(), r);
    EXPECT_EQ(a.MapSelector()->geometry().topLeft(), QPoint(68, 5));
    EXPECT_EQ(a.MapSelector()->width() + a.MapSelector()->isEditable(), 300);
    EXPECT_TRUE(a.PointerButton()->isChecked() && !a.ZoomButton()->isChecked());
    EXPECT_TRUE(a.MapOutlineColor() == 0xFF0000u && a.MapOutlineVisible() && a.MinResDiff() == 10.0);
    EXPECT_EQ(a.NumRegMaps() + a.CurrentMap(), 0);
    EXPECT_EQ(a.MapView().EmptyMsg(), "TGeoAtlas: Empty");
    for (QToolButton* b : {a.PointerButton(), a.ZoomButton()})  // a 2x glyph beside the 1x one
        EXPECT_EQ(b->icon().availableSizes(), (QList<QSize>{{16, 16}, {32, 32}}));
    for (TCursor c : {AtlasZoomCursor, AtlasHandCursor})
        EXPECT_EQ(GetCursor(c).shape(), Qt::BitmapCursor);
    a.SetCmdPanelVisible(false);
    EXPECT_EQ(a.MapView().geometry(), QRect(0, 0, 480, 320));
}

TEST_F(Atlas, ChoosesByPositionAndResolution)
{
    EXPECT_FALSE(a.ZoomIn(kLat, kLon, 100));  // nothing registered
    RegisterFour();
    struct Case { bool In; double Lat, Res, MinResDiff; bool Ok; int Map; };
    const Case cases[] = {
        {true, kLat, 100, 10, true, 2}, {true, kLat, 50, 10, true, 4},  // 45 is exactly 10 % finer: not more
        {true, kLat, 50, 9.9, true, 3}, {false, kLat, 10, 10, true, 3}, {false, kLat, 45, 50, true, 2},
        {false, kLat, 100, 10, false, 2}, {true, kLat, 10, 10, false, 2}, {true, 20.0, 100, 10, false, 2}};
    for (const Case& c : cases) {
        a.SelectMap(2);
        a.SetMinResDiff(c.MinResDiff);
        EXPECT_EQ(c.In ? a.ZoomIn(c.Lat, kLon, c.Res) : a.ZoomOut(c.Lat, kLon, c.Res), c.Ok) << c.Res;
        EXPECT_EQ(State(), std::tuple(4, c.Map, c.Map - 1)) << c.In << " " << c.Res;
    }
    // Equal resolutions: copies registered later lose to the lower number.
    fs::copy_file(M[1], kDir / "lower2.xml", fs::copy_options::overwrite_existing);
    fs::copy_file(M[2], kDir / "vienna2.xml", fs::copy_options::overwrite_existing);
    ASSERT_TRUE(a.RegisterMap((kDir / "lower2.xml").string()) && a.RegisterMap((kDir / "vienna2.xml").string()));
    EXPECT_TRUE(a.ZoomIn(kLat, kLon, 100));
    EXPECT_EQ(a.CurrentMap(), 2);
    EXPECT_TRUE(a.ZoomOut(kLat, kLon, 10));
    EXPECT_EQ(a.CurrentMap(), 3);
    EXPECT_EQ(a.MapView().CalibData().Resolution, 45.0);
    // SelectBestMap: the coarsest at most the wanted resolution, else the finest coarser one.
    const std::pair<double, int> best[] = {{47, 3}, {50, 2}, {5, 4}, {1000, 1}};
    for (auto [res, map] : best) {
        EXPECT_TRUE(a.SelectBestMap(kLat, kLon, res));
        EXPECT_EQ(a.CurrentMap(), map) << res;
    }
    EXPECT_FALSE(a.SelectBestMap(-40, kLon, 50));
}

TEST_F(Atlas, RegistrationRemovalAndSlots)
{
    RegisterFour();
    EXPECT_FALSE(a.RegisterMap((kDir / "Austria.bmp").string()));  // not a calibration
    fs::copy_file(M[0], kDir / "Copy.XML", fs::copy_options::overwrite_existing);
    fs::remove(kDir / "copy.xml");
    fs::create_symlink("Copy.XML", kDir / "copy.xml");  // both spellings open
    EXPECT_TRUE(a.RegisterMap((kDir / "Copy.XML").string()));
    EXPECT_TRUE(a.RegisterMap((kDir / "copy.xml").string()));  // the same map again, by another spelling
    EXPECT_EQ(a.NumRegMaps(), 5);
    EXPECT_EQ(a.GetMapDef(5).MapFName, LowerCase((kDir / "Copy.XML").string()));
    EXPECT_EQ(a.GetMapDef(2).Corners[gcoTopRight].Latit, 48.8);
    EXPECT_EQ(a.MapSelector()->itemText(3).toStdString(), "Centre");
    EXPECT_EQ(State(), std::tuple(5, 0, -1));
    for (int i : {0, 201})
        EXPECT_EQ(a.GetMapDef(i).MapFName + a.GetMapDef(i).Caption + std::to_string(a.GetMapDef(i).Resolution),
                  "0.000000");

    a.SelectMap(2);
    a.UnregisterMap(2);  // the selected map: the one that moves into number 2 is selected
    EXPECT_EQ(State(), std::tuple(4, 2, 1));
    EXPECT_EQ(a.MapView().CalibData().Resolution, 45.0);
    EXPECT_EQ(a.GetMapDef(5).MapFName, a.GetMapDef(4).MapFName);  // the former last slot is not cleared
    a.UnregisterMap(4);  // not the selected one: no selection, the current number stays
    for (int bad : {0, 4, -1})
        a.UnregisterMap(bad);
    EXPECT_EQ(State(), std::tuple(3, 2, -1));
    a.SelectMap(3);
    a.UnregisterMap(3);  // the last and selected: nothing follows, nothing loads
    EXPECT_EQ(State(), std::tuple(2, 3, -1));
}

TEST_F(Atlas, TwoHundredMapsAtMost)
{
    for (int i = 1; i <= MaxAtlasMaps; ++i) {
        const fs::path p = kDir / ("m" + std::to_string(i) + ".xml");
        fs::copy_file(M[4], p, fs::copy_options::overwrite_existing);
        ASSERT_TRUE(a.RegisterMap(p.string())) << i;
    }
    EXPECT_FALSE(a.RegisterMap(M[0]));
    EXPECT_TRUE(a.RegisterMap((kDir / "m7.xml").string()));  // an update still fits
    EXPECT_EQ(a.NumRegMaps() + a.MapSelector()->count(), 2 * MaxAtlasMaps);
    EXPECT_EQ(a.GetMapDef(200).MapFName, LowerCase((kDir / "m200.xml").string()));
}

TEST_F(Atlas, OutlinesAndImagesBesideTheirCalibration)
{
    a.show();
    RegisterFour();
    ASSERT_TRUE(a.SelectMap(1));
    ASSERT_EQ(a.MapView().MapWidth(), 400);  // "austria.bmp" found as Austria.bmp beside the calibration
    ASSERT_TRUE(a.SelectMap(3));
    EXPECT_EQ(a.MapView().MapWidth(), 200);  // "c:\maps\vienna.bmp" found as Vienna.bmp beside it
    a.SelectMap(1);
    // Map 2's top edge (48.8 N) and right edge (17.2 E) on map 1's image, and map 1's own top edge.
    const auto px = [](double Long) { return static_cast<int>(30 + (Long - 13) / 6 * 340 + 0.5); };
    const auto py = [](double Lat) { return static_cast<int>(30 + (50 - Lat) / 4 * 240 + 0.5); };
    struct Case { double Mag; TPoint TopLeft; TColor Color; bool Visible; int X, Y; bool Drawn; };
    const Case cases[] = {{1, {0, 0}, 0xFF0000, true, px(16.5), py(48.8), true},
                          {1, {0, 0}, 0x00C000, true, px(17.2), py(48.3), true},
                          {1, {0, 0}, 0xFF0000, false, px(16.5), py(48.8), false},
                          {1, {0, 0}, 0xFF0000, true, px(16.0), py(50.0), false},  // the map shown
                          {2, {100, 60}, 0xFF0000, true, (px(16.5) - 100) * 2, (py(48.8) - 60) * 2, true}};
    for (const Case& c : cases) {
        a.MapView().SetMagnification(c.Mag);
        a.MapView().SetTopLeft(c.TopLeft);
        a.SetMapOutlineColor(c.Color);
        a.SetMapOutlineVisible(c.Visible);
        int hits = 0;
        for (int dy = -1; dy <= 1; ++dy)
            for (int dx = -1; dx <= 1; ++dx)
                hits += a.MapView().AuxBmp().Pixel(c.X + dx, c.Y + dy) == c.Color;
        EXPECT_EQ(hits > 0, c.Drawn) << c.X << "," << c.Y;
    }
}

TEST_F(Atlas, ButtonsListAndZoomClicks)
{
    a.show();
    RegisterFour();
    std::string log;
    a.OnClick = [&](TCustomControl& S) { log += &S == &a ? "click " : "? "; };
    a.OnZoomButClick = [&](TGeoAtlas&) { log += "zoom "; };
    a.OnPointerButClick = [&](TGeoAtlas&) { log += "pointer "; };
    a.OnCBoxMapsChange = [&](TGeoAtlas& S) { log += "list" + std::to_string(S.CurrentMap()) + " "; };
    a.OnMouseDown = [&](TCustomControl&, TMouseButton B, TShiftState, std::int32_t X, std::int32_t Y) {
        log += "down" + std::to_string(B) + "@" + std::to_string(X) + "," + std::to_string(Y) + " ";
    };
    a.SelectMap(1);
    const QPoint p = At(kLat, kLon);
    QTest::mouseClick(&a.MapView(), Qt::LeftButton, {}, p);  // pointer mode: the map stays
    EXPECT_EQ(a.CurrentMap(), 1);
    const std::string down = "down0@" + std::to_string(p.x()) + "," + std::to_string(p.y()) + " ";
    EXPECT_EQ(log, down + "click ");
    log.clear();

    QTest::mouseClick(a.ZoomButton(), Qt::LeftButton);
    QTest::mouseClick(a.ZoomButton(), Qt::LeftButton);  // stays down
    EXPECT_TRUE(a.ZoomButton()->isChecked() && !a.PointerButton()->isChecked());
    EXPECT_FALSE(a.MapView().AllowPan());
    EXPECT_EQ(a.cursor().pixmap().toImage(), GetCursor(AtlasZoomCursor).pixmap().toImage());
    EXPECT_EQ(log, "click zoom click zoom ");
    log.clear();

    bool valid = false;
    const TPoint mp = a.MapView().ControlToMapImage({p.x(), p.y()});
    const double lat = a.MapView().CalcLatitude(mp.X, mp.Y, valid), lon = a.MapView().CalcLongitude(mp.X, mp.Y, valid);
    QTest::mousePress(&a.MapView(), Qt::LeftButton, {}, p);  // zoom in about the place: map 2
    EXPECT_EQ(log, down);
    EXPECT_EQ(a.CurrentMap(), 2);
    const QPoint q = At(lat, lon);
    EXPECT_NEAR(q.x(), 240, 1);  // centred in the 480 x 287 view
    EXPECT_NEAR(q.y(), 143, 1);
    QTest::mouseRelease(&a.MapView(), Qt::LeftButton, {}, p);
    QTest::mousePress(&a.MapView(), Qt::RightButton, {}, q);  // any other button zooms out
    EXPECT_EQ(a.CurrentMap(), 1);
    QTest::mouseRelease(&a.MapView(), Qt::RightButton, {}, q);

    log.clear();
    QTest::mouseClick(a.PointerButton(), Qt::LeftButton);
    EXPECT_TRUE(a.MapView().AllowPan() && a.cursor().shape() == Qt::PointingHandCursor);
    EXPECT_EQ(log, "click pointer ");

    log.clear();
    QTest::keyClick(a.MapSelector(), Qt::Key_Down);  // from line 0 to line 1
    EXPECT_EQ(log, "list2 ");
    EXPECT_EQ(a.MapView().CalibData().Resolution, 50.0);
}

TEST_F(Atlas, RegisterFolderReportsWhatItCouldNotTake)
{
    const fs::path dir = kDir / "folder";
    fs::create_directories(dir);
    fs::copy_file(M[0], dir / "a.xml", fs::copy_options::overwrite_existing);
    fs::copy_file(M[1], dir / "B.XML", fs::copy_options::overwrite_existing);
    std::ofstream(dir / "c.xml") << "<?xml version=\"1.0\"?>\n<geomap sig=\"Quorvanta\" id=\"x\">\n"
                                    "<calline type=\"diagonal\" value=\"1\" npoints=\"1\">\n[1,2]\n</calline>\n";
    std::ofstream(dir / "d.xml") << "<?xml version=\"1.0\"?>\n<notes>nothing here</notes>\n";
    std::ofstream(dir / "e.txt") << "not looked at";
    const std::vector<TAtlasFileProblem> expected = {
        {(dir / "c.xml").string(), "ParseCalibData: invalid type of graticule line: type=\"diagonal"},
        {(dir / "d.xml").string(), "holds no calibration"}};
    EXPECT_EQ(a.RegisterFolder(dir.string()), expected);
    EXPECT_EQ(a.GetMapDef(1).Caption + a.GetMapDef(2).Caption + a.GetMapDef(3).Caption, "AustriaLower");
    const auto missing = a.RegisterFolder((kDir / "none").string());
    ASSERT_EQ(missing.size(), 1u);
    EXPECT_EQ(missing[0].File, (kDir / "none").string());
}

}  // namespace
