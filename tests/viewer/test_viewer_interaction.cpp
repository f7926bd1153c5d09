// The viewer's map interaction as a user meets it, through keys, mouse and menus of the real window.
#include "guard.h"
#include "interaction_fixture.h"

#include <qvgeo/platform/image_files.h>

#include <QImage>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QProgressDialog>
#include <QStatusBar>
#include <QWheelEvent>

#include <cmath>
#include <stdexcept>

namespace {

using namespace viewer_test;
using viewer::TTool;

class InteractionTest : public TViewerFixture {
protected:
    // Registers a copy of the Vienna scan's calibration that names Image, a file beside it, instead.
    std::int32_t RegisterScanCopy(const std::string& Image)
    {
        std::string xml = ReadText(fs::path(Files.MapDir) / "calib-vienna.xml");
        for (std::size_t at; (at = xml.find("map=\"calib-vienna.bmp\"")) != std::string::npos;)
            xml.replace(at, 22, "map=\"" + Image + "\"");
        std::ofstream(Dir / (Image + ".xml"), std::ios::binary) << xml;
        EXPECT_TRUE(W->Atlas().RegisterMap((Dir / (Image + ".xml")).string()));
        return W->Atlas().NumRegMaps();
    }
};

QString MagText(double Mag) { return QString("x%1").arg(Mag, 0, 'f', 2); }

// Pixels of pure graticule blue (the map's default line colour) in the map's frame.
int BluePixels(const QImage& Img)
{
    int n = 0;
    for (int y = 2; y < Img.height() - 2; ++y)
        for (int x = 2; x < Img.width() - 2; ++x)
            n += (Img.pixel(x, y) & 0xFFFFFF) == 0x0000FFu;
    return n;
}

TEST_F(InteractionTest, DragMovesOnlyTheObjectItStartedOn)
{
    // A double click in the move tool opens the editor, whose dialog swallows the release of the press;
    // Cancel; then a reference point is dragged in the calibration tool. Only the point may move.
    ChooseMap("austria.xml");
    Key(Qt::Key_0, Qt::ControlModifier);
    const std::int32_t k = W->Map().AddLandMark(kGrazLat, kGrazLong, 0);
    const qv::TLandMark lm = W->Map().GetLandMarkData(k);
    W->CalibEditor().show();
    QCoreApplication::processEvents();
    ASSERT_GE(qv::ValidCalQuads(W->Map().CalibData()), 3);
    const qv::TCalibData calBefore = W->Map().CalibData();

    Key(Qt::Key_M);
    ASSERT_EQ(W->Tool(), TTool::MoveLandmark);
    TModalAnswer<viewer::TLandmarkDialog> cancel([](viewer::TLandmarkDialog& D) { D.reject(); });
    QTest::mouseDClick(&W->Map(), Qt::LeftButton, {}, At(kGrazLat, kGrazLong));  // no release follows
    ASSERT_TRUE(WaitFor([&] { return cancel.Opened == 1; }));
    EXPECT_EQ(W->Map().GetLandMarkData(k), lm);
    Reactivate();

    Key(Qt::Key_C);
    ASSERT_EQ(W->Tool(), TTool::CalibPoint);
    const qv::TCalQuad q = W->Map().CalibData().CalQuads[0];
    const qv::TPoint from = W->Map().MapImageToControl({q.MapX, q.MapY});
    const QPoint to(from.X + 25, from.Y + 15);
    QTest::mousePress(&W->Map(), Qt::LeftButton, {}, QPoint(from.X, from.Y));
    QTest::mouseMove(&W->Map(), to);
    QTest::mouseRelease(&W->Map(), Qt::LeftButton, {}, to);
    QCoreApplication::processEvents();
    EXPECT_EQ(W->Map().GetLandMarkData(k), lm) << "the landmark followed a drag it did not start";
    const qv::TCalQuad& moved = W->Map().CalibData().CalQuads[0];
    EXPECT_EQ((qv::TPoint{moved.MapX, moved.MapY}), W->Map().ControlToMapImage({to.x(), to.y()}));
    EXPECT_EQ(qv::ValidCalQuads(W->Map().CalibData()), qv::ValidCalQuads(calBefore));  // moved, none added
}

TEST_F(InteractionTest, StatusBarFollowsEveryViewChange)
{
    ChooseMap("austria.xml");
    QWidget* map = &W->Map();
    const struct {
        const char* what;
        std::function<void()> step;
    } steps[] = {
        {"View menu zoom in", [&] { Key(Qt::Key_Plus, Qt::ControlModifier); }},
        {"View menu zoom out", [&] { Key(Qt::Key_Minus, Qt::ControlModifier); }},
        {"map's own + key", [&] { Key(Qt::Key_Plus); }},
        {"fit", [&] { Key(Qt::Key_0, Qt::ControlModifier); }},
        {"another map", [&] { ChooseMap("vienna-region.xml"); }},
        {"atlas zoom click", [&] {
             Key(Qt::Key_Z);
             QTest::mouseClick(map, Qt::LeftButton, {}, At(kWienLat, kWienLong));
         }},
    };
    for (const auto& s : steps) {
        const double magBefore = W->Map().Magnification();
        const std::string mapBefore = Shown();
        s.step();
        EXPECT_TRUE(W->Map().Magnification() != magBefore || Shown() != mapBefore) << s.what << ": nothing changed";
        EXPECT_EQ(W->MagLabel()->text(), MagText(W->Map().Magnification())) << s.what;
        const QString caption = QString::fromStdString(W->Atlas().GetMapDef(W->Atlas().CurrentMap()).Caption);
        EXPECT_TRUE(W->ScaleLabel()->text().startsWith(caption + ": ")) << s.what << ": " << W->ScaleLabel()->text().toStdString();
        // The scale is ground per screen length at 96 pixels per inch.
        const double res = W->Map().CalibData().Resolution;
        const double scale = W->ScaleLabel()->text().section(":", -1).trimmed().toDouble();
        EXPECT_NEAR(scale, res / W->Map().Magnification() / (0.0254 / 96.0), 1.0) << s.what;
    }
    EXPECT_EQ(Shown(), "calib-vienna.xml");
}

TEST_F(InteractionTest, ZoomKeepsItsPointInPlace)
{
    // The keys and the View menu zoom about the view's centre, the wheel about the pointer.
    ChooseMap("austria.xml");
    ZoomedIntoTheMiddle();
    const QPoint pointer(300, 200);
    const auto wheel = [&](int Delta) {
        QWheelEvent e(QPointF(pointer), QPointF(W->Map().mapToGlobal(pointer)), {}, {0, Delta}, Qt::NoButton,
                      Qt::NoModifier, Qt::NoScrollPhase, false);
        QApplication::sendEvent(&W->Map(), &e);
    };
    const struct {
        const char* what;
        std::function<void()> step;
        double factor;
        bool atPointer;
    } steps[] = {{"Ctrl++", [&] { Key(Qt::Key_Plus, Qt::ControlModifier); }, 1.25, false},
                 {"Ctrl+-", [&] { Key(Qt::Key_Minus, Qt::ControlModifier); }, 1 / 1.25, false},
                 {"wheel up", [&] { wheel(120); }, 1.25, true},
                 {"wheel two notches up", [&] { wheel(240); }, 1.25 * 1.25, true},
                 {"wheel down", [&] { wheel(-120); }, 1 / 1.25, true}};
    for (const auto& s : steps) {
        const QPointF fixed = s.atPointer ? QPointF(pointer) : QPointF(W->Map().width() / 2.0, W->Map().height() / 2.0);
        const auto mapPoint = [&] {
            const double k = W->Map().Magnification();
            return QPointF(W->Map().TopLeft().X + fixed.x() / k, W->Map().TopLeft().Y + fixed.y() / k);
        };
        const double m = W->Map().Magnification();
        const QPointF before = mapPoint();
        s.step();
        EXPECT_NEAR(W->Map().Magnification(), m * s.factor, 1e-9) << s.what;
        // Up to the whole map pixel at the top-left corner.
        EXPECT_NEAR(mapPoint().x(), before.x(), 0.5 + 1e-9) << s.what;
        EXPECT_NEAR(mapPoint().y(), before.y(), 0.5 + 1e-9) << s.what;
        EXPECT_EQ(W->MagLabel()->text(), MagText(W->Map().Magnification())) << s.what;
    }
}

TEST_F(InteractionTest, AnUncalibratedMapSaysSoInsteadOfZeroDegrees)
{
    ChooseMap("austria.xml");
    const QPoint graz = At(kGrazLat, kGrazLong);
    QTest::mouseMove(&W->Map(), graz);
    EXPECT_TRUE(W->PositionLabel()->text().contains(" N")) << W->PositionLabel()->text().toStdString();
    // All reference points removed: the model stays, but it places nothing any more.
    W->CalibEditor().ClearPoints();
    QTest::mouseMove(&W->Map(), graz + QPoint(3, 3));
    EXPECT_EQ(W->PositionLabel()->text(), "no calibration");
    EXPECT_EQ(W->UTMLabel()->text(), "");
    EXPECT_TRUE(W->ScaleLabel()->text().endsWith(": no calibration")) << W->ScaleLabel()->text().toStdString();
}

TEST_F(InteractionTest, TheGridIsOnFromTheFirstFrameAndFollowsTheMap)
{
    // The menu says the grid is on; the first map has its graticule, the UTM map its grid, a dozen lines
    // or fewer across a map.
    ASSERT_EQ(Shown(), "world.xml");
    EXPECT_EQ(W->Map().ShowGraticule(), qv::sgLines);
    EXPECT_EQ(W->Map().GratLineDist(), 30.0);  // 360 degrees of longitude: 12 meridians
    ChooseMap("calib-vienna.xml");
    EXPECT_EQ(W->Map().ShowGraticule(), qv::sgUTMGrid);
    const int on = BluePixels(W->Map().AuxBmp().Image());
    EXPECT_GT(on, 400);
    Key(Qt::Key_G, Qt::ControlModifier);
    EXPECT_EQ(W->Map().ShowGraticule(), qv::sgNone);
    EXPECT_LT(BluePixels(W->Map().AuxBmp().Image()), on / 10);
    ChooseMap("austria.xml");
    EXPECT_EQ(W->Map().ShowGraticule(), qv::sgNone);  // off stays off on the next map
}

TEST_F(InteractionTest, RubberBandMeasuresAndLeavesNoTrace)
{
    ChooseMap("austria.xml");
    Key(Qt::Key_0, Qt::ControlModifier);
    Key(Qt::Key_R);
    ASSERT_EQ(W->Tool(), TTool::RubberBand);
    const QPoint wien = At(kWienLat, kWienLong), graz = At(kGrazLat, kGrazLong);
    const auto km = [&] { return W->MeasureLabel()->text().section(' ', 0, 0).toDouble(); };
    const auto bearing = [&] { return W->MeasureLabel()->text().section("bearing ", 1).section(QChar(0xB0), 0, 0).toDouble(); };

    // Dragged: the measure follows the pointer (Vienna to Graz: 144.6 km at 209.3 degrees on WGS 84, a
    // pixel here is about 0.7 km); the release ends the band and takes its line away.
    QTest::mousePress(&W->Map(), Qt::LeftButton, {}, wien);
    QTest::mouseMove(&W->Map(), (wien + graz) / 2);
    QTest::mouseMove(&W->Map(), graz);
    EXPECT_TRUE(W->Map().RubberBandOn());
    EXPECT_EQ(W->Map().MouseFigures().size(), 1u);
    EXPECT_NEAR(km(), 144.6, 1.5) << W->MeasureLabel()->text().toStdString();
    EXPECT_NEAR(bearing(), 209.3, 0.6);
    QTest::mouseRelease(&W->Map(), Qt::LeftButton, {}, graz);
    EXPECT_FALSE(W->Map().RubberBandOn());
    EXPECT_TRUE(W->Map().MouseFigures().empty());
    EXPECT_NEAR(km(), 144.6, 1.5);  // the last measure stays readable

    // Clicked: the band follows the pointer after the release; a keyboard pan, a map switch and a tool
    // change each end it and take the line away.
    const struct {
        const char* what;
        std::function<void()> change;
    } changes[] = {{"keyboard pan", [&] { Key(Qt::Key_Right); }},
                   {"another map", [&] { ChooseMap("lower-austria.xml"); }},
                   {"another tool", [&] { Key(Qt::Key_P); }}};
    int n = 0;
    for (const auto& c : changes) {
        Key(Qt::Key_R);
        ZoomedIntoTheMiddle();
        // A new end each time: a pointer moved to where it already is makes no move event.
        const QPoint a = W->Map().rect().center(), b = a + QPoint(60, 10 * ++n);
        QTest::mouseClick(&W->Map(), Qt::LeftButton, {}, a);
        QTest::mouseMove(&W->Map(), b);
        ASSERT_TRUE(W->Map().RubberBandOn()) << c.what;
        ASSERT_EQ(W->Map().MouseFigures().size(), 1u) << c.what;
        c.change();
        EXPECT_FALSE(W->Map().RubberBandOn()) << c.what;
        EXPECT_TRUE(W->Map().MouseFigures().empty()) << c.what;
    }
}

TEST_F(InteractionTest, TheViewRefitsOnResizeOnlyWhileAtFit)
{
    ChooseMap("austria.xml");
    const auto fitFor = [&] {
        return std::min(double(W->Map().width()) / W->Map().MapWidth(), double(W->Map().height()) / W->Map().MapHeight());
    };
    Key(Qt::Key_0, Qt::ControlModifier);
    for (const QSize s : {QSize(1200, 800), QSize(800, 900), QSize(1000, 720)}) {
        W->resize(s);
        QCoreApplication::processEvents();
        EXPECT_DOUBLE_EQ(W->Map().Magnification(), fitFor()) << s.width() << "x" << s.height();
        EXPECT_EQ(W->MagLabel()->text(), MagText(W->Map().Magnification()));  // no zoom event: the frame tells
    }
    Key(Qt::Key_Plus, Qt::ControlModifier);
    const double m = W->Map().Magnification();
    W->resize(1200, 800);
    QCoreApplication::processEvents();
    EXPECT_DOUBLE_EQ(W->Map().Magnification(), m);
}

TEST_F(InteractionTest, ArrowKeysPanWithoutAClickOnTheMap)
{
    ChooseMap("austria.xml");  // the list had the focus meanwhile
    Key(Qt::Key_Plus, Qt::ControlModifier);
    Key(Qt::Key_Plus, Qt::ControlModifier);
    const qv::TPoint before = W->Map().TopLeft();
    Key(Qt::Key_Right);
    Key(Qt::Key_Down);
    EXPECT_GT(W->Map().TopLeft().X, before.X);
    EXPECT_GT(W->Map().TopLeft().Y, before.Y);
    EXPECT_EQ(Shown(), "austria.xml");  // the keys did not walk the list of maps
}

TEST_F(InteractionTest, F2EditsOnlyTheLandmarkUnderThePointer)
{
    ChooseMap("austria.xml");
    Key(Qt::Key_0, Qt::ControlModifier);
    W->Map().AddLandMark(kGrazLat, kGrazLong, 0);
    const QPoint graz = At(kGrazLat, kGrazLong);
    // The edge of the tolerance, 10 pixels, in both directions; beyond it nothing is edited, however near
    // the landmark is on the ground.
    const struct {
        QPoint offset;
        int opened;
    } cases[] = {{{0, 0}, 1}, {{6, -7}, 1}, {{10, 0}, 1}, {{11, 0}, 0}, {{0, -13}, 0}, {{200, 200}, 0}};
    for (const auto& c : cases) {
        QTest::mouseMove(&W->Map(), graz + c.offset);
        TModalAnswer<viewer::TLandmarkDialog> cancel([](viewer::TLandmarkDialog& D) { D.reject(); });
        Key(Qt::Key_F2);
        EXPECT_EQ(cancel.Opened, c.opened) << c.offset.x() << ", " << c.offset.y();
        Reactivate();
    }
}

TEST_F(InteractionTest, EveryLandmarkClassCanBeHidden)
{
    ChooseMap("austria.xml");
    Key(Qt::Key_0, Qt::ControlModifier);
    QMenu* menu = W->menuBar()->findChild<QMenu*>();
    for (QMenu* m : W->menuBar()->findChildren<QMenu*>())
        menu = m->title() == "Show &classes" ? m : menu;
    // Classes 0 to 9 by their keys, any other through the menu, which lists the classes in use.
    for (const std::uint8_t cls : {std::uint8_t(4), std::uint8_t(200)}) {
        W->Map().AddLandMark(kGrazLat, kGrazLong, 0, qv::lmSquare, cls, "c", 0, 0, 0x00FF00, 0x00FF00, 9, false, 0, 10);
        W->Map().Paint();
        const QPoint p = At(kGrazLat, kGrazLong);
        ASSERT_EQ(W->Map().AuxBmp().Image().pixel(p) & 0xFFFFFF, 0x00FF00u) << int(cls);
        if (cls < 10) {
            Key(Qt::Key_0 + cls, Qt::ControlModifier | Qt::AltModifier);
        } else {
            emit menu->aboutToShow();
            for (QAction* a : menu->actions())
                if (a->data().toInt() == cls && a->text().startsWith("Class 200 (1)"))
                    a->trigger();
        }
        EXPECT_FALSE(W->Map().GetClassVisibility(cls)) << int(cls);
        EXPECT_NE(W->Map().AuxBmp().Image().pixel(p) & 0xFFFFFF, 0x00FF00u) << int(cls);
        EXPECT_EQ(W->LandmarkAt(p.x(), p.y()), 0) << int(cls);  // a hidden landmark is not hit either
        W->Map().RemoveLastLandMark();
    }
}

TEST_F(InteractionTest, FailuresInHandlersAreReportedNotThrownIntoQt)
{
    ChooseMap("austria.xml");
    Key(Qt::Key_0, Qt::ControlModifier);
    const auto listFails = [&](std::int32_t N) {
        const auto shown = std::pair(W->Atlas().CurrentMap(), W->Map().MapImgName());
        PickInList(N);
        EXPECT_EQ(std::pair(W->Atlas().CurrentMap(), W->Map().MapImgName()), shown);
        EXPECT_TRUE(W->findChildren<QProgressDialog*>().isEmpty());
    };
    const struct {
        const char* what;
        std::function<void()> provoke;
        const char* message;
    } cases[] = {
        // The place question runs from a timer after the press.
        {"place question", [&] {
             W->AskPlace = [](std::int32_t, std::int32_t, double&, double&) -> bool { throw std::runtime_error("no place service"); };
             Key(Qt::Key_C);
             QTest::mouseClick(&W->Map(), Qt::LeftButton, {}, QPoint(200, 200));
             QCoreApplication::processEvents();
         }, "no place service"},
        {"menu action", [&] {
             W->Map().AddLandMark(kGrazLat, kGrazLong, 0, qv::lmCross, 2, "p", 0, 0, 0, 0, 7, false, 0, 10);
             W->Map().OnLandMarkAction = [](qv::TGeoMap&, bool&, qv::TLandMarkAction, const qv::TLandMark&) {
                 throw std::runtime_error("landmark service down");
             };
             Key(Qt::Key_Delete, Qt::ControlModifier | Qt::ShiftModifier);
             W->Map().OnLandMarkAction = {};
         }, "landmark service down"},
        // Maps in the list whose image cannot be shown: the map shown stays, the loading dialog goes.
        {"map list, image too large", [&] {
             qv::SaveBMP(qv::TBitmap(2001, 1500), (Dir / "big.bmp").string());
             listFails(RegisterScanCopy("big.bmp"));
         }, "maximum of 3000000 pixels exceeded (size of map is 2001 x 1500)"},
        {"map list, not a picture", [&] {
             std::ofstream(Dir / "broken.jpg") << "a note saved under the wrong name\n";
             listFails(RegisterScanCopy("broken.jpg"));
         }, "broken.jpg\": not a JPEG file"},
    };
    for (const auto& c : cases) {
        W->statusBar()->clearMessage();
        c.provoke();
        EXPECT_NE(W->LastError().indexOf(c.message), -1) << c.what << ": " << W->LastError().toStdString();
        EXPECT_NE(W->statusBar()->currentMessage().indexOf(c.message), -1) << c.what;
    }
}

TEST_F(InteractionTest, ACorruptDatabaseCostsItsDrawingNotTheViewer)
{
    // The data file cut short: the polygons' points lie beyond its end, which the database reports by an
    // exception in the middle of a frame (the atlas's paint after a map switch comes from a destructor).
    const fs::path bad = Dir / "baddb";
    fs::create_directories(bad);
    const fs::path db(Files.DBName);
    for (const auto& e : fs::directory_iterator(db.parent_path()))
        fs::copy_file(e.path(), bad / e.path().filename(), fs::copy_options::overwrite_existing);
    fs::resize_file(bad / (db.filename().string() + ".xelgdd"), 40);
    viewer::TAtlasFiles files = Files;
    files.DBName = (bad / db.filename()).string();
    NewWindow(files);
    ChooseMap("austria.xml");
    EXPECT_NE(W->LastError().indexOf("RetrievePolygon"), -1) << W->LastError().toStdString();
    // The items that can be read are drawn: every one of the 18 is met, the broken ones drawn as nothing.
    EXPECT_EQ(W->DatabaseItemsDrawn(), 18);
}

TEST(GuardTest, EscapedExceptionsAreReportedAndTheEventCountsAsUnhandled)
{
    const struct {
        std::function<bool()> deliver;
        bool handled;
        const char* report;
    } cases[] = {{[] { return true; }, true, ""},
                 {[] { return false; }, false, ""},
                 {[]() -> bool { throw std::runtime_error("broken handler"); }, false, "broken handler"},
                 {[]() -> bool { throw 42; }, false, "unknown error"}};
    for (const auto& c : cases) {
        QString reported;
        EXPECT_EQ(viewer::DeliverGuarded(c.deliver, [&](const QString& M) { reported = M; }), c.handled);
        EXPECT_EQ(reported, QString(c.report));
    }
    // A report that fails itself does not let the exception through either.
    EXPECT_FALSE(viewer::RunGuarded([] { throw std::runtime_error("a"); }, [](const QString&) { throw std::runtime_error("b"); }));
}

}  // namespace
