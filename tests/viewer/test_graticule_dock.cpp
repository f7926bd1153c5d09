// Tools > Detect graticule as a user works it: a scanned graticule map opened as a picture, its grid
// found, a crossing clicked and named, a wrongly placed point dragged and removed, the calibration
// applied and saved; and a picture without a grid, which yields no guess.
#include "interaction_fixture.h"

#if QVGEO_WITH_OPENCV

#include "graticule_dock.h"

#include <qvgeo/mapview/empty_map.h>
#include <qvgeo/platform/image_files.h>

#include <QLabel>

#include <cmath>

namespace {

using namespace viewer_test;

// Our own generated map of 46..49° N, 14..18° E, parallels every 0.5° and meridians every 1°, 1260 x 960
// pixels: 300 pixels a degree across and 300 a degree down, so every line lies on a whole pixel.
struct TScan {
    fs::path File;
    qv::TCalibData Truth;
};

TScan WriteScan(const fs::path& Dir, bool Grid)
{
    qv::TEmptyMapRequest r;
    r.LatMin = 46.0;
    r.LatMax = 49.0;
    r.LongMin = 14.0;
    r.LongMax = 18.0;
    r.LatGratDist = 0.5;
    r.LongGratDist = 1.0;
    r.Width = 1260;
    r.Height = 960;
    r.ShowGrat = Grid;
    qv::TBitmap b;
    TScan s;
    qv::GenerateEmptyMap(r, b, s.Truth);
    s.File = Dir / (Grid ? "graticule-scan.bmp" : "blank-scan.bmp");
    qv::SaveImageFile(b, s.File.string());
    return s;
}

// The pixel of (Lat, Long) on the generated map: the rectangle lies linearly on [30, W-30] x [30, H-30].
void TruePixel(double Lat, double Long, double& X, double& Y)
{
    X = 30.0 + (Long - 14.0) * 300.0;
    Y = 930.0 - (Lat - 46.0) * 300.0;
}

class GraticuleDockTest : public TViewerFixture {
protected:
    viewer::TGraticuleDock& Dock() { return *W->GraticuleDock(); }
    template <typename T>
    T* Child(const char* Name) { return Dock().findChild<T*>(Name); }
    QPoint Control(double X, double Y)
    {
        const qv::TPoint p = W->Map().MapImageToControl({static_cast<std::int32_t>(std::lround(X)), static_cast<std::int32_t>(std::lround(Y))});
        return {p.X, p.Y};
    }
    // The proposed crossing nearest the true pixel of (Lat, Long), 1-based.
    int NodeNear(double Lat, double Long)
    {
        double x = 0, y = 0;
        TruePixel(Lat, Long, x, y);
        int best = 0;
        double bestD = 1e9;
        for (std::size_t i = 0; i < Dock().Grid().Nodes.size(); ++i) {
            const qv::TGratNode& n = Dock().Grid().Nodes[i];
            if (std::hypot(n.X - x, n.Y - y) < bestD)
                bestD = std::hypot(n.X - x, n.Y - y), best = static_cast<int>(i) + 1;
        }
        return bestD < 1.0 ? best : 0;
    }
};

TEST_F(GraticuleDockTest, FindNameCorrectAndApplyAGraticule)
{
    const TScan scan = WriteScan(Dir, true);
    QString error;
    ASSERT_TRUE(W->OpenImage(QString::fromStdString(scan.File.string()), error)) << error.toStdString();
    W->FitMap();
    QCoreApplication::processEvents();

    // Tools > Detect graticule, by its shortcut.
    QTest::keyClick(W.get(), Qt::Key_D, Qt::ControlModifier | Qt::ShiftModifier);
    ASSERT_TRUE(WaitFor([&] { return Dock().isVisible() && Dock().Grid().Found; })) << Dock().MessageText().toStdString();
    const qv::TGratGrid g = Dock().Grid();  // as found
    // Parallels 46.5 .. 48.5 and meridians 15 .. 17 are drawn inside the frame; the frame lines at 46°,
    // 49°, 14° and 18° lie on the grid too and may be taken as lines.
    EXPECT_GE(g.Parallels.size(), 5u);
    EXPECT_GE(g.Meridians.size(), 3u);
    for (const qv::TGratNode& n : g.Nodes) {
        // Every proposed crossing lies on a true one.
        const double lat = 49.0 - std::round((n.Y - 30.0) / 150.0) * 0.5, lon = 14.0 + std::round((n.X - 30.0) / 300.0);
        double x = 0, y = 0;
        TruePixel(lat, lon, x, y);
        EXPECT_LT(std::hypot(n.X - x, n.Y - y), 0.5) << n.Row << " " << n.Col;
    }

    // A click on the crossing of 47.5° N and 16° E selects it and takes its lattice numbers.
    const int named = NodeNear(47.5, 16.0);
    ASSERT_GT(named, 0);
    const qv::TGratNode node = g.Nodes[static_cast<std::size_t>(named - 1)];
    QTest::mouseClick(&W->Map(), Qt::LeftButton, {}, Control(node.X, node.Y));
    EXPECT_EQ(Dock().Selected(), named);
    EXPECT_EQ(Child<QSpinBox>("graticule-row")->value(), node.Row);
    EXPECT_EQ(Child<QSpinBox>("graticule-col")->value(), node.Col);

    // Its place and the spacing, typed as a user types them.
    auto* place = Child<QLineEdit>("graticule-place");
    auto* steps = Child<QLineEdit>("graticule-steps");
    place->setFocus();
    QTest::keyClicks(place, "47.5 16");
    QTest::keyClick(place, Qt::Key_Return);
    steps->setFocus();
    QTest::keyClicks(steps, "0.5 1");
    QTest::keyClick(steps, Qt::Key_Return);
    ASSERT_TRUE(Dock().Calibration().Ok) << Dock().VerdictText().toStdString();
    EXPECT_TRUE(Dock().Calibration().Confident) << Dock().VerdictText().toStdString();
    for (double lat : {46.25, 47.75, 48.75})
        for (double lon : {14.5, 16.5, 17.5}) {
            double x = 0, y = 0, tx = 0, ty = 0;
            ASSERT_TRUE(Dock().Calibration().Fit.CalcPixelPosition(lat, lon, x, y));
            TruePixel(lat, lon, tx, ty);
            EXPECT_LT(std::hypot(x - tx, y - ty), 1.0) << lat << " " << lon;
        }

    // A point dragged 20 pixels off its crossing makes the calibration doubtful, live; removing it
    // makes it good again.
    const int other = NodeNear(48.0, 15.0);
    ASSERT_GT(other, 0);
    const qv::TGratNode o = Dock().Grid().Nodes[static_cast<std::size_t>(other - 1)];
    const QPoint from = Control(o.X, o.Y), to = Control(o.X + 20, o.Y + 12);
    QTest::mousePress(&W->Map(), Qt::LeftButton, {}, from);
    QMouseEvent move(QEvent::MouseMove, QPointF(to), W->Map().mapToGlobal(QPointF(to)), Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&W->Map(), &move);
    QTest::mouseRelease(&W->Map(), Qt::LeftButton, {}, to);
    EXPECT_EQ(Dock().Selected(), other);
    EXPECT_FALSE(Dock().Calibration().Confident) << Dock().VerdictText().toStdString();
    QTest::mouseClick(Child<QPushButton>("graticule-remove"), Qt::LeftButton);
    EXPECT_TRUE(Dock().Calibration().Confident) << Dock().VerdictText().toStdString();
    EXPECT_EQ(Dock().Grid().Nodes.size() + 1, g.Nodes.size());

    // Apply: the map takes the calibration, and the calibration editor shows it.
    QTest::mouseClick(Child<QPushButton>("graticule-apply"), Qt::LeftButton);
    EXPECT_TRUE(W->CalibEditor().isVisible());
    EXPECT_EQ(W->Map().CalibModel(), Dock().Calibration().Model);
    EXPECT_EQ(W->Map().CalibData().NumCalQuads, Dock().Calibration().Data.NumCalQuads);
    qv::TCoords c;
    double x = 0, y = 0;
    TruePixel(47.25, 15.5, x, y);
    ASSERT_TRUE(W->Map().Calibration().CalcPosition({static_cast<std::int32_t>(x), static_cast<std::int32_t>(y)}, c));
    EXPECT_NEAR(c.Latit, 47.25, 1.0 / 300.0);
    EXPECT_NEAR(c.Longit, 15.5, 1.0 / 300.0);

    // Saved beside the scan and opened again as a map of the atlas: the same model and places (a
    // calibration from the found lines included, which the map's reader alone would take as undefined).
    const qv::TCalibModel applied = W->Map().CalibModel();
    const fs::path saved = Dir / "graticule-scan.xml";
    ASSERT_TRUE(W->CalibEditor().SaveFile(QString::fromStdString(saved.string())))
        << W->CalibEditor().MessageText().toStdString();
    ASSERT_TRUE(W->OpenCalibrationFile(QString::fromStdString(saved.string()), error)) << error.toStdString();
    ASSERT_TRUE(WaitFor([&] { return W->Map().CalibModel() == applied; })) << int(W->Map().CalibModel());
    EXPECT_FALSE(W->CalibrationModified());
    ASSERT_TRUE(W->Map().Calibration().CalcPosition({static_cast<std::int32_t>(x), static_cast<std::int32_t>(y)}, c));
    EXPECT_NEAR(c.Latit, 47.25, 1.0 / 300.0);
    EXPECT_NEAR(c.Longit, 15.5, 1.0 / 300.0);
}

// A calibration made from the found lines (the parabolic model) is shown with that model when its file is
// opened, although the map's own reader takes "parabolicip" for undefined.
TEST_F(GraticuleDockTest, ACalibrationFromTheFoundLinesOpensWithItsModel)
{
    const TScan scan = WriteScan(Dir, true);
    QString error;
    ASSERT_TRUE(W->OpenImage(QString::fromStdString(scan.File.string()), error)) << error.toStdString();
    ASSERT_TRUE(W->DetectGraticule());
    ASSERT_TRUE(Dock().SetValuesFromText("49 14", "0.5 1"));  // the top-left crossing, lattice (0, 0)
    qv::TCalibData d = Dock().Calibration().Data;
    ASSERT_GE(d.NumCalLines, 8);
    d.MapFName = scan.File.filename().string();
    const fs::path file = Dir / "lines.xml";
    {
        std::ofstream out(file);
        qv::WriteRawCalDataToOpenXMLFile(out, true, "lines", d, qv::cmParabolicIp);
    }
    ASSERT_TRUE(W->OpenCalibrationFile(QString::fromStdString(file.string()), error)) << error.toStdString();
    ASSERT_TRUE(WaitFor([&] { return W->Map().CalibModel() == qv::cmParabolicIp; })) << int(W->Map().CalibModel());
    EXPECT_FALSE(W->CalibrationModified());
    double x = 0, y = 0;
    TruePixel(47.25, 15.5, x, y);
    qv::TCoords c;
    ASSERT_TRUE(W->Map().Calibration().CalcPosition({static_cast<std::int32_t>(x), static_cast<std::int32_t>(y)}, c));
    EXPECT_NEAR(c.Latit, 47.25, 1.0 / 300.0);
    EXPECT_NEAR(c.Longit, 15.5, 1.0 / 300.0);
}

TEST_F(GraticuleDockTest, ALargePictureIsSearchedOnAReducedLevelAndTheGridScaledBack)
{
    const TScan scan = WriteScan(Dir, true);
    QString error;
    ASSERT_TRUE(W->OpenImage(QString::fromStdString(scan.File.string()), error)) << error.toStdString();
    W->GraticuleDock()->MaxSearchPixels = 400000;  // the 1260 x 960 picture is searched at 630 x 480
    ASSERT_TRUE(W->DetectGraticule()) << Dock().MessageText().toStdString();
    const qv::TGratGrid& g = Dock().Grid();
    EXPECT_EQ(g.Width, 1260);
    EXPECT_EQ(g.Height, 960);
    ASSERT_GE(g.Nodes.size(), 9u);
    for (const qv::TGratNode& n : g.Nodes) {
        const double lat = 49.0 - std::round((n.Y - 30.0) / 150.0) * 0.5, lon = 14.0 + std::round((n.X - 30.0) / 300.0);
        double x = 0, y = 0;
        TruePixel(lat, lon, x, y);
        EXPECT_LT(std::hypot(n.X - x, n.Y - y), 1.5) << n.Row << " " << n.Col;
    }
    // The curves are scaled with them: each parallel passes through its crossings.
    for (const qv::TGratNode& n : g.Nodes)
        for (const qv::TGratCurve& c : g.Parallels)
            if (c.Index == n.Row) {
                EXPECT_NEAR(c.At(n.X), n.Y, 1.0);
            }
}

TEST_F(GraticuleDockTest, APictureWithoutAGridGivesNoGuess)
{
    const TScan scan = WriteScan(Dir, false);
    QString error;
    ASSERT_TRUE(W->OpenImage(QString::fromStdString(scan.File.string()), error)) << error.toStdString();
    EXPECT_FALSE(W->DetectGraticule());
    EXPECT_EQ(Dock().MessageText().toStdString(), qv::NoGraticuleFound);
    EXPECT_TRUE(Dock().Grid().Nodes.empty());
    // Nothing to apply, whatever is typed.
    EXPECT_FALSE(Dock().SetValuesFromText("47 15", "0.5 1") && Dock().Calibration().Ok);
    EXPECT_FALSE(Dock().Apply());
    EXPECT_FALSE(Child<QPushButton>("graticule-apply")->isEnabled());
}

}  // namespace

#endif
