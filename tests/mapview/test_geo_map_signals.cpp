// TGeoMap's Qt signals on real (hidden) widgets: every property's NOTIFY exactly when its value changes,
// the view, map, calibration and landmark signals once per operation, the pointer's position, the
// selection and errors; with them the one repaint that a calibration or landmark change ends in.
#include "calibrated_map_files.h"
#include <qvgeo/mapview/geo_map.h>

#include <qvgeo/geomap/calibration_file.h>
#include <qvgeo/platform/image_files.h>
#include <qvgeo/support/errors.h>

#include <QApplication>
#include <QMetaProperty>
#include <QMouseEvent>
#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>

#include <unistd.h>

namespace {

using namespace qv;
namespace fs = std::filesystem;

// 40..50 N, 10..20 E over 1000 x 800 pixels, equirect: pixel (x, y) is (50 - y/80, 10 + x/100).
int N(const QSignalSpy& Spy) { return static_cast<int>(Spy.count()); }

void Calibrated(TGeoMap& M) { M.CreateEmptyMapInMemory(40, 10, 50, 20, 1, 1, 1000, 800, false); }

struct TempDir {
    fs::path Dir = fs::temp_directory_path() / ("qvgeo_signals_" + std::to_string(::getpid()));
    TempDir() { fs::create_directories(Dir); }
    ~TempDir() { fs::remove_all(Dir); }
    std::string operator/(const std::string& Name) const { return (Dir / Name).string(); }
};

// Spies on every NOTIFY signal of the map's properties, by property name.
struct PropertySpies {
    std::map<std::string, std::unique_ptr<QSignalSpy>> spies;
    explicit PropertySpies(TGeoMap& M)
    {
        const QMetaObject& mo = TGeoMap::staticMetaObject;
        for (int i = mo.propertyOffset(); i < mo.propertyCount(); ++i) {
            const QMetaProperty p = mo.property(i);
            EXPECT_TRUE(p.hasNotifySignal()) << p.name();
            spies[p.name()] = std::make_unique<QSignalSpy>(&M, p.notifySignal());
        }
    }
    void Clear()
    {
        for (auto& [name, spy] : spies)
            spy->clear();
    }
};

std::map<std::string, QVariant> Values(const TGeoMap& M)
{
    std::map<std::string, QVariant> v;
    const QMetaObject& mo = TGeoMap::staticMetaObject;
    for (int i = mo.propertyOffset(); i < mo.propertyCount(); ++i)
        v[mo.property(i).name()] = mo.property(i).read(&M);
    return v;
}

// Every property's signal came once when its value changed and never otherwise.
void ExpectNotifiedExactlyWhereChanged(const std::map<std::string, QVariant>& Before, const TGeoMap& M,
                                       PropertySpies& Spies, const std::string& What)
{
    const std::map<std::string, QVariant> after = Values(M);
    for (const auto& [name, spy] : Spies.spies)
        EXPECT_EQ(spy->count(), Before.at(name) == after.at(name) ? 0 : 1) << What << ": " << name;
}

TEST(GeoMapSignals, EveryPropertyNotifiesExactlyWhenItsValueChanges)
{
    // Each property written twice: a new value, then one that the setter leaves or clamps to the same.
    struct Case {
        const char* name;
        QVariant first, second;
    };
    const Case cases[] = {
        {"AllowPan", false, false},
        {"AntiAlias", false, false},
        {"CacheMagLimit", 0.25, 0.25},
        {"ColorBackGnd", QColor(1, 2, 3), QColor(1, 2, 3)},
        {"ColorFrame", QColor(4, 5, 6), QColor(4, 5, 6)},
        {"ColorGraticule", QColor(7, 8, 9), QColor(7, 8, 9)},
        {"ColorCalibPoints", QColor(10, 11, 12), QColor(10, 11, 12)},
        {"EmptyMsg", QString("nothing"), QString("nothing")},
        {"FrameStyle", QVariant::fromValue(TGeoMap::EFrameStyle::fsRaised), QVariant::fromValue(TGeoMap::EFrameStyle::fsRaised)},
        {"ShowGraticule", QVariant::fromValue(TGeoMap::EShowGraticule::sgLines), QVariant::fromValue(TGeoMap::EShowGraticule::sgLines)},
        {"MouseAction", QVariant::fromValue(TGeoMap::EMouseAction::maZoomWindow), QVariant::fromValue(TGeoMap::EMouseAction::maRubberBand)},
        {"CalibModel", QVariant::fromValue(TGeoMap::ECalibModel::cmBiquadraticPn), QVariant::fromValue(TGeoMap::ECalibModel::cmBiquadraticPn)},
        {"UTMHemisphere", QVariant::fromValue(TGeoMap::EHemisphere::hemiSouth), QVariant::fromValue(TGeoMap::EHemisphere::hemiSouth)},
        {"ConfinePanToMapImage", false, false},
        {"GratLineDist", 100.0, 75.0},  // both clamped to 60
        {"UTMGridDist", 20000000, 30000000},  // both clamped to 10000000
        {"UTMZone", 33, 61},  // 61 is ignored
        {"Magnification", 2.0, 2.0},
        {"MaxMapPixels", qint64(5000000), qint64(5000000)},
        {"KeyboardNavigation", false, false},
        {"WheelZoom", true, true},
        {"PinchZoom", false, false},
        {"HitTolerance", 3, 3},
        {"ModeCursor", false, false},
    };
    TGeoMap probe;
    EXPECT_EQ(Values(probe).size(), std::size(cases));  // every property has its case
    for (const Case& c : cases) {
        TGeoMap m;
        Calibrated(m);
        PropertySpies spies(m);
        const std::map<std::string, QVariant> before = Values(m);
        ASSERT_TRUE(m.setProperty(c.name, c.first)) << c.name;
        const std::map<std::string, QVariant> afterFirst = Values(m);
        EXPECT_NE(afterFirst.at(c.name), before.at(c.name)) << c.name << " did not change";
        ExpectNotifiedExactlyWhereChanged(before, m, spies, std::string(c.name) + " set");
        spies.Clear();
        m.setProperty(c.name, c.second);
        ExpectNotifiedExactlyWhereChanged(afterFirst, m, spies, std::string(c.name) + " set again");
    }
}

TEST(GeoMapSignals, AssignNotifiesThePropertiesItChanged)
{
    TGeoMap source, dest;
    Calibrated(source);
    source.SetColorGraticule(0x123456);
    source.SetShowGraticule(sgLines);
    source.SetMagnification(0.5);
    dest.SetFrameStyle(fsNone);
    PropertySpies spies(dest);
    QSignalSpy map(&dest, &TGeoMap::mapChanged), calib(&dest, &TGeoMap::calibrationChanged);
    const std::map<std::string, QVariant> before = Values(dest);
    dest.Assign(source);
    ExpectNotifiedExactlyWhereChanged(before, dest, spies, "Assign");
    EXPECT_EQ(spies.spies.at("ColorGraticule")->count(), 1);
    EXPECT_EQ(spies.spies.at("FrameStyle")->count(), 1);
    EXPECT_EQ(std::pair(N(map), N(calib)), std::pair(1, 1));
}

TEST(GeoMapSignals, ViewSignalsComeOncePerChangeToEveryReceiver)
{
    TGeoMap m;
    Calibrated(m);
    m.show();
    QSignalSpy mag(&m, &TGeoMap::magnificationChanged), view(&m, &TGeoMap::viewChanged),
        second(&m, &TGeoMap::viewChanged);
    m.SetTopLeft(m.TopLeft());
    m.SetMagnification(m.Magnification());
    EXPECT_EQ(std::pair(N(mag), N(view)), std::pair(0, 0));
    m.SetTopLeft({100, 50});
    EXPECT_EQ(std::tuple(N(mag), N(view), N(second)), std::tuple(0, 1, 1));
    m.SetMagnification(2.0);
    ASSERT_EQ(N(mag), 1);
    EXPECT_EQ(mag.at(0).at(0).toDouble(), 2.0);
    EXPECT_EQ(N(view), 2);
    m.resize(300, 200);
    QApplication::processEvents();
    EXPECT_EQ(std::pair(N(mag), N(view)), std::pair(1, 3));
    m.SetTopLeft({990, 790});
    m.PanMapToFillWindow();  // moves the view back onto the map without a repaint: still announced
    EXPECT_EQ(N(view), 5);
    m.ZoomHistory(0);  // the entry pushed at construction: (0, 0) at 1.0
    EXPECT_EQ(std::tuple(N(mag), mag.last().at(0).toDouble(), N(view)), std::tuple(2, 1.0, 6));
}

TEST(GeoMapSignals, CalibrationAndLandMarkChangesRepaintOnceAndSignalOnce)
{
    TGeoMap m;
    Calibrated(m);
    int renders = 0;
    m.OnBeforeRenderData = [&](TGeoMap&, TCanvas&) { ++renders; };
    QSignalSpy calib(&m, &TGeoMap::calibrationChanged), model(&m, &TGeoMap::calibModelChanged),
        marks(&m, &TGeoMap::landMarksChanged), map(&m, &TGeoMap::mapChanged);
    struct Step {
        const char* what;
        std::function<void()> op;
        int renders, calib, model, marks;
    };
    const Step steps[] = {
        {"point added", [&] { m.AddCalibPoint(45.0, 15.0, 500, 400); }, 1, 1, 0, 0},
        {"point removed", [&] { m.RemoveCalibPoint(500, 400); }, 1, 1, 0, 0},
        {"model", [&] { m.SetCalibModel(cmBiquadraticPn); }, 1, 1, 1, 0},
        {"caption (not drawn)", [&] { m.SetMapCaption("Sheet"); }, 0, 1, 0, 0},
        {"same caption", [&] { m.SetMapCaption("Sheet"); }, 0, 0, 0, 0},
        {"landmark", [&] { m.AddLandMark(45, 15, 0); }, 1, 0, 0, 1},
        {"highlight", [&] { m.SetHighLM(1); }, 1, 0, 0, 1},
        {"same highlight", [&] { m.SetHighLM(1); }, 0, 0, 0, 0},
    };
    for (const Step& s : steps) {
        renders = 0;
        calib.clear(), model.clear(), marks.clear();
        s.op();
        EXPECT_EQ(std::tuple(renders, N(calib), N(model), N(marks)),
                  std::tuple(s.renders, s.calib, s.model, s.marks))
            << s.what;
    }
    // A vetoed add neither repaints nor signals.
    m.OnLandMarkAction = [](TGeoMap&, bool& Allowed, TLandMarkAction, const TLandMark&) { Allowed = false; };
    renders = 0, marks.clear();
    EXPECT_EQ(m.AddLandMark(46, 16, 0), 0);
    EXPECT_EQ(std::pair(renders, N(marks)), std::pair(0, 0));
    EXPECT_EQ(N(map), 0);
}

TEST(GeoMapSignals, MapChangedOncePerSwitchAndTheImagePushedDown)
{
    TempDir t;
    const std::string cal = qvtest::WriteCalibratedMap(t.Dir, "sheet", 47, 15, 48, 17, 400, 300);
    TGeoMap m;
    int renders = 0;
    m.OnBeforeRenderData = [&](TGeoMap&, TCanvas&) { ++renders; };
    QSignalSpy map(&m, &TGeoMap::mapChanged), calib(&m, &TGeoMap::calibrationChanged);
    auto pushed = [&m] {
        std::int32_t w = 0, h = 0;
        m.Calibration().ImageSize(w, h);
        return std::tuple(w, h, m.Calibration().ImageName());
    };

    m.LoadCalDataFromXML(cal, "m");
    EXPECT_EQ(std::tuple(N(map), N(calib), renders), std::tuple(1, 1, 1));
    EXPECT_EQ(pushed(), std::tuple(400, 300, m.MapImgName()));
    EXPECT_EQ(m.MapWidth(), 400);

    map.clear(), calib.clear(), renders = 0;
    EXPECT_FALSE(m.LoadCalDataFromXML(t / "missing.xml", "m"));  // nothing read, nothing announced
    EXPECT_EQ(std::tuple(N(map), N(calib), renders), std::tuple(0, 0, 1));

    map.clear();
    m.SetMapBitMap(TBitmap(120, 90));
    EXPECT_EQ(N(map), 1);
    EXPECT_EQ(pushed(), std::tuple(120, 90, std::string("$unknown$")));

    map.clear();
    m.ResizeMap(0.5);
    EXPECT_EQ(N(map), 1);
    EXPECT_EQ(pushed(), std::tuple(60, 45, std::string("$unknown$")));

    // A switch whose image fails is undone: the map is announced once, as it was again.
    std::ofstream(t / "bad.jpg") << "not a picture";
    const std::string badCal = qvtest::WriteCalibratedMap(t.Dir, "bad", 47, 15, 48, 17, 400, 300, 0, "bad.jpg");
    map.clear();
    EXPECT_THROW(m.LoadCalDataFromXML(badCal, "m"), EXELGeoMapError);
    EXPECT_EQ(N(map), 1);
    EXPECT_EQ(pushed(), std::tuple(60, 45, std::string("$unknown$")));

    map.clear();
    m.SetMapImgName(t / "none.bmp");
    EXPECT_EQ(N(map), 1);
    EXPECT_EQ(pushed(), std::tuple(0, 0, std::string()));

    m.SetMapBitMap(TBitmap(50, 40));
    map.clear(), calib.clear();
    m.Clear();
    EXPECT_EQ(std::tuple(N(map), N(calib), m.MapWidth()), std::tuple(1, 1, 0));
    EXPECT_EQ(pushed(), std::tuple(0, 0, std::string()));
}

// The image that a calibration file names is loaded between the graticule and the model's fit, and its
// size pushed before the fit: the conic search starts from the image's size when the quads lie beyond it.
TEST(GeoMapSignals, TheImageSizeReachesTheFitOfTheCalibrationThatNamesIt)
{
    TempDir t;
    SaveBMP(TBitmap(400, 300), t / "sheet.bmp");
    TCalibData d;
    d.MapFName = "sheet.bmp";
    const TCalQuad quads[] = {{48.0, 16.0, 520, 340}, {48.1, 16.4, 880, 310}, {47.6, 16.1, 610, 720},
                              {47.7, 16.5, 905, 690}, {47.85, 16.25, 700, 500}};
    d.NumCalQuads = static_cast<std::int32_t>(std::size(quads));
    std::copy(std::begin(quads), std::end(quads), d.CalQuads.begin());
    {
        std::ofstream out(t / "sheet.xml");
        WriteRawCalDataToOpenXMLFile(out, true, "c", d, cmConicConformal);
    }
    auto standalone = [&](std::int32_t W, std::int32_t H) {
        TMapCalibration cal;
        cal.SetImageSize(W, H);
        std::ifstream in(t / "sheet.xml");
        cal.ReadCalibrationRecord(in, "c");
        cal.FinishReading();
        return cal.ConicPars();
    };
    ASSERT_NE(standalone(400, 300), standalone(0, 0));  // the size does matter to this fit
    TGeoMap m;
    m.LoadCalDataFromXML(t / "sheet.xml", "c");
    EXPECT_EQ(m.CalibModel(), cmConicConformal);
    EXPECT_EQ(m.Calibration().ConicPars(), standalone(400, 300));
}

TEST(GeoMapSignals, PointerPositionOverTheCalibratedMapOnly)
{
    TGeoMap m;
    QSignalSpy pos(&m, &TGeoMap::mouseGeoPositionChanged);
    auto hover = [&m](int X, int Y) {
        QMouseEvent e(QEvent::MouseMove, QPointF(X, Y), m.mapToGlobal(QPointF(X, Y)), Qt::NoButton, Qt::NoButton, {});
        QApplication::sendEvent(&m, &e);
    };
    m.SetMapBitMap(TBitmap(300, 200));
    hover(100, 80);
    EXPECT_EQ(N(pos), 0);  // an image without a calibration
    Calibrated(m);
    m.SetMagnification(1.0);
    hover(100, 80);
    hover(100, 80);  // the same pixel again
    ASSERT_EQ(N(pos), 1);
    EXPECT_NEAR(pos.at(0).at(0).toDouble(), 49.0, 1e-9);
    EXPECT_NEAR(pos.at(0).at(1).toDouble(), 11.0, 1e-9);
    m.SetTopLeft({900, 700});
    hover(150, 160);  // map pixel (1050, 860): beyond the image
    hover(100, 50);   // map pixel (1000, 750): the first column past the right edge
    hover(40, 100);   // map pixel (940, 800): the first row past the bottom edge
    hover(50, 20);    // map pixel (950, 720)
    ASSERT_EQ(N(pos), 2);
    EXPECT_NEAR(pos.at(1).at(0).toDouble(), 41.0, 1e-9);
    EXPECT_NEAR(pos.at(1).at(1).toDouble(), 19.5, 1e-9);
}

TEST(GeoMapSignals, SelectRectAndErrorBesideTheirEvents)
{
    TempDir t;
    SaveBMP(TBitmap(20, 10), t / "small.bmp");
    TGeoMap m;
    int events = 0;
    m.OnSelectRect = [&](TGeoMap&, std::int32_t, double, double, double, double) { ++events; };
    QSignalSpy rect(&m, &TGeoMap::selectRect), err(&m, &TGeoMap::error);
    m.DoSelectRectEvent(1, 48.5, 16.25, 47.75, 17.0);
    ASSERT_EQ(N(rect), 1);
    EXPECT_EQ(events, 1);
    const QList<QVariant> a = rect.at(0);
    EXPECT_EQ(std::tuple(a.at(0).toInt(), a.at(1).toDouble(), a.at(2).toDouble(), a.at(3).toDouble(), a.at(4).toDouble()),
              std::tuple(1, 48.5, 16.25, 47.75, 17.0));

    std::string reported;
    m.OnError = [&](const std::exception& e) { reported = e.what(); };
    m.OnDataLoading = [](TGeoMap&, TProgressStage Stage, std::int32_t) {
        if (Stage == pgStarting)
            throw std::runtime_error("progress display gone");
    };
    m.SetMapImgName(t / "small.bmp");  // the load goes on; the failure is reported
    EXPECT_EQ(m.MapWidth(), 20);
    ASSERT_EQ(N(err), 1);
    EXPECT_EQ(err.at(0).at(0).toString().toStdString(), "progress display gone");
    EXPECT_EQ(reported, "progress display gone");
}

}  // namespace
