// TGeoAtlas's Qt signals on the real widget: each fires once per real change with the new value, not on a
// no-op, after the state it reports is final; the events' signals fire beside their std::function events;
// several listeners hear them. And the widget's choices agree with a catalogue of the same files.
#include <qvgeo/geoatlas/geo_atlas.h>

#include "../mapview/calibrated_map_files.h"

#include <QComboBox>
#include <QMetaProperty>
#include <QSignalSpy>
#include <QTest>
#include <QToolButton>

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include <unistd.h>

namespace {

using namespace qv;
namespace fs = std::filesystem;

const fs::path kDir = fs::temp_directory_path() / ("qvgeo_atlas_signals_" + std::to_string(::getpid()));
constexpr double kLat = 48.2, kLon = 16.4;  // covered by maps 1 to 4

// The first arguments of a spy's signals, as ints (bool and int signals).
std::vector<int> Ints(const QSignalSpy& Spy)
{
    std::vector<int> v;
    for (const QList<QVariant>& args : Spy)
        v.push_back(args.isEmpty() ? -1 : args.at(0).toInt());
    return v;
}
using V = std::vector<int>;

class AtlasSignals : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        const auto make = [](const std::string& Base, double LatMin, double LongMin, double LatMax, double LongMax,
                             double Res, const std::string& Image = "") {
            return qvtest::WriteCalibratedMap(kDir, Base, LatMin, LongMin, LatMax, LongMax, 600, 400, Res, Image);
        };
        M = {make("Austria", 46, 13, 50, 19, 100), make("Lower", 47.5, 15.5, 48.8, 17.2, 50),
             make("Vienna", 48.0, 16.0, 48.5, 16.8, 45), make("Centre", 48.1, 16.3, 48.3, 16.5, 10),
             make("Elsewhere", 10, 10, 11, 11, 20)};
        std::ofstream(kDir / "text.jpg") << "not a picture\n";
        Broken = make("Broken", 48.0, 16.0, 48.5, 16.8, 30, "text.jpg");
    }
    static void TearDownTestSuite() { fs::remove_all(kDir); }
    void RegisterFour()
    {
        for (int i = 0; i < 4; ++i)
            ASSERT_TRUE(a.RegisterMap(M[std::size_t(i)]));
    }
    // The control pixel of (Lat, Long) on the map shown.
    QPoint At(double Lat, double Long)
    {
        std::int32_t x = 0, y = 0;
        if (!a.MapView().CalcPixelCoords(Lat, Long, x, y))
            return {-1, -1};
        const TPoint p = a.MapView().MapImageToControl({x, y});
        return {p.X, p.Y};
    }
    static inline std::vector<std::string> M;
    static inline std::string Broken;
    TGeoAtlas a;
};

// Every property the atlas declares has a NOTIFY signal.
TEST_F(AtlasSignals, EveryPropertyNotifies)
{
    const QMetaObject* mo = a.metaObject();
    ASSERT_GE(mo->propertyCount() - mo->propertyOffset(), 6);
    for (int i = mo->propertyOffset(); i < mo->propertyCount(); ++i)
        EXPECT_TRUE(mo->property(i).hasNotifySignal()) << mo->property(i).name();
}

