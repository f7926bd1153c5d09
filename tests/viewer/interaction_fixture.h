// The fixture of the viewer's tests: a shown TViewerWindow over the bundled atlas and a settings file of
// its own, both in a scratch folder of the test; helpers that act as a user does and answer the modal
// dialog a step opens; and a record of the data folder's files, to show that a session changed no file
// it was not asked to.
#pragma once

#include "place_dialog.h"
#include "viewer_window.h"

#include <qvgeo/geomap/calib_types.h>
#include <qvgeo/geomap/calibration_file.h>

#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace viewer_test {

namespace fs = std::filesystem;

constexpr double kWienLat = 48.2085, kWienLong = 16.3721, kGrazLat = 47.0707, kGrazLong = 15.4395;

inline std::string ReadText(const fs::path& P)
{
    std::ifstream in(P, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

// Every file under Dir with its bytes.
inline std::map<std::string, std::string> Snapshot(const fs::path& Dir)
{
    std::map<std::string, std::string> files;
    for (const auto& e : fs::recursive_directory_iterator(Dir))
        if (e.is_regular_file())
            files[fs::relative(e.path(), Dir).generic_string()] = ReadText(e.path());
    return files;
}

// Runs the events until Done holds or about ten seconds of waiting have passed; the result is Done's.
// (QTRY_COMPARE would report to Qt's test log, not to the running gtest, which would then pass.)
inline bool WaitFor(const std::function<bool()>& Done)
{
    for (int i = 0; i < 1000 && !Done(); ++i)
        QTest::qWait(10);
    return Done();
}

// Answers the first modal dialog of type T that opens while it lives: Answer gets it and closes it. Polled
// from a timer, which also runs inside the dialog's own event loop.
template <typename T>
class TModalAnswer {
public:
    explicit TModalAnswer(std::function<void(T&)> Answer)
    {
        QObject::connect(&FTimer, &QTimer::timeout, [this, Answer] {
            if (auto* d = qobject_cast<T*>(QApplication::activeModalWidget())) {
                FTimer.stop();
                ++Opened;
                Answer(*d);
            }
        });
        FTimer.start(5);
    }
    int Opened = 0;

private:
    QTimer FTimer;
};

// Answers the next modal dialog of type T once it is up: Fill types into it and accepts or rejects it.
// Any other dialog that comes up instead fails the test and is cancelled, so that the session goes on.
template <typename T>
void AnswerNextModal(std::function<void(T&)> Fill)
{
    auto* timer = new QTimer;
    timer->setInterval(5);
    QObject::connect(timer, &QTimer::timeout, [timer, Fill] {
        QWidget* modal = QApplication::activeModalWidget();
        if (!modal)
            return;
        timer->stop();
        timer->deleteLater();
        if (auto* d = qobject_cast<T*>(modal)) {
            Fill(*d);
        } else if (auto* other = qobject_cast<QDialog*>(modal)) {
            ADD_FAILURE() << "another question came up: " << other->metaObject()->className();
            other->reject();
        }
    });
    timer->start();
}

class TViewerFixture : public ::testing::Test {
protected:
    void SetUp() override
    {
        const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
        Dir = fs::temp_directory_path() / ("qvgeo-viewer-" + std::to_string(QCoreApplication::applicationPid()) + "-" +
                                           test->test_suite_name() + "-" + test->name());
        fs::remove_all(Dir);
        Files = viewer::PrepareBundledAtlas((Dir / "data").string(), QVGEO_SOURCE_DIR "/data/samples");
        Settings = QString::fromStdString((Dir / "settings.ini").string());
        Before = Snapshot(Dir / "data");
        NewWindow();
    }
    void TearDown() override
    {
        W.reset();
        fs::remove_all(Dir);
    }
    // A fresh window, shown and active: the viewer started again over the same data and settings (the
    // window before it is destroyed without being asked to close).
    void NewWindow() { NewWindow(Files); }
    void NewWindow(const viewer::TAtlasFiles& F)
    {
        W.reset();
        W = std::make_unique<viewer::TViewerWindow>(F, nullptr, Settings);
        W->resize(WindowSize);
        W->show();
        Reactivate();
    }
    // Shows a registered map as a user does: its line in the list, chosen with the keyboard.
    void ChooseMap(const std::string& Leaf)
    {
        const std::int32_t n = W->MapNumber(Leaf);
        ASSERT_GT(n, 0) << Leaf;
        PickInList(n);
        ASSERT_EQ(W->Atlas().CurrentMap(), n);
    }
    void PickInList(std::int32_t N)
    {
        QComboBox* box = W->Atlas().MapSelector();
        box->setFocus();
        box->setCurrentIndex(N == 1 ? 1 : N - 2);
        QTest::keyClick(box, N == 1 ? Qt::Key_Up : Qt::Key_Down);
        QCoreApplication::processEvents();  // the graticule follows the map once its frame is done
    }
    void Select(const std::string& Leaf)
    {
        const std::int32_t n = W->MapNumber(Leaf);
        ASSERT_GT(n, 0) << Leaf;
        ASSERT_TRUE(W->Atlas().SelectMap(n)) << Leaf;
    }
    // The control pixel of a place on the map shown.
    QPoint At(double Lat, double Long)
    {
        std::int32_t x = 0, y = 0;
        EXPECT_TRUE(W->Map().CalcPixelCoords(Lat, Long, x, y));
        return Control({x, y});
    }
    QPoint Control(qv::TPoint ImagePixel)
    {
        const qv::TPoint c = W->Map().MapImageToControl(ImagePixel);
        return {c.X, c.Y};
    }
    // A key as the window system delivers it: to the focus widget, shortcuts first.
    void Key(int K, Qt::KeyboardModifiers M = Qt::NoModifier)
    {
        QTest::keyClick(W->windowHandle(), Qt::Key(K), M);
        QCoreApplication::processEvents();
    }
    // Three times the fit, about the map's centre: the map overhangs the view on every side, so that a pan
    // or a zoom is not confined to the map's edges.
    void ZoomedIntoTheMiddle()
    {
        qv::TGeoMap& m = W->Map();
        m.ZoomFitPage();
        m.SetMagnification(3 * m.Magnification());
        m.BringMapPixelToCenter({m.MapWidth() / 2, m.MapHeight() / 2});
    }
    // Shows the map unmagnified from its top-left corner, so that a control pixel is an image pixel.
    void Unmagnified()
    {
        W->Map().SetMagnification(1.0);
        W->Map().SetTopLeft({0, 0});
        W->Map().Paint();
    }
    // A closed modal dialog leaves no active window, and shortcuts need one.
    void Reactivate()
    {
        W->activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(W.get()));
    }
    std::string Shown() const { return fs::path(W->Atlas().GetMapDef(W->Atlas().CurrentMap()).MapFName).filename().string(); }
    int Points() { return qv::ValidCalQuads(W->Map().CalibData()); }
    QPushButton* EditorButton(const char* Name) { return W->CalibEditor().findChild<QPushButton*>(Name); }
    // The files of the data folder that differ from the start (added, removed or changed), but Allowed.
    std::vector<std::string> Changed(const std::vector<std::string>& Allowed = {})
    {
        std::vector<std::string> changed;
        const auto now = Snapshot(Dir / "data");
        for (const auto& [f, bytes] : now)
            if (std::find(Allowed.begin(), Allowed.end(), f) == Allowed.end() && (!Before.count(f) || Before.at(f) != bytes))
                changed.push_back(f);
        for (const auto& [f, bytes] : Before)
            if (!now.count(f))
                changed.push_back(f);
        return changed;
    }

    QSize WindowSize{1000, 720};
    fs::path Dir;
    viewer::TAtlasFiles Files;
    QString Settings;
    std::map<std::string, std::string> Before;
    std::unique_ptr<viewer::TViewerWindow> W;
};

// The answer to the reference-point question of a pixel: UTM metres or degrees, typed as a user types.
struct TAnswer {
    qv::TPoint Pixel;
    double A, B;  // northing and easting (metres), or latitude and longitude (degrees)
};

// Calibrating in the editor: a window large enough for the unmagnified bundled maps beside the editor.
class TCalibrateFixture : public TViewerFixture {
protected:
    TCalibrateFixture() { WindowSize = {1400, 1000}; }
    // Clicks Pixel with the calibration tool and answers the question that follows; true when the
    // editor then holds one point more.
    bool ClickAndAnswer(const TAnswer& P, bool Utm, int Zone = 33)
    {
        const int before = Points();
        if (Utm)
            AnswerNextModal<viewer::TUTMPlaceDialog>([&P, Zone](viewer::TUTMPlaceDialog& D) {
                D.EastingEdit()->clear();
                QTest::keyClicks(D.EastingEdit(), QString::number(P.B, 'f', 2));
                D.NorthingEdit()->clear();
                QTest::keyClicks(D.NorthingEdit(), QString::number(P.A, 'f', 2));
                if (D.ZoneBox()->isEnabled())
                    D.ZoneBox()->setValue(Zone);
                QTest::mouseClick(D.OkButton(), Qt::LeftButton);
            });
        else
            AnswerNextModal<viewer::TPlaceDialog>([&P](viewer::TPlaceDialog& D) {
                D.PlaceEdit()->clear();
                QTest::keyClicks(D.PlaceEdit(), QString("%1 %2").arg(P.A, 0, 'f', 6).arg(P.B, 0, 'f', 6));
                QTest::mouseClick(D.OkButton(), Qt::LeftButton);
            });
        QTest::mouseClick(&W->Map(), Qt::LeftButton, {}, Control(P.Pixel));
        return WaitFor([&] { return Points() == before + 1; });
    }
    // The calibration saved in File as the core reads it: its model, and each point at the pixel clicked
    // and within Tolerance of the place typed.
    static qv::TCalibData ReadSaved(const std::string& File, qv::TCalibModel Model, const std::vector<TAnswer>& Typed,
                                    double Tolerance)
    {
        qv::TCalibData d;
        qv::TCalibModel model = qv::cmUndefined;
        EXPECT_TRUE(qv::ParseCalibData(File, "", d, model)) << File;
        EXPECT_EQ(model, Model);
        EXPECT_EQ(d.NumCalQuads, int(Typed.size()));
        for (std::size_t i = 0; i < Typed.size() && int(i) < d.NumCalQuads; ++i) {
            const qv::TCalQuad& q = d.CalQuads[i];
            EXPECT_EQ((qv::TPoint{q.MapX, q.MapY}), Typed[i].Pixel) << i;
            EXPECT_NEAR(q.Latitude, Typed[i].A, Tolerance) << i;
            EXPECT_NEAR(q.Longitude, Typed[i].B, Tolerance) << i;
        }
        return d;
    }
};

}  // namespace viewer_test
