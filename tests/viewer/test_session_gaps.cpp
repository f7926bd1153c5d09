// Sessions over the real viewer window that a user's hands found wrong: a double click in the delete tool,
// a map switch over unsaved calibration changes, the caption of an image opened to calibrate; and the
// widgets' own Qt handlers, which must report what the application's handlers throw instead of letting
// it reach Qt's event loop.
#include "interaction_fixture.h"

#include <qvgeo/geomap/calibration_file.h>

#include <QAction>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QToolButton>

#include <cmath>
#include <functional>
#include <stdexcept>
#include <vector>

namespace {

using namespace viewer_test;
using viewer::TTool;

class GapSession : public TViewerFixture {
protected:
    std::int32_t LandmarkNumber(const std::string& Id)
    {
        for (std::int32_t i = 1; i <= W->Map().NumLandMarks(); ++i)
            if (W->Map().GetLandMarkData(i).Identifier == Id)
                return i;
        return 0;
    }
    std::vector<std::string> Identifiers()
    {
        std::vector<std::string> ids;
        for (std::int32_t i = 1; i <= W->Map().NumLandMarks(); ++i)
            ids.push_back(W->Map().GetLandMarkData(i).Identifier);
        return ids;
    }
    // An unsaved change to the calibration of the Austria map: one more reference point.
    void EditAustriaCalibration()
    {
        ChooseMap("austria.xml");
        const std::int32_t before = qv::ValidCalQuads(W->Map().CalibData());
        // A click in the calibration tool, answered with a place 1 km from where the map puts the pixel.
        W->AskPlace = [](std::int32_t, std::int32_t, double& Lat, double& Long) {
            Lat = kGrazLat + 0.009;
            Long = kGrazLong;
            return true;
        };
        W->SetTool(TTool::CalibPoint);
        QTest::mouseClick(&W->Map(), Qt::LeftButton, {}, At(kGrazLat, kGrazLong));
        ASSERT_TRUE(WaitFor([&] { return qv::ValidCalQuads(W->Map().CalibData()) == before + 1; }));
        W->SetTool(TTool::AtlasZoom);
        ASSERT_TRUE(W->CalibrationModified());
    }
};

// The delete tool: a click deletes the landmark under it; a double click edits it as in the move tool and
// never loses it, whatever the editor's answer; the list keeps its order.
TEST_F(GapSession, DeleteToolDoubleClickEditsAndKeepsTheLandmark)
{
    struct TCase {
        const char* Name;
        bool Double;
        bool Accept;  // the editor's answer (double click only)
    };
    for (const TCase& c : {TCase{"double click, Cancel", true, false}, TCase{"double click, OK", true, true},
                           TCase{"single click", false, false}}) {
        SCOPED_TRACE(c.Name);
        NewWindow();
        ChooseMap("calib-vienna.xml");
        const std::vector<std::string> ids = Identifiers();
        const std::int32_t k = LandmarkNumber("SCHOENBRUNN");
        ASSERT_GT(k, 0);
        ASSERT_LT(k, W->Map().NumLandMarks());  // not the last: its number must survive a put-back
        const qv::TLandMark before = W->Map().GetLandMarkData(k);
        const QPoint at = At(before.Latitude, before.Longitude) + QPoint(2, 1);
        Key(Qt::Key_X);
        ASSERT_EQ(W->Tool(), TTool::DeleteLandmark);
        if (!c.Double) {
            QTest::mouseClick(&W->Map(), Qt::LeftButton, {}, at);
            EXPECT_EQ(Identifiers().size(), ids.size() - 1);
            EXPECT_EQ(LandmarkNumber("SCHOENBRUNN"), 0);
            EXPECT_TRUE(W->LandmarksModified());
            continue;
        }
        TModalAnswer<viewer::TLandmarkDialog> edit([&](viewer::TLandmarkDialog& D) {
            D.CaptionEdit()->setText("Palace");
            if (c.Accept)
                D.accept();
            else
                D.reject();
        });
        // What a widget gets of a double click: press, release, the second press as a double click, release.
        QTest::mouseClick(&W->Map(), Qt::LeftButton, {}, at);
        QTest::mouseDClick(&W->Map(), Qt::LeftButton, {}, at);
        ASSERT_TRUE(WaitFor([&] { return edit.Opened == 1; }));
        QTest::mouseRelease(&W->Map(), Qt::LeftButton, {}, at);
        Reactivate();
        EXPECT_EQ(Identifiers(), ids);
        const qv::TLandMark after = W->Map().GetLandMarkData(k);
        EXPECT_EQ(after.Latitude, before.Latitude);
        EXPECT_EQ(after.Longitude, before.Longitude);
        EXPECT_EQ(after.Caption.Text, c.Accept ? "Palace" : before.Caption.Text);
        EXPECT_EQ(W->LandmarksModified(), c.Accept);
    }
}

// A switch away from a map with unsaved calibration changes asks first, by the list and by an atlas zoom
// click: Cancel keeps the map and the change, Discard switches, Save writes the change and switches. No
// question without a change.
TEST_F(GapSession, SwitchingMapsAsksAboutUnsavedCalibration)
{
    struct TCase {
        const char* Name;
        QMessageBox::StandardButton Answer;  // NoButton: nothing changed, no question expected
        bool ByList;                         // else a right click of the atlas zoom (to the world map)
    };
    const TCase cases[] = {
        {"list, Cancel", QMessageBox::Cancel, true},    {"list, Discard", QMessageBox::Discard, true},
        {"list, Save", QMessageBox::Save, true},        {"zoom, Cancel", QMessageBox::Cancel, false},
        {"zoom, Discard", QMessageBox::Discard, false}, {"zoom, Save", QMessageBox::Save, false},
        {"list, unchanged", QMessageBox::NoButton, true}, {"zoom, unchanged", QMessageBox::NoButton, false},
    };
    int saves = 0;
    for (const TCase& c : cases) {
        SCOPED_TRACE(c.Name);
        NewWindow();
        if (c.Answer != QMessageBox::NoButton)
            EditAustriaCalibration();
        else
            ChooseMap("austria.xml");
        const std::int32_t austria = W->Atlas().CurrentMap();
        const std::int32_t points = qv::ValidCalQuads(W->Map().CalibData());
        const fs::path saved = Dir / ("switch-" + std::to_string(++saves) + ".xml");
        int asked = 0;
        W->AskSaveFile = [&](const QString&, const QString&, const QString&) {
            ++asked;
            return QString::fromStdString(saved.string());
        };
        TModalAnswer<QMessageBox> answer([&](QMessageBox& B) { B.button(c.Answer)->click(); });
        if (c.ByList) {
            PickInList(W->MapNumber("world.xml"));
        } else {
            W->SetTool(TTool::AtlasZoom);
            W->Atlas().ZoomButton()->click();
            const QPoint mid(W->Map().width() / 2, W->Map().height() / 2);
            QTest::mouseClick(&W->Map(), Qt::RightButton, {}, mid);
        }
        QCoreApplication::processEvents();
        EXPECT_EQ(answer.Opened, c.Answer == QMessageBox::NoButton ? 0 : 1);
        const bool stays = c.Answer == QMessageBox::Cancel;
        EXPECT_EQ(Shown() == "austria.xml", stays) << Shown();
        if (stays) {
            EXPECT_EQ(W->Atlas().CurrentMap(), austria);
            EXPECT_EQ(W->Atlas().MapSelector()->currentIndex(), austria - 1);
            EXPECT_EQ(qv::ValidCalQuads(W->Map().CalibData()), points);  // the change is still there
            EXPECT_TRUE(W->CalibrationModified());
            EXPECT_EQ(W->focusWidget(), &W->Map());  // the arrow keys pan, not walk the list again
        }
        EXPECT_EQ(asked, c.Answer == QMessageBox::Save ? 1 : 0);
        EXPECT_EQ(fs::exists(saved), c.Answer == QMessageBox::Save);
        if (c.Answer == QMessageBox::Save) {
            qv::TCalibData cal;
            qv::TCalibModel model = qv::cmUndefined;
            ASSERT_TRUE(qv::ParseCalibData(saved.string(), "", cal, model));
            EXPECT_EQ(qv::ValidCalQuads(cal), points);
        }
        EXPECT_TRUE(W->LastError().isEmpty()) << W->LastError().toStdString();
    }
}

// The image opened to calibrate is what the status bar names, not the atlas map shown before it, and the
// pointer's place is no longer the old map's.
TEST_F(GapSession, OpenedImageIsNamedInTheStatusBar)
{
    ChooseMap("austria.xml");
    const QPoint graz = At(kGrazLat, kGrazLong);
    QTest::mouseMove(&W->Map(), graz);
    ASSERT_EQ(W->PositionLabel()->text(), W->PositionText(graz.x(), graz.y()));
    ASSERT_TRUE(W->PositionLabel()->text().contains('N'));
    const fs::path image = Dir / "fresh-scan.bmp";
    fs::copy_file(Dir / "data" / "maps" / "calib-vienna.bmp", image, fs::copy_options::overwrite_existing);
    QString error;
    ASSERT_TRUE(W->OpenImage(QString::fromStdString(image.string()), error)) << error.toStdString();
    QCoreApplication::processEvents();
    const QString text = W->ScaleLabel()->text();
    EXPECT_TRUE(text.startsWith("fresh-scan")) << text.toStdString();
    EXPECT_FALSE(text.contains(QString::fromStdString(W->Atlas().GetMapDef(W->MapNumber("austria.xml")).Caption)))
        << text.toStdString();
    EXPECT_EQ(W->PositionLabel()->text(), "no calibration");
    EXPECT_EQ(W->UTMLabel()->text(), W->UTMText(graz.x(), graz.y()));
}

// An image just opened holds nothing of the user's: switching away asks nothing. Once calibrated, closing
// offers to save its calibration beside the image, not over the atlas map shown before it.
TEST_F(GapSession, OpenedImageIsNotTheAtlasMapBeforeIt)
{
    struct TCase {
        const char* Name;
        bool Calibrate;
    };
    for (const TCase& c : {TCase{"untouched", false}, TCase{"calibrated", true}}) {
        SCOPED_TRACE(c.Name);
        NewWindow();
        ChooseMap("world.xml");
        const fs::path image = Dir / "scan.bmp";
        fs::copy_file(Dir / "data" / "maps" / "calib-vienna.bmp", image, fs::copy_options::overwrite_existing);
        QString error;
        ASSERT_TRUE(W->OpenImage(QString::fromStdString(image.string()), error)) << error.toStdString();
        QCoreApplication::processEvents();
        EXPECT_FALSE(W->CalibrationModified());
        if (!c.Calibrate) {
            TModalAnswer<QMessageBox> none([](QMessageBox& B) { B.reject(); });
            PickInList(W->MapNumber("austria.xml"));
            EXPECT_EQ(none.Opened, 0);
            EXPECT_EQ(Shown(), "austria.xml");
            continue;
        }
        // Three corners of the image placed at three corners of a small square in Vienna.
        const qv::TPoint corners[] = {{0, 0}, {W->Map().MapWidth() - 1, 0}, {0, W->Map().MapHeight() - 1}};
        for (const qv::TPoint p : corners) {
            W->AskPlace = [p](std::int32_t, std::int32_t, double& Lat, double& Long) {
                Lat = 48.25 - (p.Y > 0 ? 0.05 : 0.0);
                Long = 16.30 + (p.X > 0 ? 0.1 : 0.0);
                return true;
            };
            W->SetTool(TTool::CalibPoint);
            const qv::TPoint at = W->Map().MapImageToControl(p);
            QTest::mouseClick(&W->Map(), Qt::LeftButton, {}, QPoint(at.X, at.Y));
            QCoreApplication::processEvents();
        }
        ASSERT_EQ(qv::ValidCalQuads(W->Map().CalibData()), 3);
        EXPECT_TRUE(W->HasCalibration());
        EXPECT_FALSE(W->ScaleLabel()->text().contains("World")) << W->ScaleLabel()->text().toStdString();
        QString suggested;
        W->AskSaveFile = [&](const QString&, const QString& Suggested, const QString&) {
            suggested = Suggested;
            return QString();  // cancelled: the window stays
        };
        TModalAnswer<QMessageBox> save([](QMessageBox& B) { B.button(QMessageBox::Save)->click(); });
        EXPECT_FALSE(W->close());
        EXPECT_EQ(save.Opened, 1);
        EXPECT_EQ(suggested.toStdString(), (Dir / "scan.xml").string());
    }
}

// Far below the world map, shrunk to a stamp, the calibration extrapolates past the south pole: the status
// bar names no place there, and a landmark dragged there stays on the globe.
TEST_F(GapSession, NoPlaceBeyondThePoles)
{
    ChooseMap("world.xml");
    qv::TGeoMap& m = W->Map();
    m.ZoomFitPage();
    m.SetMagnification(m.Magnification() / 20);
    m.SetTopLeft({0, 0});
    m.Paint();
    QCoreApplication::processEvents();
    const QPoint south(m.MapImageToControl({m.MapWidth() / 2, m.MapHeight()}).X, m.height() - 5);
    ASSERT_GT(south.y(), m.MapImageToControl({0, m.MapHeight()}).Y + 100);  // well below the map
    EXPECT_EQ(W->PositionText(south.x(), south.y()).toStdString(), "-");
    EXPECT_EQ(W->UTMText(south.x(), south.y()).toStdString(), "-");

    const std::int32_t k = m.AddLandMark(0.0, 0.0, 0.0);
    ASSERT_GT(k, 0);
    const QPoint from = At(0.0, 0.0);
    W->SetTool(TTool::MoveLandmark);
    QTest::mousePress(&m, Qt::LeftButton, {}, from);
    QTest::mouseMove(&m, (from + south) / 2);
    QTest::mouseMove(&m, south);
    QTest::mouseRelease(&m, Qt::LeftButton, {}, south);
    const qv::TLandMark l = m.GetLandMarkData(k);
    EXPECT_GE(l.Latitude, -90.0);
    EXPECT_LE(l.Latitude, 90.0);
    EXPECT_LE(std::fabs(l.Longitude), 180.0);
}

// Opening a landmark file over unsaved landmark changes asks first; Cancel keeps them and opens nothing.
TEST_F(GapSession, OpeningLandmarksAsksAboutUnsavedOnes)
{
    ChooseMap("calib-vienna.xml");
    const qv::TLandMark s = W->Map().GetLandMarkData(LandmarkNumber("SCHOENBRUNN"));
    Key(Qt::Key_X);
    QTest::mouseClick(&W->Map(), Qt::LeftButton, {}, At(s.Latitude, s.Longitude));
    ASSERT_EQ(LandmarkNumber("SCHOENBRUNN"), 0);
    const std::vector<std::string> changed = Identifiers();
    QAction* open = nullptr;
    for (QAction* a : W->findChildren<QAction*>())
        if (a->text() == "&Open landmarks...")
            open = a;
    ASSERT_NE(open, nullptr);
    TModalAnswer<QMessageBox> cancel([](QMessageBox& B) { B.button(QMessageBox::Cancel)->click(); });
    TModalAnswer<QFileDialog> noFile([](QFileDialog& D) { D.reject(); });
    open->trigger();
    QCoreApplication::processEvents();
    EXPECT_EQ(cancel.Opened, 1);
    EXPECT_EQ(noFile.Opened, 0);
    EXPECT_EQ(Identifiers(), changed);
    EXPECT_TRUE(W->LandmarksModified());
}

// Exports and print render the map at their own scale: the status bar keeps describing the view and the
// place under the pointer.
TEST_F(GapSession, OutputsLeaveTheStatusBarToTheView)
{
    struct TCase {
        const char* Name;
        std::function<bool(viewer::TViewerWindow&, const QString&)> Output;
        const char* File;
    };
    const TCase cases[] = {
        {"whole map", [](viewer::TViewerWindow& V, const QString& F) { return V.ExportWholeMap(F); }, "whole.png"},
        {"print", [](viewer::TViewerWindow& V, const QString& F) { return V.PrintToPdf(F); }, "page.pdf"},
    };
    for (const TCase& c : cases) {
        SCOPED_TRACE(c.Name);
        NewWindow();
        ChooseMap("calib-vienna.xml");
        ZoomedIntoTheMiddle();
        QCoreApplication::processEvents();
        const QPoint pointer(W->Map().width() / 3, W->Map().height() / 3);
        QTest::mouseMove(&W->Map(), pointer + QPoint(5, 5));  // a move even where the cursor was left
        QTest::mouseMove(&W->Map(), pointer);
        const std::string mag = W->MagLabel()->text().toStdString(), scale = W->ScaleLabel()->text().toStdString();
        const std::string place = W->PositionLabel()->text().toStdString();
        ASSERT_EQ(place, W->PositionText(pointer.x(), pointer.y()).toStdString());
        ASSERT_EQ(mag, QString("x%1").arg(W->Map().Magnification(), 0, 'f', 2).toStdString());
        ASSERT_TRUE(c.Output(*W, QString::fromStdString((Dir / c.File).string())));
        QCoreApplication::processEvents();
        EXPECT_EQ(W->MagLabel()->text().toStdString(), mag);
        EXPECT_EQ(W->ScaleLabel()->text().toStdString(), scale);
        EXPECT_EQ(W->PositionLabel()->text().toStdString(), place);
    }
}

// ---- the widgets' own handlers ----

class WidgetGuards : public TViewerFixture {
protected:
    void SetUp() override
    {
        TViewerFixture::SetUp();
        W.reset();  // the atlas alone, without the viewer around it
        Atlas = std::make_unique<qv::TGeoAtlas>();
        Atlas->resize(800, 600);
        ASSERT_TRUE(Atlas->RegisterFolder(Files.MapDir).empty());
        Atlas->OnError = [this](const std::exception& E) { Errors.push_back(E.what()); };
        Atlas->MapView().OnError = Atlas->OnError;
        Atlas->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(Atlas.get()));
    }
    void TearDown() override
    {
        Atlas.reset();
        TViewerFixture::TearDown();
    }
    std::int32_t Number(const std::string& Leaf) const
    {
        for (std::int32_t i = 1; i <= Atlas->NumRegMaps(); ++i)
            if (fs::path(Atlas->GetMapDef(i).MapFName).filename() == Leaf)
                return i;
        return 0;
    }
    std::unique_ptr<qv::TGeoAtlas> Atlas;
    std::vector<std::string> Errors;
};