TEST_F(AtlasSignals, PropertiesNotifyOnlyOnChange)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    struct Step { const char* Property; QVariant Value; bool Fires; };
    const Step steps[] = {
        {"CmdPanelVisible", true, false},  {"CmdPanelVisible", false, true}, {"CmdPanelVisible", false, false},
        {"CmdPanelVisible", true, true},   {"MapOutlineColor", QColor(0, 0, 255), false},
        {"MapOutlineColor", QColor(0, 192, 0), true}, {"MapOutlineColor", QColor(0, 192, 0), false},
        {"MapOutlineVisible", true, false}, {"MapOutlineVisible", false, true}, {"MapOutlineVisible", false, false},
        {"MinResDiff", 10.0, false},       {"MinResDiff", 25.0, true},       {"MinResDiff", 25.0, false},
        {"MinResDiff", nan, true},         {"MinResDiff", nan, false},       {"MinResDiff", 0.0, true},
    };
    for (const Step& s : steps) {
        const QMetaProperty p = a.metaObject()->property(a.metaObject()->indexOfProperty(s.Property));
        QSignalSpy spy(&a, p.notifySignal());
        ASSERT_TRUE(spy.isValid()) << s.Property;
        ASSERT_TRUE(a.setProperty(s.Property, s.Value)) << s.Property;
        ASSERT_EQ(spy.count(), s.Fires ? 1 : 0) << s.Property << " " << s.Value.toString().toStdString();
        if (!s.Fires)
            continue;
        const QVariant sent = spy.at(0).at(0);
        if (s.Value.typeId() == QMetaType::Double && std::isnan(s.Value.toDouble())) {
            EXPECT_TRUE(std::isnan(sent.toDouble()));
        } else {
            EXPECT_EQ(sent, s.Value) << s.Property;
            EXPECT_EQ(a.property(s.Property), sent) << s.Property;  // sent once the value is stored
        }
    }
    // The C++ setters notify too, under their own value types.
    QSignalSpy colour(&a, &TGeoAtlas::mapOutlineColorChanged);
    a.SetMapOutlineColor(0x0000FF);  // red in the low byte
    a.SetMapOutlineColor(0x0000FF);
    ASSERT_EQ(colour.count(), 1);
    EXPECT_EQ(colour.at(0).at(0).value<QColor>(), QColor(255, 0, 0));
}

TEST_F(AtlasSignals, CurrentMapAndShownMap)
{
    a.show();
    RegisterFour();
    QSignalSpy changed(&a, &TGeoAtlas::mapChanged), shown(&a, &TGeoAtlas::mapShown);
    // A second listener, which sees the place already centred when a zoom reports its map.
    std::vector<QPoint> centres;
    QObject::connect(&a, &TGeoAtlas::mapShown, &a, [&] { centres.push_back(At(kLat, kLon)); });

    struct Step { const char* What; std::function<bool()> Do; bool Ok; V Changed, Shown; };
    const Step steps[] = {
        {"select 2", [&] { return a.SelectMap(2); }, true, {2}, {2}},
        {"select 2 again", [&] { return a.SelectMap(2); }, true, {}, {2}},  // loaded afresh, same number
        {"select 0", [&] { return a.SelectMap(0); }, false, {}, {}},
        {"select 5", [&] { return a.SelectMap(5); }, false, {}, {}},
        {"zoom in", [&] { return a.ZoomIn(kLat, kLon, 50); }, true, {4}, {4}},
        {"nothing finer", [&] { return a.ZoomIn(kLat, kLon, 10); }, false, {}, {}},
        {"zoom out", [&] { return a.ZoomOut(kLat, kLon, 10); }, true, {3}, {3}},
        {"nowhere", [&] { return a.ZoomOut(20, kLon, 10); }, false, {}, {}},
        {"best", [&] { return a.SelectBestMap(kLat, kLon, 1000); }, true, {1}, {1}},
        {"best, same map", [&] { return a.SelectBestMap(kLat, kLon, 500); }, true, {}, {1}},
    };
    for (const Step& s : steps) {
        changed.clear(), shown.clear(), centres.clear();
        EXPECT_EQ(s.Do(), s.Ok) << s.What;
        EXPECT_EQ(Ints(changed), s.Changed) << s.What;
        EXPECT_EQ(Ints(shown), s.Shown) << s.What;
        EXPECT_EQ(a.property("CurrentMap").toInt(), a.CurrentMap()) << s.What;
        if (!s.Shown.empty()) {
            EXPECT_EQ(a.CurrentMap(), s.Shown.back()) << s.What;
        }
        if (s.Ok && std::string(s.What) != "select 2" && std::string(s.What) != "select 2 again") {
            ASSERT_EQ(centres.size(), 1u) << s.What;
            EXPECT_NEAR(centres[0].x(), 240, 1) << s.What;  // centred in the 480 x 287 view
            EXPECT_NEAR(centres[0].y(), 143, 1) << s.What;
        }
    }
}

