// TGeoMap's translation of Qt input into the mouse tool: double clicks, keys with their aliases, and
// handlers that throw in the middle of an operation. The rules themselves are tested without a window
// (tests/geomap/test_map_mouse_tool.cpp).
#include <qvgeo/mapview/geo_map.h>

#include <QKeyEvent>
#include <QTest>

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using namespace qv;
constexpr auto L = Qt::LeftButton;

void Send(TGeoMap& M, QEvent&& E) { QApplication::sendEvent(&M, &E); }

QMouseEvent Mouse(TGeoMap& M, QEvent::Type Type, QPoint P, Qt::MouseButtons Held)
{
    return QMouseEvent(Type, QPointF(P), M.mapToGlobal(QPointF(P)), L, Held, {});
}

TEST(GeoMapInput, TheSecondPressOfADoubleClickPlacesNoLandMark)
{
    TGeoMap m;
    m.CreateEmptyMapInMemory(40, 10, 50, 20, 1, 1, 1000, 800, false);
    m.SetMouseAction(maLandMark);
    const QPoint p{100, 80};
    Send(m, Mouse(m, QEvent::MouseButtonPress, p, L));
    Send(m, Mouse(m, QEvent::MouseButtonRelease, p, {}));
    Send(m, Mouse(m, QEvent::MouseButtonDblClick, p, L));
    Send(m, Mouse(m, QEvent::MouseButtonRelease, p, {}));
    EXPECT_EQ(m.NumLandMarks(), 1);
}

TEST(GeoMapInput, KeysAndTheirAliases)
{
    struct {
        Qt::Key key;
        double mag;
        TPoint tl;
        bool accepted;
    } cases[] = {
        {Qt::Key_Equal, 1.25, {450, 440}, true},  // '=' is '+' without Shift
        {Qt::Key_Plus, 1.25, {450, 440}, true},
        {Qt::Key_Minus, 0.8, {338, 350}, true},
        {Qt::Key_Down, 1.0, {400, 450}, true},
        {Qt::Key_A, 1.0, {400, 400}, false},  // not the map's: left to the application
    };
    for (const auto& c : cases) {
        TGeoMap m;
        m.SetMapBitMap(TBitmap(2000, 1500));
        m.SetTopLeft({400, 400});
        const auto poi = m.ZStackPoi();
        QKeyEvent e(QEvent::KeyPress, c.key, Qt::NoModifier);
        e.setAccepted(false);
        Send(m, std::move(e));
        EXPECT_EQ(std::tuple(m.Magnification(), m.TopLeft(), m.ZStackPoi() - poi), std::tuple(c.mag, c.tl, c.accepted ? 1 : 0))
            << c.key;
    }
}

TEST(GeoMapInput, AThrowingHandlerDropsTheOperation)
{
    TGeoMap m;
    m.CreateEmptyMapInMemory(40, 10, 50, 20, 1, 1, 1000, 800, false);
    std::string error;
    m.OnError = [&](const std::exception& e) { error = e.what(); };

    // The band is switched on before OnBeginRubberBand runs; its failure switches it off again.
    m.SetMouseAction(maRubberBand);
    m.OnBeginRubberBand = [](TGeoMap&, std::int32_t, std::int32_t) { throw std::runtime_error("begin"); };
    QTest::mouseClick(&m, L, {}, {10, 10});
    EXPECT_EQ(error, "begin");
    EXPECT_FALSE(m.RubberBandOn());

    // A pan whose OnZoomPan throws: the drag ends, the next move anchors a new one instead of panning.
    m.SetMouseAction(maPan);
    m.SetConfinePanToMapImage(false);
    m.SetTopLeft({300, 300});
    bool fail = true;
    m.OnZoomPan = [&](TGeoMap&) {
        if (fail)
            throw std::runtime_error("pan");
    };
    Send(m, Mouse(m, QEvent::MouseButtonPress, {100, 100}, L));
    Send(m, Mouse(m, QEvent::MouseMove, {100, 100}, L));
    Send(m, Mouse(m, QEvent::MouseMove, {90, 100}, L));
    EXPECT_EQ(error, "pan");
    EXPECT_EQ(m.TopLeft(), (TPoint{310, 300}));
    fail = false;
    Send(m, Mouse(m, QEvent::MouseMove, {80, 100}, L));  // anchors afresh
    EXPECT_EQ(m.TopLeft(), (TPoint{310, 300}));
    Send(m, Mouse(m, QEvent::MouseMove, {70, 100}, L));
    EXPECT_EQ(m.TopLeft(), (TPoint{320, 300}));
}

// Operations that change no view (cancelling, aborting a mouse box) keep the view the application set
// since the last mouse event.
TEST(GeoMapInput, CancellingKeepsTheViewSetMeanwhile)
{
    TGeoMap m;
    m.SetMapBitMap(TBitmap(2000, 1500));
    m.SetMouseAction(maZoomWindow);
    QTest::mousePress(&m, L, {}, {10, 10});
    QTest::mouseMove(&m, {60, 60});
    m.SetMagnification(3.0);
    m.SetTopLeft({40, 50});
    m.CancelMouseOperation();
    m.MouseBoxAbort();
    EXPECT_EQ(std::pair(m.Magnification(), m.TopLeft()), std::pair(3.0, TPoint{40, 50}));
    EXPECT_TRUE(m.MouseFigures().empty() && m.ZoomState() == 0);
}

}  // namespace