// The list's choice: the map is shown, the handler's failure reported.
TEST_F(WidgetGuards, FailingListHandlerIsReported)
{
    const std::int32_t world = Number("world.xml"), austria = Number("austria.xml");
    ASSERT_GT(world, 0);
    ASSERT_GT(austria, 0);
    ASSERT_TRUE(Atlas->SelectMap(world));
    Atlas->OnCBoxMapsChange = [](qv::TGeoAtlas&) { throw std::runtime_error("list handler failed"); };
    QComboBox* box = Atlas->MapSelector();
    box->setFocus();
    box->setCurrentIndex(austria - 2);
    QTest::keyClick(box, Qt::Key_Down);
    EXPECT_EQ(Atlas->CurrentMap(), austria);
    ASSERT_EQ(Errors, std::vector<std::string>{"list handler failed"});
    Atlas->OnCBoxMapsChange = {};
}

// The paint that ends a switch runs the render handlers in a destructor.
TEST_F(WidgetGuards, FailingRenderHandlerAtTheEndOfASwitchIsReported)
{
    const std::int32_t world = Number("world.xml");
    ASSERT_GT(world, 0);
    Atlas->MapView().OnBeforeRenderData = [](qv::TGeoMap&, qv::TCanvas&) { throw std::runtime_error("overlay failed"); };
    EXPECT_TRUE(Atlas->SelectMap(world));
    EXPECT_EQ(Atlas->CurrentMap(), world);
    ASSERT_FALSE(Errors.empty());
    EXPECT_EQ(Errors.front(), "overlay failed");
    Atlas->MapView().OnBeforeRenderData = {};
}

// A progress handler that throws at every stage: each failure reported, the load carried through to its
// end stage and the map shown.
TEST_F(WidgetGuards, FailingLoadingHandlerLetsTheLoadEnd)
{
    std::vector<qv::TProgressStage> stages;
    Atlas->MapView().OnDataLoading = [&](qv::TGeoMap&, qv::TProgressStage S, std::int32_t) {
        stages.push_back(S);
        throw std::runtime_error("progress failed");
    };
    const std::int32_t world = Number("world.xml");
    const qv::TGeoMap& map = Atlas->MapView();
    EXPECT_TRUE(Atlas->SelectMap(world));
    EXPECT_EQ(Atlas->CurrentMap(), world);
    EXPECT_EQ(fs::path(map.MapImgName()).filename(), "world.jpg");
    EXPECT_GT(map.MapWidth(), 0);
    ASSERT_GE(stages.size(), 2u);
    EXPECT_EQ(stages.front(), qv::pgStarting);
    EXPECT_EQ(stages.back(), qv::pgEnding);
    EXPECT_EQ(Errors.size(), stages.size());
}

}  // namespace