TEST_F(AtlasSignals, AMapThatCannotBeShownReportsOnlyTheError)
{
    RegisterFour();
    ASSERT_TRUE(a.RegisterMap(Broken));  // map 5, 30 m: the next step in from 45
    ASSERT_TRUE(a.SelectMap(3));
    std::string viaOnError;
    a.OnError = [&](const std::exception& E) { viaOnError += E.what(); };
    QSignalSpy changed(&a, &TGeoAtlas::mapChanged), shown(&a, &TGeoAtlas::mapShown), error(&a, &TGeoAtlas::error);
    EXPECT_FALSE(a.ZoomIn(kLat, kLon, 45));
    EXPECT_FALSE(a.SelectMap(5));
    EXPECT_EQ(changed.count() + shown.count(), 0);
    ASSERT_EQ(error.count(), 2);
    EXPECT_NE(error.at(0).at(0).toString().toStdString().find("text.jpg\": not a JPEG file"), std::string::npos);
    EXPECT_EQ(error.at(0).at(0).toString() + error.at(1).at(0).toString(), QString::fromStdString(viaOnError));
    EXPECT_EQ(a.CurrentMap(), 3);

    // The list's choice of it goes back to map 3: the choice is reported, no change.
    QSignalSpy chosen(&a, &TGeoAtlas::mapChosen);
    a.MapSelector()->setCurrentIndex(4);
    emit a.MapSelector()->activated(4);
    EXPECT_EQ(Ints(chosen), V{3});
    EXPECT_EQ(changed.count() + shown.count(), 0);
    EXPECT_EQ(error.count(), 3);

    // An error thrown by an application's handler in a slot reaches the signal too.
    a.OnZoomButClick = [](TGeoAtlas&) { throw std::runtime_error("handler failed"); };
    QTest::mouseClick(a.ZoomButton(), Qt::LeftButton);
    ASSERT_EQ(error.count(), 4);
    EXPECT_EQ(error.at(3).at(0).toString(), "handler failed");
}

TEST_F(AtlasSignals, RegistrationAndRemoval)
{
    QSignalSpy count(&a, &TGeoAtlas::numRegMapsChanged), added(&a, &TGeoAtlas::mapRegistered),
        removed(&a, &TGeoAtlas::mapUnregistered), changed(&a, &TGeoAtlas::mapChanged),
        shown(&a, &TGeoAtlas::mapShown);
    RegisterFour();
    EXPECT_TRUE(a.RegisterMap(M[1]));                     // an update: no new count
    EXPECT_FALSE(a.RegisterMap((kDir / "x.xml").string()));  // refused: nothing
    EXPECT_EQ(Ints(count), (V{1, 2, 3, 4}));
    EXPECT_EQ(Ints(added), (V{1, 2, 3, 4, 2}));
    EXPECT_EQ(a.property("NumRegMaps").toInt(), 4);

    count.clear(), added.clear();
    ASSERT_TRUE(a.SelectMap(2));
    changed.clear(), shown.clear();
    for (int bad : {0, 5, -1})
        a.UnregisterMap(bad);
    EXPECT_EQ(count.count() + removed.count(), 0);
    a.UnregisterMap(2);  // the selected map: map 3 moves into number 2 and is shown, the number stays
    EXPECT_EQ(Ints(count), V{3});
    EXPECT_EQ(Ints(removed), V{2});
    EXPECT_EQ(Ints(shown), V{2});
    EXPECT_EQ(changed.count(), 0);
    EXPECT_EQ(a.MapView().CalibData().Resolution, 45.0);

    // A folder: one signal a file taken; Progress sees the list of the maps taken so far.
    const fs::path dir = kDir / "folder";
    fs::create_directories(dir);
    fs::copy_file(M[4], dir / "a.xml", fs::copy_options::overwrite_existing);
    std::ofstream(dir / "b.xml") << "no calibration\n";
    fs::copy_file(M[0], dir / "c.xml", fs::copy_options::overwrite_existing);
    count.clear(), added.clear();
    std::vector<int> lines;
    a.RegisterFolder(dir.string(), [&](std::int32_t, std::int32_t) {
        lines.push_back(a.MapSelector()->count());
        return true;
    });
    EXPECT_EQ(Ints(added), (V{4, 5}));
    EXPECT_EQ(Ints(count), (V{4, 5}));
    EXPECT_EQ(lines, (std::vector<int>{3, 4, 4, 5}));
}

