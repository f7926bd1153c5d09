// The scripted-session fixture of the viewer's interaction tests: a shown TViewerWindow over the bundled
// atlas (made once per suite in a scratch folder), the control pixel of a place, and a helper that answers
// the modal dialog a step opens.
#pragma once

#include "viewer_window.h"

#include <QApplication>
#include <QComboBox>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

namespace viewer_test {

namespace fs = std::filesystem;

constexpr double kWienLat = 48.2085, kWienLong = 16.3721, kGrazLat = 47.0707, kGrazLong = 15.4395;

class TViewerFixture : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        Dir = fs::temp_directory_path() / ("qvgeo-interaction-test-" + std::to_string(QCoreApplication::applicationPid()));
        Files = viewer::PrepareBundledAtlas((Dir / "data").string(), QVGEO_SOURCE_DIR "/data/samples");
    }
    static void TearDownTestSuite() { fs::remove_all(Dir); }
    void SetUp() override { NewWindow(); }
    // A fresh window, shown and active (the one before it is destroyed without being asked to close).
    void NewWindow()
    {
        W.reset();
        W = std::make_unique<viewer::TViewerWindow>(Files);
        W->resize(1000, 720);
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
    // The control pixel of a place on the map shown.
    QPoint At(double Lat, double Long)
    {
        std::int32_t x = 0, y = 0;
        EXPECT_TRUE(W->Map().CalcPixelCoords(Lat, Long, x, y));
        const qv::TPoint p = W->Map().MapImageToControl({x, y});
        return {p.X, p.Y};
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
    // A closed modal dialog leaves no active window, and shortcuts need one.
    void Reactivate()
    {
        W->activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(W.get()));
    }
    std::string Shown() const { return fs::path(W->Atlas().GetMapDef(W->Atlas().CurrentMap()).MapFName).filename().string(); }

    static inline fs::path Dir;
    static inline viewer::TAtlasFiles Files;
    std::unique_ptr<viewer::TViewerWindow> W;
};

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

}  // namespace viewer_test
