// Places that are not on earth: a calibration extrapolates without limit beyond its image and reports the
// result as valid, so the viewer itself refuses them where a landmark is placed, dragged or measured.
#include "interaction_fixture.h"

#include <QStatusBar>

#include <cmath>

namespace {

using namespace viewer_test;
using viewer::TTool;

class PlacesTest : public TViewerFixture {
protected:
    // The world map (a quarter degree a pixel) at a quarter of its size from its corner: the view reaches
    // far below and to the right of the image, where the fit gives latitudes past -90.
    void WorldFromTheCorner()
    {
        ChooseMap("world.xml");
        W->Map().SetMagnification(0.25);
        W->Map().SetTopLeft({0, 0});
        W->Map().Paint();
    }
};

TEST_F(PlacesTest, NoLandmarkIsPlacedOrDraggedOffTheEarth)
{
    WorldFromTheCorner();
    qv::TGeoMap& m = W->Map();
    Key(Qt::Key_L);
    ASSERT_EQ(W->Tool(), TTool::PlaceLandmark);
    const struct {
        qv::TPoint Pixel;  // map-image pixel
        bool Placed;
    } clicks[] = {
        {{720, 360}, true},     // the equator at the prime meridian
        {{720, 1000}, false},   // 160 degrees south
        {{2600, 360}, false},   // 470 degrees east
        {{200, 700}, true},     // Antarctica, on the image
    };
    for (const auto& c : clicks) {
        const std::int32_t before = m.NumLandMarks();
        W->statusBar()->clearMessage();
        QTest::mouseClick(&m, Qt::LeftButton, {}, Control(c.Pixel));
        QCoreApplication::processEvents();
        EXPECT_EQ(m.NumLandMarks(), before + (c.Placed ? 1 : 0)) << c.Pixel.X << "," << c.Pixel.Y;
        EXPECT_EQ(W->statusBar()->currentMessage().contains("No place on earth"), !c.Placed) << c.Pixel.X << "," << c.Pixel.Y;
    }
    // A landmark dragged off the image stays at the last place on earth the drag passed.
    Key(Qt::Key_M);
    ASSERT_EQ(W->Tool(), TTool::MoveLandmark);
    const std::int32_t k = m.NumLandMarks();
    const QPoint from = Control({200, 700}), onEarth = Control({200, 712}), off = Control({200, 1000});
    QTest::mousePress(&m, Qt::LeftButton, {}, from);
    QTest::mouseMove(&m, onEarth);
    QTest::mouseMove(&m, off);
    QTest::mouseRelease(&m, Qt::LeftButton, {}, off);
    const qv::TLandMark l = m.GetLandMarkData(k);
    std::int32_t x = 0, y = 0;
    ASSERT_TRUE(m.CalcPixelCoords(l.Latitude, l.Longitude, x, y));
    EXPECT_EQ(m.MapImageToControl({x, y}), (qv::TPoint{onEarth.x(), onEarth.y()}));
    EXPECT_LE(std::fabs(l.Latitude), 90.0);
}

TEST_F(PlacesTest, TheStatusBarShowsNoPositionOffTheEarth)
{
    WorldFromTheCorner();
    EXPECT_NE(W->PositionText(Control({720, 360}).x(), Control({720, 360}).y()), "-");
    EXPECT_EQ(W->PositionText(Control({720, 1000}).x(), Control({720, 1000}).y()), "-");
}

}  // namespace