TEST_F(AtlasSignals, ButtonsListAndZoomClicks)
{
    a.show();
    RegisterFour();
    ASSERT_TRUE(a.SelectMap(1));
    std::string log;
    a.OnZoomButClick = [&](TGeoAtlas&) { log += "zoom "; };
    a.OnCBoxMapsChange = [&](TGeoAtlas&) { log += "list "; };
    QObject::connect(&a, &TGeoAtlas::zoomButtonClicked, &a, [&] { log += "zoom-signal "; });
    QObject::connect(&a, &TGeoAtlas::pointerButtonClicked, &a, [&] { log += "pointer-signal "; });
    QObject::connect(&a, &TGeoAtlas::mapChosen, &a, [&](int I) { log += "chosen" + std::to_string(I) + " "; });
    QObject::connect(&a, &TGeoAtlas::mapChanged, &a, [&](int I) { log += "changed" + std::to_string(I) + " "; });
    QObject::connect(&a, &TGeoAtlas::mapShown, &a, [&](int I) { log += "shown" + std::to_string(I) + " "; });
    QSignalSpy zoom(&a, &TGeoAtlas::zoomButtonClicked);  // one more listener

    QTest::mouseClick(a.ZoomButton(), Qt::LeftButton);
    QTest::mouseClick(a.ZoomButton(), Qt::LeftButton);  // stays down, clicked again
    QTest::mouseClick(a.PointerButton(), Qt::LeftButton);
    EXPECT_EQ(log, "zoom zoom-signal zoom zoom-signal pointer-signal ");
    EXPECT_EQ(zoom.count(), 2);

    log.clear();
    QTest::keyClick(a.MapSelector(), Qt::Key_Down);  // the user's choice: line 1, map 2
    EXPECT_EQ(log, "changed2 shown2 list chosen2 ");

    log.clear();
    a.OnMapChanging = [](TGeoAtlas&, std::int32_t) { return false; };
    QTest::keyClick(a.MapSelector(), Qt::Key_Down);  // refused: nothing reported, the map stays
    EXPECT_EQ(log, "");
    EXPECT_EQ(a.CurrentMap(), 2);
    a.OnMapChanging = {};

    // A zoom click: left in, right out.
    QTest::mouseClick(a.ZoomButton(), Qt::LeftButton);
    log.clear();
    const QPoint p = At(kLat, kLon);
    QTest::mouseClick(&a.MapView(), Qt::LeftButton, {}, p);
    EXPECT_EQ(log, "changed4 shown4 ");
    log.clear();
    QTest::mouseClick(&a.MapView(), Qt::RightButton, {}, At(kLat, kLon));
    EXPECT_EQ(log, "changed3 shown3 ");
}

// The widget's zoom steps land on the maps a catalogue of the same files chooses, over a grid of places
// and resolutions.
TEST_F(AtlasSignals, WidgetChoicesMatchTheCatalogue)
{
    TMapCatalogue c;
    for (const std::string& m : M) {
        ASSERT_TRUE(a.RegisterMap(m));
        ASSERT_NE(c.Register(m), 0);
    }
    int switches = 0;
    for (double lat : {10.5, 47.9, 48.2, 48.4, 48.6})
        for (double lon : {10.5, 16.4, 17.0})
            for (double res : {5.0, 10.0, 45.0, 48.0, 50.0, 100.0, 200.0}) {
                for (int kind = 0; kind < 3; ++kind) {
                    const int want = kind == 0 ? c.ChooseFiner(lat, lon, res, a.MinResDiff())
                                     : kind == 1 ? c.ChooseCoarser(lat, lon, res)
                                                 : c.ChooseBest(lat, lon, res);
                    a.SelectMap(want == 1 ? 2 : 1);  // so that a switch is seen as one
                    const int before = a.CurrentMap();
                    const bool ok = kind == 0   ? a.ZoomIn(lat, lon, res)
                                    : kind == 1 ? a.ZoomOut(lat, lon, res)
                                                : a.SelectBestMap(lat, lon, res);
                    EXPECT_EQ(ok, want != 0) << kind << " " << lat << " " << lon << " " << res;
                    EXPECT_EQ(a.CurrentMap(), want != 0 ? want : before) << kind << " " << lat << " " << lon << " " << res;
                    switches += ok;
                }
            }
    EXPECT_GT(switches, 60);
}

}  // namespace
