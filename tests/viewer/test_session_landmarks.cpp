// Landmark sessions over the real window, saved by the question on closing and read back whole.
#include "interaction_fixture.h"

#include <qvgeo/geomap/landmark_store.h>
#include <qvgeo/support/date_time.h>

#include <QDateTime>
#include <QMessageBox>

namespace {

using namespace viewer_test;
using viewer::TTool;

class SessionTest : public TViewerFixture {
protected:
    // A copy of the sample landmarks, opened in the window: what Quit saves to.
    fs::path OpenLandmarkCopy(const std::string& Name)
    {
        const fs::path f = Dir / Name;
        fs::copy_file(Files.LandmarkFile, f, fs::copy_options::overwrite_existing);
        EXPECT_TRUE(W->LoadLandmarkFile(QString::fromStdString(f.string())));
        return f;
    }
    static std::map<std::string, qv::TLandMark> ReadBack(const fs::path& File)
    {
        qv::TLandMarkStore store;
        EXPECT_TRUE(store.LoadLandMarks(File.string(), "sights")) << File;
        std::map<std::string, qv::TLandMark> byId;
        for (const qv::TLandMark& l : store.LandMarks())
            EXPECT_TRUE(byId.emplace(l.Identifier, l).second) << "identifier twice: " << l.Identifier;
        return byId;
    }
    // The place of a control pixel as the map's calibration gives it.
    qv::TCoords PlaceOf(QPoint P)
    {
        qv::TCoords c;
        EXPECT_TRUE(W->Map().Calibration().CalcPosition(W->Map().ControlToMapImage({P.x(), P.y()}), c));
        return c;
    }
    static double Now()
    {
        const QDateTime n = QDateTime::currentDateTime();
        double t = 0;
        qv::TryEncodeDateTime(n.date().year(), n.date().month(), n.date().day(), n.time().hour(), n.time().minute(),
                              n.time().second(), t);
        return t;
    }
};

TEST_F(SessionTest, LandmarksPlacedMovedEditedDeletedAndSavedOnQuit)
{
    const fs::path file = OpenLandmarkCopy("session.xml");
    std::map<std::string, qv::TLandMark> expected = ReadBack(file);
    ASSERT_EQ(expected.size(), 8u);
    ChooseMap("austria.xml");
    Key(Qt::Key_0, Qt::ControlModifier);
    const qv::TLandMark placedTemplate = W->Map().DefaultLandMark();

    // Two placed: at Graz and at Linz, each stamped with the time and a new identifier.
    Key(Qt::Key_L);
    ASSERT_EQ(W->Tool(), TTool::PlaceLandmark);
    const double t0 = Now();
    const QPoint graz = At(kGrazLat, kGrazLong), linz = At(48.3069, 14.2858);
    for (const QPoint p : {graz, linz})
        QTest::mouseClick(&W->Map(), Qt::LeftButton, {}, p);
    const double t1 = Now();
    const std::int32_t n = W->Map().NumLandMarks();
    ASSERT_EQ(n, 10);
    std::string ids[2];
    for (int i = 0; i < 2; ++i) {
        const qv::TLandMark got = W->Map().GetLandMarkData(n - 1 + i);
        ids[i] = got.Identifier;
        EXPECT_FALSE(ids[i].empty());
        EXPECT_LE(ids[i].size(), qv::LMIdentifierCapacity);
        EXPECT_EQ(expected.count(ids[i]), 0u) << ids[i];
        EXPECT_GE(got.Time, t0);  // not 0, the day 1899-12-30
        EXPECT_LE(got.Time, t1);
        qv::TLandMark e = placedTemplate;
        const qv::TCoords c = PlaceOf(i == 0 ? graz : linz);
        e.Latitude = c.Latit;
        e.Longitude = c.Longit;
        e.Caption.Text = "Mark " + std::to_string(i + 1);
        e.Identifier = got.Identifier;
        e.Time = got.Time;
        expected[ids[i]] = e;
    }
    EXPECT_NE(ids[0], ids[1]);

    Key(Qt::Key_M);
    const QPoint to = graz + QPoint(40, 25);
    QTest::mousePress(&W->Map(), Qt::LeftButton, {}, graz + QPoint(2, -1));
    QTest::mouseMove(&W->Map(), graz + QPoint(20, 10));
    QTest::mouseMove(&W->Map(), to);
    QTest::mouseRelease(&W->Map(), Qt::LeftButton, {}, to);
    const qv::TCoords moved = PlaceOf(to);
    expected[ids[0]].Latitude = moved.Latit;
    expected[ids[0]].Longitude = moved.Longit;

    // The Linz one edited with a double click: symbol 3 of the catalogue, caption, class.
    TModalAnswer<viewer::TLandmarkDialog> edit([](viewer::TLandmarkDialog& D) {
        D.SymbolBox()->setCurrentIndex(3);
        D.CaptionEdit()->setText("Linz");
        D.ClassBox()->setValue(5);
        D.accept();
    });
    QTest::mouseDClick(&W->Map(), Qt::LeftButton, {}, linz);
    ASSERT_TRUE(WaitFor([&] { return edit.Opened == 1; }));
    QTest::mouseRelease(&W->Map(), Qt::LeftButton, {}, linz);  // the release the dialog kept from the map
    Reactivate();
    expected[ids[1]].SymbolProps = W->Symbols().GetValues(3).Properties;
    expected[ids[1]].Caption.Text = "Linz";
    expected[ids[1]].ClassFlag = 5;

    ChooseMap("calib-vienna.xml");
    Key(Qt::Key_X);
    const qv::TLandMark schoenbrunn = expected.at("SCHOENBRUNN");
    QTest::mouseClick(&W->Map(), Qt::LeftButton, {}, At(schoenbrunn.Latitude, schoenbrunn.Longitude) + QPoint(3, 2));
    expected.erase("SCHOENBRUNN");

    // Quit, and Save: the landmarks go back to the file they came from.
    EXPECT_TRUE(W->LandmarksModified());
    EXPECT_FALSE(W->CalibrationModified());
    TModalAnswer<QMessageBox> save([](QMessageBox& B) { B.button(QMessageBox::Save)->click(); });
    EXPECT_TRUE(W->close());
    EXPECT_EQ(save.Opened, 1);
    const std::map<std::string, qv::TLandMark> saved = ReadBack(file);
    ASSERT_EQ(saved.size(), expected.size());
    for (const auto& [id, e] : expected) {
        ASSERT_EQ(saved.count(id), 1u) << id;
        EXPECT_EQ(saved.at(id), e) << id;  // every field: untouched samples as they were
    }
}

TEST_F(SessionTest, QuitAsksOnlyAboutUnsavedChanges)
{
    enum TChange { chNone, chLandmark, chLandmarkUndone, chLandmarkSaved, chCalibration, chCalibrationSaved };
    enum TAnswer { anNone, anCancel, anDiscard, anSave, anSaveNoFile };
    const struct {
        TChange change;
        TAnswer answer;
        bool asked, closed, landmarksWritten, calibrationWritten;
    } cases[] = {
        {chNone, anNone, false, true, false, false},
        {chLandmarkUndone, anNone, false, true, false, false},    // placed and removed again
        {chLandmarkSaved, anNone, false, true, true, false},      // saved before quitting
        {chCalibrationSaved, anNone, false, true, false, true},   // saved from the calibration editor
        {chLandmark, anCancel, true, false, false, false},
        {chLandmark, anDiscard, true, true, false, false},
        {chLandmark, anSave, true, true, true, false},
        {chCalibration, anSave, true, true, false, true},
        {chCalibration, anSaveNoFile, true, false, false, false},  // the file question cancelled
        {chCalibration, anDiscard, true, true, false, false},
    };
    int row = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE("row " + std::to_string(row));
        NewWindow();
        const fs::path lmFile = OpenLandmarkCopy("quit-" + std::to_string(row) + ".xml");
        const fs::path calFile = Dir / ("quit-cal-" + std::to_string(row++) + ".xml");
        const auto lmBefore = fs::last_write_time(lmFile);
        QString suggested;
        W->AskSaveFile = [&](const QString&, const QString& Suggested, const QString&) {
            suggested = Suggested;
            return c.answer == anSaveNoFile ? QString() : QString::fromStdString(calFile.string());
        };
        ChooseMap("austria.xml");
        Key(Qt::Key_0, Qt::ControlModifier);
        const QPoint graz = At(kGrazLat, kGrazLong);
        if (c.change == chLandmark || c.change == chLandmarkUndone || c.change == chLandmarkSaved) {
            Key(Qt::Key_L);
            QTest::mouseClick(&W->Map(), Qt::LeftButton, {}, graz);
            if (c.change == chLandmarkUndone)
                Key(Qt::Key_Z, Qt::ControlModifier);
            if (c.change == chLandmarkSaved) {
                ASSERT_TRUE(W->SaveLandmarkFile(QString::fromStdString(lmFile.string())));
            }
        }
        qv::TCalQuad q{};
        if (c.change == chCalibration || c.change == chCalibrationSaved) {
            W->CalibEditor().show();
            QCoreApplication::processEvents();
            Key(Qt::Key_C);
            q = W->Map().CalibData().CalQuads[1];
            const qv::TPoint p = W->Map().MapImageToControl({q.MapX, q.MapY});
            QTest::mousePress(&W->Map(), Qt::LeftButton, {}, QPoint(p.X, p.Y));
            QTest::mouseMove(&W->Map(), QPoint(p.X + 30, p.Y + 20));
            QTest::mouseRelease(&W->Map(), Qt::LeftButton, {}, QPoint(p.X + 30, p.Y + 20));
            q = W->Map().CalibData().CalQuads[1];
            if (c.change == chCalibrationSaved) {
                ASSERT_TRUE(W->CalibEditor().SaveFile(QString::fromStdString(calFile.string())));
            }
        }
        EXPECT_EQ(W->LandmarksModified(), c.change == chLandmark);
        EXPECT_EQ(W->CalibrationModified(), c.change == chCalibration);
        if (c.change != chCalibrationSaved)
            fs::remove(calFile);

        TModalAnswer<QMessageBox> answer([&](QMessageBox& B) {
            B.button(c.answer == anCancel ? QMessageBox::Cancel : c.answer == anDiscard ? QMessageBox::Discard : QMessageBox::Save)->click();
        });
        EXPECT_EQ(W->close(), c.closed);
        EXPECT_EQ(answer.Opened, c.asked ? 1 : 0);
        EXPECT_EQ(fs::last_write_time(lmFile) != lmBefore, c.landmarksWritten);
        EXPECT_EQ(fs::exists(calFile), c.calibrationWritten);
        if (c.change == chCalibration && c.answer != anDiscard) {
            EXPECT_TRUE(suggested.endsWith("austria.xml")) << suggested.toStdString();  // the map's own file offered
        }
        if (c.calibrationWritten) {
            // The file holds the calibration with the point where it was dragged.
            qv::TCalibData d;
            qv::TCalibModel model = qv::cmUndefined;
            ASSERT_TRUE(qv::ParseCalibData(calFile.string(), "", d, model));
            EXPECT_EQ(d.CalQuads[1], q);
        }
        if (c.landmarksWritten) {
            EXPECT_EQ(ReadBack(lmFile).size(), 9u);
        }
    }
}

}  // namespace
